// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/mounted_volume.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "nfstdm/files/await.h"

namespace nfstdm {
namespace {

DirectoryState state_of(const Attributes &attributes) {
    return {attributes.size, attributes.modification, attributes.change};
}

}  // namespace

namespace {

// The portmapper, MOUNT or NFSv3 is not offered, or nobody listens where it should be.
bool lacks_version3(const Status &failure) {
    return failure.is(Condition::not_offered) || failure.number() == ECONNREFUSED;
}

}  // namespace

MountedVolume::MountedVolume(EventLoop &loop, const ServerConfig &server, const ServerExport &exported,
                             const VolumeFactory &open_volume, TimeSource now)
    : loop_(loop),
      server_(server),
      exported_(exported),
      open_volume_(open_volume),
      now_(std::move(now)),
      cache_(now_),
      absent_(now_) {}

Result<FileHandle> MountedVolume::root(std::span<const std::string> below) {
    if (Status failure = contact(below); !failure.ok()) return failure;
    return *root_;
}

Status MountedVolume::contact(std::span<const std::string> below) {
    if (root_) return {};
    if (!server_.problem.empty()) return named({EINVAL, "tslnfstab, " + server_.problem});
    if (!contact_failure_.ok() && now_() < contact_again_) return contact_failure_;
    const auto early = early_;
    return contact_now(early ? std::span<const std::string>(early->below) : below);
}

Status MountedVolume::contact_now(std::span<const std::string> below) {
    auto attached = attach(server_, below);
    if (server_.version.empty() && lacks_version3(attached.status())) attached = attach_with_version4(attached, below);
    contact_failure_ = attached.status();
    if (!attached.ok()) {
        contact_again_ = now_() + std::chrono::seconds(server_.contact_timeout_seconds);
        return contact_failure_;
    }
    root_ = attached.value();
    const auto told = volume_->root_info();
    if (told && told->attributes) limits_[told->attributes->fsid] = told->limits;
    learn_path(*root_, below, volume_->take_expected());
    return {};
}

void MountedVolume::begin_contact(std::span<const std::string> below) {
    if (volume_ || !contact_failure_.ok() || !server_.problem.empty()) return;
    volume_ = open_volume_(loop_, server_, exported_);
    if (!volume_) return;
    early_ = std::make_shared<EarlyContact>(EarlyContact{{below.begin(), below.end()}, std::nullopt});
    volume_->expect(early_->below);
    volume_->attach([early = early_](const Result<FileHandle> &root) { early->root = root; });
}

Result<FileHandle> MountedVolume::attach(const ServerConfig &server, std::span<const std::string> below) {
    if (const auto early = std::exchange(early_, nullptr)) {
        loop_.run_until([&early] { return early->root.has_value(); });
        return *early->root;
    }
    if (!volume_) volume_ = open_volume_(loop_, server, exported_);
    if (!volume_) return named({EPROTONOSUPPORT, "there is no protocol to reach it with"});
    volume_->expect({below.begin(), below.end()});
    return await<FileHandle>(loop_, [this](auto done) { volume_->attach(std::move(done)); });
}

// A server that turns out to have no NFSv3 or no MOUNT is asked in NFSv4 at once. One that does not answer that either
// is told of by the first answer, and asked for both again the next time.
Result<FileHandle> MountedVolume::attach_with_version4(const Result<FileHandle> &first,
                                                       std::span<const std::string> below) {
    ServerConfig server = server_;
    server.version = "nfsv4";
    volume_.reset();
    auto attached = attach(server, below);
    if (attached.ok()) return attached;
    volume_.reset();
    const bool no_answer = lacks_version3(attached.status()) || attached.status().number() == ETIMEDOUT;
    return no_answer ? first : attached;
}

Result<FoundObject> MountedVolume::found(const FileHandle &directory, const std::string &name,
                                         const std::optional<FileHandle> &handle,
                                         const std::optional<Attributes> &attributes_told) {
    if (!handle) return lookup(directory, name);
    cache_.put_name(directory, name, *handle);
    learn(*handle, attributes_told);
    if (attributes_told) return FoundObject{*handle, *attributes_told};
    return with_attributes(*handle);
}

Result<FoundObject> MountedVolume::with_attributes(const FileHandle &handle) {
    auto known = attributes(handle);
    if (!known.ok()) return known.status();
    return FoundObject{handle, known.value()};
}

Result<FoundObject> MountedVolume::lookup(const FileHandle &directory, const std::string &name) {
    if (const auto begun = removals_.find(directory, name)) return begun->object;
    const auto known = find_name(directory, name);
    if (known.handle) return with_attributes(*known.handle);  // which does not make what is known any younger
    if (known.known || lacks(directory, name)) return named({ENOENT, "LOOKUP " + name + ": no such file or directory"});
    auto reply = await<LookupReply>(loop_, [&](auto done) { volume_->lookup(directory, name, std::move(done)); });
    if (reply.status().number() == ENOENT) cache_.put_name(directory, name, std::nullopt);
    if (!reply.ok()) return reply.status();
    learn(directory, reply.value().directory);
    return found(directory, name, reply.value().handle, reply.value().attributes);
}

// Who makes one file after the other need not ask for each name: see AbsentNames.
bool MountedVolume::lacks(const FileHandle &directory, const std::string &name) {
    if (absent_.wants_names(directory, name)) {
        const auto asked = now_();
        absent_.learn(directory, asked, answer(ask_directory(directory, 0, 0, Entries::names)));
    }
    return absent_.lacks(directory, name);
}

void MountedVolume::begin_making(const FileHandle &directory, const std::string &name) {
    const auto known = cache_.find_name(directory, name);
    if (known.known ? !known.handle : absent_.lacks(directory, name)) absent_.making(directory, name);
}

void MountedVolume::look_ahead(const FileHandle &directory, std::span<const std::string> names) {
    FileHandle place = directory;
    while (names.size() > 1) {  // the last one alone is a lookup like any other
        const auto known = cache_.find_name(place, names.front());
        if (known.known && !known.handle) return;
        if (!known.handle) break;
        place = *known.handle;
        names = names.subspan(1);
    }
    const std::size_t count = std::min(names.size(), volume_->path_components_maximum());
    if (count < 2) return;
    const std::vector<std::string> asked(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(count));
    const auto reply = await<PathReply>(loop_, [&](auto done) { volume_->lookup_path(place, asked, std::move(done)); });
    if (reply.ok()) learn_path(place, names, reply.value());
}

void MountedVolume::learn_path(FileHandle place, std::span<const std::string> names, const PathReply &reply) {
    const auto &[found, failure] = reply;
    for (std::size_t i = 0; i < found.size(); ++i) {
        cache_.put_name(place, names[i], found[i].handle);
        learn(found[i].handle, found[i].attributes);
        place = found[i].handle;
    }
    if (failure.number() == ENOENT && found.size() < names.size())
        cache_.put_name(place, names[found.size()], std::nullopt);
}

Result<Attributes> MountedVolume::attributes(const FileHandle &object) {
    if (auto known = cache_.attributes(object)) return *known;
    auto reply = await<Attributes>(loop_, [&](auto done) { volume_->getattr(object, std::move(done)); });
    if (!reply.ok()) return reply.status();
    learn(object, reply.value());
    return reply;
}

Result<std::string> MountedVolume::read_link(const FileHandle &link) {
    auto reply = await<std::string>(loop_, [&](auto done) { volume_->readlink(link, std::move(done)); });
    if (!reply.ok()) return reply.status();
    return reply;
}

Status MountedVolume::set_attributes(const FileHandle &object, const SetAttributes &set) {
    cache_.forget_attributes(object);
    return await_done(loop_, [&](auto done) { volume_->setattr(object, set, std::move(done)); });
}

void MountedVolume::learn(const FileHandle &object, const std::optional<Attributes> &attributes) {
    if (attributes) server_clock_.saw(*attributes, now_());
    cache_.put_attributes(object, attributes);
}

// What is known of a directory and of a name in it will not hold much longer. Gives what was known of the directory.
std::optional<Attributes> MountedVolume::forget(const FileHandle &directory, const std::string &name) {
    auto known = cache_.attributes(directory);
    absent_.may_have(directory, name);
    cache_.forget_attributes(directory);
    cache_.forget_name(directory, name);
    return known;
}

// A directory that was in another state than known just before was changed by somebody else, too (RFC 1813 section
// 2.6, wcc_data): its names may be others by now.
void MountedVolume::learn(const FileHandle &directory, const std::optional<Attributes> &known,
                          const DirectoryChange &change) {
    if (known && change.before && *change.before != state_of(*known)) {
        cache_.forget_names(directory);
        if (!expects_others_) absent_.forget(directory);
    }
    learn(directory, change.after);
}

Result<MadeFile> MountedVolume::create(const FileHandle &directory, const std::string &name, const SetAttributes &set,
                                       std::span<const std::byte> content) {
    begin_making(directory, name);
    const auto known = forget(directory, name);
    auto created = await<CreatedFile>(
        loop_, [&](auto done) { volume_->create_with(directory, name, set, content, std::move(done)); });
    if (!created.ok()) return created.status();
    const CreateReply &reply = created.value().reply;
    learn(directory, known, reply.directory);
    if (reply.handle) cache_.forget_attributes(*reply.handle);
    const auto object = found(directory, name, reply.handle, reply.attributes);
    if (!object.ok()) return object.status();
    return MadeFile{object.value(), std::move(created.value().file), created.value().has_content};
}

Status MountedVolume::make_directory(const FileHandle &directory, const std::string &name, uint32_t mode,
                                     const std::optional<FoundObject> &known) {
    begin_making(directory, name);
    const auto directory_before = forget(directory, name);
    const auto asked = now_();
    auto reply = await<CreateReply>(loop_, [&](auto done) { volume_->mkdir(directory, name, mode, std::move(done)); });
    if (!reply.ok()) return reply.status();
    learn(directory, directory_before, reply.value().directory);
    if (const auto since = reply.value().maybe_made_since) return confirm_made(directory, name, known, *since);
    const auto &made = reply.value().handle;
    if (!made) return {};
    cache_.put_name(directory, name, *made);
    learn(*made, reply.value().attributes);
    absent_.learn_empty(*made, asked);
    return {};
}

// The name exists, and the request was sent more than once. Scripts use a directory as a lock, so one that somebody
// else made must not count as made here: ours is new and nothing is in it yet.
Status MountedVolume::confirm_made(const FileHandle &directory, const std::string &name,
                                   const std::optional<FoundObject> &known, EventLoop::Clock::time_point since) {
    const auto made = lookup(directory, name);
    if (!made.ok()) return made.status();
    const auto &[handle, attributes] = made.value();
    const bool is_new = attributes.type == FileType::directory && !(known && known->handle == handle) &&
                        server_clock_.may_be_after(attributes.change, since);
    const auto is_ours = is_new ? is_empty(handle) : false;
    if (!is_ours.ok()) return is_ours.status();
    return is_ours.value() ? Status{} : named({EEXIST, "MKDIR: the name exists already"});
}

Result<bool> MountedVolume::is_empty(const FileHandle &directory) {
    const auto first = answer(ask_directory(directory, 0, 0));
    if (!first.ok()) return first.status();
    return first.value().eof && std::ranges::all_of(first.value().entries, [](const DirectoryEntry &entry) {
               return entry.name == "." || entry.name == "..";
           });
}

Status MountedVolume::remove(const FileHandle &directory, const std::string &name) {
    if (const auto begun = removals_.find(directory, name)) return end_removal(directory, name, *begun);
    return remove_by(&Volume::remove, directory, name);
}

// In which order the server came to several tells nothing of what others did to the directory meanwhile.
Status MountedVolume::end_removal(const FileHandle &directory, const std::string &name,
                                  const BegunRemovals::Removal &begun) {
    loop_.run_until([&begun] { return begun.reply.has_value(); });
    removals_.forget(directory, name);
    forget(directory, name);
    if (begun.reply->ok()) learn(directory, begun.reply->value().after);
    return begun.reply->status();
}

Status MountedVolume::remove_directory(const FileHandle &directory, const std::string &name) {
    return remove_by(&Volume::rmdir, directory, name);
}

Status MountedVolume::remove_by(void (Volume::*operation)(const FileHandle &, std::string_view,
                                                          Completion<DirectoryChange>),
                                const FileHandle &directory, const std::string &name) {
    const auto known = forget(directory, name);
    const auto reply = await<DirectoryChange>(
        loop_, [&](auto done) { (volume_.get()->*operation)(directory, name, std::move(done)); });
    if (reply.ok()) learn(directory, known, reply.value());
    return reply.status();
}

Result<FsInfoReply> MountedVolume::fsinfo(const FoundObject &object) {
    const uint64_t file_system = object.attributes.fsid;
    if (const auto known = limits_.find(file_system); known != limits_.end())
        return FsInfoReply{object.attributes, known->second};
    auto reply = await<FsInfoReply>(loop_, [&](auto done) { volume_->fsinfo(object.handle, std::move(done)); });
    if (!reply.ok()) return reply.status();
    limits_[file_system] = reply.value().limits;
    return FsInfoReply{object.attributes, reply.value().limits};
}

Result<FsStatReply> MountedVolume::fsstat(const FileHandle &object) {
    auto reply = await<FsStatReply>(loop_, [&](auto done) { volume_->fsstat(object, std::move(done)); });
    if (!reply.ok()) return reply.status();
    return reply;
}

DirectoryQuestionPointer MountedVolume::ask_directory(const FileHandle &directory, uint64_t cookie, uint64_t verifier,
                                                      Entries entries) {
    const bool plus = entries == Entries::with_attributes && lists_attributes_;
    auto question =
        std::make_shared<DirectoryQuestion>(DirectoryQuestion{directory, cookie, verifier, plus, now_(), std::nullopt});
    volume_->readdir(directory, cookie, verifier, question->plus,
                     [question](Result<DirectoryReply> reply) { question->reply = std::move(reply); });
    return question;
}

Result<DirectoryReply> MountedVolume::answer(DirectoryQuestionPointer question) {
    const auto ask_again = [&] {
        const Entries entries = question->plus ? Entries::with_attributes : Entries::names;
        question = ask_directory(question->directory, question->cookie, question->verifier, entries);
    };
    const auto wait = [&] { loop_.run_until([&question] { return question->reply.has_value(); }); };
    if (now_() - question->asked >= ObjectCache::kLifetime) ask_again();
    wait();
    if (question->plus && question->reply->status().is(Condition::no_operation)) {
        lists_attributes_ = false;
        ask_again();
        wait();
    }
    if (question->reply->ok()) learn(question->directory, question->reply->value().directory);
    return std::move(*question->reply);
}

void MountedVolume::learn_entry(const FileHandle &directory, const DirectoryEntry &entry) {
    if (!entry.handle) return;
    cache_.put_name(directory, entry.name, *entry.handle);
    cache_.put_attributes(*entry.handle, entry.attributes);
}

DirectoryQuestionPointer MountedVolume::question_of(const KnownListings::Wanted &wanted) {
    const auto &directory = wanted.listing->directory();
    const auto ahead = std::exchange(next_part_, nullptr);
    const bool asked = ahead && next_part_changes_ == cache_.changes() && ahead->directory == directory &&
                       ahead->cookie == wanted.from.cookie && ahead->verifier == wanted.from.verifier;
    return asked ? ahead : ask_directory(directory, wanted.from.cookie, wanted.from.verifier);
}

// Asks again for what came with a name. Nothing when there is no listing to go on from, or the server does not go on
// from there any more.
std::optional<KnownListings::Wanted> MountedVolume::learn_part_of(const FileHandle &directory,
                                                                  const std::string &name) {
    auto wanted = listings_.part_to_learn(directory, name, now_(), ObjectCache::kLifetime);
    if (!wanted) return std::nullopt;
    const auto reply = answer(question_of(*wanted));
    if (!reply.ok()) {
        listings_.forget(directory);
        return std::nullopt;
    }
    const auto &entries = reply.value().entries;
    std::optional<DirectoryPosition> next;
    if (!reply.value().eof && !entries.empty()) next = {entries.back().cookie, reply.value().verifier};
    // While the entries are used the server works on the next ones.
    if (wanted->in_order && next) {
        next_part_ = ask_directory(directory, next->cookie, next->verifier);
        next_part_changes_ = cache_.changes();
    }
    bool told = false;
    for (const auto &entry : entries) {
        learn_entry(directory, entry);
        told = told || entry.name == name;
    }
    listings_.learnt(*wanted, told, next, now_());
    return wanted;
}

// What follows the part that was learnt last need not hold the name; then its own part may.
ObjectCache::Answer MountedVolume::find_name(const FileHandle &directory, const std::string &name) {
    constexpr int kAttempts = 2;
    auto known = cache_.find_name(directory, name);
    for (int i = 0; i < kAttempts && !known.known && lists_attributes_; ++i) {
        if (!learn_part_of(directory, name)) break;
        known = cache_.find_name(directory, name);
    }
    return known;
}

std::optional<ObjectCache::Known> MountedVolume::known(const FileHandle &directory, const std::string &name) {
    if (!find_name(directory, name).handle) return std::nullopt;
    return cache_.known(directory, name);
}

void MountedVolume::forget_handles() {
    cache_.clear();
    listings_.clear();
    absent_.clear();
    next_part_.reset();
    early_.reset();
    root_.reset();
}

void MountedVolume::detach(DoneCompletion done) {
    forget_handles();
    if (volume_) return volume_->detach(std::move(done));
    loop_.soon([done = std::move(done)] { done({}); });
}

}  // namespace nfstdm
