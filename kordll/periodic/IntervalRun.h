// IntervalRun: one batch of scheduled work that shares one timer.
//
// A run holds up to 31 (item, kind) pairs of one interval: records in a
// FocusableIntervalRun, controllers in an RCIntervalRun. Each time the run's
// timer fires, the scheduler thread calls Run(), which calls
// PerformMaintenance(kind) on every pair in order.
//
// The run holds one reservation of each item it holds (Reserve on the record
// or controller) and gives it back when the pair is removed or the run is
// deleted.
//
// Lifetime is counted: a run is made with count 1, which stands for no held
// reference, and the Release that leaves the count at 1 or less deletes it.
// The scheduler keeps a run in two structures (its run list and its timer
// table), so it reserves a new run twice.
//
// Thread safety: Add, Remove, Reserve and Release take the run's lock and may
// be called from any thread. Run() is called on one thread at a time (the
// scheduler's, under its run lock) and calls the hooks without the run's
// lock, so a hook may remove pairs, even its own: a pair removed while the
// run is running is only marked, served no more if it is a controller, and
// taken out at the start of the next pass.
// Lock order: the run's lock is taken last, after the scheduler's locks.

#ifndef KORDLL_PERIODIC_INTERVALRUN_H_
#define KORDLL_PERIODIC_INTERVALRUN_H_

#include <cstddef>

#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/CString.h"

namespace kordll {

class Focusable;
class ResourceController;

class IntervalRun {
 public:
  IntervalRun() = default;
  IntervalRun(const IntervalRun&) = delete;
  IntervalRun& operator=(const IntervalRun&) = delete;

  // Gives back the reservation of every item still held.
  virtual ~IntervalRun() = default;
  // One pass over the pairs; see the file comment.
  virtual void Run() = 0;

  // Adds one reference.
  void Reserve();
  // Drops one reference; deletes the run when the count is then 1 or less
  // and answers 1, else 0.
  int Release();

  // Live pairs: those added and not removed.
  int GetItemCount();
  unsigned GetTimerID() const { return timerID_; }
  void SetTimerID(unsigned id) { timerID_ = id; }
  // The timer period in milliseconds; set on controller runs only.
  int GetInterval() const { return interval_; }
  void SetInterval(int ms) { interval_ = ms; }
  // Set on controller runs that the scheduler has let go of.
  int IsDetached();
  void SetDetached(int detached);
  int IsRunning();

 protected:
  // Guards the derived class's arrays, the removed flags, the counts and
  // the two flags.
  CCriticalSection lock_;
  // Parallel to the item and kind arrays of the derived class.
  CArray<int> removed_;
  int itemCount_ = 0;
  int running_ = 0;
  int detached_ = 0;

 private:
  int interval_ = 0;
  unsigned timerID_ = 0;
  int referenceCount_ = 1;
};

// The pair operations and the pass, over records or controllers.
template <class T>
class IntervalRunOf : public IntervalRun {
 public:
  // Gives back every reservation the run holds.
  ~IntervalRunOf() override;

  // Adds the pair and reserves the item. 1, or 0 when the pair is present
  // (then nothing is reserved).
  int Add(T* item, int kind);
  // Takes the pair out and gives back its reservation; while the run is
  // running, only marks it (see the file comment). 1, or 0 when the pair is
  // absent or already removed.
  int Remove(T* item, int kind);
  // Whether the pair is held (removed or not).
  int Contains(T* item, int kind);

  void Run() override;

 protected:
  // Whether the pass serves an entry whose removed flag is as given.
  virtual bool Serves(T* item, int removed) = 0;

  CArray<T*> items_;
  CArray<int> kinds_;

 private:
  // REQUIRES: lock_ held.
  std::ptrdiff_t FindLocked(T* item, int kind);
  void EraseLocked(std::size_t index);
};

// Records: a record removed during a pass is served one last time.
class FocusableIntervalRun : public IntervalRunOf<Focusable> {
 protected:
  bool Serves(Focusable* item, int removed) override;
};

// Controllers: a controller removed during a pass, or closed, is not served.
class RCIntervalRun : public IntervalRunOf<ResourceController> {
 protected:
  bool Serves(ResourceController* item, int removed) override;
};

extern template class IntervalRunOf<Focusable>;
extern template class IntervalRunOf<ResourceController>;

}  // namespace kordll

#endif  // KORDLL_PERIODIC_INTERVALRUN_H_
