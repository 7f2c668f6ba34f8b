// SPDX-License-Identifier: Apache-2.0
// mount_script and umount_script: one-line shell scripts that mount and unmount an export through the operating
// system's own NFS client, for an administrator to read and run. Nothing is mounted here. Operands stand in the scripts
// as they were given, without quotes.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>

#include "platform/descriptor.h"
#include "platform/environment.h"
#include "platform/stream.h"
#include "tslwnfs/config/config.h"
#include "tslwnfs/config/private_directory.h"
#include "tslwnfs/config/whole_file.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"

namespace {

constexpr char kMountOptions[] = "rw,bg,hard,nointr,rsize=32768,wsize=32768,tcp,actimeo=0,vers=3,timeo=600";

constexpr char kBaseVariable[] = "TESSEL_BASE";
constexpr std::size_t kBaseMaximum = 1023;  // characters
constexpr char kDirectory[] = "/tslwnfs_Scripts";

// The directory of the scripts, which is made when missing. Nothing, traced as a record of function, when somebody else
// could exchange what an administrator is going to run.
Descriptor scripts_directory(const char *function, const std::string &place) {
    if (!have_private_directory(function, place.c_str())) return {};
    Descriptor directory(open(place.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (!directory || fstat(directory.get(), &status) != 0) {
        trace_failure(function, "%s cannot be opened: %s", place.c_str(), std::strerror(errno));
    } else if (status.st_uid != geteuid()) {
        trace_failure(function, "%s belongs to another user", place.c_str());
    } else if ((status.st_mode & S_IWOTH) != 0) {
        trace_failure(function, "%s is writable by others", place.c_str());
    } else {
        return directory;
    }
    return {};
}

// A link in the place of a script would lead the text elsewhere, and a pipe might be waited for.
Stream open_script(const Descriptor &directory, const char *name) {
    constexpr int kAnew = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    Descriptor file(openat(directory.get(), name, kAnew, 0666));
    Stream script(file ? fdopen(file.get(), "w") : nullptr);
    if (script) static_cast<void>(file.release());
    return script;
}

uint32_t write_script(const char *function, const char *name, const std::string &line) {
    const auto base = platform_environment(kBaseVariable, kBaseMaximum);
    if (!base) {
        print("envfetch failed for : %s\n", kBaseVariable);
        return 1;
    }
    const std::string place = *base + kDirectory;
    const Descriptor directory = scripts_directory(function, place);
    if (!directory) return 1;
    Stream script = open_script(directory, name);
    if (!script || !write_and_close(script, line)) {
        print("fopen failed for : %s/%s\n", place.c_str(), name);
        return 1;
    }
    print("script creation successful. Location : %s/%s\n", place.c_str(), name);
    return 0;
}

}  // namespace

uint32_t mount_script(const char *export_path, const char *mount_point) {
    const std::string line = std::string("mount -o ") + kMountOptions + " " + export_path + " " + mount_point + "\n";
    return write_script("mount_script", "mount_script.sh", line);
}

uint32_t umount_script(const char *mount_point) {
    return write_script("umount_script", "umount_script.sh", std::string("umount -f ") + mount_point + "\n");
}
