// ActivityCtrl: the controller of the activity list (id 19), the smallest
// complete controller with a record database of its own.
//
// An activity is a record of relation 29 that an application attaches to
// another record: its field 11 holds that record's GUID. The controller keeps
// them in the database "Activities" in the current user's running path and
// finds an activity again by the GUID it concerns.
//
// Life: the constructor registers the controller under id 19 and loads the
// database at once; CloseResourceCtrl de-registers it and drops the
// constructor's reference, and the Release that ends the count deletes it,
// and with it the database. Records are held by the controller (entered in
// its registry and reserved once) until the controller goes or the activity
// is removed.
//
// Loading passes over damage: a slot that cannot be read because its chain is
// broken is deleted from the file (when the file still takes writes) and the
// scan goes on with the next one, so a damaged slot costs that record only.
//
// Thread safety: commands run on the caller's thread; the registry and the
// associations are changed under the controller's lock (LockResource).

#ifndef KORDLL_CONTROL_ACTIVITYCTRL_H_
#define KORDLL_CONTROL_ACTIVITYCTRL_H_

#include <unordered_map>

#include "kordll/control/ResourceController.h"
#include "kordll/platform/CString.h"

namespace kordll {

class AZeusDB;

// The relation of activity records, and the field that holds the GUID of
// the record an activity concerns.
constexpr int kActivityRelation = 29;
constexpr int kActivityAssocField = 11;
// The status every loaded activity is given.
constexpr int kActivityLoadedStatus = 6;

class ActivityCtrl : public ResourceController {
 public:
  // Registers under id 19 and loads the activities of the current user's
  // running path (see LoadResources).
  ActivityCtrl();
  ActivityCtrl(const ActivityCtrl&) = delete;
  ActivityCtrl& operator=(const ActivityCtrl&) = delete;
  // Under the lock: gives up every record (savable ones are released first,
  // as they were reserved when entered); then deletes the database.
  ~ActivityCtrl() override;

  // The activity of the record with GUID guid, not reserved for the caller,
  // or null. With two activities for one record, the later one entered.
  Focusable* GetActivityItem_wAssocFocGUID(CString guid);

  // 29780 (add): a record of relation 29 in message->focusable is entered
  // and, if savable, stored in the database and reserved; panels hear 1057
  // (kind 1). A record whose GUID the controller already holds is not
  // entered. 29781 (remove): the record leaves the database and the
  // controller; panels hear 1055 (kind 2) unless the application is
  // closing; the record may be deleted by this. Both act only on a record
  // of relation 29, and both answer 1 (and set *result to 1) whatever the
  // message carries; every other command answers 0.
  int InterpretGUICommand(PANELVIEWMESSAGE* message, int* result) override;
  // Opens "Activities" in runningPath and enters every record it holds.
  // Without a running path no database is made (nothing could be kept
  // outside a user's folder) and the controller is loaded empty; a second
  // call while a database is open does nothing. Panels hear 1025.
  void LoadResources(CString runningPath) override;
  // De-registers the controller and drops the constructor's reference.
  void CloseResourceCtrl() override;

  // The database, or null without a running path. Owned by the controller.
  AZeusDB* GetActivityDB() { return activityDB_; }

 private:
  void AddActivity(Focusable* record);
  void RemoveActivity(Focusable* record);

  // State below is protected by LockResource.
  std::unordered_map<CString, Focusable*> associations_;  // values not owned
  AZeusDB* activityDB_ = nullptr;                         // owned
};

}  // namespace kordll

#endif  // KORDLL_CONTROL_ACTIVITYCTRL_H_
