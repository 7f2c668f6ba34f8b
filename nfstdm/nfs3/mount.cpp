// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/mount.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "nfstdm/base/record.h"
#include "nfstdm/nfs3/constants.h"
#include "nfstdm/nfs3/fields.h"
#include "nfstdm/nfs3/status_table.h"
#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/words.h"

namespace nfstdm::mount3 {

namespace {

// Flavours are few; a server that names more is not to be believed.
constexpr uint32_t kFlavoursMaximum = 64;
constexpr std::size_t kMountResultsMaximum = (3 + kFlavoursMaximum) * xdr::kWord + kHandleMaximum;

Status malformed() {
    return {EIO, "the answer makes no sense"};
}

std::string mount_name(std::string_view path) {
    return std::string(kMountCall).append(" of ").append(path);
}

std::unique_ptr<rpc::Request> new_request(const CallContext &context, Procedure procedure, std::string_view path) {
    auto request = std::make_unique<rpc::Request>();
    request->procedure = static_cast<uint32_t>(procedure);
    request->authenticator = context.authenticator;
    xdr::Writer writer;
    writer.put_string(path);
    request->arguments = writer.take();
    request->limit = context.limit;
    request->needs_contact = true;
    request->owner = context.owner;
    return request;
}

}  // namespace

Result<MountReply> decode_mount(std::span<const std::byte> results) {
    xdr::Reader reader(results);
    uint32_t number = 0;
    if (!reader.get_u32(number)) return malformed();
    if (number != 0) return nfs3::to_status(number);
    MountReply reply;
    uint32_t flavours = 0;
    if (!nfs3::get_handle(reader, reply.root) || !reader.get_u32(flavours) || flavours > kFlavoursMaximum)
        return malformed();
    for (uint32_t i = 0; i < flavours; ++i) {
        uint32_t flavour = 0;
        if (!reader.get_u32(flavour)) return malformed();
        reply.flavours.push_back(flavour);
    }
    if (!reader.finished()) return malformed();
    return reply;
}

bool is_export_list(std::span<const std::byte> results) {
    xdr::Reader reader(results);
    bool another = false;
    std::string_view text;
    while (reader.get_bool(another) && another) {
        if (!reader.get_string(text, kPathMaximum)) return false;
        while (reader.get_bool(another) && another)
            if (!reader.get_string(text, kNameMaximum)) return false;
    }
    return reader.finished();
}

void mount(rpc::Client &client, const CallContext &context, std::string_view path,
           std::function<void(Result<MountReply>)> done) {
    auto request = new_request(context, Procedure::mnt, path);
    request->name = kMountCall;
    request->results_maximum = kMountResultsMaximum;
    request->done = [where = "server " + client.config().server, what = mount_name(path),
                     done = std::move(done)](auto answered) {
        if (!answered->status.ok()) return done(answered->status);
        auto reply = decode_mount(answered->results());
        if (reply.ok()) return done(std::move(reply));
        done(reply.status().in(what).in(where));
    };
    client.submit(std::move(request));
}

void unmount(rpc::Client &client, const CallContext &context, std::string_view path, DoneCompletion done) {
    auto request = new_request(context, Procedure::umnt, path);
    request->name = "UMNT";
    request->one_way = true;
    request->done = [done = std::move(done)](auto answered) { done(answered->status); };
    client.submit(std::move(request));
}

}  // namespace nfstdm::mount3
