#include "host/binding/driver_api.h"

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

namespace logohost {
namespace {

const char* const kLibraryName = "liblogo_modbus_tcp.so";

template <typename Function>
bool resolve(void* handle, const char* name, Function* out, std::string* missing)
{
    *out = reinterpret_cast<Function>(dlsym(handle, name));
    if (!*out)
        *missing += std::string(missing->empty() ? "" : ", ") + name;
    return *out != nullptr;
}

}  // namespace

std::string defaultDriverPath()
{
    char self[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0)
        return kLibraryName;
    const std::string exe(self, static_cast<size_t>(length));
    const size_t slash = exe.rfind('/');
    return (slash == std::string::npos ? std::string(".") : exe.substr(0, slash)) + "/" + kLibraryName;
}

bool loadDriver(const std::string& path, DriverApi* api, std::string* error)
{
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        *error = "cannot load the driver \"" + path + "\": " + dlerror();
        return false;
    }
    DriverApi table;
    std::string missing;
    resolve(handle, "SetComInfo", &table.setComInfo, &missing);
    resolve(handle, "RegistCallBackFuncIntf", &table.registerCallbacks, &missing);
    resolve(handle, "EnCommStation", &table.enableStation, &missing);
    resolve(handle, "ReCreatReadVarList", &table.rebuildReadList, &missing);
    resolve(handle, "ComCommunication", &table.nextFrame, &missing);
    resolve(handle, "DataCom", &table.takeReply, &missing);
    resolve(handle, "GetRegisterData", &table.getRegisterData, &missing);
    resolve(handle, "SetRegisterData", &table.setRegisterData, &missing);
    resolve(handle, "AddListWriteVar", &table.addWrite, &missing);
    resolve(handle, "AddListOnceReadVar", &table.addOnceRead, &missing);
    if (!missing.empty()) {
        *error = "the driver \"" + path + "\" lacks " + missing;
        dlclose(handle);
        return false;
    }
    *api = table;
    return true;
}

}  // namespace logohost
