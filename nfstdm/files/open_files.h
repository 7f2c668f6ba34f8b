// SPDX-License-Identifier: Apache-2.0
// The files of a session that are identified, by identifier. A file identified twice has one identifier and is let go
// when it was closed as often: so its windows never contradict each other. To its server it is open only while it is
// read or written.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "nfstdm/files/early_reads.h"
#include "nfstdm/files/open_file.h"

namespace nfstdm {

struct OpenedFile {
    uint64_t identifier = 0;
    uint64_t size = 0;  // bytes
    std::string path;   // after every link
};

class OpenFiles {
  public:
    // create_mode: permission bits of files made here. The mounts must outlive the object.
    // first_identifier: above 0.
    OpenFiles(MountSet &mounts, uint32_t create_mode, uint64_t first_identifier = 1);

    // Nothing for a path on no mount. A directory fails with EISDIR.
    Result<std::optional<OpenedFile>> identify(std::string_view path);
    // Makes an empty file, or empties the one there is. It grows with what is written: were it made in its final size,
    // an upload that was interrupted would look whole.
    // content counts as written from the start of the file on; perhaps it is on stable storage already.
    Result<std::optional<OpenedFile>> create(std::string_view path, std::span<const std::byte> content = {});

    // A file that is read as a whole soon is asked for, if it is small.
    void expect_content(std::string_view path) { early_.expect(path); }
    // What was asked for so far is not used any more.
    void forget_expected() { early_.clear(); }

    // Null when no file has the identifier.
    OpenFile *find(uint64_t identifier);

    // Gives the failure of the writes that were still accepted; the file is closed all the same.
    Status close(uint64_t identifier);
    // Brings every accepted write of every file to stable storage, and gives the first failure.
    Status flush_all();
    // Gives up the windows of the file at a place, if it is open: it is about to go.
    void rest(const Place &place);
    bool is_open(const Place &place) { return find_open(place) != files_.end(); }
    // How many files flush_all() visits: those that were written to. Any number of others may be open.
    std::size_t unwritten() const { return resources_.unwritten.size(); }
    // Gives the memory of other files' read-ahead to one that has none.
    void make_room_to_read(const OpenFile &file);

    std::size_t size() const { return files_.size(); }
    uint64_t next_identifier() const { return next_identifier_; }

  private:
    struct Entry {
        Entry(const Place &place, FileResources &resources) : file(place, resources) {}

        OpenFile file;
        unsigned opened = 1;  // times
    };
    using Files = std::unordered_map<uint64_t, Entry>;  // by identifier

    Result<std::optional<OpenedFile>> open(const Place &place);
    Result<MadeFile> create_at(Place &place, std::span<const std::byte> content);
    Files::iterator find_open(const Place &place);
    Files::iterator add(const Place &place);
    Result<uint64_t> reopen(Entry &entry, const Place &place);

    MountSet &mounts_;
    const uint32_t create_mode_;
    FileResources resources_;
    EarlyReads early_;
    Files files_;
    std::unordered_multimap<std::size_t, uint64_t> identifiers_;  // by the hash of the handle
    uint64_t next_identifier_;
};

}  // namespace nfstdm
