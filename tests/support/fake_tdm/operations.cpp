// SPDX-License-Identifier: Apache-2.0
// The storage interface over FakeTdm.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <string>

#include "tests/support/fake_tdm/fake_tdm.h"

namespace {

FakeTdm &fake() {
    return FakeTdm::instance();
}

template <class... Parts>
std::string line(const Parts &...parts) {
    std::ostringstream text;
    (text << ... << parts);
    return text.str();
}

void copy_text(char *target, uint32_t size, const std::string &text) {
    const std::size_t length = std::min<std::size_t>(text.size(), size - 1);
    std::memcpy(target, text.data(), length);
    target[length] = '\0';
}

// Records a path operation and settles the answers that need no work: those set by the test and those of a path that is
// on no mount. Returns false when the operation is to be done.
bool settle(const std::string &operation, const std::string &arguments, const char *path, uint32_t *location,
            uint32_t &status) {
    if (const auto answer = fake().record(operation, arguments)) {
        status = answer->status;
        *location = answer->location.value_or(TDM_LOCATION_FAILED);
        return true;
    }
    status = 0;
    *location = fake().volume.serves(path) ? TDM_LOCATION_REMOTE : TDM_LOCATION_LOCAL;
    return *location == TDM_LOCATION_LOCAL;
}

uint32_t conclude(uint32_t status, uint32_t *location) {
    *location = status == 0 ? TDM_LOCATION_REMOTE : TDM_LOCATION_FAILED;
    return status;
}

// Records an operation on an open file. Returns its status when it is settled, ENOENT's stand-in for an unknown file
// included.
std::optional<uint32_t> settle_file(const std::string &operation, const std::string &arguments, uint64_t file) {
    if (const auto answer = fake().record(operation, arguments)) return answer->status;
    if (!fake().knows(file)) return EBADF;
    return std::nullopt;
}

void fill_info(TdmFileInfo *info, const FakeNodePointer &node) {
    *info = fake().file_properties;
    info->file = fake().open(node);
    info->size = node->data.size();
}

std::string describe(const TdmIoRequest &request) {
    const bool aligned = reinterpret_cast<uintptr_t>(request.buffer) % 4096 == 0;
    return line(request.operation == TDM_IO_READ ? "read" : "write", " file=", request.file, " offset=", request.offset,
                " count=", request.count, " flags=", unsigned{request.flags}, " cleared=", request.cleared,
                aligned ? " aligned" : " UNALIGNED");
}

uint32_t perform(const TdmIoRequest &request) {
    const auto found = fake().open_files_.find(request.file);
    if (found == fake().open_files_.end() || found->second.stale) return ESTALE;
    std::string &data = found->second.node->data;
    auto *buffer = static_cast<char *>(request.buffer);
    const uint64_t end = request.offset + request.count;
    if (request.operation == TDM_IO_WRITE) {
        if (data.size() < end) data.resize(end);
        std::copy_n(buffer, request.count, data.begin() + static_cast<std::ptrdiff_t>(request.offset));
        return 0;
    }
    std::fill_n(buffer, request.count, '\0');
    if (request.offset < data.size()) data.copy(buffer, request.count, request.offset);
    return 0;
}

uint32_t submit(TdmIoRequest *const *requests, uint32_t number, uint32_t timeout, uint32_t count) {
    std::string text = line("requests=", number, " timeout=", timeout, " count=", count);
    for (uint32_t index = 0; index < number; ++index) {
        text += " [" + describe(*requests[index]) + "]";
    }
    if (const auto answer = fake().record("submit", text)) return answer->status;
    for (uint32_t index = 0; index < number; ++index) {
        requests[index]->status = 0;
        fake().in_flight_.push_back(requests[index]);
    }
    return 0;
}

uint32_t reap(TdmIoRequest *const *requests, uint32_t number, uint32_t minreap, uint32_t timeout, uint32_t *count) {
    const auto answer =
        fake().record("reap", line("requests=", number, " minreap=", minreap, " timeout=", timeout, " count=", *count));
    if (answer) return answer->status;
    std::vector<const TdmIoRequest *> &in_flight = fake().in_flight_;
    for (uint32_t index = 0; index < number; ++index) {
        const auto found = std::find(in_flight.begin(), in_flight.end(), requests[index]);
        if (found == in_flight.end()) return EINVAL;  // a real library would wait for ever
        in_flight.erase(found);
        const auto status = fake().take_request_status();
        requests[index]->status = status ? *status : perform(*requests[index]);
    }
    *count = number;
    return 0;
}

}  // namespace

uint32_t tdm_tslinit(void *) {
    fake().record("tslinit", "");
    return 0;
}

uint32_t tdm_discover(uint32_t *version, void **handle, char *description, uint32_t description_length,
                      uint32_t *block_size, uint32_t *extra) {
    if (const auto answer = fake().record("discover", line("version=", *version, " length=", description_length))) {
        return answer->status;
    }
    *handle = &fake();
    copy_text(description, description_length, "Fake storage library");
    *block_size = fake().block_size;
    *extra = 0;
    return 0;
}

uint32_t tdm_registerthread(void *, uint32_t word1, uint32_t word2, uint32_t word3, const char *name, uint32_t word4) {
    const auto answer = fake().record("registerthread", line(word1, " ", word2, " ", word3, " ", name, " ", word4));
    return answer ? answer->status : 0;
}

uint32_t tdm_trace(uint32_t event, uint32_t level) {
    fake().record("trace", line("event=", event, " level=", level));
    return 0;
}

uint32_t tdm_init(void *, void **ctx) {
    const auto answer = fake().record("init", "");
    *ctx = answer ? nullptr : fake().context();
    return answer ? answer->status : 0;
}

uint32_t tdm_fini(void *) {
    fake().record("fini", "");
    return 0;
}

uint32_t tdm_identify(void *, const char *path, uint64_t key, uint32_t mode, uint32_t *code, char *error_text,
                      uint32_t error_text_length, TdmFileInfo *info, uint32_t flags) {
    const auto answer = fake().record(
        "identify", line(path, " key=", key, " mode=", mode, " length=", error_text_length, " flags=", flags));
    *code = TDM_IDENTIFIED_FAILED;
    const FakeNodePointer node = fake().volume.find(path, true);
    if (answer) {
        *code = answer->location.value_or(TDM_IDENTIFIED_FAILED);
        if (answer->status == 0 && node != nullptr) fill_info(info, node);
        return answer->status;
    }
    if (!fake().volume.serves(path)) {
        *code = TDM_IDENTIFIED_LOCAL;
        return 0;
    }
    const uint32_t status = node == nullptr ? ENOENT : node->is_directory() ? EISDIR : 0;
    if (status != 0) {
        copy_text(error_text, error_text_length, "The fake refuses.");
        return status;
    }
    *code = TDM_IDENTIFIED_REMOTE;
    fill_info(info, node);
    return 0;
}

uint32_t tdm_create(void *, const char *path, uint64_t size, uint32_t type, uint32_t mode, char *error_text,
                    uint32_t error_text_length, TdmFileInfo *info) {
    const auto answer = fake().record(
        "create", line(path, " size=", size, " type=", type, " mode=", mode, " length=", error_text_length));
    FakeNodePointer node;
    uint32_t status = fake().volume.serves(path) ? 0 : ENOTSUP;
    if (answer) status = answer->status;
    if (status == 0) status = fake().volume.create(path, node);
    if (status != 0) {
        copy_text(error_text, error_text_length, "The fake refuses.");
        return status;
    }
    node->data.assign(size, '\0');
    fill_info(info, node);
    copy_text(error_text, error_text_length, path);
    return 0;
}

uint32_t tdm_resize(void *, uint64_t file, uint64_t size) {
    if (const auto status = settle_file("resize", line("file=", file, " size=", size), file)) return *status;
    FakeTdm::OpenFile &open_file = fake().open_files_[file];
    open_file.node->resize(size);
    open_file.stale = true;
    return 0;
}

uint32_t tdm_reidentify(void *, uint64_t file, uint32_t flags, TdmFileInfo *info) {
    if (const auto status = settle_file("reidentify", line("file=", file, " flags=", flags), file)) return *status;
    const FakeNodePointer node = fake().open_files_[file].node;
    fake().open_files_.erase(file);
    info->file = fake().open(node);
    return 0;
}

uint32_t tdm_commit(void *, uint64_t file) {
    return settle_file("commit", line("file=", file), file).value_or(0);
}

uint32_t tdm_unidentify(void *, uint64_t file) {
    if (const auto status = settle_file("unidentify", line("file=", file), file)) return *status;
    fake().open_files_.erase(file);
    return 0;
}

uint32_t tdm_delete(void *, const char *path, uint32_t *location) {
    uint32_t status = 0;
    if (settle("delete", path, path, location, status)) return status;
    return conclude(fake().volume.remove_file(path), location);
}

uint32_t tdm_getattr(void *, const char *path, TdmAttributes *attributes, uint32_t *location) {
    uint32_t status = 0;
    if (settle("getattr", path, path, location, status)) return status;
    const FakeNodePointer node = fake().volume.find(path);
    if (node == nullptr) return conclude(ENOENT, location);
    *attributes = node->current_attributes();
    return 0;
}

uint32_t tdm_setattr(void *, const char *path, const TdmSetAttributes *attributes, uint32_t *location) {
    uint32_t status = 0;
    const std::string arguments =
        line(path, " mask=", attributes->mask, " permissions=0", std::oct, attributes->permissions);
    if (settle("setattr", arguments, path, location, status)) return status;
    const FakeNodePointer node = fake().volume.find(path);
    if (node == nullptr) return conclude(ENOENT, location);
    node->attributes.permissions = attributes->permissions;
    return 0;
}

uint32_t tdm_mkdir(void *, const char *path, uint32_t *location) {
    uint32_t status = 0;
    if (settle("mkdir", path, path, location, status)) return status;
    return conclude(fake().volume.make_directory(path), location);
}

uint32_t tdm_rmdir(void *, const char *path, uint32_t *location) {
    uint32_t status = 0;
    if (settle("rmdir", path, path, location, status)) return status;
    return conclude(fake().volume.remove_directory(path), location);
}

uint32_t tdm_readlink(void *, const char *path, char *target, uint32_t *location) {
    uint32_t status = 0;
    if (settle("readlink", path, path, location, status)) return status;
    const FakeNodePointer node = fake().volume.find(path);
    if (node == nullptr) return conclude(ENOENT, location);
    if (node->attributes.type != TDM_TYPE_LINK) return conclude(EINVAL, location);
    copy_text(target, TDM_TEXT_SIZE, node->data);
    return 0;
}

uint32_t tdm_readdir(void *, const char *path, TdmDirEntry *entries, TdmReaddirReply *reply, uint32_t entries_bytes,
                     uint64_t cookie, uint32_t *unused, uint32_t *location) {
    *unused = 0;
    uint32_t status = 0;
    const std::string arguments = line(path, " bytes=", entries_bytes, " cookie=", cookie);
    if (settle("readdir", arguments, path, location, status)) return status;
    const FakeNodePointer directory = fake().volume.find(path);
    if (directory == nullptr) return conclude(ENOENT, location);

    std::vector<std::string> names = {".", ".."};
    for (const auto &entry : directory->entries) {
        names.push_back(entry.first);
    }
    const uint32_t room = entries_bytes / static_cast<uint32_t>(sizeof(TdmDirEntry));
    reply->entries = 0;
    for (uint64_t position = cookie; position < names.size() && reply->entries < room; ++position) {
        TdmDirEntry &entry = entries[reply->entries++];
        entry = {};
        entry.cookie = position + 1;
        copy_text(entry.name, sizeof entry.name, names[position]);
    }
    reply->end_of_directory = cookie + reply->entries >= names.size() ? 1 : 0;
    if (reply->end_of_directory != 0 && fake().names_left_out != 0)
        reply->library_word = TDM_NAMES_LEFT_OUT | fake().names_left_out;
    return 0;
}

uint32_t tdm_fsinfo(void *, const char *path, TdmFsInfo *info, uint32_t *location) {
    uint32_t status = 0;
    if (settle("fsinfo", path, path, location, status)) return status;
    const FakeNodePointer node = fake().volume.find(path);
    if (node == nullptr) return conclude(ENOENT, location);
    *info = fake().file_system_limits;
    info->attributes = node->current_attributes();
    info->readdir_entries = fake().readdir_entries;
    return 0;
}

uint32_t tdm_fsstat(void *, const char *path, TdmFsStat *stat, uint32_t *location) {
    uint32_t status = 0;
    if (settle("fsstat", path, path, location, status)) return status;
    const FakeNodePointer node = fake().volume.find(path);
    if (node == nullptr) return conclude(ENOENT, location);
    *stat = fake().file_system_figures;
    stat->attributes = node->current_attributes();
    return 0;
}

uint32_t tdm_io(void *, TdmIoRequest *const *to_submit, uint32_t nsubmit, TdmIoRequest *const *, uint32_t nwait,
                TdmIoRequest *const *to_reap, uint32_t nreap, uint32_t minreap, uint32_t timeout, uint32_t *count) {
    if (nsubmit == 0 && nreap == 0) {
        const auto answer = fake().record("barrier", line("wait=", nwait, " timeout=", timeout));
        return answer ? answer->status : 0;
    }
    if (nsubmit != 0) {
        const uint32_t status = submit(to_submit, nsubmit, timeout, *count);
        if (status != 0) return status;
    }
    return nreap == 0 ? 0 : reap(to_reap, nreap, minreap, timeout, count);
}
