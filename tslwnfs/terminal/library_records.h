// SPDX-License-Identifier: Apache-2.0
// The storage library's records, which go to the trace, as a source of reasons: they name the server, the request and
// what the system or the server had against it.
#pragma once

#include <string_view>

namespace terminal {

// From the library's start on, takes note of its failures, traced or not; does nothing where nobody looks.
void listen_to_library();

// One record without its line end, "[clock],name text".
void take_library_record(std::string_view record);

}  // namespace terminal
