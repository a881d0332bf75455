// The shared library as a host sees it: loaded by file name, every exported
// name resolved with dlsym, nothing else of the library's own visible, and
// loading and unloading it again and again.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdio>
#include <set>
#include <string>

#include "logo_modbus_tcp.h"

namespace {

const std::set<std::string> kExported = {
    "SetComInfo", "RegistCallBackFuncIntf", "FlashLocalRegister", "QueryFinishFlag", "EnCommStation",
    "ReCreatReadVarList", "AddListReadVar", "AddListWriteVar", "AddListOnceReadVar", "PLCAddressChangeIntef",
    "ComCommunication", "DataCom", "GetRegisterData", "SetRegisterData", "GetBitFromUC", "GetBitFromUS",
    "GetWordFromUS", "GetWordFromUI", "SetBitToUC", "SetBitToUS", "SetWordToUS", "SetWordToUI", "CalSUM", "CalCRC",
    "CalLRC", "CalXOR", "DigitalToASCII", "ASCIIToDigital", "PLC_driver", "LB", "LW", "RWI"};

// The name handed to dlsym is the prototype's own, so the two cannot drift apart.
#define RESOLVE(handle, name) reinterpret_cast<decltype(&name)>(dlsym(handle, #name))

std::set<std::string> definedDynamicSymbols(const char* path)
{
    std::set<std::string> names;
    FILE* pipe = popen((std::string(LOGO_NM) + " -D --defined-only '" + path + "'").c_str(), "r");
    char line[512], type[8], name[400];
    unsigned long long address;
    while (pipe && fgets(line, sizeof line, pipe))
        // AddressSanitizer marks each exported global with an __odr_asan twin.
        if (sscanf(line, "%llx %7s %399s", &address, type, name) == 3 && std::string(name).rfind("__odr_asan", 0) != 0)
            names.insert(name);
    if (pipe)
        pclose(pipe);
    return names;
}

TEST(Exports, EveryInterfaceNameResolvesAndNothingElseIsVisible)
{
    void* handle = dlopen(LOGO_DRIVER_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, handle) << dlerror();
    for (const std::string& name : kExported)
        EXPECT_NE(nullptr, dlsym(handle, name.c_str())) << name;
    dlclose(handle);
    EXPECT_EQ(kExported, definedDynamicSymbols(LOGO_DRIVER_PATH));
}

// One cyclic read of AQ1 and AQ2 through the loaded library, the way a host
// drives it; repeated with a fresh load each time, so that a leak or a
// destructor fault at unload shows (the valgrind run of this test fails on
// any definite leak).
TEST(Exports, LoadUseUnloadRepeatedly)
{
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(round);
        void* handle = dlopen(LOGO_DRIVER_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, handle) << dlerror();
        ComInfo info = ComInfo();
        info.maxBlockLength = 100;
        info.defaultStation = 1;
        RESOLVE(handle, SetComInfo)(&info);
        EXPECT_EQ(1, RESOLVE(handle, QueryFinishFlag)());

        QList<HOSTVAR> vars{HOSTVAR{0, AREA_AQ, 0, 0, QStringLiteral("1"), QString(), 2}};
        ASSERT_EQ(1, RESOLVE(handle, ReCreatReadVarList)(&vars));
        Protocol* frame = RESOLVE(handle, ComCommunication)();
        ASSERT_NE(nullptr, frame);
        EXPECT_EQ(QByteArray::fromHex("000000000006010302000002"), frame->frame);

        QByteArray reply = QByteArray::fromHex("000000000007010304000A0100");
        RW_VAR* result = RESOLVE(handle, DataCom)(&reply, reply.size());
        EXPECT_EQ(1, result->returnCode);
        QByteArray data;
        RESOLVE(handle, GetRegisterData)(QString(), AREA_AQ, QStringLiteral("1"), 1, data, 2);
        EXPECT_EQ(QByteArray::fromHex("0A000001"), data);
        // Leave entries behind in every list: unload must release them.
        RW_VAR write{0, 0, 1, 0, 0, 0, QString(), QString(), AREA_VW, 0, 1, 1, 0, 0, QByteArray(2, 1)};
        RESOLVE(handle, AddListWriteVar)(&write, 1);
        RESOLVE(handle, AddListOnceReadVar)(&write, 1);
        ASSERT_EQ(0, dlclose(handle));
    }
}

}  // namespace
