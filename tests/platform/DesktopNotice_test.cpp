// Desktop notices: a talk's notice reaches the session bus's notification
// service with its dialog's buttons as actions, and an action chosen there
// sends the button's command back; without a session bus nothing is shown.
//
// The notification service is the test's own (below), on the private bus of
// `dbus-run-session`; the CTest entry platform.DesktopNoticesOnSessionBus runs
// this program so and sets KORDLL_TEST_PRIVATE_BUS. Run bare, the bus test
// is skipped: a desktop's own service must not get test notices.
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/platform/DesktopHost.h"
#include "kordll/record/Focusable.h"
#include "kordll/talk/SystemTalkCtrl.h"
#include "tests/control/GlobalResourceCtrlTest.h"

#if __has_include(<gio/gio.h>)
#include <gio/gio.h>
#define KORDLL_TEST_HAVE_GIO 1
#endif

namespace kordll {
namespace {

#ifdef KORDLL_TEST_HAVE_GIO
const char kPath[] = "/org/freedesktop/Notifications";
const char kName[] = "org.freedesktop.Notifications";
const char kXml[] =
    "<node><interface name='org.freedesktop.Notifications'><method name='Notify'><arg type='s'/>"
    "<arg type='u'/><arg type='s'/><arg type='s'/><arg type='s'/><arg type='as'/><arg "
    "type='a{sv}'/>"
    "<arg type='i'/><arg type='u' direction='out'/></method><method name='GetServerInformation'>"
    "<arg type='s' direction='out'/><arg type='s' direction='out'/><arg type='s' direction='out'/>"
    "<arg type='s' direction='out'/></method></interface></node>";

// Owns the service's name on a connection of its own and notes each notice
// as "summary|body|key|caption|key|caption...".
class NoticeService {
 public:
  NoticeService() {
    std::unique_lock<std::mutex> hold(mutex_);
    thread_ = std::thread([this] { Run(); });
    changed_.wait(hold, [this] { return started_; });
  }
  ~NoticeService() {
    g_main_context_invoke(
        context_, [](gpointer l) { return g_main_loop_quit((GMainLoop*)l), 0; }, loop_);
    thread_.join();
    g_main_loop_unref(loop_), g_main_context_unref(context_);
  }
  bool owned() const { return owned_; }
  // Waits (10 s at most) for the n-th notice.
  std::string Notice(size_t n) {
    std::unique_lock<std::mutex> hold(mutex_);
    changed_.wait_for(hold, std::chrono::seconds(10), [&] { return notices_.size() > n; });
    return notices_.size() > n ? notices_[n] : "";
  }
  // The user chooses the action key of notice id (ids count from 1).
  void Choose(unsigned id, const char* key) {
    g_dbus_connection_emit_signal(bus_, nullptr, kPath, kName, "ActionInvoked",
                                  g_variant_new("(us)", id, key), nullptr);
    g_dbus_connection_emit_signal(bus_, nullptr, kPath, kName, "NotificationClosed",
                                  g_variant_new("(uu)", id, 2u), nullptr);
  }

 private:
  static void Call(GDBusConnection*, const char*, const char*, const char*, const char* method,
                   GVariant* args, GDBusMethodInvocation* call, gpointer self_data) {
    auto* self = static_cast<NoticeService*>(self_data);
    const std::string name = method;
    if (name != "Notify") {  // the server's information
      g_dbus_method_invocation_return_value(call, g_variant_new("(ssss)", "t", "t", "1", "1.2"));
    } else {
      const char *summary, *body, **actions;
      g_variant_get(args, "(&su&s&s&s^a&s@a{sv}i)", nullptr, nullptr, nullptr, &summary, &body,
                    &actions, nullptr, nullptr);
      std::string noted = std::string(summary) + "|" + body;
      for (const char** a = actions; *a != nullptr; ++a) noted += std::string("|") + *a;
      g_free(actions);
      std::lock_guard<std::mutex> hold(self->mutex_);
      self->notices_.push_back(noted);
      self->changed_.notify_all();
      g_dbus_method_invocation_return_value(call,
                                            g_variant_new("(u)", unsigned(self->notices_.size())));
    }
  }
  void Run() {
    g_main_context_push_thread_default(context_);
    const char* address = g_getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address != nullptr)
      bus_ = g_dbus_connection_new_for_address_sync(
          address,
          GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                               G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
          nullptr, nullptr, nullptr);
    if (bus_ != nullptr) {
      GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kXml, nullptr);
      static const GDBusInterfaceVTable vtable = {Call, nullptr, nullptr, {}};
      g_dbus_connection_register_object(bus_, kPath, node->interfaces[0], &vtable, this, nullptr,
                                        nullptr);
      g_dbus_node_info_unref(node);
      GVariant* reply = g_dbus_connection_call_sync(
          bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
          "RequestName", g_variant_new("(su)", kName, 4u), G_VARIANT_TYPE("(u)"),
          G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
      unsigned answer = 0;
      if (reply != nullptr) g_variant_get(reply, "(u)", &answer), g_variant_unref(reply);
      owned_ = answer == 1;
    }
    {
      std::lock_guard<std::mutex> hold(mutex_);
      started_ = true;
      changed_.notify_all();
    }
    g_main_loop_run(loop_);
    if (bus_ != nullptr) g_object_unref(bus_);
    g_main_context_pop_thread_default(context_);
  }

  GMainContext* context_ = g_main_context_new();
  GMainLoop* loop_ = g_main_loop_new(context_, FALSE);
  GDBusConnection* bus_ = nullptr;
  bool owned_ = false;
  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool started_ = false;              // guarded by mutex_
  std::vector<std::string> notices_;  // guarded by mutex_
};

#endif  // KORDLL_TEST_HAVE_GIO

class DesktopNoticeTest : public test::RegistryTest {
 protected:
  DesktopNoticeTest() { GlobalResourceCtrl::RegisterPanel(&panel_, kTalkControllerID, 0); }
  TalkItem* Fire(int kind) {
    _struct_RESCTRLNOTIFMSG news;
    news.kind = kind, news.text = "Body";
    return SystemTalkCtrl::FireNotification(&news, 0);
  }
  test::Panel panel_;
};

#ifdef KORDLL_TEST_HAVE_GIO
TEST_F(DesktopNoticeTest, ATalksNoticeReachesTheServiceAndItsActionRemovesTheTalk) {
  if (std::getenv("KORDLL_TEST_PRIVATE_BUS") == nullptr) GTEST_SKIP() << "no private bus";
  NoticeService service;
  ASSERT_TRUE(service.owned());
  DesktopHost host;
  Host::Install(&host);
  std::mutex mutex;
  std::condition_variable removed;
  bool gone = false;
  panel_.onMessage = [&](unsigned m) {
    std::lock_guard<std::mutex> hold(mutex);
    gone = gone || m == kPanelMessageRecordRemoved;
    removed.notify_all();
  };
  ASSERT_NE(Fire(kNotifyWarning), nullptr);
  EXPECT_EQ(service.Notice(0), "Tidrel Warning Report|Body|button-3|Close Talk");
  service.Choose(1, "button-3");
  std::unique_lock<std::mutex> hold(mutex);
  EXPECT_TRUE(removed.wait_for(hold, std::chrono::seconds(10), [&] { return gone; }));
  hold.unlock();
  host.ShowNotice(HostNotice());  // runs after the action on the notices' thread
  // The talk is gone; its notification stays with the list until log-off.
  for (Focusable* record : SystemTalkCtrl::Get()->GetFocusables()) {
    EXPECT_NE(record->GetFocusableRelation(), kTalkRelation);
  }
  Host::Install(nullptr);
}
#endif  // KORDLL_TEST_HAVE_GIO

TEST_F(DesktopNoticeTest, WithoutASessionBusNothingIsShownAndNothingFails) {
  const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  const std::string saved = address != nullptr ? address : "";
  setenv("DBUS_SESSION_BUS_ADDRESS", "", 1);
  setenv("XDG_RUNTIME_DIR", "/nonexistent", 1);
  DesktopHost host;
  Host::Install(&host);
  EXPECT_NE(Fire(kNotifyWarning), nullptr);
  HostNotice notice;  // nor with the headless default
  EXPECT_EQ(host.ShowNotice(notice) + Host::Install(nullptr)->ShowNotice(notice) +
                Host::Current()->ShowNotice(notice),
            0);
  if (address != nullptr) setenv("DBUS_SESSION_BUS_ADDRESS", saved.c_str(), 1);
}

}  // namespace
}  // namespace kordll
