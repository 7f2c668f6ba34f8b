// SPDX-License-Identifier: Apache-2.0
// NFS operations under way: what is the same for all of them. The status in front of every result, waiting when the
// server is not ready, the judgement of an answer to a request that was sent more than once, and the guarantee that
// each ends exactly once.
#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <string>
#include <utility>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/scoped.h"
#include "nfstdm/base/status.h"
#include "nfstdm/base/trace.h"
#include "nfstdm/nfs3/procedures.h"
#include "nfstdm/remote/put_off.h"
#include "nfstdm/rpc/client.h"
#include "nfstdm/rpc/timing.h"
#include "nfstdm/xdr/reader.h"

namespace nfstdm::nfs3 {

// One operation: how its results are read and whom they go to.
class Operation {
  public:
    explicit Operation(EventLoop &loop, const ProcedureRow &row) : row_(row), timer_(loop) {}
    virtual ~Operation() = default;

    // Reads the results behind an NFS3_OK; false when they make no sense.
    virtual bool read(xdr::Reader &reader, const rpc::Request &request) = 0;
    // The answer says that it was done before, maybe by its own first sending, which ended at this moment. The results
    // are never read.
    virtual void found_done(EventLoop::Clock::time_point) {}
    // Called once, last. After success of an operation whose results were never read, they are as if empty.
    virtual void complete(Status status) = 0;

  private:
    friend class Operations;
    const ProcedureRow &row_;
    bool repeated_ = false;  // some request of it was sent more than once
    EventLoop::Clock::time_point first_sent_{};
    rpc::Duration waits_{};                  // the next wait for a server that is not ready
    std::unique_ptr<rpc::Request> waiting_;  // during that wait
    remote::PutOff put_off_;
    ScopedTimer timer_;
    std::list<std::unique_ptr<Operation>>::iterator self_;
};

class Operations {
  public:
    Operations(const rpc::Timing &timing, const Trace &trace)
        : timing_(timing), trace_(trace), put_offs_(trace, timing.jukebox_notice) {}
    ~Operations();
    Operations(const Operations &) = delete;
    Operations &operator=(const Operations &) = delete;

    // The client to be used from now on; null for none. It must outlive its use here.
    void use(rpc::Client *client);

    // Sends the request of an operation; the rest of the request is filled in here. There must be a client.
    void start(std::unique_ptr<Operation> operation, std::unique_ptr<rpc::Request> request);

    // Ends every operation with this failure. Their buffers are not touched any more when this begins.
    void fail_all(const Status &status);

  private:
    void submit(Operation &operation, std::unique_ptr<rpc::Request> request);
    void answered(Operation &operation, std::unique_ptr<rpc::Request> request);
    Status judge(Operation &operation, const rpc::Request &request, bool &not_ready) const;
    void wait(Operation &operation, std::unique_ptr<rpc::Request> request);
    void finish(Operation &operation, Status status);
    Status in_context(const Operation &operation, const Status &status) const;

    const rpc::Timing timing_;
    const Trace &trace_;
    remote::PutOffs put_offs_;
    rpc::Client *client_ = nullptr;
    std::list<std::unique_ptr<Operation>> running_;
};

}  // namespace nfstdm::nfs3
