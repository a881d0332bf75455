// Three controllers at their own addresses, one of which dies: how much of
// their scan rate the healthy two keep while it refuses connections and
// while it is silent, and how soon it is scanned again once it is back.
// The real driver and the host's session, three simulators in-process, the
// scan as fast as the link goes (--scan-period 0), so that the rate shows
// every frame the dead controller costs the others.
//   controllers_bench DRIVER [PHASE_SECONDS]
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "host/binding/session.h"
#include "sim/simulator.h"

namespace {

using namespace logohost;
using Clock = std::chrono::steady_clock;

constexpr int kControllers = 3;
constexpr int kDead = 1;  // the second controller, station 2

struct Rates {
    std::atomic<uint64_t> results[kControllers] = {};
};

std::vector<Variable> scanOf(int station)
{
    std::vector<Variable> variables;
    for (const char* text : {"VW0:8", "AI1:2", "AM1:4", "Q1:4"}) {
        Variable var;
        std::string error;
        parseVariable(std::string(text) + "@" + std::to_string(station), true, &var, &error);
        variables.push_back(var);
    }
    return variables;
}

// Cyclic results a second of each controller over the window.
std::vector<double> measure(const Rates& rates, std::chrono::seconds window)
{
    std::vector<uint64_t> before;
    for (const auto& count : rates.results)
        before.push_back(count.load());
    std::this_thread::sleep_for(window);
    std::vector<double> perSecond;
    for (int c = 0; c < kControllers; ++c)
        perSecond.push_back(static_cast<double>(rates.results[c].load() - before[c]) / window.count());
    return perSecond;
}

// Seconds until the dead controller's next good result.
double timeBack(const Rates& rates, std::chrono::seconds limit)
{
    const uint64_t before = rates.results[kDead].load();
    const auto start = Clock::now();
    while (rates.results[kDead].load() == before && Clock::now() - start < limit)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void row(const char* phase, const std::vector<double>& rates, const std::vector<double>& baseline, double back)
{
    const double kept = (rates[0] + rates[2]) / (baseline[0] + baseline[2]) * 100;
    std::printf("%-34s %9.0f %9.0f %9.0f %8.0f%%", phase, rates[0], rates[1], rates[2], kept);
    if (back >= 0)
        std::printf("   back after %.2f s", back);
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: controllers_bench DRIVER [PHASE_SECONDS]\n");
        return 2;
    }
    const std::chrono::seconds phase(argc > 2 ? std::atoi(argv[2]) : 10);
    std::vector<std::unique_ptr<logosim::Simulator>> sims;
    std::vector<ControllerAddress> addresses;
    std::vector<Variable> variables;
    std::string error;
    for (int c = 0; c < kControllers; ++c) {
        sims.emplace_back(new logosim::Simulator(logosim::SimOptions()));
        if (!sims.back()->start(&error)) {
            std::fprintf(stderr, "controllers_bench: %s\n", error.c_str());
            return 1;
        }
        addresses.push_back({"station " + std::to_string(c + 1), "127.0.0.1", sims.back()->port(), c + 1});
        for (const Variable& var : scanOf(c + 1))
            variables.push_back(var);
    }
    DriverApi api;
    if (!loadDriver(argv[1], &api, &error)) {
        std::fprintf(stderr, "controllers_bench: %s\n", error.c_str());
        return 1;
    }
    ComInfo info = ComInfo();
    info.maxBlockLength = 64;
    info.defaultStation = 1;
    info.retryLimit = 2;
    info.multiStation = 1;
    info.localLinkId = 1;
    info.writeMode = WRITE_MODE_TO_CONTROLLER;
    Trace trace(false);
    LinkSet links(addresses, std::chrono::milliseconds(1000), trace);
    SessionSettings settings;
    settings.multiStation = true;
    settings.demote = true;
    settings.probe = true;
    Session session(api, info, links, trace, settings, variables);
    Rates rates;
    session.addResultObserver([&rates](const RequestResult& result) {
        if (result.sourceId == SOURCE_ID_CYCLIC && result.returnCode == RC_LOCAL_OK)
            ++rates.results[result.controller];
    });
    std::vector<size_t> all;
    for (size_t v = 0; v < variables.size(); ++v)
        all.push_back(v);
    session.scan(all);
    session.start();

    std::printf("%-34s %9s %9s %9s %9s\n", "cyclic results a second", "ctrl 1", "ctrl 2", "ctrl 3", "1+3 kept");
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const std::vector<double> baseline = measure(rates, phase);
    row("all three answering", baseline, baseline, -1);

    sims[kDead]->pause();  // closes its connections and refuses new ones
    std::this_thread::sleep_for(std::chrono::seconds(2));
    row("controller 2 refuses connections", measure(rates, phase), baseline, -1);
    sims[kDead]->resume();
    row("controller 2 back", measure(rates, phase), baseline, timeBack(rates, phase));

    sims[kDead]->setFaults({logosim::FaultSpec{logosim::FaultKind::Silent}});
    std::this_thread::sleep_for(std::chrono::seconds(5));  // the first time-outs, before it is switched off
    row("controller 2 silent", measure(rates, phase), baseline, -1);
    sims[kDead]->setFaults({});
    row("controller 2 answering again", measure(rates, phase), baseline, timeBack(rates, phase));
    session.stop();
    return 0;
}
