/* SPDX-License-Identifier: Apache-2.0 */
/* Calls every operation of the storage interface from C, without a tslnfstab: every path is local. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "include/tdm.h"

static int failures = 0;

#define CHECK(condition)                                                    \
    do {                                                                    \
        if (!(condition)) {                                                 \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
            ++failures;                                                     \
        }                                                                   \
    } while (0)

static void check_paths(void *ctx) {
    TdmAttributes attributes = {0};
    TdmSetAttributes set = {TDM_SET_PERMISSIONS, {0, 0}, 0600};
    TdmDirEntry entries[4];
    TdmReaddirReply reply = {0};
    TdmFsInfo info;
    TdmFsStat stat;
    char target[TDM_TEXT_SIZE] = "";
    uint32_t unused = 0;
    uint32_t location = 99;

    CHECK(tdm_getattr(ctx, "/a", &attributes, &location) == 0 && location == TDM_LOCATION_LOCAL);
    location = 99;
    CHECK(tdm_setattr(ctx, "/a", &set, &location) == 0 && location == TDM_LOCATION_LOCAL);
    location = 99;
    CHECK(tdm_mkdir(ctx, "/a", &location) == 0 && location == TDM_LOCATION_LOCAL);
    location = 99;
    CHECK(tdm_rmdir(ctx, "/a", &location) == 0 && location == TDM_LOCATION_LOCAL);
    location = 99;
    CHECK(tdm_delete(ctx, "/a", &location) == 0 && location == TDM_LOCATION_LOCAL);
    location = 99;
    CHECK(tdm_readlink(ctx, "/a", target, &location) == 0 && location == TDM_LOCATION_LOCAL);
    location = 99;
    CHECK(tdm_readdir(ctx, "/a", entries, &reply, sizeof entries, 0, &unused, &location) == 0 &&
          location == TDM_LOCATION_LOCAL);
    location = 99;
    CHECK(tdm_fsinfo(ctx, "/a", &info, &location) == 0 && location == TDM_LOCATION_LOCAL);
    location = 99;
    CHECK(tdm_fsstat(ctx, "/a", &stat, &location) == 0 && location == TDM_LOCATION_LOCAL);
}

static void check_files(void *ctx) {
    TdmFileInfo info = {0};
    TdmIoRequest request;
    TdmIoRequest *list = &request;
    char text[TDM_TEXT_SIZE] = "";
    uint32_t code = 0;
    uint32_t count = 0;
    uint64_t end = 0;
    const void *bytes = NULL;

    CHECK(tdm_identify(ctx, "/a", 0, 2, &code, text, sizeof text, &info, 0) == 0 && code == TDM_IDENTIFIED_LOCAL);
    CHECK(tdm_create(ctx, "/a", 0, 2, 2, text, sizeof text, &info) != 0 && strlen(text) > 0);
    CHECK(tdm_createwith(ctx, "/a", "x", 1, text, sizeof text, &info) != 0 && strlen(text) > 0);
    CHECK(tdm_resize(ctx, 1, 0) != 0);
    CHECK(tdm_reidentify(ctx, 1, 0, &info) != 0);
    CHECK(tdm_commit(ctx, 1) != 0);
    CHECK(tdm_unidentify(ctx, 1) != 0);
    CHECK(tdm_expect(ctx, "/a", TDM_EXPECT_ATTRIBUTES) == 0);
    CHECK(tdm_expect(ctx, "/a", TDM_EXPECT_USE) == 0);
    CHECK(tdm_expect(ctx, "/a", TDM_EXPECT_CONTENT) == 0);
    CHECK(tdm_expect(ctx, "/a", TDM_EXPECT_DELETE) == 95);
    CHECK(tdm_expect(ctx, "/a", 0) != 0);
    CHECK(tdm_expect(ctx, NULL, TDM_EXPECT_ATTRIBUTES) != 0);
    CHECK(tdm_known(ctx, "/a", text, sizeof text, &count) == 0 && count == 0);
    CHECK(tdm_learn(ctx, text, 0) != 0);
    CHECK(tdm_written(ctx, 1, 0, &end) != 0);
    CHECK(tdm_lend(ctx, 1, 0, 1, &bytes, &count) != 0);
    CHECK(tdm_io(ctx, NULL, 0, NULL, 0, NULL, 0, 0, 0, &count) == 0);
    memset(&request, 0, sizeof request);
    request.operation = TDM_IO_READ;
    request.flags = TDM_IO_FLAGS;
    CHECK(tdm_io(ctx, &list, 1, NULL, 0, NULL, 0, 0, 0, &count) != 0);
}

int main(void) {
    static TdmProductContext context;
    uint32_t version = TDM_INTERFACE_VERSION;
    void *handle = NULL;
    void *ctx = NULL;
    char description[TDM_TEXT_SIZE] = "";
    uint32_t block_size = 0;
    uint32_t extra = 0;

    unsetenv("TESSEL_HOME");
    unsetenv("NFSTDM_BLOCK_SIZE");
    CHECK(tdm_tslinit(&context) == 0);
    CHECK(tdm_discover(&version, &handle, description, sizeof description, &block_size, &extra) == 0);
    CHECK(block_size == 1 && strlen(description) > 0);
    CHECK(tdm_registerthread(handle, 0, 1, 0, "tdm_c_test", 0) == 0);
    CHECK(tdm_trace(TDM_TRACE_KGTDM, 0) == 0);
    CHECK(tdm_init(handle, &ctx) == 0);
    check_paths(ctx);
    check_files(ctx);
    CHECK(tdm_fini(ctx) == 0);
    CHECK(tdm_fini(ctx) != 0);
    return failures == 0 ? 0 : 1;
}
