// SPDX-License-Identifier: Apache-2.0
// The installation's message catalogues.
//
// A catalogue is a file compiled by gencat. It is looked for along NLSPATH, then as rdbms/mesg/LOCALE/NAME.cat under
// TESSEL_HOME and under the home the program stands in; the locale is that of messages, from the full form to the bare
// language, and at last "en". The first usable file counts. A file that is damaged is passed over: its offsets
// are checked before they are followed, and in the bytes that were checked, whatever becomes of the file. Texts are
// written in UTF-8 and given in the codeset that the locale names; one that this codeset cannot express is passed over
// too, so that English, which is ASCII, is shown instead of rubbish.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

class MessageCatalogue {
  public:
    explicit MessageCatalogue(std::string name) : name_(std::move(name)) {}

    // The text of a message, empty when the catalogue has none; null when no catalogue could be opened. Valid until
    // forget(). The catalogue is not kept open; texts already read are.
    const std::string *text(int number);

    // Makes the next look-up read the catalogue again, after a change of the environment.
    void forget() { texts_.clear(); }

  private:
    std::string name_;
    std::map<int, std::string> texts_;
};

// The files to try, in this order.
std::vector<std::string> catalogue_candidates(const std::string &name);

// Reads one message of one file; nothing when the file is no sound catalogue.
std::optional<std::string> read_catalogue_text(const std::string &path, int number);
