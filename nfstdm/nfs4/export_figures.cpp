// SPDX-License-Identifier: Apache-2.0
// What a file system tells of itself.
#include <algorithm>

#include "nfstdm/nfs4/export_volume.h"
#include "nfstdm/volume/sizes.h"

namespace nfstdm::nfs4 {

namespace {

constexpr uint32_t kTransferMinimum = 512;
constexpr uint32_t kMultiple = 4096;  // what file systems like; NFSv4 servers do not tell
// What stands around the data of a WRITE or a READ: heads of the record and the call with its credential, and the
// operations in front.
constexpr uint32_t kAroundData = 1024;
}  // namespace

VolumeLimits limits_from(const AttributeValues &values, const ChannelSizes &sizes) {
    const auto agree = [](uint64_t server, uint32_t channel) {
        const uint64_t fits = channel > 2 * kAroundData ? channel - kAroundData : kTransferMinimum;
        const uint64_t wanted = std::min<uint64_t>(server == 0 ? kTransferMaximum : server, kTransferMaximum);
        const auto agreed = static_cast<uint32_t>(std::min(wanted, fits));
        return agreed > kMultiple ? agreed / kMultiple * kMultiple : agreed;
    };
    VolumeLimits limits;
    limits.read_maximum = limits.read_preferred = agree(values.maxread, sizes.response_maximum);
    limits.write_maximum = limits.write_preferred = agree(values.maxwrite, sizes.request_maximum);
    limits.read_multiple = limits.write_multiple = kMultiple;
    limits.readdir_preferred = std::min(kDirectoryBytes, limits.read_maximum);
    limits.file_size_maximum = values.maxfilesize;
    return limits;
}

void ExportVolume::fsinfo(const FileHandle &object, Completion<FsInfoReply> done) {
    start<FsInfoReply>(
        "FSINFO", std::move(done),
        [object](Compound &compound) {
            put_putfh(compound, object);
            put_getattr(compound, limit_attributes());
        },
        [this, object](Results &results, const rpc::Request &, FsInfoReply &reply) {
            AttributeValues values;
            if (!results.next(Op::putfh) || !results.next(Op::getattr) || !get_attributes(results.reader(), values))
                return false;
            reply.attributes = values.attributes(object);
            reply.limits = limits_from(values, session_.sizes());
            return true;
        });
}

void ExportVolume::fsstat(const FileHandle &object, Completion<FsStatReply> done) {
    start<FsStatReply>(
        "FSSTAT", std::move(done),
        [object](Compound &compound) {
            put_putfh(compound, object);
            put_getattr(compound, space_attributes());
        },
        [object](Results &results, const rpc::Request &, FsStatReply &reply) {
            AttributeValues values;
            if (!results.next(Op::putfh) || !results.next(Op::getattr) || !get_attributes(results.reader(), values))
                return false;
            reply.attributes = values.attributes(object);
            reply.total_bytes = values.space_total;
            reply.free_bytes = values.space_free;
            reply.available_bytes = values.space_avail;
            reply.total_files = values.files_total;
            reply.free_files = values.files_free;
            reply.available_files = values.files_avail;
            return true;
        });
}

}  // namespace nfstdm::nfs4
