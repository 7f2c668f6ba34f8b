// SPDX-License-Identifier: Apache-2.0
// The storage library's records, which go to the trace, as a source of reasons: they name the server, the request and
// what the system or the server had against it.
#pragma once

#include <string_view>

#include "include/tdm.h"

namespace terminal {

// Gives the context to start the library with: one that passes every record on to context while that traces, and takes
// note of the failures among them. Both last as long as the process; context itself when nobody listens.
TdmProductContext *listen_to_library(TdmProductContext &context);

// One record without its line end, "[clock],name text".
void take_library_record(std::string_view record);

}  // namespace terminal
