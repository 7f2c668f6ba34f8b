// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/progress.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "tslwnfs/terminal/screen.h"
#include "tslwnfs/terminal/text.h"

namespace terminal {
namespace {

constexpr auto kFirst = std::chrono::seconds(1);
constexpr auto kInterval = std::chrono::milliseconds(200);
constexpr std::size_t kNameColumns = 12;  // of a name that are worth less room for the rest

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
    return "  " + time_text(static_cast<uint64_t>(rounded.count())) + " left";
}

}  // namespace

std::string progress_line(std::string_view name, uint64_t done, uint64_t total, std::chrono::duration<double> elapsed,
                          std::size_t columns) {
    done = std::min(done, total);
    const double rate = elapsed.count() > 0 ? static_cast<double>(done) / elapsed.count() : 0;
    const double share = static_cast<double>(done) / static_cast<double>(total);
    const std::string percent = "  " + std::to_string(static_cast<unsigned>(share * 100)) + " %";
    const std::string amount = "  " + bytes_text(done) + " of " + bytes_text(total);
    const std::string speed = "  " + bytes_text(static_cast<uint64_t>(rate)) + "/s";
    const std::string left = time_left(done, total, rate);

    const std::array<std::string, 4> tails = {percent + amount + speed + left, percent + speed + left, percent + left,
                                              percent};
    const std::size_t wanted = std::min(columns_of(name), kNameColumns);
    const auto *const tail =
        std::find_if(tails.begin(), tails.end(), [&](const auto &each) { return each.size() + wanted <= columns; });
    if (tail != tails.end()) return fitted(name, columns - tail->size()) + *tail;
    if (percent.size() <= columns) return fitted(name, columns - percent.size()) + percent;
    return {};
}

Progress::Progress(std::string_view name, uint64_t total)
    : name_(printable(name)), total_(total), start_(Clock::now()), next_(start_ + kFirst) {}

Progress::~Progress() {
    erase();
}

void Progress::at(uint64_t done) {
    if (is_open()) at(done, Clock::now());
}

void Progress::at(uint64_t done, Clock::time_point now) {
    if (now < next_ || total_ == 0) return;
    next_ = now + kInterval;
    show(progress_line(name_, done, total_, now - start_, columns()));
}

}  // namespace terminal
