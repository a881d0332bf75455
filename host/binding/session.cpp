#include "host/binding/session.h"

#include <algorithm>
#include <set>

#include "common/endpoint.h"
#include "host/notation/return_codes.h"

namespace logohost {
namespace {

constexpr std::chrono::milliseconds kWaitSlice{50};  // waiters look at the clock and the stop flag this often
constexpr std::chrono::seconds kRateInterval{1};
constexpr std::chrono::milliseconds kDeadlineSlack{2000};
constexpr std::chrono::milliseconds kWorstBackoff{2000};  // the link's longest pause between connection attempts

std::set<int> stationsOf(const std::vector<Variable>& variables, int defaultStation)
{
    std::set<int> stations{defaultStation};
    for (const Variable& var : variables)
        if (var.station != kNoStation)
            stations.insert(var.station);
    return stations;
}

std::vector<int> listOf(const std::set<int>& stations) { return std::vector<int>(stations.begin(), stations.end()); }

// A controller that comes back is scanned again within a fraction of the
// demotion period; asking more often than twice a second helps no one.
std::chrono::milliseconds probeInterval(std::chrono::milliseconds demoteFor)
{
    return std::max(std::chrono::milliseconds(500), std::min(demoteFor / 4, std::chrono::milliseconds(5000)));
}

}  // namespace

HostClock HostClock::system()
{
    return HostClock{&std::chrono::steady_clock::now, [] {
                         return static_cast<int64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                                         std::chrono::system_clock::now().time_since_epoch())
                                                         .count());
                     }};
}

ControllerFigures LinkFigures::total() const
{
    ControllerFigures sum;
    for (const ControllerFigures& c : controllers) {
        sum.frames += c.frames;
        sum.replies += c.replies;
        sum.refused += c.refused;
        sum.failures += c.failures;
        sum.connections += c.connections;
        sum.losses += c.losses;
        sum.framesPerSecond += c.framesPerSecond;
    }
    // The worst link speaks for all: one controller not answering is news.
    const auto rank = [](LinkState state) { return state == LinkState::Down ? 2 : state == LinkState::Connecting ? 1 : 0; };
    for (size_t c = 0; c < controllers.size(); ++c)
        if (c == 0 || rank(controllers[c].health.state) > rank(sum.health.state))
            sum.health = controllers[c].health;
    return sum;
}

Session::Session(const DriverApi& api, ComInfo& info, LinkSet& links, Trace& trace, SessionSettings settings,
                 std::vector<Variable> variables, HostClock clock)
    : api_(api),
      links_(links),
      settings_(settings),
      clock_(std::move(clock)),
      variables_(std::move(variables)),
      health_(clock_.wallMs, [&links](int station) { return links.controllerOf(station); }, links.size(),
              listOf(stationsOf(variables_, settings_.defaultStation))),
      scanState_(api, variables_, settings_.multiStation, settings_.defaultStation,
                 ScanTiming{settings_.replyTimeout * (settings_.retries + 1) + settings_.scanPeriod, clock_.steady,
                            clock_.wallMs},  // as staleAfter()
                 [&links](int station) { return links.controllerOf(station); }),
      writes_(settings_.multiStation),
      reads_(kOnceReadSourceType),
      pacer_(settings_.scanPeriod, [this] { return reads_.anyOpen() || writes_.anyPending(); }),
      passes_(links.size(), settings_.scanPeriod),
      rates_(links.size())
{
    for (const int station : stationsOf(variables_, settings_.defaultStation))
        stations_[station] = StationState{station, true, ""};
    if (settings_.probe)
        probe_.reset(new StationProbe(links_, settings_.replyTimeout, probeInterval(settings_.demoteFor), [this](int station) {
            const std::lock_guard<std::mutex> lock(stationMutex_);
            if (demotion_)
                demotion_->answered(station);
        }));
    if (settings_.demote)
        demotion_.reset(new StationDemotion(
            api_, settings_.demoteAfter, settings_.demoteFor,
            [this](int station, bool off, const std::string& note) { onStationSwitched(station, !off, note); },
            clock_.steady, probe_.get()));
    loop_.reset(new CommLoop(api_, info, links_, trace, hooks()));
}

Session::~Session() { stop(); }

LoopHooks Session::hooks()
{
    LoopHooks hooks;
    hooks.beforeFrame = [this] { beforeFrame(); };
    hooks.onExchange = [this](size_t controller, int station, const Exchange& exchange) {
        onExchange(controller, station, exchange);
    };
    hooks.onResult = [this](const RequestResult& result) { onResult(result); };
    hooks.onReadDone = [this](int sourceType, int sourceId, int status) { onReadDone(sourceType, sourceId, status); };
    return hooks;
}

void Session::addResultObserver(ResultObserver observer) { resultObservers_.push_back(std::move(observer)); }
void Session::addStationObserver(StationObserver observer) { stationObservers_.push_back(std::move(observer)); }
void Session::addHealthObserver(HealthObserver observer) { healthObservers_.push_back(std::move(observer)); }

void Session::start() { loop_->start(); }

void Session::stop()
{
    stopping_.store(true);
    if (probe_)
        probe_->stop();
    // The loop learns it is stopping before the pacer lets it go, or it would
    // send frames unpaced until it is joined: a burst of a hundred on a busy
    // machine, at every exit.
    loop_->requestStop();
    pacer_.release();
    {
        const std::lock_guard<std::mutex> lock(changeMutex_);
        changed_.notify_all();
    }
    loop_->stop();
}

int Session::scan(const std::vector<size_t>& variables)
{
    std::vector<Variable> chosen;
    for (const size_t v : variables)
        chosen.push_back(variables_.at(v));
    QList<HOSTVAR> list = hostVariables(chosen, settings_.defaultStation);
    const int requests = api_.rebuildReadList(&list);
    pacer_.setListSize(requests);
    passes_.restart();
    bump();
    return requests;
}

// ---- requests -----------------------------------------------------------------

int Session::queueWrite(const DriverWrite& write)
{
    const int id = nextSourceId_++;
    writes_.add(id, write.range);
    const QByteArray data(reinterpret_cast<const char*>(write.bytes.data()), static_cast<int>(write.bytes.size()));
    const int queued = api_.setRegisterData(QString::fromStdString(write.label), write.range.area,
                                            QString::fromStdString(write.range.addressText), write.range.station, data,
                                            write.range.count, kWriteSourceType, id);
    if (!queued)
        writes_.refused(id);
    pacer_.wake();
    return id;
}

PendingWrite Session::writeOutcome(int id) const { return writes_.find(id); }
void Session::forgetWrite(int id) { writes_.forget(id); }

int Session::queueRead(const DriverRange& range)
{
    const int id = nextSourceId_++;
    reads_.add(id, range.station);
    RW_VAR request = RW_VAR();
    request.sourceType = kOnceReadSourceType;
    request.sourceId = id;
    request.linkId = settings_.localLinkId;
    request.remoteFlag = settings_.remoteMode ? 1 : 0;
    request.area = range.area;
    request.addressText = QString::fromStdString(range.addressText);
    request.count = range.count;
    request.station = range.station;
    if (!api_.addOnceRead(&request, 0))
        reads_.fail(id, "the driver did not take the read");
    pacer_.wake();
    return id;
}

OnceRead Session::readOutcome(int id) const { return reads_.outcome(id); }
bool Session::readsSettled(const std::vector<int>& ids) const { return reads_.settled(ids); }
void Session::forgetReads(const std::vector<int>& ids) { reads_.forget(ids); }

void Session::abandonUnreachable()
{
    std::set<int> stations;
    for (const int station : writes_.pendingStations())
        stations.insert(station);
    for (const int station : reads_.pendingStations())
        stations.insert(station);
    bool abandoned = false;
    for (const int station : stations) {
        const LinkHealth health = health_.station(station);
        if (!unreachable(health))
            continue;
        const std::string reason = "the controller is not answering (" + health.cause + ")";
        writes_.abandon(station, reason);
        reads_.dropStation(station, reason);
        abandoned = true;
    }
    if (abandoned)
        bump();
}

bool Session::waitUntil(Clock::time_point deadline, const std::function<bool()>& done) const
{
    uint64_t seen = version();
    while (!done()) {
        if (stopping_.load() || clock_.steady() >= deadline)
            return false;
        seen = waitForChange(seen, kWaitSlice);
    }
    return true;
}

std::chrono::milliseconds Session::staleAfter() const
{
    return settings_.replyTimeout * (settings_.retries + 1) + settings_.scanPeriod;
}

std::chrono::milliseconds Session::requestDeadline(int frames) const
{
    const auto perFrame = (settings_.replyTimeout + kWorstBackoff) * (settings_.retries + 1);
    return kDeadlineSlack + settings_.scanPeriod + perFrame * std::max(frames, 1);
}

// ---- stations -----------------------------------------------------------------

void Session::switchStation(int station, bool on, const std::string& note)
{
    {
        const std::lock_guard<std::mutex> lock(stationMutex_);
        if (demotion_)
            demotion_->forget(station);
        api_.enableStation(station, on ? STATION_ON : STATION_OFF);
        onStationSwitched(station, on, note);
    }
    pacer_.wake();
}

void Session::onStationSwitched(int station, bool on, const std::string& note)
{
    stations_[station] = StationState{station, on, note};
    scanState_.onStation(station, !on);
    if (!on) {
        // The driver discards a switched-off station's queued requests
        // without a result: they end here instead of at their deadline.
        writes_.dropStation(station);
        reads_.dropStation(station, "station " + std::to_string(station) + " was switched off");
    }
    for (const StationObserver& observer : stationObservers_)
        observer(station, on, note);
    bump();
}

std::vector<StationState> Session::stations() const
{
    const std::lock_guard<std::mutex> lock(stationMutex_);
    std::vector<StationState> list;
    for (const auto& entry : stations_)
        list.push_back(entry.second);
    return list;
}

bool Session::stationOn(int station) const
{
    const std::lock_guard<std::mutex> lock(stationMutex_);
    const auto found = stations_.find(station);
    return found == stations_.end() || found->second.on;
}

// ---- the communication thread ---------------------------------------------------

void Session::beforeFrame()
{
    {
        const std::lock_guard<std::mutex> lock(stationMutex_);
        if (demotion_)
            demotion_->tick();
    }
    sampleRates();
    pacer_.pace();
    passes_.onFrame(clock_.steady());
}

void Session::onExchange(size_t, int station, const Exchange& exchange)
{
    const LinkFault fault = exchange.outcome == LinkOutcome::Reply ? LinkFault::None : exchange.fault;
    reportHealth(health_.onExchange(station, fault, exchange.cause));
}

void Session::reportHealth(const std::vector<size_t>& changed)
{
    for (const size_t controller : changed) {
        const LinkHealth health = health_.controller(controller);
        for (const HealthObserver& observer : healthObservers_)
            observer(controller, health);
    }
    if (!changed.empty())
        bump();
}

void Session::onResult(const RequestResult& reported)
{
    RequestResult result = reported;
    result.failure.returnCode = result.returnCode;
    if (isFinalFailure(result.returnCode))
        reportHealth(health_.onGiveUp(result.station));
    scanState_.onResult(result);
    pacer_.onResult(result);
    passes_.onResult(result, clock_.steady());
    writes_.onResult(result);
    {
        const std::lock_guard<std::mutex> lock(stationMutex_);
        if (demotion_)
            demotion_->onResult(result, health_.station(result.station));
    }
    // Last of the session's own: a read-now waiter wakes to find its value.
    reads_.onResult(result);
    if (result.returnCode == RC_RETRYING)
        return;
    for (const ResultObserver& observer : resultObservers_)
        observer(result);
    bump();
}

void Session::onReadDone(int sourceType, int sourceId, int status) { reads_.onReadDone(sourceType, sourceId, status); }

void Session::sampleRates()
{
    const Clock::time_point now = clock_.steady();
    const std::lock_guard<std::mutex> lock(changeMutex_);
    for (size_t c = 0; c < rates_.size(); ++c) {
        RateSample& rate = rates_[c];
        const uint64_t frames = loop_->counters(c).frames.load();
        if (rate.at == Clock::time_point()) {
            rate = RateSample{now, frames, 0};
            continue;
        }
        if (now - rate.at < kRateInterval)
            continue;
        const double seconds = std::chrono::duration<double>(now - rate.at).count();
        rate = RateSample{now, frames, static_cast<double>(frames - rate.frames) / seconds};
    }
}

void Session::bump()
{
    const std::lock_guard<std::mutex> lock(changeMutex_);
    ++version_;
    changed_.notify_all();
}

// ---- the truth ------------------------------------------------------------------

bool Session::freshInImage(const DriverRange& range, std::chrono::milliseconds maxAge) const
{
    return scanState_.fresh(range.station, range.area, range.address, range.count, maxAge,
                            [this](int station) { return health_.station(station); });
}

std::vector<uint8_t> Session::imageBytes(const DriverRange& range) const
{
    QByteArray data;
    api_.getRegisterData(QString(), range.area, QString::fromStdString(range.addressText), range.station, data,
                         range.count);
    return std::vector<uint8_t>(data.begin(), data.end());
}

std::vector<ElementStatus> Session::elements() const
{
    return scanState_.snapshot([this](int station) { return health_.station(station); });
}

ElementStatus Session::element(size_t index) const
{
    return scanState_.element(index, [this](int station) { return health_.station(station); });
}

LinkHealth Session::health(size_t controller) const { return health_.controller(controller); }

LinkHealth Session::stationHealth(int station) const { return health_.station(station); }

bool Session::anyDown(LinkHealth* health) const
{
    for (size_t c = 0; c < links_.size(); ++c) {
        const LinkHealth current = health_.controller(c);
        if (current.state != LinkState::Down)
            continue;
        if (health)
            *health = current;
        return true;
    }
    return false;
}

LinkFigures Session::figures() const
{
    LinkFigures figures;
    for (size_t c = 0; c < links_.size(); ++c) {
        const ControllerCounters& counters = loop_->counters(c);
        ControllerFigures f;
        f.name = links_.address(c).name;
        f.address = common::endpointText(links_.address(c).host, links_.address(c).port);
        f.health = health_.controller(c);
        f.frames = counters.frames.load();
        f.replies = counters.replies.load();
        f.refused = counters.refused.load();
        f.failures = counters.failures.load();
        f.connections = counters.connections.load();
        f.losses = health_.losses(c);
        f.pass = passes_.figures(c);
        {
            const std::lock_guard<std::mutex> lock(changeMutex_);
            f.framesPerSecond = rates_[c].perSecond;
        }
        figures.controllers.push_back(f);
    }
    return figures;
}

uint64_t Session::version() const
{
    const std::lock_guard<std::mutex> lock(changeMutex_);
    return version_;
}

uint64_t Session::waitForChange(uint64_t seen, std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> lock(changeMutex_);
    changed_.wait_for(lock, timeout, [&] { return version_ != seen || stopping_.load(); });
    return version_;
}

}  // namespace logohost
