// SPDX-License-Identifier: Apache-2.0
#include "tests/support/fake_tdm/fake_tdm.h"

#include <algorithm>
#include <fstream>
#include <utility>

FakeTdm &FakeTdm::instance() {
    static FakeTdm fake;
    return fake;
}

void FakeTdm::reset() {
    *this = FakeTdm();
}

void FakeTdm::answer(const std::string &operation, uint32_t nth, FakeAnswer answer) {
    if (nth == 0) {
        standing_answers_[operation] = answer;
    } else {
        answers_[{operation, nth}] = answer;
    }
}

void FakeTdm::complete_request(uint32_t nth, uint32_t status) {
    request_statuses_[nth] = status;
}

void FakeTdm::when(const std::string &operation, std::function<void()> event) {
    events_[operation] = std::move(event);
}

std::vector<std::string> FakeTdm::calls_of(const std::vector<std::string> &operations) const {
    std::vector<std::string> selected;
    for (const std::string &call : calls_) {
        const std::string operation = call.substr(0, call.find(' '));
        if (std::find(operations.begin(), operations.end(), operation) != operations.end()) selected.push_back(call);
    }
    return selected;
}

std::optional<FakeAnswer> FakeTdm::record(const std::string &operation, const std::string &arguments) {
    calls_.push_back(arguments.empty() ? operation : operation + " " + arguments);
    if (!log_file.empty()) std::ofstream(log_file, std::ios::app) << calls_.back() << '\n';
    if (const auto event = events_.extract(operation)) event.mapped()();
    const auto once = answers_.find({operation, ++call_counts_[operation]});
    if (once != answers_.end()) {
        const FakeAnswer given = once->second;
        answers_.erase(once);
        return given;
    }
    const auto standing = standing_answers_.find(operation);
    return standing == standing_answers_.end() ? std::nullopt : std::optional(standing->second);
}

std::optional<uint32_t> FakeTdm::take_request_status() {
    const auto found = request_statuses_.find(++request_count_);
    if (found == request_statuses_.end()) return std::nullopt;
    const uint32_t status = found->second;
    request_statuses_.erase(found);
    return status;
}

uint64_t FakeTdm::open(FakeNodePointer node) {
    open_files_[++last_file_] = {std::move(node), false};
    return last_file_;
}
