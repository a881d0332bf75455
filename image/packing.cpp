// Moving values between image arrays and the host's byte conventions: one
// byte per bit, two bytes per word (low byte first), 32-bit values as two
// words of which the lower address holds the high half.
//
// None of these checks bounds: they also serve the host on memory of its
// own, whose size they cannot know. The driver's callers clip first.
#include "logo_modbus_tcp.h"

#include <climits>

namespace {

// Two bytes a word: more words than this cannot be given back in one byte
// array, nor counted in bytes without overflowing. No array of the host's
// holds that many either, so such a count does nothing.
const int MOST_WORDS = INT_MAX / 2;

// out grows to hold at least size bytes and never shrinks: bytes beyond
// those written keep their content.
char* growTo(QByteArray& out, int size)
{
    if (out.size() < size)
        out.resize(size);
    return out.data();
}

unsigned char byteAt(const QByteArray* in, int i) { return static_cast<unsigned char>(in->at(i)); }

unsigned short wordAt(const QByteArray* in, int i)
{
    return static_cast<unsigned short>(byteAt(in, i) | (byteAt(in, i + 1) << 8));
}

void putWord(char* out, unsigned short word)
{
    out[0] = static_cast<char>(word & 0xFF);
    out[1] = static_cast<char>(word >> 8);
}

}  // namespace

void GetBitFromUC(QByteArray& out, unsigned char* area, int start, int count)
{
    if (count < 1)
        return;
    char* bytes = growTo(out, count);
    for (int i = 0; i < count; ++i)
        bytes[i] = static_cast<char>(area[start + i]);
}

void GetBitFromUS(QByteArray& out, unsigned short* words, int start, int count)
{
    if (count < 1)
        return;
    char* bytes = growTo(out, count);
    for (int i = 0; i < count; ++i) {
        const int b = start + i;
        bytes[i] = static_cast<char>((words[b / 16] >> (b % 16)) & 1);
    }
}

void GetWordFromUS(QByteArray& out, unsigned short* area, int start, int count)
{
    if (count < 1 || count > MOST_WORDS)
        return;
    char* bytes = growTo(out, 2 * count);
    for (int i = 0; i < count; ++i)
        putWord(bytes + 2 * i, area[start + i]);
}

void GetWordFromUI(QByteArray& out, unsigned short* area, int start, int count)
{
    const int values = count / 2;
    if (values < 1 || count > MOST_WORDS)
        return;
    // Counted in words like GetWordFromUS: counted in values, GCC 12 at -O3
    // loses the buffer's size and warns of a write past its end.
    const int words = 2 * values;
    char* bytes = growTo(out, 2 * words);
    for (int w = 0; w < words; w += 2) {
        putWord(bytes + 2 * w, area[start + w + 1]);  // low half first
        putWord(bytes + 2 * w + 2, area[start + w]);
    }
}

void SetBitToUC(int start, unsigned char* area, QByteArray* in, int count)
{
    for (int i = 0; i < count && i < in->size(); ++i)
        area[start + i] = byteAt(in, i) & 1;
}

// Unlike SetBitToUC, only the byte value 1 sets the bit; 3 clears it.
void SetBitToUS(int start, unsigned short* words, QByteArray* in, int count)
{
    for (int i = 0; i < count && i < in->size(); ++i) {
        const int b = start + i;
        const unsigned short mask = static_cast<unsigned short>(1u << (b % 16));
        if (byteAt(in, i) == 1)
            words[b / 16] |= mask;
        else
            words[b / 16] &= static_cast<unsigned short>(~mask);
    }
}

void SetWordToUS(int start, unsigned short* area, QByteArray* in, int count)
{
    for (int k = 0; k < count && 2 * k + 1 < in->size(); ++k)
        area[start + k] = wordAt(in, 2 * k);
}

void SetWordToUI(int start, unsigned short* area, QByteArray* in, int count)
{
    for (int k = 0; k < count / 2 && 4 * k + 3 < in->size(); ++k) {
        area[start + 2 * k + 1] = wordAt(in, 4 * k);
        area[start + 2 * k] = wordAt(in, 4 * k + 2);
    }
}
