#include "host/panel/panel_model.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "host/notation/reply_words.h"
#include "host/notation/value_codec.h"

namespace logohost {
namespace {

constexpr std::chrono::minutes kTrendWindow{10};
constexpr std::chrono::milliseconds kTrendStep{200};
constexpr std::chrono::milliseconds kWaitSlice{100};  // waiters look at the shutdown flag this often
constexpr std::chrono::seconds kRateInterval{1};
constexpr size_t kMaxReadVariables = 64;
constexpr int kStationOff = 0;
constexpr int kStationOn = 1;

int64_t epochMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string stateClassOf(const ElementStatus& element)
{
    switch (element.state) {
    case ElementState::NeverRead: return "never-read";
    case ElementState::Ok: return "ok";
    case ElementState::StationOff: return "station-off";
    case ElementState::Failed: break;
    }
    if (!element.refusal.empty())
        return "refused";
    return isNoReplyCode(element.returnCode) ? "no-reply" : "failed";
}

std::string numberText(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::string secondsOf(std::chrono::milliseconds duration)
{
    return secondsText(static_cast<double>(duration.count()) / 1000);
}

}  // namespace

const char* outcomeName(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Done: return "done";
    case Outcome::BadRequest: return "bad request";
    case Outcome::UnknownVariable: return "unknown";
    case Outcome::NotAllowed: return "not allowed";
    case Outcome::StationOff: return "station off";
    case Outcome::Replaced: return "replaced";
    case Outcome::ControllerFailed: return "failed";
    case Outcome::TimedOut: return "timed out";
    }
    return "?";
}

PanelVariables indexVariables(const ScreenSet& screens, bool multiStation, int defaultStation)
{
    PanelVariables index;
    std::map<std::string, size_t> byKey;
    std::set<int> stations;
    for (const PanelScreen& screen : screens.screens) {
        index.screenVars.emplace_back();
        for (const PanelItem& item : screen.items) {
            Variable var = item.var;
            if (var.station == kNoStation && multiStation)
                var.station = defaultStation;
            const std::string key = variableKey(var, StationContext{multiStation, defaultStation});
            auto found = byKey.find(key);
            if (found == byKey.end()) {
                found = byKey.emplace(key, index.vars.size()).first;
                PanelVariable entry;
                entry.var = var;
                entry.item = &item;
                entry.station = multiStation ? var.station : defaultStation;
                index.vars.push_back(entry);
                stations.insert(entry.station);
            }
            PanelVariable& entry = index.vars[found->second];
            if (item.write && !entry.writable)
                entry.writable = &item;
            if (item.trend && entry.trend < 0) {
                entry.trend = static_cast<int>(index.trendVars.size());
                index.trendVars.push_back(found->second);
            }
            index.screenVars.back().push_back(found->second);
        }
    }
    index.stations.assign(stations.begin(), stations.end());
    return index;
}

namespace {

std::vector<Variable> variablesOf(const PanelVariables& index)
{
    std::vector<Variable> all;
    for (const PanelVariable& var : index.vars)
        all.push_back(var.var);
    return all;
}

}  // namespace

PanelModel::PanelModel(const DriverApi& api, ScreenSet screens, PanelSettings settings, Now now)
    : api_(api),
      screens_(std::move(screens)),
      settings_(std::move(settings)),
      now_(std::move(now)),
      index_(indexVariables(screens_, settings_.multiStation, settings_.defaultStation)),
      vars_(index_.vars),
      screenVars_(index_.screenVars),
      trendVars_(index_.trendVars),
      scanState_(api, variablesOf(index_), settings_.multiStation, settings_.defaultStation),
      writes_(settings_.multiStation),
      trends_(index_.trendVars.size(), kTrendWindow, kTrendStep),
      pacer_(settings_.scanPeriod, [this] { return reads_.anyOpen() || !writes_.waitUntilSettled({}); }),
      subscriptions_(screens_.screens.size(), settings_.lease),
      screensScanned_(screens_.screens.size(), false),
      rateSampledAt_(now_())
{
    for (const int station : index_.stations)
        stations_[station] = StationState{station, true, ""};
    if (settings_.multiStation)
        demotion_.reset(new StationDemotion(api_, settings_.demoteAfter, settings_.demoteFor,
                                            [this](int station, bool off, const std::string& message) {
                                                onStationSwitched(station, !off, message);
                                            }));
}

PanelModel::~PanelModel() { shutdown(); }

void PanelModel::attachCounters(const LinkCounters* counters) { counters_.store(counters); }

void PanelModel::start() { refreshScan(); }

void PanelModel::shutdown()
{
    stopping_.store(true);
    pacer_.release();
    const std::lock_guard<std::mutex> lock(changeMutex_);
    changed_.notify_all();
}

int PanelModel::findScreen(const std::string& name) const
{
    for (size_t s = 0; s < screens_.screens.size(); ++s)
        if (screens_.screens[s].name == name)
            return static_cast<int>(s);
    return -1;
}

// ---- the communication thread ----------------------------------------------

void PanelModel::onResult(const RequestResult& result)
{
    scanState_.onResult(result);
    pacer_.onResult(result);
    writes_.onResult(result);
    if (result.returnCode != RC_RETRYING && result.rwType == 0)
        recordTrends();
    {
        const std::lock_guard<std::mutex> lock(stationMutex_);
        if (demotion_)
            demotion_->onResult(result);
    }
    // Last: a read-now waiter wakes to find its value in the scan state.
    reads_.onResult(result);
    if (result.returnCode != RC_RETRYING)
        bumpVersion();
}

void PanelModel::onReadDone(int sourceType, int sourceId, int status) { reads_.onReadDone(sourceType, sourceId, status); }

void PanelModel::tick()
{
    refreshScan();  // leases that ran out
    {
        const std::lock_guard<std::mutex> lock(stationMutex_);
        if (demotion_)
            demotion_->tick();
    }
    sampleRate();
    pacer_.pace();
}

// A trended variable covered by the result that was just counted.
void PanelModel::recordTrends()
{
    const uint64_t current = scanState_.resultCount();
    const int64_t at = epochMs();
    for (size_t t = 0; t < trendVars_.size(); ++t) {
        const ElementStatus element = scanState_.element(trendVars_[t]);
        if (element.lastResult != current)
            continue;
        if (element.state == ElementState::Ok && element.hasValue)
            trends_.add(t, at, std::stod(element.value));
        else
            trends_.addGap(t, at);
    }
}

void PanelModel::sampleRate()
{
    const LinkCounters* counters = counters_.load();
    const Clock::time_point now = now_();
    const std::lock_guard<std::mutex> lock(changeMutex_);
    if (!counters || now - rateSampledAt_ < kRateInterval)
        return;
    const uint64_t frames = counters->frames.load();
    const double seconds = std::chrono::duration<double>(now - rateSampledAt_).count();
    framesPerSecond_ = static_cast<double>(frames - rateFrames_) / seconds;
    rateFrames_ = frames;
    rateSampledAt_ = now;
}

void PanelModel::bumpVersion()
{
    const std::lock_guard<std::mutex> lock(changeMutex_);
    ++version_;
    changed_.notify_all();
}

uint64_t PanelModel::waitForChange(uint64_t seen, std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> lock(changeMutex_);
    changed_.wait_for(lock, timeout, [&] { return version_ != seen || stopping_.load(); });
    return version_;
}

// ---- what is scanned ---------------------------------------------------------

void PanelModel::refreshScan()
{
    const std::lock_guard<std::mutex> lock(scanMutex_);
    refreshScanLocked();
}

void PanelModel::refreshScanLocked()
{
    const std::vector<bool> wanted = subscriptions_.wanted(now_());
    std::vector<bool> include(vars_.size(), false);
    for (const size_t var : trendVars_)
        include[var] = true;
    for (size_t s = 0; s < wanted.size(); ++s)
        if (wanted[s])
            for (const size_t var : screenVars_[s])
                include[var] = true;
    std::vector<size_t> scanned;
    for (size_t v = 0; v < include.size(); ++v)
        if (include[v])
            scanned.push_back(v);
    const bool listChanged = !listGiven_ || scanned != scanned_;
    if (!listChanged && wanted == screensScanned_)
        return;
    scanned_ = scanned;
    screensScanned_ = wanted;
    if (listChanged) {
        std::vector<Variable> variables;
        for (const size_t v : scanned)
            variables.push_back(vars_[v].var);
        QList<HOSTVAR> list = hostVariables(variables, settings_.defaultStation);
        cyclicRequests_ = api_.rebuildReadList(&list);
        listGiven_ = true;
        pacer_.setListSize(cyclicRequests_);
    }
    bumpVersion();
}

int PanelModel::openStream(size_t screen)
{
    const std::lock_guard<std::mutex> lock(scanMutex_);
    const int stream = subscriptions_.open(screen);
    refreshScanLocked();
    return stream;
}

void PanelModel::closeStream(int stream)
{
    const std::lock_guard<std::mutex> lock(scanMutex_);
    subscriptions_.close(stream);
    refreshScanLocked();
}

void PanelModel::pollScreen(size_t screen)
{
    if (screen >= screenVars_.size())
        return;
    bool wasScanned = false;
    uint64_t mark = 0;
    {
        const std::lock_guard<std::mutex> lock(scanMutex_);
        wasScanned = screensScanned_[screen];
        mark = scanState_.resultCount();
        subscriptions_.poll(screen, now_());
        refreshScanLocked();
    }
    if (wasScanned)
        return;
    waitUntil(Clock::now() + settings_.firstPollWait, [&] {
        for (const size_t var : screenVars_[screen])
            if (scanState_.element(var).lastResult <= mark)
                return false;
        return true;
    });
}

template <typename Settled>
bool PanelModel::waitUntil(Clock::time_point deadline, Settled settled) const
{
    uint64_t seen = 0;
    while (!settled()) {
        if (stopping_.load() || Clock::now() >= deadline)
            return false;
        seen = waitForChange(seen, kWaitSlice);
    }
    return true;
}

// ---- views -----------------------------------------------------------------

ItemState PanelModel::itemState(const PanelItem& item, const ElementStatus& element) const
{
    ItemState state;
    state.var = item.varText;
    state.hasValue = element.hasValue;
    if (element.hasValue) {
        state.raw = std::stod(element.value);
        state.value = shownValue(item, state.raw);
        state.text = shownText(item, state.raw);
    }
    state.state = stateText(element);
    state.stateClass = stateClassOf(element);
    state.changedAt = element.changedAt;
    return state;
}

std::vector<ItemState> PanelModel::screenState(size_t screen) const
{
    std::vector<ItemState> states;
    if (screen >= screenVars_.size())
        return states;
    const std::vector<PanelItem>& items = screens_.screens[screen].items;
    for (size_t i = 0; i < items.size(); ++i)
        states.push_back(itemState(items[i], scanState_.element(screenVars_[screen][i])));
    return states;
}

int PanelModel::findTrend(const std::string& varText) const
{
    bool badText = false;
    std::string error;
    const int var = findVar(varText, &badText, &error);
    return var < 0 ? -1 : vars_[var].trend;
}

const PanelItem& PanelModel::trendItem(int trend) const { return *vars_[trendVars_.at(trend)].item; }

std::vector<TrendPoint> PanelModel::trendPoints(int trend, int64_t since) const
{
    return trends_.points(static_cast<size_t>(trend), since);
}

PanelStatus PanelModel::status() const
{
    PanelStatus status;
    status.peer = settings_.peer;
    if (const LinkCounters* c = counters_.load()) {
        status.frames = c->frames.load();
        status.replies = c->replies.load();
        status.refused = c->refused.load();
        status.failures = c->failures.load();
        status.connections = c->connections.load();
    }
    {
        const std::lock_guard<std::mutex> lock(changeMutex_);
        status.framesPerSecond = framesPerSecond_;
    }
    {
        const std::lock_guard<std::mutex> lock(scanMutex_);
        for (size_t s = 0; s < screensScanned_.size(); ++s)
            if (screensScanned_[s])
                status.scannedScreens.push_back(screens_.screens[s].name);
        status.cyclicVariables = static_cast<int>(scanned_.size());
        status.cyclicRequests = cyclicRequests_;
        status.openStreams = subscriptions_.openStreams();
    }
    status.trendVariables = static_cast<int>(trendVars_.size());
    status.scanPeriodSeconds = static_cast<double>(settings_.scanPeriod.count()) / 1000;
    status.readOnly = settings_.readOnly;
    const std::lock_guard<std::mutex> lock(stationMutex_);
    for (const auto& station : stations_)
        status.stations.push_back(station.second);
    return status;
}

// ---- the operator's actions ----------------------------------------------------

int PanelModel::findVar(const std::string& varText, bool* badText, std::string* error) const
{
    Variable var;
    *badText = !parseVariable(varText, settings_.multiStation, &var, error);
    if (*badText)
        return -1;
    const StationContext stations{settings_.multiStation, settings_.defaultStation};
    const std::string key = variableKey(var, stations);
    for (size_t v = 0; v < vars_.size(); ++v)
        if (var.count == 1 && variableKey(vars_[v].var, stations) == key)
            return static_cast<int>(v);
    *error = varText + " is on no screen of this panel";
    return -1;
}

bool PanelModel::stationOn(int station) const
{
    const std::lock_guard<std::mutex> lock(stationMutex_);
    const auto found = stations_.find(station);
    return found == stations_.end() || found->second.on;
}

bool PanelModel::checkWriteValue(const PanelVariable& var, double value, double* raw, std::string* error) const
{
    const PanelItem& item = *var.writable;
    const std::string name = item.varText;
    if (!std::isfinite(value)) {
        *error = "the value for " + name + " must be a number";
        return false;
    }
    if (isBitKind(var.var.kind)) {
        if (value != 0 && value != 1) {
            *error = "value " + numberText(value) + " for " + name + " is out of range: a bit takes 0 or 1 (or true/false)";
            return false;
        }
        *raw = value;
        return true;
    }
    if (value < item.min || value > item.max) {
        *error = "value " + numberText(value) + " for " + name + " is out of range: expected " + numberText(item.min) +
                 " to " + numberText(item.max);
        return false;
    }
    *raw = rawValue(item, value);
    // A value between two steps of the item is refused rather than rounded:
    // the operator would not see written what was typed.
    if (std::fabs(shownValue(item, *raw) - value) > 1e-9 * std::max(1.0, std::fabs(value))) {
        *error = "value " + numberText(value) + " for " + name + " falls between its steps of " +
                 numberText(std::fabs(item.scale));
        return false;
    }
    return true;
}

ActionResult PanelModel::write(const std::string& varText, double value)
{
    if (settings_.readOnly)
        return {Outcome::NotAllowed, "this panel is read-only (started with --read-only)"};
    bool badText = false;
    std::string error;
    const int index = findVar(varText, &badText, &error);
    if (index < 0)
        return {badText ? Outcome::BadRequest : Outcome::UnknownVariable, error};
    const PanelVariable& var = vars_[index];
    if (!isWritable(var.var.kind))
        return {Outcome::NotAllowed, varText + " is an input and cannot be written"};
    if (!var.writable)
        return {Outcome::NotAllowed, varText + " is not writable on any screen of this panel"};
    double raw = 0;
    if (!checkWriteValue(var, value, &raw, &error))
        return {Outcome::BadRequest, error};
    if (!stationOn(var.station))
        return {Outcome::StationOff, "station " + std::to_string(var.station) + " is switched off"};

    WriteRequest request;
    request.var = var.var;
    request.values.push_back(static_cast<uint32_t>(static_cast<int64_t>(raw)));
    const int sourceId = nextSourceId_++;
    writes_.add(request, sourceId, var.station);
    const std::vector<uint8_t> bytes = packValues(var.var.kind, request.values);
    const QByteArray data(reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()));
    const int queued = api_.setRegisterData(QString::fromStdString(var.var.text), driverArea(var.var.kind),
                                            QString::fromStdString(driverAddressText(var.var)), var.station, data,
                                            driverCount(var.var), kWriteSourceType, sourceId);
    if (!queued) {
        writes_.forget(sourceId);
        return {Outcome::ControllerFailed, "the driver did not take the write of " + varText};
    }
    pacer_.wake();
    PendingWrite outcome;
    const auto deadline = Clock::now() + settings_.resultDeadline;
    waitUntil(deadline, [&] { return writes_.waitFor(sourceId, std::chrono::milliseconds(0), &outcome); });
    writes_.forget(sourceId);
    const std::string what = varText + " = " + shownText(*var.writable, raw);
    if (outcome.written())
        return {Outcome::Done, what + " written"};
    if (outcome.replacedBy)
        return {Outcome::Replaced, what + ": " + outcome.reason};
    if (outcome.failed)
        return {Outcome::ControllerFailed, what + " failed: " + outcome.reason};
    return {Outcome::TimedOut, what + ": no result from the driver within " + secondsOf(settings_.resultDeadline)};
}

ReadResult PanelModel::readNow(const std::vector<std::string>& varTexts)
{
    ReadResult read;
    if (varTexts.empty() || varTexts.size() > kMaxReadVariables) {
        read.result = {Outcome::BadRequest,
                       "\"vars\" must list 1 to " + std::to_string(kMaxReadVariables) + " variables"};
        return read;
    }
    std::vector<int> indexes;
    for (const std::string& text : varTexts) {
        bool badText = false;
        std::string error;
        const int index = findVar(text, &badText, &error);
        if (index < 0) {
            read.result = {badText ? Outcome::BadRequest : Outcome::UnknownVariable, error};
            return read;
        }
        if (!stationOn(vars_[index].station)) {
            read.result = {Outcome::StationOff, "station " + std::to_string(vars_[index].station) + " is switched off"};
            return read;
        }
        indexes.push_back(index);
    }
    std::vector<int> ids;
    for (const int index : indexes) {
        const PanelVariable& var = vars_[index];
        const int sourceId = nextSourceId_++;
        ids.push_back(sourceId);
        reads_.add(sourceId, var.station);
        RW_VAR request = RW_VAR();
        request.sourceType = kOnceReadSourceType;
        request.sourceId = sourceId;
        request.linkId = settings_.localLinkId;
        request.remoteFlag = settings_.remoteMode ? 1 : 0;
        request.area = driverArea(var.var.kind);
        request.addressText = QString::fromStdString(driverAddressText(var.var));
        request.count = driverCount(var.var);
        request.station = var.station;
        if (!api_.addOnceRead(&request, 0))
            reads_.fail(sourceId, "the driver did not take the read");
    }
    pacer_.wake();
    const auto deadline = Clock::now() + settings_.resultDeadline;
    const bool settled = waitUntil(deadline, [&] { return reads_.waitFor(ids, Clock::now()); });
    std::string firstError;
    for (size_t i = 0; i < ids.size(); ++i) {
        const PanelVariable& var = vars_[indexes[i]];
        const OnceRead outcome = reads_.outcome(ids[i]);
        read.items.push_back(itemState(*var.item, scanState_.element(indexes[i])));
        read.items.back().var = varTexts[i];
        std::string error;
        if (!outcome.done)
            error = "no result from the driver within " + secondsOf(settings_.resultDeadline);
        else if (!outcome.ok)
            error = outcome.reason.empty() ? "given up by the driver" : outcome.reason;
        if (!error.empty() && firstError.empty())
            firstError = varTexts[i] + ": " + error;
        read.errors.push_back(error);
    }
    reads_.forget(ids);
    if (!settled)
        read.result = {Outcome::TimedOut, firstError};
    else if (!firstError.empty())
        read.result = {Outcome::ControllerFailed, firstError};
    else
        read.result = {Outcome::Done, "read " + std::to_string(ids.size()) + " variable" + (ids.size() == 1 ? "" : "s")};
    return read;
}

// Under stationMutex_.
void PanelModel::onStationSwitched(int station, bool on, const std::string& note)
{
    StationState& state = stations_[station];
    state.station = station;
    state.on = on;
    state.note = note;
    scanState_.onStation(station, !on);
    if (!on) {
        // The driver discards a switched-off station's queued requests
        // without a result: they end here instead of at their deadline.
        const std::string reason = "dropped: station " + std::to_string(station) + " was switched off";
        writes_.dropStation(station, reason);
        reads_.dropStation(station, reason);
    }
}

ActionResult PanelModel::switchStation(int station, bool on)
{
    if (settings_.readOnly)
        return {Outcome::NotAllowed, "this panel is read-only (started with --read-only)"};
    if (std::find(index_.stations.begin(), index_.stations.end(), station) == index_.stations.end())
        return {Outcome::UnknownVariable, "station " + std::to_string(station) + " is on no screen of this panel"};
    {
        const std::lock_guard<std::mutex> lock(stationMutex_);
        if (demotion_)
            demotion_->forget(station);
        api_.enableStation(station, on ? kStationOn : kStationOff);
        onStationSwitched(station, on, on ? "switched on by the operator" : "switched off by the operator");
    }
    pacer_.wake();
    bumpVersion();
    return {Outcome::Done, "station " + std::to_string(station) + (on ? " switched on" : " switched off")};
}

}  // namespace logohost
