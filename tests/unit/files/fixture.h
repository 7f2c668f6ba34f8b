// SPDX-License-Identifier: Apache-2.0
// Mounts on servers in memory.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "nfstdm/files/mount_set.h"
#include "nfstdm/files/path_walk.h"
#include "nfstdm/mounts/tslnfstab.h"
#include "tests/unit/files/fake_volume.h"

namespace nfstdm::test {

// Two servers, "one" with /export on /mnt/one and "two" with /export on /mnt/two.
class MountedTest : public ::testing::Test {
  protected:
    MountedTest()
        : MountedTest(
              "server: one\nexport: /export mount: /mnt/one\n"
              "server: two\nexport: /export mount: /mnt/two\n") {}
    explicit MountedTest(const std::string &tslnfstab)
        : mounts_(
              loop_, MountTable(read_tslnfstab(tslnfstab).servers),
              [this](EventLoop &loop, const ServerConfig &server, const ServerExport &) {
                  auto volume = std::make_unique<FakeVolume>(loop, server.name == "two" ? two_ : one_);
                  volumes_[server.name] = volume.get();
                  versions_.push_back(server.version);
                  return volume;
              },
              [this] { return now_; }) {}

    // Looks a path up, so that all is known of it that a listing tells, and gives it.
    std::string known(const std::string &path) {
        EXPECT_TRUE(walk_path(mounts_, path, LastLink::keep).ok());
        return path;
    }

    EventLoop loop_;
    EventLoop::Clock::time_point now_{};  // stands still unless the test moves it
    FakeServer one_;
    FakeServer two_;
    std::map<std::string, FakeVolume *> volumes_;  // those that were contacted
    std::vector<std::string> versions_;            // that servers were asked in, in order
    MountSet mounts_;
};

}  // namespace nfstdm::test
