// Rebuild of the cyclic read list: splitting, sorting and block grouping.
#ifndef LOGO_VARLIST_CYCLIC_LIST_H
#define LOGO_VARLIST_CYCLIC_LIST_H

#include "logo_modbus_tcp.h"

#include <vector>

// One piece of a host variable: a range of elements and the variable it
// came from. The rebuild sorts and groups pieces and only turns block heads
// into RW_VAR records when it emits them.
struct Piece {
    int address;
    int count;
    int var;  // index of the variable's template record
};

typedef std::vector<Piece> PieceGroup;

// Single-station splitting: one piece when count <= maxLen (any count),
// otherwise pieces of maxLen and a rest.
void WhetherGroup(int count, int maxLen, const Piece& whole, PieceGroup* target);
// Stable sort by address alone.
void Bubble_Sort(PieceGroup* group);
// Emit one record per distinct bit address of a sorted group.
void BitVarReCreat(const PieceGroup& group, const std::vector<RW_VAR>& templates);
// Emit word blocks, merging gaps of up to 3 words and cutting at maxLen.
void WordVarReCreat(const PieceGroup& group, const std::vector<RW_VAR>& templates, int maxLen);

enum { MERGE_GAP = 3 };  // words nobody asked for that may be read to join two blocks

#endif  // LOGO_VARLIST_CYCLIC_LIST_H
