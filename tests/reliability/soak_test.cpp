// The communication loop against the simulator while host threads queue
// writes and one-shot reads, write and read the image, switch stations and
// rebuild the cyclic list at random. It must end without deadlock, every
// list within its bounds, and once the queues drain every target must hold
// the last value written to it, unless the driver gave that write up (or
// discarded it with a give-up for its station, as its rules say).
#include "loop_harness.h"

#include <atomic>
#include <cstdlib>
#include <algorithm>
#include <map>
#include <random>

namespace {

enum {
    WRITER = 7,              // sourceType of the soak's writes
    WORKERS = 4,
    TARGETS_PER_WORKER = 8,
    QUEUE_CAPACITY = 1024,
    BARRIER_ID = 1 << 30,
    STATION = 1,             // written, always on, always valid addresses
    SCRATCH_STATION = 2,     // switched off and on, read at any address, never written
};

struct Write {
    int target;  // VW register (area 7) or AM element (area 6) + 1000
    int value;
    int id;
    long queuedAt;  // the harness clock when queued
};

struct Figures {
    std::atomic<long> writesQueued{0}, onceReads{0}, imageReads{0}, stationSwitches{0}, rebuilds{0};
};

double soakSeconds()
{
    const char* text = std::getenv("LOGO_SOAK_SECONDS");
    return text ? std::atof(text) : 4.0;
}

void worker(int w, LoopHarness& h, const std::atomic<bool>& stop, Figures& figures, std::vector<Write>* log,
            std::atomic<int>& nextId, std::atomic<bool>& overflow)
{
    std::mt19937 random(w + 1);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random); };
    while (!stop.load()) {
        const int k = pick(0, TARGETS_PER_WORKER - 1);
        switch (pick(0, 5)) {
        case 0: {  // a screen's write to a VW register
            const int reg = w * TARGETS_PER_WORKER + k, value = pick(0, 65535), id = nextId++;
            QByteArray bytes;
            bytes.append(static_cast<char>(value & 0xFF)).append(static_cast<char>(value >> 8));
            if (h.api.setRegisterData(QString(), AREA_VW, QString::number(reg), STATION, bytes, 1, WRITER, id) > QUEUE_CAPACITY)
                overflow = true;
            log->push_back({reg, value, id, ++h.clock});
            ++figures.writesQueued;
            break;
        }
        case 1: {  // a write record handed in directly, to an AM flag
            RW_VAR var = RW_VAR();
            var.sourceType = WRITER;
            var.sourceId = nextId++;
            var.rwType = 1;
            var.linkId = h.info.localLinkId;
            var.area = AREA_AM;
            var.address = 1 + w * TARGETS_PER_WORKER + k;
            var.station = STATION;
            var.count = 1;
            const int value = pick(0, 65535);
            var.value.append(static_cast<char>(value & 0xFF)).append(static_cast<char>(value >> 8));
            if (h.api.addWrite(&var, 0) > QUEUE_CAPACITY)
                overflow = true;
            log->push_back({1000 + var.address, value, var.sourceId, ++h.clock});
            ++figures.writesQueued;
            break;
        }
        case 2: {
            RW_VAR var = RW_VAR();
            var.sourceType = 3;
            var.sourceId = w;
            var.linkId = h.info.localLinkId;
            var.station = pick(0, 1) ? STATION : SCRATCH_STATION;
            var.area = AREA_VW;
            var.addressText = QString::number(var.station == STATION ? pick(0, 400) : pick(0, 3000));
            var.count = pick(1, 20);
            if (h.api.addOnceRead(&var, 0) > QUEUE_CAPACITY)
                overflow = true;
            ++figures.onceReads;
            break;
        }
        case 3: {
            QByteArray data;
            h.api.getRegisterData(QString(), pick(0, 7), QString::number(pick(0, 100)), pick(1, 2), data, pick(1, 50));
            ++figures.imageReads;
            break;
        }
        case 4:
            h.api.enableStation(SCRATCH_STATION, pick(0, 1));
            ++figures.stationSwitches;
            break;
        default: {
            QList<HOSTVAR> vars;
            // The written station is only ever read inside the controller's
            // map, so none of its requests is given up; the other station
            // is read anywhere, in any area.
            for (int n = pick(0, 12); n > 0; --n) {
                if (pick(0, 1)) {
                    vars.append(h.hostVar(pick(0, 7), "1", pick(1, 30), SCRATCH_STATION));
                    vars.last().addressText = QString::number(pick(0, 70000));
                } else {
                    vars.append(h.hostVar(AREA_VW, "1", pick(1, 20), STATION));
                    vars.last().addressText = QString::number(pick(0, 400));
                }
            }
            h.api.rebuildReadList(&vars);
            ++figures.rebuilds;
        }
        }
    }
}

// Every fault the simulator can inject, at random and in random mixes, and
// controller restarts, while the host threads run; quiet spells between them
// let the scan catch up. The first phase of a fault-free run is the same.
void faultStorm(LoopHarness& h, const std::atomic<bool>& stop, std::atomic<long>* restarts)
{
    std::mt19937 random(99);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random); };
    while (!stop.load()) {
        std::vector<logosim::FaultSpec> rules;
        for (int kind = 0; kind < logosim::kFaultKindCount; ++kind) {
            if (pick(0, 2) != 0)
                continue;
            logosim::FaultSpec rule;
            rule.kind = static_cast<logosim::FaultKind>(kind);
            rule.probability = pick(1, 8) / 100.0;
            rule.delayMs = pick(20, 300);  // late: within the 150 ms time-out or beyond it
            rules.push_back(rule);
        }
        h.sim.setFaults(pick(0, 3) == 0 ? std::vector<logosim::FaultSpec>() : rules);
        if (pick(0, 9) == 0) {
            h.sim.pause();
            std::this_thread::sleep_for(std::chrono::milliseconds(pick(50, 600)));
            std::string error;
            EXPECT_TRUE(h.sim.resume(&error)) << error;
            ++*restarts;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(pick(100, 1000)));
    }
    h.sim.setFaults({});
}

// Runs the soak and accounts for every write: its own result (written or
// given up), superseded by a later write to the same target (merged into it,
// or discarded with a give-up before it), or, for a target's last write,
// discarded with a give-up of its station; none may be lost. Every target must then
// hold the value of its last write the controller may have carried out.
void soak(bool faults)
{
    ComInfo settings = defaultSettings();
    settings.multiStation = 1;
    settings.retryLimit = 3;
    // Without faults the time-out only has to outlast a slow sanitizer build.
    LoopHarness h(settings, std::chrono::milliseconds(faults ? 150 : 5000));
    h.loop->start();

    std::atomic<bool> stop{false}, overflow{false};
    std::atomic<int> nextId{1};
    std::atomic<long> restarts{0};
    Figures figures;
    std::vector<std::vector<Write>> logs(WORKERS);
    std::vector<std::thread> threads;
    for (int w = 0; w < WORKERS; ++w)
        threads.emplace_back(worker, w, std::ref(h), std::cref(stop), std::ref(figures), &logs[w], std::ref(nextId),
                             std::ref(overflow));
    std::thread storm;
    if (faults)
        storm = std::thread(faultStorm, std::ref(h), std::cref(stop), &restarts);
    std::this_thread::sleep_for(std::chrono::duration<double>(soakSeconds()));
    stop = true;
    for (std::thread& t : threads)
        t.join();
    if (storm.joinable())
        storm.join();
    EXPECT_FALSE(overflow) << "a list grew past its capacity";

    // The write queue is served in order: once a write queued last has its
    // result, every write before it has been sent, merged or given up. A
    // give-up may take the barrier with it, so it is queued again if need be.
    h.api.enableStation(-1, 1);
    bool drained = false;
    for (int attempt = 0; attempt < 3 && !drained; ++attempt) {
        const int barrier = BARRIER_ID + attempt;
        h.api.setRegisterData(QString(), AREA_VW, QStringLiteral("400"), STATION, QByteArray(2, '\0'), 1, WRITER, barrier);
        drained = h.waitFor([barrier](const std::vector<logohost::RequestResult>& r) {
            for (const auto& result : r)
                if (result.sourceId == barrier && result.rwType == 1 && result.returnCode != RC_RETRYING)
                    return true;
            return false;
        }, std::chrono::seconds(30));
    }
    ASSERT_TRUE(drained) << "the write queue did not drain";
    h.loop->stop();

    // What the driver reported: each write's final code, and the times of
    // the give-ups for the written station. A give-up discards every write
    // then waiting for that station, without a result of its own.
    std::map<int, int> outcome;
    std::vector<long> giveUps;
    for (size_t i = 0; i < h.results.size(); ++i) {
        const logohost::RequestResult& r = h.results[i];
        if (r.rwType == 1 && r.sourceType == WRITER && r.returnCode != RC_RETRYING)
            outcome[r.sourceId] = r.returnCode;
        if (r.failCallback && r.station == STATION)
            giveUps.push_back(h.stamps[i]);
    }
    const auto giveUpAfter = [&](long at) { return !giveUps.empty() && giveUps.back() >= at; };
    long written = 0, givenUp = 0, discarded = 0, superseded = 0, lost = 0, checked = 0;
    for (const std::vector<Write>& log : logs) {
        std::map<int, std::vector<const Write*>> byTarget;
        for (const Write& write : log)
            byTarget[write.target].push_back(&write);
        for (const auto& entry : byTarget) {
            const std::vector<const Write*>& writes = entry.second;
            // The values the controller may hold: the last written one, and
            // any given up after it (its frame may have been carried out
            // before its reply was lost).
            std::vector<int> possible{0};
            for (size_t i = 0; i < writes.size(); ++i) {
                const auto found = outcome.find(writes[i]->id);
                if (found != outcome.end()) {
                    const bool ok = found->second == RC_LOCAL_OK;
                    ++(ok ? written : givenUp);
                    if (ok)
                        possible.clear();
                    possible.push_back(writes[i]->value);
                } else if (i + 1 < writes.size()) {
                    ++superseded;
                } else if (giveUpAfter(writes[i]->queuedAt)) {
                    ++discarded;
                } else {
                    ++lost;
                    ADD_FAILURE() << "the last write to target " << entry.first << " has no result and no give-up";
                }
            }
            const int address = entry.first >= 1000 ? 528 + entry.first - 1001 : entry.first;
            const int held = h.sim.word(STATION, logosim::Table::HoldingRegister, address);
            EXPECT_NE(std::find(possible.begin(), possible.end(), held), possible.end())
                << "target " << entry.first << " holds " << held;
            ++checked;
        }
    }
    EXPECT_EQ(figures.writesQueued, written + givenUp + discarded + superseded);
    EXPECT_EQ(0, lost);
    EXPECT_GT(checked, 0);
    const auto& counters = h.loop->counters(0);
    std::printf("soak%s: %.1f s, writes queued %ld = written %ld + superseded by a later write %ld + given up %ld + "
                "last writes discarded with a give-up %ld; %ld targets checked; one-shot reads %ld, image reads %ld, station switches %ld, "
                "rebuilds %ld; frames %llu, replies %llu, refused %llu, requests given up %llu, connections %llu, "
                "controller restarts %ld\n",
                faults ? " with faults" : "", soakSeconds(), figures.writesQueued.load(), written, superseded, givenUp,
                discarded, checked, figures.onceReads.load(), figures.imageReads.load(),
                figures.stationSwitches.load(), figures.rebuilds.load(),
                static_cast<unsigned long long>(counters.frames.load()),
                static_cast<unsigned long long>(counters.replies.load()),
                static_cast<unsigned long long>(counters.refused.load()),
                static_cast<unsigned long long>(counters.failures.load()),
                static_cast<unsigned long long>(h.links->link(0).connections()), restarts.load());
}

TEST(Soak, WritesSurviveBusyHostThreads) { soak(false); }

TEST(Soak, WritesSurviveEveryFaultAndRestartAtRandom) { soak(true); }

}  // namespace
