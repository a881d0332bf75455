#include "host/binding/comm_loop.h"

#include "common/thread_name.h"
#include "host/link/modbus_exceptions.h"
#include "host/notation/return_codes.h"
#include "host/notation/variable_notation.h"

namespace logohost {
namespace {

// How long to wait when the driver has nothing to send.
constexpr std::chrono::milliseconds kIdlePoll{5};
// A controller that answers every frame at once with an exception (or with
// something the host refuses) would otherwise be asked again thousands of
// times a second: before the driver repeats such a frame the loop pauses,
// twice as long at each repeat of the same request, up to the longest.
constexpr std::chrono::milliseconds kFirstFailurePause{20};
constexpr std::chrono::milliseconds kLongestFailurePause{1000};
// A frame for a controller whose connection is backing off fails without
// being sent; the pause keeps a loop whose every controller is down from
// spinning before their stations are switched off.
constexpr std::chrono::milliseconds kUnsentPause{2};
constexpr std::chrono::milliseconds kStopPoll{20};

// The driver's callbacks carry no pointer of ours. They run inside DataCom
// on the communication thread, which reads this right after DataCom returns.
thread_local bool t_failCallbackFired = false;

}  // namespace

CommLoop::CommLoop(const DriverApi& api, ComInfo& info, LinkSet& links, Trace& trace, LoopHooks hooks)
    : api_(api), info_(info), links_(links), trace_(trace), hooks_(std::move(hooks))
{
    for (size_t c = 0; c < links_.size(); ++c)
        counters_.emplace_back(new ControllerCounters);
    // The driver hands hostContext back to the read-done callback: it is how
    // the callback finds this loop.
    info_.hostContext = reinterpret_cast<intptr_t>(this);
    api_.setComInfo(&info_);
    api_.registerCallbacks(&CommLoop::onReadDone, &CommLoop::onFail);
}

CommLoop::~CommLoop() { stop(); }

void CommLoop::start()
{
    thread_ = std::thread(&CommLoop::run, this);
}

void CommLoop::stop()
{
    stop_.store(true);
    if (thread_.joinable())
        thread_.join();
}

void CommLoop::run()
{
    common::nameThisThread("logo-link");
    while (!stop_.load()) {
        if (hooks_.beforeFrame)
            hooks_.beforeFrame();
        if (stop_.load())
            break;
        const Protocol* frame = api_.nextFrame();
        if (!frame) {
            std::this_thread::sleep_for(kIdlePoll);
            continue;
        }
        exchangeOne(*frame);
    }
}

void CommLoop::exchangeOne(const Protocol& frame)
{
    const bool modbus = info_.remoteMode == 0;
    const size_t controller = links_.controllerOf(frame.var.station);
    TcpLink& link = links_.link(controller);
    ControllerCounters& counters = *counters_[controller];
    counters.frames.fetch_add(1);
    Exchange exchange =
        link.exchange(frame.frame.constData(), frame.frameLength, ReplyShape{modbus, frame.replyLength}, stop_);
    counters.connections.store(static_cast<uint64_t>(link.connections()));
    if (exchange.outcome == LinkOutcome::Stopped)
        return;
    const int exception = noteExchange(controller, frame.var.station, &exchange);

    // While a frame is being repeated the driver's result record still
    // names the request completed before it: name the frame in flight instead.
    const RW_VAR inFlight = frame.var;
    t_failCallbackFired = false;
    const RW_VAR* reported = api_.takeReply(&exchange.reply, exchange.reply.size());
    bool repeating = false;
    if (reported) {
        const RequestResult result = resultOf(*reported, inFlight, controller);
        repeating = result.returnCode == RC_RETRYING;
        if (result.returnCode != RC_RETRYING)
            inFlight_ = RequestFailure();  // the request is over; its repeats kept what they saw until now
        if (isFinalFailure(result.returnCode))
            counters.failures.fetch_add(1);
        traceVerdict(result);
        if (hooks_.onResult)
            hooks_.onResult(result);
    }
    pauseAfter(exchange, exception, repeating);
}

// A refused reply reaches the driver as no reply at all: only an empty
// reply is sure to be refused whatever length the frame expects, and its
// retry and give-up rules then apply as to any failed exchange.
int CommLoop::noteExchange(size_t controller, int station, Exchange* exchange)
{
    ControllerCounters& counters = *counters_[controller];
    inFlight_.refusal = exchange->problem;
    inFlight_.cause = exchange->cause;
    if (exchange->outcome == LinkOutcome::Refused) {
        counters.refused.fetch_add(1);
        exchange->reply.clear();
    }
    int exception = 0;
    if (exchange->outcome == LinkOutcome::Reply) {
        counters.replies.fetch_add(1);
        if (info_.remoteMode == 0)
            exception = modbusExceptionCode(reinterpret_cast<const uint8_t*>(exchange->reply.constData()),
                                            static_cast<size_t>(exchange->reply.size()));
        if (exception)
            inFlight_.exceptionCode = exception;
    }
    if (hooks_.onExchange)
        hooks_.onExchange(controller, station, *exchange);
    return exception;
}

void CommLoop::pauseAfter(const Exchange& exchange, int exception, bool repeating)
{
    std::chrono::milliseconds pause{0};
    const bool fastFailure = exception || exchange.outcome == LinkOutcome::Refused;
    if (fastFailure && repeating) {
        failureBackoff_ = failureBackoff_.count() ? std::min(failureBackoff_ * 2, kLongestFailurePause)
                                                  : kFirstFailurePause;
        pause = failureBackoff_;
    } else if (!exchange.sent) {
        pause = kUnsentPause;
    }
    if (!repeating)
        failureBackoff_ = std::chrono::milliseconds(0);
    const auto end = std::chrono::steady_clock::now() + pause;
    for (auto now = std::chrono::steady_clock::now(); !stop_.load() && now < end; now = std::chrono::steady_clock::now())
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(kStopPoll, end - now));
}

RequestResult CommLoop::resultOf(const RW_VAR& reported, const RW_VAR& inFlight, size_t controller) const
{
    const RW_VAR* var = reported.returnCode == RC_RETRYING ? &inFlight : &reported;
    RequestResult result;
    result.returnCode = reported.returnCode;
    result.sourceType = var->sourceType;
    result.sourceId = var->sourceId;
    result.rwType = var->rwType;
    result.area = var->area;
    result.address = var->address;
    result.station = var->station;
    result.count = var->count;
    result.controller = controller;
    // The driver stores scanDone atomically; a rebuild on another thread may write it.
    result.scanDone = __atomic_load_n(&info_.scanDone, __ATOMIC_RELAXED) != 0;
    result.failure = inFlight_;
    result.failure.returnCode = reported.returnCode;
    result.failCallback = t_failCallbackFired;
    return result;
}

// The driver's verdict on every reply it did not accept, in the trace.
void CommLoop::traceVerdict(const RequestResult& result)
{
    if (!trace_.enabled() || isSuccessCode(result.returnCode))
        return;
    const std::string request = std::string(result.rwType == RW_WRITE ? "write " : "read ") +
                                rangeName(result.area, result.address, result.count, result.station, info_.multiStation != 0);
    const std::string verdict = result.returnCode == RC_RETRYING ? failureWords(result.failure) + ", to be repeated"
                                                                 : failureText(result.failure) + ", given up";
    trace_.note(request + ": " + verdict);
}

void CommLoop::onFail(QList<RW_VAR>*, int, int) { t_failCallbackFired = true; }

void CommLoop::onReadDone(intptr_t context, int sourceType, int sourceId, int status)
{
    const CommLoop* loop = reinterpret_cast<const CommLoop*>(context);
    if (loop && loop->hooks_.onReadDone)
        loop->hooks_.onReadDone(sourceType, sourceId, status);
}

}  // namespace logohost
