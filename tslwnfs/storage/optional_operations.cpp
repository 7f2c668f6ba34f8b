// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/optional_operations.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "tslwnfs/options/options.h"

#pragma weak tdm_copy
#pragma weak tdm_createwith
#pragma weak tdm_expect
#pragma weak tdm_extent
#pragma weak tdm_known
#pragma weak tdm_learn
#pragma weak tdm_lend
#pragma weak tdm_written

uint32_t copy_by_server(const ServerCopyRange &range, uint64_t &copied) {
    if (&tdm_copy == nullptr) return ENOTSUP;
    return tdm_copy(ctx, range.source, range.source_offset, range.destination, range.destination_offset, range.count,
                    &copied);
}

bool can_create_with_content() {
    return &tdm_createwith != nullptr;
}

uint32_t create_with_content(const char *path, std::span<const std::byte> content, std::span<char> text,
                             TdmFileInfo &info) {
    if (!can_create_with_content()) return ENOTSUP;
    return tdm_createwith(ctx, path, content.data(), static_cast<uint32_t>(content.size()), text.data(),
                          static_cast<uint32_t>(text.size()), &info);
}

void expect_attributes(const char *path) {
    if (&tdm_expect != nullptr) static_cast<void>(tdm_expect(ctx, path, TDM_EXPECT_ATTRIBUTES));
}

void expect_use(const char *path) {
    if (&tdm_expect != nullptr && *path != '\0') static_cast<void>(tdm_expect(ctx, path, TDM_EXPECT_USE));
}

void expect_content(const char *path) {
    if (&tdm_expect != nullptr) static_cast<void>(tdm_expect(ctx, path, TDM_EXPECT_CONTENT));
}

bool expect_deletion(const char *path) {
    return &tdm_expect != nullptr && tdm_expect(ctx, path, TDM_EXPECT_DELETE) == 0;
}

std::string known_of(const char *path) {
    std::array<char, std::size_t{16} << 10> record;  // a deeper path than has room is not worth it
    uint32_t size = 0;
    const bool told = &tdm_known != nullptr && tdm_known(ctx, path, record.data(), record.size(), &size) == 0;
    return told ? std::string(record.data(), size) : std::string();
}

void learn_known(std::string_view record) {
    if (&tdm_learn == nullptr || record.empty()) return;
    static_cast<void>(tdm_learn(ctx, record.data(), static_cast<uint32_t>(record.size())));
}

std::span<const std::byte> lend_bytes(uint64_t file, uint64_t offset, uint32_t most) {
    const void *bytes = nullptr;
    uint32_t count = 0;
    if (&tdm_lend == nullptr || tdm_lend(ctx, file, offset, most, &bytes, &count) != 0) return {};
    return {static_cast<const std::byte *>(bytes), std::min(count, most)};
}

uint32_t next_extent(uint64_t file, uint64_t offset, uint64_t &begin, uint64_t &end) {
    if (&tdm_extent == nullptr) return ENOTSUP;
    return tdm_extent(ctx, file, offset, &begin, &end);
}

uint32_t written_so_far(uint64_t file, uint32_t milliseconds, uint64_t &end) {
    if (&tdm_written == nullptr) return ENOTSUP;
    return tdm_written(ctx, file, milliseconds, &end);
}
