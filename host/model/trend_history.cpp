#include "host/model/trend_history.h"

#include <cmath>
#include <cstdio>
#include <ctime>

namespace logohost {

TrendHistory::TrendHistory(size_t variables, std::chrono::milliseconds window, std::chrono::milliseconds step)
    : windowMs_(window.count()), stepMs_(step.count()), series_(variables)
{
}

void TrendHistory::append(std::deque<TrendPoint>* series, TrendPoint point)
{
    series->push_back(point);
    while (!series->empty() && series->front().at < point.at - windowMs_)
        series->pop_front();
}

void TrendHistory::add(size_t variable, int64_t at, double raw)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (variable >= series_.size())
        return;
    std::deque<TrendPoint>& series = series_[variable];
    // A point after a gap is kept at once, so the line resumes where the
    // reads did.
    if (!series.empty() && !series.back().gap() && at - series.back().at < stepMs_)
        return;
    append(&series, TrendPoint{at, raw});
}

void TrendHistory::addGap(size_t variable, int64_t at)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (variable >= series_.size())
        return;
    std::deque<TrendPoint>& series = series_[variable];
    if (series.empty() || !series.back().gap())
        append(&series, TrendPoint{at, std::nan("")});
}

std::vector<TrendPoint> TrendHistory::points(size_t variable, int64_t since) const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<TrendPoint> result;
    if (variable >= series_.size())
        return result;
    for (const TrendPoint& point : series_[variable])
        if (point.at > since)
            result.push_back(point);
    return result;
}


}  // namespace logohost
