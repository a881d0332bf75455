// What the driver's own copy of libstdc++ needs from it; part of the
// library only when it carries that copy (cmake/CxxRuntime.cmake).

// libstdc++ of GCC 11 and later reads glibc's __libc_single_threaded (glibc
// 2.32) to skip atomic reference counts while the process has one thread.
// A panel's glibc is far older, so the driver's copy reads this variable of
// its own instead, hidden from every other module. It stays 0: the copy
// always takes the atomic path, which is right whatever the host's threads.
extern "C" {
__attribute__((visibility("hidden"))) char __libc_single_threaded = 0;
}

// The copy's emergency pool for exceptions (some 70 KB, taken when the
// library is loaded) would otherwise outlive every dlclose: a host that
// loads and unloads the driver would lose it each time.
namespace __gnu_cxx {
void __freeres();
}

namespace {
__attribute__((destructor)) void releaseRuntimeAtUnload()
{
    __gnu_cxx::__freeres();
}
}  // namespace
