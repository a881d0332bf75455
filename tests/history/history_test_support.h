// What the history tests share: a data directory of their own, a clock they
// move by hand, and a store set up with both.
#ifndef LOGOHOST_TESTS_HISTORY_TEST_SUPPORT_H
#define LOGOHOST_TESTS_HISTORY_TEST_SUPPORT_H

#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <string>

#include "host/history/history_store.h"

namespace history_test {

// A whole minute, so that tests know where blocks begin.
constexpr int64_t kT0 = 28333334LL * 60 * 1000;

class TempDir {
public:
    TempDir()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "history-test-XXXXXX").string();
        path_ = mkdtemp(pattern.data()) ? pattern : std::string();
    }
    ~TempDir() { std::filesystem::remove_all(path_); }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

struct Clock {
    std::atomic<int64_t> nowMs{kT0};
};

inline logohost::HistorySettings settingsFor(const std::string& directory, Clock* clock, size_t memoryLimit = 200000)
{
    logohost::HistorySettings settings;
    settings.directory = directory;
    settings.nowMs = [clock] { return clock->nowMs.load(); };
    settings.memoryLimit = memoryLimit;
    return settings;
}

// Buckets of one sample each, to read back exactly what was stored.
inline int exactPoints(int64_t fromMs, int64_t toMs, int64_t periodMs)
{
    return static_cast<int>((toMs - fromMs) / periodMs);
}

}  // namespace history_test

#endif  // LOGOHOST_TESTS_HISTORY_TEST_SUPPORT_H
