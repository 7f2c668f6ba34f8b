// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/transfer.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/storage/end_process.h"

namespace {

// What a failed completion reports differs between the two directions, on purpose.
enum class Reported : uint8_t { completion_count, status };

void carry_out(const char *function, RequestSlots &requests, std::size_t index, uint32_t count, Reported reported) {
    const auto number = static_cast<uint32_t>(cios);
    uint32_t status = tdm_io(ctx, requests.from(index), number, nullptr, 0, nullptr, 0, 0, 0, &count);
    if (status != 0) {
        trace_message(function, Message::request_not_submitted, status);
        end_process();
    }
    status = tdm_io(ctx, nullptr, 0, nullptr, 0, requests.from(index), number, 0, TDM_WAIT_FOREVER, &count);
    if (status != 0) {
        trace_message(function, Message::request_incomplete, reported == Reported::status ? status : count);
        end_process();
    }
    if (requests[index].status != 0) {
        trace_message(function, Message::request_incomplete, requests[index].status);
        requests.count_failure();
    }
}

}  // namespace

void tdmrqfil(TdmIoRequest &request, IoOperation operation, uint64_t file, uint64_t offset, void *buffer,
              uint32_t count) {
    request.cleared = 0;
    request.operation = static_cast<uint8_t>(operation);
    request.flags = TDM_IO_FLAGS;
    request.file = file;
    request.offset = offset;
    request.buffer = buffer;
    request.count = count;
}

bool RequestSlots::allocate(const char *function) {
    const auto asked = static_cast<std::size_t>(std::max(nios, 0));
    size_ = std::max<std::size_t>(asked, 128);
    made_ = 0;
    slots_.reset(new (std::nothrow) TdmIoRequest[size_]);
    if (slots_ == nullptr) {
        trace_message(function, Message::out_of_memory, static_cast<unsigned long>(asked * sizeof(TdmIoRequest)));
        return false;
    }
    pointers_.reset(new (std::nothrow) TdmIoRequest *[size_]);
    if (pointers_ == nullptr) {
        trace_message(function, Message::out_of_memory, static_cast<unsigned long>(asked * sizeof(TdmIoRequest *)));
        return false;
    }
    return true;
}

void RequestSlots::fill(std::size_t index, IoOperation operation, uint64_t file, uint64_t offset, void *buffer,
                        uint32_t count) {
    for (; made_ <= index; ++made_) {
        slots_[made_] = {};
        pointers_[made_] = nullptr;
    }
    tdmrqfil(slots_[index], operation, file, offset, buffer, count);
    pointers_[index] = &slots_[index];
}

bool TransferBuffer::allocate(const char *function, std::size_t bytes) {
    memory_.reset(new (std::nothrow) std::byte[bytes]());
    if (memory_ == nullptr) {
        trace_message(function, Message::out_of_memory, static_cast<unsigned long>(bytes));
        return false;
    }
    void *start = memory_.get();
    std::size_t space = bytes;
    if (std::align(kPage, 1, start, space) == nullptr) space = 0;
    aligned_ = {static_cast<std::byte *>(start), space};
    return true;
}

std::size_t readlocfile(RequestSlots &requests, std::size_t index, FILE *stream, std::size_t count) {
    errno = 0;  // a file that ends too early leaves no error
    return std::fread(requests[index].buffer, 1, count, stream);
}

std::size_t writelocfile(RequestSlots &requests, std::size_t index, FILE *stream, std::size_t count) {
    return std::fwrite(requests[index].buffer, 1, count, stream);
}

uint32_t storage_barrier() {
    uint32_t count = 0;
    return tdm_io(ctx, nullptr, 0, nullptr, 0, nullptr, 0, 0, TDM_WAIT_FOREVER, &count);
}

void readnfsfile(RequestSlots &requests, std::size_t index, uint32_t initial_count) {
    carry_out("readnfsfile", requests, index, initial_count, Reported::completion_count);
}

void writenfsfile(RequestSlots &requests, std::size_t index, uint32_t initial_count) {
    carry_out("writenfsfile", requests, index, initial_count, Reported::status);
}
