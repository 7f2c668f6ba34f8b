// SPDX-License-Identifier: Apache-2.0
// The options of dd. Numbers are added to what the option has already, digit by digit, in 32 bits that wrap: "-bs 1 -bs
// 2" means 12, and a size that does not fit means whatever is left of it.
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "tslwnfs/options/grammar.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

struct DdOption {
    std::string_view lower, upper;
    bool (*take)(const DdOption &option, const char *value);  // false: the value is wrong, and that was told
    int32_t *number = nullptr;                                // sizes and offsets
    int32_t *block = nullptr;                                 // offsets: the size of their unit
    int32_t *found = nullptr;                                 // files
    const char **operand = nullptr;                           // files
    MessageOf<> refusal = {};                                 // files: the message for a value with a hyphen
    OptionBit bit = {};
};

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

int32_t times(int32_t number, uint32_t factor) {
    return static_cast<int32_t>(static_cast<uint32_t>(number) * factor);
}

// Any character counts as a digit of its distance from "0"; only letters were ever looked at.
void add_digit(int32_t &number, char c) {
    const uint32_t digit = uint32_t{static_cast<unsigned char>(c)} - '0';
    number = static_cast<int32_t>(static_cast<uint32_t>(number) * 10 + digit);
}

// What a suffix multiplies by; 0 for an unknown one. The two-letter forms count in thousands and must stand exactly,
// in one case; otherwise the first letter decides.
uint32_t factor_of(std::string_view suffix) {
    struct Suffix {
        char letter;
        uint32_t factor;
        uint32_t thousands;  // 0 = no two-letter form
    };
    constexpr Suffix kSuffixes[] = {
        {'w', 2, 0}, {'b', 512, 0}, {'k', 1u << 10, 1000}, {'m', 1u << 20, 1000000}, {'g', 1u << 30, 1000000000},
    };
    for (const auto &known : kSuffixes) {
        const char upper = static_cast<char>(known.letter - 'a' + 'A');
        if (suffix[0] != known.letter && suffix[0] != upper) continue;
        const char lower_pair[] = {known.letter, 'b'}, upper_pair[] = {upper, 'B'};
        const bool pair = suffix == std::string_view(lower_pair, 2) || suffix == std::string_view(upper_pair, 2);
        return pair && known.thousands != 0 ? known.thousands : known.factor;
    }
    return 0;
}

bool refuse_hyphen(const DdOption &option) {
    const std::string name(option.upper);
    trace_message("get_options", Message::value_begins_with_hyphen, name.c_str());
    return false;
}

std::string read_as(int32_t number) {
    return "was read as " + std::to_string(number);
}

std::string given(const DdOption &option, std::string_view value) {
    return std::string(option.lower) + " " + std::string(value);
}

// Digits that may not appear in numbers are taken all the same, and what does not fit wraps, unless that is objected
// to. unit: what the number counts in; number: what it was read as.
void check_number(const DdOption &option, std::string_view value, std::size_t digits, uint64_t unit, int32_t number) {
    int32_t whole = 0;
    const auto read = std::from_chars(value.data(), value.data() + digits, whole);
    const bool is_whole = read.ec == std::errc() && read.ptr == value.data() + digits;
    if (is_whole && static_cast<uint64_t>(whole) * unit <= INT32_MAX) return;
    object_to(given(option, value), "is no number, or too large", read_as(number));
}

// The first letter of a suffix decides, whatever follows it.
void check_suffix(const DdOption &option, std::string_view value, std::string_view suffix) {
    const bool pair = suffix.size() == 2 && factor_of(suffix) != factor_of(suffix.substr(0, 1));
    if (suffix.size() > 1 && !pair) object_to(given(option, value), "has an unknown suffix", read_as(*option.number));
}

// An offset counts in blocks, and without a block size so far in nothing.
void check_block(const DdOption &option, std::string_view value) {
    if (*option.block != 0 || value.find_first_not_of('0') == std::string_view::npos) return;
    object_to(given(option, value), "counts in nothing, since no block size stands in front of it",
              "was read as 0: its block size must stand in front of it");
}

bool take_size(const DdOption &option, const char *value) {
    if (value[0] == '-') return refuse_hyphen(option);
    const char *c = value;
    for (; *c != '\0' && !is_letter(*c); ++c)
        add_digit(*option.number, *c);
    const auto digits = static_cast<std::size_t>(c - value);
    if (*c == '\0') {
        check_number(option, value, digits, 1, *option.number);
        return true;
    }
    const uint32_t factor = factor_of(c);
    if (factor == 0) {
        print_message(Message::unknown_suffix);
        return false;
    }
    *option.number = times(*option.number, factor);
    check_number(option, value, digits, factor, *option.number);
    check_suffix(option, value, c);
    return true;
}

bool take_common_size(const DdOption &option, const char *value) {
    if (!take_size(option, value)) return false;
    IBS = OBS = BS;
    return true;
}

// The unit is the block size known at this moment; one given later on the line changes nothing.
bool take_offset(const DdOption &option, const char *value) {
    if (value[0] == '-') return refuse_hyphen(option);
    for (const char *c = value; *c != '\0'; ++c) {
        if (!is_digit(*c)) {
            const std::string name(option.upper.substr(1));
            print_message(Message::count_not_digits, name.c_str());
            return false;
        }
        add_digit(*option.number, *c);
    }
    const auto block = static_cast<uint32_t>(*option.block);
    *option.number = times(*option.number, block);
    check_number(option, value, std::strlen(value), block, *option.number);
    check_block(option, value);
    return true;
}

bool take_file(const DdOption &option, const char *value) {
    if (value[0] == '-') {
        print_message(option.refusal);
        return false;
    }
    *option.found = 1;
    *option.operand = value;
    return true;
}

bool take_parallel(const DdOption &option, const char *value) {
    if (value[0] == '-') {
        print_message(Message::bad_parallel);
        return false;
    }
    for (const char *c = value; *c != '\0'; ++c) {
        if (!is_digit(*c)) {
            print("%s", "Enter a numerical value");
            return false;
        }
        add_digit(parallel, *c);
    }
    check_number(option, value, std::strlen(value), 1, parallel);
    nios = parallel;
    return true;
}

constexpr DdOption kOptions[] = {
    {.lower = "-bs", .upper = "-BS", .take = take_common_size, .number = &BS, .bit = kDdBs},
    {.lower = "-ibs", .upper = "-IBS", .take = take_size, .number = &IBS, .bit = kDdIbs},
    {.lower = "-obs", .upper = "-OBS", .take = take_size, .number = &OBS, .bit = kDdObs},
    {.lower = "-count", .upper = "-COUNT", .take = take_size, .number = &COUNT, .bit = kDdCount},
    {.lower = "-seek", .upper = "-SEEK", .take = take_offset, .number = &SEEK, .block = &OBS, .bit = kDdSeek},
    {.lower = "-skip", .upper = "-SKIP", .take = take_offset, .number = &SKIP, .block = &IBS, .bit = kDdSkip},
    {.lower = "-if",
     .upper = "-IF",
     .take = take_file,
     .found = &iffound,
     .operand = &fname,
     .refusal = Message::bad_if,
     .bit = kDdIf},
    {.lower = "-of",
     .upper = "-OF",
     .take = take_file,
     .found = &offound,
     .operand = &fname1,
     .refusal = Message::bad_of,
     .bit = kDdOf},
    {.lower = "-p", .upper = "-P", .take = take_parallel},
};

const DdOption *option_of(std::string_view word) {
    const auto *const option = std::find_if(std::begin(kOptions), std::end(kOptions),
                                            [&](const auto &one) { return word == one.lower || word == one.upper; });
    return option != std::end(kOptions) ? option : nullptr;
}

// What the system's own dd takes as if=FILE is written -if FILE here.
void refuse_word(const std::string &word) {
    const std::size_t equals = word.find('=');
    const std::string key = (word.starts_with('-') ? "" : "-") + word.substr(0, equals);
    const bool is_meant = equals != std::string::npos && option_of(key) != nullptr;
    terminal::note_failure(word + " is no option of this command" +
                           (is_meant ? "; write " + key + " " + word.substr(equals + 1) : ""));
}

bool take_option(Words &words) {
    const char *const word = words.take();
    const DdOption *const option = option_of(word);
    if (option == nullptr) refuse_word(word);
    if (option != nullptr && words.done()) terminal::note_failure(std::string(word) + " lacks its value");
    if (option == nullptr || words.done()) return false;
    const bool is_repeated = has_option(option->bit);
    if (!option->take(*option, words.take())) return false;
    if (is_repeated) {
        object_to(option->lower, "is given twice",
                  option->number != nullptr ? read_as(*option->number) + ": it is given twice" : "is given twice");
    }
    COMMAND_OPTION |= option->bit;
    return true;
}

}  // namespace

ParseOutcome parse_dd(Words &words) {
    const bool alone = words.total() == 2;
    if (alone) return ParseOutcome::dd_help;
    while (!words.done()) {
        if (!take_option(words)) return ParseOutcome::dd_help;
    }
    return ParseOutcome::accepted;
}
