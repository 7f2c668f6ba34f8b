// SPDX-License-Identifier: Apache-2.0
#include "tests/support/allocation_faults.h"

#include <malloc.h>

#include <cstdint>
#include <cstdlib>
#include <new>

namespace {
std::size_t failing_bytes = 0;
AllocationFault::Kind failing_kind = AllocationFault::Kind::nothrow;
bool has_fired = false;
std::size_t allocated = 0;
std::size_t allocations_left = SIZE_MAX;
bool end_reached = false;

void *allocate(std::size_t bytes) {
    void *memory = std::malloc(bytes == 0 ? 1 : bytes);
    allocated += malloc_usable_size(memory);
    return memory;
}

void release(void *memory) {
    allocated -= malloc_usable_size(memory);
    std::free(memory);
}

void *allocate_or_throw(std::size_t bytes) {
    const bool fails = failing_kind == AllocationFault::Kind::throwing && failing_bytes != 0 && bytes == failing_bytes;
    has_fired = has_fired || fails;
    const bool ends = allocations_left == 0;
    end_reached = end_reached || ends;
    if (allocations_left != SIZE_MAX && !ends) --allocations_left;
    void *memory = fails || ends ? nullptr : allocate(bytes);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void *allocate_or_fail(std::size_t bytes) {
    if (failing_kind != AllocationFault::Kind::nothrow || failing_bytes == 0 || bytes != failing_bytes)
        return allocate(bytes);
    has_fired = true;
    return nullptr;
}
}  // namespace

AllocationFault::AllocationFault(std::size_t bytes, Kind kind) {
    failing_bytes = bytes;
    failing_kind = kind;
    has_fired = false;
}

AllocationFault::~AllocationFault() {
    failing_bytes = 0;
}

MemoryEnd::MemoryEnd(std::size_t allocations) {
    allocations_left = allocations;
    end_reached = false;
}

MemoryEnd::~MemoryEnd() {
    allocations_left = SIZE_MAX;
}

bool MemoryEnd::reached() {
    return end_reached;
}

std::size_t allocated_bytes() {
    return allocated;
}

bool AllocationFault::fired() {
    return has_fired;
}

void *operator new(std::size_t bytes) {
    return allocate_or_throw(bytes);
}
void *operator new[](std::size_t bytes) {
    return allocate_or_throw(bytes);
}
void *operator new(std::size_t bytes, const std::nothrow_t &) noexcept {
    return allocate_or_fail(bytes);
}
void *operator new[](std::size_t bytes, const std::nothrow_t &) noexcept {
    return allocate_or_fail(bytes);
}
void operator delete(void *memory) noexcept {
    release(memory);
}
void operator delete[](void *memory) noexcept {
    release(memory);
}
void operator delete(void *memory, std::size_t) noexcept {
    release(memory);
}
void operator delete[](void *memory, std::size_t) noexcept {
    release(memory);
}
