#pragma once
// Clang's thread-safety annotations, and the mutex and lock they can check.
//
// A member written `T value GUARDED_BY(mutex_);` may only be touched with `mutex_` held; a
// function declared `REQUIRES(mutex_)` may only be called with it held. `-Wthread-safety`
// (cmake/Ombrine.cmake) turns a breach into a warning. std::mutex carries no annotations, so a
// class that wants the check locks a `Mutex` through a `MutexLock`. Other compilers see nothing.

#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define OMBRINE_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define OMBRINE_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) OMBRINE_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY OMBRINE_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) OMBRINE_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) OMBRINE_THREAD_ANNOTATION(pt_guarded_by(x))
#define REQUIRES(...) OMBRINE_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) OMBRINE_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) OMBRINE_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) OMBRINE_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) OMBRINE_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define ASSERT_CAPABILITY(x) OMBRINE_THREAD_ANNOTATION(assert_capability(x))
#define NO_THREAD_SAFETY_ANALYSIS OMBRINE_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace ombrine {

// std::mutex as a capability the analysis knows.
class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }
  bool try_lock() TRY_ACQUIRE(true) { return mutex_.try_lock(); }

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

// Holds a Mutex for its scope (or until `unlock`), like std::unique_lock.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : lock_(mutex.mutex_) {}
  ~MutexLock() RELEASE() {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void lock() ACQUIRE() { lock_.lock(); }
  void unlock() RELEASE() { lock_.unlock(); }

  // Waits on `condition` (releasing the mutex meanwhile) until `ready()` holds; `ready` runs
  // with the mutex held.
  template <class Predicate>
  void wait(std::condition_variable& condition, Predicate ready) {
    condition.wait(lock_, ready);
  }
  // The same, giving up after `timeout`; what `ready()` last returned.
  template <class Duration, class Predicate>
  bool waitFor(std::condition_variable& condition, Duration timeout, Predicate ready) {
    return condition.wait_for(lock_, timeout, ready);
  }

 private:
  std::unique_lock<std::mutex> lock_;
};

}  // namespace ombrine
