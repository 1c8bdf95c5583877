// DesktopNotices: notices on the desktop through the freedesktop
// notification service of the session bus (libnotify).
//
// A notice is shown with its title, text and actions; choosing an action
// calls the notice's onAction with the action's button. The service is
// spoken to from one thread of the process, started with the first notice
// and running until the process ends, which also receives the actions:
// onAction runs on that thread, also after the DesktopNotices that showed
// the notice is gone.
//
// Without a session bus (no DBUS_SESSION_BUS_ADDRESS and no bus socket in
// XDG_RUNTIME_DIR), without a notification service, or in a build without
// libnotify, Show answers 0 and nothing else happens. A service that does not
// answer within 5 seconds counts as absent for that notice.
//
// Thread safety: Show may be called from any thread, onAction included.

#ifndef KORDLL_PLATFORM_DESKTOPNOTICES_H_
#define KORDLL_PLATFORM_DESKTOPNOTICES_H_

#include "kordll/platform/Host.h"

namespace kordll {

class DesktopNotices {
 public:
  // Nothing is started before the first notice.
  DesktopNotices();
  DesktopNotices(const DesktopNotices&) = delete;
  DesktopNotices& operator=(const DesktopNotices&) = delete;
  ~DesktopNotices();

  // 1 when the service took the notice, else 0.
  int Show(const HostNotice& notice);

  // Whether a session bus can be reached at all.
  static bool SessionBusPresent();
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_DESKTOPNOTICES_H_
