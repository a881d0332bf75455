#include "failing_vfs.h"

#include <sqlite3.h>

#include <atomic>
#include <mutex>

namespace failing_vfs {
namespace {

constexpr int64_t kNoBudget = -1;

std::atomic<int> failCode{SQLITE_OK};
std::atomic<int64_t> budget{kNoBudget};
std::atomic<uint64_t> failed{0};

sqlite3_vfs* system = nullptr;
sqlite3_vfs shim;
sqlite3_io_methods methods;

struct File {
    sqlite3_file base;
    sqlite3_file* real;  // the system's file, in the same allocation just after this
};

sqlite3_file* real(sqlite3_file* file)
{
    return reinterpret_cast<File*>(file)->real;
}

int verdict(int amount)
{
    int code = failCode.load();
    int64_t left = budget.load();
    while (code == SQLITE_OK && left != kNoBudget) {
        if (left < amount) {
            code = SQLITE_FULL;
            break;
        }
        if (budget.compare_exchange_weak(left, left - amount))
            break;
    }
    if (code != SQLITE_OK)
        ++failed;
    return code;
}

int write(sqlite3_file* file, const void* data, int amount, sqlite3_int64 offset)
{
    const int code = verdict(amount);
    return code != SQLITE_OK ? code : real(file)->pMethods->xWrite(real(file), data, amount, offset);
}

int open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags)
{
    File* shimFile = reinterpret_cast<File*>(file);
    shimFile->real = reinterpret_cast<sqlite3_file*>(shimFile + 1);
    const int rc = system->xOpen(system, name, shimFile->real, flags, outFlags);
    // SQLite closes a file whose methods are set, even after a failed open.
    shimFile->base.pMethods = shimFile->real->pMethods ? &methods : nullptr;
    return rc;
}

void setUpMethods()
{
    // Everything but xWrite goes straight to the system's file.
    methods.iVersion = 3;
    methods.xClose = [](sqlite3_file* f) { return real(f)->pMethods->xClose(real(f)); };
    methods.xRead = [](sqlite3_file* f, void* d, int n, sqlite3_int64 o) { return real(f)->pMethods->xRead(real(f), d, n, o); };
    methods.xWrite = write;
    methods.xTruncate = [](sqlite3_file* f, sqlite3_int64 s) { return real(f)->pMethods->xTruncate(real(f), s); };
    methods.xSync = [](sqlite3_file* f, int flags) { return real(f)->pMethods->xSync(real(f), flags); };
    methods.xFileSize = [](sqlite3_file* f, sqlite3_int64* s) { return real(f)->pMethods->xFileSize(real(f), s); };
    methods.xLock = [](sqlite3_file* f, int l) { return real(f)->pMethods->xLock(real(f), l); };
    methods.xUnlock = [](sqlite3_file* f, int l) { return real(f)->pMethods->xUnlock(real(f), l); };
    methods.xCheckReservedLock = [](sqlite3_file* f, int* r) { return real(f)->pMethods->xCheckReservedLock(real(f), r); };
    methods.xFileControl = [](sqlite3_file* f, int op, void* a) { return real(f)->pMethods->xFileControl(real(f), op, a); };
    methods.xSectorSize = [](sqlite3_file* f) { return real(f)->pMethods->xSectorSize(real(f)); };
    methods.xDeviceCharacteristics = [](sqlite3_file* f) { return real(f)->pMethods->xDeviceCharacteristics(real(f)); };
    methods.xShmMap = [](sqlite3_file* f, int r, int s, int e, void volatile** p) { return real(f)->pMethods->xShmMap(real(f), r, s, e, p); };
    methods.xShmLock = [](sqlite3_file* f, int o, int n, int fl) { return real(f)->pMethods->xShmLock(real(f), o, n, fl); };
    methods.xShmBarrier = [](sqlite3_file* f) { real(f)->pMethods->xShmBarrier(real(f)); };
    methods.xShmUnmap = [](sqlite3_file* f, int d) { return real(f)->pMethods->xShmUnmap(real(f), d); };
    methods.xFetch = [](sqlite3_file* f, sqlite3_int64 o, int n, void** p) { return real(f)->pMethods->xFetch(real(f), o, n, p); };
    methods.xUnfetch = [](sqlite3_file* f, sqlite3_int64 o, void* p) { return real(f)->pMethods->xUnfetch(real(f), o, p); };
}

}  // namespace

void install()
{
    static std::once_flag once;
    std::call_once(once, [] {
        system = sqlite3_vfs_find(nullptr);
        setUpMethods();
        shim = *system;  // the system's own functions and data for all but xOpen
        shim.zName = "failing";
        shim.szOsFile = static_cast<int>(sizeof(File)) + system->szOsFile;
        shim.xOpen = open;
        sqlite3_vfs_register(&shim, 1);
    });
}

void failWrites(int code)
{
    failCode = code;
    if (code == SQLITE_OK)
        budget = kNoBudget;
}

void setWriteBudget(int64_t bytes)
{
    budget = bytes;
}

uint64_t failedWrites()
{
    return failed.load();
}

}  // namespace failing_vfs
