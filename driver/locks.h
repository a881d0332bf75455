// Taking the driver's mutexes. The order is fixed: listMutex first, then
// stationMutex or imageMutex; never listMutex while holding either of the
// other two. Every lock in the driver is taken through DriverLock.
#ifndef LOGO_DRIVER_LOCKS_H
#define LOGO_DRIVER_LOCKS_H

#include <QMutex>

#if defined(__SANITIZE_THREAD__)
#define LOGO_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define LOGO_THREAD_SANITIZER 1
#endif
#endif

#if defined(LOGO_THREAD_SANITIZER)
#include <sanitizer/tsan_interface.h>
#endif

// QMutex hands a contended lock over inside QtCore, which a
// ThreadSanitizer build does not instrument; without these annotations it
// would report accesses made under the same mutex as races.
class DriverLock {
public:
    explicit DriverLock(QMutex* mutex) : mutex_(mutex)
    {
        mutex_->lock();
#if defined(LOGO_THREAD_SANITIZER)
        __tsan_acquire(mutex_);
#endif
    }
    ~DriverLock()
    {
#if defined(LOGO_THREAD_SANITIZER)
        __tsan_release(mutex_);
#endif
        mutex_->unlock();
    }

private:
    QMutex* mutex_;
    DriverLock(const DriverLock&);
    DriverLock& operator=(const DriverLock&);
};

#endif  // LOGO_DRIVER_LOCKS_H
