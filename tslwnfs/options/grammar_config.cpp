// SPDX-License-Identifier: Apache-2.0
// Grammars of the commands on tslnfstab. All read from fixed positions.
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "tslwnfs/options/grammar.h"
#include "tslwnfs/options/option_words.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/options/server_block.h"
#include "tslwnfs/options/strict.h"

namespace {

constexpr std::size_t kFirstOperand = 2;  // word index

// mount is given one local address and one path, in two options.
LocalPathPair &mount_pair() {
    if (!new_sinfo.pairs) new_sinfo.pairs.emplace(1);
    return new_sinfo.pairs->front();
}

// A name has the number 0, which is root's: worth a word before it is presented to a server.
uint32_t identity_number(const char *option, const char *value) {
    return unsigned_decimal(option, value, "is no number and is written as");
}

constexpr SettingOption kMountOptions[] = {
    {"-f", false, [](const char *) { new_sinfo.replace = true; }},
    {"-u", true, [](const char *value) { new_sinfo.uid = identity_number("-u", value); }},
    {"-g", true, [](const char *value) { new_sinfo.gid = identity_number("-g", value); }},
    {"-s", true, [](const char *value) { new_sinfo.server = value; }},
    {"-p", true, [](const char *value) { mount_pair().path = value; }},
    {"-l", true, [](const char *value) { mount_pair().local = value; }},
};

// The pieces of a text between separators; an empty text is one empty piece.
std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    for (;;) {
        const std::size_t end = text.find(separator);
        pieces.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) return pieces;
        text.remove_prefix(end + 1);
    }
}

// Calls add with the fields of each entry of a list; empty entries are skipped.
template <class Add>
void for_each_entry(std::string_view list, Add add) {
    for (const auto &entry : split(list, ';')) {
        if (!entry.empty()) add(split(entry, ','));
    }
}

// Fields alternate between local and path, so that a third one replaces the first.
void add_pairs(const char *list) {
    if (!tab_info.pairs) tab_info.pairs.emplace();
    for_each_entry(list, [](const std::vector<std::string> &fields) {
        LocalPathPair pair{"", ""};
        for (std::size_t i = 0; i < fields.size(); ++i)
            (i % 2 == 0 ? pair.local : pair.path) = fields[i];
        tab_info.pairs->push_back(std::move(pair));
    });
}

void add_exports(const char *list) {
    if (!tab_info.exports) tab_info.exports.emplace();
    for_each_entry(list, [](const std::vector<std::string> &fields) {
        ExportEntry entry{fields[0], fields.size() > 1 ? fields[1] : "", std::nullopt};
        if (fields.size() > 2) entry.security = fields[2];
        tab_info.exports->push_back(std::move(entry));
    });
}

constexpr SettingOption kServerOptions[] = {
    {"-u", true, [](const char *value) { tab_info.uid = identity_number("-u", value); }},
    {"-g", true, [](const char *value) { tab_info.gid = identity_number("-g", value); }},
    {"-s", true, [](const char *value) { tab_info.server = value; }},
    {"-lp", true, add_pairs},
    {"-em", true, add_exports},
    {"-v", true, [](const char *value) { tab_info.version = value; }},
    {"-t", true,
     [](const char *value) {
         unsigned_decimal("-t", value);
         tab_info.mnt_timeout = value;
     }},
    {"-r", true,
     [](const char *value) {
         unsigned_decimal("-r", value);
         tab_info.rdmaport = value;
     }},
    {"-c", true, [](const char *value) { tab_info.community = value; }},
    {"-sd", true, [](const char *value) { tab_info.security_default = value; }},
    {"-m", true, [](const char *value) { tab_info.management = value; }},
};

// Of a script's words, those behind the named options go to their targets; every other word is skipped. All targets
// must be set in the end.
ParseOutcome take_script_values(Words &words, std::span<const ValueOption> options) {
    words.move_to(kFirstOperand);
    while (!words.done()) {
        const ValueOption *known = nullptr;
        for (const auto &option : options) {
            if (words.is(option.word)) known = &option;
        }
        const char *word = words.take();
        if (known == nullptr) {
            object_to_unknown(word);
        } else if (!words.done()) {
            *known->target = words.take();
        }
    }
    for (const auto &option : options) {
        if (*option.target == nullptr) return ParseOutcome::usage;
    }
    return ParseOutcome::accepted;
}

// "HOST:EXPORT DIRECTORY", perhaps behind options, is how the system's own mount is called; here it describes nothing
// that could be used.
void object_to_system_mount(Words words) {
    while (words.at_option())
        words.move_to(words.total() - words.left() + 2);
    const std::string_view source = words.done() ? "" : words.take();
    const std::size_t colon = source.find(":/");
    if (colon == std::string_view::npos || colon == 0 || words.done()) return;
    const std::string line = "tslwnfs createtslnfstab -s " + std::string(source.substr(0, colon)) + " -em \"" +
                             std::string(source.substr(colon + 1)) + "," + words.take() + "\"";
    object_to(source, "is no export of a server: " + line, "is written as an export; what was meant is: " + line);
}

}  // namespace

ParseOutcome parse_mount(Words &words) {
    new_sinfo = {};
    words.move_to(kFirstOperand);
    object_to_system_mount(words);
    fname = words.take();
    fname1 = words.take();
    while (words.at_option())
        take_setting(words, kMountOptions);
    return ParseOutcome::accepted;
}

ParseOutcome parse_umount(Words &words) {
    words.move_to(kFirstOperand);
    fname = words.take();
    return ParseOutcome::accepted;
}

ParseOutcome parse_createtslnfstab(Words &words) {
    tab_info = {};
    words.move_to(kFirstOperand);
    while (words.at_option())
        take_setting(words, kServerOptions);
    return ParseOutcome::accepted;
}

ParseOutcome parse_server(Words &words) {
    const ValueOption options[] = {{"-s", &fname}};
    words.move_to(kFirstOperand);
    return take_value_options(words, options);
}

ParseOutcome parse_enablerdma(Words &words) {
    const ValueOption options[] = {{"-s", &fname}, {"-p", &fname1}};
    words.move_to(kFirstOperand);
    const ParseOutcome outcome = take_value_options(words, options);
    return outcome == ParseOutcome::accepted && fname == nullptr ? ParseOutcome::usage : outcome;
}

ParseOutcome parse_mount_script(Words &words) {
    const ValueOption options[] = {{"-e", &fname}, {"-m", &fname1}};
    return take_script_values(words, options);
}

ParseOutcome parse_umount_script(Words &words) {
    const ValueOption options[] = {{"-m", &fname}};
    return take_script_values(words, options);
}
