// One-shot reads queued with the driver ("read now", a proxied client's
// read), each done when the driver's read-done callback names it.
#ifndef LOGOHOST_ONCE_READS_H
#define LOGOHOST_ONCE_READS_H

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host/binding/comm_loop.h"

namespace logohost {

struct OnceRead {
    int station = 0;
    bool done = false;        // the callback came, or the read was dropped
    bool ok = false;          // status 1: read
    bool resultSeen = false;  // its result record came (after the scan state took the value)
    std::string reason;       // why it failed, in words
};

// Thread-safe. onReadDone runs inside the driver's DataCom, under its list
// lock: the tracker's own lock is never held while calling the driver, so
// the callback cannot wait on anything that waits on the driver.
class OnceReads {
public:
    // sourceType: the requester category the host gives its one-shot reads.
    explicit OnceReads(int sourceType) : sourceType_(sourceType) {}

    void add(int sourceId, int station);
    // The driver's read-done callback: status 1 done, 2 given up.
    void onReadDone(int sourceType, int sourceId, int status);
    // The result record of the same request, right after the callback: by
    // then the value is in the host's scan state, and a failure has its
    // reason in words.
    void onResult(const RequestResult& result);
    // Reads the driver refused to queue, or that a switched-off station's
    // discarding (or a requester giving up on a station that does not
    // answer) ended without a callback.
    void fail(int sourceId, const std::string& reason);
    void dropStation(int station, const std::string& reason);

    std::vector<int> pendingStations() const;

    // True once every read named has its outcome (with the reason of a
    // failure).
    bool settled(const std::vector<int>& sourceIds) const;
    OnceRead outcome(int sourceId) const;
    void forget(const std::vector<int>& sourceIds);
    bool anyOpen() const;

private:
    const int sourceType_;
    mutable std::mutex mutex_;
    std::map<int, OnceRead> reads_;

    static bool isSettled(const OnceRead& read) { return read.done && read.resultSeen; }
};

}  // namespace logohost

#endif  // LOGOHOST_ONCE_READS_H
