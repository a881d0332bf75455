#include "host/binding/station_probe.h"

#include "common/modbus_wire.h"
#include "common/thread_name.h"

namespace logohost {
namespace {

// A read of one holding register at address 0 (VW0): every LOGO! has it.
constexpr int kProbeReplyLength = wire::kReadReplyHeader + 2;

QByteArray probeFrame(int station)
{
    QByteArray frame(wire::kRequestLength, '\0');
    uint8_t* bytes = reinterpret_cast<uint8_t*>(frame.data());
    wire::writeBe16(bytes + wire::kLengthOffset, wire::kRequestLength - wire::kLengthCountedFrom);
    bytes[wire::kUnitOffset] = static_cast<uint8_t>(station);
    bytes[wire::kFunctionOffset] = wire::kFcReadHoldingRegisters;
    wire::writeBe16(bytes + wire::kQuantityOffset, 1);
    return frame;
}

}  // namespace

StationProbe::StationProbe(const LinkSet& links, std::chrono::milliseconds timeout,
                           std::chrono::milliseconds interval, Answered answered)
    : links_(links), timeout_(timeout), interval_(interval), answered_(std::move(answered))
{
    thread_ = std::thread(&StationProbe::run, this);
}

StationProbe::~StationProbe() { stop(); }

void StationProbe::stop()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        stop_.store(true);
        changed_.notify_all();
    }
    if (thread_.joinable())
        thread_.join();
}

void StationProbe::watch(int station)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    watched_.insert(station);
    changed_.notify_all();
}

void StationProbe::forget(int station)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    watched_.erase(station);
}

void StationProbe::run()
{
    common::nameThisThread("station-probe");
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stop_.load()) {
        changed_.wait_for(lock, interval_, [this] { return stop_.load(); });
        const std::set<int> stations = watched_;
        lock.unlock();
        for (const int station : stations)
            if (!stop_.load() && answers(station))
                answered_(station);
        lock.lock();
    }
}

// Any reply that answers the frame counts, an exception too: the
// controller is there to be asked.
bool StationProbe::answers(int station)
{
    const ControllerAddress& address = links_.address(links_.controllerOf(station));
    Trace quiet(false);
    TcpLink link(address.host, address.port, timeout_, quiet, BackoffWait::FailFast);
    const QByteArray frame = probeFrame(station);
    const Exchange exchange =
        link.exchange(frame.constData(), frame.size(), ReplyShape{true, kProbeReplyLength}, stop_);
    return exchange.outcome == LinkOutcome::Reply;
}

}  // namespace logohost
