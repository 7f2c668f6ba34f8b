// SPDX-License-Identifier: Apache-2.0
// Where the storage library stands in an installation: "lib" holds it, and a copy in a directory of its own is what
// makes the client count as enabled.
#pragma once

constexpr char kLibrarySource[] = "/lib/libnfstdm.so";
constexpr char kLibraryDirectory[] = "/rdbms/lib/tdm";
constexpr char kLibraryCopy[] = "/rdbms/lib/tdm/libnfstdm.so";
