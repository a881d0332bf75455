// The one splitter: "cut this range into blocks of at most maxLen elements".
#ifndef LOGO_VARLIST_PIECES_H
#define LOGO_VARLIST_PIECES_H

#include "logo_modbus_tcp.h"

// The block length the settings ask for. The settings must hold a positive
// value; a zero or negative one is taken as 1, the one block length every
// controller serves, so a misconfigured panel still communicates (slowly)
// instead of dividing by zero.
inline int blockLength(const ComInfo* info) { return info->maxBlockLength > 0 ? info->maxBlockLength : 1; }

// Calls emit(address, count) for each piece of [address, address + count):
// all maxLen long but the last, which holds the rest. A count of 0 or less
// gives no piece. maxLen must be positive.
template <typename Emit>
void cutIntoPieces(int address, int count, int maxLen, Emit emit)
{
    for (int done = 0; done < count; done += maxLen) {
        const int rest = count - done;
        emit(address + done, rest < maxLen ? rest : maxLen);
        if (rest <= maxLen)
            break;  // done + maxLen could overflow at the top of the int range
    }
}

#endif  // LOGO_VARLIST_PIECES_H
