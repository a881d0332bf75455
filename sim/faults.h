// Decides which requests a fault rule spoils.
#ifndef LOGOSIM_FAULTS_H
#define LOGOSIM_FAULTS_H

#include <cstdint>
#include <random>
#include <vector>

#include "sim/simulator.h"

namespace logosim {

// Not thread-safe: the server holds it under its own lock.
class FaultPlan {
public:
    explicit FaultPlan(unsigned seed) : rng_(seed) {}
    void set(std::vector<FaultSpec> faults);
    // The rule that fires for the next request to this station, or null.
    // Every rule that applies to the station counts the request, so one
    // rule's firing does not shift another's every-Nth rhythm.
    const FaultSpec* next(uint8_t station);

private:
    struct Entry {
        FaultSpec rule;
        uint64_t seen = 0;
    };
    std::vector<Entry> entries_;
    std::mt19937 rng_;

    bool fires(Entry& entry);
};

}  // namespace logosim

#endif  // LOGOSIM_FAULTS_H
