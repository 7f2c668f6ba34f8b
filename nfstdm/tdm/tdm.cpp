// SPDX-License-Identifier: Apache-2.0
// The C face: checks arguments, calls the session, fills records.

// The interface's functions are all that is visible of a library built with hidden visibility.
#pragma GCC visibility push(default)
#include "include/tdm.h"
#pragma GCC visibility pop

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <span>
#include <string>

#include "nfstdm/files/knowledge.h"
#include "nfstdm/tdm/library.h"
#include "nfstdm/tdm/records.h"

using namespace nfstdm;  // NOLINT: this file is the library's own face

namespace {

std::string_view text_of(const char *text) {
    return text == nullptr ? std::string_view{} : text;
}

Status missing(const char *what) {
    return {EINVAL, std::string("no ") + what};
}

// An operation on a path. body: Result<Location>(Session &). The location says where the path lies, or that the
// operation failed.
template <class Body>
uint32_t path_operation(const char *name, const void *ctx, const char *path, const void *record, uint32_t *location,
                        Body &&body) noexcept {
    if (location != nullptr) *location = TDM_LOCATION_FAILED;
    return with_session(name, ctx, text_of(path), [&](Session &session) -> Status {
        if (location == nullptr) return missing("location");
        if (text_of(path).empty()) return missing("path");
        if (record == nullptr) return missing("record");
        if (!session.usable().ok()) return session.usable();
        const Result<Location> where = body(session);
        if (where.ok()) *location = where.value() == Location::remote ? TDM_LOCATION_REMOTE : TDM_LOCATION_LOCAL;
        return where.status();
    });
}

// An operation on an open file. body: Status(Session &, OpenFile &).
template <class Body>
uint32_t file_operation(const char *name, const void *ctx, uint64_t file, Body &&body) noexcept {
    return with_session(name, ctx, {}, [&](Session &session) -> Status {
        OpenFile *open = session.files().find(file);
        if (open == nullptr) return {EBADF, "no open file has the identifier " + std::to_string(file)};
        return body(session, *open);
    });
}

// Makes a file with what it begins with, which may be nothing.
uint32_t create_file(const char *name, const void *ctx, const char *path, std::span<const std::byte> content,
                     std::span<char> text, TdmFileInfo *info) noexcept {
    return with_session(name, ctx, text_of(path), [&](Session &session) -> Status {
        if (info == nullptr) return missing("place for an answer");
        if (text_of(path).empty()) return missing("path");
        auto file = session.usable().ok() ? session.files().create(path, content) : session.usable();
        if (file.ok() && !file.value()) file = Status{ENODEV, std::string(path) + " is on no mount of tslnfstab"};
        fill_text(file.ok() ? file.value()->path : file.status().text(), text.data(),
                  static_cast<uint32_t>(text.size()));
        if (file.ok()) *info = to_record(*file.value(), block_size().bytes);
        return file.status();
    });
}

}  // namespace

// ---- start and end

uint32_t tdm_tslinit(void *product_context) {
    Library &library = Library::instance();
    if (const Library::Stay stay(library); stay)
        library.trace().set_context(static_cast<const TdmProductContext *>(product_context));
    return guarded("tdm_tslinit", {}, [product_context]() -> Status {
        if (product_context == nullptr) return missing("product context");
        return {};
    });
}

uint32_t tdm_discover(uint32_t *version, void **handle, char *description, uint32_t description_length,
                      uint32_t *block_size_out, uint32_t *extra) {
    return guarded("tdm_discover", {}, [&]() -> Status {
        if (version == nullptr || handle == nullptr || block_size_out == nullptr) return missing("place for an answer");
        if (*version != TDM_INTERFACE_VERSION)
            return {EPROTONOSUPPORT, "interface version " + std::to_string(*version) + " is not offered"};
        *handle = Library::instance().discovery_handle();
        *block_size_out = block_size().bytes;
        if (extra != nullptr) *extra = 0;
        fill_text("Wren NFS client library " TSLWNFS_VERSION, description, description_length);
        return {};
    });
}

uint32_t tdm_registerthread(void *handle, uint32_t, uint32_t, uint32_t, const char *name, uint32_t) {
    return guarded("tdm_registerthread", text_of(name), [handle, name]() -> Status {
        if (handle != Library::instance().discovery_handle()) return missing("discovery handle");
        if (text_of(name).empty()) return missing("name");
        return {};
    });
}

uint32_t tdm_trace(uint32_t event, uint32_t level) {
    return guarded("tdm_trace", {}, [event, level]() -> Status {
        if (Library::instance().trace().set(event, level)) return {};
        return {EINVAL, "no such event or level"};
    });
}

uint32_t tdm_init(void *handle, void **ctx) {
    return guarded("tdm_init", {}, [handle, ctx]() -> Status {
        if (ctx == nullptr) return missing("place for the session");
        *ctx = nullptr;
        if (handle != Library::instance().discovery_handle()) return missing("discovery handle");
        *ctx = Library::instance().open_session();
        return {};
    });
}

uint32_t tdm_fini(void *ctx) {
    return guarded("tdm_fini", {}, [ctx]() -> Status {
        const auto session = Library::instance().take_session(ctx);
        if (!session) return {EINVAL, "no open session"};
        return session->finish();
    });
}

// ---- open files

uint32_t tdm_identify(void *ctx, const char *path, uint64_t, uint32_t, uint32_t *code, char *error_text,
                      uint32_t error_text_length, TdmFileInfo *info, uint32_t) {
    if (code != nullptr) *code = TDM_IDENTIFIED_FAILED;
    return with_session("tdm_identify", ctx, text_of(path), [&](Session &session) -> Status {
        if (code == nullptr || info == nullptr) return missing("place for an answer");
        if (text_of(path).empty()) return missing("path");
        const auto file = session.usable().ok() ? session.files().identify(path) : session.usable();
        if (!file.ok()) {
            fill_text(file.status().text(), error_text, error_text_length);
            return file.status();
        }
        *code = file.value() ? TDM_IDENTIFIED_REMOTE : TDM_IDENTIFIED_LOCAL;
        if (file.value()) *info = to_record(*file.value(), block_size().bytes);
        return {};
    });
}

uint32_t tdm_create(void *ctx, const char *path, uint64_t, uint32_t, uint32_t, char *error_text,
                    uint32_t error_text_length, TdmFileInfo *info) {
    return create_file("tdm_create", ctx, path, {}, {error_text, error_text_length}, info);
}

uint32_t tdm_resize(void *ctx, uint64_t file, uint64_t size) {
    return file_operation("tdm_resize", ctx, file, [size](Session &, OpenFile &open) { return open.resize(size); });
}

// Identifiers last as long as their file is open.
uint32_t tdm_reidentify(void *ctx, uint64_t file, uint32_t, TdmFileInfo *info) {
    return file_operation("tdm_reidentify", ctx, file, [file, info](Session &, OpenFile &) -> Status {
        if (info == nullptr) return missing("place for an answer");
        info->file = file;
        return {};
    });
}

uint32_t tdm_commit(void *ctx, uint64_t file) {
    return file_operation("tdm_commit", ctx, file, [](Session &, OpenFile &open) {
        Status failure = open.flush();
        open.rest();
        return failure;
    });
}

uint32_t tdm_unidentify(void *ctx, uint64_t file) {
    return file_operation("tdm_unidentify", ctx, file,
                          [file](Session &session, OpenFile &) { return session.files().close(file); });
}

// ---- what a caller can do without

namespace {

// That the server, or the protocol, lacks something is an answer and no failure that anyone need be told of.
template <class Body>
uint32_t optional_operation(const char *name, const void *ctx, uint64_t file, Body &&body) noexcept {
    bool lacking = false;
    const uint32_t status = file_operation(name, ctx, file, [&](Session &session, OpenFile &open) -> Status {
        Status failure = body(session, open);
        lacking = failure.number() == ENOTSUP;
        return lacking ? Status{} : failure;
    });
    return lacking ? uint32_t{ENOTSUP} : status;
}

}  // namespace

uint32_t tdm_copy(void *ctx, uint64_t source, uint64_t source_offset, uint64_t destination, uint64_t destination_offset,
                  uint64_t count, uint64_t *copied) {
    return optional_operation("tdm_copy", ctx, destination, [&](Session &session, OpenFile &to) -> Status {
        OpenFile *from = session.files().find(source);
        if (copied == nullptr || from == nullptr || count == 0) return missing("file, count or place for an answer");
        const auto done = to.copy_from(*from, {source_offset, destination_offset, count});
        if (done.ok()) *copied = done.value();
        return done.status();
    });
}

uint32_t tdm_extent(void *ctx, uint64_t file, uint64_t offset, uint64_t *begin, uint64_t *end) {
    return optional_operation("tdm_extent", ctx, file, [&](Session &, OpenFile &open) -> Status {
        if (begin == nullptr || end == nullptr) return missing("place for an answer");
        const auto extent = open.extent(offset);
        if (!extent.ok()) return extent.status();
        *begin = extent.value().begin;
        *end = extent.value().end;
        return {};
    });
}

uint32_t tdm_lend(void *ctx, uint64_t file, uint64_t offset, uint32_t most, const void **bytes, uint32_t *count) {
    return optional_operation("tdm_lend", ctx, file, [&](Session &session, OpenFile &open) -> Status {
        if (bytes == nullptr || count == nullptr || most == 0) return missing("count or place for an answer");
        session.files().make_room_to_read(open);
        const auto lent = open.lend(offset, most);
        if (lent.empty()) return {ENOTSUP, "nothing to lend"};
        *bytes = lent.data();
        *count = static_cast<uint32_t>(lent.size());
        return {};
    });
}

uint32_t tdm_createwith(void *ctx, const char *path, const void *content, uint32_t count, char *error_text,
                        uint32_t error_text_length, TdmFileInfo *info) {
    if (content == nullptr || count == 0) return EINVAL;
    return create_file("tdm_createwith", ctx, path, {static_cast<const std::byte *>(content), count},
                       {error_text, error_text_length}, info);
}

uint32_t tdm_expect(void *ctx, const char *path, uint32_t what) {
    bool begun = true;
    const uint32_t status = with_session("tdm_expect", ctx, text_of(path), [&](Session &session) -> Status {
        if (text_of(path).empty()) return missing("path");
        switch (what) {
            case TDM_EXPECT_ATTRIBUTES:
                session.paths().expect_attributes(path);
                return {};
            case TDM_EXPECT_USE:
                session.paths().expect_use(path);
                return {};
            case TDM_EXPECT_CONTENT:
                session.files().expect_content(path);
                return {};
            case TDM_EXPECT_DELETE:
                begun = session.paths().expect_removal(path, [&session](const Place &place) {
                    return session.files().unwritten() > 0 || session.files().is_open(place);
                });
                return {};
            default:
                return missing("use of a path that is known");
        }
    });
    return begun ? status : uint32_t{ENOTSUP};
}

uint32_t tdm_known(void *ctx, const char *path, void *record, uint32_t capacity, uint32_t *size) {
    return with_session("tdm_known", ctx, text_of(path), [&](Session &session) -> Status {
        if (record == nullptr || size == nullptr) return missing("place for an answer");
        const std::string known = knowledge_of(session.mounts(), text_of(path));
        *size = known.size() <= capacity ? static_cast<uint32_t>(known.size()) : 0;
        std::copy_n(known.data(), *size, static_cast<char *>(record));
        return {};
    });
}

uint32_t tdm_learn(void *ctx, const void *record, uint32_t size) {
    return with_session("tdm_learn", ctx, {}, [&](Session &session) -> Status {
        if (record == nullptr) return missing("record");
        const bool sound = take_knowledge(session.mounts(), {static_cast<const char *>(record), size});
        return sound ? Status{} : Status{EINVAL, "it is no record of tdm_known"};
    });
}

uint32_t tdm_written(void *ctx, uint64_t file, uint32_t timeout, uint64_t *end) {
    return optional_operation("tdm_written", ctx, file, [timeout, end](Session &, OpenFile &open) -> Status {
        if (end == nullptr) return missing("place for an answer");
        *end = open.unanswered_from(std::chrono::milliseconds(timeout)).value_or(UINT64_MAX);
        return open.write_failure();
    });
}

// ---- paths

uint32_t tdm_delete(void *ctx, const char *path, uint32_t *location) {
    return path_operation("tdm_delete", ctx, path, path, location, [path](Session &session) {
        return session.paths().remove(path, [&session](const Place &place) {
            Status flushed = session.files().flush_all();
            session.files().rest(place);
            return flushed;
        });
    });
}

uint32_t tdm_getattr(void *ctx, const char *path, TdmAttributes *record, uint32_t *location) {
    return path_operation("tdm_getattr", ctx, path, record, location, [path, record](Session &session) {
        Attributes attributes;
        ObjectName name;
        auto where = session.paths().get_attributes(path, attributes, &name);
        if (where.ok() && where.value() == Location::remote) *record = to_record(attributes, name);
        return where;
    });
}

uint32_t tdm_setattr(void *ctx, const char *path, const TdmSetAttributes *attributes, uint32_t *location) {
    return path_operation("tdm_setattr", ctx, path, attributes, location,
                          [path, attributes](Session &session) -> Result<Location> {
                              if (attributes->mask != TDM_SET_PERMISSIONS)
                                  return Status{EINVAL, "only permissions can be set"};
                              return session.paths().set_permissions(path, attributes->permissions);
                          });
}

uint32_t tdm_mkdir(void *ctx, const char *path, uint32_t *location) {
    return path_operation("tdm_mkdir", ctx, path, path, location,
                          [path](Session &session) { return session.paths().make_directory(path); });
}

uint32_t tdm_rmdir(void *ctx, const char *path, uint32_t *location) {
    return path_operation("tdm_rmdir", ctx, path, path, location,
                          [path](Session &session) { return session.paths().remove_directory(path); });
}

uint32_t tdm_readlink(void *ctx, const char *path, char *target, uint32_t *location) {
    return path_operation("tdm_readlink", ctx, path, target, location,
                          [path, target](Session &session) -> Result<Location> {
                              std::string text;
                              auto where = session.paths().read_link(path, text);
                              if (!where.ok() || where.value() == Location::local) return where;
                              if (text.size() >= TDM_TEXT_SIZE) return Status{ENAMETOOLONG, "the target is too long"};
                              if (text.find('\0') != std::string::npos) return Status{EIO, "the target is no path"};
                              fill_text(text, target, TDM_TEXT_SIZE);
                              return where;
                          });
}

uint32_t tdm_readdir(void *ctx, const char *path, TdmDirEntry *entries, TdmReaddirReply *reply, uint32_t entries_bytes,
                     uint64_t cookie, uint32_t *, uint32_t *location) {
    const std::size_t most = entries_bytes / sizeof(TdmDirEntry);
    return path_operation("tdm_readdir", ctx, path, entries, location, [=](Session &session) -> Result<Location> {
        if (reply == nullptr || most == 0) return missing("room for an entry");
        DirectoryStream::Batch batch;
        auto where = session.paths().list(path, cookie, most, batch);
        if (!where.ok() || where.value() == Location::local) return where;
        for (std::size_t i = 0; i < batch.entries.size(); ++i)
            fill_entry(batch.entries[i], cookie + i, entries[i]);
        reply->entries = static_cast<uint32_t>(batch.entries.size());
        reply->end_of_directory = batch.at_end ? 1 : 0;
        const std::size_t left_out = batch.at_end ? session.paths().names_refused() : 0;
        reply->library_word = left_out == 0 ? 0 : TDM_NAMES_LEFT_OUT | std::min<std::size_t>(left_out, UINT32_MAX);
        if (left_out != 0 && Library::instance().trace().wants(TraceLevel::notice))
            Library::instance().trace().write(
                TraceLevel::notice, "tdm_readdir",
                std::string(path) + ": names left out that no path can hold: " + std::to_string(left_out));
        return where;
    });
}

uint32_t tdm_fsinfo(void *ctx, const char *path, TdmFsInfo *record, uint32_t *location) {
    return path_operation("tdm_fsinfo", ctx, path, record, location, [path, record](Session &session) {
        FsInfoReply info;
        auto where = session.paths().fsinfo(path, info);
        if (where.ok() && where.value() == Location::remote) *record = to_record(info);
        return where;
    });
}

uint32_t tdm_fsstat(void *ctx, const char *path, TdmFsStat *record, uint32_t *location) {
    return path_operation("tdm_fsstat", ctx, path, record, location, [path, record](Session &session) {
        FsStatReply stat;
        auto where = session.paths().fsstat(path, stat);
        if (where.ok() && where.value() == Location::remote) *record = to_record(stat);
        return where;
    });
}

// ---- I/O

uint32_t tdm_io(void *ctx, TdmIoRequest *const *submit, uint32_t nsubmit, TdmIoRequest *const *, uint32_t,
                TdmIoRequest *const *reap, uint32_t nreap, uint32_t, uint32_t timeout, uint32_t *count) {
    return with_session("tdm_io", ctx, {}, [&](Session &session) -> Status {
        if ((submit == nullptr && nsubmit != 0) || (reap == nullptr && nreap != 0)) return missing("requests");
        if (nreap != 0 && count == nullptr) return missing("place for the count");
        if (nsubmit == 0 && nreap == 0) return session.barrier();
        if (Status refusal = session.io().submit({submit, nsubmit}); !refusal.ok()) return refusal;
        if (nreap == 0) return {};
        return session.io().reap({reap, nreap}, timeout, *count);
    });
}
