// SPDX-License-Identifier: Apache-2.0
// A nameless file in place of a log or a trace: written through a stream, read back at any time, even after the process
// that wrote it ended.
#pragma once

#include <unistd.h>

#include <array>
#include <cstdio>
#include <stdexcept>
#include <string>

class ScratchStream {
  public:
    ScratchStream() : stream_(std::tmpfile()) {
        if (stream_ == nullptr) throw std::runtime_error("no temporary file");
    }
    ~ScratchStream() { std::fclose(stream_); }
    ScratchStream(const ScratchStream &) = delete;
    ScratchStream &operator=(const ScratchStream &) = delete;

    FILE *stream() const { return stream_; }

    std::string text() const {
        std::fflush(stream_);
        std::string text;
        std::array<char, 4096> piece;
        for (;;) {
            const ssize_t length = pread(fileno(stream_), piece.data(), piece.size(), static_cast<off_t>(text.size()));
            if (length <= 0) return text;
            text.append(piece.data(), static_cast<std::size_t>(length));
        }
    }

  private:
    FILE *stream_;
};
