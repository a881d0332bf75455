// A VFS over the system's own, made the default for the test process, that
// fails writes when told to: as a full disk would, which a chmod'ed folder
// cannot show when the tests run as root.
#ifndef LOGOHOST_TESTS_FAILING_VFS_H
#define LOGOHOST_TESTS_FAILING_VFS_H

#include <cstdint>

namespace failing_vfs {

void install();  // once per process; harmless again
// Every write fails with `code` (SQLITE_FULL, SQLITE_IOERR_WRITE, ...);
// SQLITE_OK writes again and lifts any budget.
void failWrites(int code);
// Writes succeed until `bytes` more are written, then fail with SQLITE_FULL.
void setWriteBudget(int64_t bytes);
uint64_t failedWrites();

}  // namespace failing_vfs

#endif  // LOGOHOST_TESTS_FAILING_VFS_H
