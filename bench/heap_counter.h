// Counts the heap operations of this process: every malloc, calloc,
// realloc and free (QtCore's containers and operator new included), while
// counting is switched on. Linked into a benchmark binary, it replaces the C
// library's allocator entry points for the whole process.
#ifndef LOGO_BENCH_HEAP_COUNTER_H
#define LOGO_BENCH_HEAP_COUNTER_H

#include <cstdint>

struct HeapCounts {
    uint64_t allocations = 0;  // malloc and calloc
    uint64_t reallocations = 0;
    uint64_t frees = 0;        // of a non-null pointer
    uint64_t total() const { return allocations + reallocations + frees; }
};

// Counting is off until switched on; it counts on every thread, adding to
// the counts until they are reset.
void resetHeapCounts();
void countHeapOperations(bool on);
HeapCounts heapCounts();

#endif  // LOGO_BENCH_HEAP_COUNTER_H
