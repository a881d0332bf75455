// The driver alone, in-process, no I/O: the cost of one frame through the
// loop, of a rebuild as screens grow, of the per-station image as it fills,
// and of queueing into busy lists.
#include <benchmark/benchmark.h>

#include <new>
#include <random>

#include "driver/modbus_rtu_master.h"
#include "heap_counter.h"
#include "image/reply_store.h"
#include "image/station_image.h"

namespace {

ComInfo g_info;

void freshDriver(int multiStation, int remoteMode)
{
    PLC_driver.~Modbus_RTU_Master();
    new (&PLC_driver) Modbus_RTU_Master();
    g_info = ComInfo();
    g_info.maxBlockLength = 100;
    g_info.defaultStation = 1;
    g_info.retryLimit = 2;
    g_info.localLinkId = 1;
    g_info.multiStation = multiStation;
    g_info.remoteMode = remoteMode;
    SetComInfo(&g_info);
}

// Heap operations per frame (malloc and calloc, realloc, free) of what was
// counted, as benchmark counters.
void reportHeapPerFrame(benchmark::State& state, const HeapCounts& counts, int64_t frames)
{
    const double n = static_cast<double>(frames);
    state.counters["allocs/frame"] = static_cast<double>(counts.allocations) / n;
    state.counters["reallocs/frame"] = static_cast<double>(counts.reallocations) / n;
    state.counters["frees/frame"] = static_cast<double>(counts.frees) / n;
}

HOSTVAR hostVar(int area, int address, int count, int station)
{
    HOSTVAR v = HOSTVAR();
    v.area = static_cast<unsigned char>(area);
    v.station = static_cast<unsigned char>(station);
    v.addressText = area == AREA_V ? QString("%1.%2").arg(address / 8).arg(address % 8) : QString::number(address);
    v.count = count;
    return v;
}

// One cyclic frame: ComCommunication builds it, DataCom takes a ready reply
// and stores its data. Arguments: area, count, multi-station, remote mode.
// The heap operations are counted once the first scan is done, as a panel
// runs for months.
void BM_FrameThroughLoop(benchmark::State& state)
{
    freshDriver(static_cast<int>(state.range(2)), static_cast<int>(state.range(3)));
    QList<HOSTVAR> vars;
    vars.append(hostVar(static_cast<int>(state.range(0)), 1, static_cast<int>(state.range(1)), 1));
    ReCreatReadVarList(&vars);
    QByteArray reply(ComCommunication()->replyLength, '\1');
    for (int frame = 0; frame < 4; ++frame) {
        ComCommunication();
        DataCom(&reply, reply.size());
    }
    resetHeapCounts();
    countHeapOperations(true);
    for (auto _ : state) {
        Protocol* p = ComCommunication();
        RW_VAR* result = DataCom(&reply, reply.size());
        benchmark::DoNotOptimize(p);
        benchmark::DoNotOptimize(result);
    }
    countHeapOperations(false);
    reportHeapPerFrame(state, heapCounts(), state.iterations());
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FrameThroughLoop)
    ->ArgNames({"area", "count", "multi", "remote"})
    ->ArgsProduct({{AREA_VW}, {10}, {0, 1}, {0, 1}})
    ->ArgsProduct({{AREA_Q}, {1}, {0, 1}, {0, 1}});

QList<HOSTVAR> randomScreen(int n, bool multiStation)
{
    std::mt19937 random(n);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random); };
    QList<HOSTVAR> vars;
    for (int i = 0; i < n; ++i) {
        const int area = pick(0, 7);
        const bool bits = area <= AREA_V;
        vars.append(hostVar(area, pick(0, bits ? 6000 : 2000), bits ? pick(1, 4) : pick(1, 8),
                            multiStation ? pick(1, 8) : 1));
    }
    return vars;
}

// Arguments: host variables, multi-station.
void BM_Rebuild(benchmark::State& state)
{
    const bool multi = state.range(1) != 0;
    freshDriver(multi, 0);
    QList<HOSTVAR> vars = randomScreen(static_cast<int>(state.range(0)), multi);
    int entries = 0;
    for (auto _ : state)
        entries = ReCreatReadVarList(&vars);
    state.counters["entries"] = entries;
}
BENCHMARK(BM_Rebuild)
    ->ArgNames({"vars", "multi"})
    ->ArgsProduct({{100, 1000, 10000, 50000}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

// Fills extendVars with `elements` entries of other stations first.
void fillStationImage(int elements)
{
    freshDriver(1, 0);
    QMutexLocker lock(&PLC_driver.imageMutex);
    for (int i = 0; i < elements; ++i)
        ExtendFindSameVar(10 + i / 60000, AREA_VW, i % 60000);
}

void BM_StationImageStoreReply(benchmark::State& state)
{
    fillStationImage(static_cast<int>(state.range(0)));
    RW_VAR var = RW_VAR();
    var.area = AREA_VW;
    var.station = 1;
    var.count = 100;
    Protocol p = Protocol();
    p.var = var;
    p.replyHeaderLength = 9;
    p.dataLength = 200;
    QByteArray reply(209, '\2');
    for (auto _ : state) {
        QMutexLocker lock(&PLC_driver.imageMutex);
        SaveToLocalDataErea(p, &reply);
    }
}

void BM_StationImageGet(benchmark::State& state)
{
    fillStationImage(static_cast<int>(state.range(0)));
    QByteArray data;
    for (auto _ : state)
        GetRegisterData(QString(), AREA_VW, QStringLiteral("0"), 1, data, 100);
}

void BM_StationImageSet(benchmark::State& state)
{
    fillStationImage(static_cast<int>(state.range(0)));
    g_info.writeMode = 0;
    const QByteArray data(200, '\3');
    for (auto _ : state)
        SetRegisterData(QString(), AREA_VW, QStringLiteral("0"), 1, data, 100, 0, 0);
}
BENCHMARK(BM_StationImageStoreReply)->ArgName("elements")->Arg(1000)->Arg(10000)->Arg(100000);
BENCHMARK(BM_StationImageGet)->ArgName("elements")->Arg(1000)->Arg(10000)->Arg(100000);
BENCHMARK(BM_StationImageSet)->ArgName("elements")->Arg(1000)->Arg(10000)->Arg(100000);

// Queueing into lists of 10, 100 and 1,000 waiting entries: a write that
// merges with the last one, and a one-shot read found as a duplicate at the end.
void BM_AddListWriteVar(benchmark::State& state)
{
    freshDriver(0, 0);
    const int waiting = static_cast<int>(state.range(0));
    RW_VAR w = RW_VAR();
    w.area = AREA_VW;
    w.count = 1;
    w.value = QByteArray(2, '\1');
    for (int i = 0; i < waiting; ++i) {
        w.address = i;
        AddListWriteVar(&w, 0);
    }
    w.address = waiting - 1;
    for (auto _ : state)
        benchmark::DoNotOptimize(AddListWriteVar(&w, 0));
}
BENCHMARK(BM_AddListWriteVar)->ArgName("waiting")->Arg(10)->Arg(100)->Arg(1000);

void BM_AddListOnceReadVar(benchmark::State& state)
{
    freshDriver(0, 0);
    const int waiting = static_cast<int>(state.range(0));
    RW_VAR r = RW_VAR();
    r.area = AREA_VW;
    r.count = 1;
    for (int i = 0; i < waiting; ++i) {
        r.addressText = QString::number(i);
        AddListOnceReadVar(&r, 0);
    }
    r.addressText = QString::number(waiting - 1);
    for (auto _ : state)
        benchmark::DoNotOptimize(AddListOnceReadVar(&r, 0));
}
BENCHMARK(BM_AddListOnceReadVar)->ArgName("waiting")->Arg(10)->Arg(100)->Arg(1000);

// A write and a one-shot read, each queued (not counted) and then sent and
// answered (counted), between cyclic frames of a one-entry list. Arguments:
// multi-station, remote mode.
void BM_WriteAndOnceReadSentAndAnswered(benchmark::State& state)
{
    freshDriver(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    g_info.writeMode = 2;
    QList<HOSTVAR> vars;
    vars.append(hostVar(AREA_VW, 1, 10, 1));
    ReCreatReadVarList(&vars);
    const QByteArray value(4, '\7');
    QByteArray reply(64, '\1');
    int64_t frames = 0;
    auto serve = [&]() {
        while (Protocol* p = ComCommunication()) {
            const int length = p->replyLength;
            DataCom(&reply, length);
            ++frames;
            if (PLC_driver.currentList == LIST_CYCLIC)
                break;
        }
    };
    serve();
    resetHeapCounts();
    frames = 0;
    for (auto _ : state) {
        SetRegisterData(QString(), AREA_VW, QStringLiteral("20"), 1, value, 2, 1, 1);
        RW_VAR once = RW_VAR();
        once.area = AREA_AM;
        once.addressText = QStringLiteral("3");
        once.count = 2;
        once.station = 1;
        AddListOnceReadVar(&once, 0);
        countHeapOperations(true);
        serve();
        countHeapOperations(false);
    }
    reportHeapPerFrame(state, heapCounts(), frames);
}
BENCHMARK(BM_WriteAndOnceReadSentAndAnswered)->ArgNames({"multi", "remote"})->ArgsProduct({{0, 1}, {0, 1}});

}  // namespace

BENCHMARK_MAIN();
