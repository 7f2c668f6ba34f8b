// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/nfs4/attributes.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <climits>
#include <limits>
#include <string>

#include "tools/loopnfsd/base/text.h"
#include "tools/loopnfsd/files/file_type.h"

namespace loopnfsd::nfs4 {

namespace {

using nfstdm::nfs3::TimeHow;
using nfstdm::xdr::Reader;
using nfstdm::xdr::Writer;

constexpr uint64_t kBlock = 512;  // unit of stx_blocks
constexpr uint32_t kLinksMaximum = 32000;
constexpr uint32_t kMapWords = 8;  // of a bitmap that is looked at
constexpr std::size_t kValuesMaximum = 65536;

// Attributes that are only set or need more than the object to be told.
constexpr unsigned kSupported = 0;
constexpr unsigned kSize = 4;
constexpr unsigned kReadError = 11;
constexpr unsigned kMode = 33;
constexpr unsigned kOwner = 36;
constexpr unsigned kOwnerGroup = 37;
constexpr unsigned kAccessSet = 48;
constexpr unsigned kModifySet = 54;
constexpr unsigned kSettableWhenExclusive = 75;

void put_time(Writer &out, const statx_timestamp &time) {
    out.put_u64(static_cast<uint64_t>(time.tv_sec));
    out.put_u32(time.tv_nsec);
}

void put_fsid(Writer &out, const Described &object) {
    const struct statx &status = object.status;
    out.put_u64(object.export_id == 0 ? 0 : makedev(status.stx_dev_major, status.stx_dev_minor));
    out.put_u64(object.export_id);
}

// No other server has any of it: a path of no components, and no places.
void put_locations(Writer &out) {
    out.put_u32(0);
    out.put_u32(0);
}

const Bitmap &supported();
const Bitmap &settable_when_exclusive();

struct Row {
    unsigned number;
    void (*put)(Writer &out, const Described &object);  // nullptr: can be set only
};
using D = Described;

// In the order of the numbers, which is that on the wire.
constexpr auto kRows = std::to_array<Row>({
    {kSupported, [](Writer &out, const D &) { supported().put(out); }},
    {1, [](Writer &out, const D &o) { out.put_u32(type_of(o.status.stx_mode)); }},
    {2, [](Writer &out, const D &) { out.put_u32(0); }},  // handles stay good
    {3, [](Writer &out, const D &o) { out.put_u64(o.change()); }},
    {kSize, [](Writer &out, const D &o) { out.put_u64(o.status.stx_size); }},
    {5, [](Writer &out, const D &) { out.put_bool(true); }},   // hard links
    {6, [](Writer &out, const D &) { out.put_bool(true); }},   // symbolic links
    {7, [](Writer &out, const D &) { out.put_bool(false); }},  // named attributes
    {8, put_fsid},
    {9, [](Writer &out, const D &) { out.put_bool(true); }},  // one object has one handle
    {10, [](Writer &out, const D &o) { out.put_u32(o.lease_seconds); }},
    {kReadError, [](Writer &out, const D &) { out.put_u32(0); }},
    {15, [](Writer &out, const D &) { out.put_bool(true); }},   // times can be set
    {16, [](Writer &out, const D &) { out.put_bool(false); }},  // case is significant
    {17, [](Writer &out, const D &) { out.put_bool(true); }},   // and kept
    {18, [](Writer &out, const D &) { out.put_bool(true); }},   // only root gives files away
    {19, [](Writer &out, const D &o) { out.put_opaque(o.handle); }},
    {20, [](Writer &out, const D &o) { out.put_u64(o.status.stx_ino); }},
    {21, [](Writer &out, const D &o) { out.put_u64(o.space.files_available); }},
    {22, [](Writer &out, const D &o) { out.put_u64(o.space.files_free); }},
    {23, [](Writer &out, const D &o) { out.put_u64(o.space.files); }},
    {24, [](Writer &out, const D &) { put_locations(out); }},
    {26, [](Writer &out, const D &) { out.put_bool(true); }},  // the same everywhere
    {27, [](Writer &out, const D &) { out.put_u64(std::numeric_limits<off_t>::max()); }},
    {28, [](Writer &out, const D &) { out.put_u32(kLinksMaximum); }},
    {29, [](Writer &out, const D &) { out.put_u32(NAME_MAX); }},
    {30, [](Writer &out, const D &o) { out.put_u64(o.max_read); }},
    {31, [](Writer &out, const D &o) { out.put_u64(o.max_write); }},
    {kMode, [](Writer &out, const D &o) { out.put_u32(o.status.stx_mode & kModeBits); }},
    {34, [](Writer &out, const D &) { out.put_bool(true); }},  // longer names are refused, not cut
    {35, [](Writer &out, const D &o) { out.put_u32(o.status.stx_nlink); }},
    {kOwner, [](Writer &out, const D &o) { out.put_string(std::to_string(o.status.stx_uid)); }},
    {kOwnerGroup, [](Writer &out, const D &o) { out.put_string(std::to_string(o.status.stx_gid)); }},
    {41,
     [](Writer &out, const D &o) {
         out.put_u32(o.status.stx_rdev_major);
         out.put_u32(o.status.stx_rdev_minor);
     }},
    {42, [](Writer &out, const D &o) { out.put_u64(o.space.available); }},
    {43, [](Writer &out, const D &o) { out.put_u64(o.space.free); }},
    {44, [](Writer &out, const D &o) { out.put_u64(o.space.total); }},
    {45, [](Writer &out, const D &o) { out.put_u64(o.status.stx_blocks * kBlock); }},
    {47, [](Writer &out, const D &o) { put_time(out, o.status.stx_atime); }},
    {kAccessSet, nullptr},
    {51, [](Writer &out, const D &) { put_time(out, {0, 1, 0}); }},  // times are kept to the nanosecond
    {52, [](Writer &out, const D &o) { put_time(out, o.status.stx_ctime); }},
    {53, [](Writer &out, const D &o) { put_time(out, o.status.stx_mtime); }},
    {kModifySet, nullptr},
    {55, [](Writer &out, const D &o) { out.put_u64(o.status.stx_ino); }},  // mounted_on_fileid
    {kSettableWhenExclusive, [](Writer &out, const D &) { settable_when_exclusive().put(out); }},
});

const Bitmap &supported() {
    static const Bitmap all = [] {
        Bitmap map;
        for (const Row &row : kRows)
            map.add(row.number);
        return map;
    }();
    return all;
}

const Bitmap &settable() {
    static const Bitmap all = [] {
        Bitmap map;
        for (const unsigned number : {kSize, kMode, kOwner, kOwnerGroup, kAccessSet, kModifySet})
            map.add(number);
        return map;
    }();
    return all;
}

// The times keep the verifier.
const Bitmap &settable_when_exclusive() {
    static const Bitmap all = [] {
        Bitmap map;
        for (const unsigned number : {kSize, kMode, kOwner, kOwnerGroup})
            map.add(number);
        return map;
    }();
    return all;
}

bool get_time(Reader &in, ChangedTime &time) {
    uint32_t how = 0;
    uint64_t seconds = 0;
    if (!in.get_u32(how) || how > 1) return false;
    time.how = how == 0 ? TimeHow::server_time : TimeHow::client_time;
    if (how == 0) return true;
    if (!in.get_u64(seconds) || !in.get_u32(time.nanoseconds)) return false;
    time.seconds = static_cast<int64_t>(seconds);
    return true;
}

// An owner in digits (RFC 8881 section 5.9), the only spelling known here.
Status get_owner(Reader &in, std::optional<uint32_t> &owner) {
    std::string_view text;
    if (!in.get_string(text, in.left())) return Status::badxdr;
    const auto number = parse_number(text);
    if (!number || *number > std::numeric_limits<uint32_t>::max()) return Status::badowner;
    owner = static_cast<uint32_t>(*number);
    return Status::ok;
}

Status get_values(Reader &in, const Bitmap &given, ChangedAttributes &changed) {
    uint64_t size = 0;
    uint32_t mode = 0;
    if (given.has(kSize)) {
        if (!in.get_u64(size)) return Status::badxdr;
        changed.size = size;
    }
    if (given.has(kMode)) {
        if (!in.get_u32(mode)) return Status::badxdr;
        if ((mode & ~kModeBits) != 0) return Status::inval;
        changed.mode = mode;
    }
    Status status = Status::ok;
    if (given.has(kOwner)) status = get_owner(in, changed.uid);
    if (status == Status::ok && given.has(kOwnerGroup)) status = get_owner(in, changed.gid);
    if (status != Status::ok) return status;
    if (given.has(kAccessSet) && !get_time(in, changed.access)) return Status::badxdr;
    if (given.has(kModifySet) && !get_time(in, changed.modification)) return Status::badxdr;
    if (!in.finished()) return Status::badxdr;
    const bool sound =
        changed.access.nanoseconds < kNanosecondsEnd && changed.modification.nanoseconds < kNanosecondsEnd;
    return sound ? Status::ok : Status::inval;
}

}  // namespace

bool Bitmap::get(Reader &in) {
    uint32_t count = 0;
    if (!in.get_u32(count) || count > kMapWords) return false;
    *this = {};
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t word = 0;
        if (!in.get_u32(word)) return false;
        if (i < kWords)
            words_.at(i) = word;
        else
            beyond_ = beyond_ || word != 0;
    }
    return true;
}

void Bitmap::put(Writer &out) const {
    std::size_t count = kWords;
    while (count > 0 && words_.at(count - 1) == 0)
        --count;
    out.put_u32(static_cast<uint32_t>(count));
    for (std::size_t i = 0; i < count; ++i)
        out.put_u32(words_.at(i));
}

bool Bitmap::only(const Bitmap &allowed) const {
    if (beyond_) return false;
    for (std::size_t i = 0; i < kWords; ++i)
        if ((words_.at(i) & ~allowed.words_.at(i)) != 0) return false;
    return true;
}

uint64_t Described::change_of(const struct statx &status) {
    return static_cast<uint64_t>(status.stx_ctime.tv_sec) * kNanosecondsEnd + status.stx_ctime.tv_nsec;
}

void put_attributes(Writer &out, const Bitmap &wanted, const Described &object) {
    Bitmap given;
    Writer values;
    for (const Row &row : kRows) {
        if (row.put == nullptr || !wanted.has(row.number)) continue;
        given.add(row.number);
        row.put(values, object);
    }
    given.put(out);
    out.put_opaque(values.bytes());
}

bool wants_space(const Bitmap &wanted) {
    constexpr std::array kFigures{21U, 22U, 23U, 42U, 43U, 44U};
    return std::ranges::any_of(kFigures, [&](unsigned number) { return wanted.has(number); });
}

Status get_changes(Reader &in, ChangedAttributes &changed, Bitmap &given) {
    std::span<const std::byte> values;
    if (!given.get(in) || !in.get_opaque(values, kValuesMaximum)) return Status::badxdr;
    if (!given.only(supported())) return Status::attrnotsupp;
    if (!given.only(settable())) return Status::inval;
    Reader inner(values);
    return get_values(inner, given, changed);
}

Status compare(Reader &in, const Described &object) {
    Bitmap given;
    std::span<const std::byte> values;
    if (!given.get(in) || !in.get_opaque(values, kValuesMaximum)) return Status::badxdr;
    if (!given.only(supported())) return Status::attrnotsupp;
    if (given.has(kReadError) || given.has(kAccessSet) || given.has(kModifySet)) return Status::inval;
    Writer ours;
    put_attributes(ours, given, object);
    Writer theirs;
    given.put(theirs);
    theirs.put_opaque(values);
    return std::ranges::equal(ours.bytes(), theirs.bytes()) ? Status::ok : Status::not_same;
}

}  // namespace loopnfsd::nfs4
