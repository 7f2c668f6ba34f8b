/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The storage interface: what libnfstdm.so offers and all that the utility knows of it.
 *
 * Rules that hold for every call:
 *  1. Every operation returns 0 for success and a number for failure: the errno of the failure where one fits
 *     (2 no such file, 13 permission denied, 17 exists, 28 no space, 30 read-only, 70 stale, 110 timed out, ...).
 *  2. Pointers are borrowed for the duration of the call, except the data buffers and records of submitted I/O
 *     requests: those must outlive the request's completion.
 *  3. Texts are terminated; a buffer's length counts its terminator.
 *  4. As long as a session is open all calls come from the thread that opened it; another one gets EPERM. A forked
 *     child may go on with its parent's context, in a session of its own. After a failing call the session stays
 *     usable.
 *  5. The path operations return a location code beside their status: where the path lies, or that the operation
 * failed.
 */
#ifndef TDM_H
#define TDM_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    TDM_INTERFACE_VERSION = 4,
    TDM_TEXT_SIZE = 513,       /* error texts, created names, link targets, the library's description */
    TDM_ENTRY_NAME_SIZE = 516, /* a directory entry's name with its terminator */
    TDM_STREAM_NAME_SIZE = 520 /* trace and log file names in the product context */
};

/* Location codes of the path operations. */
enum {
    TDM_LOCATION_REMOTE = 0, /* on a Wren NFS mount, and done there */
    TDM_LOCATION_LOCAL = 1,  /* on no mount: the caller uses the operating system's own call */
    TDM_LOCATION_FAILED = 2, /* the operation failed */
    TDM_LOCATION_LOST = 3    /* the operation failed; callers treat it as TDM_LOCATION_FAILED */
};

/* Codes of tdm_identify. */
enum { TDM_IDENTIFIED_REMOTE = 1, TDM_IDENTIFIED_LOCAL = 2, TDM_IDENTIFIED_FAILED = 3 };

/* Operations of an I/O request. */
enum {
    TDM_IO_READ = 1,
    TDM_IO_WRITE = 2,
    TDM_IO_FLAGS = 7 /* the flags byte of every request */
};

#define TDM_WAIT_FOREVER 0xFFFFFFFFu /* timeout of tdm_io: return when all requests of the reap list have completed */

/* File types in attributes and directory entries. */
enum { TDM_TYPE_UNKNOWN = 0, TDM_TYPE_REGULAR = 1, TDM_TYPE_DIRECTORY = 2, TDM_TYPE_LINK = 5 };

/* Permission bits in attributes. */
enum {
    TDM_PERMISSION_OWNER_READ = 0x100,
    TDM_PERMISSION_OWNER_WRITE = 0x80,
    TDM_PERMISSION_OWNER_LOOKUP = 0x40,
    TDM_PERMISSION_GROUP_READ = 0x20,
    TDM_PERMISSION_GROUP_WRITE = 0x10,
    TDM_PERMISSION_GROUP_LOOKUP = 0x8,
    TDM_PERMISSION_OTHERS_READ = 0x4,
    TDM_PERMISSION_OTHERS_WRITE = 0x2,
    TDM_PERMISSION_OTHERS_LOOKUP = 0x1
};

/* Permitted operations of an identified file. */
enum {
    TDM_PERMITTED_READ = 0x1,
    TDM_PERMITTED_WRITE = 0x2,
    TDM_PERMITTED_MIRROR_SIDE_IO = 0x4,
    TDM_PERMITTED_RESIZE = 0x8,
    TDM_PERMITTED_CREATE = 0x10,
    TDM_PERMITTED_WRITE_ONCE = 0x40,
    TDM_PERMITTED_RESILVER = 0x80,
    TDM_PERMITTED_SCATTER_GATHER = 0x100,
    TDM_PERMITTED_RAW_VOLUME = 0x200
};

#define TDM_SET_PERMISSIONS 1u /* mask of TdmSetAttributes */

/* Trace events of tdm_trace. */
enum { TDM_TRACE_NFCORE = 19392, TDM_TRACE_SNFCORE = 19394, TDM_TRACE_KGTDM = 19396, TDM_TRACE_NFCORE_MASK = 19398 };

/* The product context of tdm_tslinit: where the caller's trace and log go. The library writes its own records to
 * trace_stream while trace_on is 1. The context must outlive the session. */
typedef struct TdmProductContext {
    int32_t trace_on;
    int32_t trace_to_stderr;
    char trace_file_name[TDM_STREAM_NAME_SIZE];
    FILE *trace_stream;
    char log_file_name[TDM_STREAM_NAME_SIZE];
    FILE *log_stream;
    int32_t log_on;
} TdmProductContext;

/* A program that is to know why calls fail, traced or not, defines this variable and sets it before tdm_tslinit: the
 * function gets every record of a failure as it would stand in the trace, "[clock],name text", without the line end. It
 * is called in the middle of a call and may not call the library. A program without it lacks nothing. */
typedef void TdmFailureListener(const char *record);
#if defined(__GNUC__)
__attribute__((visibility("default")))
#endif
extern TdmFailureListener *tdm_failure_listener;

/* One I/O request, 256 bytes. The bytes not named belong to the library from submission to completion. */
typedef struct TdmIoRequest {
    uint32_t library_head;
    uint32_t status; /* of the completed request; 0 = done without error */
    uint32_t library_word;
    uint32_t cleared; /* 0 before each submission */
    uint8_t operation;
    uint8_t library_byte;
    uint8_t flags; /* TDM_IO_FLAGS */
    uint8_t library_bytes[5];
    uint64_t file;
    uint64_t offset; /* bytes from the start of the file */
    void *buffer;    /* page aligned */
    uint32_t count;  /* bytes */
    uint8_t library_tail[204];
} TdmIoRequest;

typedef struct TdmFileInfo {
    uint64_t file; /* identifier of the open file */
    uint64_t size; /* bytes */
    uint32_t preferred_io_size;
    uint32_t preferred_io_alignment;
    uint16_t permitted;
    uint16_t mirror_sides;
    uint32_t reserved;
} TdmFileInfo;

typedef struct TdmAttributes {
    uint32_t type;
    uint32_t permissions;
    uint32_t links;
    uint32_t uid;
    uint32_t gid;
    uint32_t library_word;
    uint64_t size; /* bytes */
    uint64_t used; /* bytes on disk */
    /* What tells the object from others. Each is 0 when the library does not know it; then the object may be any. */
    uint64_t server;         /* which block of the configuration: two blocks may still lead to one server */
    uint64_t handle_digest;  /* of the name that the server itself has for the object, on this mount */
    uint64_t file_system_id; /* of the server's file system; may be 0 where server is not */
    uint64_t file_id;        /* within the file system; given out again when the object is gone */
    uint64_t library_time;
    uint64_t access_seconds; /* since the epoch, as all times here */
    uint32_t access_nanoseconds;
    uint32_t library_access;
    uint64_t access_spare;
    uint64_t modification_seconds;
    uint32_t modification_nanoseconds;
    uint32_t library_modification;
    uint64_t modification_spare;
    uint64_t change_seconds;
    uint32_t change_nanoseconds;
    uint32_t library_change;
    uint64_t change_spare;
} TdmAttributes;

typedef struct TdmSetAttributes {
    uint32_t mask; /* TDM_SET_PERMISSIONS */
    uint32_t library_words[2];
    uint32_t permissions;
} TdmSetAttributes;

typedef struct TdmDirEntry {
    uint64_t file_id;
    uint64_t cookie; /* the position after this entry */
    uint32_t type;   /* TDM_TYPE_UNKNOWN when the server did not tell */
    char name[TDM_ENTRY_NAME_SIZE];
} TdmDirEntry;

/* TdmReaddirReply.library_word with the end of a directory: this mark, and in the low half how many names were left out
 * because no path or entry can hold them. Anything else tells nothing. */
#define TDM_NAMES_LEFT_OUT UINT64_C(0x6C65667400000000)
#define TDM_NAMES_LEFT_OUT_MASK UINT64_C(0xFFFFFFFF00000000)

typedef struct TdmReaddirReply {
    uint64_t library_word;
    uint32_t entries;
    uint32_t end_of_directory; /* non-zero when the directory is exhausted */
} TdmReaddirReply;

typedef struct TdmFsInfo {
    TdmAttributes attributes; /* of the directory */
    uint64_t read_maximum;
    uint64_t read_preferred;
    uint32_t read_multiple;
    uint32_t library_read;
    uint64_t write_maximum;
    uint64_t write_preferred;
    uint32_t write_multiple;
    uint32_t library_write;
    uint64_t readdir_preferred; /* bytes */
    uint32_t readdir_entries;   /* to ask for per tdm_readdir call */
    uint32_t library_tail;
} TdmFsInfo;

typedef struct TdmFsStat {
    TdmAttributes attributes; /* of the object */
    uint64_t total_bytes;
    uint64_t free_bytes;
    uint64_t available_bytes;
    uint64_t total_files;
    uint64_t free_files;
    uint64_t available_files;
    uint32_t volatility_seconds;
    uint32_t library_tail;
} TdmFsStat;

/* Starts the product layer. product_context is a TdmProductContext that must outlive the session. */
uint32_t tdm_tslinit(void *product_context);

/* Gives a discovery handle, a text that describes the library (description_length bytes with its terminator), the block
 * size to whose multiples I/O sizes are padded, and a word without meaning. *version must be TDM_INTERFACE_VERSION. */
uint32_t tdm_discover(uint32_t *version, void **handle, char *description, uint32_t description_length,
                      uint32_t *block_size, uint32_t *extra);

/* Registers the calling thread under a name, before any call that takes the context. The words are 0, 1, 0 and 0. */
uint32_t tdm_registerthread(void *handle, uint32_t word1, uint32_t word2, uint32_t word3, const char *name,
                            uint32_t word4);

/* Sets the level (0 to 4) or the mask of one trace event. */
uint32_t tdm_trace(uint32_t event, uint32_t level);

/* Opens a session; no server is contacted. tdm_fini brings every accepted write to stable storage and closes it. */
uint32_t tdm_init(void *handle, void **ctx);
uint32_t tdm_fini(void *ctx);

/* Opens a file. *code: 1 an existing remote file (info filled), 2 the path is on no mount (status 0), 3 with any
 * failing status. A directory fails with 21. key is 0, mode 2 and flags 0. error_text tells a failure in words. */
uint32_t tdm_identify(void *ctx, const char *path, uint64_t key, uint32_t mode, uint32_t *code, char *error_text,
                      uint32_t error_text_length, TdmFileInfo *info, uint32_t flags);

/* Makes a file of the given size (bytes), or empties and resizes an existing one, and opens it. type and mode are 2.
 * error_text holds the created file's name on success, the reason on failure. A path on no mount fails. */
uint32_t tdm_create(void *ctx, const char *path, uint64_t size, uint32_t type, uint32_t mode, char *error_text,
                    uint32_t error_text_length, TdmFileInfo *info);

/* Sets an open file's size in bytes. The identifier must be refreshed with tdm_reidentify before further I/O. */
uint32_t tdm_resize(void *ctx, uint64_t file, uint64_t size);

/* Overwrites the identifier in *info, and nothing else. flags is 0. */
uint32_t tdm_reidentify(void *ctx, uint64_t file, uint32_t flags, TdmFileInfo *info);

/* Brings the file's accepted writes to stable storage and makes a created file permanent. */
uint32_t tdm_commit(void *ctx, uint64_t file);

/* Closes a file, after bringing its accepted writes to stable storage. */
uint32_t tdm_unidentify(void *ctx, uint64_t file);

/* Path operations; each sets *location. Of server and handle_digest only tdm_getattr tells. The last component is not
 * followed by tdm_delete, tdm_getattr, tdm_readlink. */
uint32_t tdm_delete(void *ctx, const char *path, uint32_t *location);
uint32_t tdm_getattr(void *ctx, const char *path, TdmAttributes *attributes, uint32_t *location);
uint32_t tdm_setattr(void *ctx, const char *path, const TdmSetAttributes *attributes, uint32_t *location);
uint32_t tdm_mkdir(void *ctx, const char *path, uint32_t *location);
uint32_t tdm_rmdir(void *ctx, const char *path, uint32_t *location);
uint32_t tdm_readlink(void *ctx, const char *path, char *target /* TDM_TEXT_SIZE bytes */, uint32_t *location);

/* Lists a directory from a position (cookie; 0 = the start) into entries_bytes / 536 entries, at least 4 a call unless
 * the directory ends. "." and ".." are the first two entries of the first batch. */
uint32_t tdm_readdir(void *ctx, const char *path, TdmDirEntry *entries, TdmReaddirReply *reply, uint32_t entries_bytes,
                     uint64_t cookie, uint32_t *unused, uint32_t *location);

uint32_t tdm_fsinfo(void *ctx, const char *path, TdmFsInfo *info, uint32_t *location);
uint32_t tdm_fsstat(void *ctx, const char *path, TdmFsStat *stat, uint32_t *location);

/*
 * The operations below are optional: a program that uses them declares them weak, asks whether they are there, and does
 * without where they are not, or fail.
 */

/* Has the server copy count bytes (above 0) from one open file into another, without moving them to this host. *copied
 * is how many it has copied, at least one; whoever wants the rest asks again. What was copied is on stable storage.
 * Fails with 95 where the server does not copy between these files; then the caller reads and writes. */
uint32_t tdm_copy(void *ctx, uint64_t source, uint64_t source_offset, uint64_t destination, uint64_t destination_offset,
                  uint64_t count, uint64_t *copied);

/* The next bytes of an open file, at or behind an offset, that are no hole: from *begin up to *end. Both are the file's
 * size when there is nothing but a hole. The caller is taken to read there next. Fails with 95 where holes are not
 * known; then everything is to be read. */
uint32_t tdm_extent(void *ctx, uint64_t file, uint64_t offset, uint64_t *begin, uint64_t *end);

/* Reads without copying: the next bytes of an open file, from an offset on, where they lie in the library's memory:
 * *count of them, at least one and at most most, from *bytes on. They stay there until the next call with this context,
 * and are not to be changed. Waits until they have come. Fails with 95 where there is nothing to lend: the file ends
 * there, or its bytes did not come; then the caller reads, which tells why. */
uint32_t tdm_lend(void *ctx, uint64_t file, uint64_t offset, uint32_t most, const void **bytes, uint32_t *count);

/* As tdm_create, of a file that begins with count bytes (above 0) of content. They count as written by tdm_io, and may
 * be on stable storage when the call returns: a small file and what it holds are one question where the protocol can.
 * That they could not be written is told by whatever brings the file to stable storage; the file is open then, and
 * made. */
uint32_t tdm_createwith(void *ctx, const char *path, const void *content, uint32_t count, char *error_text,
                        uint32_t error_text_length, TdmFileInfo *info);

/* Tells what a path is about to be used for, without waiting for any server. With TDM_EXPECT_USE it is used soon: the
 * way to its server is made beside the calls that come before. With TDM_EXPECT_ATTRIBUTES the directory is listed next,
 * and then tdm_getattr is called for most of its entries: it tells what the listing told of them, so that the server
 * need not go through the directory twice. That holds until the directory is listed again, something is changed by this
 * session, or everything is to be asked anew (tdm_io). With TDM_EXPECT_CONTENT the file is identified and read from its
 * start to its end soon: if a listing told of it and it is small, it is asked for meanwhile, up to 128 files ahead.
 * With TDM_EXPECT_DELETE tdm_delete is called for the path soon, come what may: if a listing told that it is no
 * directory, and it is not open here, its deletion is begun, of up to 128 files, and tdm_delete waits for it. Until
 * then the file is told as it was. Fails with 95 where it is not begun. */
enum { TDM_EXPECT_ATTRIBUTES = 1, TDM_EXPECT_USE = 2, TDM_EXPECT_CONTENT = 3, TDM_EXPECT_DELETE = 4 };
uint32_t tdm_expect(void *ctx, const char *path, uint32_t what);

/* For a forked child, which goes on with this context and nothing that its parent learnt: what is known of the objects
 * along a path goes into record, *size bytes of it, 0 when that is nothing or more than capacity. tdm_learn takes it
 * there, and only there; what is known holds no longer than here. The directories on the path may be asked for anew. */
uint32_t tdm_known(void *ctx, const char *path, void *record, uint32_t capacity, uint32_t *size);
uint32_t tdm_learn(void *ctx, const void *record, uint32_t size);

/* How far the server has taken what an open file was given to write: *end is the first byte that tdm_io accepted and
 * that the server has not answered for, or that a failure kept from stable storage; UINT64_MAX when it answered for
 * all. With a timeout (milliseconds) above 0 everything is brought on its way to stable storage, and waited for as long
 * as that. A failure to write is the status, with *end told, and stays for the call that brings the writes to stable
 * storage. */
uint32_t tdm_written(void *ctx, uint64_t file, uint32_t timeout, uint64_t *end);

/*
 * Starts requests (submit), collects completed ones (reap), or both. Every accepted request completes exactly once, at
 * the latest before tdm_fini returns; a refused one never does. With timeout TDM_WAIT_FOREVER the call returns when
 * every request of the reap list has completed, with 0 at once; *count is set to the number collected and left alone by
 * a call that only submits. When a collected request failed, its status word says so and the call's status is that
 * number too. With nothing to submit and nothing to reap the call is a barrier: it returns when every accepted write is
 * on stable storage, with the first failure there was, and what is asked after it is asked of the server, whatever the
 * library has kept of earlier answers. The wait list is not used; minreap is 0.
 */
uint32_t tdm_io(void *ctx, TdmIoRequest *const *submit, uint32_t nsubmit, TdmIoRequest *const *wait, uint32_t nwait,
                TdmIoRequest *const *reap, uint32_t nreap, uint32_t minreap, uint32_t timeout, uint32_t *count);

#ifdef __cplusplus
}
#endif

#endif
