#include "host/panel/event_stream.h"

#include <thread>

namespace logohost {
namespace {

constexpr std::chrono::milliseconds kHeartbeat{1000};   // also how soon a closed browser is noticed
constexpr std::chrono::milliseconds kMinEventGap{100};  // events are merged below this spacing
const char* const kRetry = "retry: 2000\n\n";           // how soon a browser reconnects a dropped stream

}  // namespace

EventStream::EventStream(const PlantModel& model, size_t screen, Status status)
    : model_(model), screen_(screen), status_(std::move(status))
{
    for (const PanelItem& item : model.screens().screens[screen].items)
        trends_.push_back(TrendCursor{item.trend ? model.findTrend(item.varText) : -1, 0});
}

bool EventStream::step(const Write& write)
{
    std::string out;
    if (!started_) {
        out = kRetry;
        started_ = true;
    } else {
        std::this_thread::sleep_until(lastEvent_ + kMinEventGap);
        version_ = model_.session().waitForChange(version_, kHeartbeat);
        gatherPass();
    }
    lastEvent_ = std::chrono::steady_clock::now();
    const Json changes = collectChanges();
    if (!changes.empty())
        out += "event: items\ndata: " + changes.dump() + "\n\n";
    if (lastEvent_ - lastStatus_ >= kHeartbeat) {
        lastStatus_ = lastEvent_;
        out += "event: status\ndata: " + status_().dump() + "\n\n";
    }
    return out.empty() || write(out);
}

// The first result of a pass wakes the stream, and the rest of the pass
// follows within milliseconds: sent at once, the first would go alone and
// the rest a whole event gap later. So the event waits for the pass to end
// (the scan rests until its next period), but never longer than the gap.
void EventStream::gatherPass()
{
    const Session& session = model_.session();
    const auto until = std::chrono::steady_clock::now() + kMinEventGap;
    for (auto now = std::chrono::steady_clock::now(); !session.scanResting() && now < until;
         now = std::chrono::steady_clock::now())
        version_ = session.waitForChange(version_, std::chrono::duration_cast<std::chrono::milliseconds>(until - now));
}

// Every item whose JSON changed since it was last sent: a value, a state,
// and the age, which moves on by itself once a second.
Json EventStream::collectChanges()
{
    const std::vector<ItemState> states = model_.screenState(screen_);
    const int64_t now = model_.session().clock().wallMs();
    sent_.resize(states.size());
    Json items = Json::array();
    Json trends = Json::object();
    for (size_t i = 0; i < states.size(); ++i) {
        Json item = itemJson(states[i], now);
        Json compared = item;
        compared.erase("age");  // the page counts the age on by itself
        if (compared != sent_[i])
            items.push_back(item);
        sent_[i] = std::move(compared);
        TrendCursor& cursor = trends_[i];
        if (cursor.trend < 0)
            continue;
        const std::vector<TrendPoint> points = model_.trendPoints(cursor.trend, cursor.since);
        if (points.empty())
            continue;
        cursor.since = points.back().at;
        trends[states[i].var] = trendJson(model_.trendItem(cursor.trend), points)["points"];
    }
    if (items.empty() && trends.empty())
        return Json::object();
    return {{"items", items}, {"trends", trends}};
}

}  // namespace logohost
