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

// The four steps of a rebuild are named as in the host interface.

// Cuts a single-station variable into the target group: one piece when
// count <= maxLen (any count), otherwise pieces of maxLen and a rest. It
// always files the pieces; the name asks whether they need cutting.
void WhetherGroup(int count, int maxLen, const Piece& whole, PieceGroup* target);
// A stable n log n sort by address alone, not a bubble sort: only its
// result, pieces at one address in filing order, is the interface's.
void Bubble_Sort(PieceGroup* group);
// Appends one cyclic record per distinct bit address of a sorted group.
void BitVarReCreat(const PieceGroup& group, const std::vector<RW_VAR>& templates);
// Appends the word blocks of a sorted group, merging gaps of up to
// MERGE_GAP words and cutting at maxLen.
void WordVarReCreat(const PieceGroup& group, const std::vector<RW_VAR>& templates, int maxLen);

enum { MERGE_GAP = 3 };  // words nobody asked for that may be read to join two blocks

#endif  // LOGO_VARLIST_CYCLIC_LIST_H
