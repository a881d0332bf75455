// A fresh driver object and settings record for every test, a log of the
// callbacks the driver makes, and a scripted controller on the far side of
// the communication loop.
#ifndef LOGO_TESTS_DRIVER_FIXTURE_H
#define LOGO_TESTS_DRIVER_FIXTURE_H

#include <gtest/gtest.h>

#include <climits>
#include <new>
#include <string>
#include <tuple>
#include <vector>

#include "driver/modbus_rtu_master.h"

struct CallbackLog {
    std::vector<std::vector<intptr_t>> readDone;    // context, sourceType, sourceId, status
    std::vector<std::tuple<int, int, bool>> fails;  // sourceType, one, whether the list was empty
};
inline CallbackLog g_callbacks;

// Bytes from hexadecimal pairs ("00 0A ff"), and back as "00 0A FF" for readable failures.
inline QByteArray hexBytes(const char* text) { return QByteArray::fromHex(text); }
inline std::string hexText(const QByteArray& bytes) { return bytes.toHex(' ').toUpper().toStdString(); }

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
        RegistCallBackFuncIntf(
            [](intptr_t context, int sourceType, int sourceId, int status) {
                g_callbacks.readDone.push_back({context, sourceType, sourceId, status});
                // Must not deadlock: a host's callback may read the image.
                QByteArray scratch;
                GetRegisterData(QString(), AREA_VW, QStringLiteral("0"), 1, scratch, 1);
            },
            [](QList<RW_VAR>* list, int sourceType, int one) {
                g_callbacks.fails.emplace_back(sourceType, one, list->isEmpty());
            });
    }

    // A record as a host fills it for the queues; a value makes it a write.
    RW_VAR record(int area, int address, int count, int station = 1, int sourceType = 0, int sourceId = 0,
                  const char* writeHex = nullptr) const
    {
        return RW_VAR{sourceType, sourceId, writeHex != nullptr, 0, info.localLinkId, 0, QString(),
                      QString::number(address), area, address, station, count, 0, 0, hexBytes(writeHex)};
    }

    static int addWrite(RW_VAR w, int flag = 0) { return AddListWriteVar(&w, flag); }
    static int addOnce(RW_VAR r, int flag = 0) { return AddListOnceReadVar(&r, flag); }
    // A write of the register value 0x1234.
    RW_VAR write(int station, int address, int sourceType = 0, int sourceId = 0) const
    {
        return record(AREA_VW, address, 1, station, sourceType, sourceId, "34 12");
    }

    ComInfo info;
};

struct Answer {
    enum Kind { Good, WrongLength, Timeout, NullReply } kind;
    QByteArray data;  // data of a good read reply; missing bytes are 0
};

struct Exchange {
    bool sent = false;      // false: ComCommunication had nothing to send
    char list = '-';        // the list the driver chose: 'W' write, 'O' one-shot, 'C' cyclic
    RW_VAR var = RW_VAR();  // the record the frame was built from
    QByteArray frame;
    int code = -1;
    RW_VAR result = RW_VAR();
};

struct FakeController {
    std::vector<Answer> script;  // good answers once it is used up
    size_t next = 0;
    // One ComCommunication and, when a frame came, its answer through DataCom.
    Exchange step();
    std::vector<Exchange> run(int steps);
};

// "area:address:count@station", and "/auxText" when there is one.
inline std::string describe(const RW_VAR& v)
{
    using std::to_string;
    return to_string(v.area) + ':' + to_string(v.address) + ':' + to_string(v.count) + '@' + to_string(v.station) +
           (v.auxText.isEmpty() ? "" : "/" + v.auxText.toStdString());
}
// describe()=value of each entry of a list.
inline std::string entries(const QList<RW_VAR>& list)
{
    std::string text;
    for (const RW_VAR& v : list)
        text += (text.empty() ? "" : ", ") + describe(v) + (v.value.isEmpty() ? "" : "=" + hexText(v.value));
    return text;
}
// describe() of each frame sent, "-" where nothing was sent; or only the
// list each came from ("WWOC-").
inline std::string targets(const std::vector<Exchange>& exchanges, bool listsOnly = false)
{
    std::string text;
    for (const Exchange& e : exchanges)
        text += listsOnly ? std::string(1, e.list) : (text.empty() ? "" : " ") + (e.sent ? describe(e.var) : "-");
    return text;
}

inline HOSTVAR hostVar(int area, const char* addressText, int count, int station = 1, const char* auxText = "")
{
    return HOSTVAR{0, quint8(area), quint8(station), 0, addressText, auxText, count};
}
inline int rebuild(QList<HOSTVAR> vars) { return ReCreatReadVarList(&vars); }
// The image as a host reads it.
inline std::string image(int area, const char* address, int station, int count)
{
    QByteArray data;
    GetRegisterData(QString(), area, QLatin1String(address), station, data, count);
    return hexText(data);
}

// Names the instances of a table-driven test after their rows.
inline const auto rowName = [](const auto& info) { return std::string(info.param.name); };

#endif  // LOGO_TESTS_DRIVER_FIXTURE_H
