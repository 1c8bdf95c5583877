#include "kordll/periodic/IntervalRun.h"

#include <vector>

#include "kordll/control/ResourceController.h"
#include "kordll/periodic/PeriodicUpdateManager.h"
#include "kordll/record/Focusable.h"

namespace kordll {

namespace {

bool SchedulerAlive() { return PeriodicUpdateManager::GetPeriodicUpdateManager() != nullptr; }

// Reservations are given back with no run lock held: a release may save a
// record or end a controller, and either may call back into the scheduler.
template <class T>
void ReleaseAll(const std::vector<T*>& items) {
  for (T* item : items) {
    if (item != nullptr) item->Release(nullptr);
  }
}

}  // namespace

void IntervalRun::Reserve() {
  CSingleLock hold(lock_);
  ++referenceCount_;
}

int IntervalRun::Release() {
  {
    CSingleLock hold(lock_);
    if (--referenceCount_ > 1) return 0;
  }
  delete this;
  return 1;
}

int IntervalRun::GetItemCount() {
  CSingleLock hold(lock_);
  return itemCount_;
}

int IntervalRun::IsDetached() {
  CSingleLock hold(lock_);
  return detached_;
}

void IntervalRun::SetDetached(int detached) {
  CSingleLock hold(lock_);
  detached_ = detached;
}

int IntervalRun::IsRunning() {
  CSingleLock hold(lock_);
  return running_;
}

template <class T>
IntervalRunOf<T>::~IntervalRunOf() {
  std::vector<T*> held;
  {
    CSingleLock hold(lock_);
    held.swap(items_);
    kinds_.clear();
    removed_.clear();
  }
  ReleaseAll(held);
}

template <class T>
std::ptrdiff_t IntervalRunOf<T>::FindLocked(T* item, int kind) {
  for (std::size_t i = 0; i < items_.size(); ++i) {
    if (items_[i] == item && kinds_[i] == kind) return static_cast<std::ptrdiff_t>(i);
  }
  return -1;
}

template <class T>
void IntervalRunOf<T>::EraseLocked(std::size_t index) {
  items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(index));
  kinds_.erase(kinds_.begin() + static_cast<std::ptrdiff_t>(index));
  removed_.erase(removed_.begin() + static_cast<std::ptrdiff_t>(index));
}

template <class T>
int IntervalRunOf<T>::Add(T* item, int kind) {
  CSingleLock hold(lock_);
  if (FindLocked(item, kind) >= 0) return 0;
  if (item != nullptr) item->Reserve();
  ++itemCount_;
  items_.push_back(item);
  kinds_.push_back(kind);
  removed_.push_back(0);
  return 1;
}

template <class T>
int IntervalRunOf<T>::Remove(T* item, int kind) {
  {
    CSingleLock hold(lock_);
    const std::ptrdiff_t at = FindLocked(item, kind);
    if (at < 0 || removed_[static_cast<std::size_t>(at)] != 0) return 0;
    --itemCount_;
    if (running_ != 0) {
      // The pass under way walks by index: the entry stays until the next.
      removed_[static_cast<std::size_t>(at)] = 1;
      return 1;
    }
    EraseLocked(static_cast<std::size_t>(at));
  }
  if (item != nullptr) item->Release(nullptr);
  return 1;
}

template <class T>
int IntervalRunOf<T>::Contains(T* item, int kind) {
  // Locked, unlike the rest of the lookup: the scheduler thread may be
  // taking removed entries out of the arrays at the same moment.
  CSingleLock hold(lock_);
  return FindLocked(item, kind) >= 0 ? 1 : 0;
}

template <class T>
void IntervalRunOf<T>::Run() {
  std::vector<T*> dropped;
  {
    CSingleLock hold(lock_);
    for (std::size_t i = 0; i < items_.size();) {
      if (removed_[i] != 0) {
        dropped.push_back(items_[i]);
        EraseLocked(i);
      } else {
        ++i;
      }
    }
    if (SchedulerAlive()) running_ = 1;
  }
  ReleaseAll(dropped);
  if (!SchedulerAlive()) return;

  for (std::size_t i = 0;; ++i) {
    T* item;
    int kind;
    int removed;
    {
      CSingleLock hold(lock_);
      if (i >= items_.size()) break;
      item = items_[i];
      kind = kinds_[i];
      removed = removed_[i];
    }
    if (item != nullptr && Serves(item, removed)) item->PerformMaintenance(kind);
    // A scheduler that is closing stops the pass at once; the run stays
    // marked running and is taken down with the scheduler.
    if (!SchedulerAlive()) return;
  }
  CSingleLock hold(lock_);
  running_ = 0;
}

bool FocusableIntervalRun::Serves(Focusable*, int) { return true; }

bool RCIntervalRun::Serves(ResourceController* item, int removed) {
  return removed == 0 && item->IsResourceCtrlClosed() == 0;
}

template class IntervalRunOf<Focusable>;
template class IntervalRunOf<ResourceController>;

}  // namespace kordll
