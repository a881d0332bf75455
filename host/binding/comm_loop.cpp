#include "host/binding/comm_loop.h"

#include <csignal>
#include <pthread.h>

#include "host/notation/reply_words.h"
#include "host/notation/variable_notation.h"

namespace logohost {
namespace {

// How long to wait when the driver has nothing to send.
constexpr std::chrono::milliseconds kIdlePoll{5};

// The driver's callbacks carry no pointer of ours. They run inside DataCom
// on the communication thread, which reads this right after DataCom returns.
thread_local bool t_failCallbackFired = false;

}  // namespace

CommLoop::CommLoop(const DriverApi& api, ComInfo& info, TcpLink& link, Trace& trace, ResultSink sink, Tick tick,
                   ReadDoneSink readDone)
    : api_(api),
      info_(info),
      link_(link),
      trace_(trace),
      sink_(std::move(sink)),
      tick_(std::move(tick)),
      readDone_(std::move(readDone))
{
    // The driver hands hostContext back to the read-done callback: it is how
    // the callback finds this loop.
    info_.hostContext = reinterpret_cast<intptr_t>(this);
    api_.setComInfo(&info_);
    api_.registerCallbacks(&CommLoop::onReadDone, &CommLoop::onFail);
}

CommLoop::~CommLoop()
{
    stop();
}

void CommLoop::start()
{
    // Ctrl-C belongs to the main thread: block it while the thread is
    // created, so that the new thread inherits a mask without it.
    sigset_t blocked;
    sigset_t previous;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGINT);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &previous);
    thread_ = std::thread(&CommLoop::run, this);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

void CommLoop::stop()
{
    stop_.store(true);
    if (thread_.joinable())
        thread_.join();
}

void CommLoop::run()
{
    while (!stop_.load()) {
        if (tick_)
            tick_();
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
    counters_.frames.fetch_add(1);
    Exchange exchange = link_.exchange(frame.frame.constData(), frame.frameLength,
                                       ReplyShape{modbus, frame.replyLength}, stop_);
    counters_.connections.store(static_cast<uint64_t>(link_.connections()));
    if (exchange.outcome == LinkOutcome::Stopped)
        return;
    // A refused reply reaches the driver as no reply at all: only an empty
    // reply is sure to be refused whatever length the frame expects, and its
    // retry and give-up rules then apply as to any failed exchange.
    lastRefusal_ = exchange.problem;
    if (exchange.outcome == LinkOutcome::Refused) {
        counters_.refused.fetch_add(1);
        exchange.reply.clear();
    }
    if (exchange.outcome == LinkOutcome::Reply) {
        counters_.replies.fetch_add(1);
        const int exception = modbus ? modbusExceptionCode(reinterpret_cast<const uint8_t*>(exchange.reply.constData()),
                                                           static_cast<size_t>(exchange.reply.size()))
                                     : 0;
        if (exception)
            lastException_ = exception;
    }

    // While a frame is being repeated the driver's result record still
    // names the request completed before it: name the frame in flight instead.
    const RW_VAR inFlight = frame.var;
    t_failCallbackFired = false;
    const RW_VAR* reported = api_.takeReply(&exchange.reply, exchange.reply.size());
    if (!reported)
        return;
    const RW_VAR* var = reported->returnCode == RC_RETRYING ? &inFlight : reported;
    RequestResult result;
    result.returnCode = reported->returnCode;
    result.sourceType = var->sourceType;
    result.sourceId = var->sourceId;
    result.rwType = var->rwType;
    result.area = var->area;
    result.address = var->address;
    result.station = var->station;
    result.count = var->count;
    // The driver stores scanDone atomically; a rebuild on another thread may write it.
    result.scanDone = __atomic_load_n(&info_.scanDone, __ATOMIC_RELAXED) != 0;
    result.exceptionCode = lastException_;
    result.refusal = lastRefusal_;
    result.failCallback = t_failCallbackFired;
    if (result.returnCode != RC_RETRYING)
        lastException_ = 0;  // the request is over; its repeats kept the exception until now
    if (isFinalFailure(result.returnCode))
        counters_.failures.fetch_add(1);
    traceVerdict(result);
    sink_(result);
}

// The driver's verdict on every reply it did not accept, in the trace.
void CommLoop::traceVerdict(const RequestResult& result)
{
    if (!trace_.enabled() || isSuccessCode(result.returnCode))
        return;
    const std::string request = std::string(result.rwType == 1 ? "write " : "read ") +
                                rangeName(result.area, result.address, result.count, result.station, info_.multiStation != 0);
    trace_.note(request + ": " + failureText(result.returnCode, result.exceptionCode, result.refusal) +
                (result.failCallback ? ", given up" : ""));
}

void CommLoop::onFail(QList<RW_VAR>*, int, int) { t_failCallbackFired = true; }

void CommLoop::onReadDone(intptr_t context, int sourceType, int sourceId, int status)
{
    const CommLoop* loop = reinterpret_cast<const CommLoop*>(context);
    if (loop && loop->readDone_)
        loop->readDone_(sourceType, sourceId, status);
}

}  // namespace logohost
