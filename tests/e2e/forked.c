/* SPDX-License-Identifier: Apache-2.0 */
/* A program that forks while it has a file open on a mount: forked MOUNT. Ends with 0 when everything was as it must
 * be, and else says on standard error what was not. */
#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <tdm.h>
#include <unistd.h>

static const char *who = "parent";
static int failures = 0;

#define CHECK(condition)                                                             \
    do {                                                                             \
        if (!(condition)) {                                                          \
            fprintf(stderr, "%s: %s:%d: %s\n", who, __FILE__, __LINE__, #condition); \
            ++failures;                                                              \
        }                                                                            \
    } while (0)

static void *ctx;
static char path[TDM_TEXT_SIZE];
static _Alignas(4096) char buffer[4096];

static void open_session(void) {
    static TdmProductContext product;
    uint32_t version = TDM_INTERFACE_VERSION, block_size, extra;
    char description[TDM_TEXT_SIZE];
    void *handle;
    CHECK(tdm_tslinit(&product) == 0);
    CHECK(tdm_discover(&version, &handle, description, sizeof description, &block_size, &extra) == 0);
    CHECK(tdm_registerthread(handle, 0, 1, 0, "forked", 0) == 0);
    CHECK(tdm_init(handle, &ctx) == 0);
}

static uint64_t identify(void) {
    TdmFileInfo info = {0};
    char text[TDM_TEXT_SIZE] = "";
    uint32_t code = 0;
    CHECK(tdm_identify(ctx, path, 0, 2, &code, text, sizeof text, &info, 0) == 0 && code == TDM_IDENTIFIED_REMOTE);
    return info.file;
}

/* Gives the status of the submission, or of the request. */
static uint32_t transfer(uint8_t operation, uint64_t file, uint64_t offset) {
    TdmIoRequest request = {0};
    TdmIoRequest *list = &request;
    uint32_t count = 0;
    request.operation = operation;
    request.flags = TDM_IO_FLAGS;
    request.file = file;
    request.offset = offset;
    request.buffer = buffer;
    request.count = 4;
    const uint32_t status = tdm_io(ctx, &list, 1, NULL, 0, NULL, 0, 0, 0, &count);
    return status != 0 ? status : tdm_io(ctx, NULL, 0, NULL, 0, &list, 1, 0, TDM_WAIT_FOREVER, &count);
}

static int sockets(void) {
    int count = 0;
    DIR *folder = opendir("/proc/self/fd");
    for (const struct dirent *entry; folder != NULL && (entry = readdir(folder)) != NULL;) {
        char name[64], target[64] = "";
        snprintf(name, sizeof name, "/proc/self/fd/%.20s", entry->d_name);
        count += readlink(name, target, sizeof target - 1) > 0 && strncmp(target, "socket:", 7) == 0;
    }
    closedir(folder);
    return count;
}

static void in_child(uint64_t parents) {
    who = "child";
    CHECK(sockets() == 0);
    CHECK(transfer(TDM_IO_READ, parents, 0) == 9);
    const uint64_t own = identify();
    CHECK(own != parents);
    CHECK(transfer(TDM_IO_READ, own, 0) == 0 && memcmp(buffer, "abcd", 4) == 0);
    memcpy(buffer, "efgh", 4);
    CHECK(transfer(TDM_IO_WRITE, own, 4) == 0);
    CHECK(tdm_fini(ctx) == 0);
    CHECK(tdm_fini(ctx) != 0);
}

/* Waits for a child that does something, and ends as programs end. */
static void fork_for(void (*action)(uint64_t), uint64_t parents) {
    int status = -1;
    const pid_t child = fork();
    if (child == 0) {
        if (action != NULL) action(parents);
        exit(failures == 0 ? 0 : 1);
    }
    CHECK(waitpid(child, &status, 0) == child && status == 0);
}

int main(int argc, char **argv) {
    if (argc != 2) return 2;
    snprintf(path, sizeof path, "%s/file", argv[1]);
    open_session();
    const uint64_t file = identify();
    CHECK(transfer(TDM_IO_READ, file, 0) == 0 && sockets() > 0);
    const int before = sockets();
    fork_for(NULL, file);
    fork_for(in_child, file);
    CHECK(sockets() == before);
    memcpy(buffer, "ijkl", 4);
    CHECK(transfer(TDM_IO_WRITE, file, 8) == 0);
    CHECK(tdm_fini(ctx) == 0);
    return failures == 0 ? 0 : 1;
}
