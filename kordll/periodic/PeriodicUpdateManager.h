// PeriodicUpdateManager: the scheduler. A thread of its own that calls
// PerformMaintenance(kind) on registered records and controllers, each at
// its own interval in seconds, and a table of timers that any thread may use.
//
// Registering: AddMaintenanceItem / AddMaintenanceRCItem put the item in a
// pending list of its interval. Every 100 ms (the heartbeat) the scheduler
// thread forms runs from the pending lists: up to 31 items of one interval
// go into one IntervalRun with one periodic timer of the interval's length,
// so a hundred items of one interval end up in four runs whose timers start
// 100 ms apart. Nothing is called at once: an item's first call comes one
// interval (plus at most one heartbeat) after it was registered, and then
// each time the run's timer fires. There is no catch-up: a timer that could
// not deliver while its thread was busy fires once.
//
// Quirks kept on purpose:
//  - The same record, kind and interval registered twice is served once; a
//    record with two kinds or at two intervals is served once for each.
//  - A controller and kind can only be registered once (the first interval
//    wins); once its pending registration is removed, the pair stays known
//    and a later AddMaintenanceRCItem of it is ignored.
//  - RemoveMaintenanceItem finds only records that are in a run: a record
//    still pending is not found (0) and enters a run at the next heartbeat.
//  - Closing does not give back the reservations of records still pending:
//    those records are going away with the system.
//
// A record or controller whose pending reservation was the last one left is
// deleted when the heartbeat gives that reservation back; it is then taken
// out of the pending list and never served.
//
// Lifetime: Start makes the one manager of the process (controller id 8)
// and registers it. At log-off the user platform de-registers it, then
// calls StartClosingResourceCtrl (registrations are refused from then on,
// timers stop and a pass under way stops after its current call) and
// CloseResourceCtrl, whose last Release ends the thread; the thread deletes
// the object after its loop. A later Start makes a new manager.
//
// Threads and locks: every static operation may be called from any thread;
// a call that finds no manager or a closing application is ignored (or
// answers 0). Timer messages are handled on the scheduler thread only.
// Three locks, always taken in this order: the run lock (held for the time
// of one run, so only one run executes at a time), the structure lock
// (guards every list and map below), and the lock of one run.
// PerformMaintenance is called with the run lock held and the structure lock
// free, so an override may itself register or remove items; an override
// that takes long delays the other runs, never registration.

#ifndef KORDLL_PERIODIC_PERIODICUPDATEMANAGER_H_
#define KORDLL_PERIODIC_PERIODICUPDATEMANAGER_H_

#include <cstdint>
#include <map>

#include "kordll/control/ResourceController.h"
#include "kordll/periodic/IntervalRun.h"
#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/CWinThread.h"

namespace kordll {

class Focusable;

class PeriodicUpdateManager : public CWinThread, public ResourceController {
 public:
  // Period in milliseconds of the timer that forms runs.
  static constexpr int kHeartbeatMs = 100;
  // A heartbeat moves at most kBatch + 1 items of one interval into a run.
  static constexpr int kBatch = 30;
  // Controller key: controller id * kControllerKeyFactor + kind.
  static constexpr int kControllerKeyFactor = 1000;
  // Interval seconds to timer milliseconds.
  static constexpr int kSecondsToTimer = 1000;

  // Use Start; the constructor is public for the thread machinery only.
  PeriodicUpdateManager();
  ~PeriodicUpdateManager() override;

  // --- Static operations, any thread ---------------------------------------

  // Makes, starts and registers the scheduler unless one is running.
  static void Start();
  // The running scheduler, or null before Start and from the moment closing
  // begins. Not reserved for the caller.
  static PeriodicUpdateManager* GetPeriodicUpdateManager();

  // A periodic timer whose message 275 (wParam: the id) goes to target's
  // queue; the target must pump messages. Answers the id, or 0 while the
  // registry of controllers is not valid or when target cannot take
  // messages. A period of 0 is raised to the platform's smallest; a
  // negative one gives the longest.
  static unsigned AddTimer(std::int64_t periodMs, CWinThread* target);
  // Ends the timer and takes it out of the table: 1 when the table held it.
  // A 275 of it already queued stays queued.
  static int RemoveTimer(unsigned timerID);

  // Serves record with PerformMaintenance(kind) every intervalSeconds (a
  // negative interval: the longest timer). The record is reserved while
  // registered. Null records are ignored.
  static void AddMaintenanceItem(Focusable* record, long intervalSeconds, int kind);
  // Takes the pair out of its run (see the quirks above). 1 when a run held
  // it, else 0.
  static int RemoveMaintenanceItem(Focusable* record, int kind);
  // The same for controllers; see the quirks above.
  static void AddMaintenanceRCItem(ResourceController* controller, long intervalSeconds, int kind);
  // 1 when the pair was in a run or pending, else 0.
  static int RemoveMaintenanceRCItem(ResourceController* controller, int kind);

  // --- Members ---------------------------------------------------------------

  // The first run that holds the pair, reserved for the caller (who owes
  // Release), or null.
  FocusableIntervalRun* GetFocusableIntervalRun(Focusable* record, int kind);
  RCIntervalRun* GetRCIntervalRun(ResourceController* controller, int kind);
  // Stops run's timer and lets the run go (it is deleted once nobody holds
  // it). Always 0.
  int RemoveFocusableIntervalRun(Focusable* record, FocusableIntervalRun* run, int kind);
  // Takes the pair out of its run, letting the run go when that was its last
  // pair. 1 when the pair was in a run; 0 when unknown, and 0 when it is
  // still pending (its key is then forgotten).
  int RemoveRCIntervalRun(ResourceController* controller, int kind);

  // Refuses registrations from now on and stops every timer of this
  // thread; a pass under way stops after its current call.
  void StartClosingResourceCtrl() override;
  // Waits for a pass under way, drops every run and pending item,
  // de-registers and releases the scheduler (which ends its thread).
  void CloseResourceCtrl() override;

  // --- The thread --------------------------------------------------------------

  // Starts the heartbeat.
  int InitInstance() override;
  int ExitInstance() override;
  // Message 275 goes to OnTimer; other messages are dropped.
  int OnThreadMessage(unsigned message, std::intptr_t wParam, std::intptr_t lParam) override;
  // A heartbeat forms runs; a run's timer runs it; an unknown timer is
  // ended. While the application is closing every timer that fires is
  // ended.
  void OnTimer(unsigned timerID, long time);

 private:
  template <class T>
  struct Pending {
    CArray<T*> items;
    CArray<int> kinds;
  };

  static long long ControllerKey(ResourceController* controller, int kind);
  void FormRuns() REQUIRES(structureLock_);
  // Ends every timer of the table whose target is this thread.
  void RemoveOwnTimers();
  // Takes run out of every record's or controller's list.
  void ForgetRun(IntervalRun* run) REQUIRES(structureLock_);

  CCriticalSection runLock_;
  CCriticalSection structureLock_;
  // State below is protected by structureLock_.
  CArray<FocusableIntervalRun*> focusableRuns_ GUARDED_BY(structureLock_);
  CArray<RCIntervalRun*> controllerRuns_ GUARDED_BY(structureLock_);
  std::map<Focusable*, CArray<FocusableIntervalRun*>> runsByRecord_ GUARDED_BY(structureLock_);
  std::map<ResourceController*, CArray<RCIntervalRun*>> runsByController_
      GUARDED_BY(structureLock_);
  std::map<long, Pending<Focusable>> pendingRecords_ GUARDED_BY(structureLock_);
  std::map<long, Pending<ResourceController>> pendingControllers_ GUARDED_BY(structureLock_);
  // Null while the pair is pending.
  std::map<long long, RCIntervalRun*> controllerKeys_ GUARDED_BY(structureLock_);
  std::map<unsigned, IntervalRun*> timerRuns_ GUARDED_BY(structureLock_);

  // The scheduler thread's own.
  unsigned heartbeat_ = 0;
  int cycle_ = 0;  // counts 0 to 4 at each timer message; not read
};

}  // namespace kordll

#endif  // KORDLL_PERIODIC_PERIODICUPDATEMANAGER_H_
