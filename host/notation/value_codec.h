// Values as an operator types and reads them, and as the driver carries them.
#ifndef LOGOHOST_VALUE_CODEC_H
#define LOGOHOST_VALUE_CODEC_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/notation/variable_notation.h"

namespace logohost {

enum class ValueType { Bit, Word, DoubleWord };

ValueType valueTypeOf(Kind kind);

// Bits: 0/1, on/off, true/false. Words: -32768..32767, 0..65535 or 0x hex.
// Double words the same over 32 bits. On failure *expected says what the
// text should have been ("expected 0/1, on/off or true/false").
bool parseValue(const std::string& text, ValueType type, uint32_t* out, std::string* expected);

// Bits as 0/1, words and double words as signed numbers: analogue values
// and V memory are signed in the controller's own displays.
int64_t signedValue(uint32_t raw, ValueType type);
std::string formatValue(uint32_t raw, ValueType type);

// The driver's byte layout: one byte per bit, two bytes per word with the
// low byte first; a VD is two words, high word first.
std::vector<uint8_t> packValues(Kind kind, const std::vector<uint32_t>& values);
// The inverse, for `count` elements; missing bytes read as 0.
std::vector<uint32_t> unpackValues(Kind kind, const std::vector<uint8_t>& bytes, int count);

// One argument of `write`: VAR=VALUE or VAR:N=V1,V2,...
struct WriteRequest {
    Variable var;
    std::vector<uint32_t> values;
    std::vector<std::string> texts;  // each value as given, to echo it so
};
bool parseWrite(const std::string& text, bool allowStation, WriteRequest* out, std::string* error);

}  // namespace logohost

#endif  // LOGOHOST_VALUE_CODEC_H
