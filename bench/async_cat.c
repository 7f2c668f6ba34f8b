// SPDX-License-Identifier: Apache-2.0
// Reads a file with libnfs's asynchronous interface, with so many READs in flight, and drops the bytes where they
// arrive: the least that a client of NFS can do with a file, which `cat` is measured beside. The URL's query says in
// which version of NFS.
//
// usage: async_cat IN_FLIGHT URL
// clang-format off
#include <sys/time.h>  // first: libnfs.h needs it and does not include it
// clang-format on
#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <nfsc/libnfs.h>
#include <poll.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>

// What servers take in a READ; libnfs asks for it in NFSv3 alone.
enum { READ_MOST = 1 << 20 };

struct reader {
    struct nfs_context *nfs;
    struct nfsfh *file;
    uint64_t size;      // of the file
    uint64_t next;      // where the next READ begins
    uint64_t received;  // bytes
    unsigned in_flight;
};

static void fail(struct nfs_context *nfs, const char *what) {
    fprintf(stderr, "async_cat: %s: %s\n", what, nfs_get_error(nfs));
    exit(1);
}

static void ask(struct reader *reader);

// libnfs asks again by itself for what a READ left out, so an answer that is short is one that is wrong.
static void answered(int status, struct nfs_context *nfs, void *data, void *private_data) {
    (void)data;
    struct reader *reader = private_data;
    if (status < 0) fail(nfs, "read");
    --reader->in_flight;
    reader->received += (uint64_t)status;
    ask(reader);
}

static void ask(struct reader *reader) {
    if (reader->next >= reader->size) return;
    const uint64_t told = nfs_get_readmax(reader->nfs);
    const uint64_t most = told > 0 ? told : READ_MOST;
    const uint64_t left = reader->size - reader->next;
    const uint64_t count = left < most ? left : most;
    if (nfs_pread_async(reader->nfs, reader->file, reader->next, count, answered, reader) != 0)
        fail(reader->nfs, "read");
    reader->next += count;
    ++reader->in_flight;
}

static void read_all(struct reader *reader, unsigned in_flight) {
    for (unsigned i = 0; i < in_flight; ++i)
        ask(reader);
    while (reader->in_flight > 0) {
        struct pollfd polled = {.fd = nfs_get_fd(reader->nfs), .events = (short)nfs_which_events(reader->nfs)};
        if (poll(&polled, 1, 100) < 0 && errno != EINTR) fail(reader->nfs, "poll");
        if (nfs_service(reader->nfs, polled.revents) != 0) fail(reader->nfs, "service");
    }
}

static void open_url(struct reader *reader, const char *text) {
    struct nfs_url *url = nfs_parse_url_full(reader->nfs, text);
    if (url == NULL) fail(reader->nfs, text);
    if (nfs_mount(reader->nfs, url->server, url->path) != 0) fail(reader->nfs, "mount");
    if (nfs_open(reader->nfs, url->file, O_RDONLY, &reader->file) != 0) fail(reader->nfs, "open");
    nfs_destroy_url(url);
    struct nfs_stat_64 attributes;
    if (nfs_fstat64(reader->nfs, reader->file, &attributes) != 0) fail(reader->nfs, "attributes");
    reader->size = attributes.nfs_size;
}

int main(int argc, char **argv) {
    const unsigned long in_flight = argc == 3 ? strtoul(argv[1], NULL, 10) : 0;
    if (in_flight < 1 || in_flight > 1024) {
        fputs("usage: async_cat IN_FLIGHT URL\n", stderr);
        return 2;
    }
    struct reader reader = {.nfs = nfs_init_context()};
    if (reader.nfs == NULL) {
        fputs("async_cat: no memory\n", stderr);
        return 1;
    }
    open_url(&reader, argv[2]);
    read_all(&reader, (unsigned)in_flight);
    const bool complete = reader.received == reader.size;
    if (!complete) fprintf(stderr, "async_cat: %" PRIu64 " bytes of %" PRIu64 " came\n", reader.received, reader.size);
    nfs_close(reader.nfs, reader.file);
    nfs_umount(reader.nfs);
    nfs_destroy_context(reader.nfs);
    return complete ? 0 : 1;
}
