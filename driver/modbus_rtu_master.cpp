#include "driver/modbus_rtu_master.h"

#include <string.h>

// A global with a constructor: the library's static initialiser builds it
// at load and registers its destruction for unload.
Modbus_RTU_Master PLC_driver;

void* LB = 0;
void* LW = 0;
void* RWI = 0;

Modbus_RTU_Master::Modbus_RTU_Master()
    : comInfo(0),
      readDoneCallback(0),
      failCallback(0),
      result(RW_VAR()),
      currentList(LIST_NONE_YET),
      readListGeneration(0),
      inFlightGeneration(0),
      writeBurst(0),
      onceBurst(0),
      scanPosition(0),
      commFailed(0)
{
    clearAllButImageArrays();
    memset(bitImage, 0, sizeof bitImage);
    memset(wordImage, 0, sizeof wordImage);
}

void Modbus_RTU_Master::clearAllButImageArrays()
{
    result = RW_VAR();
    readList.clear();
    writeList.clear();
    onceReadList.clear();
    frameQueue.clear();
    extendVars = QList<EXTENDVAR>();
    extendIndex.clear();
    disabledStations.clear();
    currentList = LIST_NONE_YET;
    readListGeneration = 0;
    inFlightGeneration = 0;
    writeBurst = 0;
    onceBurst = 0;
    scanPosition = 0;
    commFailed = 0;
}

Modbus_RTU_Master::~Modbus_RTU_Master() {}
