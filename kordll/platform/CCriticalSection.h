// CCriticalSection: a re-entrant lock, as the Win32 critical section is.
//
// The owning thread may enter again; it must leave as often as it entered.
// CSingleLock holds one for a scope.

#ifndef KORDLL_PLATFORM_CCRITICALSECTION_H_
#define KORDLL_PLATFORM_CCRITICALSECTION_H_

#include <mutex>

#include "kordll/platform/ThreadAnnotations.h"

namespace kordll {

class CAPABILITY("mutex") CCriticalSection {
 public:
  CCriticalSection() = default;
  CCriticalSection(const CCriticalSection&) = delete;
  CCriticalSection& operator=(const CCriticalSection&) = delete;

  void Lock() ACQUIRE() { mutex_.lock(); }
  void Unlock() RELEASE() { mutex_.unlock(); }
  // 1 when entered, 0 when another thread holds it.
  int TryLock() TRY_ACQUIRE(1) { return mutex_.try_lock() ? 1 : 0; }

  // For std::lock_guard and std::unique_lock.
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }
  bool try_lock() TRY_ACQUIRE(true) { return mutex_.try_lock(); }

 private:
  std::recursive_mutex mutex_;
};

// Holds a critical section from construction to destruction.
class SCOPED_CAPABILITY CSingleLock {
 public:
  explicit CSingleLock(CCriticalSection& cs) ACQUIRE(cs) : cs_(cs) { cs_.Lock(); }
  ~CSingleLock() RELEASE() { cs_.Unlock(); }
  CSingleLock(const CSingleLock&) = delete;
  CSingleLock& operator=(const CSingleLock&) = delete;

 private:
  CCriticalSection& cs_;
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_CCRITICALSECTION_H_
