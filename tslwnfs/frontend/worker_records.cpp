// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/worker_records.h"

#include <charconv>
#include <cstddef>

namespace {

// A record is a row of texts, each behind its length and a colon.
class Packer {
  public:
    Packer &add(std::string_view text) {
        record_ += std::to_string(text.size());
        record_ += ':';
        record_ += text;
        return *this;
    }
    Packer &add(uint32_t number) { return add(std::to_string(number)); }
    Packer &add(const terminal::Reason &reason) {
        return add(reason.text).add(reason.status).add(uint32_t{reason.is_missing_locally});
    }
    Packer &add(const CapturedBytes &written) { return add(written.output).add(written.log).add(written.trace); }
    Packer &add(const std::vector<std::string> &texts) {
        add(static_cast<uint32_t>(texts.size()));
        for (const std::string &text : texts)
            add(text);
        return *this;
    }
    std::string take() { return std::move(record_); }

  private:
    std::string record_;
};

class Unpacker {
  public:
    explicit Unpacker(std::string_view record) : rest_(record) {}

    Unpacker &get(std::string &text) {
        text = next();
        return *this;
    }
    Unpacker &get(uint32_t &number) {
        read_number(next(), number);
        return *this;
    }
    Unpacker &get(terminal::Reason &reason) {
        uint32_t missing = 0;
        get(reason.text).get(reason.status).get(missing);
        reason.is_missing_locally = missing != 0;
        return *this;
    }
    Unpacker &get(CapturedBytes &written) { return get(written.output).get(written.log).get(written.trace); }
    Unpacker &get(std::vector<std::string> &texts) {
        uint32_t count = 0;
        get(count);
        texts.clear();
        while (sound_ && count-- > 0)
            texts.emplace_back(next());
        return *this;
    }
    bool is_all() const { return sound_ && rest_.empty(); }

  private:
    template <class Number>
    void read_number(std::string_view text, Number &number) {
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (text.empty() || error != std::errc{} || end != text.data() + text.size()) sound_ = false;
    }
    std::string_view next() {
        const std::size_t colon = rest_.find(':');
        std::size_t length = 0;
        if (colon == std::string_view::npos) sound_ = false;
        if (sound_) read_number(rest_.substr(0, colon), length);
        if (!sound_ || length > rest_.size() - colon - 1) {
            sound_ = false;
            return {};
        }
        const std::string_view text = rest_.substr(colon + 1, length);
        rest_.remove_prefix(colon + 1 + length);
        return text;
    }

    std::string_view rest_;
    bool sound_ = true;
};

}  // namespace

std::string pack(const Job &job) {
    return Packer().add(job.source).add(job.destination).add(job.known).add(job.held).take();
}

std::string pack(const Outcome &outcome) {
    const terminal::Notes &notes = outcome.notes;
    return Packer()
        .add(outcome.status)
        .add(static_cast<uint32_t>(outcome.after))
        .add(notes.from_library)
        .add(notes.failure)
        .add(notes.remark)
        .add(notes.hint)
        .add(notes.aftermath)
        .add(outcome.said)
        .add(outcome.written)
        .take();
}

std::string pack(const CapturedBytes &written) {
    return Packer().add(written).take();
}

bool unpack(std::string_view record, CapturedBytes &written) {
    return Unpacker(record).get(written).is_all();
}

bool unpack(std::string_view record, Job &job) {
    return Unpacker(record).get(job.source).get(job.destination).get(job.known).get(job.held).is_all();
}

bool unpack(std::string_view record, Outcome &outcome) {
    uint32_t after = 0;
    terminal::Notes &notes = outcome.notes;
    const bool sound = Unpacker(record)
                           .get(outcome.status)
                           .get(after)
                           .get(notes.from_library)
                           .get(notes.failure)
                           .get(notes.remark)
                           .get(notes.hint)
                           .get(notes.aftermath)
                           .get(outcome.said)
                           .get(outcome.written)
                           .is_all();
    outcome.after = static_cast<After>(after);
    return sound && after <= static_cast<uint32_t>(After::undone);
}
