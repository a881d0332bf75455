// Variables written as in the controller's programming software ("VW10",
// "Q1:4", "V10.3", "AM5:2@3") and how each maps onto the driver's areas and
// address texts.
#ifndef LOGOHOST_VARIABLE_NOTATION_H
#define LOGOHOST_VARIABLE_NOTATION_H

#include <string>

namespace logohost {

// VD is not a driver area: it is two VW registers, high word first.
enum class Kind { I, Q, M, V, AI, AQ, AM, VW, VD };

enum { kNoStation = -1 };

struct Variable {
    std::string text;  // as given, for messages
    Kind kind = Kind::I;
    int first = 0;     // element number (I..AM), or V byte number (V, VW, VD)
    int bit = 0;       // V only
    int count = 1;     // elements in the controller's sense (VD: double words)
    int station = kNoStation;
};

// Parses TEXT[:COUNT][@STATION]. The station suffix is accepted only when
// allowStation is set (multi-station mode). On failure *error holds the
// complete message, naming the text and what was expected.
bool parseVariable(const std::string& text, bool allowStation, Variable* out, std::string* error);

bool isBitKind(Kind kind);
bool isWritable(Kind kind);
// 16-bit words per element: 0 for bits, 2 for VD, else 1.
int wordsPerElement(Kind kind);

// The driver's view of element `index` (0-based) of a variable, or of the
// whole variable for the first element: area number, address text and
// numeric address as the driver counts them.
int driverArea(Kind kind);
std::string driverAddressText(const Variable& var, int index = 0);
int driverAddress(const Variable& var, int index = 0);
// Bits or words the whole variable covers in the driver's area.
int driverCount(const Variable& var);

// Name of one element in the controller's notation ("VW2", "V11.0", "Q3@2").
std::string elementName(const Variable& var, int index, bool withStation);

// A driver request range in the controller's notation: area 7 address 5
// count 2 is "VW10:2". Used to name requests the driver reports on.
std::string rangeName(int area, int address, int count, int station, bool withStation);

}  // namespace logohost

#endif  // LOGOHOST_VARIABLE_NOTATION_H
