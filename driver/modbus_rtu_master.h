// The one driver object: every list, the image and the three mutexes.
#ifndef LOGO_DRIVER_MODBUS_RTU_MASTER_H
#define LOGO_DRIVER_MODBUS_RTU_MASTER_H

#include "logo_modbus_tcp.h"

#include <QList>
#include <QMap>
#include <QMutex>

#include <atomic>

#include "image/station_index.h"
#include "modbus/areas.h"
#include "modbus/frame_queue.h"
#include "varlist/request_queues.h"

// currentList: which list the frame in flight came from.
enum CurrentList { LIST_CYCLIC = 0, LIST_WRITE = 1, LIST_ONCE = 2, LIST_NONE_YET = 100 };

// One element of the per-station image.
struct EXTENDVAR {
    int station;
    int area;
    int address;
    QByteArray value;  // bit: one byte, bit 0; word: two bytes, low first; empty: no valid data
};

// Named as in the host interface: the driver speaks Modbus TCP, not RTU.
//
// Locks are taken through DriverLock (driver/locks.h), which holds the
// order. frameQueue and commFailed belong to the host's communication thread (the
// only caller of ComCommunication and DataCom) and are not locked;
// scanPosition and ComInfo::scanDone are changed under listMutex, because a
// rebuild on another thread resets them.
class Modbus_RTU_Master {
public:
    Modbus_RTU_Master();
    ~Modbus_RTU_Master();

    // Every list, the per-station image, the station map, the result record
    // and the scheduler's and dispatcher's state as at load; only the image
    // arrays keep their values. The constructor starts with it, and a fuzzer
    // ends every run with it, at a fraction of the cost of zeroing the
    // arrays' 786 KB each time.
    void clearAllButImageArrays();

    ComInfo* comInfo;
    QList<RW_VAR> readList;
    WriteQueue writeList;
    OnceReadQueue onceReadList;
    FrameQueue frameQueue;
    QList<EXTENDVAR> extendVars;
    QMap<int, int> disabledStations;
    ReadDoneCallback readDoneCallback;
    FailCallback failCallback;
    QMutex listMutex;
    QMutex imageMutex;
    QMutex stationMutex;
    RW_VAR result;
    int currentList;
    // Counts rebuilds of readList, so that the reply to a cyclic frame built
    // before a rebuild is not charged to the new list's head.
    unsigned readListGeneration;
    unsigned inFlightGeneration;
    int writeBurst;
    int onceBurst;
    int scanPosition;
    std::atomic<unsigned char> commFailed;  // read by other threads without a lock
    unsigned char bitImage[4][ELEMENTS_PER_AREA];
    unsigned short wordImage[4][ELEMENTS_PER_AREA];

    // Finds an extendVars entry by its key in constant time; kept in step
    // with extendVars, under imageMutex.
    StationIndex extendIndex;

private:
    Modbus_RTU_Master(const Modbus_RTU_Master&);
    Modbus_RTU_Master& operator=(const Modbus_RTU_Master&);
};

// ComInfo::scanDone is written by the communication thread and by a rebuild
// on any thread (both under listMutex) while host threads read it without
// the driver's locks: every write is a whole, atomic store, so a host that
// loads it atomically never sees a torn or stale-forever value.
inline void setScanDone(ComInfo* info, int value) { __atomic_store_n(&info->scanDone, value, __ATOMIC_RELAXED); }

// The frame in flight: the head of frameQueue, which must not be empty.
inline const Protocol& inFlight() { return PLC_driver.frameQueue.first(); }

// Named as in the host interface; it answers whether the station is
// switched off (listed in disabledStations), not whether it is on the network.
bool Ethernetcontains(int station);

#endif  // LOGO_DRIVER_MODBUS_RTU_MASTER_H
