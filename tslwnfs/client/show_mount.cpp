// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/client/show_mount.h"

#include "tslwnfs/client/export_printer.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"

namespace {

constexpr char kFunction[] = "showMount";

// The number tells the two outputs apart; it is no error number.
uint32_t print_failure() {
    print("failed, error code:%d\n", output_is_log() ? 0 : 1);
    return 1;
}

}  // namespace

std::vector<uint8_t> in_pieces(std::span<const std::byte> list) {
    constexpr std::size_t kFirstUsed = 32, kPiece = 4000, kHead = 4;  // bytes
    std::vector<uint8_t> pieces;
    std::size_t room = kPiece - kFirstUsed;
    while (!list.empty()) {
        const auto piece = list.first(std::min(room, list.size()));
        for (const std::byte byte : piece)
            pieces.push_back(static_cast<uint8_t>(byte));
        if (piece.size() == room) pieces.insert(pieces.end(), kHead, 0);
        list = list.subspan(piece.size());
        room = kPiece;
    }
    return pieces;
}

uint32_t show_mount(const char *server, const ExportQuery &query) {
    if (server == nullptr) {
        trace_message(kFunction, Message::first_operand_missing);
        return 1;
    }
    std::vector<std::byte> list;
    std::string reason;
    if (!query(server, list, reason)) {
        trace_failure(kFunction, "%s", reason.c_str());
        return print_failure();
    }
    return tslwnfs_expout(in_pieces(list)) == 0 ? 0 : print_failure();
}
