// The driver alone, in-process, no I/O: the cost of one frame through the
// loop, of a rebuild as screens grow, of the per-station image as it fills,
// and of queueing into busy lists.
#include <benchmark/benchmark.h>

#include <new>
#include <random>

#include "driver/modbus_rtu_master.h"
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
void BM_FrameThroughLoop(benchmark::State& state)
{
    freshDriver(static_cast<int>(state.range(2)), static_cast<int>(state.range(3)));
    QList<HOSTVAR> vars;
    vars.append(hostVar(static_cast<int>(state.range(0)), 1, static_cast<int>(state.range(1)), 1));
    ReCreatReadVarList(&vars);
    Protocol* first = ComCommunication();
    QByteArray reply(first->replyLength, '\1');
    DataCom(&reply, reply.size());
    for (auto _ : state) {
        Protocol* p = ComCommunication();
        RW_VAR* result = DataCom(&reply, reply.size());
        benchmark::DoNotOptimize(p);
        benchmark::DoNotOptimize(result);
    }
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
    PLC_driver.frameQueue.append(p);
    QByteArray reply(209, '\2');
    for (auto _ : state) {
        QMutexLocker lock(&PLC_driver.imageMutex);
        SaveToLocalDataErea(&reply);
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

// Queueing into lists of 1,000 waiting entries: a write that merges with
// the last one, and a one-shot read found as a duplicate at the end.
void BM_AddListWriteVar(benchmark::State& state)
{
    freshDriver(0, 0);
    RW_VAR w = RW_VAR();
    w.area = AREA_VW;
    w.count = 1;
    w.value = QByteArray(2, '\1');
    for (int i = 0; i < 1000; ++i) {
        w.address = i;
        AddListWriteVar(&w, 0);
    }
    w.address = 999;
    for (auto _ : state)
        benchmark::DoNotOptimize(AddListWriteVar(&w, 0));
}
BENCHMARK(BM_AddListWriteVar);

void BM_AddListOnceReadVar(benchmark::State& state)
{
    freshDriver(0, 0);
    RW_VAR r = RW_VAR();
    r.area = AREA_VW;
    r.count = 1;
    for (int i = 0; i < 1000; ++i) {
        r.addressText = QString::number(i);
        AddListOnceReadVar(&r, 0);
    }
    r.addressText = QStringLiteral("999");
    for (auto _ : state)
        benchmark::DoNotOptimize(AddListOnceReadVar(&r, 0));
}
BENCHMARK(BM_AddListOnceReadVar);

}  // namespace

BENCHMARK_MAIN();
