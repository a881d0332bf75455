// The sets waiting for the bridge's writer: at most one per variable, so
// that a flood of them holds memory by the number of variables, not of
// messages. A newer value for a variable whose set is still waiting takes
// its place in the line, as in the driver's write queue; the one it
// replaced is handed back to be answered.
#ifndef LOGOHOST_SET_QUEUE_H
#define LOGOHOST_SET_QUEUE_H

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>

namespace logohost {

struct PendingSet {
    size_t var = 0;
    std::string payload;
};

class SetQueue {
public:
    // True when it replaced a waiting set, then in *replaced.
    bool offer(PendingSet set, PendingSet* replaced);
    // Waits for the oldest set; false once stopped.
    bool take(PendingSet* set);
    void stop();
    size_t waiting() const;

private:
    mutable std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<size_t> order_;             // variables, oldest first
    std::map<size_t, std::string> values_;  // per waiting variable
    bool stopped_ = false;
};

}  // namespace logohost

#endif  // LOGOHOST_SET_QUEUE_H
