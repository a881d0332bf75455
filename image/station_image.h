// The per-station image and the copying of written values into either image form.
#ifndef LOGO_IMAGE_STATION_IMAGE_H
#define LOGO_IMAGE_STATION_IMAGE_H

#include "logo_modbus_tcp.h"

// Named as in the host interface; it finds the index of the entry
// (station, area, address) in extendVars and creates the entry, with two
// zero bytes, when missing. Caller holds imageMutex.
int ExtendFindSameVar(int station, int area, int address);

// Copies a write record's value into the active image form; takes imageMutex.
void WriteDataToLocal(const RW_VAR* var);

// Sets an entry's value to n bytes in place: an entry keeps its buffer from
// one reply to the next, so storing the steady scan costs no heap operation.
void setEntryValue(QByteArray& value, const char* bytes, int n);

#endif  // LOGO_IMAGE_STATION_IMAGE_H
