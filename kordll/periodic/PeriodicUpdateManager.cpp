#include "kordll/periodic/PeriodicUpdateManager.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <mutex>
#include <vector>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/platform/MessageQueue.h"
#include "kordll/platform/TimerTable.h"
#include "kordll/record/Focusable.h"

namespace kordll {

namespace {

// The running manager. Written under g_managerMu; read by the passes of the
// runs without it.
std::atomic<PeriodicUpdateManager*> g_manager{nullptr};
std::mutex g_managerMu;

// Timer id to the thread its messages go to.
std::mutex g_timersMu;
std::map<unsigned, CWinThread*> g_timers;

// Holds the running manager, reserved, for the length of one static call,
// so that closing on another thread cannot delete it under the call. The
// last release ends the manager's thread, as any other would.
class ManagerHold {
 public:
  ManagerHold() {
    if (GlobalResourceCtrl::IsTidrelClosing() != 0) return;
    std::lock_guard<std::mutex> lock(g_managerMu);
    manager_ = g_manager.load();
    if (manager_ != nullptr) manager_->Reserve();
  }
  ~ManagerHold() {
    if (manager_ != nullptr) manager_->Release(nullptr);
  }
  ManagerHold(const ManagerHold&) = delete;
  ManagerHold& operator=(const ManagerHold&) = delete;
  PeriodicUpdateManager* get() const { return manager_; }

 private:
  PeriodicUpdateManager* manager_ = nullptr;
};

// The timer period of an interval in seconds, within what a timer takes. A
// negative interval is no short one: like a negative period (see AddTimer)
// it gives the longest timer there is.
std::int64_t TimerPeriod(long intervalSeconds) {
  constexpr long kLongest = INT_MAX / PeriodicUpdateManager::kSecondsToTimer;
  if (intervalSeconds < 0) return INT_MAX;
  return std::min<long>(intervalSeconds, kLongest) * PeriodicUpdateManager::kSecondsToTimer;
}

template <class T>
void EraseAll(CArray<T*>& list, T* value) {
  list.erase(std::remove(list.begin(), list.end(), value), list.end());
}

template <class T, class U>
void EraseFromLists(std::map<T*, CArray<U*>>& lists, const IntervalRun* run) {
  for (auto it = lists.begin(); it != lists.end();) {
    CArray<U*>& list = it->second;
    list.erase(std::remove_if(list.begin(), list.end(),
                              [run](const IntervalRun* held) { return held == run; }),
               list.end());
    it = list.empty() ? lists.erase(it) : std::next(it);
  }
}

}  // namespace

PeriodicUpdateManager::PeriodicUpdateManager() = default;

PeriodicUpdateManager::~PeriodicUpdateManager() = default;

// --- Static operations -------------------------------------------------------

void PeriodicUpdateManager::Start() {
  PeriodicUpdateManager* manager;
  {
    std::lock_guard<std::mutex> lock(g_managerMu);
    if (g_manager.load() != nullptr) return;
    manager = new PeriodicUpdateManager();
    manager->SetResourceControllerID(kSchedulerControllerID);
    // The last Release ends the thread, whose end deletes the object.
    manager->SetThreadResource(manager);
    if (manager->CreateThread() == 0) {
      delete manager;
      return;
    }
    g_manager.store(manager);
  }
  // Registered outside g_managerMu: the registry may call controllers that
  // register maintenance of their own.
  GlobalResourceCtrl::RegisterResourceCtrl(manager);
}

PeriodicUpdateManager* PeriodicUpdateManager::GetPeriodicUpdateManager() {
  return g_manager.load();
}

unsigned PeriodicUpdateManager::AddTimer(std::int64_t periodMs, CWinThread* target) {
  if (GlobalResourceCtrl::IsGlobalResourceValid() == 0 || target == nullptr) return 0;
  // Periods are unsigned: a negative one stands for a huge period, which a
  // timer takes as its longest.
  const unsigned id = SetTimer(target, periodMs < 0 ? INT_MAX : periodMs);
  if (id == 0) return 0;
  std::lock_guard<std::mutex> lock(g_timersMu);
  g_timers[id] = target;
  return id;
}

int PeriodicUpdateManager::RemoveTimer(unsigned timerID) {
  KillTimer(timerID);
  std::lock_guard<std::mutex> lock(g_timersMu);
  return g_timers.erase(timerID) > 0 ? 1 : 0;
}

void PeriodicUpdateManager::AddMaintenanceItem(Focusable* record, long intervalSeconds, int kind) {
  ManagerHold hold;
  PeriodicUpdateManager* self = hold.get();
  if (self == nullptr || record == nullptr) return;
  CSingleLock lock(self->structureLock_);
  // No test for a duplicate here: forming the run refuses it.
  Pending<Focusable>& pending = self->pendingRecords_[intervalSeconds];
  record->Reserve();
  pending.items.push_back(record);
  pending.kinds.push_back(kind);
}

int PeriodicUpdateManager::RemoveMaintenanceItem(Focusable* record, int kind) {
  ManagerHold hold;
  PeriodicUpdateManager* self = hold.get();
  if (self == nullptr) return 0;
  FocusableIntervalRun* run = self->GetFocusableIntervalRun(record, kind);
  if (run == nullptr) return 0;
  if (run->Remove(record, kind) != 0 && run->GetItemCount() == 0) {
    self->RemoveFocusableIntervalRun(record, run, kind);
  }
  run->Release();
  return 1;
}

void PeriodicUpdateManager::AddMaintenanceRCItem(ResourceController* controller,
                                                 long intervalSeconds, int kind) {
  ManagerHold hold;
  PeriodicUpdateManager* self = hold.get();
  if (self == nullptr || controller == nullptr) return;
  CSingleLock lock(self->structureLock_);
  const long long key = ControllerKey(controller, kind);
  if (self->controllerKeys_.count(key) != 0) return;  // one registration per pair
  self->controllerKeys_[key] = nullptr;
  Pending<ResourceController>& pending = self->pendingControllers_[intervalSeconds];
  controller->Reserve();
  pending.items.push_back(controller);
  pending.kinds.push_back(kind);
}

int PeriodicUpdateManager::RemoveMaintenanceRCItem(ResourceController* controller, int kind) {
  ManagerHold hold;
  PeriodicUpdateManager* self = hold.get();
  if (self == nullptr || controller == nullptr) return 0;
  ResourceController* dropped = nullptr;
  {
    CSingleLock lock(self->structureLock_);
    const long long key = ControllerKey(controller, kind);
    auto known = self->controllerKeys_.find(key);
    const bool pending = known != self->controllerKeys_.end() && known->second == nullptr;
    if (self->RemoveRCIntervalRun(controller, kind) != 0) return 1;
    if (!pending) return 0;
    // The key stays, with no run: the pair is not taken again.
    self->controllerKeys_[key] = nullptr;
    // The first pending entry of the controller goes, whatever its kind.
    for (auto& [interval, list] : self->pendingControllers_) {
      auto at = std::find(list.items.begin(), list.items.end(), controller);
      if (at == list.items.end()) continue;
      const auto index = at - list.items.begin();
      list.items.erase(at);
      list.kinds.erase(list.kinds.begin() + index);
      dropped = controller;
      if (list.items.empty()) {
        const long emptied = interval;
        self->pendingControllers_.erase(emptied);
      }
      break;
    }
  }
  if (dropped != nullptr) dropped->Release(nullptr);
  return 1;
}

// --- Members -----------------------------------------------------------------

long long PeriodicUpdateManager::ControllerKey(ResourceController* controller, int kind) {
  return static_cast<long long>(controller->GetResourceControllerID()) * kControllerKeyFactor +
         kind;
}

FocusableIntervalRun* PeriodicUpdateManager::GetFocusableIntervalRun(Focusable* record, int kind) {
  CSingleLock lock(structureLock_);
  auto list = runsByRecord_.find(record);
  if (list == runsByRecord_.end()) return nullptr;
  for (FocusableIntervalRun* run : list->second) {
    if (run->Contains(record, kind) != 0) {
      run->Reserve();
      return run;
    }
  }
  return nullptr;
}

RCIntervalRun* PeriodicUpdateManager::GetRCIntervalRun(ResourceController* controller, int kind) {
  CSingleLock lock(structureLock_);
  auto list = runsByController_.find(controller);
  if (list == runsByController_.end()) return nullptr;
  for (RCIntervalRun* run : list->second) {
    if (run->Contains(controller, kind) != 0) {
      run->Reserve();
      return run;
    }
  }
  return nullptr;
}

void PeriodicUpdateManager::ForgetRun(IntervalRun* run) {
  // Every list, not only the list of the item that left last: a list of
  // another item that left the run earlier must not keep a run that is
  // about to be deleted.
  EraseFromLists(runsByRecord_, run);
  EraseFromLists(runsByController_, run);
}

int PeriodicUpdateManager::RemoveFocusableIntervalRun(Focusable*, FocusableIntervalRun* run, int) {
  CSingleLock lock(structureLock_);
  // Two removers may both have seen the run empty; only the first lets go.
  if (std::find(focusableRuns_.begin(), focusableRuns_.end(), run) == focusableRuns_.end()) {
    return 0;
  }
  const unsigned timer = run->GetTimerID();
  RemoveTimer(timer);
  auto entry = timerRuns_.find(timer);
  const bool timed = entry != timerRuns_.end() && entry->second == run;
  if (timed) timerRuns_.erase(entry);
  EraseAll(focusableRuns_, run);
  ForgetRun(run);
  if (timed) run->Release();
  run->Release();
  return 0;
}

int PeriodicUpdateManager::RemoveRCIntervalRun(ResourceController* controller, int kind) {
  if (controller == nullptr) return 0;  // never registered
  CSingleLock lock(structureLock_);
  const long long key = ControllerKey(controller, kind);
  auto known = controllerKeys_.find(key);
  if (known == controllerKeys_.end()) return 0;
  RCIntervalRun* run = known->second;
  if (run == nullptr) {
    controllerKeys_.erase(known);  // pending: the caller goes on
    return 0;
  }
  run->Remove(controller, kind);
  if (run->GetItemCount() == 0) {
    const unsigned timer = run->GetTimerID();
    RemoveTimer(timer);
    auto entry = timerRuns_.find(timer);
    const bool timed = entry != timerRuns_.end() && entry->second == run;
    if (timed) timerRuns_.erase(entry);
    auto at = std::find(controllerRuns_.begin(), controllerRuns_.end(), run);
    if (at != controllerRuns_.end()) controllerRuns_.erase(at);
    run->SetDetached(1);
    ForgetRun(run);
    // Other keys of the run left with their pairs; none can point here now.
    controllerKeys_.erase(key);
    if (timed) run->Release();
    run->Release();
  }
  controllerKeys_.erase(key);
  return 1;
}

// --- Forming runs ------------------------------------------------------------

void PeriodicUpdateManager::FormRuns() {
  // Nothing is formed once closing began: no new timer may outlive it.
  if (g_manager.load() != this) return;

  for (auto it = pendingRecords_.begin(); it != pendingRecords_.end();) {
    const long interval = it->first;
    Pending<Focusable>& pending = it->second;
    auto* run = new FocusableIntervalRun();
    run->Reserve();
    int moved = 0;
    for (std::size_t i = 0; i < pending.items.size() && moved <= kBatch;) {
      Focusable* record = pending.items[i];
      const int kind = pending.kinds[i];
      pending.items.erase(pending.items.begin() + static_cast<std::ptrdiff_t>(i));
      pending.kinds.erase(pending.kinds.begin() + static_cast<std::ptrdiff_t>(i));
      // Gives back the pending reservation. Whether the record lives on is
      // told by its "destroyed" answer, not by the return value (which also
      // says that the body was unloaded); a destroyed record is simply gone
      // from the list.
      int destroyed = 0;
      record->Release(&destroyed);
      if (destroyed != 0) continue;
      run->Add(record, kind);  // refuses a duplicate pair
      runsByRecord_[record].push_back(run);
      ++moved;
    }
    it = pending.items.empty() ? pendingRecords_.erase(it) : std::next(it);
    if (moved == 0) {
      run->Release();  // nothing survived: no run, no timer
      continue;
    }
    focusableRuns_.push_back(run);
    const unsigned timer = AddTimer(TimerPeriod(interval), this);
    run->SetTimerID(timer);
    if (timer != 0) {
      run->Reserve();
      timerRuns_[timer] = run;
    }
  }

  for (auto it = pendingControllers_.begin(); it != pendingControllers_.end();) {
    const long interval = it->first;
    Pending<ResourceController>& pending = it->second;
    auto* run = new RCIntervalRun();
    run->Reserve();
    run->SetInterval(static_cast<int>(TimerPeriod(interval)));
    int moved = 0;
    for (std::size_t i = 0; i < pending.items.size() && moved <= kBatch;) {
      ResourceController* controller = pending.items[i];
      const int kind = pending.kinds[i];
      const long long key = ControllerKey(controller, kind);
      pending.items.erase(pending.items.begin() + static_cast<std::ptrdiff_t>(i));
      pending.kinds.erase(pending.kinds.begin() + static_cast<std::ptrdiff_t>(i));
      int destroyed = 0;
      controller->Release(&destroyed);
      if (destroyed != 0) {
        // Gone: its pair may be registered again by whatever comes next.
        auto known = controllerKeys_.find(key);
        if (known != controllerKeys_.end() && known->second == nullptr) {
          controllerKeys_.erase(known);
        }
        continue;
      }
      run->Add(controller, kind);
      runsByController_[controller].push_back(run);
      controllerKeys_[key] = run;
      ++moved;
    }
    it = pending.items.empty() ? pendingControllers_.erase(it) : std::next(it);
    if (moved == 0) {
      run->Release();  // nothing survived: no run, no timer
      continue;
    }
    controllerRuns_.push_back(run);
    const unsigned timer = AddTimer(run->GetInterval(), this);
    run->SetTimerID(timer);
    if (timer != 0) {
      run->Reserve();
      timerRuns_[timer] = run;
    }
  }
}

// --- The thread --------------------------------------------------------------

int PeriodicUpdateManager::InitInstance() {
  cycle_ = 0;
  heartbeat_ = AddTimer(kHeartbeatMs, this);
  return 1;
}

int PeriodicUpdateManager::ExitInstance() { return CWinThread::ExitInstance(); }

int PeriodicUpdateManager::OnThreadMessage(unsigned message, std::intptr_t wParam,
                                           std::intptr_t lParam) {
  if (message != kMsgTimer) return 0;
  OnTimer(static_cast<unsigned>(wParam), static_cast<long>(lParam));
  return 1;
}

void PeriodicUpdateManager::OnTimer(unsigned timerID, long) {
  if (GlobalResourceCtrl::IsTidrelClosing() != 0) {
    RemoveTimer(timerID);
    return;
  }
  cycle_ = (cycle_ + 1) % 5;
  if (timerID != 0 && timerID == heartbeat_) {
    CSingleLock lock(structureLock_);
    FormRuns();
    return;
  }
  CSingleLock running(runLock_);
  if (GlobalResourceCtrl::IsTidrelClosing() != 0) return;
  IntervalRun* run = nullptr;
  {
    CSingleLock lock(structureLock_);
    auto entry = timerRuns_.find(timerID);
    if (entry == timerRuns_.end()) {
      RemoveTimer(timerID);
    } else {
      run = entry->second;
      run->Reserve();
    }
  }
  if (run == nullptr) return;
  // The structure lock is free while the hooks run: they may register.
  run->Run();
  CSingleLock lock(structureLock_);
  run->Release();
}

// --- Closing -----------------------------------------------------------------

void PeriodicUpdateManager::RemoveOwnTimers() {
  std::vector<unsigned> own;
  {
    std::lock_guard<std::mutex> lock(g_timersMu);
    for (const auto& [id, target] : g_timers) {
      if (target == static_cast<CWinThread*>(this)) own.push_back(id);
    }
  }
  for (unsigned id : own) RemoveTimer(id);
}

void PeriodicUpdateManager::StartClosingResourceCtrl() {
  ResourceController::CloseResourceCtrl();
  {
    std::lock_guard<std::mutex> lock(g_managerMu);
    if (g_manager.load() == this) g_manager.store(nullptr);
  }
  RemoveOwnTimers();
}

void PeriodicUpdateManager::CloseResourceCtrl() {
  {
    std::lock_guard<std::mutex> lock(g_managerMu);
    if (g_manager.load() == this) g_manager.store(nullptr);
  }
  ResourceController::CloseResourceCtrl();
  {
    // No run is left executing once this lock is ours (unless this is the
    // scheduler thread closing from inside a run: that run holds its own
    // reference and stops after the current call).
    CSingleLock running(runLock_);
    std::vector<ResourceController*> pendingControllers;
    std::vector<FocusableIntervalRun*> focusableRuns;
    std::vector<RCIntervalRun*> controllerRuns;
    {
      CSingleLock lock(structureLock_);
      // The reservations of pending records are not given back: the records
      // are going away with the system.
      pendingRecords_.clear();
      for (auto& [interval, list] : pendingControllers_) {
        pendingControllers.insert(pendingControllers.end(), list.items.begin(), list.items.end());
      }
      pendingControllers_.clear();
      focusableRuns.swap(focusableRuns_);
      controllerRuns.swap(controllerRuns_);
      runsByRecord_.clear();
      runsByController_.clear();
      controllerKeys_.clear();
      timerRuns_.clear();
    }
    // Given back outside the structure lock: a release may end a controller
    // or save a record, which may call back into the scheduler.
    for (ResourceController* controller : pendingControllers) controller->Release(nullptr);
    for (FocusableIntervalRun* run : focusableRuns) {
      if (run->Release() == 0) run->Release();
    }
    for (RCIntervalRun* run : controllerRuns) {
      run->SetDetached(1);
      if (run->Release() == 0) run->Release();
    }
  }
  RemoveOwnTimers();
  GlobalResourceCtrl::DeRegisterResourceCtrl(this);
  Release(nullptr);
}

}  // namespace kordll
