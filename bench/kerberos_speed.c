// SPDX-License-Identifier: Apache-2.0
// How fast the system's Kerberos library seals, opens and signs messages of 1 MiB (RFC 3962, aes256-cts-hmac-sha1-96):
// what krb5p and krb5i cannot do without.
//
// Prints the processor seconds of a GiB each: encrypt, decrypt, checksum.
#include <krb5.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum { kSize = 1 << 20, kTimes = 64, kPerGib = (1 << 30) / kSize };

static const krb5_keyusage kUsage = 24;  // KG-USAGE-INITIATOR-SEAL (RFC 4121 section 2)

static void check(krb5_error_code code, const char *what) {
    if (code == 0) return;
    fprintf(stderr, "kerberos_speed: %s: error %ld\n", what, (long)code);
    exit(1);
}

static void *allocate(size_t size) {
    void *memory = malloc(size);
    if (memory == NULL) {
        fputs("kerberos_speed: no memory\n", stderr);
        exit(1);
    }
    return memset(memory, 7, size);
}

static double processor_seconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

int main(void) {
    krb5_context context;
    check(krb5_init_context(&context), "context");
    krb5_keyblock block;
    check(krb5_c_make_random_key(context, ENCTYPE_AES256_CTS_HMAC_SHA1_96, &block), "random key");
    krb5_key key;
    check(krb5_k_create_key(context, &block, &key), "key");
    size_t sealed_size = 0;
    check(krb5_c_encrypt_length(context, block.enctype, kSize, &sealed_size), "length");
    krb5_data plain = {.length = kSize, .data = allocate(kSize)};
    krb5_data opened = {.length = (unsigned)sealed_size, .data = allocate(sealed_size)};
    krb5_enc_data sealed = {.enctype = block.enctype,
                            .ciphertext = {.length = (unsigned)sealed_size, .data = allocate(sealed_size)}};

    double marks[4] = {processor_seconds()};
    for (int i = 0; i < kTimes; ++i)
        check(krb5_k_encrypt(context, key, kUsage, NULL, &plain, &sealed), "encrypt");
    marks[1] = processor_seconds();
    for (int i = 0; i < kTimes; ++i) {
        opened.length = (unsigned)sealed_size;
        check(krb5_k_decrypt(context, key, kUsage, NULL, &sealed, &opened), "decrypt");
    }
    marks[2] = processor_seconds();
    if (memcmp(plain.data, opened.data, kSize) != 0) check(-1, "other bytes");
    for (int i = 0; i < kTimes; ++i) {
        krb5_checksum sum;
        check(krb5_k_make_checksum(context, CKSUMTYPE_HMAC_SHA1_96_AES256, key, kUsage, &plain, &sum), "checksum");
        krb5_free_checksum_contents(context, &sum);
    }
    marks[3] = processor_seconds();
    for (int i = 0; i < 3; ++i)
        printf("%.4f\n", (marks[i + 1] - marks[i]) / kTimes * kPerGib);

    free(plain.data);
    free(opened.data);
    free(sealed.ciphertext.data);
    krb5_k_free_key(context, key);
    krb5_free_keyblock_contents(context, &block);
    krb5_free_context(context);
    return 0;
}
