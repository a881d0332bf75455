// A thread's name as `top -H`, gdb and /proc show it: which of the host's
// threads is busy or stuck is then told without a debugger.
#ifndef LOGO_COMMON_THREAD_NAME_H
#define LOGO_COMMON_THREAD_NAME_H

#include <pthread.h>

namespace common {

// Linux keeps 15 characters of a name; a longer one is refused, so the
// names used are short.
inline void nameThisThread(const char* name) { pthread_setname_np(pthread_self(), name); }

}  // namespace common

#endif
