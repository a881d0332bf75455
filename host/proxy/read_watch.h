// The proxy's one-shot reads followed through the session's results. The
// session tells a read done, but a client must also be told the exception
// the controller answered, and must not be answered from the image for a
// piece the driver's full queue dropped without a word: the watch sees
// each piece come back, or the failure that ended the read.
#ifndef LOGOHOST_READ_WATCH_H
#define LOGOHOST_READ_WATCH_H

#include <functional>
#include <map>
#include <mutex>
#include <vector>

#include "host/binding/comm_loop.h"
#include "host/binding/driver_request.h"

namespace logohost {

class ReadWatch {
public:
    enum class State { Waiting, Complete, Failed };

    // Queues the read through `queue` and watches it under id it returns.
    int queue(const DriverRange& range, const std::function<int(const DriverRange&)>& queue);
    // The session's result observer, on the communication thread.
    void onResult(const RequestResult& result);
    // Failed: *failure holds what ended it.
    State state(int id, RequestFailure* failure = nullptr) const;
    void forget(int id);

private:
    struct Watched {
        int first = 0;            // the driver's address of the range's first bit or word
        std::vector<bool> seen;   // per bit or word: a good result covered it
        size_t missing = 0;
        bool failed = false;
        RequestFailure failure;
    };
    // Held across the queueing too: a read the driver serves at once cannot
    // report before its id is known here. The communication thread holds
    // none of the driver's or the session's locks while it reports.
    mutable std::mutex mutex_;
    std::map<int, Watched> reads_;
};

}  // namespace logohost

#endif  // LOGOHOST_READ_WATCH_H
