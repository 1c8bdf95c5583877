// SystemTalkCtrl: the controller of talks (id 15), the messages of the
// system to the user that do not interrupt.
//
// A talk (TalkItem, relation 19) is a line in a list that the user opens
// when convenient. Under each talk the controller keeps the notifications
// (NotificationItem, relation 20) that raised it, and each notification
// holds one reservation on every record it is about, so those records stay
// in memory while the talk stands. Talks live in memory only: nothing is
// stored, and each log-in starts with an empty list (the registry makes a
// new controller every time it starts).
//
// Other controllers raise a talk with FireNotification, from any thread.
// The talk's title follows the kind of the news (GetTalkTitle); a finished
// download with a file title is titled "Downloaded : <file title>" (or
// "File Not Found : <file title>"). A talk is removed by command 29752
// (the talk in focusable) or, for a progress talk, by command 29751 (its
// report in object); removing a talk leaves its notifications with the
// controller, and so the records they hold stay in memory, until the
// controller closes at log-off. Closing the controller removes every talk
// and notification and asks nothing.
//
// Each talk that is not silent is also offered to the host as a desktop
// notice, whose actions send the commands of the talk's dialog.
//
// Life: the registry's factory makes the controller each time the registry
// starts; it registers itself under id 15 and is the current one (Get)
// until CloseResourceCtrl, which removes every talk, de-registers it and
// drops the constructor's reference.
//
// Thread safety: any thread may fire notifications, register errors and
// send the commands. The maps and the record registry are changed under
// the controller's lock (LockResource); panels are told with no lock held,
// on the calling thread.

#ifndef KORDLL_TALK_SYSTEMTALKCTRL_H_
#define KORDLL_TALK_SYSTEMTALKCTRL_H_

#include <map>

#include "kordll/control/ResourceController.h"
#include "kordll/platform/CString.h"

namespace kordll {

class ErrorMsg;
class Focusable;
class NotificationItem;
class ProgressData;
class TalkItem;
struct PANELVIEWMESSAGE;
struct _struct_RESCTRLNOTIFMSG;

// Relations of talks and of their notifications, and the field of the
// title (and of a notification's text).
constexpr int kTalkRelation = 19;
constexpr int kNotificationRelation = 20;
constexpr int kTalkFieldTitle = 4;

// Talk kinds beyond the notification kinds: a new-enclosure report, which
// opens in the main panel.
constexpr int kTalkKindEnclosureReport = 1115;

// File records (relation 18): the file title, and status bits read by
// talks (the file was not found; the file is stored on disk).
constexpr int kFileFieldTitle = 6;
constexpr int kFileStatusNotFound = 0x1000;
constexpr int kFileStatusOnDisk = 0x80;

class SystemTalkCtrl : public ResourceController {
 public:
  // Registers under id 15 and becomes the current talk controller.
  SystemTalkCtrl();
  SystemTalkCtrl(const SystemTalkCtrl&) = delete;
  SystemTalkCtrl& operator=(const SystemTalkCtrl&) = delete;
  // Removes the talks still held (see CloseResourceCtrl) and the filed
  // errors.
  ~SystemTalkCtrl() override;

  // The current controller, or null (none made yet, or closed).
  static SystemTalkCtrl* Get();
  // The same, reserved for the caller (who owes a Release), or null.
  static SystemTalkCtrl* Acquire();

  // Makes a talk of the news in message (its kind, text, command and
  // records), a notification under it holding the records, and unless
  // silent tells the panels (1037, kind 1) and the host. Returns the talk,
  // not reserved, or null without a controller (or for a null message).
  static TalkItem* FireNotification(_struct_RESCTRLNOTIFMSG* message, int silent);
  // Makes a progress talk titled title for a new report and returns the
  // report; the talk holds one reference on it until the talk goes. No
  // panel is told. Null without a controller.
  static ProgressData* FireProgressNotification(CString title);
  // Files error under its code (the controller owns it from now on) and
  // fires an error talk. Without a controller the error is deleted.
  static void RegisterError(ErrorMsg* error);

  // The title of a talk of kind (empty for a kind without one).
  static CString GetTalkTitle(int kind);
  // The notifications under talk, or null when it has none. Owned by the
  // controller; valid while the caller holds LockResource.
  CArray<NotificationItem*, NotificationItem*>* GetFiredItems(TalkItem* talk);
  // The errors filed under code (null for none); valid under LockResource.
  CArray<ErrorMsg*, ErrorMsg*>* GetRegisteredErrors(int code);
  // The talk of a progress report, not reserved, or null.
  TalkItem* GetProgressTalk(ProgressData* progress);
  // The talk of guid held by this controller, reserved for the caller (who
  // owes a Release), or null.
  TalkItem* ReserveTalk(const CString& guid);

  // 29750: the talk of the report in object is drawn again (1041, kind 3);
  // answers 1. 29751: the talk of the report in object is removed; answers
  // 0. 29752: the talk in focusable is removed (a talk this controller
  // does not hold is left alone); answers 1, also without a talk. Any
  // other command answers 0. *result is not written.
  int InterpretGUICommand(PANELVIEWMESSAGE* message, int* result) override;
  // Removes every talk (their notifications and errors with them), then
  // de-registers the controller and drops the constructor's reference.
  void CloseResourceCtrl() override;

  // Takes talk out of the list: panels hear 1035 (kind 2), the list of its
  // notifications goes (the notifications stay registered until the
  // controller closes), and the controller lets the talk go (it is deleted
  // once nobody else holds it). 1 when the record is a talk held here, else
  // 0: any other record (a notification, a file) is left alone.
  int RemoveTalk(Focusable* record);

 private:
  TalkItem* Fire(_struct_RESCTRLNOTIFMSG* message, int silent);
  ProgressData* FireProgress(const CString& title);
  // Enters record and keeps its body in memory. REQUIRES: LockResource.
  bool Hold(Focusable* record);
  // Lets go of a held record. REQUIRES: LockResource.
  void Drop(Focusable* record);
  // Takes talk out of every map; its notifications stay registered.
  // REQUIRES: LockResource.
  void Forget(TalkItem* talk);
  // Removes every talk and error without telling anybody.
  void RemoveAll();
  // Whether talk is one of this controller's talks. REQUIRES: LockResource.
  bool Holds(Focusable* talk);

  // State below is protected by LockResource.
  std::map<ProgressData*, TalkItem*> progressTalks_;
  std::map<TalkItem*, CArray<NotificationItem*, NotificationItem*>*> firedItems_;  // owned
  std::map<int, CArray<ErrorMsg*, ErrorMsg*>*> errors_;  // owned, with the errors
  bool closed_ = false;
};

}  // namespace kordll

#endif  // KORDLL_TALK_SYSTEMTALKCTRL_H_
