// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/remote/version_question.h"

#include <cerrno>
#include <utility>

#include "nfstdm/remote/constants.h"
#include "nfstdm/remote/server.h"

namespace nfstdm::remote {

VersionQuestion::VersionQuestion(Server &server, uint16_t port, rpc::Duration limit,
                                 std::function<void(bool v4_only)> done)
    : third_(server.new_contact_client({kProgram, kVersion3}, port)),
      fourth_(server.new_contact_client({kProgram, kVersion4}, port)),
      done_(std::move(done)) {
    ask(*third_, limit, with_third_);
    ask(*fourth_, limit, with_fourth_);
}

void VersionQuestion::ask(rpc::Client &client, rpc::Duration limit, Status &answer) {
    auto request = std::make_unique<rpc::Request>();
    request->name = "NULL";
    request->limit = limit;
    request->needs_contact = true;
    request->done = [this, &answer](const std::unique_ptr<rpc::Request> &answered) {
        answer = answered->status;
        if (--open_ > 0) return;
        const auto done = std::move(done_);
        done(with_fourth_.ok() && with_third_.is(Condition::not_offered));
    };
    client.submit(std::move(request));
}

}  // namespace nfstdm::remote
