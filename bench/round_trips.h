// Round-trip statistics shared by the loopback benchmarks, printed in one
// line format so bench/e2e.sh can set them side by side.
#ifndef LOGO_BENCH_ROUND_TRIPS_H
#define LOGO_BENCH_ROUND_TRIPS_H

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

class RoundTrips {
public:
    typedef std::chrono::steady_clock Clock;

    explicit RoundTrips(size_t frames) { micros_.reserve(frames); }
    void start() { begin_ = Clock::now(); }
    void add(Clock::time_point sent, Clock::time_point received)
    {
        micros_.push_back(std::chrono::duration<double, std::micro>(received - sent).count());
    }
    // "NAME frames=N fps=F p50_us=A p99_us=B"
    void print(const char* name)
    {
        const double seconds = std::chrono::duration<double>(Clock::now() - begin_).count();
        std::sort(micros_.begin(), micros_.end());
        std::printf("%s frames=%zu fps=%.0f p50_us=%.1f p99_us=%.1f\n", name, micros_.size(),
                    micros_.size() / seconds, percentile(0.50), percentile(0.99));
    }

private:
    double percentile(double p) const
    {
        return micros_.empty() ? 0 : micros_[static_cast<size_t>(p * (micros_.size() - 1))];
    }
    std::vector<double> micros_;
    Clock::time_point begin_;
};

#endif  // LOGO_BENCH_ROUND_TRIPS_H
