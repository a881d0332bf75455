// One client request in, its reply out: a read is answered from the image
// when the scan holds it fresh, else through a one-shot read of the
// driver; a write goes through the driver's write queue and is answered
// once its outcome is known. Every write, refused or not, goes to the
// journal's recorder.
#ifndef LOGOHOST_REQUEST_HANDLER_H
#define LOGOHOST_REQUEST_HANDLER_H

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "host/model/operator_actions.h"
#include "host/proxy/modbus_frames.h"
#include "host/proxy/proxy_backend.h"
#include "host/proxy/read_watch.h"

namespace logohost {

struct ProxyPolicy {
    bool readOnly = false;
    bool multiStation = false;  // the unit id is the station; else every unit id is the default station
    int defaultStation = 1;
    std::vector<int> stations;  // several controllers: the stations that have one; empty: any unit id
    int maxBlock = 64;          // words per frame, which sizes a read's or write's deadline
    std::chrono::milliseconds maxAge{500};  // a read the scan holds fresh within this age needs no frame; 0: never
};

class RequestHandler {
public:
    using Recorder = std::function<void(const ActionRecord&)>;

    // The recorder is called from the clients' threads, one at a time or not.
    RequestHandler(ProxyBackend& backend, ProxyPolicy policy, Recorder recorder = Recorder());

    // A whole request frame (MBAP header and PDU) as frameLength framed it.
    // Thread-safe; blocks until the reply is known.
    Frame answer(const Frame& request, const std::string& who);
    // The session's result observer, on the communication thread.
    void onResult(const RequestResult& result) { watch_.onResult(result); }
    // Requests still waiting answer 0B at once: the proxy is stopping.
    void stop() { stopping_.store(true); }

private:
    ProxyBackend& backend_;
    const ProxyPolicy policy_;
    const Recorder recorder_;
    ReadWatch watch_;
    std::atomic<bool> stopping_{false};

    uint8_t route(uint8_t unit, int* station) const;
    int framesOf(const ClientRequest& request) const;
    bool waitFor(int frames, const std::function<bool()>& done) const;
    Frame read(const Frame& frame, const ClientRequest& request, int station);
    uint8_t awaitRead(int id, int frames);
    Frame write(const Frame& frame, const ClientRequest& request, int station, const std::string& who);
    uint8_t awaitWrite(int id, int frames, ActionResult* result, const std::string& what, const std::string& name);
    void record(const std::string& who, const std::string& subject, const std::string& value,
                const ActionResult& result) const;
};

}  // namespace logohost

#endif  // LOGOHOST_REQUEST_HANDLER_H
