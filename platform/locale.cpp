// SPDX-License-Identifier: Apache-2.0
#include "platform/locale.h"

#include <strings.h>

#include <clocale>
#include <string>

#include "platform/environment.h"

namespace {

constexpr std::size_t kLocaleMaximum = 64;

// The name of the locale that characters are of, by the environment's own rules; empty without one.
std::string character_locale() {
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"})
        if (const auto locale = platform_environment(name, kLocaleMaximum)) return *locale;
    return "";
}

bool may_be_utf8(const std::string &locale) {
    const std::string bare = locale.substr(0, locale.find('@'));
    const std::size_t dot = bare.find('.');
    if (dot == std::string::npos) return true;
    const char *codeset = bare.c_str() + dot + 1;
    return strcasecmp(codeset, "UTF-8") == 0 || strcasecmp(codeset, "UTF8") == 0;
}

}  // namespace

void take_locale() {
    if (std::setlocale(LC_ALL, "") != nullptr) return;
    // A single category that is not installed keeps the C library from taking any.
    const bool known = std::setlocale(LC_CTYPE, "") != nullptr;
    if (!known && may_be_utf8(character_locale())) std::setlocale(LC_CTYPE, "C.UTF-8");
}
