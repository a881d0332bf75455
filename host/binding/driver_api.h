// The driver's functions, resolved at run time as a panel runtime does:
// the host never links the library, it only knows its header.
#ifndef LOGOHOST_DRIVER_API_H
#define LOGOHOST_DRIVER_API_H

#include <string>

#include "logo_modbus_tcp.h"

namespace logohost {

struct DriverApi {
    decltype(&SetComInfo) setComInfo = nullptr;
    decltype(&RegistCallBackFuncIntf) registerCallbacks = nullptr;
    decltype(&EnCommStation) enableStation = nullptr;
    decltype(&ReCreatReadVarList) rebuildReadList = nullptr;
    decltype(&ComCommunication) nextFrame = nullptr;
    decltype(&DataCom) takeReply = nullptr;
    decltype(&GetRegisterData) getRegisterData = nullptr;
    decltype(&SetRegisterData) setRegisterData = nullptr;
    decltype(&AddListWriteVar) addWrite = nullptr;
    decltype(&AddListOnceReadVar) addOnceRead = nullptr;
};

// The library beside the running executable.
std::string defaultDriverPath();

// Loads the library and resolves every function. The library stays loaded
// for the life of the process: its globals outlive any host thread.
bool loadDriver(const std::string& path, DriverApi* api, std::string* error);

}  // namespace logohost

#endif  // LOGOHOST_DRIVER_API_H
