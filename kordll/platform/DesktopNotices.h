// DesktopNotices: notices on the desktop through the freedesktop
// notification service of the session bus (libnotify).
//
// A notice is shown with its title, text and actions; choosing an action
// calls the notice's onAction with the action's button. The service is
// spoken to from one thread of this object's own, which runs the event loop
// that receives the actions; onAction runs on that thread.
//
// Without a session bus (no DBUS_SESSION_BUS_ADDRESS and no bus socket in
// XDG_RUNTIME_DIR), without a notification service, or in a build without
// libnotify, Show answers 0 and nothing else happens. A service that does not
// answer within 5 seconds counts as absent for that notice.
//
// Thread safety: Show may be called from any thread, onAction included.

#ifndef KORDLL_PLATFORM_DESKTOPNOTICES_H_
#define KORDLL_PLATFORM_DESKTOPNOTICES_H_

#include <memory>
#include <mutex>

#include "kordll/platform/Host.h"

namespace kordll {

class DesktopNotices {
 public:
  // Nothing is started before the first notice.
  DesktopNotices();
  DesktopNotices(const DesktopNotices&) = delete;
  DesktopNotices& operator=(const DesktopNotices&) = delete;
  // Ends the thread; notices still on screen stay there, their actions
  // reach nobody any more.
  ~DesktopNotices();

  // 1 when the service took the notice, else 0.
  int Show(const HostNotice& notice);

  // Whether a session bus can be reached at all.
  static bool SessionBusPresent();

 private:
  struct Loop;
  std::mutex mutex_;
  std::unique_ptr<Loop> loop_;  // guarded by mutex_; made on first use
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_DESKTOPNOTICES_H_
