// SPDX-License-Identifier: Apache-2.0
// Grammars of the commands on files and directories, but for dd's (dd_options.cpp).
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "tslwnfs/options/grammar.h"
#include "tslwnfs/options/option_words.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"

namespace {

bool file_letter(char letter) {
    switch (letter) {
        case 'i':
        case 'I':
            COMMAND_OPTION |= kFileInteractive;
            break;
        case 'r':
        case 'R':
            COMMAND_OPTION |= kFileRecursive;
            break;
        default:
            return false;
    }
    return true;
}

// What -f asks for elsewhere is what happens here: nobody is asked.
bool deletion_letter(char letter) {
    return file_letter(letter) || (letter == 'f' && !is_strict(Strict::options));
}

// Case matters in a listing's letters; the last of contradicting ones counts.
bool list_letter(char letter) {
    switch (letter) {
        case '1':
        case 'B':
            DIR_LTYPE = 0;
            break;
        case 'C':
            DIR_LTYPE = 1;
            break;
        case 'l':
            DIR_LTYPE = 2;
            break;
        case 'a':
            DIR_SHOWDOT = 1;
            break;
        case 'A':
            DIR_SHOWDOT = 0;
            break;
        case 't':
            DIR_LTIMETYPE = 0;
            break;
        case 'c':
            DIR_LTIMETYPE = 1;
            break;
        case 'u':
            DIR_LTIMETYPE = 2;
            break;
        case 'd':
            COMMAND_OPTION |= kListDirectoriesOnly;
            break;
        case 'e':
            COMMAND_OPTION |= kListTime;
            break;
        case 'R':
        case 'S':
            COMMAND_OPTION |= kListRecursiveBit;
            break;
        case 'r':
            COMMAND_OPTION |= kListReverse;
            break;
        case 's':
            COMMAND_OPTION |= kListSize;
            break;
        default:
            return false;
    }
    return true;
}

// One option word of stat. "c" takes the next word as the format, and the rest of its own word is not looked at.
void take_stat_option(Words &words) {
    for (const char *letter = words.take() + 1; *letter != '\0'; ++letter) {
        switch (*letter) {
            case 'f':
            case 'F':
                COMMAND_OPTION |= kStatFigures;
                break;
            case 'l':
            case 'L':
                COMMAND_OPTION |= kStatFollow;
                break;
            case 'c':
            case 'C':
                if (words.done()) {
                    object_to_lone("-c");
                    break;
                }
                COMMAND_OPTION |= kStatFormat;
                stat_fmtptr = words.take();
                return;
            default:
                object_to_letter(*letter);
                break;
        }
    }
}

// "+N" at least, "-N" at most, "N" exactly; a "k" anywhere counts in units of 1024.
void set_find_size(const char *value) {
    const bool has_sign = value[0] == '+' || value[0] == '-';
    const uint32_t factor = std::strchr(value, 'k') != nullptr ? 1024 : 1;
    const std::string_view text = value + (has_sign ? 1 : 0);
    const std::string_view digits = text.substr(0, text.size() - (text.ends_with('k') ? 1 : 0));
    const auto number = static_cast<int32_t>(std::strtol(text.data(), nullptr, 10));
    const auto size = static_cast<int32_t>(static_cast<uint32_t>(number) * factor);
    if (!is_decimal(digits) || number > INT32_MAX / static_cast<int32_t>(factor)) {
        object_to("-size " + std::string(value), "is no number with or without a k, or too large",
                  "was read as " + std::to_string(size) + " bytes");
    }
    if (value[0] == '+') {
        COMMAND_OPTION |= kFindSizeAtLeast;
        find_size_gsize = size;
    } else if (value[0] == '-') {
        COMMAND_OPTION |= kFindSizeAtMost;
        find_size_lsize = size;
    } else {
        COMMAND_OPTION |= kFindSize;
        find_size_size = size;
    }
}

constexpr SettingOption kFindOptions[] = {
    {"-follow", false, [](const char *) { COMMAND_OPTION |= kFindFollow; }},
    {"-maxdepth", true,
     [](const char *value) {
         COMMAND_OPTION |= kFindMaxdepth;
         find_maxdepth_n = decimal("-maxdepth", value);
     }},
    {"-name", true, [](const char *value) { fname1 = value; }},
    {"-path", true,
     [](const char *value) {
         COMMAND_OPTION |= kFindPath;
         find_path_pattern = value;
     }},
    {"-size", true, set_find_size},
    {"-type", true,
     [](const char *value) {
         COMMAND_OPTION |= kFindType;
         find_type_c = value[0];
         const std::string_view type = value;
         if (type == "f" || type == "d") return;
         const bool is_read = find_type_c == 'f' || find_type_c == 'd';
         object_to("-type " + std::string(type), "is no type, f or d",
                   is_read ? std::string("was read as ") + find_type_c : "is no type, f or d: nothing matches");
     }},
    {"-print", false, [](const char *) { COMMAND_OPTION |= kFindPrint; }},
};

}  // namespace

ParseOutcome parse_nothing(Words &) {
    return ParseOutcome::accepted;
}

ParseOutcome parse_help(Words &) {
    return ParseOutcome::help;
}

ParseOutcome parse_nfsids(Words &) {
    id_enabled = 1;
    return ParseOutcome::accepted;
}

ParseOutcome parse_two_files(Words &words) {
    take_letters(words, file_letter);
    return take_operands(words, 2);
}

ParseOutcome parse_delete(Words &words) {
    take_letters(words, deletion_letter);
    return take_operands(words, 1);
}

ParseOutcome parse_one_path(Words &words) {
    skip_options(words);
    return take_operands(words, 1);
}

ParseOutcome parse_mkdir(Words &words) {
    while (words.at_option()) {
        if (words.take_if("-p") || words.take_if("-P")) {
            COMMAND_OPTION |= kMkdirParents;
        } else {
            object_to_unknown(words.take());
        }
    }
    return take_operands(words, 1);
}

ParseOutcome parse_stat(Words &words) {
    while (words.at_option())
        take_stat_option(words);
    return take_operands(words, 1);
}

ParseOutcome parse_list(Words &words) {
    take_letters(words, list_letter);
    fname = words.take();
    commandtype = has_option(kListRecursiveBit) ? kListRecursive : kList;
    return ParseOutcome::accepted;
}

ParseOutcome parse_find(Words &words) {
    fname = words.take();
    fname1 = "*";
    while (words.at_option()) {
        if (words.take_if("-exec")) {
            const std::span<char *> command = words.take_rest();
            COMMAND_OPTION |= kFindExec;
            find_exec_cmdptr = command.data();
            find_exec_cmdsize = static_cast<int32_t>(command.size());
        } else {
            take_setting(words, kFindOptions);
        }
    }
    return ParseOutcome::accepted;
}
