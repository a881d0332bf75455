// The recent history of each trended variable, kept whether or not anyone
// looks: trended variables are scanned always, so that a chart opened late
// still shows the last minutes without a hole.
#ifndef LOGOHOST_TREND_HISTORY_H
#define LOGOHOST_TREND_HISTORY_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace logohost {

struct TrendPoint {
    int64_t at;  // milliseconds since the epoch, as a browser counts time
    double raw;  // NaN: the variable could not be read here (a gap in the line)
    bool gap() const { return raw != raw; }
};

class TrendHistory {
public:
    // Keeps the points of the last `window`, at most one per `step`.
    TrendHistory(size_t variables, std::chrono::milliseconds window, std::chrono::milliseconds step);

    // A good read of the variable; the value is recorded if a step has
    // passed since the last point.
    void add(size_t variable, int64_t at, double raw);
    // A failed read: one gap marker, however long the failure lasts.
    void addGap(size_t variable, int64_t at);
    // Points after `since` (0: all), oldest first.
    std::vector<TrendPoint> points(size_t variable, int64_t since) const;

private:
    const int64_t windowMs_;
    const int64_t stepMs_;
    mutable std::mutex mutex_;
    std::vector<std::deque<TrendPoint>> series_;

    void append(std::deque<TrendPoint>* series, TrendPoint point);
};


}  // namespace logohost

#endif  // LOGOHOST_TREND_HISTORY_H
