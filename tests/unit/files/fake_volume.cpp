// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/files/fake_volume.h"

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <utility>

#include "nfstdm/mounts/path_text.h"

namespace nfstdm::test {

namespace {

// A failure with what a protocol would make of its number.
Status refusal(uint32_t number, std::string text) {
    Condition condition = Condition::none;
    if (number == ESTALE) condition = Condition::stale;
    if (number == ENOTSUP) condition = Condition::no_operation;
    if (number == EPROTONOSUPPORT) condition = Condition::not_offered;
    return {number, std::move(text), condition};
}

// Tells the server when it is opened and closed.
class FakeFile : public FileByHandle<FakeVolume> {
  public:
    FakeFile(FakeVolume &volume, const FileHandle &handle, std::vector<std::string> &told, std::string what)
        : FileByHandle(volume, handle), told_(told), what_(std::move(what)) {
        told_.push_back("open " + what_);
    }
    ~FakeFile() override { told_.push_back("close " + what_); }

  private:
    std::vector<std::string> &told_;
    const std::string what_;
};

}  // namespace

std::vector<std::byte> pattern(std::size_t size, unsigned seed) {
    std::vector<std::byte> bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::byte>((i * 31 + i / 256 * 7 + seed * 101 + 1) & 0xff);
    return bytes;
}

// ---- the server

FakeServer::FakeServer() {
    auto &root = nodes_[1];
    root.attributes.type = FileType::directory;
    root.attributes.mode = 0755;
    root.attributes.fileid = 1;
}

std::pair<uint64_t, std::string> FakeServer::parent_of(const std::string &path) const {
    auto components = split_path(path);
    const std::string name = components.back();
    components.pop_back();
    return {find(join_path(components)), name};
}

uint64_t FakeServer::find(const std::string &path) const {
    uint64_t id = 1;
    for (const auto &component : split_path(path))
        id = id == 0 ? 0 : child(id, component);
    return id;
}

uint64_t FakeServer::child(uint64_t parent, const std::string &name) const {
    for (const auto &[known, id] : nodes_.at(parent).children)
        if (known == name) return id;
    return 0;
}

uint64_t FakeServer::add_child(uint64_t parent, const std::string &name, FileType type) {
    const uint64_t id = next_id_++;
    nodes_.at(parent).children.emplace_back(name, id);
    ++nodes_.at(parent).attributes.change.nanoseconds;
    auto &attributes = nodes_[id].attributes;
    attributes.type = type;
    attributes.mode = 0644;
    attributes.fileid = id;
    attributes.links = 1;
    attributes.change = clock;
    return id;
}

void FakeServer::remove_child(uint64_t parent, const std::string &name) {
    ++nodes_.at(parent).attributes.change.nanoseconds;
    std::erase_if(nodes_.at(parent).children, [&](const auto &known) { return known.first == name; });
}

uint64_t FakeServer::add_directory(const std::string &path) {
    const auto [parent, name] = parent_of(path);
    return add_child(parent, name, FileType::directory);
}

uint64_t FakeServer::add_file(const std::string &path, std::vector<std::byte> data) {
    const auto [parent, name] = parent_of(path);
    const uint64_t id = add_child(parent, name, FileType::regular);
    nodes_[id].attributes.size = data.size();
    nodes_[id].stable = data;
    nodes_[id].data = std::move(data);
    return id;
}

uint64_t FakeServer::add_link(const std::string &path, const std::string &target) {
    const auto [parent, name] = parent_of(path);
    const uint64_t id = add_child(parent, name, FileType::link);
    nodes_[id].target = target;
    return id;
}

FileHandle FakeServer::handle(uint64_t id) const {
    FileHandle handle;
    handle.size = 9;
    for (int i = 0; i < 8; ++i)
        handle.bytes[i] = static_cast<uint8_t>(id >> (8 * i));
    handle.bytes[8] = generation_;
    return handle;
}

uint64_t FakeServer::id_of(const FileHandle &handle) const {
    uint64_t id = 0;
    for (int i = 0; i < 8; ++i)
        id |= static_cast<uint64_t>(handle.bytes[i]) << (8 * i);
    return handle.bytes[8] == generation_ && nodes_.contains(id) ? id : 0;
}

void FakeServer::restart() {
    ++verifier;
    for (auto &[id, node] : nodes_) {
        if (node.attributes.type != FileType::regular) continue;
        node.data = node.stable;
        node.attributes.size = node.data.size();
    }
}

unsigned FakeServer::total_calls() const {
    return std::accumulate(calls.begin(), calls.end(), 0U,
                           [](unsigned sum, const auto &call) { return sum + call.second; });
}

// ---- the volume

std::optional<Status> FakeVolume::failure(Op op) {
    ++server_.calls[op];
    auto &planned = server_.failures[op];
    if (planned.empty()) return std::nullopt;
    const uint32_t number = planned.front();
    planned.pop_front();
    if (number == 0) return std::nullopt;
    return refusal(number, "server " + server_.server_name + ": planned failure");
}

void FakeVolume::later(Op op, uint64_t offset, std::size_t size, std::function<void()> answer) {
    if (!held || (op != Op::read && op != Op::write && op != Op::commit)) return loop_.soon(std::move(answer));
    waiting.push_back({op, offset, size, std::move(answer)});
    most_waiting = std::max(most_waiting, waiting_for(Op::read) + waiting_for(Op::write));
}

std::size_t FakeVolume::waiting_for(Op op) const {
    return static_cast<std::size_t>(
        std::ranges::count_if(waiting, [op](const Waiting &each) { return each.op == op; }));
}

void FakeVolume::answer_first() {
    loop_.soon(std::move(waiting.front().answer));
    waiting.pop_front();
    loop_.poll_once();
}

void FakeVolume::answer_last() {
    loop_.soon(std::move(waiting.back().answer));
    waiting.pop_back();
    loop_.poll_once();
}

void FakeVolume::answer_all() {
    while (!waiting.empty())
        answer_first();
}

template <class T>
void FakeVolume::reply(Op op, const FileHandle *handle, Completion<T> done,
                       std::function<Result<T>(uint64_t id)> answer) {
    later(op, 0, 0,
          [this, op, done = std::move(done), answer = std::move(answer),
           object = handle == nullptr ? std::nullopt : std::optional(*handle)] {
              if (auto planned = failure(op)) return done(*planned);
              const uint64_t id = object ? server_.id_of(*object) : 1;
              if (id == 0) return done(refusal(ESTALE, "stale handle"));
              done(answer(id));
          });
}

void FakeVolume::done_reply(Op op, const FileHandle &handle, DoneCompletion done,
                            std::function<Status(uint64_t id)> answer) {
    reply<int>(
        op, &handle, [done = std::move(done)](const Result<int> &result) { done(result.status()); },
        [answer = std::move(answer)](uint64_t id) -> Result<int> {
            Status status = answer(id);
            if (status.ok()) return 0;
            return status;
        });
}

void FakeVolume::attach(Completion<FileHandle> done) {
    reply<FileHandle>(Op::attach, nullptr, std::move(done), [this](uint64_t) { return server_.handle(1); });
}

void FakeVolume::getattr(const FileHandle &object, Completion<Attributes> done) {
    reply<Attributes>(Op::getattr, &object, std::move(done),
                      [this](uint64_t id) { return server_.node(id).attributes; });
}

void FakeVolume::setattr(const FileHandle &object, const SetAttributes &set, DoneCompletion done) {
    done_reply(Op::setattr, object, std::move(done), [this, set](uint64_t id) -> Status {
        auto &node = server_.node(id);
        if (set.mode) node.attributes.mode = *set.mode;
        if (set.size) {
            server_.log.push_back("SETATTR size " + std::to_string(*set.size));
            node.data.resize(*set.size);
            node.stable = node.data;
            node.attributes.size = *set.size;
        }
        return {};
    });
}

void FakeVolume::lookup(const FileHandle &directory, std::string_view name, Completion<LookupReply> done) {
    reply<LookupReply>(Op::lookup, &directory, std::move(done),
                       [this, name = std::string(name)](uint64_t id) -> Result<LookupReply> {
                           if (server_.node(id).attributes.type != FileType::directory)
                               return Status{ENOTDIR, "not a directory"};
                           const uint64_t child = server_.child(id, name);
                           if (child == 0) return Status{ENOENT, "no such name"};
                           LookupReply answer{server_.handle(child), {}, {}};
                           if (server_.tells_attributes) answer.attributes = server_.node(child).attributes;
                           return answer;
                       });
}

void FakeVolume::lookup_path(const FileHandle &directory, const std::vector<std::string> &names,
                             Completion<PathReply> done) {
    reply<PathReply>(Op::lookup_path, &directory, std::move(done), [this, names](uint64_t id) -> Result<PathReply> {
        PathReply answer;
        for (const std::string &name : names) {
            const auto type = server_.node(id).attributes.type;
            id = type == FileType::directory ? server_.child(id, name) : 0;
            if (id == 0) {
                answer.failure = {type == FileType::directory ? uint32_t{ENOENT} : uint32_t{ENOTDIR}, "no such name"};
                break;
            }
            answer.found.push_back({server_.handle(id), server_.node(id).attributes, {}});
        }
        return answer;
    });
}

void FakeVolume::readlink(const FileHandle &link, Completion<std::string> done) {
    reply<std::string>(Op::readlink, &link, std::move(done), [this](uint64_t id) { return server_.node(id).target; });
}

void FakeVolume::read(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                      Completion<ReadReply> done) {
    largest = std::max(largest, buffer.size());
    later(Op::read, offset, buffer.size(), [this, file, offset, buffer, done = std::move(done)] {
        if (auto planned = failure(Op::read)) return done(*planned);
        const uint64_t id = server_.id_of(file);
        if (id == 0) return done(refusal(ESTALE, "stale handle"));
        const auto &data = server_.node(id).data;
        ReadReply answer;
        if (offset < data.size())
            answer.count =
                static_cast<uint32_t>(std::min<uint64_t>({buffer.size(), data.size() - offset, server_.read_at_most}));
        std::copy_n(data.begin() + static_cast<std::ptrdiff_t>(std::min<uint64_t>(offset, data.size())), answer.count,
                    buffer.begin());
        answer.eof = offset + answer.count >= data.size();
        answer.attributes = server_.node(id).attributes;
        done(answer);
    });
}

void FakeVolume::write(const FileHandle &file, uint64_t offset, std::span<const std::byte> data, Stability stability,
                       Completion<WriteReply> done) {
    largest = std::max(largest, data.size());
    later(Op::write, offset, data.size(), [this, file, offset, data, stability, done = std::move(done)] {
        if (auto planned = failure(Op::write)) return done(*planned);
        const uint64_t id = server_.id_of(file);
        if (id == 0) return done(refusal(ESTALE, "stale handle"));
        auto &node = server_.node(id);
        const auto count = std::min<std::size_t>(data.size(), server_.write_at_most);
        server_.log.push_back("WRITE " + std::to_string(offset) + "+" + std::to_string(count) +
                              (stability == Stability::unstable ? " unstable" : " stable"));
        if (node.data.size() < offset + count) node.data.resize(offset + count);
        std::copy_n(data.begin(), count, node.data.begin() + static_cast<std::ptrdiff_t>(offset));
        node.attributes.size = node.data.size();
        if (stability != Stability::unstable) node.stable = node.data;
        WriteReply answer{static_cast<uint32_t>(count), stability, server_.verifier, {}};
        if (server_.tells_attributes) answer.attributes = node.attributes;
        if (server_.write_size_told) answer.attributes->size = *server_.write_size_told;
        done(std::move(answer));
    });
}

void FakeVolume::commit(const FileHandle &file, Completion<CommitReply> done) {
    reply<CommitReply>(Op::commit, &file, std::move(done), [this](uint64_t id) {
        server_.log.emplace_back("COMMIT");
        server_.node(id).stable = server_.node(id).data;
        return CommitReply{server_.verifier, {}};
    });
}

DirectoryChange FakeVolume::change_of(uint64_t directory, const Attributes &before) {
    if (!server_.tells_directories) return {};
    return {DirectoryState{before.size, before.modification, before.change}, server_.node(directory).attributes};
}

std::unique_ptr<VolumeFile> FakeVolume::open(const FileHandle &file, Access access) {
    return std::make_unique<FakeFile>(
        *this, file, server_.opens,
        std::to_string(server_.id_of(file)) + (access == Access::read ? " to read" : " to write"));
}

void FakeVolume::make_file(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                           std::span<const std::byte> content, Completion<CreatedFile> done) {
    reply<CreatedFile>(Op::create, &directory, std::move(done),
                       [this, set, content, name = std::string(name)](uint64_t parent) -> Result<CreatedFile> {
                           const Attributes before = server_.node(parent).attributes;
                           uint64_t id = server_.child(parent, name);
                           if (id == 0) id = server_.add_child(parent, name, FileType::regular);
                           auto &node = server_.node(id);
                           if (set.mode) node.attributes.mode = *set.mode;
                           node.data.resize(set.size.value_or(node.data.size()));
                           if (node.data.size() < content.size()) node.data.resize(content.size());
                           std::copy(content.begin(), content.end(), node.data.begin());
                           node.stable = node.data;
                           node.attributes.size = node.data.size();
                           if (!server_.tells_attributes) return CreatedFile{{}, {}, !content.empty()};
                           CreatedFile made{{server_.handle(id), node.attributes, {}, change_of(parent, before)},
                                            {},
                                            !content.empty()};
                           if (server_.keeps_made_open) made.file = open(server_.handle(id), Access::write);
                           return made;
                       });
}

void FakeVolume::mkdir(const FileHandle &directory, std::string_view name, uint32_t mode,
                       Completion<CreateReply> done) {
    reply<CreateReply>(
        Op::mkdir, &directory, std::move(done),
        [this, mode, name = std::string(name)](uint64_t parent) -> Result<CreateReply> {
            const auto resent = std::exchange(server_.resent_mkdir, std::nullopt);
            if (resent && resent->done_first) server_.add_child(parent, name, FileType::directory);
            const bool exists = server_.child(parent, name) != 0;
            if (resent && exists) return CreateReply{{}, {}, resent->first_sent, {}};
            if (exists) return Status{EEXIST, "exists"};
            const Attributes before = server_.node(parent).attributes;
            const uint64_t id = server_.add_child(parent, name, FileType::directory);
            server_.node(id).attributes.mode = mode;
            return CreateReply{server_.handle(id), server_.node(id).attributes, {}, change_of(parent, before)};
        });
}

void FakeVolume::remove(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) {
    reply<DirectoryChange>(Op::remove, &directory, std::move(done),
                           [this, name = std::string(name)](uint64_t parent) -> Result<DirectoryChange> {
                               if (server_.child(parent, name) == 0) return Status{ENOENT, "no such name"};
                               server_.log.push_back("REMOVE " + name);
                               const Attributes before = server_.node(parent).attributes;
                               server_.remove_child(parent, name);
                               return change_of(parent, before);
                           });
}

void FakeVolume::rmdir(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) {
    reply<DirectoryChange>(Op::rmdir, &directory, std::move(done),
                           [this, name = std::string(name)](uint64_t parent) -> Result<DirectoryChange> {
                               const uint64_t id = server_.child(parent, name);
                               if (id == 0) return Status{ENOENT, "no such name"};
                               if (server_.node(id).attributes.type != FileType::directory)
                                   return Status{ENOTDIR, "not a directory"};
                               const Attributes before = server_.node(parent).attributes;
                               server_.remove_child(parent, name);
                               return change_of(parent, before);
                           });
}

// A cookie is the number of entries before it, or what the test puts in its place.
Result<DirectoryReply> FakeVolume::list(uint64_t id, uint64_t cookie, bool plus) {
    const auto &children = server_.node(id).children;
    const std::size_t dots = server_.lists_dots ? 2 : 0;
    const auto entry_at = [&](std::size_t at) -> DirectoryEntry {
        if (at < dots) return {at == 0 ? id : 77, 0, at == 0 ? "." : "..", {}, {}};
        if (at - dots >= children.size() && server_.makes_up_names != 0) {
            const std::string number = std::to_string(at);
            return {at, 0, number + std::string(server_.makes_up_names - number.size(), 'n'), {}, {}};
        }
        if (at - dots >= children.size()) return server_.extra_entries[at - dots - children.size()];
        const auto &[name, child] = children[at - dots];
        if (!plus) return {child, 0, name, {}, {}};
        return {child, 0, name, server_.node(child).attributes, server_.handle(child)};
    };
    const std::size_t all =
        server_.makes_up_names != 0 ? SIZE_MAX : dots + children.size() + server_.extra_entries.size();
    DirectoryReply answer;
    answer.verifier = 9;
    std::size_t at = cookie;
    const std::size_t most = server_.entries_per_reply * (plus ? 1 : server_.names_per_entry);
    for (; at < all && answer.entries.size() < most; ++at) {
        answer.entries.push_back(entry_at(at));
        const auto sent = server_.cookie_overrides.find(at + 1);
        answer.entries.back().cookie = sent == server_.cookie_overrides.end() ? at + 1 : sent->second;
    }
    answer.eof = at >= all && server_.directories_end;
    return answer;
}

void FakeVolume::readdir(const FileHandle &directory, uint64_t cookie, uint64_t verifier, bool plus,
                         Completion<DirectoryReply> done) {
    reply<DirectoryReply>(Op::readdir, &directory, std::move(done),
                          [this, cookie, verifier, plus](uint64_t id) -> Result<DirectoryReply> {
                              if (plus && !server_.has_readdirplus) return refusal(ENOTSUP, "no READDIRPLUS");
                              if (server_.bad_cookies.erase(cookie) != 0)
                                  return Status{EIO, "bad cookie", Condition::bad_cookie};
                              if (verifier != (cookie == 0 ? 0 : 9))
                                  return Status{EIO, "wrong verifier", Condition::bad_cookie};
                              return list(id, cookie, plus);
                          });
}

void FakeVolume::fsinfo(const FileHandle &object, Completion<FsInfoReply> done) {
    reply<FsInfoReply>(Op::fsinfo, &object, std::move(done), [this](uint64_t) {
        return FsInfoReply{{}, server_.limits};
    });
}

void FakeVolume::fsstat(const FileHandle &object, Completion<FsStatReply> done) {
    reply<FsStatReply>(Op::fsstat, &object, std::move(done),
                       [](uint64_t) { return FsStatReply{{}, 1000, 600, 500, 100, 60, 50, 7}; });
}

void FakeVolume::detach(DoneCompletion done) {
    answer_all();
    loop_.soon([this, done = std::move(done)] {
        ++server_.calls[Op::detach];
        done(Status{});
    });
}

}  // namespace nfstdm::test
