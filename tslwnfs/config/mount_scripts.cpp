// SPDX-License-Identifier: Apache-2.0
// mount_script and umount_script: one-line shell scripts that mount and unmount an export through the operating
// system's own NFS client, for an administrator to read and run. Nothing is mounted here. Operands stand in the scripts
// as they were given, without quotes.
#include <cstddef>
#include <string>

#include "platform/environment.h"
#include "platform/stream.h"
#include "tslwnfs/config/config.h"
#include "tslwnfs/config/private_directory.h"
#include "tslwnfs/config/whole_file.h"
#include "tslwnfs/frontend/output.h"

namespace {

constexpr char kMountOptions[] = "rw,bg,hard,nointr,rsize=32768,wsize=32768,tcp,actimeo=0,vers=3,timeo=600";

constexpr char kBaseVariable[] = "TESSEL_BASE";
constexpr std::size_t kBaseMaximum = 1023;  // characters
constexpr char kDirectory[] = "/tslwnfs_Scripts";

uint32_t write_script(const char *function, const char *name, const std::string &line) {
    const auto base = platform_environment(kBaseVariable, kBaseMaximum);
    if (!base) {
        print("envfetch failed for : %s\n", kBaseVariable);
        return 1;
    }
    const std::string directory = *base + kDirectory;
    if (!have_private_directory(function, directory.c_str())) return 1;
    const std::string path = directory + name;
    Stream script = open_stream(path.c_str(), "w");
    if (!script || !write_and_close(script, line)) {
        print("fopen failed for : %s\n", path.c_str());
        return 1;
    }
    print("script creation successful. Location : %s\n", path.c_str());
    return 0;
}

}  // namespace

uint32_t mount_script(const char *export_path, const char *mount_point) {
    const std::string line = std::string("mount -o ") + kMountOptions + " " + export_path + " " + mount_point + "\n";
    return write_script("mount_script", "/mount_script.sh", line);
}

uint32_t umount_script(const char *mount_point) {
    return write_script("umount_script", "/umount_script.sh", std::string("umount -f ") + mount_point + "\n");
}
