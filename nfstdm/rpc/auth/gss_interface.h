// SPDX-License-Identifier: Apache-2.0
// What the storage library and its module for RPCSEC_GSS say to each other, in C: the module is linked with the
// system's GSSAPI, the library with the C library alone.
#pragma once

#include <stddef.h>  // NOLINT: this is C
#include <stdint.h>  // NOLINT

extern "C" {

constexpr uint32_t kNfstdmGssVersion = 2;

// Why something failed, as far as that decides what to try.
enum NfstdmGssTrouble : uint32_t {
    kGssTroubleOther,
    kGssTroubleNoTicket,
    kGssTroubleTicketExpired,
    kGssTroubleClockSkew,
    kGssTroubleUnknownService,
    kGssTroubleWrongRealm,
    kGssTroubleNoKeytab,
    kGssTroubleNoKdc,
    kGssTroubleBadTicket,
};

struct NfstdmGssFailure {
    NfstdmGssTrouble trouble;
    char words[256];  // the system's, terminated
};

// Made by the module, given back through release(); empty before.
struct NfstdmGssBytes {
    void *data;
    size_t size;
};

// Bytes that encryption adds to a message: before it and behind it.
struct NfstdmGssRoom {
    size_t before;
    size_t behind;
};

struct NfstdmGssContext;

enum NfstdmGssStep : int32_t { kGssFailed = -1, kGssComplete = 0, kGssContinue = 1 };

// Functions that give a bool give true on success.
struct NfstdmGssModule {
    uint32_t version;

    // A context with a host-based service, "nfs@HOST", to be established with the credentials of the caller.
    NfstdmGssContext *(*create)(const char *target, NfstdmGssFailure *failure);
    // Takes the server's last token, none at first, and makes the next one for the server, which may be empty. seconds:
    // how long a complete context lives.
    NfstdmGssStep (*step)(NfstdmGssContext *, const void *token, size_t size, NfstdmGssBytes *next, uint32_t *seconds,
                          NfstdmGssFailure *failure);
    bool (*get_mic)(NfstdmGssContext *, const void *message, size_t size, NfstdmGssBytes *mic,
                    NfstdmGssFailure *failure);
    bool (*verify_mic)(NfstdmGssContext *, const void *message, size_t size, const void *mic, size_t mic_size);
    // With confidentiality on both ways, where the message is.
    // The room that a message of this size needs.
    bool (*wrap_room)(NfstdmGssContext *, size_t size, NfstdmGssRoom *room, NfstdmGssFailure *failure);
    // area: size bytes, of which the message leaves that room free; all of them are what is to be sent.
    bool (*wrap)(NfstdmGssContext *, void *area, size_t size, const NfstdmGssRoom *room, NfstdmGssFailure *failure);
    // Within area, which is spoiled where it fails: the message, without the room around it.
    bool (*unwrap)(NfstdmGssContext *, void *area, size_t size, NfstdmGssRoom *room);
    void (*destroy)(NfstdmGssContext *);
    void (*release)(NfstdmGssBytes *);
    // The words for what a server says of its side.
    void (*explain)(uint32_t major, uint32_t minor, NfstdmGssFailure *failure);
};

// The module's one name.
const NfstdmGssModule *nfstdm_gss_module(void);
}
