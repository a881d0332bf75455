#include "host/commands/plant_runtime.h"

#include "host/commands/interrupt.h"

namespace logohost {
namespace {

constexpr size_t kRestoredAlarmEvents = 100000;
constexpr std::chrono::milliseconds kWakeUp{200};  // leases and alarms look at the clock this often
constexpr size_t kHistoryMemory = 200000;  // samples held while the disk cannot be written

std::string dataDirectoryOf(const Options& options)
{
    return options.dataDirectory.empty() ? defaultHistoryDirectory() : options.dataDirectory;
}

std::vector<std::string> controllerNames(const LinkSet& links)
{
    std::vector<std::string> names;
    for (size_t c = 0; c < links.size(); ++c)
        names.push_back(links.address(c).name);
    return names;
}

}  // namespace

bool plantScreens(const Options& options, ScreenSet* out, std::string* error)
{
    const StationContext stations{options.multiStation, options.station};
    if (options.screensPath.empty()) {
        *out = builtInScreens(stations);
        return true;
    }
    return loadScreensFile(options.screensPath, stations, out, error);
}

std::unique_ptr<PlantRuntime> openPlant(CommandContext& context)
{
    ScreenSet screens;
    std::string error;
    if (!plantScreens(context.options, &screens, &error)) {
        complain(error);
        return nullptr;
    }
    return std::unique_ptr<PlantRuntime>(new PlantRuntime(context, std::move(screens)));
}

PlantRuntime::PlantRuntime(CommandContext& context, ScreenSet screens)
    : dataDirectory_(dataDirectoryOf(context.options)),
      history_(HistorySettings{dataDirectory_, std::chrono::hours(context.options.keepHours), {}, kHistoryMemory}),
      model_(std::move(screens), PlantSettings{context.options.multiStation, context.options.station}),
      session_(context.api, context.info, context.links, context.trace,
               sessionSettings(context.options, context.info, true), model_.variables()),
      alarms_(model_, [this](const AlarmEvent& event) { history_.addAlarmEvent(event); }),
      linkJournal_(history_, controllerNames(context.links)),
      actions_(
          model_, ActionSettings{context.options.readOnly, session_.requestDeadline(1)},
          [this](const ActionRecord& action) { record(action); },
          [this](const std::string& id, const std::string& who) { return alarms_.acknowledge(id, who); })
{
    // The history works in memory when its folder cannot be used: the
    // plant runs on, and the status says why.
    std::string error;
    if (!history_.open(&error))
        complain("the history is kept in memory only: " + error);
    model_.attach(session_, &history_);
    alarms_.restore(history_.alarmEvents(0, kRestoredAlarmEvents, true));
    session_.addResultObserver([this](const RequestResult&) { alarms_.evaluate(); });
    session_.addHealthObserver([this](size_t controller, const LinkHealth& health) {
        linkJournal_.onHealth(controller, health, session_.clock().wallMs());
    });
}

PlantRuntime::~PlantRuntime() { stop(); }

void PlantRuntime::start() { session_.start(); }

void PlantRuntime::tick()
{
    model_.refreshLeases();
    alarms_.evaluate();
}

void PlantRuntime::run(double durationSeconds)
{
    const bool forever = durationSeconds <= 0;
    const auto end = std::chrono::steady_clock::now() + milliseconds(durationSeconds);
    while (sleepUnlessInterrupted(kWakeUp) && (forever || std::chrono::steady_clock::now() < end))
        tick();
}

void PlantRuntime::stop() { session_.stop(); }

void PlantRuntime::record(const ActionRecord& action)
{
    history_.addJournal(journalEntry(action, session_.clock().wallMs()));
}

}  // namespace logohost
