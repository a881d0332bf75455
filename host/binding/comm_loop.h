// The one communication thread: asks the driver for the next frame, sends it,
// hands back the reply, and reports each result to the running command.
#ifndef LOGOHOST_COMM_LOOP_H
#define LOGOHOST_COMM_LOOP_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "host/binding/driver_api.h"
#include "host/link/tcp_link.h"
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
    bool scanDone = false;    // the driver's flag right after this result
    int exceptionCode = 0;    // last Modbus exception seen for this request, 0 if none
    std::string refusal;      // why the host refused the last reply to this request, if it did
    bool failCallback = false;  // the driver gave the request up through its callback too
};

struct LinkCounters {
    std::atomic<uint64_t> frames{0};
    std::atomic<uint64_t> replies{0};   // replies that answered their frame
    std::atomic<uint64_t> refused{0};   // replies that did not, kept from the driver
    std::atomic<uint64_t> failures{0};  // requests given up
    std::atomic<uint64_t> connections{0};
};

class CommLoop {
public:
    // Runs on the communication thread, outside the driver's lock: it may
    // call any driver function but ComCommunication and DataCom.
    using ResultSink = std::function<void(const RequestResult&)>;
    // Between exchanges, on the communication thread.
    using Tick = std::function<void()>;
    // The driver's read-done callback: a one-shot read request (sourceType,
    // sourceId) completed (status 1) or was given up (2). Runs inside DataCom
    // while the driver holds its list lock: it may read the image, and must
    // not queue, rebuild or wait for anything that does.
    using ReadDoneSink = std::function<void(int sourceType, int sourceId, int status)>;

    // Hands the settings record and the callbacks to the driver. One loop
    // at a time: the driver itself is one global object.
    CommLoop(const DriverApi& api, ComInfo& info, TcpLink& link, Trace& trace, ResultSink sink, Tick tick = Tick(),
             ReadDoneSink readDone = ReadDoneSink());
    ~CommLoop();
    CommLoop(const CommLoop&) = delete;
    CommLoop& operator=(const CommLoop&) = delete;

    void start();
    void stop();
    const LinkCounters& counters() const { return counters_; }

private:
    const DriverApi& api_;
    ComInfo& info_;
    TcpLink& link_;
    Trace& trace_;
    const ResultSink sink_;
    const Tick tick_;
    const ReadDoneSink readDone_;
    LinkCounters counters_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
    int lastException_ = 0;
    std::string lastRefusal_;

    void run();
    void exchangeOne(const Protocol& frame);
    void traceVerdict(const RequestResult& result);
    static void onFail(QList<RW_VAR>* failed, int sourceType, int one);
    static void onReadDone(intptr_t context, int sourceType, int sourceId, int status);
};

}  // namespace logohost

#endif  // LOGOHOST_COMM_LOOP_H
