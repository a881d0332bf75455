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
// all maxLen long but the last, which holds the rest, until emit returns
// false. A count of 0 or less gives no piece. maxLen must be positive. Piece
// starts wrap instead of overflowing, whatever the address; callers clip
// their ranges to the image first, so no piece they use wraps.
template <typename Emit>
void cutIntoPieces(int address, int count, int maxLen, Emit emit)
{
    for (int done = 0; done < count; done += maxLen) {
        const int rest = count - done;
        const int start = static_cast<int>(static_cast<unsigned>(address) + static_cast<unsigned>(done));
        if (!emit(start, rest < maxLen ? rest : maxLen))
            break;
        if (rest <= maxLen)
            break;  // done + maxLen could overflow at the top of the int range
    }
}

// The last piece cutIntoPieces would give, when there is one.
inline bool lastPiece(int address, int count, int maxLen, int* pieceAddress, int* pieceCount)
{
    if (count < 1)
        return false;
    const int before = (count - 1) / maxLen * maxLen;  // elements in the pieces before the last
    *pieceAddress = static_cast<int>(static_cast<unsigned>(address) + static_cast<unsigned>(before));
    *pieceCount = count - before;
    return true;
}

#endif  // LOGO_VARLIST_PIECES_H
