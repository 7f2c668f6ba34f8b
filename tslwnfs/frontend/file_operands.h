// SPDX-License-Identifier: Apache-2.0
// The operands of a file command: where its files come from, and where each of them goes.
#pragma once

#include <optional>
#include <string>

#include "platform/path_buffer.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/frontend/command_table.h"
#include "tslwnfs/frontend/operand_text.h"
#include "tslwnfs/frontend/worker_records.h"
#include "tslwnfs/storage/operand.h"

constexpr char kExecutor[] = "exec_command";  // the name under which the executor traces

class FileOperands {
  public:
    // The command must outlive the object.
    FileOperands(const Command &command, const Operand &first, const Operand &second);

    // Resolves both operands as given. False when one cannot be used; the rest holds once this was true.
    [[nodiscard]] bool prepare(const Operand &first, const Operand &second);

    bool is_typed() const { return typed_; }  // the first one
    const std::string &first() const { return first_; }
    const std::string &second() const { return second_; }
    const SplitPath &source() const { return *source_; }
    // Where all files come from: the directory of a wildcard, or the one file.
    const std::string &origin() const { return origin_; }

    bool means_directory() const { return means_directory_; }  // the second one
    bool goes_into_directory() const { return into_directory_; }
    // One of the directories lies on a server.
    bool has_server() const { return comes_from_server() || goes_to_server(); }
    bool comes_from_server() const;
    bool goes_to_server() const;

    std::string source_of(const std::string &listed) const;
    std::string destination_for(const std::string &source_name) const;
    Job job_of(const std::string &listed) const;

    // No two have the same destination and none the name of another's, case left aside, whatever the directories are;
    // and none is refused before it runs. Names count by their hashes: two that fall together only cost time.
    bool are_apart(const NameList &matches) const;

  private:
    bool prepare_destination(const Operand &second);
    bool keeps_names() const;

    const Command &command_;
    const bool typed_;
    std::string first_, second_;
    std::optional<SplitPath> source_, destination_;
    std::string origin_;
    bool means_directory_ = false;
    bool into_directory_ = false;  // the second operand is one
};
