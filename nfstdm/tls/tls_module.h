/* SPDX-License-Identifier: Apache-2.0 */
/* What nfstdm-tls.so offers: TLS 1.3 over a connected socket, by the system's OpenSSL. It is loaded on demand, so that
 * nothing else needs that library. A C interface, as the two sides may be of different builds; both are of one thread,
 * and none of these functions waits. */
#ifndef NFSTDM_TLS_MODULE_H
#define NFSTDM_TLS_MODULE_H

#include <stddef.h>
#include <sys/uio.h>

#ifdef __cplusplus
extern "C" {
#endif

#define NFSTDM_TLS_VERSION 1u
#define NFSTDM_TLS_ENTRY "nfstdm_tls_module"

struct nfstdm_tls_failure {
    int number;     /* an errno */
    char text[256]; /* why, in words */
};

enum nfstdm_tls_role { NFSTDM_TLS_CLIENT, NFSTDM_TLS_SERVER };

struct nfstdm_tls_settings {
    enum nfstdm_tls_role role;
    const char *ca;          /* file of the certificates that are trusted; NULL: a client takes the system's, a server
                                asks nobody for a certificate */
    const char *certificate; /* file of the own certificate and those between it and the root; NULL = none */
    const char *key;         /* file of its key; NULL = the same */
};

struct nfstdm_tls_context; /* what the connections of one server share: certificates, sessions to resume */
struct nfstdm_tls_session; /* one connection */

/* Functions that fail give NULL, or -1, and fill in the failure. */
struct nfstdm_tls_functions {
    unsigned version;

    struct nfstdm_tls_context *(*new_context)(const struct nfstdm_tls_settings *, struct nfstdm_tls_failure *);
    void (*free_context)(struct nfstdm_tls_context *);

    /* peer names whose sessions can be resumed; names, up to a NULL, are those of which the peer's certificate must
     * bear one, as a DNS name or an address. Of a server both are NULL. The socket stays the caller's. */
    struct nfstdm_tls_session *(*new_session)(struct nfstdm_tls_context *, int socket, const char *peer,
                                              const char *const *names, struct nfstdm_tls_failure *);
    void (*free_session)(struct nfstdm_tls_session *);

    /* Goes on with the handshake: the poll(2) events to call again for, 0 when it is done, -1 when it failed. */
    int (*handshake)(struct nfstdm_tls_session *, struct nfstdm_tls_failure *);

    /* Bytes moved, 0 = none for now, -1 = none any more. */
    ssize_t (*receive)(struct nfstdm_tls_session *, const struct iovec *, size_t count, struct nfstdm_tls_failure *);
    ssize_t (*send)(struct nfstdm_tls_session *, const struct iovec *, size_t count, struct nfstdm_tls_failure *);

    /* Bytes that send() took and the socket did not: send() without pieces goes on with them. */
    size_t (*unsent)(const struct nfstdm_tls_session *);
    /* Whether there are received bytes of which the socket does not tell any more. */
    int (*holds_received)(const struct nfstdm_tls_session *);

    /* "TLSv1.3, TLS_AES_256_GCM_SHA384, ..." of a finished handshake. */
    void (*describe)(const struct nfstdm_tls_session *, char *text, size_t size);
};

/* The module's only symbol. */
const struct nfstdm_tls_functions *nfstdm_tls_module(void);

#ifdef __cplusplus
}
#endif

#endif
