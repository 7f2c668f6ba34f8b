// SPDX-License-Identifier: Apache-2.0
// The fake as a library of its own, for runs of the whole program. The environment tells it what to do:
//   FAKE_TDM_ROOT        folder whose content stands under /m; what the program did is written back when it ends
//   FAKE_TDM_BLOCK_SIZE  block size that tdm_discover reports
//   FAKE_TDM_LOG         file that receives the calls, a line each
//   FAKE_TDM_FAIL        answers, "operation:nth:status[:location],..."; the operation "request" stands for the nth
//                        I/O request
#include <cstdlib>
#include <sstream>
#include <string>

#include "tests/support/fake_tdm/fake_tdm.h"

namespace {

std::string setting(const char *name) {
    const char *value = std::getenv(name);
    return value == nullptr ? "" : value;
}

uint32_t number(const std::string &text) {
    return static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
}

void set_answer(FakeTdm &fake, const std::string &text) {
    std::istringstream fields(text);
    std::string operation;
    std::string nth;
    std::string status;
    std::string location;
    std::getline(fields, operation, ':');
    std::getline(fields, nth, ':');
    std::getline(fields, status, ':');
    if (operation == "request") {
        fake.complete_request(number(nth), number(status));
        return;
    }
    FakeAnswer answer = {.status = number(status), .location = std::nullopt};
    if (std::getline(fields, location, ':')) answer.location = number(location);
    fake.answer(operation, number(nth), answer);
}

class Environment {
  public:
    Environment() : root_(setting("FAKE_TDM_ROOT")) {
        FakeTdm &fake = FakeTdm::instance();
        fake.log_file = setting("FAKE_TDM_LOG");
        const std::string block_size = setting("FAKE_TDM_BLOCK_SIZE");
        if (!block_size.empty()) fake.block_size = number(block_size);
        std::istringstream answers(setting("FAKE_TDM_FAIL"));
        for (std::string answer; std::getline(answers, answer, ',');) {
            set_answer(fake, answer);
        }
        if (!root_.empty()) fake.volume.load(root_);
    }

    ~Environment() {
        if (!root_.empty()) FakeTdm::instance().volume.store(root_);
    }

    Environment(const Environment &) = delete;
    Environment &operator=(const Environment &) = delete;

  private:
    std::string root_;
};

const Environment environment;

}  // namespace
