// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/root_listing.h"

#include <utility>

#include "nfstdm/nfs4/export_contact.h"

namespace nfstdm::nfs4 {

namespace {

bool is_no_directory(const DirectoryEntry &entry) {
    return entry.name == ".." || (entry.attributes && entry.attributes->type != FileType::directory);
}

}  // namespace

RootQuestion::RootQuestion(EventLoop &loop, const ServerConfig &server, Completion<std::string> done)
    : exports_(loop, trace_), done_(std::move(done)), volume_(exports_.open(server, {"/", "/", {}}, {4, 0, false})) {
    volume_->attach([this](const Result<FileHandle> &root) { attached(root); });
}

// What is under way ends with the volume, for nobody to hear.
RootQuestion::~RootQuestion() {
    done_ = nullptr;
}

void RootQuestion::attached(const Result<FileHandle> &root) {
    if (done_ == nullptr) return;
    if (!root.ok()) return finish(root.status());
    volume_->readdir(root.value(), 0, 0, true, [this](Result<DirectoryReply> reply) { listed(std::move(reply)); });
}

void RootQuestion::listed(Result<DirectoryReply> reply) {
    if (done_ == nullptr) return;
    volume_->detach([this, reply = std::move(reply)](const Status &) mutable {
        if (!reply.ok()) return finish(reply.status());
        std::erase_if(reply.value().entries, is_no_directory);
        finish("the server's root" + what_it_holds(reply.value()));
    });
}

// The owner may destroy the question in done.
void RootQuestion::finish(const Result<std::string> &result) {
    if (const auto done = std::exchange(done_, nullptr)) done(result);
}

}  // namespace nfstdm::nfs4
