// SPDX-License-Identifier: Apache-2.0
#include "tests/support/fake_tdm/volume.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

std::vector<std::string> components(std::string_view path) {
    std::vector<std::string> names;
    std::string name;
    for (const char character : path) {
        if (character != '/') {
            name += character;
        } else if (!name.empty()) {
            names.push_back(std::exchange(name, {}));
        }
    }
    if (!name.empty()) names.push_back(name);
    return names;
}

auto entry_named(const FakeNode &directory, const std::string &name) {
    return std::find_if(directory.entries.begin(), directory.entries.end(),
                        [&](const auto &entry) { return entry.first == name; });
}

FakeNodePointer child(const FakeNode &directory, const std::string &name) {
    const auto entry = entry_named(directory, name);
    return entry == directory.entries.end() ? nullptr : entry->second;
}

void store_tree(const FakeNode &directory, const fs::path &folder) {
    for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
        if (child(directory, entry.path().filename()) == nullptr) fs::remove_all(entry.path());
    }
    for (const auto &[name, node] : directory.entries) {
        const fs::path path = folder / name;
        if (node->is_directory()) {
            fs::create_directory(path);
            store_tree(*node, path);
        } else if (node->attributes.type == TDM_TYPE_LINK) {
            fs::remove(path);
            fs::create_symlink(node->data, path);
        } else {
            std::ofstream(path, std::ios::binary) << node->data;
        }
    }
}

std::string file_content(const fs::path &path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace

TdmAttributes FakeNode::current_attributes() const {
    TdmAttributes current = attributes;
    if (!is_directory()) current.size = data.size();
    return current;
}

FakeVolume::FakeVolume(std::string prefix) : prefix_(std::move(prefix)), root_(std::make_shared<FakeNode>()) {
    root_->attributes.type = TDM_TYPE_DIRECTORY;
    root_->attributes.permissions = 0755;
    root_->attributes.size = 4096;
}

bool FakeVolume::serves(std::string_view path) const {
    return path == prefix_ || (path.starts_with(prefix_) && path[prefix_.size()] == '/');
}

FakeNodePointer FakeVolume::find(std::string_view path, bool follow) const {
    if (!serves(path)) return nullptr;
    FakeNodePointer node = root_;
    for (const std::string &name : components(path.substr(prefix_.size()))) {
        if (node == nullptr || !node->is_directory()) return nullptr;
        node = child(*node, name);
    }
    const bool is_link = node != nullptr && node->attributes.type == TDM_TYPE_LINK;
    return is_link && follow ? find(node->data, true) : node;
}

std::pair<FakeNodePointer, std::string> FakeVolume::parent_of(std::string_view path) const {
    const std::size_t slash = path.rfind('/');
    return {find(path.substr(0, slash), true), std::string(path.substr(slash + 1))};
}

FakeNodePointer FakeVolume::add(std::string_view path, uint32_t type, uint32_t permissions) {
    if (FakeNodePointer existing = find(path)) return existing;
    auto [parent, name] = parent_of(path);
    if (parent == nullptr) parent = add_directory(path.substr(0, path.rfind('/')));
    auto node = std::make_shared<FakeNode>();
    node->attributes.type = type;
    node->attributes.permissions = permissions;
    node->attributes.links = 1;
    node->attributes.file_id = ++last_file_id_;
    parent->entries.emplace_back(name, node);
    return node;
}

FakeNodePointer FakeVolume::add_file(std::string_view path, std::string content) {
    FakeNodePointer node = add(path, TDM_TYPE_REGULAR, 0644);
    node->data = std::move(content);
    return node;
}

FakeNodePointer FakeVolume::add_directory(std::string_view path) {
    FakeNodePointer node = add(path, TDM_TYPE_DIRECTORY, 0755);
    if (node->attributes.size == 0) node->attributes.size = 4096;
    return node;
}

FakeNodePointer FakeVolume::add_link(std::string_view path, std::string target) {
    FakeNodePointer node = add(path, TDM_TYPE_LINK, 0777);
    node->data = std::move(target);
    return node;
}

uint32_t FakeVolume::create(std::string_view path, FakeNodePointer &node) {
    node = find(path, true);
    if (node != nullptr) return node->is_directory() ? EISDIR : 0;
    const auto [parent, name] = parent_of(path);
    if (parent == nullptr || !parent->is_directory()) return ENOENT;
    node = add_file(path, {});
    return 0;
}

uint32_t FakeVolume::make_directory(std::string_view path) {
    if (find(path) != nullptr) return EEXIST;
    const auto [parent, name] = parent_of(path);
    if (parent == nullptr || !parent->is_directory()) return ENOENT;
    add_directory(path);
    return 0;
}

uint32_t FakeVolume::remove_file(std::string_view path) {
    const FakeNodePointer node = find(path);
    if (node == nullptr) return ENOENT;
    if (node->is_directory()) return EISDIR;
    const auto [parent, name] = parent_of(path);
    parent->entries.erase(entry_named(*parent, name));
    return 0;
}

uint32_t FakeVolume::remove_directory(std::string_view path) {
    const FakeNodePointer node = find(path);
    if (node == nullptr || node == root_) return ENOENT;
    if (!node->is_directory()) return ENOTDIR;
    if (!node->entries.empty()) return ENOTEMPTY;
    const auto [parent, name] = parent_of(path);
    parent->entries.erase(entry_named(*parent, name));
    return 0;
}

const std::string &FakeVolume::content(std::string_view path) const {
    const FakeNodePointer node = find(path);
    if (node == nullptr) throw std::runtime_error("no remote object " + std::string(path));
    return node->data;
}

void FakeVolume::load(const std::string &folder) {
    std::vector<fs::path> paths;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder)) {
        paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    for (const fs::path &path : paths) {
        const std::string remote = prefix_ + "/" + fs::relative(path.parent_path(), folder).string();
        const std::string name = fs::path(remote).lexically_normal() / path.filename();
        if (fs::is_symlink(path)) {
            add_link(name, fs::read_symlink(path));
        } else if (fs::is_directory(path)) {
            add_directory(name);
        } else {
            add_file(name, file_content(path));
        }
    }
}

void FakeVolume::store(const std::string &folder) const {
    store_tree(*root_, folder);
}
