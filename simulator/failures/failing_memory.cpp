#include "failures/failing_memory.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

#include "failures/counted_costs.h"
#include "failures/daemon_asks.h"

namespace {

std::atomic<bool> g_armed = false;
std::atomic<std::size_t> g_left = 0;
std::atomic<bool> g_refused = false;

bool refuses() {
    counted_costs::count("allocation");
    if (!g_armed.load() || !daemon_asks() || g_left.fetch_sub(1) != 1) {
        return false;
    }
    g_armed = false;
    g_refused = true;
    return true;
}

}  // namespace

namespace failing_memory {

void refuse(std::size_t number) {
    g_armed = false;
    g_refused = false;
    g_left = number;
    g_armed = number > 0;
}

bool has_refused() {
    return g_refused;
}

}  // namespace failing_memory

// The library makes those for arrays and alignments out of these, or its own.
void* operator new(std::size_t size) {
    void* const memory = refuses() ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return refuses() ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
