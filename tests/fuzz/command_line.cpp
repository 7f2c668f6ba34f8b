// SPDX-License-Identifier: Apache-2.0
// The command line, its words ended by line feeds: the parser with all grammars, then a whole run with commands that
// only note that they were called.
//
// What the parser keeps points into the words it was given, and numbers stay in the ranges that the commands count on.
#include "tslwnfs/frontend/command_line.h"

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "platform/stream.h"
#include "tests/fuzz/fuzz.h"
#include "tests/unit/frontend/recorder.h"
#include "tslwnfs/frontend/command_table.h"
#include "tslwnfs/frontend/startup.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/streams.h"

// Stands in front of the platform's: a fuzzer must not overwrite files that its input names.
Stream open_stream(const char *, const char *) {
    return Stream(std::fopen("/dev/null", "we"));
}
bool close_stream(Stream &stream) {
    stream.reset();
    return true;
}

namespace {

using fuzz::require;

// An argument vector that owns its words.
class Vector {
  public:
    explicit Vector(fuzz::Input input) : words_{"tslwnfs"} {
        constexpr std::size_t kWordsMaximum = 100;
        while (!input.empty() && words_.size() < kWordsMaximum)
            // A word of the system's holds no zero byte.
            words_.emplace_back(std::string(input.text_until('\n')).c_str());
        for (auto &word : words_)
            pointers_.push_back(word.data());
    }
    std::span<char *> span() { return pointers_; }
    bool holds(const char *text) const {
        return std::any_of(words_.begin(), words_.end(), [text](const std::string &word) {
            return std::less_equal<>{}(word.data(), text) && std::less_equal<>{}(text, word.data() + word.size());
        });
    }

  private:
    std::vector<std::string> words_;
    std::vector<char *> pointers_;
};

void examine_parsing(Vector &words) {
    reset_options();
    if (get_options(words.span()) != ParseOutcome::accepted) return;
    require(commandtype != kNoCommand || id_enabled == 1, "an accepted line has a command, or asks for the identity");
    for (const char *operand : {fname, find_path_pattern, stat_fmtptr})
        require(operand == nullptr || words.holds(operand), "operands lie in the words");
    require(fname1 == nullptr || words.holds(fname1) || std::strcmp(fname1, "*") == 0, "operands lie in the words");
    require(std::memchr(network_discovery_name, '\0', sizeof network_discovery_name) != nullptr, "names are ended");
    for (const uint32_t level : {kgtdm_trace, nfcore_trace, snfcore_trace, tslwnfs_trace})
        require(level <= 4, "levels are 0 to 4");
    const auto commands = static_cast<std::size_t>(find_exec_cmdsize);
    require(find_exec_cmdsize >= 0 && commands <= words.span().size(), "-exec takes words of the line");
}

// Nothing of a run is to be seen, questions get no answer, and there are a home and a catalogue.
bool prepare() {
    return std::freopen("/dev/null", "w", stdout) != nullptr && std::freopen("/dev/null", "r", stdin) != nullptr &&
           setenv("TESSEL_HOME", "/home-of-nobody", 1) == 0 && setenv("NLSPATH", BUILT_CATALOGUE, 1) == 0;
}

void run(Vector &words) {
    std::clearerr(stdin);
    recorder() = {};
    recorder().listing = {"a", "b.txt", "A%s", ".", ".."};
    recorder().directories = {"/d"};
    reset_options();
    const int status = run_utility(words.span());
    require(status >= 0 && status <= 255, "the status is one that a program can end with");
    static_cast<void>(finish_output(0));
    reset_options();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    static const bool prepared = prepare();
    require(prepared, "the surroundings are set");
    Vector words{fuzz::Input(data, size)};
    examine_parsing(words);
    run(words);
    return 0;
}
