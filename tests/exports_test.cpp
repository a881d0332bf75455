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

const char* const kExported[] = {
    "SetComInfo", "RegistCallBackFuncIntf", "FlashLocalRegister", "QueryFinishFlag", "EnCommStation",
    "ReCreatReadVarList", "AddListReadVar", "AddListWriteVar", "AddListOnceReadVar", "PLCAddressChangeIntef",
    "ComCommunication", "DataCom", "GetRegisterData", "SetRegisterData",
    "GetBitFromUC", "GetBitFromUS", "GetWordFromUS", "GetWordFromUI",
    "SetBitToUC", "SetBitToUS", "SetWordToUS", "SetWordToUI",
    "CalSUM", "CalCRC", "CalLRC", "CalXOR", "DigitalToASCII", "ASCIIToDigital",
    "PLC_driver", "LB", "LW", "RWI",
};

template <typename F>
F resolve(void* handle, const char* name)
{
    return reinterpret_cast<F>(dlsym(handle, name));
}

std::set<std::string> definedDynamicSymbols(const char* path)
{
    std::set<std::string> names;
    const std::string command = std::string("nm -D --defined-only '") + path + "'";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return names;
    char line[512], type[8], name[400];
    unsigned long long address;
    while (fgets(line, sizeof line, pipe))
        // AddressSanitizer marks each exported global with an __odr_asan twin.
        if (sscanf(line, "%llx %7s %399s", &address, type, name) == 3 && std::string(name).rfind("__odr_asan", 0) != 0)
            names.insert(name);
    pclose(pipe);
    return names;
}

TEST(Exports, EveryInterfaceNameResolvesAndNothingElseIsVisible)
{
    void* handle = dlopen(LOGO_DRIVER_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, handle) << dlerror();
    std::set<std::string> expected;
    for (const char* name : kExported) {
        EXPECT_NE(nullptr, dlsym(handle, name)) << name;
        expected.insert(name);
    }
    dlclose(handle);
    EXPECT_EQ(expected, definedDynamicSymbols(LOGO_DRIVER_PATH));
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
        info.retryLimit = 2;
        info.writeMode = 2;
        resolve<decltype(&SetComInfo)>(handle, "SetComInfo")(&info);

        QList<HOSTVAR> vars;
        HOSTVAR var = HOSTVAR();
        var.area = AREA_AQ;
        var.addressText = QStringLiteral("1");
        var.count = 2;
        vars.append(var);
        ASSERT_EQ(1, resolve<decltype(&ReCreatReadVarList)>(handle, "ReCreatReadVarList")(&vars));
        Protocol* frame = resolve<decltype(&ComCommunication)>(handle, "ComCommunication")();
        ASSERT_NE(nullptr, frame);
        EXPECT_EQ(QByteArray::fromHex("000000000006010302000002"), frame->frame);

        QByteArray reply = QByteArray::fromHex("00000000000701030400 0A0100");
        RW_VAR* result = resolve<decltype(&DataCom)>(handle, "DataCom")(&reply, reply.size());
        EXPECT_EQ(1, result->returnCode);
        QByteArray data;
        resolve<decltype(&GetRegisterData)>(handle, "GetRegisterData")(QString(), AREA_AQ, QStringLiteral("1"), 1, data, 2);
        EXPECT_EQ(QByteArray::fromHex("0A000001"), data);
        // Leave entries behind in every list: unload must release them.
        RW_VAR write = RW_VAR();
        write.area = AREA_VW;
        write.count = 1;
        write.value = QByteArray(2, 1);
        resolve<decltype(&AddListWriteVar)>(handle, "AddListWriteVar")(&write, 1);
        ASSERT_EQ(0, dlclose(handle));
    }
}

}  // namespace
