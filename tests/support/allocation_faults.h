// SPDX-License-Identifier: Apache-2.0
// Makes an allocation fail, and counts what is allocated. A program that links allocation_faults.cpp has its own
// operators new and delete for that.
#pragma once

#include <cstddef>

// While one lives, the allocations of exactly this many bytes that may fail (nothrow, arrays and single objects alike)
// fail; with Kind::throwing, those that throw.
class AllocationFault {
  public:
    enum class Kind { nothrow, throwing };
    explicit AllocationFault(std::size_t bytes, Kind kind = Kind::nothrow);
    ~AllocationFault();
    AllocationFault(const AllocationFault &) = delete;
    AllocationFault &operator=(const AllocationFault &) = delete;

    static bool fired();
};

// While one lives, memory ends after so many more allocations that may throw.
class MemoryEnd {
  public:
    explicit MemoryEnd(std::size_t allocations);
    ~MemoryEnd();
    MemoryEnd(const MemoryEnd &) = delete;
    MemoryEnd &operator=(const MemoryEnd &) = delete;

    static bool reached();
};

// Bytes that operator new gave and that were not given back.
std::size_t allocated_bytes();
