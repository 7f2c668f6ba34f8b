// SPDX-License-Identifier: Apache-2.0
// A directory that is gone, with all in it, when the test is.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

class TemporaryDirectory {
  public:
    TemporaryDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "tslwnfs-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
        path_ = name;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory &) = delete;
    TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;

    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

inline std::string read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void write_file(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}
