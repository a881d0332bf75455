// A host's communication side (driver loaded by path, TCP link, loop)
// against the simulator in the same process, for the soak and fault tests.
#ifndef LOGO_TESTS_LOOP_HARNESS_H
#define LOGO_TESTS_LOOP_HARNESS_H

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "host/binding/comm_loop.h"
#include "sim/simulator.h"

class LoopHarness {
public:
    explicit LoopHarness(ComInfo settings, std::chrono::milliseconds timeout = std::chrono::milliseconds(1000))
        : info(settings), sim(logosim::SimOptions())
    {
        std::string error;
        EXPECT_TRUE(sim.start(&error)) << error;
        EXPECT_TRUE(logohost::loadDriver(LOGO_DRIVER_PATH, &api, &error)) << error;
        links.reset(new logohost::LinkSet({{"sim", "127.0.0.1", sim.port(), -1}}, timeout, trace));
        logohost::LoopHooks hooks;
        hooks.onResult = [this](const logohost::RequestResult& r) {
            std::lock_guard<std::mutex> lock(mutex);
            results.push_back(r);
            stamps.push_back(clock.load());
        };
        loop.reset(new logohost::CommLoop(api, info, *links, trace, hooks));
    }
    ~LoopHarness() { loop->stop(); }

    // Waits until the condition holds on the results so far; false after the limit.
    bool waitFor(std::function<bool(const std::vector<logohost::RequestResult>&)> condition,
                 std::chrono::seconds limit = std::chrono::seconds(20))
    {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (std::chrono::steady_clock::now() < end) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (condition(results))
                    return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return false;
    }

    size_t resultCount()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return results.size();
    }

    HOSTVAR hostVar(int area, const char* address, int count, int station = 1)
    {
        HOSTVAR v = HOSTVAR();
        v.area = static_cast<unsigned char>(area);
        v.station = static_cast<unsigned char>(station);
        v.addressText = QLatin1String(address);
        v.count = count;
        return v;
    }

    ComInfo info;
    logosim::Simulator sim;
    logohost::DriverApi api;
    logohost::Trace trace{false};
    std::unique_ptr<logohost::LinkSet> links;
    std::unique_ptr<logohost::CommLoop> loop;
    std::mutex mutex;
    std::vector<logohost::RequestResult> results;
    // A test's own event counter, read as each result arrives, so that the
    // order of its events and the driver's results can be compared.
    std::atomic<long> clock{0};
    std::vector<long> stamps;
};

inline ComInfo defaultSettings()
{
    ComInfo info = ComInfo();
    info.maxBlockLength = 16;
    info.defaultStation = 1;
    info.retryLimit = 2;
    info.localLinkId = 1;
    info.writeMode = 2;
    return info;
}

#endif  // LOGO_TESTS_LOOP_HARNESS_H
