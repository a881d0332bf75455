// A fresh driver object and settings record for every test, and a log of
// the callbacks the driver makes.
#ifndef LOGO_TESTS_DRIVER_FIXTURE_H
#define LOGO_TESTS_DRIVER_FIXTURE_H

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "driver/modbus_rtu_master.h"

struct CallbackLog {
    struct ReadDone {
        intptr_t context;
        int sourceType, sourceId, status;
    };
    struct Fail {
        int sourceType, one;
        bool listWasEmpty;
    };
    std::vector<ReadDone> readDone;
    std::vector<Fail> fails;
};

extern CallbackLog g_callbacks;

// Bytes from a string of hexadecimal pairs such as "00 0A ff".
QByteArray hexBytes(const char* text);
// "00 0A FF": for readable failure messages.
std::string hexText(const QByteArray& bytes);

class DriverTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        PLC_driver.~Modbus_RTU_Master();
        new (&PLC_driver) Modbus_RTU_Master();
        g_callbacks = CallbackLog();
        info = ComInfo();
        info.maxBlockLength = 100;
        info.defaultStation = 1;
        info.retryLimit = 2;
        info.localLinkId = 5;
        info.writeMode = 2;
        info.hostContext = 77;
        SetComInfo(&info);
        RegistCallBackFuncIntf(&readDone, &fail);
    }

    static void readDone(intptr_t context, int sourceType, int sourceId, int status)
    {
        g_callbacks.readDone.push_back({context, sourceType, sourceId, status});
        // A callback may read the image: GetRegisterData takes only imageMutex.
        QByteArray scratch;
        GetRegisterData(QString(), AREA_VW, QStringLiteral("0"), 1, scratch, 1);
    }
    static void fail(QList<RW_VAR>* list, int sourceType, int one)
    {
        g_callbacks.fails.push_back({sourceType, one, list->isEmpty()});
    }

    // A record as a host fills it for the queues.
    RW_VAR record(int area, int address, int count, int station = 1, int sourceType = 0, int sourceId = 0) const
    {
        RW_VAR v = RW_VAR();
        v.area = area;
        v.address = address;
        v.addressText = QString::number(address);
        v.count = count;
        v.station = station;
        v.sourceType = sourceType;
        v.sourceId = sourceId;
        v.linkId = info.localLinkId;
        return v;
    }

    ComInfo info;
};

#endif  // LOGO_TESTS_DRIVER_FIXTURE_H
