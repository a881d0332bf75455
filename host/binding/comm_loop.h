// The one communication thread: asks the driver for the next frame, sends it
// to the controller of its station, hands back the reply, and reports each
// result to whoever runs the loop.
#ifndef LOGOHOST_COMM_LOOP_H
#define LOGOHOST_COMM_LOOP_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/binding/driver_api.h"
#include "host/binding/failure_text.h"
#include "host/link/link_set.h"
#include "host/link/trace.h"

namespace logohost {

// One DataCom result, copied out before the next exchange.
struct RequestResult {
    int returnCode = 0;
    int sourceType = 0;
    int sourceId = 0;
    int rwType = 0;
    int area = 0;
    int address = 0;
    int station = 0;
    int count = 0;
    size_t controller = 0;      // the controller the request went to
    bool scanDone = false;      // the driver's flag right after this result
    RequestFailure failure;     // what the host saw of its exchanges: exception, refusal, cause
    bool failCallback = false;  // the driver gave the request up through its callback too
};

struct ControllerCounters {
    std::atomic<uint64_t> frames{0};
    std::atomic<uint64_t> replies{0};   // replies that answered their frame
    std::atomic<uint64_t> refused{0};   // replies that did not, kept from the driver
    std::atomic<uint64_t> failures{0};  // requests given up
    std::atomic<uint64_t> connections{0};
};

// What the loop tells its owner. All run on the communication thread.
struct LoopHooks {
    // Before each frame: pacing, timers. May block (the loop waits).
    std::function<void()> beforeFrame;
    // Every exchange, as the link saw it.
    std::function<void(size_t controller, int station, const Exchange& exchange)> onExchange;
    // Every DataCom result, outside the driver's lock: it may call any driver
    // function but ComCommunication and DataCom.
    std::function<void(const RequestResult&)> onResult;
    // The driver's read-done callback: a one-shot read request (sourceType,
    // sourceId) completed (status 1) or was given up (2). Runs inside DataCom
    // while the driver holds its list lock: it may read the image, and must
    // not queue, rebuild or wait for anything that does.
    std::function<void(int sourceType, int sourceId, int status)> onReadDone;
};

class CommLoop {
public:
    // Hands the settings record and the callbacks to the driver. One loop
    // at a time: the driver itself is one global object.
    CommLoop(const DriverApi& api, ComInfo& info, LinkSet& links, Trace& trace, LoopHooks hooks);
    ~CommLoop();
    CommLoop(const CommLoop&) = delete;
    CommLoop& operator=(const CommLoop&) = delete;

    void start();
    // No frame goes out once this returns; stop() also waits for the thread.
    void requestStop() { stop_.store(true); }
    void stop();
    size_t controllers() const { return counters_.size(); }
    const ControllerCounters& counters(size_t controller) const { return *counters_.at(controller); }

private:
    const DriverApi& api_;
    ComInfo& info_;
    LinkSet& links_;
    Trace& trace_;
    const LoopHooks hooks_;
    std::vector<std::unique_ptr<ControllerCounters>> counters_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
    RequestFailure inFlight_;  // what the exchanges of the request in flight saw
    std::chrono::milliseconds failureBackoff_{0};

    void run();
    void exchangeOne(const Protocol& frame);
    // Returns the Modbus exception the reply carried, 0 if none.
    int noteExchange(size_t controller, int station, Exchange* exchange);
    void pauseAfter(const Exchange& exchange, int exception, bool repeating);
    RequestResult resultOf(const RW_VAR& reported, const RW_VAR& inFlight, size_t controller) const;
    void traceVerdict(const RequestResult& result);
    static void onFail(QList<RW_VAR>* failed, int sourceType, int one);
    static void onReadDone(intptr_t context, int sourceType, int sourceId, int status);
};

}  // namespace logohost

#endif  // LOGOHOST_COMM_LOOP_H
