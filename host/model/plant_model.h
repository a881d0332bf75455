// The plant as the panel and the bridge see it: the screens and their
// items, which of them someone is looking at, what the driver scans for
// them, each item's value with its truth, and the trends.
//
// What is scanned: the variables of every screen that some browser has open
// (an open event stream) or that a script polled within the lease, and the
// trended (and otherwise always wanted) variables always. The cyclic list is
// rebuilt whenever that set changes; a screen nobody looks at costs no frames.
#ifndef LOGOHOST_PLANT_MODEL_H
#define LOGOHOST_PLANT_MODEL_H

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/binding/session.h"
#include "host/history/history_store.h"
#include "host/model/screens_file.h"
#include "host/model/subscriptions.h"
#include "host/model/trend_history.h"

namespace logohost {

struct PlantSettings {
    bool multiStation = false;
    int defaultStation = 1;
    std::chrono::milliseconds lease{10000};         // a poll holds its screen this long
    std::chrono::milliseconds firstPollWait{5000};  // a poll of a screen not scanned yet waits for its reads
};

// Every variable the screens show, once, in the order they first show it;
// items for the same element (by name and station) share it.
struct PanelVariable {
    Variable var;                         // with its station filled in, in multi-station mode
    const PanelItem* item = nullptr;      // the first item showing it: all agree on its meaning
    const PanelItem* writable = nullptr;  // an item that lets the operator write it
    int station = 0;
    int trend = -1;  // index among the trended variables
};

struct PanelVariables {
    std::vector<PanelVariable> vars;
    std::vector<std::vector<size_t>> screenVars;  // per screen, per item: index into vars
    std::vector<size_t> trendVars;
    std::vector<size_t> alwaysVars;  // scanned whoever looks: trends and alarms
    std::vector<int> stations;
};

PanelVariables indexVariables(const ScreenSet& screens, bool multiStation, int defaultStation);

// One item as a view shows it: its meaning and its element's truth.
struct ItemState {
    std::string var;  // the item's var text, or the text a request used
    const PanelItem* item = nullptr;
    ElementStatus element;
};

// One point of a long-range chart: the range of shown values in a span of
// time, or a gap where nothing could be read (or nothing was recorded).
struct TrendSpan {
    int64_t fromMs = 0, toMs = 0;
    bool gap = false;
    double low = 0, high = 0;
};

struct ScanFigures {
    std::vector<std::string> scannedScreens;
    int variables = 0;  // in the cyclic list
    int requests = 0;   // block requests of the driver's cyclic list
    int trends = 0;
    size_t openStreams = 0;
};

class PlantModel {
public:
    PlantModel(ScreenSet screens, PlantSettings settings);
    PlantModel(const PlantModel&) = delete;
    PlantModel& operator=(const PlantModel&) = delete;

    // What the session is made for: every variable of every screen.
    std::vector<Variable> variables() const;
    // Listens to the session's results (trends, kept in the history too when
    // one is given) and hands the driver its first cyclic list. Before the
    // session starts.
    void attach(Session& session, HistoryStore* history = nullptr);
    Session& session() const { return *session_; }

    const ScreenSet& screens() const { return screens_; }
    const PlantSettings& settings() const { return settings_; }
    int findScreen(const std::string& name) const;  // -1 if none
    // The variable a text names, -1 with the reason in *error; *badText when
    // the text is no variable at all.
    int findVar(const std::string& varText, bool* badText, std::string* error) const;
    // The variable of a parsed one (any station form), -1 if no item shows it.
    int indexOf(const Variable& var) const;
    const PanelVariable& variable(size_t index) const { return index_.vars.at(index); }
    size_t variableCount() const { return index_.vars.size(); }
    const std::vector<int>& stations() const { return index_.stations; }

    int openStream(size_t screen);
    void closeStream(int stream);
    // A script's look at a screen: holds it for the lease. A screen that
    // was not being scanned is waited for until each item was read (or a
    // few seconds passed), so the first poll does not answer stale values.
    void pollScreen(size_t screen);
    // Leases that ran out give their screens up; called now and then.
    void refreshLeases();

    std::vector<ItemState> screenState(size_t screen) const;
    ItemState itemState(size_t var, const std::string& text) const;

    // Trends, by the var text of a trended item; -1 if it is none.
    int findTrend(const std::string& varText) const;
    const PanelItem& trendItem(int trend) const;
    std::vector<TrendPoint> trendPoints(int trend, int64_t since) const;
    // Any range from the history, in at most `points` spans; empty without one.
    std::vector<TrendSpan> trendRange(int trend, int64_t fromMs, int64_t toMs, int points) const;
    // The name a variable's samples are kept under: "AI1", "VW10@2".
    std::string seriesOf(size_t var) const;

    ScanFigures scanFigures() const;

private:
    const ScreenSet screens_;
    const PlantSettings settings_;
    const PanelVariables index_;
    Session* session_ = nullptr;
    HistoryStore* history_ = nullptr;
    TrendHistory trends_;

    // Subscriptions and the list the driver scans; held across the rebuild.
    mutable std::mutex scanMutex_;
    Subscriptions subscriptions_;
    std::vector<size_t> scanned_;  // indexes into the variables
    std::vector<bool> screensScanned_;
    int cyclicRequests_ = 0;
    bool listGiven_ = false;

    void refreshScanLocked();
    void recordTrends();
};

}  // namespace logohost

#endif  // LOGOHOST_PLANT_MODEL_H
