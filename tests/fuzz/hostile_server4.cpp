// SPDX-License-Identifier: Apache-2.0
// The storage interface on a server of NFSv4.2 that goes wrong: the calls come from the first eight bytes; the rest is
// taken three bytes at a time, for each answer in turn: whether it is spoilt, how, and where. Behind the input's end
// the server is a good one, so that every call comes to its end.
//
// What holds of every call stands in storage_calls.h.
#include <algorithm>
#include <array>
#include <chrono>
#include <memory>

#include "nfstdm/nfs4/export_volume.h"
#include "nfstdm/tdm/volume_factory.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/storage_calls.h"
#include "tests/unit/nfs4/fake_nfs4.h"

namespace {

using namespace nfstdm;
using nfs4::test::FakeNfs4;
using Answer = nfstdm::test::Bytes;

fuzz::Input script(nullptr, 0);

rpc::Timing quick() {
    rpc::Timing timing;
    timing.tick = std::chrono::milliseconds(1);
    timing.backoff_first = timing.jukebox_first = std::chrono::milliseconds(1);
    timing.backoff_most = timing.jukebox_most = std::chrono::milliseconds(2);
    return timing;
}

// Statuses that a client does something about.
constexpr auto kStatuses = std::to_array<nfs4::NfsStatus>({
    nfs4::NfsStatus::noent,
    nfs4::NfsStatus::stale,
    nfs4::NfsStatus::delay,
    nfs4::NfsStatus::grace,
    nfs4::NfsStatus::badsession,
    nfs4::NfsStatus::bad_stateid,
    nfs4::NfsStatus::expired,
    nfs4::NfsStatus::seq_misordered,
    nfs4::NfsStatus::badslot,
    nfs4::NfsStatus::moved,
    nfs4::NfsStatus::wrongsec,
    nfs4::NfsStatus::conn_not_bound_to_session,
    nfs4::NfsStatus::notsupp,
    nfs4::NfsStatus::not_same,
    nfs4::NfsStatus::retry_uncached_rep,
    nfs4::NfsStatus::stale_clientid,
});

// False: no answer at all, and the connection is cut.
bool spoil(Answer &answer) {
    enum : uint8_t { turn = 1, cut_off = 2, overwrite = 3, refuse = 4, lengthen = 5, lose = 6 };
    const uint8_t how = script.byte();
    const std::size_t where = std::size_t{script.byte()} * answer.size() / 256;
    const uint8_t value = script.byte();
    switch (how % 16) {
        case turn:
            answer[where] ^= std::byte{value};
            return true;
        case cut_off:
            answer.resize(where / xdr::kWord * xdr::kWord);
            return true;
        case overwrite:
            std::fill_n(answer.begin() + static_cast<std::ptrdiff_t>(where),
                        std::min<std::size_t>(answer.size() - where, 4), std::byte{value});
            return true;
        case refuse: {
            xdr::Writer refusal;
            refusal.put_u32(static_cast<uint32_t>(kStatuses[value % kStatuses.size()]));
            refusal.put_string("");
            refusal.put_u32(0);
            answer = refusal.take();
            return true;
        }
        case lengthen:
            answer.resize(answer.size() + xdr::kWord * value);
            return true;
        case lose:
            return false;
        default:
            return true;
    }
}

// What stands below the volume, and goes after it.
struct Foundation {
    explicit Foundation(EventLoop &loop) : server(loop) {
        server.names = {{"e", 'd'}, {"d", 'd'}, {"f", 'f'}, {"l", 'f'}, {"gone", 'd'}};
        server.content.assign(6000, 'c');
        server.extents = {{100, 2000}, {4000, 6000}};
        server.spoil = spoil;
        ServerConfig config;
        config.name = "s";
        config.paths = {{"", "127.0.0.1:" + std::to_string(server.server.port())}};
        config.io_timeout_seconds = 1;
        config.contact_timeout_seconds = 1;
        shared = std::make_shared<nfs4::SharedServer>(loop, config, trace, quick(), 2);
    }

    Trace trace;
    FakeNfs4 server;
    std::shared_ptr<nfs4::SharedServer> shared;
};

class HostileVolume : private Foundation, public nfs4::ExportVolume {
  public:
    HostileVolume(EventLoop &loop, const ServerExport &share) : Foundation(loop), ExportVolume(shared, share) {}
};

}  // namespace

VolumeFactory nfstdm::protocol_volume_factory(const Trace &) {
    return [](EventLoop &loop, const ServerConfig &, const ServerExport &share) -> std::unique_ptr<Volume> {
        return std::make_unique<HostileVolume>(loop, share);
    };
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    script = fuzz::Input(data, size);
    const fuzz::Bytes calls = script.bytes(fuzz::kStorageCalls);
    fuzz::make_calls(calls);
    return 0;
}
