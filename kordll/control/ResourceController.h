// ResourceController: the owner of the records of one kind, and the base of
// every controller.
//
// A controller gives its records their GUIDs ("R<id>_G<serial>"), finds them
// again by GUID, and tells the panels that listen to it about records that
// come and go. Concrete controllers override loading, closing and the message
// operations; the base class holds the registries and the reference count.
//
// GUID serials are spent when handed out: the next free serial of each
// controller id is written to the application's profile at once (section
// "User-<login>\IDRolls", entry "LRID-<id>"), so a restart continues where
// the last run stopped, even after a crash. Without an application object or
// without current settings there is no profile to keep them in, and serials
// are counted in memory from GetFirstValidIDForGUID.
//
// Lifetime is counted: the constructor reserves once, Reserve adds one, and
// the Release that brings the count to 0 deletes the controller, or, when the
// controller has a thread, posts message 18 to that thread, whose end then
// finishes the object. Never delete a controller directly once others hold
// it.
//
// Panels are reached through the registry of controllers (the registry entry
// point of the record core): until a registry stands, records added or
// removed reach nobody.
//
// Every operation survives a controller without its state record (data_ set
// to null by a derived class): it answers 0, -1, an empty text or "closed".
//
// Thread safety: one re-entrant lock per controller. Reserve, Release and
// GetAvailableGUID take it themselves; the record registries
// (RegisterFocusable, DeRegisterFocusable, CheckFocusable, AddExternalGUID)
// do not, so callers on several threads wrap them in LockResource and
// UnLockResource. Release never deletes or posts while it holds the lock.

#ifndef KORDLL_CONTROL_RESOURCECONTROLLER_H_
#define KORDLL_CONTROL_RESOURCECONTROLLER_H_

#include <unordered_map>

#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/CString.h"

namespace kordll {

class CWinThread;
class ContentFilter;
class Focusable;
class ResourceController;
struct PANELVIEWMESSAGE;
struct _struct_RESCTRLNOTIFMSG;

// Controller ids with a fixed meaning. Ids 0 to 49 are reserved slots of the
// registry; ids from 50 on are given out at registration.
constexpr int kTreeControllerID = 7;          // ordinary records' parents: "R7_G<n>"
constexpr int kSchedulerControllerID = 8;     // the periodic scheduler
constexpr int kHelpControllerID = 13;         // relations 16 and 17: "R13_G<n>"
constexpr int kFileManagerControllerID = 14;  // downloads
constexpr int kTalkControllerID = 15;         // notifications
constexpr int kUserControllerID = 18;         // the user platform
constexpr int kActivityControllerID = 19;     // the activity list

// The private state of a controller, owned by it.
struct ResourceControllerData {
  int closed = 0;  // set by CloseResourceCtrl and StartClosingResourceCtrl
  // Record by GUID; values are not owned. A key may map to null.
  std::unordered_map<CString, Focusable*> guidMap;
  // Every record of the controller, in registration order.
  CArray<Focusable*, Focusable*> focusables;
  ResourceController* parent = nullptr;
  CString runningFile;
  CString runningPath;  // the folder of the controller's files
  CString parentGUID;   // the record this controller belongs to
  int id = -1;
  int type = -1;  // 0: a reserved slot of the registry
  int referenceCount = 0;
  int lastUsedGUID = -1;  // the next serial to hand out; -1 until read
  int firstValidIDForGUID = 0;
  int loaded = 0;
  CWinThread* thread = nullptr;
  CCriticalSection lock;
};

class ResourceController {
 public:
  // A controller with a fresh state, reserved once (count 1).
  ResourceController();
  ResourceController(const ResourceController&) = delete;
  ResourceController& operator=(const ResourceController&) = delete;

  // --- Virtual operations, in the order derived classes override them ----

  // 1. Deleted by the Release that ends the count (or by the controller's
  // thread at its end).
  virtual ~ResourceController();
  // 2. 0 without state; with nonEmpty set, 1 while the controller holds
  // records; otherwise whether it was marked loaded.
  virtual int GetLoadStatus(int nonEmpty);
  // 3.
  virtual void SetLoaded(int loaded);
  // 4. A new record of the controller's class for relation; null here.
  virtual Focusable* GenerateFocusable(int relation);
  // 5. Called by the registry before it stores the controller. 1 here.
  virtual int LoadRelatedRelations();
  // 6. 1 when the command was handled (result filled); 0 here.
  virtual int InterpretGUICommand(PANELVIEWMESSAGE* message, int* result);
  // 7. Enters record (origin set to this controller). With unchecked set it
  // is only appended; otherwise a record without a GUID is given one, and a
  // record whose GUID is already known is refused (0), unless
  // allowEmptySlot is set and the GUID maps to null. 1 when entered; 0 for
  // null, for a duplicate, and when no GUID could be given.
  virtual int RegisterFocusable(Focusable* record, int unchecked, int allowEmptySlot);
  // 8. Takes record out: the controller drops its hold on the header (which
  // may delete the record; *released, if given, says so) and forgets the
  // GUID. 1 when the very pointer was in the array; 0 otherwise, and at
  // once when the GUID is unknown and force is 0.
  virtual int DeRegisterFocusable(Focusable* record, int* released, int force);
  // 9. Drops one reference; see the comment at the top. 1 when the count
  // reached 0 (the controller is gone or its thread told to end), 1 also
  // at a count already 0 (nothing happens then), else 0. destroyed, if
  // given, is set to 1 when this call ended the controller, else 0.
  virtual int Release(int* destroyed = nullptr);
  // 10.
  virtual void Reserve();
  // 11-13. News from another controller; nothing here (InsertMsg: 0).
  virtual void UpdateMsg(_struct_RESCTRLNOTIFMSG* message);
  virtual void DeleteMsg(_struct_RESCTRLNOTIFMSG* message);
  virtual int InsertMsg(_struct_RESCTRLNOTIFMSG* message);
  // 14. Nothing here.
  virtual void UpdateFocusable(Focusable* record, int flag);
  // 15. DeRegisterFocusable(record, null, 0); then, with notify set, panel
  // message 1035 (kind 2) for the record. The record may be gone after.
  virtual void DeleteFocusable(Focusable* record, int notify);
  // 16. RegisterFocusable(record, 0, 0), then panel message 1037 (kind 1),
  // whatever the registration answered. Returns 1.
  virtual int AddFocusable(Focusable* record);
  // 17-19. Nothing here.
  virtual void RefreshFocusables(Focusable* record, CArray<Focusable*, Focusable*>* out);
  virtual void AwakeFocusable(Focusable* record);
  virtual void SuspendFocusable(Focusable* record);
  // 20. The record with guid, not reserved, or null: with walk set the
  // array is searched, else the GUID map.
  virtual Focusable* CheckFocusable(CString guid, int walk);
  // 21. The record with that serial; null here.
  virtual Focusable* GetFocusable_wID(int id);
  // 22. Enters record in the GUID map under the record's own GUID (guid
  // only has to be non-empty). 0 when guid is empty, record is null, or the
  // record's GUID is already known.
  virtual int AddExternalGUID(CString guid, Focusable* record);
  // 23. A child controller's news; nothing here.
  virtual void OnUpdateResourceCtrl(_struct_RESCTRLNOTIFMSG* message);
  // 24. While the registry is valid: marks message as coming from this
  // controller and hands it to the parent's OnUpdateResourceCtrl. The
  // message stays with the caller.
  virtual void UpdateParentResourceCtrl(_struct_RESCTRLNOTIFMSG* message);
  // 25. Loads the records from runningPath; nothing here.
  virtual void LoadResources(CString runningPath);
  // 26. The load on first use (called with ""); nothing here.
  virtual void LateLoadResource(CString runningPath);
  // 27, 28. Mark the controller closed.
  virtual void CloseResourceCtrl();
  virtual void StartClosingResourceCtrl();
  // 29. 1 without state.
  virtual int IsResourceCtrlClosed();
  // 30, 31. Nothing here; GetIntStatistic answers 0.
  virtual void PerformMaintenance(int flag);
  virtual int GetIntStatistic(int which);
  // 32, 33. Enter and leave the controller's lock.
  virtual void LockResource();
  virtual void UnLockResource();
  // 34. Appends every record, in order, each reserved for the caller, who
  // owes one Release per record. The filter is not read here.
  virtual void GetFocusables_wFilter(CArray<Focusable*, Focusable*>* out, ContentFilter* filter);
  // 35. The same for new records only: posts whose status has the unread
  // bit (2).
  virtual void GetNewFocusables_wFilter(CArray<Focusable*, Focusable*>* out, ContentFilter* filter);
  // 36, 37. -1 without state.
  virtual int GetResourceControllerID();
  virtual void SetResourceControllerID(int id);
  // 38. The next GUID "R<id>_G<serial>"; the serial is spent and the next
  // one written to the profile before this returns. "" without state, and
  // when the profile refused the write (the serial is spent all the same).
  virtual CString GetAvailableGUID();

  // --- State accessors ----------------------------------------------------

  int GetResourceControllerType();
  void SetResourceControllerType(int type);
  // 1 for type 0, the reserved slots of the registry.
  int IsRCReserved();
  CString GetParentGUID();
  void SetParentGUID(CString guid);
  ResourceController* GetParentResourceCtrl();
  void SetParentResourceCtrl(ResourceController* parent);
  CString GetRunningPath();
  void SetRunningPath(CString path);
  CString GetRunningFile();
  void SetRunningFile(CString file);
  // The controller's thread, or null. The thread object must stay alive
  // until it has finished the controller.
  CWinThread* GetResourceThread();
  void SetThreadResource(CWinThread* thread);
  // The next serial to hand out as last read or written; -1 without state
  // and before the first read.
  int GetLastUsedGUID();
  // The serial of a controller with nothing stored; -1 without state.
  int GetFirstValidIDForGUID();
  void SetFirstValidIDForGUID(int id);
  // Sets the next serial and writes it to the profile. 1 when stored (or
  // when there is no profile to store it in), 0 when the profile refused it
  // or without state.
  int UpdateLastUsedGUID(int serial);
  // The name of the controller's database; "" here.
  CString GetDBName();
  // Every record, after the load on first use when the controller holds none
  // and is not loaded. Without state an empty array of the calling thread.
  CArray<Focusable*, Focusable*>& GetFocusables();
  // The same under the controller's lock (left before the load); null
  // without state.
  CArray<Focusable*, Focusable*>* GetFocusablesPtr();

 protected:
  // Null when a derived class took the state away.
  ResourceControllerData* data_;

 private:
  // "User-<login>\IDRolls", or "" without current settings.
  static CString IDRollsSection();
  // Stores serial as the next free one. REQUIRES: data_ and its lock held.
  int WriteNextSerial(int serial);
  // Appends the record to the array and notes its origin.
  void Enter(Focusable* record);
  void CollectFocusables(CArray<Focusable*, Focusable*>* out, bool newOnly);
};

}  // namespace kordll

#endif  // KORDLL_CONTROL_RESOURCECONTROLLER_H_
