#include "host/model/operator_actions.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "host/notation/value_codec.h"

namespace logohost {
namespace {

constexpr size_t kMaxReadVariables = 64;
const char* const kReadOnly = "this panel is read-only (started with --read-only)";

std::string numberText(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

// A value between two steps of the item is refused rather than rounded:
// the operator would not see written what was typed.
ActionResult checkWordValue(const PanelItem& item, double value, double* raw)
{
    const std::string name = item.varText;
    if (value < item.min || value > item.max)
        return {Outcome::BadRequest, "value " + numberText(value) + " for " + name + " is out of range: expected " +
                                         numberText(item.min) + " to " + numberText(item.max)};
    *raw = rawValue(item, value);
    if (std::fabs(shownValue(item, *raw) - value) > 1e-9 * std::max(1.0, std::fabs(value)))
        return {Outcome::BadRequest,
                "value " + numberText(value) + " for " + name + " falls between its steps of " + numberText(std::fabs(item.scale))};
    return {Outcome::Done, ""};
}

ActionResult checkValue(const PanelVariable& var, double value, double* raw)
{
    const PanelItem& item = *var.writable;
    if (!std::isfinite(value))
        return {Outcome::BadRequest, "the value for " + item.varText + " must be a number"};
    if (!isBitKind(var.var.kind))
        return checkWordValue(item, value, raw);
    if (value != 0 && value != 1)
        return {Outcome::BadRequest, "value " + numberText(value) + " for " + item.varText +
                                         " is out of range: a bit takes 0 or 1 (or true/false)"};
    *raw = value;
    return {Outcome::Done, ""};
}

std::string joined(const std::vector<std::string>& texts)
{
    std::string all;
    for (const std::string& text : texts)
        all += (all.empty() ? "" : " ") + text;
    return all;
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
    case Outcome::NothingToDo: return "nothing to do";
    case Outcome::ControllerFailed: return "failed";
    case Outcome::TimedOut: return "timed out";
    }
    return "?";
}

OperatorActions::OperatorActions(PlantModel& model, ActionSettings settings, Recorder recorder,
                                 Acknowledger acknowledger)
    : model_(model), settings_(settings), recorder_(std::move(recorder)), acknowledger_(std::move(acknowledger))
{
}

ActionResult OperatorActions::record(const char* kind, const std::string& who, const std::string& subject,
                                     const std::string& value, ActionResult result) const
{
    if (recorder_)
        recorder_(ActionRecord{kind, who, subject, value, result});
    return result;
}

ActionResult OperatorActions::checkWrite(const std::string& varText, double value, int* var, double* raw) const
{
    if (settings_.readOnly)
        return {Outcome::NotAllowed, kReadOnly};
    bool badText = false;
    std::string error;
    *var = model_.findVar(varText, &badText, &error);
    if (*var < 0)
        return {badText ? Outcome::BadRequest : Outcome::UnknownVariable, error};
    const PanelVariable& entry = model_.variable(static_cast<size_t>(*var));
    if (!isWritable(entry.var.kind))
        return {Outcome::NotAllowed, varText + " is an input and cannot be written"};
    if (!entry.writable)
        return {Outcome::NotAllowed, varText + " is not writable on any screen of this panel"};
    const ActionResult checked = checkValue(entry, value, raw);
    if (checked.outcome != Outcome::Done)
        return checked;
    if (!model_.session().stationOn(entry.station))
        return {Outcome::StationOff, "station " + std::to_string(entry.station) + " is switched off"};
    return {Outcome::Done, ""};
}

ActionResult OperatorActions::write(const std::string& varText, double value, const std::string& who)
{
    int index = -1;
    double raw = 0;
    const ActionResult checked = checkWrite(varText, value, &index, &raw);
    if (checked.outcome != Outcome::Done)
        return record("write", who, varText, numberText(value), checked);
    const PanelVariable& var = model_.variable(static_cast<size_t>(index));
    WriteRequest request;
    request.var = var.var;
    request.values.push_back(static_cast<uint32_t>(static_cast<int64_t>(raw)));
    const DriverWrite driverWrite{rangeOf(var.var, var.station), packValues(var.var.kind, request.values), var.var.text};
    const int id = model_.session().queueWrite(driverWrite);
    const std::string shown = shownText(*var.writable, raw);
    return record("write", who, varText, shown, waitForWrite(id, varText + " = " + shown, varText));
}

ActionResult OperatorActions::waitForWrite(int id, const std::string& what, const std::string& name) const
{
    Session& session = model_.session();
    const auto deadline = session.clock().steady() + settings_.deadline;
    session.waitUntil(deadline, [&] { return session.writeOutcome(id).settled(); });
    const PendingWrite outcome = session.writeOutcome(id);
    session.forgetWrite(id);
    const std::string text = writeOutcomeText(outcome, what, name);
    switch (outcome.end) {
    case WriteEnd::Written: return {Outcome::Done, text};
    case WriteEnd::Replaced: return {Outcome::Replaced, text};
    case WriteEnd::StationOff: return {Outcome::StationOff, text};
    case WriteEnd::Pending:
        return {Outcome::TimedOut, what + " not confirmed: no result from the driver within " + secondsText(settings_.deadline)};
    default: return {Outcome::ControllerFailed, text};
    }
}

ReadResult OperatorActions::readNow(const std::vector<std::string>& varTexts, const std::string& who)
{
    ReadResult read;
    const std::string subject = joined(varTexts);
    if (varTexts.empty() || varTexts.size() > kMaxReadVariables) {
        read.result = record("read", who, subject, "",
                             {Outcome::BadRequest, "\"vars\" must list 1 to " + std::to_string(kMaxReadVariables) + " variables"});
        return read;
    }
    std::vector<int> indexes;
    for (const std::string& text : varTexts) {
        bool badText = false;
        std::string error;
        const int index = model_.findVar(text, &badText, &error);
        const int station = index < 0 ? 0 : model_.variable(static_cast<size_t>(index)).station;
        if (index < 0)
            read.result = {badText ? Outcome::BadRequest : Outcome::UnknownVariable, error};
        else if (!model_.session().stationOn(station))
            read.result = {Outcome::StationOff, "station " + std::to_string(station) + " is switched off"};
        if (read.result.outcome != Outcome::Done) {
            record("read", who, subject, "", read.result);
            return read;
        }
        indexes.push_back(index);
    }
    Session& session = model_.session();
    std::vector<int> ids;
    for (const int index : indexes) {
        const PanelVariable& var = model_.variable(static_cast<size_t>(index));
        ids.push_back(session.queueRead(rangeOf(var.var, var.station)));
    }
    const bool settled = session.waitUntil(session.clock().steady() + settings_.deadline,
                                           [&] { return session.readsSettled(ids); });
    read = collectReads(indexes, ids, varTexts, settled);
    session.forgetReads(ids);
    record("read", who, subject, "", read.result);
    return read;
}

ReadResult OperatorActions::collectReads(const std::vector<int>& indexes, const std::vector<int>& ids,
                                         const std::vector<std::string>& varTexts, bool settled) const
{
    ReadResult read;
    std::string firstError;
    for (size_t i = 0; i < ids.size(); ++i) {
        const OnceRead outcome = model_.session().readOutcome(ids[i]);
        read.items.push_back(model_.itemState(static_cast<size_t>(indexes[i]), varTexts[i]));
        std::string error;
        if (!outcome.done)
            error = "no result from the driver within " + secondsText(settings_.deadline);
        else if (!outcome.ok)
            error = outcome.reason.empty() ? "given up by the driver" : outcome.reason;
        if (!error.empty() && firstError.empty())
            firstError = varTexts[i] + ": " + error;
        read.errors.push_back(error);
    }
    if (!settled)
        read.result = {Outcome::TimedOut, firstError};
    else if (!firstError.empty())
        read.result = {Outcome::ControllerFailed, firstError};
    else
        read.result = {Outcome::Done, "read " + std::to_string(ids.size()) + " variable" + (ids.size() == 1 ? "" : "s")};
    return read;
}

ActionResult OperatorActions::switchStation(int station, bool on, const std::string& who)
{
    const std::string subject = "station " + std::to_string(station);
    const std::string value = on ? "on" : "off";
    if (settings_.readOnly)
        return record("station", who, subject, value, {Outcome::NotAllowed, kReadOnly});
    const std::vector<int>& stations = model_.stations();
    if (std::find(stations.begin(), stations.end(), station) == stations.end())
        return record("station", who, subject, value,
                      {Outcome::UnknownVariable, subject + " is on no screen of this panel"});
    model_.session().switchStation(station, on, on ? "switched on by the operator" : "switched off by the operator");
    return record("station", who, subject, value, {Outcome::Done, subject + (on ? " switched on" : " switched off")});
}

}  // namespace logohost

namespace logohost {

ActionResult OperatorActions::acknowledge(const std::string& alarmId, const std::string& who)
{
    if (settings_.readOnly)
        return record("ack", who, alarmId, "", {Outcome::NotAllowed, kReadOnly});
    switch (acknowledger_ ? acknowledger_(alarmId, who) : AckOutcome::Unknown) {
    case AckOutcome::Done: return record("ack", who, alarmId, "", {Outcome::Done, "alarm " + alarmId + " acknowledged"});
    case AckOutcome::NothingToAcknowledge:
        return record("ack", who, alarmId, "",
                      {Outcome::NothingToDo, "alarm " + alarmId + " has nothing to acknowledge: acknowledged before, or never raised"});
    case AckOutcome::Unknown: break;
    }
    return record("ack", who, alarmId, "", {Outcome::UnknownVariable, "there is no alarm \"" + alarmId + "\""});
}

}  // namespace logohost
