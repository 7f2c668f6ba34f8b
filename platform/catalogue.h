// SPDX-License-Identifier: Apache-2.0
// The installation's message catalogues.
//
// A catalogue is a file compiled by gencat. It is looked for along NLSPATH, then as rdbms/mesg/LOCALE/NAME.cat under
// TESSEL_HOME and under the home the program stands in; the locale is that of messages, from the full form to the bare
// language, and at last "en". The first usable file counts, and is read once. A file that is damaged is passed over.
// Texts are written in UTF-8 and given in the codeset that the locale names; one that this codeset cannot express is
// passed over too, so that English, which is ASCII, is shown instead of rubbish.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/compiled_catalogue.h"

class MessageCatalogue {
  public:
    explicit MessageCatalogue(std::string name) : name_(std::move(name)) {}

    // The text of a message, empty when the catalogue has none; null when no catalogue could be read, which is tried
    // again the next time. Valid until forget().
    const std::string *text(int number);

    // Makes the next look-up read the catalogue again, after a change of the environment.
    void forget();

  private:
    // The sound ones of the files to try, in order; null behind the last.
    const CompiledCatalogue *sound(std::size_t which);

    std::string name_;
    std::map<int, std::string> texts_;  // as they are shown
    std::vector<std::string> candidates_;
    std::size_t tried_ = 0;  // candidates, from the first on
    std::vector<CompiledCatalogue> sound_;
};

// The language of messages by the locale, such as "de"; "C" and the like where it names none.
std::string message_language();

// The files to try, in this order.
std::vector<std::string> catalogue_candidates(const std::string &name);
