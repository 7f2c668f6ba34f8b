// SPDX-License-Identifier: Apache-2.0
// Local files with holes: what there is to know of them, and one that is written from its start to its end, in which
// nothing is written where nothing is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>

// Whether a stream can have holes: a pipe or a device can not.
bool may_have_holes(FILE *stream);

// Whether a stream's file takes up less than it is long: it has holes then. Few files have.
bool takes_less_than_its_size(FILE *stream);

// Goes on at an offset; what is passed over is a hole.
[[nodiscard]] bool leave_hole(FILE *stream, uint64_t until);

// Writes bytes where the stream stands, but for whole pages of zeros. Return false when something was lost.
[[nodiscard]] bool write_without_zeros(FILE *stream, std::span<const std::byte> bytes);

// Gives the file its size: a hole at the end is nothing that was written.
[[nodiscard]] bool end_sparse_file(FILE *stream, uint64_t size);
