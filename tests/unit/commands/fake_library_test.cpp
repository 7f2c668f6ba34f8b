// SPDX-License-Identifier: Apache-2.0
// The fake as a library of its own: what the environment tells it, seen through its C face.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstring>

#include "include/tdm.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temporary_directory.h"

namespace {

class FakeLibrary : public ::testing::Test {
  protected:
    FakeLibrary()
        : root_("FAKE_TDM_ROOT", directory_.path().c_str()),
          block_size_("FAKE_TDM_BLOCK_SIZE", "512"),
          log_("FAKE_TDM_LOG", log_name().c_str()),
          failures_("FAKE_TDM_FAIL", "mkdir:1:30,rmdir:1:0:4") {
        write_file(directory_ / "f", "text");
        library_ = dlopen(FAKE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    }
    ~FakeLibrary() override { unload(); }

    void unload() {
        if (library_ != nullptr) dlclose(library_);
        library_ = nullptr;
    }

    template <class Function>
    Function *function(const char *name) {
        return reinterpret_cast<Function *>(dlsym(library_, name));
    }

    std::string log_name() const { return outside_ / "calls"; }

    TemporaryDirectory directory_;
    TemporaryDirectory outside_;
    ScopedEnvironment root_, block_size_, log_, failures_;
    void *library_ = nullptr;
};

// By its type alone: the program is linked with no library that has the operation.
#define OPERATION(name) function<decltype(name)>(#name)

TEST_F(FakeLibrary, ServesAFolderAndWritesItBack) {
    ASSERT_NE(library_, nullptr) << dlerror();
    uint32_t version = TDM_INTERFACE_VERSION;
    void *handle = nullptr;
    char description[TDM_TEXT_SIZE] = {};
    uint32_t block_size = 0;
    uint32_t extra = 0;
    EXPECT_EQ(OPERATION(tdm_discover)(&version, &handle, description, sizeof description, &block_size, &extra), 0u);
    EXPECT_EQ(block_size, 512u);
    void *session = nullptr;
    EXPECT_EQ(OPERATION(tdm_init)(handle, &session), 0u);

    uint32_t location = 9;
    TdmAttributes attributes = {};
    EXPECT_EQ(OPERATION(tdm_getattr)(session, "/m/f", &attributes, &location), 0u);
    EXPECT_EQ(location, uint32_t{TDM_LOCATION_REMOTE});
    EXPECT_EQ(attributes.size, 4u);
    EXPECT_EQ(OPERATION(tdm_mkdir)(session, "/m/refused", &location), 30u);
    EXPECT_EQ(location, uint32_t{TDM_LOCATION_FAILED});
    EXPECT_EQ(OPERATION(tdm_rmdir)(session, "/m/f", &location), 0u);
    EXPECT_EQ(location, 4u);

    TdmFileInfo info = {};
    EXPECT_EQ(OPERATION(tdm_create)(session, "/m/new", 3, 2, 2, description, static_cast<uint32_t>(sizeof description),
                                    &info),
              0u);
    EXPECT_STREQ(description, "/m/new");
    EXPECT_EQ(OPERATION(tdm_delete)(session, "/m/f", &location), 0u);
    unload();
    EXPECT_EQ(read_file(directory_ / "new"), std::string(3, '\0'));
    EXPECT_FALSE(std::filesystem::exists(directory_ / "f"));
    EXPECT_EQ(read_file(log_name()),
              "discover version=4 length=513\ninit\ngetattr /m/f\nmkdir /m/refused\nrmdir /m/f\n"
              "create /m/new size=3 type=2 mode=2 length=513\ndelete /m/f\n");
}

}  // namespace
