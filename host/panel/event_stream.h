// One browser's event stream for one screen: the items that changed and the
// new trend points as they come, and the link's figures once a second.
#ifndef LOGOHOST_EVENT_STREAM_H
#define LOGOHOST_EVENT_STREAM_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "host/panel/panel_views.h"

namespace logohost {

class EventStream {
public:
    using Write = std::function<bool(const std::string& text)>;
    using Status = std::function<Json()>;

    EventStream(const PlantModel& model, size_t screen, Status status);

    // One step of the stream: waits for a change (or the heartbeat) and
    // writes what changed. False once the browser has gone.
    bool step(const Write& write);

private:
    struct TrendCursor {
        int trend;
        int64_t since;
    };

    const PlantModel& model_;
    const size_t screen_;
    const Status status_;
    bool started_ = false;
    uint64_t version_ = 0;
    std::vector<Json> sent_;
    std::vector<TrendCursor> trends_;
    std::chrono::steady_clock::time_point lastEvent_{}, lastStatus_{};

    void gatherPass();
    Json collectChanges();
};

}  // namespace logohost

#endif  // LOGOHOST_EVENT_STREAM_H
