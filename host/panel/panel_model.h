// The panel's model: the screens, who is looking at which, what the driver
// scans for them, the trends, and the operator's writes, reads and station
// switches. The HTTP handlers speak to this and never to the driver.
//
// What is scanned: the variables of every screen that some browser has open
// (an open event stream) or that a script polled within the lease, and the
// trended variables always. The cyclic list is rebuilt whenever that set
// changes; a screen nobody looks at costs no frames.
#ifndef LOGOHOST_PANEL_MODEL_H
#define LOGOHOST_PANEL_MODEL_H

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
#include "host/binding/driver_api.h"
#include "host/binding/scan_pacer.h"
#include "host/binding/scan_state.h"
#include "host/binding/station_demotion.h"
#include "host/binding/write_tracker.h"
#include "host/panel/once_reads.h"
#include "host/panel/screens_file.h"
#include "host/panel/subscriptions.h"
#include "host/panel/trend_history.h"

namespace logohost {

struct PanelSettings {
    bool multiStation = false;
    int defaultStation = 1;
    // A one-shot read's record names the link as ComInfo does: only a
    // request for the local link has its reply stored and its callback called.
    int localLinkId = 0;
    bool remoteMode = false;
    bool readOnly = false;
    std::chrono::milliseconds lease{10000};         // a poll holds its screen this long
    std::chrono::milliseconds firstPollWait{5000};  // a poll of a screen not scanned yet waits for its reads
    std::chrono::milliseconds scanPeriod{200};      // one pass of the cyclic list per period at most
    std::chrono::milliseconds resultDeadline{14000};  // the longest a write or read waits for the driver
    int demoteAfter = 3;                            // multi-station: given-up requests before a station goes off
    std::chrono::milliseconds demoteFor{10000};
    std::string peer;  // the controller, HOST:PORT
};

// One item as the page shows it.
struct ItemState {
    std::string var;  // the item's var text
    bool hasValue = false;
    double raw = 0;
    double value = 0;        // in shown units
    std::string text;        // "12.5", or a bit's on/off text
    std::string state;       // the host's words: "ok", "never read", "no reply", "refused: ..."
    std::string stateClass;  // ok, never-read, no-reply, refused, failed, station-off
    std::string changedAt;   // wall-clock time the value last changed
};

enum class Outcome { Done, BadRequest, UnknownVariable, NotAllowed, StationOff, Replaced, ControllerFailed, TimedOut };

struct ActionResult {
    Outcome outcome = Outcome::Done;
    std::string message;
};

struct ReadResult {
    ActionResult result;
    std::vector<ItemState> items;
    std::vector<std::string> errors;  // per variable, empty where it was read
};

struct StationState {
    int station = 0;
    bool on = true;
    std::string note;  // why it is off, or when it came back
};

struct PanelStatus {
    std::string peer;
    uint64_t frames = 0, replies = 0, refused = 0, failures = 0, connections = 0;
    double framesPerSecond = 0;
    std::vector<std::string> scannedScreens;
    int cyclicVariables = 0;
    int cyclicRequests = 0;  // block requests in the driver's cyclic list
    int trendVariables = 0;
    double scanPeriodSeconds = 0;
    size_t openStreams = 0;
    bool readOnly = false;
    std::vector<StationState> stations;
};

// Every variable the screens show, once, in the order they first show it;
// items for the same element (by name and station) share it.
struct PanelVariable {
    Variable var;  // with its station filled in, in multi-station mode
    const PanelItem* item = nullptr;      // the first item showing it: all agree on its meaning
    const PanelItem* writable = nullptr;  // an item that lets the operator write it
    int station = 0;
    int trend = -1;  // index among the trended variables
};

struct PanelVariables {
    std::vector<PanelVariable> vars;
    std::vector<std::vector<size_t>> screenVars;  // per screen, per item: index into vars
    std::vector<size_t> trendVars;
    std::vector<int> stations;
};

PanelVariables indexVariables(const ScreenSet& screens, bool multiStation, int defaultStation);

class PanelModel {
public:
    using Clock = std::chrono::steady_clock;
    using Now = std::function<Clock::time_point()>;

    PanelModel(const DriverApi& api, ScreenSet screens, PanelSettings settings, Now now = &Clock::now);
    ~PanelModel();
    PanelModel(const PanelModel&) = delete;
    PanelModel& operator=(const PanelModel&) = delete;

    // Wiring: the loop's result sink, read-done callback and tick call
    // these; start() hands the driver its first cyclic list (the trends)
    // once the loop has given it its settings.
    void attachCounters(const LinkCounters* counters);
    void start();
    void onResult(const RequestResult& result);
    void onReadDone(int sourceType, int sourceId, int status);
    void tick();
    // Wakes every waiter and releases the loop, for shutdown.
    void shutdown();
    bool stopping() const { return stopping_.load(); }

    const ScreenSet& screens() const { return screens_; }
    int findScreen(const std::string& name) const;  // -1 if none
    bool readOnly() const { return settings_.readOnly; }

    int openStream(size_t screen);
    void closeStream(int stream);
    // A script's look at a screen: holds it for the lease. A screen that
    // was not being scanned is waited for until each item was read (or a
    // few seconds passed), so the first poll does not answer stale values.
    void pollScreen(size_t screen);
    std::vector<ItemState> screenState(size_t screen) const;
    // Returns the change counter once it differs from `seen`, or after the timeout.
    uint64_t waitForChange(uint64_t seen, std::chrono::milliseconds timeout) const;

    // Trends, by the var text of a trended item; -1 if it is none.
    int findTrend(const std::string& varText) const;
    const PanelItem& trendItem(int trend) const;
    std::vector<TrendPoint> trendPoints(int trend, int64_t since) const;

    // The operator's actions; each waits for the driver's result, at most
    // the result deadline.
    ActionResult write(const std::string& varText, double value);
    ReadResult readNow(const std::vector<std::string>& varTexts);
    ActionResult switchStation(int station, bool on);

    PanelStatus status() const;

private:
    const DriverApi& api_;
    const ScreenSet screens_;
    const PanelSettings settings_;
    const Now now_;
    const PanelVariables index_;
    const std::vector<PanelVariable>& vars_;
    const std::vector<std::vector<size_t>>& screenVars_;
    const std::vector<size_t>& trendVars_;

    ScanState scanState_;
    WriteTracker writes_;
    OnceReads reads_;
    TrendHistory trends_;
    ScanPacer pacer_;
    std::atomic<const LinkCounters*> counters_{nullptr};
    std::atomic<bool> stopping_{false};
    std::atomic<int> nextSourceId_{1};

    // Subscriptions and the list the driver scans; held across the rebuild.
    mutable std::mutex scanMutex_;
    Subscriptions subscriptions_;
    std::vector<size_t> scanned_;  // indexes into vars_
    std::vector<bool> screensScanned_;
    int cyclicRequests_ = 0;
    bool listGiven_ = false;

    // Station switching, by the operator and by the demotion; held while
    // calling the driver.
    mutable std::mutex stationMutex_;
    std::unique_ptr<StationDemotion> demotion_;
    std::map<int, StationState> stations_;

    mutable std::mutex changeMutex_;
    mutable std::condition_variable changed_;
    uint64_t version_ = 0;
    Clock::time_point rateSampledAt_;
    uint64_t rateFrames_ = 0;
    double framesPerSecond_ = 0;

    // -1 with the reason in *error; *badText when the text is no variable at all.
    int findVar(const std::string& varText, bool* badText, std::string* error) const;
    ItemState itemState(const PanelItem& item, const ElementStatus& element) const;
    void refreshScan();
    void refreshScanLocked();
    void bumpVersion();
    void recordTrends();
    void sampleRate();
    bool stationOn(int station) const;
    void onStationSwitched(int station, bool on, const std::string& note);
    bool checkWriteValue(const PanelVariable& var, double value, double* raw, std::string* error) const;
    template <typename Settled>
    bool waitUntil(Clock::time_point deadline, Settled settled) const;
};

// The statuses of each outcome, for the HTTP layer and messages.
const char* outcomeName(Outcome outcome);

}  // namespace logohost

#endif  // LOGOHOST_PANEL_MODEL_H
