// QMutex as the thread sanitizer has to see it: Qt is not instrumented, so that its locks would go
// unnoticed and what they protect would look like races. These take the place of Qt's functions in
// the test's process and call them.
#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

#include <QMutex>

namespace {

using MutexFunction = void(QMutex*);

MutexFunction* inQt(const char* symbol) {
  return reinterpret_cast<MutexFunction*>(dlsym(RTLD_NEXT, symbol));
}

}  // namespace

void QMutex::lock() noexcept {
  static MutexFunction* const original = inQt("_ZN6QMutex4lockEv");
  original(this);
  __tsan_acquire(this);
}

void QMutex::unlock() noexcept {
  static MutexFunction* const original = inQt("_ZN6QMutex6unlockEv");
  __tsan_release(this);
  original(this);
}
