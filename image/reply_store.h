// Storing the data of an accepted read reply in the image.
#ifndef LOGO_IMAGE_REPLY_STORE_H
#define LOGO_IMAGE_REPLY_STORE_H

#include "logo_modbus_tcp.h"

// Named as in the host interface ("Erea" included); it stores the data of
// the reply to `frame` in the active image form. Caller holds imageMutex.
void SaveToLocalDataErea(const Protocol& frame, QByteArray* reply);
void SaveBitToUC(const Protocol& frame, QByteArray* reply, unsigned char* bits);
void SaveWordToUS(const Protocol& frame, QByteArray* reply, unsigned short* words);

#endif  // LOGO_IMAGE_REPLY_STORE_H
