#include "heap_counter.h"

#include <atomic>
#include <cstddef>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void __libc_free(void* pointer);
}

namespace {

std::atomic<bool> g_counting{false};
std::atomic<uint64_t> g_allocations{0};
std::atomic<uint64_t> g_reallocations{0};
std::atomic<uint64_t> g_frees{0};

void count(std::atomic<uint64_t>& counter)
{
    if (g_counting.load(std::memory_order_relaxed))
        counter.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

extern "C" {

void* malloc(size_t size)
{
    count(g_allocations);
    return __libc_malloc(size);
}

void* calloc(size_t count_, size_t size)
{
    count(g_allocations);
    return __libc_calloc(count_, size);
}

void* realloc(void* pointer, size_t size)
{
    count(g_reallocations);
    return __libc_realloc(pointer, size);
}

void free(void* pointer)
{
    if (pointer)
        count(g_frees);
    __libc_free(pointer);
}

}  // extern "C"

void resetHeapCounts()
{
    g_allocations = 0;
    g_reallocations = 0;
    g_frees = 0;
}

void countHeapOperations(bool on) { g_counting = on; }

HeapCounts heapCounts()
{
    HeapCounts counts;
    counts.allocations = g_allocations;
    counts.reallocations = g_reallocations;
    counts.frees = g_frees;
    return counts;
}
