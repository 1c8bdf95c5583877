#include "kordll/platform/DesktopNotices.h"

#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <set>
#include <string>
#include <thread>

#ifdef KORDLL_HAVE_LIBNOTIFY
#include <libnotify/notify.h>
#endif

namespace kordll {

bool DesktopNotices::SessionBusPresent() {
  const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  if (address != nullptr && address[0] != '\0') return true;
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr || runtime[0] == '\0') return false;
  struct stat st;
  return stat((std::string(runtime) + "/bus").c_str(), &st) == 0 && S_ISSOCK(st.st_mode);
}

#ifdef KORDLL_HAVE_LIBNOTIFY

namespace {

// How long a notice waits for the service.
constexpr auto kServiceWait = std::chrono::seconds(5);

struct ActionData {
  std::function<void(int)> onAction;
  int button;
};

void OnAction(NotifyNotification*, char*, gpointer data) {
  auto* action = static_cast<ActionData*>(data);
  if (action->onAction) action->onAction(action->button);
}

void FreeAction(gpointer data) { delete static_cast<ActionData*>(data); }

// The one thread of the process that speaks to the service and runs the
// event loop that receives its actions. Made with the first notice and kept
// until the process ends, since the notification library binds itself to
// the loop it first ran on.
struct NoticeLoop {
  GMainContext* context = g_main_context_new();
  GMainLoop* loop = g_main_loop_new(context, FALSE);
  std::thread::id id;
  // Notices on screen, each held until the service says it closed.
  // Touched on the loop's thread only.
  std::set<NotifyNotification*> shown;

  NoticeLoop() {
    std::promise<std::thread::id> started;
    std::future<std::thread::id> running = started.get_future();
    std::thread([this, &started] {
      g_main_context_push_thread_default(context);
      started.set_value(std::this_thread::get_id());
      g_main_loop_run(loop);
    }).detach();
    id = running.get();
  }

  static NoticeLoop* Get() {
    static NoticeLoop* shared = new NoticeLoop();  // never destroyed
    return shared;
  }

  static void OnClosed(NotifyNotification* notice, gpointer data) {
    auto* self = static_cast<NoticeLoop*>(data);
    if (self->shown.erase(notice) != 0) g_object_unref(notice);
  }

  // On the loop's thread.
  int ShowHere(const HostNotice& notice) {
    if (!notify_is_initted() && !notify_init("KorDLL")) return 0;
    NotifyNotification* shownNotice = notify_notification_new(
        notice.title.ToUtf8().c_str(), notice.text.ToUtf8().c_str(), nullptr);
    for (const HostNotice::Action& action : notice.actions) {
      const std::string key = "button-" + std::to_string(action.button);
      notify_notification_add_action(shownNotice, key.c_str(), action.caption.ToUtf8().c_str(),
                                     OnAction, new ActionData{notice.onAction, action.button},
                                     FreeAction);
    }
    g_signal_connect(shownNotice, "closed", G_CALLBACK(OnClosed), this);
    GError* error = nullptr;
    if (!notify_notification_show(shownNotice, &error)) {
      if (error != nullptr) g_error_free(error);
      g_object_unref(shownNotice);
      return 0;
    }
    shown.insert(shownNotice);
    return 1;
  }
};

}  // namespace

DesktopNotices::DesktopNotices() = default;

DesktopNotices::~DesktopNotices() = default;

int DesktopNotices::Show(const HostNotice& notice) {
  if (!SessionBusPresent()) return 0;
  NoticeLoop* loop = NoticeLoop::Get();
  // An action that raises a notice of its own is already on the loop.
  if (std::this_thread::get_id() == loop->id) return loop->ShowHere(notice);
  struct Task {
    NoticeLoop* loop;
    HostNotice notice;
    std::promise<int> done;
  };
  auto task = std::make_shared<Task>(Task{loop, notice, {}});
  std::future<int> answer = task->done.get_future();
  g_main_context_invoke_full(
      loop->context, G_PRIORITY_DEFAULT,
      [](gpointer data) -> gboolean {
        auto& held = *static_cast<std::shared_ptr<Task>*>(data);
        held->done.set_value(held->loop->ShowHere(held->notice));
        return G_SOURCE_REMOVE;
      },
      new std::shared_ptr<Task>(task),
      [](gpointer data) { delete static_cast<std::shared_ptr<Task>*>(data); });
  if (answer.wait_for(kServiceWait) != std::future_status::ready) return 0;
  return answer.get();
}

#else  // !KORDLL_HAVE_LIBNOTIFY

DesktopNotices::DesktopNotices() = default;

DesktopNotices::~DesktopNotices() = default;

int DesktopNotices::Show(const HostNotice&) { return 0; }

#endif  // KORDLL_HAVE_LIBNOTIFY

}  // namespace kordll
