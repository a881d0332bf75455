// The host's writes and the driver's results for them, matched by sourceId.
#ifndef LOGOHOST_WRITE_TRACKER_H
#define LOGOHOST_WRITE_TRACKER_H

#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "host/binding/comm_loop.h"
#include "host/binding/driver_request.h"

namespace logohost {

enum class WriteEnd {
    Pending,
    Written,     // good results covered every address
    Failed,      // its own request was given up
    Dropped,     // the driver discarded it with another request that was given up
    StationOff,  // its station was switched off before it was sent
    Replaced,    // a newer value for the same target took its place before it was sent
    Abandoned,   // the requester stopped waiting: its controller is not answering
    NotQueued,   // the driver did not take it
};

struct PendingWrite {
    int sourceId = 0;
    DriverRange range;
    std::set<int> unconfirmed;  // driver addresses no good result has covered yet
    WriteEnd end = WriteEnd::Pending;
    RequestFailure failure;     // Failed: its own; Dropped: that of the request given up
    std::string givenUp;        // Dropped: the request given up, in the controller's notation
    int replacedBy = 0;         // Replaced: sourceId of the newer write
    std::string reason;         // Abandoned: why, in words

    bool settled() const { return end != WriteEnd::Pending; }
};

// What became of a write, for the operator: "VW20 = 12.5 written",
// "Q1 = on not written: the controller did not answer Q2 (connection
// refused), and Q1 was queued behind it (driver code 41)". `what` names the
// write ("Q1 = on"; empty: the words alone), `name` its variable.
std::string writeOutcomeText(const PendingWrite& write, const std::string& what, const std::string& name);

// One write may take several frames (one per coil, or one per block of
// words), so it is written only when good results have covered all its
// addresses. Thread-safe: results come on the communication thread.
class WriteTracker {
public:
    explicit WriteTracker(bool multiStation) : multiStation_(multiStation) {}

    // Before the write is handed to the driver, so that no result can
    // arrive for a write the tracker does not know yet.
    void add(int sourceId, const DriverRange& range);
    // The driver did not take it after all.
    void refused(int sourceId);
    void onResult(const RequestResult& result);
    // The driver discards queued writes for a station switched off, with
    // no result: they end here.
    void dropStation(int station);
    // Ends every write not settled yet (on one station, or on any with
    // station -1): the requester gives up on a controller not answering.
    void abandon(int station, const std::string& reason);
    std::vector<int> pendingStations() const;

    bool allSettled() const;
    bool anyPending() const;
    PendingWrite find(int sourceId) const;  // sourceId 0 if unknown
    void forget(int sourceId);
    std::vector<PendingWrite> writes() const;

private:
    const bool multiStation_;
    mutable std::mutex mutex_;
    std::vector<PendingWrite> writes_;

    void settle(PendingWrite* write, const RequestResult& result);
    void dropWith(PendingWrite* write, const RequestResult& result) const;
    void markReplaced(const PendingWrite& newer);
};

}  // namespace logohost

#endif  // LOGOHOST_WRITE_TRACKER_H
