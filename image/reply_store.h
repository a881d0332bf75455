// Storing the data of an accepted read reply in the image.
#ifndef LOGO_IMAGE_REPLY_STORE_H
#define LOGO_IMAGE_REPLY_STORE_H

#include <QByteArray>

// Stores the reply to the frame at the head of frameQueue. Caller holds imageMutex.
void SaveToLocalDataErea(QByteArray* reply);
void SaveBitToUC(QByteArray* reply, unsigned char* bits);
void SaveWordToUS(QByteArray* reply, unsigned short* words);

#endif  // LOGO_IMAGE_REPLY_STORE_H
