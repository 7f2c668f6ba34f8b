// SPDX-License-Identifier: Apache-2.0
// save and restore: a copy of tslnfstab beside it.
#include <string>

#include "platform/path_buffer.h"
#include "tslwnfs/client/client.h"
#include "tslwnfs/client/question.h"
#include "tslwnfs/config/tslnfstab_file.h"
#include "tslwnfs/config/whole_file.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"

namespace {

uint32_t not_opened(const char *function, const std::string &path) {
    trace_message(function, Message::file_unopenable, path.c_str());
    return 1;
}

bool is_readable(const std::string &path) {
    std::string contents;
    return read_whole_file(path.c_str(), contents);
}

bool may_overwrite(const std::string &path, const std::string &question) {
    return pass_flag != 0 || !may_exist(path.c_str()) || ask_once(question);
}

}  // namespace

uint32_t save() {
    PathBuffer path;
    if (!find_tslnfstab("save", path)) return 1;
    const std::string configuration(path.view());
    const std::string saved = configuration + ".sav";
    if (!is_readable(configuration)) return not_opened("save", configuration);
    if (!may_overwrite(saved, "File " + saved + " already exist  do you want to overwrite ?( y/n)\n")) return 1;
    ConfigurationLock lock;
    if (!lock.take("save", path)) return 1;
    // Read whole before the copy is emptied: both names may lead to one file.
    std::string contents;
    if (!read_whole_file(configuration.c_str(), contents)) return not_opened("save", configuration);
    return write_copy("save", configuration, saved, contents);
}

uint32_t restore() {
    PathBuffer path;
    if (!find_tslnfstab("restore", path)) return 1;
    const std::string configuration(path.view());
    const std::string saved = configuration + ".sav";
    std::string contents;
    if (!read_whole_file(saved.c_str(), contents)) return not_opened("restore", saved);
    // "y" is the only yes, whatever the question offers.
    if (!may_overwrite(configuration, "tslnfstab file already exists, do you want to overwrite " + configuration +
                                          " ? : (Yes/No)\n")) {
        return 1;
    }
    ConfigurationLock lock;
    if (!lock.take("restore", path)) return 1;
    // A configuration that is made by this is closed to those to whom the saved copy is.
    return replace_tslnfstab("restore", path, contents, lock, saved.c_str());
}
