// The one way the host's fronts (the terminal commands, the panel, the MQTT
// bridge, the Modbus proxy) talk to the driver: a scan of a set of
// variables, writes and one-shot reads with their outcomes, the station
// switch, and the truth about every value and every controller's link.
//
// A session owns the communication loop and everything that listens to it:
// what the scan has read (with each value's quality), the writes and reads
// in flight, the scan's pace, the switching off of failing stations, the
// state of each controller's link and its figures. Its fronts only ask.
#ifndef LOGOHOST_SESSION_H
#define LOGOHOST_SESSION_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/binding/comm_loop.h"
#include "host/binding/driver_request.h"
#include "host/binding/link_health.h"
#include "host/binding/once_reads.h"
#include "host/binding/pass_meter.h"
#include "host/binding/scan_pacer.h"
#include "host/binding/scan_state.h"
#include "host/binding/station_demotion.h"
#include "host/binding/write_tracker.h"

namespace logohost {

// The requester categories the host gives the driver: they show in failure
// codes as base + 1 + category.
constexpr int kWriteSourceType = 1;
constexpr int kOnceReadSourceType = 2;

struct SessionSettings {
    bool multiStation = false;
    int defaultStation = 1;
    int localLinkId = 1;
    bool remoteMode = false;
    int retries = 2;
    std::chrono::milliseconds replyTimeout{1000};
    std::chrono::milliseconds scanPeriod{0};  // one pass per period at most; 0: as fast as the link goes
    bool demote = false;                      // switch a failing station off
    int demoteAfter = 3;                      // given-up requests in a row before it goes off
    std::chrono::milliseconds demoteFor{10000};  // how long, without a probe; with one, how often it is asked
    bool probe = false;                       // ask a switched-off station's controller whether it answers again
};

// The clocks every deadline and timestamp of the host is taken from, so
// that tests can drive them.
struct HostClock {
    std::function<std::chrono::steady_clock::time_point()> steady;
    std::function<int64_t()> wallMs;  // milliseconds since the epoch
    static HostClock system();
};

struct StationState {
    int station = 0;
    bool on = true;
    std::string note;  // why it is off, or when it came back
};

struct ControllerFigures {
    std::string name;
    std::string address;  // HOST:PORT
    LinkHealth health;
    uint64_t frames = 0, replies = 0, refused = 0, failures = 0, connections = 0, losses = 0;
    double framesPerSecond = 0;
    PassFigures pass;
};

// One snapshot of every link's counters.
struct LinkFigures {
    std::vector<ControllerFigures> controllers;
    ControllerFigures total() const;
};

class Session {
public:
    using Clock = std::chrono::steady_clock;
    using ResultObserver = std::function<void(const RequestResult&)>;
    using StationObserver = std::function<void(int station, bool on, const std::string& note)>;
    using HealthObserver = std::function<void(size_t controller, const LinkHealth& health)>;

    // `variables` are what the session can scan and report on; scan()
    // chooses which of them the driver's cyclic list holds.
    Session(const DriverApi& api, ComInfo& info, LinkSet& links, Trace& trace, SessionSettings settings,
            std::vector<Variable> variables, HostClock clock = HostClock::system());
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Observers are added before start(); they run on the communication
    // thread, after the session's own state has taken the event in.
    void addResultObserver(ResultObserver observer);
    void addStationObserver(StationObserver observer);
    void addHealthObserver(HealthObserver observer);
    void start();
    void stop();

    // The variables (indexes into those given) the cyclic scan holds from
    // now on; returns the block requests of the driver's cyclic list.
    int scan(const std::vector<size_t>& variables);

    // A write; its outcome says so when the driver did not take it.
    int queueWrite(const DriverWrite& write);
    PendingWrite writeOutcome(int id) const;
    void forgetWrite(int id);
    // A one-shot read; its outcome says so when the driver did not take it.
    int queueRead(const DriverRange& range);
    OnceRead readOutcome(int id) const;
    bool readsSettled(const std::vector<int>& ids) const;
    void forgetReads(const std::vector<int>& ids);
    // Ends every write and read still waiting for a station that cannot be
    // reached or does not answer at all: their requester stops waiting.
    void abandonUnreachable();

    // Waits until done() holds, the deadline passes (false) or the session
    // stops (false). done() is tried after every change.
    bool waitUntil(Clock::time_point deadline, const std::function<bool()>& done) const;
    // The longest a request of `frames` frames may take: each frame with
    // its retries, time-outs and reconnection back-off, with room.
    std::chrono::milliseconds requestDeadline(int frames) const;
    // How long a value may go unread before it is stale: a request with
    // every retry, and the wait for its pass.
    std::chrono::milliseconds staleAfter() const;

    // The operator's station switch; a station switched by hand is left
    // alone by the automatic switching off.
    void switchStation(int station, bool on, const std::string& note);
    std::vector<StationState> stations() const;
    bool stationOn(int station) const;

    // Whether the scan read every bit or word of the range within maxAge
    // and its station is answering: the image can stand for a new read.
    bool freshInImage(const DriverRange& range, std::chrono::milliseconds maxAge) const;
    // The range from the image, as the driver lays it out: a byte per bit,
    // two per word, low byte first.
    std::vector<uint8_t> imageBytes(const DriverRange& range) const;

    std::vector<ElementStatus> elements() const;
    ElementStatus element(size_t index) const;
    // Results seen so far: an element whose lastResult equals it was covered
    // by the latest.
    uint64_t resultCount() const { return scanState_.resultCount(); }
    LinkFigures figures() const;
    LinkHealth health(size_t controller) const;
    LinkHealth stationHealth(int station) const;
    // True while some controller has stopped answering; *health says which.
    bool anyDown(LinkHealth* health = nullptr) const;
    size_t controllerOf(int station) const { return links_.controllerOf(station); }

    // Grows with every result, station switch and change of a link's state.
    uint64_t version() const;
    uint64_t waitForChange(uint64_t seen, std::chrono::milliseconds timeout) const;
    // The scan's pass is over and it waits for its next period.
    bool scanResting() const { return pacer_.resting(); }

    const SessionSettings& settings() const { return settings_; }
    const HostClock& clock() const { return clock_; }
    const std::vector<Variable>& variables() const { return variables_; }

    // The communication loop's events, on its thread; public so that a test
    // can play the loop's part.
    void beforeFrame();
    void onExchange(size_t controller, int station, const Exchange& exchange);
    void onResult(const RequestResult& result);
    void onReadDone(int sourceType, int sourceId, int status);

private:
    const DriverApi& api_;
    LinkSet& links_;
    const SessionSettings settings_;
    const HostClock clock_;
    const std::vector<Variable> variables_;

    HealthBoard health_;
    ScanState scanState_;
    WriteTracker writes_;
    OnceReads reads_;
    ScanPacer pacer_;
    PassMeter passes_;
    std::atomic<int> nextSourceId_{1};
    std::atomic<bool> stopping_{false};

    std::vector<ResultObserver> resultObservers_;
    std::vector<StationObserver> stationObservers_;
    std::vector<HealthObserver> healthObservers_;

    mutable std::mutex stationMutex_;  // held while calling the driver's station switch
    std::unique_ptr<StationProbe> probe_;
    std::unique_ptr<StationDemotion> demotion_;
    std::map<int, StationState> stations_;

    mutable std::mutex changeMutex_;
    mutable std::condition_variable changed_;
    uint64_t version_ = 0;
    struct RateSample {
        Clock::time_point at{};
        uint64_t frames = 0;
        double perSecond = 0;
    };
    std::vector<RateSample> rates_;  // under changeMutex_

    std::unique_ptr<CommLoop> loop_;  // last: it stops before the rest goes

    LoopHooks hooks();
    void onStationSwitched(int station, bool on, const std::string& note);  // under stationMutex_
    void sampleRates();
    void reportHealth(const std::vector<size_t>& changed);
    void bump();
};

}  // namespace logohost

#endif  // LOGOHOST_SESSION_H
