// SPDX-License-Identifier: Apache-2.0
// The way to an export: its path is looked up from the root of the server, and what the server says about transfers is
// asked for in the same question.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nfstdm/base/status.h"
#include "nfstdm/nfs4/call.h"
#include "nfstdm/nfs4/fields.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm::nfs4 {

struct FoundExport {
    FileHandle root;
    AttributeValues values;
    PathReply below;  // of the names that were expected
};

// " holds: /data, /backup", as far as people read on, or " is empty".
std::string what_it_holds(const DirectoryReply &directory);

// A failure because the file system is elsewhere, with where that is as far as the server tells.
Status with_locations(const Status &failure, const AttributeValues &values);

// The bytes of attributes that tell where a file system is.
constexpr std::size_t kLocationsMaximum = 16384;

// The call that finds an export by its path. done is called once with it, or with the reason why it is not found.
// start sends a call; new_call makes one for the first contact.
class ExportContact {
  public:
    using NewCall = std::function<std::unique_ptr<Call>(std::string_view name)>;
    using Start = std::function<void(std::unique_ptr<Call>)>;
    using Done = std::function<void(Result<FoundExport>)>;

    // expected: names that will be looked up from the export's root, answered for in the same question as far as room()
    // operations go.
    struct Wanted {
        std::string path;
        std::vector<std::string> expected;
        std::function<std::size_t()> room;
    };
    ExportContact(Wanted wanted, NewCall new_call, Start start, Done done);

    void begin();

    // After a failure because of the security flavour: those that the server takes there.
    const std::vector<uint32_t> &offered() const { return offered_; }

  private:
    void put_path(Compound &compound, std::size_t components) const;
    bool get_path_to(Results &results, std::size_t components);
    std::size_t reach() const;
    void look_up();
    bool read(Results &results);
    bool read_found(Results &results);
    void put_expected(Compound &compound);
    void looked_up(const Status &status);
    void list(const Status &failure);
    void ask_security(const Status &failure);
    void ask_where(const Status &failure);
    void finish(Result<FoundExport> result);

    const Wanted wanted_;
    const std::vector<std::string> components_;
    const NewCall new_call_;
    const Start start_;
    Done done_;
    FileHandle start_from_;       // the root of the server while started_at_ is 0
    std::size_t started_at_ = 0;  // components
    std::size_t wanted_to_ = 0;   // as far as one question goes
    std::size_t passed_ = 0;      // components that are there
    std::size_t asked_ = 0;       // expected names
    FoundExport found_;
    bool wrong_security_ = false;
    bool refused_by_name_ = false;  // at a component, not at what is above all
    std::vector<uint32_t> offered_;
};

}  // namespace nfstdm::nfs4
