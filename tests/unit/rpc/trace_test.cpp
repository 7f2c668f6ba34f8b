// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/base/trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace nfstdm {
namespace {

using testing::ElementsAre;

class TraceTest : public testing::Test {
  protected:
    void write(TraceLevel level, TraceComponent component, const char *text) {
        trace.write(level, component, [&] {
            ++built;
            return std::string(text);
        });
    }

    std::vector<std::string> records;
    int built = 0;
    Trace trace{[this](TraceLevel, TraceComponent component, std::string_view text) {
                    records.push_back(std::string(trace_component_name(component)) + " " + std::string(text));
                },
                TraceLevel::notice};
};

TEST_F(TraceTest, LetsThroughWhatReachesTheThreshold) {
    write(TraceLevel::detail, TraceComponent::rpc, "a");
    write(TraceLevel::notice, TraceComponent::rpc, "b");
    write(TraceLevel::failure, TraceComponent::files, "c");
    EXPECT_THAT(records, ElementsAre("rpc b", "files c"));
}

TEST_F(TraceTest, NeverBuildsATextThatIsNotWanted) {
    write(TraceLevel::detail, TraceComponent::rpc, "a");
    trace.set_components(static_cast<uint32_t>(TraceComponent::nfs));
    write(TraceLevel::failure, TraceComponent::rpc, "b");
    trace.set_sink(nullptr);
    write(TraceLevel::failure, TraceComponent::nfs, "c");
    EXPECT_EQ(built, 0);
}

TEST_F(TraceTest, FollowsAChangeOfThreshold) {
    trace.set_threshold(TraceLevel::failure);
    write(TraceLevel::notice, TraceComponent::mount, "a");
    trace.set_threshold(TraceLevel::detail);
    write(TraceLevel::detail, TraceComponent::session, "b");
    EXPECT_THAT(records, ElementsAre("session b"));
}

TEST(Trace, IsOffByDefault) {
    EXPECT_FALSE(Trace().wants(TraceLevel::failure, TraceComponent::rpc));
}

}  // namespace
}  // namespace nfstdm
