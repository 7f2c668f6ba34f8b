/* SPDX-License-Identifier: Apache-2.0 */
/* Prints a file on a mount of tslnfstab: read LIBRARY /mnt/backup/some-file
 *
 * The library is loaded while the program runs, as a database does it: only the header is needed to build this. */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <tdm.h>

enum { CHUNK = 32768 };

/* The operations that this program uses, under the names of the header. */
#define FOR_EACH_OPERATION(DO) \
    DO(tdm_tslinit)            \
    DO(tdm_discover) DO(tdm_registerthread) DO(tdm_init) DO(tdm_identify) DO(tdm_io) DO(tdm_unidentify) DO(tdm_fini)

static struct {
#define DECLARE(name) __typeof__(name) *name;
    FOR_EACH_OPERATION(DECLARE)
} library;

/* Fills in the operations; NULL, or what is wrong. */
static const char *load(const char *path) {
    void *const loaded = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (loaded == NULL) return dlerror();
#define FIND(name)                                  \
    *(void **)&library.name = dlsym(loaded, #name); \
    if (library.name == NULL) return dlerror();
    FOR_EACH_OPERATION(FIND)
    return NULL;
}

static uint32_t open_session(TdmProductContext *product, void **ctx) {
    uint32_t version = TDM_INTERFACE_VERSION, block_size, extra;
    char description[TDM_TEXT_SIZE];
    void *handle;
    uint32_t status = library.tdm_tslinit(product);
    if (status == 0)
        status = library.tdm_discover(&version, &handle, description, sizeof description, &block_size, &extra);
    if (status == 0) status = library.tdm_registerthread(handle, 0, 1, 0, "read", 0);
    return status == 0 ? library.tdm_init(handle, ctx) : status;
}

/* Reads bytes of an open file into a buffer of CHUNK bytes, and waits for them. */
static uint32_t read_at(void *ctx, uint64_t file, uint64_t offset, void *buffer, uint32_t count) {
    TdmIoRequest request = {.operation = TDM_IO_READ,
                            .flags = TDM_IO_FLAGS,
                            .file = file,
                            .offset = offset,
                            .buffer = buffer,
                            .count = count};
    TdmIoRequest *const list[] = {&request};
    uint32_t collected = 0;
    const uint32_t status = library.tdm_io(ctx, list, 1, NULL, 0, NULL, 0, 0, 0, &collected);
    return status == 0 ? library.tdm_io(ctx, NULL, 0, NULL, 0, list, 1, 0, TDM_WAIT_FOREVER, &collected) : status;
}

static uint32_t print(void *ctx, const TdmFileInfo *info) {
    void *const buffer = aligned_alloc(4096, CHUNK);
    uint32_t status = buffer == NULL ? 12 : 0; /* ENOMEM */
    for (uint64_t offset = 0; status == 0 && offset < info->size; offset += CHUNK) {
        const uint64_t left = info->size - offset;
        const uint32_t count = left < CHUNK ? (uint32_t)left : CHUNK;
        status = read_at(ctx, info->file, offset, buffer, count);
        if (status == 0 && fwrite(buffer, 1, count, stdout) != count) status = 5; /* EIO */
    }
    free(buffer);
    return status;
}

/* Opens a file, prints it and closes it. Tells what fails. */
static int print_file(void *ctx, const char *path) {
    char why[TDM_TEXT_SIZE] = "";
    uint32_t code = TDM_IDENTIFIED_FAILED;
    TdmFileInfo info = {0};
    uint32_t status = library.tdm_identify(ctx, path, 0, 2, &code, why, sizeof why, &info, 0);
    if (status == 0 && code != TDM_IDENTIFIED_REMOTE) {
        fprintf(stderr, "%s: on no mount\n", path);
        return 1;
    }
    if (status == 0) {
        status = print(ctx, &info);
        const uint32_t closed = library.tdm_unidentify(ctx, info.file);
        if (status == 0) status = closed;
    }
    if (status != 0) fprintf(stderr, "%s: failed with status %u %s\n", path, (unsigned)status, why);
    return status == 0 ? 0 : 1;
}

int main(int argc, char **argv) {
    TdmProductContext product = {0}; /* no trace; must outlive the session */
    void *ctx;
    if (argc != 3) {
        fputs("usage: read LIBRARY FILE, below a mount point of tslnfstab\n", stderr);
        return 2;
    }
    const char *const problem = load(argv[1]);
    if (problem != NULL) {
        fprintf(stderr, "read: %s\n", problem);
        return 2;
    }
    if (open_session(&product, &ctx) != 0) {
        fputs("read: there is no session; TESSEL_HOME must name the installation home\n", stderr);
        return 2;
    }
    int result = print_file(ctx, argv[2]);
    if (library.tdm_fini(ctx) != 0 || fflush(stdout) != 0) result = 1;
    return result;
}
