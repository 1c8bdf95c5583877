// Lock annotations for Clang's thread-safety analysis (-Wthread-safety).
//
// A member written `int count_ GUARDED_BY(lock_);` may only be touched while
// lock_ is held; a private helper declared `REQUIRES(lock_)` may only be
// called with it held. Other compilers see nothing. The analysis knows the
// locks of CCriticalSection and CSingleLock; code that locks through
// std::lock_guard is not checked.

#ifndef KORDLL_PLATFORM_THREADANNOTATIONS_H_
#define KORDLL_PLATFORM_THREADANNOTATIONS_H_

#if defined(__clang__)
#define KORDLL_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define KORDLL_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) KORDLL_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY KORDLL_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) KORDLL_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) KORDLL_THREAD_ANNOTATION(pt_guarded_by(x))
#define REQUIRES(...) KORDLL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) KORDLL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) KORDLL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) KORDLL_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define EXCLUDES(...) KORDLL_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS KORDLL_THREAD_ANNOTATION(no_thread_safety_analysis)

#endif  // KORDLL_PLATFORM_THREADANNOTATIONS_H_
