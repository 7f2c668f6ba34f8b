// SPDX-License-Identifier: Apache-2.0
// A small file tree in memory: what the fake storage library serves.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "include/tdm.h"

struct FakeNode {
    TdmAttributes attributes = {};  // type, permissions, owner and times; a file's size follows data
    std::string data;               // content of a file, target of a link
    std::vector<std::pair<std::string, std::shared_ptr<FakeNode>>> entries;  // of a directory, in the server's order

    bool is_directory() const { return attributes.type == TDM_TYPE_DIRECTORY; }
    TdmAttributes current_attributes() const;
    void resize(uint64_t size) { data.resize(size); }
};
using FakeNodePointer = std::shared_ptr<FakeNode>;

// Every path at or below the prefix is remote.
class FakeVolume {
  public:
    explicit FakeVolume(std::string prefix = "/m");

    const std::string &prefix() const { return prefix_; }
    bool serves(std::string_view path) const;

    // Null when there is no such object. The last component is followed when it is a link and follow is set.
    FakeNodePointer find(std::string_view path, bool follow = false) const;

    // Make an object, and for tests' convenience the directories above it. Return the node.
    FakeNodePointer add_file(std::string_view path, std::string content);
    FakeNodePointer add_directory(std::string_view path);
    FakeNodePointer add_link(std::string_view path, std::string target);

    // As a server does it: 0 or the errno of the failure.
    uint32_t create(std::string_view path, FakeNodePointer &node);
    uint32_t make_directory(std::string_view path);
    uint32_t remove_file(std::string_view path);
    uint32_t remove_directory(std::string_view path);

    // Content of a file; tests fail on a missing one.
    const std::string &content(std::string_view path) const;

    // Fill the tree from a folder, and write it back.
    void load(const std::string &folder);
    void store(const std::string &folder) const;

  private:
    FakeNodePointer add(std::string_view path, uint32_t type, uint32_t permissions);
    std::pair<FakeNodePointer, std::string> parent_of(std::string_view path) const;

    std::string prefix_;
    FakeNodePointer root_;
    uint64_t last_file_id_ = 0;
};
