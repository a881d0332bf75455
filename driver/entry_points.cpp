// The small entry points that store what the host hands over, and the
// station switch.
#include "driver/locks.h"
#include "driver/modbus_rtu_master.h"

void SetComInfo(ComInfo* info)
{
    info->hostStatusB = 0;
    PLC_driver.comInfo = info;
    info->hostStatusA = 0;
}

void RegistCallBackFuncIntf(ReadDoneCallback readDone, FailCallback fail)
{
    PLC_driver.readDoneCallback = readDone;
    PLC_driver.failCallback = fail;
}

// The driver never reads these; the host parks its own pointers here.
void FlashLocalRegister(void* lb, void* lw, void* rwi)
{
    LB = lb;
    LW = lw;
    RWI = rwi;
}

int QueryFinishFlag() { return 1; }

void EnCommStation(int station, int enable)
{
    DriverLock lock(&PLC_driver.stationMutex);
    if (station <= STATION_ALL)
        PLC_driver.disabledStations.clear();
    else if (enable == STATION_OFF)
        PLC_driver.disabledStations.insert(station, 0);
    else if (enable == STATION_ON)
        PLC_driver.disabledStations.remove(station);
}

bool Ethernetcontains(int station)
{
    DriverLock lock(&PLC_driver.stationMutex);
    return PLC_driver.disabledStations.contains(station);
}
