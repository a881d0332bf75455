// Turning sorted groups of pieces into the records of the cyclic read list.
#include <algorithm>

#include "driver/modbus_rtu_master.h"
#include "varlist/cyclic_list.h"

namespace {

void emitRecord(const Piece& piece, const std::vector<RW_VAR>& templates)
{
    // The record of a block is its first piece's, with the block's range.
    RW_VAR record = templates[piece.var];
    record.address = piece.address;
    record.count = piece.count;
    AddListReadVar(&record);
}

// Emits maxLen-long records from the front of a block that has grown past
// maxLen; a block of exactly maxLen stays open for the next piece.
void cutLongBlock(Piece* block, const std::vector<RW_VAR>& templates, int maxLen)
{
    while (block->count > maxLen) {
        Piece head = *block;
        head.count = maxLen;
        emitRecord(head, templates);
        block->count -= maxLen;
        block->address += maxLen;
    }
}

}  // namespace

int AddListReadVar(RW_VAR* var)
{
    PLC_driver.readList.append(*var);
    return PLC_driver.readList.size();
}

void BitVarReCreat(const PieceGroup& group, const std::vector<RW_VAR>& templates)
{
    if (group.empty())
        return;
    // The group is sorted, so comparing with the last emitted address
    // removes every repeat; neighbouring bits stay separate requests.
    int lastAddress = group.front().address;
    emitRecord(group.front(), templates);
    for (size_t i = 1; i < group.size(); ++i) {
        if (group[i].address == lastAddress)
            continue;
        lastAddress = group[i].address;
        emitRecord(group[i], templates);
    }
}

void WordVarReCreat(const PieceGroup& group, const std::vector<RW_VAR>& templates, int maxLen)
{
    if (group.empty())
        return;
    Piece block = group.front();
    cutLongBlock(&block, templates, maxLen);
    for (size_t i = 1; i < group.size(); ++i) {
        const Piece& piece = group[i];
        const int blockEnd = block.address + block.count;
        // A piece before the block can only follow a cut that moved the
        // block past it: it opens a new block, and some words are read twice.
        if (piece.address < block.address || piece.address > blockEnd + MERGE_GAP) {
            emitRecord(block, templates);
            block = piece;
            continue;
        }
        block.count = std::max(blockEnd, piece.address + piece.count) - block.address;
        cutLongBlock(&block, templates, maxLen);
    }
    emitRecord(block, templates);
}
