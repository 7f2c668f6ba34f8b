// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/fields.h"

#include <algorithm>
#include <bit>
#include <span>
#include <utility>

#include "nfstdm/nfs4/owners.h"

namespace nfstdm::nfs4 {

namespace {

constexpr uint32_t kModeBits = 07777;

bool get_time(xdr::Reader &reader, Time &time) {
    return reader.get_u64(time.seconds) && reader.get_u32(time.nanoseconds);
}

bool get_type(xdr::Reader &reader, FileType &type) {
    uint32_t number = 0;
    if (!reader.get_u32(number)) return false;
    const bool known =
        number >= static_cast<uint32_t>(FileType::regular) && number <= static_cast<uint32_t>(FileType::fifo);
    type = known ? static_cast<FileType>(number) : FileType::none;  // named attributes are nothing we know
    return true;
}

// Two words of the server's that together tell its file systems apart, in the one that NFSv3 has for it.
bool get_fsid(xdr::Reader &reader, uint64_t &fsid) {
    uint64_t major = 0;
    uint64_t minor = 0;
    if (!reader.get_u64(major) || !reader.get_u64(minor)) return false;
    fsid = major ^ std::rotl(minor, 32);
    return true;
}

bool get_owner(xdr::Reader &reader, uint32_t &number, uint32_t (*number_of)(std::string_view)) {
    std::string_view name;
    if (!reader.get_string(name, kOpaqueMaximum)) return false;
    number = number_of(name);
    return true;
}

bool get_mode(xdr::Reader &reader, uint32_t &mode) {
    if (!reader.get_u32(mode)) return false;
    mode &= kModeBits;
    return true;
}

// pathname4: its components.
bool get_path(xdr::Reader &reader, std::string &path) {
    constexpr uint32_t kComponentsMaximum = 256;
    uint32_t count = 0;
    if (!reader.get_u32(count) || count > kComponentsMaximum) return false;
    path = count == 0 ? "/" : "";
    for (; count > 0; --count) {
        std::string_view name;
        if (!reader.get_string(name, kNameMaximum)) return false;
        path.append("/").append(name);
    }
    return true;
}

// fs_locations4 (RFC 8881 section 11.16): every server of every place.
bool get_locations(xdr::Reader &reader, std::vector<std::string> &locations) {
    constexpr uint32_t kMaximum = 64;  // places, and servers of each
    std::string path;
    uint32_t places = 0;
    if (!get_path(reader, path) || !reader.get_u32(places) || places > kMaximum) return false;
    for (; places > 0; --places) {
        std::vector<std::string> names;
        uint32_t servers = 0;
        if (!reader.get_u32(servers) || servers > kMaximum) return false;
        for (; servers > 0; --servers)
            if (!get_name(reader, names.emplace_back())) return false;
        if (!get_path(reader, path)) return false;
        for (const std::string &name : names)
            locations.emplace_back(name).append(":").append(path);
    }
    return true;
}

using Values = AttributeValues;
struct AttributeRow {
    Attribute attribute;
    bool (*get)(xdr::Reader &, Values &);
};

template <uint64_t Values::*field>
bool get_figure(xdr::Reader &reader, Values &values) {
    return reader.get_u64(values.*field);
}

// In the order of their numbers, which is that on the wire.
constexpr auto kAttributes = std::to_array<AttributeRow>({
    {Attribute::type, [](xdr::Reader &r, Values &v) { return get_type(r, v.object.type); }},
    {Attribute::change, [](xdr::Reader &r, Values &) { return r.skip(xdr::kHyper); }},
    {Attribute::size, [](xdr::Reader &r, Values &v) { return r.get_u64(v.object.size); }},
    {Attribute::fsid, [](xdr::Reader &r, Values &v) { return get_fsid(r, v.object.fsid); }},
    {Attribute::lease_time, [](xdr::Reader &r, Values &v) { return r.get_u32(v.lease_time); }},
    {Attribute::rdattr_error, [](xdr::Reader &r, Values &v) { return r.get_u32(v.rdattr_error); }},
    {Attribute::filehandle, [](xdr::Reader &r, Values &v) { return get_handle(r, v.handle.emplace()); }},
    {Attribute::fileid, [](xdr::Reader &r, Values &v) { return r.get_u64(v.object.fileid); }},
    {Attribute::files_avail, get_figure<&Values::files_avail>},
    {Attribute::files_free, get_figure<&Values::files_free>},
    {Attribute::files_total, get_figure<&Values::files_total>},
    {Attribute::fs_locations, [](xdr::Reader &r, Values &v) { return get_locations(r, v.locations); }},
    {Attribute::maxfilesize, get_figure<&Values::maxfilesize>},
    {Attribute::maxread, get_figure<&Values::maxread>},
    {Attribute::maxwrite, get_figure<&Values::maxwrite>},
    {Attribute::mode, [](xdr::Reader &r, Values &v) { return get_mode(r, v.object.mode); }},
    {Attribute::numlinks, [](xdr::Reader &r, Values &v) { return r.get_u32(v.object.links); }},
    {Attribute::owner, [](xdr::Reader &r, Values &v) { return get_owner(r, v.object.uid, user_number); }},
    {Attribute::owner_group, [](xdr::Reader &r, Values &v) { return get_owner(r, v.object.gid, group_number); }},
    {Attribute::space_avail, get_figure<&Values::space_avail>},
    {Attribute::space_free, get_figure<&Values::space_free>},
    {Attribute::space_total, get_figure<&Values::space_total>},
    {Attribute::space_used, [](xdr::Reader &r, Values &v) { return r.get_u64(v.object.used); }},
    {Attribute::time_access, [](xdr::Reader &r, Values &v) { return get_time(r, v.object.access); }},
    {Attribute::time_metadata, [](xdr::Reader &r, Values &v) { return get_time(r, v.object.change); }},
    {Attribute::time_modify, [](xdr::Reader &r, Values &v) { return get_time(r, v.object.modification); }},
});

}  // namespace

void AttributeSet::put(xdr::Writer &writer) const {
    std::size_t count = kWords;
    while (count > 0 && words_.at(count - 1) == 0)
        --count;
    writer.put_u32(static_cast<uint32_t>(count));
    for (std::size_t i = 0; i < count; ++i)
        writer.put_u32(words_.at(i));
}

bool AttributeSet::get(xdr::Reader &reader) {
    constexpr uint32_t kWordsMaximum = 8;  // more bits than there are attributes
    uint32_t count = 0;
    if (!reader.get_u32(count) || count > kWordsMaximum) return false;
    words_ = {};
    for (std::size_t i = 0; i < count; ++i) {
        uint32_t word = 0;
        if (!reader.get_u32(word) || (i >= kWords && word != 0)) return false;
        if (i < kWords) words_.at(i) = word;
    }
    return true;
}

std::optional<Attributes> AttributeValues::attributes(const FileHandle &its_handle) const {
    constexpr uint32_t kUsualMode = 0644;
    constexpr uint32_t kUsualDirectoryMode = 0755;
    if (!given.has(Attribute::type)) return std::nullopt;
    Attributes known = object;
    if (!given.has(Attribute::fileid)) known.fileid = digest_of(its_handle);
    if (!given.has(Attribute::mode)) known.mode = known.type == FileType::directory ? kUsualDirectoryMode : kUsualMode;
    if (!given.has(Attribute::numlinks)) known.links = 1;
    if (!given.has(Attribute::owner)) known.uid = kNobody;
    if (!given.has(Attribute::owner_group)) known.gid = kNobody;
    return known;
}

const AttributeSet &object_attributes() {
    static const AttributeSet set{Attribute::type,        Attribute::size,          Attribute::fsid,
                                  Attribute::fileid,      Attribute::mode,          Attribute::numlinks,
                                  Attribute::owner,       Attribute::owner_group,   Attribute::space_used,
                                  Attribute::time_access, Attribute::time_metadata, Attribute::time_modify};
    return set;
}

const AttributeSet &space_attributes() {
    static const AttributeSet set = [] {
        AttributeSet all = object_attributes();
        for (const Attribute each : {Attribute::files_avail, Attribute::files_free, Attribute::files_total,
                                     Attribute::space_avail, Attribute::space_free, Attribute::space_total})
            all.add(each);
        return all;
    }();
    return set;
}

const AttributeSet &limit_attributes() {
    static const AttributeSet set = [] {
        AttributeSet all = object_attributes();
        for (const Attribute each :
             {Attribute::maxfilesize, Attribute::maxread, Attribute::maxwrite, Attribute::lease_time})
            all.add(each);
        return all;
    }();
    return set;
}

bool get_attributes(xdr::Reader &reader, AttributeValues &values) {
    constexpr std::size_t kValuesMaximum = 16384;
    std::span<const std::byte> bytes;
    values = {};
    if (!values.given.get(reader) || !reader.get_opaque(bytes, kValuesMaximum)) return false;
    xdr::Reader inner(bytes);
    AttributeSet unknown = values.given;
    for (const AttributeRow &row : kAttributes) {
        if (!values.given.has(row.attribute)) continue;
        unknown.remove(row.attribute);
        if (!row.get(inner, values)) return false;
    }
    return unknown.empty() && inner.finished();
}

bool get_handle(xdr::Reader &reader, FileHandle &handle) {
    std::span<const std::byte> bytes;
    if (!reader.get_opaque(bytes, kHandleMaximum) || bytes.empty()) return false;
    handle.size = static_cast<uint8_t>(bytes.size());
    std::transform(bytes.begin(), bytes.end(), handle.bytes.begin(), std::to_integer<uint8_t>);
    return true;
}

bool get_state_id(xdr::Reader &reader, StateId &state) {
    std::span<const std::byte> other;
    if (!reader.get_u32(state.sequence) || !reader.get_fixed(other, kStateIdOtherSize)) return false;
    std::copy(other.begin(), other.end(), state.other.begin());
    return true;
}

bool get_name(xdr::Reader &reader, std::string &name) {
    std::string_view text;
    if (!reader.get_string(text, kNameMaximum)) return false;
    name = text;
    return true;
}

bool get_change(xdr::Reader &reader) {
    return reader.skip(xdr::kWord + 2 * xdr::kHyper);
}

void put_handle(xdr::Writer &writer, const FileHandle &handle) {
    writer.put_string(handle.view(), kHandleMaximum);
}

void put_state_id(xdr::Writer &writer, const StateId &state) {
    writer.put_u32(state.sequence);
    writer.put_fixed(state.other);
}

void put_name(xdr::Writer &writer, std::string_view name) {
    writer.put_string(name, kNameMaximum);
}

void put_set_attributes(xdr::Writer &writer, const SetAttributes &set) {
    AttributeSet given;
    xdr::Writer values;
    if (set.size) {
        given.add(Attribute::size);
        values.put_u64(*set.size);
    }
    if (set.mode) {
        given.add(Attribute::mode);
        values.put_u32(*set.mode & kModeBits);
    }
    given.put(writer);
    writer.put_opaque(values.bytes());
}

}  // namespace nfstdm::nfs4
