#include "host/binding/scan_pacer.h"

namespace logohost {
ScanPacer::ScanPacer(std::chrono::milliseconds period, HostWaiting hostWaiting)
    : period_(period), hostWaiting_(std::move(hostWaiting)), periodEnd_(Clock::now())
{
}

void ScanPacer::setListSize(int requests)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    budget_ = requests;
    used_ = 0;
    periodEnd_ = Clock::now() + period_;
    changed_.notify_all();
}

void ScanPacer::onResult(const RequestResult& result)
{
    // A repeated frame is still the same request: only its end counts.
    if (result.returnCode == RC_RETRYING || result.rwType != RW_READ || result.sourceType != SOURCE_TYPE_CYCLIC ||
        result.sourceId != SOURCE_ID_CYCLIC)
        return;
    const std::lock_guard<std::mutex> lock(mutex_);
    ++used_;
}

// With some stations off the list's frames go round the others faster;
// counting frames rather than passes keeps the load on the link the same.
bool ScanPacer::mayGoLocked(Clock::time_point now)
{
    if (now >= periodEnd_) {
        used_ = 0;
        periodEnd_ = now + period_;
    }
    return released_ || period_.count() == 0 || used_ < budget_ || (hostWaiting_ && hostWaiting_());
}

void ScanPacer::pace()
{
    std::unique_lock<std::mutex> lock(mutex_);
    while (!mayGoLocked(Clock::now())) {
        woken_ = false;
        changed_.wait_until(lock, periodEnd_, [this] { return woken_ || released_; });
    }
}

void ScanPacer::wake()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    woken_ = true;
    changed_.notify_all();
}

void ScanPacer::release()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    released_ = true;
    changed_.notify_all();
}

bool ScanPacer::mayGo()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return mayGoLocked(Clock::now());
}

bool ScanPacer::resting() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return period_.count() > 0 && !released_ && budget_ > 0 && used_ >= budget_ && Clock::now() < periodEnd_;
}

}  // namespace logohost
