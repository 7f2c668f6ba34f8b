// SPDX-License-Identifier: Apache-2.0
#include "platform/catalogue.h"

#include <fcntl.h>
#include <nl_types.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

#include "platform/codeset.h"
#include "platform/environment.h"
#include "platform/home.h"

namespace {

constexpr int kSet = 1;
constexpr std::size_t kFileMaximum = 1u << 20;  // bytes; a catalogue takes a few thousand
constexpr std::size_t kLocaleMaximum = 64;

// The locale of messages by the environment's own rules. It need not be installed: a catalogue of that name is enough.
std::string message_locale() {
    for (const char *name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const auto locale = platform_environment(name, kLocaleMaximum);
        if (locale) return locale->find('/') == std::string::npos && !locale->starts_with('.') ? *locale : "";
    }
    return "";
}

// "de_AT.UTF-8@euro" in its parts.
struct LocaleParts {
    std::string whole, language, territory, codeset;

    explicit LocaleParts(const std::string &locale) : whole(locale) {
        const std::string bare = locale.substr(0, locale.find('@'));
        const std::size_t dot = std::min(bare.find('.'), bare.size());
        const std::size_t underscore = std::min(bare.find('_'), dot);
        language = bare.substr(0, underscore);
        if (underscore < dot) territory = bare.substr(underscore + 1, dot - underscore - 1);
        if (dot < bare.size()) codeset = bare.substr(dot + 1);
    }
};

// One template of NLSPATH with its markers replaced; an empty template is the name alone.
std::string expand_template(std::string_view text, const std::string &name, const LocaleParts &locale) {
    if (text.empty()) return name;
    std::string path;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%' || i + 1 == text.size()) {
            path += text[i];
            continue;
        }
        switch (text[++i]) {
            case 'N':
                path += name;
                break;
            case 'L':
                path += locale.whole;
                break;
            case 'l':
                path += locale.language;
                break;
            case 't':
                path += locale.territory;
                break;
            case 'c':
                path += locale.codeset;
                break;
            case '%':
                path += '%';
                break;
            default:
                break;
        }
    }
    return path;
}

void add_search_path(std::vector<std::string> &paths, const std::string &name, const LocaleParts &locale) {
    const char *value = secure_getenv("NLSPATH");
    if (value == nullptr || value[0] == '\0') return;
    for (std::string_view rest = value;;) {
        const std::size_t colon = rest.find(':');
        std::string path = expand_template(rest.substr(0, colon), name, locale);
        // The C library searches for a name without a slash; what stands here is a file already.
        if (path.find('/') == std::string::npos) path.insert(0, "./");
        paths.push_back(std::move(path));
        if (colon == std::string_view::npos) return;
        rest.remove_prefix(colon + 1);
    }
}

void add_home(std::vector<std::string> &paths, const std::string &home, const std::string &name,
              const LocaleParts &locale) {
    std::vector<std::string> locales;
    if (!locale.whole.empty()) locales.push_back(locale.whole);
    if (!locale.territory.empty()) {
        locales.push_back(std::string(locale.language).append("_").append(locale.territory));
    }
    if (!locale.language.empty()) locales.push_back(locale.language);
    locales.emplace_back("en");
    for (const auto &one : locales) {
        paths.push_back(std::string(home).append("/rdbms/mesg/").append(one).append("/").append(name).append(".cat"));
    }
}

// The whole of a regular file of a sensible size; empty otherwise. Opened without waiting: the name may be a pipe's.
std::vector<char> read_file(const std::string &path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) return {};
    std::vector<char> bytes;
    struct stat status;
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0 &&
        static_cast<std::size_t>(status.st_size) <= kFileMaximum) {
        bytes.resize(static_cast<std::size_t>(status.st_size));
        const ssize_t got = read(descriptor, bytes.data(), bytes.size());
        if (got != static_cast<ssize_t>(bytes.size())) bytes.clear();
    }
    close(descriptor);
    return bytes;
}

// True when every offset of a compiled catalogue stays inside it. The GNU C library's layout, in the byte order of the
// host: magic, width and depth of a hash table, the table of (set, message, offset) twice, once for each byte order,
// then the texts.
bool is_sound(std::span<const char> bytes) {
    constexpr uint32_t kMagic = 0x960408de;
    constexpr std::size_t kHeader = 3 * sizeof(uint32_t), kSlot = 3 * sizeof(uint32_t);
    uint32_t header[3];
    if (bytes.size() < kHeader || bytes.back() != '\0') return false;
    std::memcpy(header, bytes.data(), kHeader);
    const uint64_t slots = uint64_t{header[1]} * header[2];
    if (header[0] != kMagic || slots == 0 || slots > kFileMaximum) return false;
    const uint64_t texts = kHeader + 2 * slots * kSlot;
    if (texts >= bytes.size()) return false;
    for (uint64_t slot = 0; slot < slots; ++slot) {
        uint32_t entry[3];
        std::memcpy(entry, bytes.data() + kHeader + slot * kSlot, kSlot);
        if (entry[2] >= bytes.size() - texts) return false;
    }
    return true;
}

}  // namespace

std::vector<std::string> catalogue_candidates(const std::string &name) {
    const LocaleParts locale(message_locale());
    std::vector<std::string> paths;
    add_search_path(paths, name, locale);
    if (const auto home = platform_home("?")) add_home(paths, *home, name, locale);
    if (const auto home = platform_program_home()) add_home(paths, *home, name, locale);
    return paths;
}

std::optional<std::string> read_catalogue_text(const std::string &path, int number) {
    if (!is_sound(read_file(path))) return std::nullopt;
    const nl_catd catalogue = catopen(path.c_str(), NL_CAT_LOCALE);
    if (reinterpret_cast<intptr_t>(catalogue) == -1) return std::nullopt;
    std::string text = catgets(catalogue, kSet, number, "");
    catclose(catalogue);
    return text;
}

const std::string *MessageCatalogue::text(int number) {
    const auto known = texts_.find(number);
    if (known != texts_.end()) return &known->second;
    const std::string codeset = LocaleParts(message_locale()).codeset;
    for (const auto &path : catalogue_candidates(name_)) {
        const auto text = read_catalogue_text(path, number);
        if (!text) continue;
        if (auto shown = text_in_codeset(*text, codeset)) return &(texts_[number] = std::move(*shown));
    }
    return nullptr;
}
