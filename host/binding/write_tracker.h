// The host's writes and the driver's results for them, matched by sourceId.
#ifndef LOGOHOST_WRITE_TRACKER_H
#define LOGOHOST_WRITE_TRACKER_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "host/binding/comm_loop.h"
#include "host/notation/value_codec.h"

namespace logohost {

// The requester category of the host's writes; it shows in failure codes as
// base + 1 + this.
constexpr int kWriteSourceType = 1;

struct PendingWrite {
    WriteRequest request;
    int sourceId = 0;
    int station = 0;
    std::set<int> unconfirmed;  // driver addresses no good result has covered yet
    bool failed = false;
    bool noReply = false;  // failed for want of a reply the host did not refuse
    std::string reason;
    int replacedBy = 0;  // sourceId of the newer write that took its place in the driver's queue

    bool settled() const { return failed || replacedBy != 0 || unconfirmed.empty(); }
    bool written() const { return !failed && replacedBy == 0 && unconfirmed.empty(); }
};

// One write may take several frames (one per coil, or one per block of
// words), so it is written only when good results have covered all its
// addresses. Thread-safe: results come on the communication thread.
class WriteTracker {
public:
    explicit WriteTracker(bool multiStation) : multiStation_(multiStation) {}

    // Before the write is handed to the driver, so that no result can
    // arrive for a write the tracker does not know yet.
    void add(const WriteRequest& request, int sourceId, int station);
    void onResult(const RequestResult& result);
    // The driver discards queued writes for a station switched off, with
    // no result: they end here with the reason.
    void dropStation(int station, const std::string& reason);

    // Wait for the next result, at most the timeout; true once every write
    // (or the one named) has its outcome.
    bool waitUntilSettled(std::chrono::milliseconds timeout) const;
    bool waitFor(int sourceId, std::chrono::milliseconds timeout, PendingWrite* out) const;
    void forget(int sourceId);
    std::vector<PendingWrite> writes() const;

private:
    const bool multiStation_;
    mutable std::mutex mutex_;
    mutable std::condition_variable resultArrived_;
    std::vector<PendingWrite> writes_;

    const PendingWrite* findLocked(int sourceId) const;
    void settle(PendingWrite* write, const RequestResult& result);
    void dropWith(PendingWrite* write, const RequestResult& result) const;
    void markReplaced(const PendingWrite& newer);
};

}  // namespace logohost

#endif  // LOGOHOST_WRITE_TRACKER_H
