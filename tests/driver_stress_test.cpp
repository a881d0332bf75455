// The loop on its own thread while host threads queue, rebuild, switch
// stations and use the image: it must neither deadlock nor let a queue grow
// past its bound, and afterwards everything still queued must go out.
#include <atomic>
#include <thread>

#include "driver_fixture.h"

namespace {

enum { ROUNDS = 1500, CAPACITY = 1024 };

class Stress : public DriverTest, public ::testing::WithParamInterface<int> {};

TEST_P(Stress, LoopAgainstBusyHostThreads)
{
    info.multiStation = GetParam();
    info.maxBlockLength = 8;
    const auto write = [this](int i) {
        return addWrite(record(AREA_AQ + i % 3, i % 1500, 1 + i % 2, 1 + i % 3, i % 14, i, "01 00 02 00"));
    };
    const auto read = [this](int i, int flag) {
        return addOnce(record(i % 8, i % 700, 1 + i % 12, 1 + i % 3, 2, i % 40), flag);
    };
    for (int i = 0; i < CAPACITY - 20; ++i) {  // start near the bound, so that the merging paths meet it
        write(5000 + i);
        read(i, 1);
    }
    int longest[3] = {};  // the longest queue each host thread was told of
    std::atomic<bool> stop(false);
    std::thread loop([&] {
        FakeController fake;
        while (!stop)
            if (!fake.step().sent)
                std::this_thread::yield();
    });
    std::thread hosts[] = {
        std::thread([&] { for (int i = 0; i < ROUNDS; ++i) longest[0] = qMax(longest[0], write(i)); }),
        std::thread([&] { for (int i = 0; i < ROUNDS; ++i) longest[1] = qMax(longest[1], read(i, 0)); }),
        std::thread([&] {
            for (int i = 0; i < ROUNDS / 10; ++i) {
                QList<HOSTVAR> vars;
                for (int k = 0; k <= i % 6; ++k)
                    vars << hostVar(k, k == AREA_V ? "1.2" : "4", 1 + 10 * k, 1 + (i + k) % 3);
                ReCreatReadVarList(&vars);
                EnCommStation(1 + i % 3, i % 2);
            }
            EnCommStation(-1, 1);
        }),
        std::thread([&] {
            QByteArray data;
            for (int i = 0; i < ROUNDS; ++i) {
                longest[2] = qMax(longest[2], SetRegisterData(QString(), AREA_VW, QString::number(i % 50), 1 + i % 3,
                                                              hexBytes("11 22 33 44"), 2, 3, i));
                GetRegisterData(QString(), i % 8, QString::number(i % 60), 1 + i % 3, data, 1 + i % 9);
            }
        })};
    for (std::thread& t : hosts)
        t.join();
    stop = true;
    loop.join();

    for (int length : {longest[0], longest[1], longest[2], PLC_driver.writeList.size(), PLC_driver.onceReadList.size()})
        EXPECT_LE(length, CAPACITY);
    FakeController fake;
    for (int i = 0; i < 3 * CAPACITY && !(PLC_driver.writeList.isEmpty() && PLC_driver.onceReadList.isEmpty()); ++i)
        fake.step();
    EXPECT_TRUE(PLC_driver.writeList.isEmpty());
    EXPECT_TRUE(PLC_driver.onceReadList.isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Modes, Stress, ::testing::Values(0, 1),
                         [](const auto& i) { return std::string(i.param ? "MultiStation" : "SingleStation"); });

}  // namespace
