// What an operator may change, from the panel or any other front: a write,
// a read now, a station switch. Each is checked against the screens (only
// what a screen offers, within its range and step), refused in read-only
// mode, handed to the session, and waited for until the driver's outcome
// is known; every one, refusals included, is told to the journal.
#ifndef LOGOHOST_OPERATOR_ACTIONS_H
#define LOGOHOST_OPERATOR_ACTIONS_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "host/model/plant_model.h"

namespace logohost {

enum class Outcome {
    Done,
    BadRequest,
    UnknownVariable,
    NotAllowed,
    StationOff,
    Replaced,
    NothingToDo,
    ControllerFailed,
    TimedOut,
};

// "done", "bad request", ...: the outcome as a word, for messages.
const char* outcomeName(Outcome outcome);

struct ActionResult {
    Outcome outcome = Outcome::Done;
    std::string message;
};

struct ReadResult {
    ActionResult result;
    std::vector<ItemState> items;
    std::vector<std::string> errors;  // per variable, empty where it was read
};

// One action as the journal keeps it.
struct ActionRecord {
    std::string kind;     // "write", "read", "station"
    std::string who;      // the client: its address, "mqtt", ...
    std::string subject;  // the variable(s) or the station
    std::string value;    // as given
    ActionResult result;
};

// What acknowledging an alarm came to.
enum class AckOutcome { Done, Unknown, NothingToAcknowledge };

struct ActionSettings {
    bool readOnly = false;
    std::chrono::milliseconds deadline{14000};  // the longest an action waits for the driver
};

class OperatorActions {
public:
    using Recorder = std::function<void(const ActionRecord&)>;
    using Acknowledger = std::function<AckOutcome(const std::string& id, const std::string& who)>;

    OperatorActions(PlantModel& model, ActionSettings settings, Recorder recorder = Recorder(),
                    Acknowledger acknowledger = Acknowledger());

    bool readOnly() const { return settings_.readOnly; }
    // Checks a value against the item that offers the variable for writing,
    // without writing it: the raw value it would write, or the refusal.
    ActionResult checkWrite(const std::string& varText, double value, int* var, double* raw) const;
    ActionResult write(const std::string& varText, double value, const std::string& who);
    ReadResult readNow(const std::vector<std::string>& varTexts, const std::string& who);
    ActionResult switchStation(int station, bool on, const std::string& who);
    // Acknowledging an alarm is a change like a write: refused in read-only
    // mode, and on record with who did it.
    ActionResult acknowledge(const std::string& alarmId, const std::string& who);

private:
    PlantModel& model_;
    const ActionSettings settings_;
    const Recorder recorder_;
    const Acknowledger acknowledger_;

    ActionResult record(const char* kind, const std::string& who, const std::string& subject,
                        const std::string& value, ActionResult result) const;
    ActionResult waitForWrite(int id, const std::string& what, const std::string& name) const;
    ReadResult collectReads(const std::vector<int>& indexes, const std::vector<int>& ids,
                            const std::vector<std::string>& varTexts, bool settled) const;
};

}  // namespace logohost

#endif  // LOGOHOST_OPERATOR_ACTIONS_H
