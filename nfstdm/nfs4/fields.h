// SPDX-License-Identifier: Apache-2.0
// The pieces that arguments and results of NFS version 4 are made of (RFC 8881 section 3). A get that fails leaves the
// reader failed; the maximum of every field is enforced both ways.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nfstdm/nfs4/constants.h"
#include "nfstdm/volume/volume.h"
#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/words.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::nfs4 {

// The RFC sets no limit to names and link targets. No file system has longer names than this; a target is a path.
constexpr std::size_t kNameMaximum = 1024;
constexpr std::size_t kTargetMaximum = 4096;

// The state that an OPEN established, or one of the special values (RFC 8881 section 8.2).
struct StateId {
    uint32_t sequence = 0;
    std::array<std::byte, kStateIdOtherSize> other{};

    bool operator==(const StateId &) const = default;
    // The same state whatever was done to it since: a sequence of zero asks for the most recent (section 8.2.2).
    StateId latest() const { return {0, other}; }
    // No open at all: the server judges by the file's permissions.
    static StateId anonymous() { return {}; }
    // What an operation of the same compound has just established.
    static StateId current() { return {1, {}}; }
};

// Attributes asked for or given: a bit each.
class AttributeSet {
  public:
    static constexpr std::size_t kWords = 3;

    AttributeSet() = default;
    AttributeSet(std::initializer_list<Attribute> attributes) {
        for (const Attribute attribute : attributes)
            add(attribute);
    }
    void add(Attribute attribute) { words_.at(word(attribute)) |= bit(attribute); }
    void remove(Attribute attribute) { words_.at(word(attribute)) &= ~bit(attribute); }
    bool has(Attribute attribute) const { return (words_.at(word(attribute)) & bit(attribute)) != 0; }
    bool empty() const { return *this == AttributeSet{}; }
    AttributeSet without(const AttributeSet &others) const {
        AttributeSet rest = *this;
        for (std::size_t i = 0; i < kWords; ++i)
            rest.words_.at(i) &= ~others.words_.at(i);
        return rest;
    }
    bool operator==(const AttributeSet &) const = default;

    // bitmap4. Bits beyond the words kept here make a get fail: nobody asked for them.
    void put(xdr::Writer &writer) const;
    bool get(xdr::Reader &reader);

  private:
    static std::size_t word(Attribute attribute) { return static_cast<uint32_t>(attribute) / 32; }
    static uint32_t bit(Attribute attribute) { return uint32_t{1} << static_cast<uint32_t>(attribute) % 32; }
    std::array<uint32_t, kWords> words_{};
};

// What a GETATTR or an entry of READDIR told; attributes of an object are whole when the server knows them all.
struct AttributeValues {
    AttributeSet given;
    Attributes object;
    std::optional<FileHandle> handle;
    uint64_t files_avail = 0, files_free = 0, files_total = 0;
    uint64_t space_avail = 0, space_free = 0, space_total = 0;
    uint64_t maxfilesize = 0, maxread = 0, maxwrite = 0;
    uint32_t lease_time = 0;
    std::vector<std::string> locations;  // of a file system, "server:/path"
    uint32_t rdattr_error = 0;           // why the others could not be had; a server may tell that there is no reason

    // The object's attributes, when at least its type came. A server may lack others: nobody owns the object then, its
    // permissions are the usual ones, and its handle makes the number that tells it from others.
    std::optional<Attributes> attributes(const FileHandle &its_handle) const;
};

// What the middle of the library wants to know of every object.
const AttributeSet &object_attributes();
// The figures of a file system besides.
const AttributeSet &space_attributes();
const AttributeSet &limit_attributes();

// fattr4: a bitmap and the values in its order. An attribute that is not known here makes it fail: its length is
// nowhere told.
bool get_attributes(xdr::Reader &reader, AttributeValues &values);

bool get_handle(xdr::Reader &reader, FileHandle &handle);
bool get_state_id(xdr::Reader &reader, StateId &state);
bool get_name(xdr::Reader &reader, std::string &name);
bool get_change(xdr::Reader &reader);  // change_info4, of which nothing is used

void put_handle(xdr::Writer &writer, const FileHandle &handle);
void put_state_id(xdr::Writer &writer, const StateId &state);
void put_name(xdr::Writer &writer, std::string_view name);
// fattr4; what is not given stays as it is.
void put_set_attributes(xdr::Writer &writer, const SetAttributes &set);

// What one direction of a session carries: wished for in CREATE_SESSION, told in its reply.
struct ChannelSizes {
    uint32_t request_maximum = 0;  // bytes
    uint32_t response_maximum = 0;
    uint32_t cached_maximum = 0;
    uint32_t operations = 0;
    uint32_t requests = 0;  // slots
};

}  // namespace nfstdm::nfs4
