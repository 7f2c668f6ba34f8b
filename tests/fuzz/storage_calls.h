// SPDX-License-Identifier: Apache-2.0
// Calls of the storage interface on whatever server a fuzzer gives it.
//
// Every call ends, with a status of its own; texts are terminated, names of a directory are harmless and come once, and
// no byte is put behind a buffer.
#pragma once

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

#include "include/tdm.h"
#include "tests/fuzz/fuzz.h"

namespace fuzz {

constexpr std::size_t kStorageCalls = 8;

// A home with one server, made once and removed at the end.
class Home {
  public:
    Home() {
        char name[] = "/tmp/hostile_server_XXXXXX";
        require(mkdtemp(name) != nullptr, "there is a place for a home");
        path_ = name;
        std::filesystem::create_directory(path_ / "dbs");
        std::ofstream(path_ / "dbs" / "tslnfstab") << "server: s\nexport: /e mount: /m\n";
        require(setenv("TESSEL_HOME", path_.c_str(), 1) == 0, "the home can be named");
    }
    ~Home() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Home(const Home &) = delete;
    Home &operator=(const Home &) = delete;

  private:
    std::filesystem::path path_;
};

class Session {
  public:
    Session() {
        uint32_t version = TDM_INTERFACE_VERSION, block_size = 0, extra = 0;
        void *handle = nullptr;
        require(tdm_discover(&version, &handle, text_, sizeof text_, &block_size, &extra) == 0, "discovery works");
        require(tdm_registerthread(handle, 0, 1, 0, "fuzzer", 0) == 0, "registration works");
        require(tdm_init(handle, &context_) == 0, "a session opens");
    }
    ~Session() { tdm_fini(context_); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    void call(uint8_t number) {
        uint32_t location = 0;
        switch (number % kKinds) {
            case 0:
                static_cast<void>(tdm_expect(context_, "/m/d", TDM_EXPECT_ATTRIBUTES));
                list("/m/d");
                attributes();
                return read_expected({"/m/d/f", "/m/d/g"});
            case 1:
                return read_file("/m/d/f");
            case 2:
                return write_file("/m/d/n");
            case 3:
                return read_link();
            case 4:
                return attributes();
            case 5:
                static_cast<void>(tdm_mkdir(context_, "/m/d/made", &location));
                break;
            case 6:
                static_cast<void>(tdm_rmdir(context_, "/m/d/gone", &location));
                break;
            case 7:
                static_cast<void>(tdm_delete(context_, "/m/d/../f", &location));
                break;
            case 8:
                static_cast<void>(tdm_fsinfo(context_, "/m", &info_, &location));
                break;
            case 9:
                static_cast<void>(tdm_fsstat(context_, "/m/d", &stat_, &location));
                break;
            case 10:
                return set_attributes();
            case 11:
                static_cast<void>(tdm_expect(context_, "/m", TDM_EXPECT_USE));
                return list("/m");
            case 12:
                return copy_file();
            default:
                break;
        }
        require(location <= TDM_LOCATION_LOST, "a location is one of four");
    }

  private:
    static constexpr uint8_t kKinds = 13;

    // As the utility does it: from the start, batch by batch.
    void list(const char *path) {
        constexpr std::size_t kEntries = 8;
        std::vector<TdmDirEntry> entries(kEntries);
        std::set<std::string> names;
        uint64_t position = 0;
        TdmReaddirReply reply{};
        while (reply.end_of_directory == 0) {
            uint32_t unused = 0, location = 0;
            const auto size = static_cast<uint32_t>(entries.size() * sizeof(TdmDirEntry));
            if (tdm_readdir(context_, path, entries.data(), &reply, size, position, &unused, &location) != 0) return;
            require(location != TDM_LOCATION_LOCAL, "the directory is not taken for a local one");
            require(reply.entries <= kEntries, "no more entries than there is room for");
            require(reply.entries > 0 || reply.end_of_directory != 0, "a listing goes on");
            for (uint32_t i = 0; i < reply.entries; ++i)
                examine_entry(entries[i], position + i, names);
            position += reply.entries;
        }
    }

    // Judged apart from the library's own judgement.
    static bool is_harmless(const std::string &name) {
        return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
    }

    static void examine_entry(const TdmDirEntry &entry, uint64_t position, std::set<std::string> &names) {
        require(std::memchr(entry.name, '\0', sizeof entry.name) != nullptr, "a name is terminated");
        const std::string name = entry.name;
        require(position > 1 || name == (position == 0 ? "." : ".."), "the first two entries are the dots");
        require(position <= 1 || is_harmless(name), "names are harmless");
        require(names.insert(name).second, "a name comes once");
    }

    TdmIoRequest request(uint8_t operation, uint64_t file, uint64_t offset, std::span<std::byte> data) const {
        TdmIoRequest made{};
        made.operation = operation;
        made.flags = TDM_IO_FLAGS;
        made.file = file;
        made.offset = offset;
        made.buffer = data.data();
        made.count = static_cast<uint32_t>(data.size());
        return made;
    }
    uint32_t transfer(uint8_t operation, uint64_t file, uint64_t offset, std::span<std::byte> data) {
        TdmIoRequest one = request(operation, file, offset, data);
        TdmIoRequest *list[] = {&one};
        uint32_t count = 0;
        const uint32_t refused = tdm_io(context_, list, 1, nullptr, 0, nullptr, 0, 0, 0, &count);
        if (refused != 0) return refused;
        const uint32_t status = tdm_io(context_, nullptr, 0, nullptr, 0, list, 1, 0, TDM_WAIT_FOREVER, &count);
        require(count == 1, "a request that was accepted completes");
        require(status == one.status, "a failed request fails the call that collects it");
        return status;
    }

    void read_file(const char *path) {
        uint32_t code = 0;
        TdmFileInfo file{};
        if (tdm_identify(context_, path, 0, 2, &code, text_, sizeof text_, &file, 0) != 0) return;
        require(code == TDM_IDENTIFIED_REMOTE, "the file is not taken for a local one");
        std::vector<std::byte> data(5000);
        const uint64_t size = file.size;
        for (const uint64_t offset : {uint64_t{0}, uint64_t{5000}, size - 100, size, size + 1, ~uint64_t{0} - 5000})
            static_cast<void>(transfer(TDM_IO_READ, file.file, offset, data));
        const void *lent = nullptr;
        uint32_t count = 0;
        for (unsigned loans = 0; loans < 16; ++loans) {
            if (tdm_lend(context_, file.file, uint64_t{3000} * loans, 3000, &lent, &count) != 0) break;
            require(count > 0 && count <= 3000, "a loan is no larger than was asked for");
            std::memcpy(data.data(), lent, count);
        }
        static_cast<void>(tdm_unidentify(context_, file.file));
    }

    void read_expected(std::initializer_list<const char *> paths) {
        TdmAttributes known{};
        uint32_t location = 0;
        for (const char *path : paths)
            static_cast<void>(tdm_getattr(context_, path, &known, &location));
        for (const char *path : paths)
            static_cast<void>(tdm_expect(context_, path, TDM_EXPECT_CONTENT));
        for (const char *path : paths)
            read_file(path);
    }

    void write_file(const char *path) {
        TdmFileInfo file{};
        std::vector<std::byte> data(3000, std::byte{'w'});
        if (tdm_createwith(context_, path, data.data(), 2000, text_, sizeof text_, &file) == 0)
            static_cast<void>(tdm_unidentify(context_, file.file));
        if (tdm_create(context_, path, 0, 2, 2, text_, sizeof text_, &file) != 0) return;
        for (const uint64_t offset : {uint64_t{0}, uint64_t{3000}, uint64_t{1000}, ~uint64_t{0} - 3000})
            static_cast<void>(transfer(TDM_IO_WRITE, file.file, offset, data));
        static_cast<void>(transfer(TDM_IO_READ, file.file, 0, data));
        uint64_t taken = 0;
        if (tdm_written(context_, file.file, 10, &taken) == 0)
            require(taken == UINT64_MAX || taken >= ~uint64_t{0} - 3000 || taken < 4000, "what waits was given to it");
        static_cast<void>(tdm_resize(context_, file.file, 1234));
        static_cast<void>(tdm_reidentify(context_, file.file, 0, &file));
        static_cast<void>(tdm_commit(context_, file.file));
        static_cast<void>(tdm_unidentify(context_, file.file));
    }

    void copy_file() {
        uint32_t code = 0;
        TdmFileInfo from{};
        TdmFileInfo to{};
        if (tdm_identify(context_, "/m/d/f", 0, 2, &code, text_, sizeof text_, &from, 0) != 0) return;
        uint64_t begin = 0, end = 0, copied = 0;
        if (tdm_extent(context_, from.file, 10, &begin, &end) == 0)
            require(begin <= end && end <= from.size, "an extent lies in its file");
        if (tdm_create(context_, "/m/d/n", 0, 2, 2, text_, sizeof text_, &to) != 0) return;
        if (tdm_copy(context_, from.file, 0, to.file, 0, 5000, &copied) == 0)
            require(copied > 0 && copied <= 5000, "a copy goes on, and no further than it was asked for");
        static_cast<void>(tdm_unidentify(context_, to.file));
        hand_over();
    }

    void hand_over() {
        char record[4096];
        uint32_t size = 0;
        require(tdm_known(context_, "/m/d/f", record, sizeof record, &size) == 0, "what is known can be told");
        require(size <= sizeof record, "a record fits");
        require(size == 0 || tdm_learn(context_, record, size) == 0, "a record is understood");
    }

    void read_link() {
        char target[TDM_TEXT_SIZE];
        std::memset(target, 'x', sizeof target);
        uint32_t location = 0;
        if (tdm_readlink(context_, "/m/l", target, &location) != 0) return;
        require(std::memchr(target, '\0', sizeof target) != nullptr, "a target is terminated");
    }

    void attributes() {
        TdmAttributes found{};
        uint32_t location = 0;
        if (tdm_getattr(context_, "/m/d/f", &found, &location) != 0) return;
        require(found.type >= 1 && found.type <= 7, "a type is one of seven");
        require(found.permissions <= 07777, "permissions are twelve bits");
    }

    void set_attributes() {
        const TdmSetAttributes set{TDM_SET_PERMISSIONS, {}, 0640};
        uint32_t location = 0;
        static_cast<void>(tdm_setattr(context_, "/m/d/f", &set, &location));
    }

    void *context_ = nullptr;
    char text_[TDM_TEXT_SIZE] = {};
    TdmFsInfo info_{};
    TdmFsStat stat_{};
};

// One session with a call for each byte.
inline void make_calls(Bytes calls) {
    static const Home home;
    Session session;
    for (const std::byte call : calls)
        session.call(std::to_integer<uint8_t>(call));
}

}  // namespace fuzz
