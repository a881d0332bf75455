// The one conversion of an address text into an element address.
#ifndef LOGO_VARLIST_ADDRESS_TEXT_H
#define LOGO_VARLIST_ADDRESS_TEXT_H

#include <QString>

// V bits (area 3) are written "byte.bit"; every other area takes a decimal
// element number. A negative result means an invalid address.
int StringAddressToInt(int area, QString addressText);

#endif  // LOGO_VARLIST_ADDRESS_TEXT_H
