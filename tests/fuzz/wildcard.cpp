// SPDX-License-Identifier: Apache-2.0
// Wildcards: a pattern, a zero byte, a name; the first byte is the size of the buffer for the name that is built.
//
// The decision is that of the definition; the built name stays in its buffer, is terminated, and in a small buffer is
// the beginning of what a large one holds.
#include "tslwnfs/storage/wildcard.h"

#include <cstring>
#include <string>
#include <vector>

#include "tests/fuzz/fuzz.h"

namespace {

using fuzz::require;

constexpr std::size_t kTextMaximum = 260;  // characters, as the command line has it
constexpr char kGuard = '#';

// The definition, a row of answers for each character of the pattern: row[i] tells whether what was seen of the pattern
// matches the first i characters of the name.
bool matches(std::string_view pattern, std::string_view name) {
    std::vector<bool> row(name.size() + 1, false);
    row[0] = true;
    for (const char wanted : pattern) {
        std::vector<bool> next(row.size(), false);
        next[0] = row[0] && wanted == '*';
        for (std::size_t i = 1; i < row.size(); ++i)
            next[i] = wanted == '*' ? next[i - 1] || row[i] : row[i - 1] && (wanted == '?' || wanted == name[i - 1]);
        row = std::move(next);
    }
    return row.back();
}

std::string built(const std::string &pattern, const std::string &name, std::size_t room) {
    std::vector<char> buffer(room + 1, '\0');
    buffer[room] = kGuard;
    require(strwildmatch(pattern.c_str(), name.c_str(), buffer.data(), room) == 1, "a name is always built");
    require(buffer[room] == kGuard, "nothing is written behind the buffer");
    require(room == 0 || std::memchr(buffer.data(), '\0', room) != nullptr, "the built name is terminated");
    return room == 0 ? std::string() : std::string(buffer.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::size_t room = input.byte();
    std::string pattern(input.text_until('\0').substr(0, kTextMaximum));
    const std::string name(input.text_until('\0').substr(0, kTextMaximum));

    const bool matched = strwildcmp(pattern.c_str(), name.c_str()) == 1;
    constexpr std::size_t kSmall = 1000;  // pairs of characters; the definition looks at each
    require(pattern.size() * name.size() > kSmall || matched == matches(pattern, name), "the definition decides");
    const std::string whole = built(pattern, name, 2 * kTextMaximum + 1);
    require(whole.size() <= pattern.size() + 2 * name.size(), "a built name is made of its pattern and its name");
    require(built(pattern, name, room) == whole.substr(0, room == 0 ? 0 : room - 1), "a small buffer holds the front");

    const std::string before = pattern;
    require(tolower_string(pattern.data()) == pattern.data(), "a text is lowered in place");
    require(pattern.size() == before.size(), "lowering keeps the length");
    return 0;
}
