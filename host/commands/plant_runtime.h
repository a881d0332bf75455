// What every front of a plant runs on, the panel's HTTP and the bridge's
// MQTT alike: the session and the plant model over it, the history, the
// alarms, the journal and the operator's actions, wired together.
#ifndef LOGOHOST_PLANT_RUNTIME_H
#define LOGOHOST_PLANT_RUNTIME_H

#include <memory>
#include <string>

#include "host/alarms/alarm_board.h"
#include "host/commands/commands.h"
#include "host/history/history_store.h"
#include "host/model/journal.h"
#include "host/model/operator_actions.h"
#include "host/model/plant_model.h"

namespace logohost {

// The screens the options name, or the built-in ones.
bool plantScreens(const Options& options, ScreenSet* out, std::string* error);

class PlantRuntime;
// The runtime over the command's screens; null after saying what was wrong
// with them.
std::unique_ptr<PlantRuntime> openPlant(CommandContext& context);

class PlantRuntime {
public:
    // Opens the history (in memory only, said on standard error, when its
    // folder cannot be used) and hands the driver its first cyclic list.
    PlantRuntime(CommandContext& context, ScreenSet screens);
    ~PlantRuntime();
    PlantRuntime(const PlantRuntime&) = delete;
    PlantRuntime& operator=(const PlantRuntime&) = delete;

    void start();
    // Now and then from the command's own thread: leases that ran out,
    // alarms whose values went stale.
    void tick();
    // Ticks until Ctrl-C, or for the duration when it is positive.
    void run(double durationSeconds);
    void stop();
    // Into the journal: what someone did, through whichever front.
    void record(const ActionRecord& action);

    const std::string& dataDirectory() const { return dataDirectory_; }
    HistoryStore& history() { return history_; }
    PlantModel& model() { return model_; }
    Session& session() { return session_; }
    AlarmBoard& alarms() { return alarms_; }
    OperatorActions& actions() { return actions_; }

private:
    const std::string dataDirectory_;
    HistoryStore history_;
    PlantModel model_;
    Session session_;
    AlarmBoard alarms_;
    LinkJournal linkJournal_;
    OperatorActions actions_;
};

}  // namespace logohost

#endif  // LOGOHOST_PLANT_RUNTIME_H
