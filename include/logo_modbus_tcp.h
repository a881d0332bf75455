// Public interface of the LOGO! Modbus TCP driver (liblogo_modbus_tcp.so).
//
// This is the only header a host needs: the records it exchanges with the
// driver, the two callback types, and the prototypes of every exported
// function. A host built separately (Qt 4 or Qt 5 core library) includes it
// for the types and resolves the functions at run time with dlsym under the
// plain names below, for example:
//
//     auto comCommunication = reinterpret_cast<decltype(&ComCommunication)>(
//         dlsym(handle, "ComCommunication"));
//
// The records are shared field by field with the host, so their field order
// and widths are fixed; the static_asserts at the end pin them for 32-bit
// and 64-bit targets alike. The header is plain C++98 apart from those
// checks, so that older Qt 4 toolchains can include it; value-initialise the
// records (RW_VAR var = RW_VAR();) to start from zeros.
#ifndef LOGO_MODBUS_TCP_H
#define LOGO_MODBUS_TCP_H

#include <QByteArray>
#include <QList>
#include <QString>

#include <stddef.h>
#include <stdint.h>

#if defined(LOGO_BUILDING_DRIVER)
#define LOGO_EXPORT __attribute__((visibility("default")))
#else
#define LOGO_EXPORT
#endif

// Memory areas of the controller, the values of RW_VAR::area and
// HOSTVAR::area. 0 to 3 hold bits, 4 to 7 hold 16-bit words; I and AI are
// read-only.
enum LogoArea {
    AREA_I = 0,   // digital inputs I1...
    AREA_Q = 1,   // digital outputs Q1...
    AREA_M = 2,   // flags M1...
    AREA_V = 3,   // variable memory bits, address = byte * 8 + bit
    AREA_AI = 4,  // analogue inputs AI1...
    AREA_AQ = 5,  // analogue outputs AQ1...
    AREA_AM = 6,  // analogue flags AM1...
    AREA_VW = 7   // variable memory words, register number from 0
};

// Codes DataCom places in RW_VAR::returnCode. A failure code is its base
// plus 1 plus the requester's category k (LogoRequester).
enum LogoReturnCode {
    RC_RETRYING = 0,            // failed reply, the frame will be repeated
    RC_LOCAL_OK = 1,            // good reply (also: nothing was in flight)
    RC_LOCAL_BAD_KIND = 10,     // + 1 + k: the frame was neither read nor write
    RC_LOCAL_NO_REPLY = 40,     // + 1 + k: time-out
    RC_LOCAL_BAD_LENGTH = 70,   // + 1 + k: reply of the wrong length
    RC_REMOTE_OK = 100,
    RC_REMOTE_BAD_KIND = 110,
    RC_REMOTE_NO_REPLY = 140,
    RC_REMOTE_BAD_LENGTH = 170,
    RC_UNKNOWN_KIND = 200       // a reply kind the driver does not know; never reaches a host
};

// Who asked, as RW_VAR::sourceType and sourceId carry it. A sourceType of 0
// to SOURCE_TYPE_CATEGORIES - 1 is the k of a failure code; any other value
// counts as 0 there.
enum LogoRequester {
    SOURCE_TYPE_CYCLIC = 0,       // sourceType of every cyclic list entry
    SOURCE_ID_CYCLIC = -1,        // sourceId of every cyclic list entry
    SOURCE_TYPE_CATEGORIES = 12
};

// RW_VAR::rwType. Any other value makes every reply to the frame a failure.
enum LogoRwType {
    RW_READ = 0,
    RW_WRITE = 1
};

// Protocol::replyLength of a frame whose reply may have any length.
enum LogoReplyLength {
    REPLY_LENGTH_ANY = -1
};

// ComInfo::writeMode. Any other value: a host's writes go into the image only.
enum LogoWriteMode {
    WRITE_MODE_TO_CONTROLLER = 2
};

// The flag of AddListWriteVar and AddListOnceReadVar; every value but
// QUEUE_UNCONDITIONAL merges as QUEUE_MERGING does.
enum LogoQueueFlag {
    QUEUE_MERGING = 0,          // a write replaces a waiting one to its target; a duplicate read is dropped
    QUEUE_UNCONDITIONAL = 1     // append an unchanged copy, no test and no limit
};

// EnCommStation's enable; any other value changes nothing. A negative
// station (STATION_ALL or any other) switches every station on.
enum LogoStationSwitch {
    STATION_OFF = 0,
    STATION_ON = 1,
    STATION_ALL = -1
};

// The status of the read-done callback.
enum LogoReadDoneStatus {
    READ_DONE_COMPLETED = 1,    // every entry of the one-shot request was answered
    READ_DONE_GIVEN_UP = 2      // the driver gave an entry up after its retries
};

// One variable, request or result.
struct RW_VAR {
    int sourceType;   // requester category (LogoRequester)
    int sourceId;     // requester identifier
    int rwType;       // RW_READ or RW_WRITE
    int remoteFlag;
    int linkId;       // equal to ComInfo::localLinkId: the local image is meant
    int returnCode;   // outcome, in the record DataCom returns
    QString auxText;      // the host's second text, carried along unread
    QString addressText;  // the address as the host wrote it ("12", "10.3")
    int area;
    int address;      // element address inside the area
    int station;      // Modbus unit identifier
    int count;        // bits (areas 0-3) or 16-bit words (areas 4-7)
    int param1;
    int param2;
    QByteArray value;     // bytes to write: one per bit, two per word (low first)
};

// One frame for the host to send, with what the reply must look like.
struct Protocol {
    QByteArray frame;
    int frameLength;        // bytes of frame to send
    int replyLength;        // exact length of a good reply, or REPLY_LENGTH_ANY
    int replyHeaderLength;  // reply bytes in front of the data
    int dataLength;         // data bytes in the reply
    RW_VAR var;                 // the request the frame was built from
    int reserved[3];
};

// The host's settings record. The driver uses only the named words; the
// host-owned words keep the named ones at 4 x their word number.
struct ComInfo {
    int hostWords0to3[4];
    int maxBlockLength;    // word 4: most words one request may cover
    int hostWord5;
    int defaultStation;    // word 6: station of every variable in single-station mode
    int retryLimit;        // word 7: failed replies absorbed before a request is given up
    int retryCount;        // word 8: failed replies since the last give-up
    int multiStation;      // word 9: 0 one controller, else per-station image
    int hostStatusA;       // word 10
    int framesPerRequest;  // word 11
    int framesAnswered;    // word 12
    int hostStatusB;       // word 13
    int remoteMode;        // word 14: 0 Modbus TCP frames, else remote-mode frames
    int localLinkId;       // word 15: the host's own link identifier
    int writeMode;         // word 16: WRITE_MODE_TO_CONTROLLER, else image only
    int scanDone;          // word 17: 1 once a full cyclic pass succeeded
    intptr_t hostContext;  // word 18: handed back to the read-done callback
};

// The host's description of one cyclically read variable. The driver reads
// area, station, addressText, auxText and count, nothing else.
struct HOSTVAR {
    unsigned char hostByte;
    unsigned char area;
    unsigned char station;
    int hostWord;
    QString addressText;
    QString auxText;
    int count;
};

// status: a LogoReadDoneStatus.
typedef void (*ReadDoneCallback)(intptr_t hostContext, int sourceType, int sourceId, int status);
// Called when a request is given up; the list is empty and not kept.
typedef void (*FailCallback)(QList<RW_VAR>* failed, int sourceType, int one);

class Modbus_RTU_Master;

extern "C" {

// Settings and callbacks, before communication starts.
LOGO_EXPORT void SetComInfo(ComInfo* info);
LOGO_EXPORT void RegistCallBackFuncIntf(ReadDoneCallback readDone, FailCallback fail);
LOGO_EXPORT void FlashLocalRegister(void* lb, void* lw, void* rwi);
LOGO_EXPORT int QueryFinishFlag();
LOGO_EXPORT void EnCommStation(int station, int enable);

// Variable lists.
LOGO_EXPORT int ReCreatReadVarList(QList<HOSTVAR>* vars);
LOGO_EXPORT int AddListReadVar(RW_VAR* var);
LOGO_EXPORT int AddListWriteVar(RW_VAR* var, int flag);
LOGO_EXPORT int AddListOnceReadVar(RW_VAR* var, int flag);
LOGO_EXPORT int PLCAddressChangeIntef(int area, QString addressText);

// The communication loop, on one host thread.
LOGO_EXPORT Protocol* ComCommunication();
LOGO_EXPORT RW_VAR* DataCom(QByteArray* reply, int length);

// The local image. The first argument of GetRegisterData is not read; it
// mirrors SetRegisterData's so that the two calls line up.
LOGO_EXPORT int GetRegisterData(QString unused, int area, QString addressText, int station,
                                QByteArray& data, int count);
LOGO_EXPORT int SetRegisterData(QString auxText, int area, QString addressText, int station,
                                QByteArray data, int count, int sourceType, int sourceId);

// Packing between image arrays and the host's byte conventions.
LOGO_EXPORT void GetBitFromUC(QByteArray& out, unsigned char* area, int start, int count);
LOGO_EXPORT void GetBitFromUS(QByteArray& out, unsigned short* words, int start, int count);
LOGO_EXPORT void GetWordFromUS(QByteArray& out, unsigned short* area, int start, int count);
LOGO_EXPORT void GetWordFromUI(QByteArray& out, unsigned short* area, int start, int count);
LOGO_EXPORT void SetBitToUC(int start, unsigned char* area, QByteArray* in, int count);
LOGO_EXPORT void SetBitToUS(int start, unsigned short* words, QByteArray* in, int count);
LOGO_EXPORT void SetWordToUS(int start, unsigned short* area, QByteArray* in, int count);
LOGO_EXPORT void SetWordToUI(int start, unsigned short* area, QByteArray* in, int count);

// Check values and hexadecimal digit conversions.
LOGO_EXPORT unsigned short CalSUM(unsigned char* data, unsigned short length);
LOGO_EXPORT unsigned short CalCRC(unsigned char* data, unsigned short length);
LOGO_EXPORT int CalLRC(unsigned char* data, unsigned short length);
LOGO_EXPORT unsigned char CalXOR(unsigned char* data, unsigned short length);
LOGO_EXPORT int DigitalToASCII(int digit);
LOGO_EXPORT int ASCIIToDigital(int character);

// Exported data: the driver object and three words the host may park here.
LOGO_EXPORT extern Modbus_RTU_Master PLC_driver;
LOGO_EXPORT extern void* LB;
LOGO_EXPORT extern void* LW;
LOGO_EXPORT extern void* RWI;

}  // extern "C"

#if __cplusplus >= 201103L
// Layout pins: a host compiled separately exchanges pointers to these
// records, so every offset must match on 32-bit panels (ARM) and on 64-bit
// development machines.
#define LOGO_PTR_SIZE sizeof(void*)
static_assert(sizeof(QString) == LOGO_PTR_SIZE && sizeof(QByteArray) == LOGO_PTR_SIZE,
              "Qt strings must be one pointer wide (Qt 4 or Qt 5)");
static_assert(offsetof(RW_VAR, auxText) == 24 && offsetof(RW_VAR, addressText) == 24 + LOGO_PTR_SIZE &&
                  offsetof(RW_VAR, area) == 24 + 2 * LOGO_PTR_SIZE &&
                  offsetof(RW_VAR, param2) == 44 + 2 * LOGO_PTR_SIZE &&
                  offsetof(RW_VAR, value) == 48 + 2 * LOGO_PTR_SIZE,
              "RW_VAR field offsets");
static_assert(sizeof(RW_VAR) == (LOGO_PTR_SIZE == 4 ? 60 : 72), "RW_VAR size");
static_assert(offsetof(Protocol, frameLength) == LOGO_PTR_SIZE &&
                  offsetof(Protocol, dataLength) == LOGO_PTR_SIZE + 12 &&
                  offsetof(Protocol, var) == LOGO_PTR_SIZE + 16 &&
                  offsetof(Protocol, reserved) == LOGO_PTR_SIZE + 16 + sizeof(RW_VAR),
              "Protocol field offsets");
static_assert(sizeof(Protocol) == (LOGO_PTR_SIZE == 4 ? 92 : 112), "Protocol size");
static_assert(offsetof(ComInfo, maxBlockLength) == 4 * 4 && offsetof(ComInfo, defaultStation) == 4 * 6 &&
                  offsetof(ComInfo, retryLimit) == 4 * 7 && offsetof(ComInfo, retryCount) == 4 * 8 &&
                  offsetof(ComInfo, multiStation) == 4 * 9 && offsetof(ComInfo, hostStatusA) == 4 * 10 &&
                  offsetof(ComInfo, framesPerRequest) == 4 * 11 &&
                  offsetof(ComInfo, framesAnswered) == 4 * 12 && offsetof(ComInfo, hostStatusB) == 4 * 13 &&
                  offsetof(ComInfo, remoteMode) == 4 * 14 && offsetof(ComInfo, localLinkId) == 4 * 15 &&
                  offsetof(ComInfo, writeMode) == 4 * 16 && offsetof(ComInfo, scanDone) == 4 * 17 &&
                  offsetof(ComInfo, hostContext) == 4 * 18,
              "ComInfo word positions");
static_assert(sizeof(ComInfo) >= 19 * 4, "ComInfo holds at least nineteen words");
static_assert(offsetof(HOSTVAR, area) == 1 && offsetof(HOSTVAR, station) == 2 &&
                  offsetof(HOSTVAR, hostWord) == 4 && offsetof(HOSTVAR, addressText) == 8 &&
                  offsetof(HOSTVAR, auxText) == 8 + LOGO_PTR_SIZE &&
                  offsetof(HOSTVAR, count) == 8 + 2 * LOGO_PTR_SIZE,
              "HOSTVAR field offsets");
#undef LOGO_PTR_SIZE
#endif  // C++11

#endif  // LOGO_MODBUS_TCP_H
