// SPDX-License-Identifier: Apache-2.0
// The encoding that a terminal of the locale understands.
#pragma once

#include <optional>
#include <string>

// A text of UTF-8 in another codeset, named as iconv(3) knows it or as locales do ("ISO-8859-1", "eucJP"). The text as
// it is when no codeset is named, when it is of ASCII alone, or when it is no UTF-8: it is then somebody's own choice.
// Nothing when the codeset is unknown or lacks a character of the text.
std::optional<std::string> text_in_codeset(const std::string &text, const std::string &codeset);
