#include "host/proxy/request_handler.h"

#include <algorithm>
#include <climits>

#include "host/link/modbus_exceptions.h"
#include "host/notation/time_text.h"

namespace logohost {
namespace {

using namespace wire;

// After the session tells a read settled, the observer that brings its
// last piece or its exception runs a moment later on the communication
// thread; a read that ended without a result (its station switched off,
// given up on) waits this long for nothing before it answers 0B.
constexpr std::chrono::milliseconds kResultGrace{250};

const char* const kReadOnly = "the Modbus proxy is read-only (started with --read-only)";

// As the client gave them: bits 0/1, registers unsigned.
std::string valuesText(const ClientRequest& request)
{
    const bool bits = writesCoils(request.function);
    const size_t step = bits ? 1 : sizeof(uint16_t);
    std::string text;
    for (size_t at = 0; at + step <= request.bytes.size(); at += step) {
        const int value = bits ? request.bytes[at] : request.bytes[at] | request.bytes[at + 1] << CHAR_BIT;
        text += (text.empty() ? "" : ",") + std::to_string(value);
    }
    return text;
}

// A write the map cannot place has no name in the controller's notation.
std::string rawSubject(const Frame& frame)
{
    std::string text = "function " + std::to_string(frame[kFunctionOffset]);
    if (frame.size() >= static_cast<size_t>(kQuantityOffset))
        text += " address " + std::to_string(readBe16(&frame[kAddressOffset]));
    return text;
}

uint8_t exceptionOf(const PendingWrite& write)
{
    switch (write.end) {
    case WriteEnd::Written:
    // A newer value for the same target went out in its place: as if this
    // one had been written an instant before it, which Modbus allows
    // between two clients.
    case WriteEnd::Replaced: return 0;
    case WriteEnd::Failed:
        return write.failure.exceptionCode ? static_cast<uint8_t>(write.failure.exceptionCode) : kExGatewayTargetFailed;
    // The driver did not take a range the map accepted: the host's fault,
    // not the controller's.
    case WriteEnd::NotQueued: return kExServerDeviceFailure;
    default: return kExGatewayTargetFailed;  // not answered, switched off, given up, or timed out at the host
    }
}

Outcome outcomeOf(WriteEnd end)
{
    switch (end) {
    case WriteEnd::Written: return Outcome::Done;
    case WriteEnd::Replaced: return Outcome::Replaced;
    case WriteEnd::StationOff: return Outcome::StationOff;
    case WriteEnd::Pending: return Outcome::TimedOut;
    default: return Outcome::ControllerFailed;
    }
}

}  // namespace

RequestHandler::RequestHandler(ProxyBackend& backend, ProxyPolicy policy, Recorder recorder)
    : backend_(backend), policy_(std::move(policy)), recorder_(std::move(recorder))
{
}

Frame RequestHandler::answer(const Frame& frame, const std::string& who)
{
    const ClientRequest request = decodeRequest(frame);
    const bool writes = isWriteFunction(request.function);
    if (request.exception) {
        if (writes)
            record(who, rawSubject(frame), valuesText(request),
                   {Outcome::BadRequest, "refused: " + describeException(request.exception)});
        return exceptionReply(frame, request.exception);
    }
    int station = 0;
    const uint8_t unreachable = route(frame[kUnitOffset], &station);
    if (unreachable) {
        if (writes)
            record(who, rawSubject(frame), valuesText(request),
                   {Outcome::BadRequest, "no controller for unit " + std::to_string(frame[kUnitOffset])});
        return exceptionReply(frame, unreachable);
    }
    return writes ? write(frame, request, station, who) : read(frame, request, station);
}

// With several controllers a unit id none of them serves would go to the
// first one (the driver routes by station): 0A, the gateway has no path.
uint8_t RequestHandler::route(uint8_t unit, int* station) const
{
    *station = policy_.multiStation ? unit : policy_.defaultStation;
    const std::vector<int>& known = policy_.stations;
    const bool served = known.empty() || std::find(known.begin(), known.end(), *station) != known.end();
    return policy_.multiStation && !served ? kExGatewayPathUnavailable : 0;
}

// The driver sends a bit range one bit a frame, and words in blocks.
int RequestHandler::framesOf(const ClientRequest& request) const
{
    if (logomap::isBitArea(request.where.area))
        return request.count;
    return (request.count + policy_.maxBlock - 1) / policy_.maxBlock;
}

bool RequestHandler::waitFor(int frames, const std::function<bool()>& done) const
{
    const auto deadline = backend_.now() + backend_.requestDeadline(frames);
    return backend_.waitUntil(deadline, [&] {
        // A controller that cannot be reached at all answers 0B now rather
        // than after every retry: the client has its own time-out.
        backend_.abandonUnreachable();
        return stopping_.load() || done();
    });
}

Frame RequestHandler::read(const Frame& frame, const ClientRequest& request, int station)
{
    if (!backend_.stationOn(station))
        return exceptionReply(frame, kExGatewayTargetFailed);
    const DriverRange range = driverRange(request.where, request.count, station);
    if (policy_.maxAge.count() > 0 && backend_.freshInImage(range, policy_.maxAge))
        return readReply(frame, request, backend_.imageBytes(range));
    const int id = watch_.queue(range, [this](const DriverRange& r) { return backend_.queueRead(r); });
    const uint8_t code = awaitRead(id, framesOf(request));
    const Frame reply = code ? exceptionReply(frame, code) : readReply(frame, request, backend_.imageBytes(range));
    watch_.forget(id);
    backend_.forgetRead(id);
    return reply;
}

uint8_t RequestHandler::awaitRead(int id, int frames)
{
    const auto watched = [&] { return watch_.state(id) != ReadWatch::State::Waiting; };
    waitFor(frames, [&] { return watched() || backend_.readSettled(id); });
    if (!watched() && backend_.readSettled(id))
        backend_.waitUntil(backend_.now() + kResultGrace, [&] { return stopping_.load() || watched(); });
    RequestFailure failure;
    switch (watch_.state(id, &failure)) {
    case ReadWatch::State::Complete: return 0;
    case ReadWatch::State::Failed:
        return failure.exceptionCode ? static_cast<uint8_t>(failure.exceptionCode) : kExGatewayTargetFailed;
    case ReadWatch::State::Waiting: break;
    }
    // Done by the driver's word yet some piece never came back: its full
    // queue dropped it, and the image does not hold what was asked for.
    return backend_.readOutcome(id).ok ? kExServerDeviceFailure : kExGatewayTargetFailed;
}

// Modbus has no write function for discrete inputs or input registers, so
// I and AI cannot be reached here; read-only refuses every write with 01,
// which the protocol gives to a server in no state to take the function.
Frame RequestHandler::write(const Frame& frame, const ClientRequest& request, int station, const std::string& who)
{
    const DriverRange range = driverRange(request.where, request.count, station);
    const std::string subject = rangeName(range.area, range.address, range.count, station, policy_.multiStation);
    const std::string value = valuesText(request);
    if (policy_.readOnly) {
        record(who, subject, value, {Outcome::NotAllowed, kReadOnly});
        return exceptionReply(frame, kExIllegalFunction);
    }
    if (!backend_.stationOn(station)) {
        record(who, subject, value, {Outcome::StationOff, "station " + std::to_string(station) + " is switched off"});
        return exceptionReply(frame, kExGatewayTargetFailed);
    }
    const int id = backend_.queueWrite(DriverWrite{range, request.bytes, subject});
    ActionResult result;
    const uint8_t code = awaitWrite(id, framesOf(request), &result, subject + " = " + value, subject);
    record(who, subject, value, result);
    return code ? exceptionReply(frame, code) : writeReply(frame);
}

uint8_t RequestHandler::awaitWrite(int id, int frames, ActionResult* result, const std::string& what,
                                   const std::string& name)
{
    waitFor(frames, [&] { return backend_.writeOutcome(id).settled(); });
    const PendingWrite outcome = backend_.writeOutcome(id);
    backend_.forgetWrite(id);
    *result = {outcomeOf(outcome.end), writeOutcomeText(outcome, what, name)};
    if (outcome.end == WriteEnd::Pending)
        result->message = what + " not confirmed: no result from the driver within " +
                          secondsText(backend_.requestDeadline(frames));
    return exceptionOf(outcome);
}

void RequestHandler::record(const std::string& who, const std::string& subject, const std::string& value,
                            const ActionResult& result) const
{
    if (recorder_)
        recorder_(ActionRecord{"write", who, subject, value, result});
}

}  // namespace logohost
