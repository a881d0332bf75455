// The one driver object: every list, the image and the three mutexes.
#ifndef LOGO_DRIVER_MODBUS_RTU_MASTER_H
#define LOGO_DRIVER_MODBUS_RTU_MASTER_H

#include "logo_modbus_tcp.h"

#include <QList>
#include <QMap>
#include <QMutex>

#include <atomic>

#include "driver/frame_queue.h"
#include "image/station_index.h"
#include "varlist/request_queues.h"

// Elements per image area. 65535, not 65536: element 65535 does not exist,
// and every access is clipped to 0..IMAGE_AREA_SIZE - 1.
enum { IMAGE_AREA_SIZE = 65535 };

// currentList: which list the frame in flight came from.
enum CurrentList { LIST_CYCLIC = 0, LIST_WRITE = 1, LIST_ONCE = 2, LIST_NONE_YET = 100 };

// One element of the per-station image.
struct EXTENDVAR {
    int station;
    int area;
    int address;
    QByteArray value;  // bit: one byte, bit 0; word: two bytes, low first; empty: no valid data
};

// Locks are taken through DriverLock (driver/locks.h), which holds the
// order. frameQueue and commFailed belong to the host's communication thread (the
// only caller of ComCommunication and DataCom) and are not locked;
// scanPosition and ComInfo::scanDone are changed under listMutex, because a
// rebuild on another thread resets them.
class Modbus_RTU_Master {
public:
    Modbus_RTU_Master();
    ~Modbus_RTU_Master();

    // Every list, the station map, the result record and the scheduler's and
    // dispatcher's state as at load; the image keeps its values. The
    // constructor starts with it, and a fuzzer starts every run with it, at
    // a fraction of the cost of zeroing the image's 786 KB each time.
    void clearCommunicationState();

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
    unsigned char bitImage[4][IMAGE_AREA_SIZE];
    unsigned short wordImage[4][IMAGE_AREA_SIZE];

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

// Station test used by the scheduler: true when the station is switched off.
bool Ethernetcontains(int station);

#endif  // LOGO_DRIVER_MODBUS_RTU_MASTER_H
