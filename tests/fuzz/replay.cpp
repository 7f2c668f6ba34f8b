// SPDX-License-Identifier: Apache-2.0
// Runs a fuzzer's function on files: replay_NAME FILE-OR-FOLDER ... A folder stands for the files in it, and need not
// be there; no file at all is a failure.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "tests/fuzz/fuzz.h"

namespace {

std::set<std::filesystem::path> files_of(std::span<char *const> words) {
    std::set<std::filesystem::path> files;
    for (const char *word : words) {
        if (std::filesystem::is_regular_file(word)) files.insert(word);
        if (!std::filesystem::is_directory(word)) continue;
        for (const auto &entry : std::filesystem::directory_iterator(word))
            if (entry.is_regular_file()) files.insert(entry.path());
    }
    return files;
}

void run(const std::filesystem::path &file) {
    // Seen when the run ends the program.
    static_cast<void>(std::fprintf(stderr, "%s\n", file.c_str()));
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(stream), {});
    fuzz::require(!stream.bad(), "the file can be read");
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

}  // namespace

int main(int count, char **words) {
    const auto files = files_of(std::span(words, static_cast<std::size_t>(count)).subspan(1));
    for (const auto &file : files)
        run(file);
    return files.empty() ? 1 : 0;
}
