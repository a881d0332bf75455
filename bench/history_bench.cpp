// The panel's history store under a full load: 100 series read 10 times a
// second for a simulated day (or more), fed as fast as the store takes them
// with a simulated clock; then the file's size and trend query times.
//   history_bench [DAYS [DIR [KEEP_HOURS]]]
// DAYS: 1 by default; DIR: a temporary one, removed after; KEEP_HOURS: the
// retention (30 days by default), shorter to see the file stop growing.
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "host/history/history_store.h"

namespace {

using logohost::HistoryStore;

constexpr int kSeries = 100;
constexpr int kNoisy = 40, kRamps = 30;  // the rest are bits
constexpr int64_t kPeriodMs = 100;
constexpr int64_t kTicksPerHour = 3600 * 1000 / kPeriodMs;
constexpr int64_t kTicksPerMinute = kTicksPerHour / 60;
constexpr int64_t kHourMs = 3600 * 1000;
constexpr int64_t kDayMs = 24 * kHourMs;
constexpr int64_t kStartMs = 1700000040000;  // a whole minute
constexpr int kPoints = 600;
constexpr int kQueryRepeats = 20;
constexpr int kBitChangeOneIn = 3000;  // a bit flips every five minutes or so
constexpr int kNoiseCounts = 3;        // an analogue input's noise, either way

// The values of one tick: noisy analogue inputs on slow waves, word ramps
// and 32-bit counters, and bits that rarely change.
class Plant {
public:
    Plant() : values_(kSeries, 0) {}

    const std::vector<int64_t>& next(int64_t tick)
    {
        for (int s = 0; s < kSeries; ++s)
            values_[s] = valueOf(s, tick);
        return values_;
    }

private:
    std::vector<int64_t> values_;
    uint64_t random_ = 0x9E3779B97F4A7C15ull;

    uint64_t random()
    {
        random_ ^= random_ << 13;
        random_ ^= random_ >> 7;
        random_ ^= random_ << 17;
        return random_;
    }

    int64_t valueOf(int s, int64_t tick)
    {
        if (s < kNoisy) {
            const double wavePeriod = static_cast<double>(kTicksPerHour) * (0.5 + s % 5 * 0.25);
            const double wave = std::sin(2 * M_PI * static_cast<double>(tick) / wavePeriod);
            const int64_t noise = static_cast<int64_t>(random() % (2 * kNoiseCounts + 1)) - kNoiseCounts;
            return 500 + static_cast<int64_t>(300 * wave) + noise;
        }
        if (s < kNoisy + kRamps / 2)
            return static_cast<int16_t>(tick / (20 + s % 40));  // a word, one count every few seconds, wrapping
        if (s < kNoisy + kRamps)
            return static_cast<int32_t>(tick * (7 + s % 13));  // a double word counter
        return random() % kBitChangeOneIn == 0 ? 1 - values_[s] : values_[s];
    }
};

double cpuSeconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

std::string seriesName(int s)
{
    if (s < kNoisy)
        return "AI" + std::to_string(s + 1);
    if (s < kNoisy + kRamps)
        return "VW" + std::to_string(2 * s) + "@2";
    return "tank:Q" + std::to_string(s - kNoisy - kRamps + 1);
}

struct FeedCost {
    double callerCpu = 0, processCpu = 0, wall = 0, generatorCpu = 0;
};

// What producing the values costs alone, to take out of the caller's figure.
double generatorCpuPerHour()
{
    Plant plant;
    int64_t sum = 0;
    const double start = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
    for (int64_t tick = 0; tick < kTicksPerHour; ++tick)
        sum += plant.next(tick)[0];
    const double spent = cpuSeconds(CLOCK_THREAD_CPUTIME_ID) - start;
    return sum == 42 ? spent + 1e-9 : spent;
}

FeedCost feed(HistoryStore* store, std::atomic<int64_t>* clock, int64_t ticks, size_t memoryLimit)
{
    std::vector<std::string> names;
    for (int s = 0; s < kSeries; ++s)
        names.push_back(seriesName(s));
    Plant plant;
    const auto wallStart = std::chrono::steady_clock::now();
    const double callerStart = cpuSeconds(CLOCK_THREAD_CPUTIME_ID), processStart = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
    for (int64_t tick = 0; tick < ticks; ++tick) {
        const int64_t atMs = kStartMs + tick * kPeriodMs;
        clock->store(atMs);
        const std::vector<int64_t>& values = plant.next(tick);
        for (int s = 0; s < kSeries; ++s)
            store->addSample(names[s], atMs, values[s]);
        // Faster than any controller: the writer is let catch up rather
        // than have the buffer overflow, which would measure nothing.
        if (tick % kTicksPerMinute == 0)
            while (store->health().pending > memoryLimit / 2)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    store->flush();
    FeedCost cost;
    cost.callerCpu = cpuSeconds(CLOCK_THREAD_CPUTIME_ID) - callerStart;
    cost.processCpu = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - processStart;
    cost.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
    return cost;
}

struct QueryTime {
    double firstMs = 0, medianMs = 0, maxMs = 0;
    size_t buckets = 0;
};

QueryTime timeQuery(const HistoryStore& store, const std::string& series, int64_t fromMs, int64_t toMs)
{
    std::vector<double> times;
    QueryTime result;
    for (int i = 0; i < kQueryRepeats; ++i) {
        const auto start = std::chrono::steady_clock::now();
        result.buckets = store.trend(series, fromMs, toMs, kPoints).size();
        times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    result.firstMs = times.front();
    std::sort(times.begin(), times.end());
    result.medianMs = times[times.size() / 2];
    result.maxMs = times.back();
    return result;
}

void printQuery(const char* name, const QueryTime& time)
{
    std::printf("%-34s %8.2f ms first, %6.2f ms median, %6.2f ms max (%zu buckets)\n", name, time.firstMs,
                time.medianMs, time.maxMs, time.buckets);
}

struct Run {
    int days = 1;
    std::string directory;
    int64_t ticks = 0;
    double hours = 0, samples = 0;
    FeedCost cost;
    logohost::HistoryHealth health;
    uint64_t closedBytes = 0;
    std::chrono::hours keep{0};
};

void printFeed(const Run& run)
{
    const double megabytes = static_cast<double>(run.health.fileBytes) / 1e6;
    std::printf("history_bench: %d series every %lld ms for %d simulated day(s), %.0f samples, kept %lld h\n",
                kSeries, static_cast<long long>(kPeriodMs), run.days, run.samples,
                static_cast<long long>(run.keep.count()));
    std::printf("  (%d noisy analogue inputs, %d ramps and counters, %d bits that rarely change)\n", kNoisy, kRamps,
                kSeries - kNoisy - kRamps);
    std::printf("%-34s %8.1f MB (%.2f bytes per sample fed); %.1f MB after close\n", "file while running (db + WAL)",
                megabytes, static_cast<double>(run.health.fileBytes) / run.samples,
                static_cast<double>(run.closedBytes) / 1e6);
    std::printf("%-34s %llu stored, %llu dropped\n", "samples",
                static_cast<unsigned long long>(run.health.samplesStored),
                static_cast<unsigned long long>(run.health.samplesDropped));
    const double callerCpu = run.cost.callerCpu - run.cost.generatorCpu;
    const double writerCpu = run.cost.processCpu - run.cost.callerCpu;
    std::printf("%-34s %8.2f s in all, %6.3f s a simulated hour, %5.0f ns a sample\n", "CPU, callers (addSample)",
                callerCpu, callerCpu / run.hours, callerCpu / run.samples * 1e9);
    std::printf("%-34s %8.2f s in all, %6.3f s a simulated hour\n", "CPU, writer thread (SQLite)", writerCpu,
                writerCpu / run.hours);
    std::printf("%-34s %8.2f s (the values alone: %.2f s CPU)\n", "wall time of the feed", run.cost.wall,
                run.cost.generatorCpu);
}

// A store of its own, opened on the finished file: its page cache starts cold.
bool printQueries(const Run& run, const logohost::HistorySettings& settings)
{
    HistoryStore store(settings);
    std::string error;
    if (!store.open(&error)) {
        std::fprintf(stderr, "history_bench: reopening: %s\n", error.c_str());
        return false;
    }
    const int64_t endMs = kStartMs + run.ticks * kPeriodMs;
    printQuery("trend 1 h, 600 points", timeQuery(store, "AI1", endMs - kHourMs, endMs));
    printQuery("trend 24 h, 600 points", timeQuery(store, "AI1", endMs - kDayMs, endMs));
    if (run.days >= 7)
        printQuery("trend 7 days, 600 points", timeQuery(store, "AI1", endMs - 7 * kDayMs, endMs));
    return true;
}

bool feedAll(Run* run, const logohost::HistorySettings& settings, std::atomic<int64_t>* clock)
{
    HistoryStore store(settings);
    std::string error;
    if (!store.open(&error)) {
        std::fprintf(stderr, "history_bench: %s\n", error.c_str());
        return false;
    }
    run->cost = feed(&store, clock, run->ticks, settings.memoryLimit);
    run->health = store.health();
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    Run run;
    run.days = argc > 1 ? std::max(1, std::atoi(argv[1])) : 1;
    run.directory = argc > 2 ? argv[2] : std::string();
    const bool temporary = run.directory.empty();
    if (temporary) {
        std::string pattern = (std::filesystem::temp_directory_path() / "history-bench-XXXXXX").string();
        run.directory = mkdtemp(pattern.data()) ? pattern : "history-bench";
    }
    run.ticks = run.days * 24 * kTicksPerHour;
    run.hours = static_cast<double>(run.days) * 24;
    run.samples = static_cast<double>(run.ticks) * kSeries;
    std::atomic<int64_t> clock{kStartMs};
    logohost::HistorySettings settings;
    settings.directory = run.directory;
    settings.nowMs = [&clock] { return clock.load(); };
    if (argc > 3)
        settings.keep = std::chrono::hours(std::max(1, std::atoi(argv[3])));

    if (!feedAll(&run, settings, &clock))
        return 1;
    run.keep = settings.keep;
    run.cost.generatorCpu = generatorCpuPerHour() * run.hours;
    run.closedBytes = std::filesystem::file_size(run.directory + "/logohost.db");
    printFeed(run);
    const bool queried = printQueries(run, settings);
    if (temporary)
        std::filesystem::remove_all(run.directory);
    return queried ? 0 : 1;
}
