// Constant-time lookup of per-station image entries by their key.
#ifndef LOGO_IMAGE_STATION_INDEX_H
#define LOGO_IMAGE_STATION_INDEX_H

#include <cstdint>
#include <functional>
#include <unordered_map>

// Maps (station, area, address) to the entry's index in extendVars. The list
// itself keeps its order and indexes; this only spares the linear search.
class StationIndex {
public:
    // Index of the key, or -1.
    int find(int station, int area, int address) const
    {
        Map::const_iterator it = map_.find(Key{station, area, address});
        return it == map_.end() ? -1 : it->second;
    }
    void insert(int station, int area, int address, int index) { map_[Key{station, area, address}] = index; }
    // Releases the buckets too, as the list it indexes releases its entries.
    void clear() { Map().swap(map_); }

private:
    struct Key {
        int station;
        int area;
        int address;
        bool operator==(const Key& o) const { return station == o.station && area == o.area && address == o.address; }
    };
    struct KeyHash {
        size_t operator()(const Key& k) const
        {
            uint64_t h = static_cast<uint32_t>(k.station);
            h = h * 0x9E3779B97F4A7C15ull ^ static_cast<uint32_t>(k.area);
            h = h * 0x9E3779B97F4A7C15ull ^ static_cast<uint32_t>(k.address);
            return static_cast<size_t>(h ^ (h >> 29));
        }
    };
    typedef std::unordered_map<Key, int, KeyHash> Map;
    Map map_;
};

#endif  // LOGO_IMAGE_STATION_INDEX_H
