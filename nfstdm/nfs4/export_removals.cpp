// SPDX-License-Identifier: Apache-2.0
// What is taken away. NFSv4 has one operation for files and directories, so the kind of what has the name is verified
// in front of it.
#include <algorithm>
#include <memory>
#include <utility>

#include "nfstdm/nfs4/export_volume.h"
#include "nfstdm/nfs4/objects.h"
#include "nfstdm/nfs4/status_table.h"

namespace nfstdm::nfs4 {

namespace {

// More would only wait here instead of being under way.
constexpr std::size_t kTogether = 8;

// From the directory, and back to it.
void put_unlink(Compound &compound, const FileHandle &directory, std::string_view entry, bool is_directory) {
    put_lookup(compound, entry);
    put_verify_directory(compound, is_directory);
    put_putfh(compound, directory);
    put_remove(compound, entry);
}

bool get_unlinked(Results &results, bool is_directory) {
    return results.next(Op::lookup) && results.next(is_directory ? Op::verify : Op::nverify) &&
           results.next(Op::putfh) && results.next(Op::remove) && get_change(results.reader());
}

// What a refusal means, which may be that of the kind.
NfsStatus meaning_of(NfsStatus refusal, bool is_directory) {
    if (refusal != NfsStatus::same && refusal != NfsStatus::not_same) return refusal;
    return is_directory ? NfsStatus::notdir : NfsStatus::isdir;
}

}  // namespace

// Files of one directory whose removal is asked for in one question. What an answer told of is not asked for again when
// the question has to be asked once more; their users are told in the end.
struct ExportVolume::Together {
    std::deque<Removal> left;
    std::vector<std::pair<Removal, Status>> answered;
    bool in_directory = false;  // the last answer came to the first that was left

    void answer_first(Status status) {
        answered.emplace_back(std::move(left.front()), std::move(status));
        left.pop_front();
    }
    bool read(Results &results) {
        in_directory = results.next(Op::putfh);
        if (!in_directory) return false;
        while (!left.empty()) {
            if (!get_unlinked(results, false)) return false;
            answer_first({});
        }
        return true;
    }
    void end(const Result<DirectoryChange> &change) const {
        for (const auto &[removal, status] : answered) {
            if (!status.ok())
                removal.done(status);
            else
                removal.done(change.ok() ? change.value() : DirectoryChange{});
        }
        for (const Removal &removal : left)
            removal.done(change.status());
    }
};

// Those that are asked for before the loop's next turn go together.
void ExportVolume::remove(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) {
    if (!is_attached() || name.size() > kNameMaximum)
        return send(new_unlink("REMOVE", directory, name, false, std::move(done)));
    if (!removals_.empty() && !(removals_.front().directory == directory)) send_removals();
    if (removals_.empty()) life_.soon(loop(), [this] { send_removals(); });
    removals_.push_back({directory, std::string(name), std::move(done)});
    if (removals_.size() >= removals_together()) send_removals();
}

void ExportVolume::rmdir(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) {
    send(new_unlink("RMDIR", directory, name, true, std::move(done)));
}

// SEQUENCE, PUTFH and GETATTR, and four for each.
std::size_t ExportVolume::removals_together() const {
    constexpr std::size_t kAround = 3;
    constexpr std::size_t kForEach = 4;
    const std::size_t room = std::max<std::size_t>(session_.sizes().operations, kAround) - kAround;
    return std::clamp<std::size_t>(room / kForEach, 1, kTogether);
}

void ExportVolume::send_removals() {
    auto removals = std::exchange(removals_, {});
    if (removals.size() == 1) {
        Removal &only = removals.front();
        send(new_unlink("REMOVE", only.directory, only.name, false, std::move(only.done)));
    } else if (!removals.empty()) {
        remove_together(std::move(removals));
    }
}

void ExportVolume::fail_removals(const Status &why) {
    for (const Removal &removal : std::exchange(removals_, {}))
        removal.done(why);
}

std::unique_ptr<Call> ExportVolume::new_unlink(std::string_view name, const FileHandle &directory,
                                               std::string_view entry, bool is_directory,
                                               Completion<DirectoryChange> done) {
    auto call = make<DirectoryChange>(
        name, std::move(done),
        [directory, entry = std::string(entry), is_directory](Compound &compound) {
            put_putfh(compound, directory);
            put_unlink(compound, directory, entry, is_directory);
            put_getattr(compound, object_attributes());
        },
        [directory, is_directory](Results &results, const rpc::Request &, DirectoryChange &change) {
            return results.next(Op::putfh) && get_unlinked(results, is_directory) &&
                   (get_after(results, directory, change) || was_refused(results));
        });
    call->done_before = NfsStatus::noent;
    call->rescue = [this, is_directory](NfsStatus status, const std::unique_ptr<Call> &refused) {
        const NfsStatus meant = meaning_of(status, is_directory);
        if (meant == status) return false;
        refused->done(in_context(to_status(meant).in(std::string(refused->name))));
        return true;
    };
    return call;
}

// What is refused about one of them ends the question. It is the answer for that one, and those behind it are asked for
// again. What is refused about the directory is the answer for all.
void ExportVolume::remove_together(std::deque<Removal> removals) {
    const FileHandle directory = removals.front().directory;
    auto together = std::make_shared<Together>(Together{std::move(removals), {}});
    auto call = make<DirectoryChange>(
        "REMOVE", [together](const Result<DirectoryChange> &change) { together->end(change); },
        [directory, together](Compound &compound) {
            put_putfh(compound, directory);
            for (const Removal &removal : together->left)
                put_unlink(compound, directory, removal.name, false);
            put_getattr(compound, object_attributes());
        },
        [directory, together](Results &results, const rpc::Request &, DirectoryChange &change) {
            return together->read(results) && (get_after(results, directory, change) || was_refused(results));
        });
    call->rescue = [this, together](NfsStatus status, std::unique_ptr<Call> &refused) {
        if (!together->in_directory || together->left.empty()) return false;
        const bool was_removed = status == NfsStatus::noent && refused->repeated;
        const NfsStatus meant = meaning_of(status, false);
        together->answer_first(was_removed ? Status{} : in_context(to_status(meant).in(std::string(refused->name))));
        if (together->left.empty())
            refused->done({});
        else
            session_.start(std::move(refused));
        return true;
    };
    send(std::move(call));
}

}  // namespace nfstdm::nfs4
