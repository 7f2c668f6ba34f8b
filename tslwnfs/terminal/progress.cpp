// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/progress.h"

#include <algorithm>
#include <cstdio>
#include <span>
#include <vector>

#include "tslwnfs/terminal/screen.h"
#include "tslwnfs/terminal/text.h"
#include "tslwnfs/terminal/translation.h"

namespace terminal {
namespace {

constexpr auto kFirst = std::chrono::seconds(1);
constexpr auto kInterval = FilesProgress::kInterval;
constexpr auto kRecent = std::chrono::seconds(5);  // a rate is that of these
constexpr std::size_t kNameColumns = 12;           // of a name that are worth less room for the rest

std::atomic<uint64_t> counted_here = 0;
std::atomic<uint64_t> *counter = &counted_here;

std::string time_text(uint64_t seconds) {
    constexpr uint64_t kMinute = 60, kHour = 3600;
    char text[32];
    if (seconds < kHour) {
        std::snprintf(text, sizeof text, "%u:%02u", static_cast<unsigned>(seconds / kMinute),
                      static_cast<unsigned>(seconds % kMinute));
    } else {
        std::snprintf(text, sizeof text, "%llu:%02u:%02u", static_cast<unsigned long long>(seconds / kHour),
                      static_cast<unsigned>(seconds % kHour / kMinute), static_cast<unsigned>(seconds % kMinute));
    }
    return text;
}

// Nothing while nothing was transferred: then nobody knows.
std::string time_left(uint64_t done, uint64_t total, double rate) {
    using Seconds = std::chrono::duration<double>;
    constexpr Seconds kLongest{1e6};  // eleven days
    const Seconds left{rate > 0 ? static_cast<double>(total - done) / rate : kLongest.count()};
    if (left >= kLongest) return {};
    const auto rounded = std::chrono::round<std::chrono::seconds>(left);
    return "  " + in_words("{1} left", {time_text(static_cast<uint64_t>(rounded.count()))});
}

// The name, and as much of what there is to tell as there are columns for: the tails tell less and less.
std::string line_of(std::string_view name, std::span<const std::string> tails, std::size_t columns) {
    const std::size_t wanted = std::min(columns_of(name), kNameColumns);
    const auto fits = [&](const auto &tail) { return columns_of(tail) + wanted <= columns; };
    const auto tail = std::ranges::find_if(tails, fits);
    const std::string &shown = tail != tails.end() ? *tail : tails.back();
    const std::size_t width = columns_of(shown);
    return width <= columns ? fitted(name, columns - width) + shown : std::string();
}

// What stands behind the name, the fullest first.
std::vector<std::string> tails_of(uint64_t done, uint64_t total, double rate) {
    const std::string speed = "  " + bytes_text(static_cast<uint64_t>(rate)) + "/s";
    if (total == 0) return {"  " + bytes_text(done) + speed, "  " + bytes_text(done)};
    const double share = static_cast<double>(done) / static_cast<double>(total);
    const std::string percent = "  " + std::to_string(static_cast<unsigned>(share * 100)) + " %";
    const std::string amount = "  " + in_words("{1} of {2}", {bytes_text(done), bytes_text(total)});
    const std::string left = time_left(done, total, rate);
    return {percent + amount + speed + left, percent + speed + left, percent + left, percent};
}

}  // namespace

std::string progress_line(std::string_view name, uint64_t done, uint64_t total, double rate, std::size_t columns) {
    return line_of(name, tails_of(total == 0 ? done : std::min(done, total), total, rate), columns);
}

std::string files_line(std::string_view name, const FilesDone &done, std::chrono::duration<double> elapsed,
                       std::size_t columns) {
    const double seconds = std::max(elapsed.count(), 1e-9);
    const std::string number =
        "  " + in_words("{1} of {2} files", {std::to_string(done.files), std::to_string(done.of)});
    const std::string amount = done.bytes == 0 ? "" : "  " + bytes_text(done.bytes);
    const auto rate = static_cast<uint64_t>(static_cast<double>(done.bytes) / seconds);
    const std::string speed = done.bytes == 0 ? "" : "  " + bytes_text(rate) + "/s";
    const std::string left = time_left(done.files, done.of, static_cast<double>(done.files) / seconds);
    const std::vector<std::string> tails = {number + amount + speed + left, number + speed + left, number + left,
                                            number};
    return line_of(name, tails, columns);
}

uint64_t bytes_through() {
    return *counter;
}

void count_bytes(uint64_t more) {
    *counter += more;
}

void count_into(std::atomic<uint64_t> &bytes) {
    counter = &bytes;
}

Progress::Progress(std::string_view name, uint64_t total)
    : name_(printable(name)), total_(total), samples_{{Clock::now(), 0}}, next_(samples_.front().time + kFirst) {}

Progress::~Progress() {
    erase();
}

bool Progress::is_due() const {
    return is_open() && Clock::now() >= next_;
}

void Progress::at(uint64_t done) {
    if (is_open()) at(done, Clock::now());
}

void Progress::at(uint64_t done, Clock::time_point now) {
    if (now < next_ || (total_ == 0 && done == 0)) return;
    next_ = now + kInterval;
    show(progress_line(name_, done, total_, rate_at(now, done), columns()));
}

// Bytes a second, of the recent samples. What a server took may have to be sent again: then nothing was gained.
double Progress::rate_at(Clock::time_point now, uint64_t done) {
    while (samples_.size() > 1 && now - samples_[1].time >= kRecent)
        samples_.pop_front();
    const auto [since, before] = samples_.front();
    samples_.push_back({now, done});
    const std::chrono::duration<double> elapsed = now - since;
    return elapsed.count() > 0 && done > before ? static_cast<double>(done - before) / elapsed.count() : 0;
}

FilesProgress::FilesProgress(std::string_view name, std::size_t files)
    : name_(printable(name)), files_(files), start_(Clock::now()), next_(start_ + kFirst) {}

FilesProgress::~FilesProgress() {
    erase();
}

void FilesProgress::at(std::size_t files, uint64_t bytes) {
    const auto now = Clock::now();
    if (!is_open() || now < next_) return;
    next_ = now + kInterval;
    show(files_line(name_, {files, files_, bytes}, now - start_, columns()));
}

}  // namespace terminal
