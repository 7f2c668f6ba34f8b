// SPDX-License-Identifier: Apache-2.0
// The transfer helpers: request slots, the page-aligned buffer, and moving one request's data between memory and a
// file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>

#include "include/tdm.h"

enum class IoOperation : uint8_t { read = TDM_IO_READ, write = TDM_IO_WRITE };

// Fills one request. The bytes that belong to the library are left alone. buffer is page aligned and must outlive the
// request's completion; offset and count are bytes.
void tdmrqfil(TdmIoRequest &request, IoOperation operation, uint64_t file, uint64_t offset, void *buffer,
              uint32_t count);

// The request slots of one transfer and the pointers to them that tdm_io takes.
class RequestSlots {
  public:
    // Transfers wrap from slot 126 to slot 0, however many slots there are.
    static constexpr std::size_t kRound = 127;

    // Allocates nios slots, and no fewer than 128 so that the wrap stays inside. Traces message 65060 in the name of
    // function and returns false when there is no memory. A slot takes memory once it is filled: nobody waits for a
    // million of them to be cleared who needs two.
    [[nodiscard]] bool allocate(const char *function);

    std::size_t size() const { return size_; }
    TdmIoRequest &operator[](std::size_t index) { return slots_[index]; }

    // Fills a slot and stores its address in the list of pointers. A slot that was not filled yet has no content.
    void fill(std::size_t index, IoOperation operation, uint64_t file, uint64_t offset, void *buffer, uint32_t count);

    // The pointers from one slot on, as tdm_io takes them. Valid until the slots are destroyed.
    TdmIoRequest *const *from(std::size_t index) const { return pointers_.get() + index; }

    // Requests that completed with a status other than 0. A transfer goes on after one, so whoever is about to delete
    // the source asks here first.
    uint64_t failures() const { return failures_; }
    void count_failure() { ++failures_; }

  private:
    std::unique_ptr<TdmIoRequest[]> slots_;
    std::unique_ptr<TdmIoRequest *[]> pointers_;
    std::size_t size_ = 0;
    std::size_t made_ = 0;  // slots, from the first on
    uint64_t failures_ = 0;
};

// A zeroed buffer whose start is page aligned.
class TransferBuffer {
  public:
    static constexpr std::size_t kPage = 4096;

    // Allocates bytes and gives the part from the first page boundary on: up to kPage - 1 bytes less. Traces message
    // 65060 in the name of function and returns false when there is no memory.
    [[nodiscard]] bool allocate(const char *function, std::size_t bytes);

    // The size a transfer by pieces of piece_size bytes asks for: a whole piece fits behind the boundary.
    static constexpr std::size_t size_for(std::size_t piece_size) { return 2 * (piece_size + 2048); }

    bool allocated() const { return memory_ != nullptr; }
    std::byte *data() const { return aligned_.data(); }
    std::span<std::byte> bytes() const { return aligned_; }

  private:
    std::unique_ptr<std::byte[]> memory_;
    std::span<std::byte> aligned_;
};

// Moves up to count bytes between a local stream and the buffer of one request. Return the number of bytes moved.
std::size_t readlocfile(RequestSlots &requests, std::size_t index, FILE *stream, std::size_t count);
std::size_t writelocfile(RequestSlots &requests, std::size_t index, FILE *stream, std::size_t count);

// Waits until every write that the library accepted is on stable storage, and makes what is asked next be asked of the
// servers. Returns the status of the first write that failed.
[[nodiscard]] uint32_t storage_barrier();

// Of the requests in a list: what completion counts begin with.
constexpr uint32_t kNoneCompleted = 0;

// Carry out the request in one slot and wait for it. initial_count seeds the completion count. A request that
// completes with a status is traced (message 65065) and counted, and the call returns; when the library refuses the
// submission (65070) or the completion (65065), the process ends with exit status 1.
void readnfsfile(RequestSlots &requests, std::size_t index, uint32_t initial_count);
void writenfsfile(RequestSlots &requests, std::size_t index, uint32_t initial_count);
