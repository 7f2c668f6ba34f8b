// SPDX-License-Identifier: Apache-2.0
#include "platform/catalogue.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "platform/codeset.h"
#include "platform/environment.h"
#include "platform/home.h"

namespace {

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

}  // namespace

std::string message_language() {
    return LocaleParts(message_locale()).language;
}

std::vector<std::string> catalogue_candidates(const std::string &name) {
    const LocaleParts locale(message_locale());
    std::vector<std::string> paths;
    add_search_path(paths, name, locale);
    if (const auto home = platform_home("?")) add_home(paths, *home, name, locale);
    if (const auto home = platform_program_home()) add_home(paths, *home, name, locale);
    return paths;
}

const std::string *MessageCatalogue::text(int number) {
    const auto known = texts_.find(number);
    if (known != texts_.end()) return &known->second;
    const std::string codeset = LocaleParts(message_locale()).codeset;
    for (std::size_t i = 0; const CompiledCatalogue *catalogue = sound(i); ++i)
        if (auto shown = text_in_codeset(catalogue->text(number), codeset))
            return &(texts_[number] = std::move(*shown));
    return nullptr;
}

const CompiledCatalogue *MessageCatalogue::sound(std::size_t which) {
    if (candidates_.empty()) candidates_ = catalogue_candidates(name_);
    for (; sound_.size() <= which && tried_ < candidates_.size(); ++tried_)
        if (auto catalogue = CompiledCatalogue::read(candidates_[tried_])) sound_.push_back(std::move(*catalogue));
    if (sound_.empty()) forget();
    return which < sound_.size() ? &sound_[which] : nullptr;
}

void MessageCatalogue::forget() {
    texts_.clear();
    candidates_.clear();
    tried_ = 0;
    sound_.clear();
}
