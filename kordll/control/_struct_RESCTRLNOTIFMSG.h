// _struct_RESCTRLNOTIFMSG: news from one controller to another, to its
// parent controller, and to the notification (talk) controller.
//
// The kind tells what happened (the kNotify... numbers below; at the entry
// points of the download list the kinds are operations instead: 1 insert,
// 2 delete, 4 update). A controller that passes the news upward writes its
// own id into originatorID. The message stays with whoever made it; the
// receivers read it during the call and do not keep it.
//
// The first two date maps own their values: the destructor deletes them.
// The third does not. The records are not owned.
//
// Not copyable (the date maps own what they point to). Thread safety: none;
// a message belongs to one thread at a time.

#ifndef KORDLL_CONTROL_STRUCT_RESCTRLNOTIFMSG_H_
#define KORDLL_CONTROL_STRUCT_RESCTRLNOTIFMSG_H_

#include <map>
#include <utility>

#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"

namespace kordll {

class Focusable;

// Notification kinds. They choose the title of the talk the news becomes
// and are exchanged with the applications: these numbers must not change.
constexpr int kNotifyWarning = 0;
constexpr int kNotifyError = 1;
constexpr int kNotifyNewChannel = 2;
constexpr int kNotifyNewOPML = 3;
constexpr int kNotifyNewEnclosure = 4;
constexpr int kNotifyMaintenanceApproval = 5;  // command goes to the talk's command
constexpr int kNotifyRecommendation = 6;
constexpr int kNotifyDownloadFinished = 7;
constexpr int kNotifyProgress = 8;
constexpr int kNotifyDownloadApproval = 9;
constexpr int kNotifyChannelRemoval = 10;  // a Bloglines channel

struct _struct_RESCTRLNOTIFMSG {
  // Dates by record GUID.
  using DateMap = std::map<CString, COleDateTime*>;

  // Every field at its default (below).
  _struct_RESCTRLNOTIFMSG();
  // Deletes the values of the first two date maps.
  ~_struct_RESCTRLNOTIFMSG();
  _struct_RESCTRLNOTIFMSG(const _struct_RESCTRLNOTIFMSG&) = delete;
  _struct_RESCTRLNOTIFMSG& operator=(const _struct_RESCTRLNOTIFMSG&) = delete;

  // The controller that raised it; overwritten on the way to a parent.
  int originatorID = -1;
  // What has happened.
  int kind = 0;
  // The record, where there is one. The download list's InsertFiles reads
  // this member as bit flags instead.
  Focusable* focusable = nullptr;
  // Copied to the talk's command for kind 5.
  int command = 0;
  // Title or text; stored as the title of the notification.
  CString text;
  // The records concerned; kinds 5, 7, 9 and 10 use the first.
  CArray<Focusable*, Focusable*> focusables;
  // The first two own their values; the third does not.
  DateMap dateMaps[3];
  std::pair<int, int> first{0, 0};
  std::pair<int, int> second{0, 0};
  // Status bits to clear on the record, and to set.
  int clearStatus = 0;
  int setStatus = 0;
};

}  // namespace kordll

#endif  // KORDLL_CONTROL_STRUCT_RESCTRLNOTIFMSG_H_
