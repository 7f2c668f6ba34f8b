// SPDX-License-Identifier: Apache-2.0
// What the code under test writes to, or reads from, one of the standard streams.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <string>
#include <utility>

// Collects what is written to a descriptor (1 or 2) until text() or the end of the scope.
class CapturedOutput {
  public:
    explicit CapturedOutput(int descriptor = STDOUT_FILENO) : descriptor_(descriptor), file_(std::tmpfile()) {
        std::fflush(nullptr);
        saved_ = dup(descriptor_);
        dup2(fileno(file_), descriptor_);
    }
    ~CapturedOutput() {
        restore();
        std::fclose(file_);
    }
    CapturedOutput(const CapturedOutput &) = delete;
    CapturedOutput &operator=(const CapturedOutput &) = delete;

    // Everything written so far; the stream is the old one again.
    std::string text() {
        restore();
        std::string all;
        char buffer[4096];
        std::rewind(file_);
        for (std::size_t got; (got = std::fread(buffer, 1, sizeof buffer, file_)) > 0;)
            all.append(buffer, got);
        return all;
    }

  private:
    void restore() {
        if (saved_ < 0) return;
        std::fflush(nullptr);
        dup2(saved_, descriptor_);
        close(std::exchange(saved_, -1));
    }

    int descriptor_;
    FILE *file_;
    int saved_;
};

// Standard input with a text of its own.
class ScopedInput {
  public:
    explicit ScopedInput(const std::string &text) : file_(std::tmpfile()), saved_(dup(STDIN_FILENO)) {
        std::fwrite(text.data(), 1, text.size(), file_);
        std::fflush(file_);
        lseek(fileno(file_), 0, SEEK_SET);
        dup2(fileno(file_), STDIN_FILENO);
        forget_buffer();
    }
    ~ScopedInput() {
        dup2(saved_, STDIN_FILENO);
        close(saved_);
        std::fclose(file_);
        forget_buffer();
    }
    ScopedInput(const ScopedInput &) = delete;
    ScopedInput &operator=(const ScopedInput &) = delete;

  private:
    static void forget_buffer() {
        std::clearerr(stdin);
        std::setvbuf(stdin, nullptr, _IONBF, 0);
    }

    FILE *file_;
    int saved_;
};
