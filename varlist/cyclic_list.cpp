// Rebuild of the cyclic read list from the host's variables.
#include "varlist/cyclic_list.h"

#include <QMap>
#include <algorithm>

#include "driver/locks.h"
#include "driver/modbus_rtu_master.h"
#include "modbus/areas.h"
#include "varlist/address_text.h"
#include "varlist/pieces.h"

namespace {

struct Rebuild {
    RW_VAR pattern;                 // the fields every entry shares
    std::vector<RW_VAR> templates;  // one per accepted variable
    int maxLen;
};

// The element range of a host variable, or false when it yields nothing.
// Areas outside 0 to 7 have no request in either mode, and a negative count
// (a length no host gives) would only make entries the controller refuses
// on every pass, holding the scan's completion back: both are dropped.
bool acceptedRange(const HOSTVAR& var, int* address, int* count)
{
    *address = StringAddressToInt(var.area, var.addressText);
    if (*address < 0 || *address >= ELEMENTS_PER_AREA || !isArea(var.area) || var.count < 0)
        return false;
    *count = clipToArea(*address, var.count);  // elements past the area's end do not exist
    return true;
}

int addTemplate(Rebuild* rebuild, const HOSTVAR& var, int address, int station)
{
    RW_VAR record = rebuild->pattern;
    record.auxText = var.auxText;
    record.addressText = var.addressText;
    record.area = var.area;
    record.address = address;
    record.station = station;
    record.count = var.count;
    rebuild->templates.push_back(record);
    return static_cast<int>(rebuild->templates.size()) - 1;
}

void emitGroup(PieceGroup* group, const Rebuild& rebuild)
{
    if (group->empty())
        return;
    Bubble_Sort(group);
    if (isBitArea(rebuild.templates[group->front().var].area))
        BitVarReCreat(*group, rebuild.templates);
    else
        WordVarReCreat(*group, rebuild.templates, rebuild.maxLen);
}

void rebuildSingleStation(const QList<HOSTVAR>& vars, Rebuild* rebuild, int station)
{
    PieceGroup areas[AREA_VW + 1];
    for (int i = 0; i < vars.size(); ++i) {
        const HOSTVAR& var = vars.at(i);
        int address, count;
        if (!acceptedRange(var, &address, &count))
            continue;
        const Piece whole = {address, count, addTemplate(rebuild, var, address, station)};
        WhetherGroup(count, isBitArea(var.area) ? 1 : rebuild->maxLen, whole, &areas[var.area]);
    }
    size_t pieces = 0;
    for (int area = AREA_I; area <= AREA_VW; ++area)
        pieces += areas[area].size();
    PLC_driver.readList.reserve(static_cast<int>(pieces));  // at most one entry per piece
    for (int area = AREA_I; area <= AREA_VW; ++area)
        emitGroup(&areas[area], *rebuild);
}

void rebuildMultiStation(const QList<HOSTVAR>& vars, Rebuild* rebuild)
{
    QMap<int, int> groupOfPair;  // (area, station) -> index in groups
    std::vector<PieceGroup> groups;
    for (int i = 0; i < vars.size(); ++i) {
        const HOSTVAR& var = vars.at(i);
        int address, count;
        if (!acceptedRange(var, &address, &count) || count == 0)
            continue;
        const int pair = var.area << 8 | var.station;
        QMap<int, int>::const_iterator found = groupOfPair.constFind(pair);
        if (found == groupOfPair.constEnd()) {
            found = groupOfPair.insert(pair, static_cast<int>(groups.size()));
            groups.push_back(PieceGroup());
        }
        PieceGroup& group = groups[found.value()];
        const int var_index = addTemplate(rebuild, var, address, var.station);
        cutIntoPieces(address, count, isBitArea(var.area) ? 1 : rebuild->maxLen,
                      [&](int pieceAddress, int pieceCount) {
                          const Piece piece = {pieceAddress, pieceCount, var_index};
                          group.push_back(piece);
                          return true;
                      });
    }
    // Groups come out in the order their pairs first appeared; within a
    // group, pieces at the same address keep the most recently filed first.
    size_t pieces = 0;
    for (size_t g = 0; g < groups.size(); ++g)
        pieces += groups[g].size();
    PLC_driver.readList.reserve(static_cast<int>(pieces));
    for (size_t g = 0; g < groups.size(); ++g) {
        std::reverse(groups[g].begin(), groups[g].end());
        emitGroup(&groups[g], *rebuild);
    }
}

}  // namespace

void WhetherGroup(int count, int maxLen, const Piece& whole, PieceGroup* target)
{
    if (count <= maxLen) {
        Piece piece = whole;
        piece.count = count;
        target->push_back(piece);
        return;
    }
    cutIntoPieces(whole.address, count, maxLen, [&](int address, int pieceCount) {
        const Piece piece = {address, pieceCount, whole.var};
        target->push_back(piece);
        return true;
    });
}

// Stable, so pieces at one address keep their filing order; n log n, so a
// screen of many variables does not hold the list lock for long.
void Bubble_Sort(PieceGroup* group)
{
    std::stable_sort(group->begin(), group->end(),
                     [](const Piece& a, const Piece& b) { return a.address < b.address; });
}

int ReCreatReadVarList(QList<HOSTVAR>* vars)
{
    Modbus_RTU_Master& d = PLC_driver;
    DriverLock lock(&d.listMutex);
    d.readList.clear();
    ++d.readListGeneration;
    if (vars->isEmpty())
        return 0;

    ComInfo* info = d.comInfo;
    Rebuild rebuild;
    rebuild.pattern = RW_VAR();
    rebuild.pattern.sourceType = SOURCE_TYPE_CYCLIC;
    rebuild.pattern.sourceId = SOURCE_ID_CYCLIC;
    rebuild.pattern.rwType = RW_READ;
    rebuild.pattern.remoteFlag = info->remoteMode;
    rebuild.pattern.linkId = info->localLinkId;
    rebuild.pattern.returnCode = 0;  // an output field, defined before it is copied
    rebuild.templates.reserve(vars->size());
    rebuild.maxLen = blockLength(info);

    // A completed pass is reported only once the new list has been read through.
    d.scanPosition = 0;
    setScanDone(info, 0);

    if (info->multiStation == 0)
        rebuildSingleStation(*vars, &rebuild, info->defaultStation);
    else
        rebuildMultiStation(*vars, &rebuild);
    return d.readList.size();
}
