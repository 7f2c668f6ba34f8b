// SPDX-License-Identifier: Apache-2.0
#include "platform/catalogue.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/codeset.h"
#include "platform/descriptor.h"
#include "platform/environment.h"
#include "platform/home.h"

namespace {

constexpr uint32_t kStoredSet = 2;              // set 1: the numbers of sets are stored one higher
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
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
    if (status.st_size <= 0 || static_cast<std::size_t>(status.st_size) > kFileMaximum) return {};
    std::vector<char> bytes(static_cast<std::size_t>(status.st_size));
    const ssize_t got = read(file.get(), bytes.data(), bytes.size());
    if (got != static_cast<ssize_t>(bytes.size())) bytes.clear();
    return bytes;
}

// A compiled catalogue in the GNU C library's layout, in the byte order of the host: magic, width and depth of a hash
// table, the table of (set, message, offset) twice, once for each byte order, then the texts. It is small, so the table
// is searched from its beginning.
class CompiledCatalogue {
  public:
    explicit CompiledCatalogue(std::vector<char> bytes) : bytes_(std::move(bytes)) {}

    // True when every offset stays inside the bytes.
    bool is_sound() {
        constexpr uint32_t kMagic = 0x960408de;
        uint32_t header[3];
        if (bytes_.size() < kHeader || bytes_.back() != '\0') return false;
        std::memcpy(header, bytes_.data(), kHeader);
        slots_ = uint64_t{header[1]} * header[2];
        if (header[0] != kMagic || slots_ == 0 || slots_ > kFileMaximum) return false;
        texts_ = kHeader + 2 * slots_ * kSlot;
        if (texts_ >= bytes_.size()) return false;
        for (uint64_t i = 0; i < slots_; ++i)
            if (slot(i).offset >= bytes_.size() - texts_) return false;
        return true;
    }

    // The text of a message of a sound catalogue; empty when it has none.
    std::string text(uint32_t set, uint32_t message) const {
        for (uint64_t i = 0; i < slots_; ++i) {
            const Slot one = slot(i);
            if (one.set == set && one.message == message) return bytes_.data() + texts_ + one.offset;
        }
        return {};
    }

  private:
    struct Slot {
        uint32_t set, message, offset;
    };
    static constexpr std::size_t kHeader = 3 * sizeof(uint32_t), kSlot = sizeof(Slot);

    Slot slot(uint64_t number) const {
        Slot one;
        std::memcpy(&one, bytes_.data() + kHeader + number * kSlot, kSlot);
        return one;
    }

    std::vector<char> bytes_;
    uint64_t slots_ = 0, texts_ = 0;
};

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
    // What was judged is what is read: the file may be another one a moment later.
    CompiledCatalogue catalogue(read_file(path));
    if (!catalogue.is_sound()) return std::nullopt;
    return catalogue.text(kStoredSet, static_cast<uint32_t>(number));
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
