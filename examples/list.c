/* SPDX-License-Identifier: Apache-2.0 */
/* Lists a directory on a mount of tslnfstab: list /mnt/backup/some-directory */
#include <stdio.h>
#include <tdm.h>

static uint32_t open_session(TdmProductContext *product, void **ctx) {
    uint32_t version = TDM_INTERFACE_VERSION, block_size, extra;
    char description[TDM_TEXT_SIZE];
    void *handle;
    uint32_t status = tdm_tslinit(product);
    if (status == 0) status = tdm_discover(&version, &handle, description, sizeof description, &block_size, &extra);
    if (status == 0) status = tdm_registerthread(handle, 0, 1, 0, "list", 0);
    return status == 0 ? tdm_init(handle, ctx) : status;
}

/* Prints the names of a directory, a batch of entries after the other. */
static uint32_t list(void *ctx, const char *path, uint32_t *location) {
    TdmDirEntry entries[64];
    TdmReaddirReply reply = {0};
    uint64_t cookie = 0;
    while (reply.end_of_directory == 0) {
        uint32_t unused;
        const uint32_t status = tdm_readdir(ctx, path, entries, &reply, sizeof entries, cookie, &unused, location);
        if (status != 0 || *location != TDM_LOCATION_REMOTE) return status;
        for (uint32_t i = 0; i < reply.entries; ++i)
            puts(entries[i].name);
        if (reply.entries > 0) cookie = entries[reply.entries - 1].cookie;
    }
    return 0;
}

int main(int argc, char **argv) {
    TdmProductContext product = {0}; /* no trace; must outlive the session */
    void *ctx;
    if (argc != 2) {
        fputs("usage: list DIRECTORY, below a mount point of tslnfstab\n", stderr);
        return 2;
    }
    if (open_session(&product, &ctx) != 0) {
        fputs("list: there is no session; TESSEL_HOME must name the installation home\n", stderr);
        return 2;
    }
    uint32_t location = TDM_LOCATION_FAILED;
    const uint32_t status = list(ctx, argv[1], &location);
    if (status != 0) fprintf(stderr, "%s: failed with status %u\n", argv[1], (unsigned)status);
    if (status == 0 && location == TDM_LOCATION_LOCAL) fprintf(stderr, "%s: on no mount\n", argv[1]);
    tdm_fini(ctx);
    return status == 0 && location == TDM_LOCATION_REMOTE ? 0 : 1;
}
