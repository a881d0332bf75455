#include "host/model/plant_model.h"

#include <algorithm>
#include <map>
#include <set>

namespace logohost {
namespace {

constexpr std::chrono::minutes kTrendWindow{10};
constexpr std::chrono::milliseconds kTrendStep{200};

}  // namespace

namespace {

// The entry of the item's element, made on its first showing.
size_t entryOf(const PanelItem& item, bool multiStation, int defaultStation, std::map<std::string, size_t>* byKey,
               PanelVariables* index)
{
    Variable var = item.var;
    if (var.station == kNoStation && multiStation)
        var.station = defaultStation;
    const std::string key = variableKey(var, StationContext{multiStation, defaultStation});
    const auto found = byKey->find(key);
    if (found != byKey->end())
        return found->second;
    PanelVariable entry;
    entry.var = var;
    entry.item = &item;
    entry.station = multiStation ? var.station : defaultStation;
    index->vars.push_back(entry);
    byKey->emplace(key, index->vars.size() - 1);
    return index->vars.size() - 1;
}

}  // namespace

PanelVariables indexVariables(const ScreenSet& screens, bool multiStation, int defaultStation)
{
    PanelVariables index;
    std::map<std::string, size_t> byKey;
    for (const PanelScreen& screen : screens.screens) {
        index.screenVars.emplace_back();
        for (const PanelItem& item : screen.items) {
            const size_t v = entryOf(item, multiStation, defaultStation, &byKey, &index);
            PanelVariable& entry = index.vars[v];
            if (item.write && !entry.writable)
                entry.writable = &item;
            if (item.trend && entry.trend < 0) {
                entry.trend = static_cast<int>(index.trendVars.size());
                index.trendVars.push_back(v);
            }
            index.screenVars.back().push_back(v);
        }
    }
    for (const PanelItem& item : screens.hiddenItems)
        entryOf(item, multiStation, defaultStation, &byKey, &index);
    std::set<size_t> always(index.trendVars.begin(), index.trendVars.end());
    // Every alarm's variable is on a screen or among the hidden items.
    for (const AlarmRule& rule : screens.alarms)
        always.insert(byKey.at(variableKey(rule.var, StationContext{multiStation, defaultStation})));
    index.alwaysVars.assign(always.begin(), always.end());
    std::set<int> stations;
    for (const PanelVariable& var : index.vars)
        stations.insert(var.station);
    index.stations.assign(stations.begin(), stations.end());
    return index;
}

PlantModel::PlantModel(ScreenSet screens, PlantSettings settings)
    : screens_(std::move(screens)),
      settings_(settings),
      index_(indexVariables(screens_, settings_.multiStation, settings_.defaultStation)),
      trends_(index_.trendVars.size(), kTrendWindow, kTrendStep),
      subscriptions_(screens_.screens.size(), settings_.lease),
      screensScanned_(screens_.screens.size(), false)
{
}

std::vector<Variable> PlantModel::variables() const
{
    std::vector<Variable> all;
    for (const PanelVariable& var : index_.vars)
        all.push_back(var.var);
    return all;
}

void PlantModel::attach(Session& session, HistoryStore* history)
{
    session_ = &session;
    history_ = history;
    session.addResultObserver([this](const RequestResult& result) {
        if (result.rwType == RW_READ)
            recordTrends();
    });
    const std::lock_guard<std::mutex> lock(scanMutex_);
    refreshScanLocked();
}

int PlantModel::findScreen(const std::string& name) const
{
    for (size_t s = 0; s < screens_.screens.size(); ++s)
        if (screens_.screens[s].name == name)
            return static_cast<int>(s);
    return -1;
}

int PlantModel::findVar(const std::string& varText, bool* badText, std::string* error) const
{
    Variable var;
    *badText = !parseVariable(varText, settings_.multiStation, &var, error);
    if (*badText)
        return -1;
    const int index = indexOf(var);
    if (index < 0)
        *error = varText + " is on no screen of this panel";
    return index;
}

int PlantModel::indexOf(const Variable& var) const
{
    const StationContext stations{settings_.multiStation, settings_.defaultStation};
    const std::string key = variableKey(var, stations);
    for (size_t v = 0; v < index_.vars.size(); ++v)
        if (var.count == 1 && variableKey(index_.vars[v].var, stations) == key)
            return static_cast<int>(v);
    return -1;
}

// ---- what is scanned ---------------------------------------------------------

void PlantModel::refreshScanLocked()
{
    const std::vector<bool> wanted = subscriptions_.wanted(session_->clock().steady());
    std::vector<bool> include(index_.vars.size(), false);
    for (const size_t var : index_.alwaysVars)
        include[var] = true;
    for (size_t s = 0; s < wanted.size(); ++s)
        if (wanted[s])
            for (const size_t var : index_.screenVars[s])
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
        cyclicRequests_ = session_->scan(scanned);
        listGiven_ = true;
    }
}

int PlantModel::openStream(size_t screen)
{
    const std::lock_guard<std::mutex> lock(scanMutex_);
    const int stream = subscriptions_.open(screen);
    refreshScanLocked();
    return stream;
}

void PlantModel::closeStream(int stream)
{
    const std::lock_guard<std::mutex> lock(scanMutex_);
    subscriptions_.close(stream);
    refreshScanLocked();
}

void PlantModel::refreshLeases()
{
    const std::lock_guard<std::mutex> lock(scanMutex_);
    refreshScanLocked();
}

void PlantModel::pollScreen(size_t screen)
{
    if (screen >= index_.screenVars.size())
        return;
    bool wasScanned = false;
    {
        const std::lock_guard<std::mutex> lock(scanMutex_);
        wasScanned = screensScanned_[screen];
        subscriptions_.poll(screen, session_->clock().steady());
        refreshScanLocked();
    }
    if (wasScanned)
        return;
    const std::vector<size_t>& vars = index_.screenVars[screen];
    std::vector<uint64_t> before;
    for (const size_t var : vars)
        before.push_back(session_->element(var).lastResult);
    session_->waitUntil(session_->clock().steady() + settings_.firstPollWait, [&] {
        for (size_t i = 0; i < vars.size(); ++i)
            if (session_->element(vars[i]).lastResult == before[i])
                return false;
        return true;
    });
}

// ---- views -----------------------------------------------------------------

ItemState PlantModel::itemState(size_t var, const std::string& text) const
{
    return ItemState{text, index_.vars.at(var).item, session_->element(var)};
}

std::vector<ItemState> PlantModel::screenState(size_t screen) const
{
    std::vector<ItemState> states;
    if (screen >= index_.screenVars.size())
        return states;
    const std::vector<PanelItem>& items = screens_.screens[screen].items;
    for (size_t i = 0; i < items.size(); ++i) {
        ItemState state = itemState(index_.screenVars[screen][i], items[i].varText);
        state.item = &items[i];
        states.push_back(state);
    }
    return states;
}

int PlantModel::findTrend(const std::string& varText) const
{
    bool badText = false;
    std::string error;
    const int var = findVar(varText, &badText, &error);
    return var < 0 ? -1 : index_.vars[var].trend;
}

const PanelItem& PlantModel::trendItem(int trend) const { return *index_.vars[index_.trendVars.at(trend)].item; }

std::vector<TrendPoint> PlantModel::trendPoints(int trend, int64_t since) const
{
    return trends_.points(static_cast<size_t>(trend), since);
}

// A trended variable covered by the result that was just counted.
void PlantModel::recordTrends()
{
    const uint64_t current = session_->resultCount();
    for (size_t t = 0; t < index_.trendVars.size(); ++t) {
        const ElementStatus element = session_->element(index_.trendVars[t]);
        if (element.lastResult != current)
            continue;
        const std::string series = history_ ? seriesOf(index_.trendVars[t]) : "";
        if (element.quality == Quality::Ok) {
            trends_.add(t, element.readAtMs, static_cast<double>(element.value));
            if (history_)
                history_->addSample(series, element.readAtMs, element.value);
        } else {
            trends_.addGap(t, session_->clock().wallMs());
            if (history_)
                history_->addGap(series, session_->clock().wallMs());
        }
    }
}

std::string PlantModel::seriesOf(size_t var) const
{
    return variableKey(index_.vars.at(var).var, StationContext{settings_.multiStation, settings_.defaultStation});
}

// The history leaves out spans in which nothing was recorded. A hole longer
// than a value may go unread (the host was not running, or not scanning)
// is a gap for the chart; a shorter one is only buckets finer than the
// sampling, and the line goes on across it.
std::vector<TrendSpan> PlantModel::trendRange(int trend, int64_t fromMs, int64_t toMs, int points) const
{
    std::vector<TrendSpan> spans;
    if (!history_)
        return spans;
    const PanelItem& item = trendItem(trend);
    for (const TrendBucket& bucket : history_->trend(seriesOf(index_.trendVars.at(trend)), fromMs, toMs, points)) {
        if (!spans.empty() && bucket.fromMs - spans.back().toMs > session_->staleAfter().count())
            spans.push_back(TrendSpan{spans.back().toMs, bucket.fromMs, true, 0, 0});
        const double a = shownValue(item, static_cast<double>(bucket.min));
        const double b = shownValue(item, static_cast<double>(bucket.max));
        spans.push_back(TrendSpan{bucket.fromMs, bucket.toMs, bucket.gap, std::min(a, b), std::max(a, b)});
    }
    return spans;
}

ScanFigures PlantModel::scanFigures() const
{
    ScanFigures figures;
    const std::lock_guard<std::mutex> lock(scanMutex_);
    for (size_t s = 0; s < screensScanned_.size(); ++s)
        if (screensScanned_[s])
            figures.scannedScreens.push_back(screens_.screens[s].name);
    figures.variables = static_cast<int>(scanned_.size());
    figures.requests = cyclicRequests_;
    figures.trends = static_cast<int>(index_.trendVars.size());
    figures.openStreams = subscriptions_.openStreams();
    return figures;
}

}  // namespace logohost
