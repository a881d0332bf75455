// The communication loop against the simulator while host threads queue
// writes and one-shot reads, write and read the image, switch stations and
// rebuild the cyclic list at random. It must end without deadlock, every
// list within its bounds, and once the queues drain every target must hold
// the last value written to it, unless the driver gave that write up (or
// discarded it with a give-up for its station, as its rules say).
#include "loop_harness.h"

#include <atomic>
#include <cstdlib>
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

TEST(Soak, WritesSurviveBusyHostThreads)
{
    ComInfo settings = defaultSettings();
    settings.multiStation = 1;
    settings.retryLimit = 3;
    LoopHarness h(settings, std::chrono::milliseconds(5000));
    h.loop->start();

    std::atomic<bool> stop{false}, overflow{false};
    std::atomic<int> nextId{1};
    Figures figures;
    std::vector<std::vector<Write>> logs(WORKERS);
    std::vector<std::thread> threads;
    for (int w = 0; w < WORKERS; ++w)
        threads.emplace_back(worker, w, std::ref(h), std::cref(stop), std::ref(figures), &logs[w], std::ref(nextId),
                             std::ref(overflow));
    std::this_thread::sleep_for(std::chrono::duration<double>(soakSeconds()));
    stop = true;
    for (std::thread& t : threads)
        t.join();
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

    // What the driver reported: each write's final code, and when the last
    // request for the written station was given up. A give-up discards every
    // write then waiting for that station, without a result of its own.
    std::map<int, int> outcome;
    long lastGiveUp = 0;
    for (size_t i = 0; i < h.results.size(); ++i) {
        const logohost::RequestResult& r = h.results[i];
        if (r.rwType == 1 && r.sourceType == WRITER && r.returnCode != RC_RETRYING)
            outcome[r.sourceId] = r.returnCode;
        if (r.failCallback && r.station == STATION)
            lastGiveUp = h.stamps[i];
    }
    long written = 0, givenUp = 0, discarded = 0, superseded = 0, checked = 0;
    for (const std::vector<Write>& log : logs) {
        std::map<int, const Write*> last;
        for (const Write& write : log) {
            const auto found = outcome.find(write.id);
            if (found != outcome.end())
                ++(found->second == RC_LOCAL_OK ? written : givenUp);
            else if (write.queuedAt <= lastGiveUp)
                ++discarded;
            else
                ++superseded;  // merged into a newer write to the same target
            last[write.target] = &write;
        }
        for (const auto& entry : last) {
            const Write& write = *entry.second;
            const auto found = outcome.find(write.id);
            if (found == outcome.end()) {
                EXPECT_LE(write.queuedAt, lastGiveUp) << "the last write to target " << write.target
                                                      << " was lost without a give-up";
                continue;
            }
            if (found->second != RC_LOCAL_OK)
                continue;
            const int address = write.target >= 1000 ? 528 + write.target - 1001 : write.target;
            EXPECT_EQ(write.value, h.sim.word(STATION, logosim::Table::HoldingRegister, address))
                << "target " << write.target;
            ++checked;
        }
    }
    EXPECT_EQ(figures.writesQueued, written + givenUp + discarded + superseded);
    EXPECT_GT(checked, 0);
    const auto& counters = h.loop->counters();
    std::printf("soak: %.1f s, writes queued %ld = written %ld + merged %ld + given up %ld + discarded with a give-up %ld; "
                "%ld targets checked; "
                "one-shot reads %ld, image reads %ld, station switches %ld, rebuilds %ld; frames %llu, replies %llu, "
                "requests given up %llu\n",
                soakSeconds(), figures.writesQueued.load(), written, superseded, givenUp, discarded, checked,
                figures.onceReads.load(), figures.imageReads.load(), figures.stationSwitches.load(),
                figures.rebuilds.load(), static_cast<unsigned long long>(counters.frames.load()),
                static_cast<unsigned long long>(counters.replies.load()),
                static_cast<unsigned long long>(counters.failures.load()));
}

}  // namespace
