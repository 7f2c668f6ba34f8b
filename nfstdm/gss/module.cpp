// SPDX-License-Identifier: Apache-2.0
// The module that the storage library loads when a mount asks for Kerberos: the system's GSSAPI (RFC 2743, RFC 4121)
// behind the functions of gss_interface.h. All cryptography is the system's.
#include <gssapi/gssapi.h>
#include <gssapi/gssapi_ext.h>
#include <gssapi/gssapi_krb5.h>
#include <krb5.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>
#include <string_view>

#include "nfstdm/rpc/auth/gss_interface.h"

struct NfstdmGssContext {
    gss_name_t target = GSS_C_NO_NAME;
    gss_ctx_id_t context = GSS_C_NO_CONTEXT;
};

namespace {

gss_buffer_desc buffer_of(const void *bytes, size_t size) {
    return {size, const_cast<void *>(bytes)};  // GSSAPI only reads what it is given
}

// What GSSAPI allocated goes to the library, which gives it back.
NfstdmGssBytes handed_over(const gss_buffer_desc &bytes) {
    return {bytes.value, bytes.length};
}

struct TroubleRow {
    krb5_error_code code;
    NfstdmGssTrouble trouble;
};

constexpr TroubleRow kTroubles[] = {
    {KRB5_FCC_NOFILE, kGssTroubleNoTicket},
    {KRB5_CC_NOTFOUND, kGssTroubleNoTicket},
    {KRB5_FCC_PERM, kGssTroubleNoTicket},
    {KRB5KRB_AP_ERR_TKT_EXPIRED, kGssTroubleTicketExpired},
    {KRB5KRB_AP_ERR_SKEW, kGssTroubleClockSkew},
    {KRB5_KDCREP_SKEW, kGssTroubleClockSkew},
    {KRB5KRB_AP_ERR_TKT_NYV, kGssTroubleClockSkew},
    {KRB5KDC_ERR_S_PRINCIPAL_UNKNOWN, kGssTroubleUnknownService},
    {KRB5_REALM_UNKNOWN, kGssTroubleWrongRealm},
    {KRB5_REALM_CANT_RESOLVE, kGssTroubleNoKdc},
    {KRB5KDC_ERR_WRONG_REALM, kGssTroubleWrongRealm},
    {KRB5_CONFIG_NODEFREALM, kGssTroubleWrongRealm},
    {KRB5_KDC_UNREACH, kGssTroubleNoKdc},
    {KRB5_KT_NOTFOUND, kGssTroubleNoKeytab},
    {KRB5KRB_AP_ERR_NOKEY, kGssTroubleNoKeytab},
    {KRB5KRB_AP_ERR_BADKEYVER, kGssTroubleBadTicket},
    {KRB5KRB_AP_ERR_BAD_INTEGRITY, kGssTroubleBadTicket},
    {KRB5KRB_AP_WRONG_PRINC, kGssTroubleBadTicket},
    {KRB5KRB_AP_ERR_NOT_US, kGssTroubleBadTicket},
    {KRB5KRB_AP_ERR_MODIFIED, kGssTroubleBadTicket},
};

NfstdmGssTrouble trouble_of(OM_uint32 major, OM_uint32 minor) {
    const auto *const row = std::find_if(std::begin(kTroubles), std::end(kTroubles), [minor](const TroubleRow &each) {
        return static_cast<OM_uint32>(each.code) == minor;
    });
    if (row != std::end(kTroubles)) return row->trouble;
    switch (GSS_ROUTINE_ERROR(major)) {
        case GSS_S_NO_CRED:
            return kGssTroubleNoTicket;
        case GSS_S_CREDENTIALS_EXPIRED:
        case GSS_S_CONTEXT_EXPIRED:
            return kGssTroubleTicketExpired;
        default:
            return kGssTroubleOther;
    }
}

void append(NfstdmGssFailure &failure, std::string_view text) {
    const size_t used = std::strlen(failure.words);
    const size_t size = std::min(text.size(), sizeof failure.words - 1 - used);
    std::memcpy(failure.words + used, text.data(), size);
    failure.words[used + size] = '\0';
}

// GSSAPI's own words are vaguer than the mechanism's, which are told where there are any.
void explain(uint32_t major, uint32_t minor, NfstdmGssFailure *failure) {
    *failure = {trouble_of(major, minor), {}};
    const bool has_minor = minor != 0;
    OM_uint32 ignored = 0;
    OM_uint32 more = 0;
    do {
        gss_buffer_desc text = GSS_C_EMPTY_BUFFER;
        if (GSS_ERROR(gss_display_status(&ignored, has_minor ? minor : major,
                                         has_minor ? GSS_C_MECH_CODE : GSS_C_GSS_CODE, GSS_C_NO_OID, &more, &text)))
            break;
        if (failure->words[0] != '\0') append(*failure, "; ");
        append(*failure, {static_cast<const char *>(text.value), text.length});
        gss_release_buffer(&ignored, &text);
    } while (more != 0);
}

void destroy(NfstdmGssContext *context) {
    OM_uint32 minor = 0;
    if (context == nullptr) return;
    gss_delete_sec_context(&minor, &context->context, GSS_C_NO_BUFFER);
    gss_release_name(&minor, &context->target);
    delete context;
}

NfstdmGssContext *create(const char *target, NfstdmGssFailure *failure) {
    auto *const context = new (std::nothrow) NfstdmGssContext;
    if (context == nullptr) {
        explain(GSS_S_FAILURE, ENOMEM, failure);
        return nullptr;
    }
    gss_buffer_desc name = buffer_of(target, std::strlen(target));
    OM_uint32 minor = 0;
    const OM_uint32 major = gss_import_name(&minor, &name, GSS_C_NT_HOSTBASED_SERVICE, &context->target);
    if (!GSS_ERROR(major)) return context;
    explain(major, minor, failure);
    destroy(context);
    return nullptr;
}

NfstdmGssStep step(NfstdmGssContext *context, const void *token, size_t size, NfstdmGssBytes *next, uint32_t *seconds,
                   NfstdmGssFailure *failure) {
    constexpr OM_uint32 kFlags = GSS_C_MUTUAL_FLAG | GSS_C_INTEG_FLAG | GSS_C_CONF_FLAG;
    gss_buffer_desc input = buffer_of(token, size);
    gss_buffer_desc output = GSS_C_EMPTY_BUFFER;
    OM_uint32 minor = 0;
    OM_uint32 flags = 0;
    const OM_uint32 major = gss_init_sec_context(
        &minor, GSS_C_NO_CREDENTIAL, &context->context, context->target, const_cast<gss_OID>(gss_mech_krb5), kFlags, 0,
        GSS_C_NO_CHANNEL_BINDINGS, size > 0 ? &input : GSS_C_NO_BUFFER, nullptr, &output, &flags, seconds);
    if (GSS_ERROR(major)) {
        explain(major, minor, failure);
        gss_release_buffer(&minor, &output);
        return kGssFailed;
    }
    const bool complete = (major & GSS_S_CONTINUE_NEEDED) == 0;
    // A context that proves nothing of the server, or can not protect what is said, is none.
    if (complete && (flags & kFlags) != kFlags) {
        explain(GSS_S_BAD_QOP, 0, failure);
        gss_release_buffer(&minor, &output);
        return kGssFailed;
    }
    *next = handed_over(output);
    return complete ? kGssComplete : kGssContinue;
}

// The calls with areas compute over the message where it is; the plain ones would copy it first.
bool get_mic(NfstdmGssContext *context, const void *message, size_t size, NfstdmGssBytes *mic,
             NfstdmGssFailure *failure) {
    gss_iov_buffer_desc areas[] = {
        {GSS_IOV_BUFFER_TYPE_DATA, buffer_of(message, size)},
        {GSS_IOV_BUFFER_TYPE_MIC_TOKEN | GSS_IOV_BUFFER_FLAG_ALLOCATE, GSS_C_EMPTY_BUFFER},
    };
    OM_uint32 minor = 0;
    const OM_uint32 major = gss_get_mic_iov(&minor, context->context, GSS_C_QOP_DEFAULT, areas, std::size(areas));
    if (GSS_ERROR(major)) {
        explain(major, minor, failure);
        gss_release_iov_buffer(&minor, areas, std::size(areas));
        return false;
    }
    *mic = handed_over(areas[1].buffer);
    return true;
}

bool verify_mic(NfstdmGssContext *context, const void *message, size_t size, const void *mic, size_t mic_size) {
    gss_iov_buffer_desc areas[] = {
        {GSS_IOV_BUFFER_TYPE_DATA, buffer_of(message, size)},
        {GSS_IOV_BUFFER_TYPE_MIC_TOKEN, buffer_of(mic, mic_size)},
    };
    OM_uint32 minor = 0;
    return !GSS_ERROR(gss_verify_mic_iov(&minor, context->context, nullptr, areas, std::size(areas)));
}

// What is wrapped, as GSSAPI takes it: the four parts stand in one piece on the wire.
class Parts {
  public:
    static constexpr int kCount = 4;

    explicit Parts(size_t message_size) { areas_[kMessage].buffer.length = message_size; }

    gss_iov_buffer_desc *areas() { return areas_; }
    NfstdmGssRoom room() const { return {size_of(kHeader), size_of(kPadding) + size_of(kTrailer)}; }
    void lay_out(void *area) {
        auto *place = static_cast<std::byte *>(area);
        for (gss_iov_buffer_desc &each : areas_) {
            each.buffer.value = place;
            place += each.buffer.length;
        }
    }

  private:
    enum : int { kHeader, kMessage, kPadding, kTrailer };

    size_t size_of(int part) const { return areas_[part].buffer.length; }

    gss_iov_buffer_desc areas_[kCount] = {
        {GSS_IOV_BUFFER_TYPE_HEADER, GSS_C_EMPTY_BUFFER},
        {GSS_IOV_BUFFER_TYPE_DATA, GSS_C_EMPTY_BUFFER},
        {GSS_IOV_BUFFER_TYPE_PADDING, GSS_C_EMPTY_BUFFER},
        {GSS_IOV_BUFFER_TYPE_TRAILER, GSS_C_EMPTY_BUFFER},
    };
};

bool is_room(const NfstdmGssRoom &one, const NfstdmGssRoom &other) {
    return one.before == other.before && one.behind == other.behind;
}

bool measure(NfstdmGssContext *context, Parts &parts, NfstdmGssFailure *failure) {
    OM_uint32 minor = 0;
    int confidential = 0;
    const OM_uint32 major = gss_wrap_iov_length(&minor, context->context, 1, GSS_C_QOP_DEFAULT, &confidential,
                                                parts.areas(), Parts::kCount);
    if (!GSS_ERROR(major) && confidential != 0) return true;
    explain(GSS_ERROR(major) ? major : GSS_S_BAD_QOP, minor, failure);
    return false;
}

bool wrap_room(NfstdmGssContext *context, size_t size, NfstdmGssRoom *room, NfstdmGssFailure *failure) {
    Parts parts(size);
    if (!measure(context, parts, failure)) return false;
    *room = parts.room();
    return true;
}

bool wrap(NfstdmGssContext *context, void *area, size_t size, const NfstdmGssRoom *room, NfstdmGssFailure *failure) {
    Parts parts(size - room->before - room->behind);
    if (!measure(context, parts, failure)) return false;
    parts.lay_out(area);
    OM_uint32 minor = 0;
    int confidential = 0;
    const OM_uint32 major =
        gss_wrap_iov(&minor, context->context, 1, GSS_C_QOP_DEFAULT, &confidential, parts.areas(), Parts::kCount);
    // Parts that came out smaller would leave gaps between them.
    if (!GSS_ERROR(major) && confidential != 0 && is_room(parts.room(), *room)) return true;
    explain(GSS_ERROR(major) ? major : GSS_S_BAD_QOP, minor, failure);
    return false;
}

bool unwrap(NfstdmGssContext *context, void *area, size_t size, NfstdmGssRoom *room) {
    gss_iov_buffer_desc areas[] = {
        {GSS_IOV_BUFFER_TYPE_STREAM, {size, area}},
        {GSS_IOV_BUFFER_TYPE_DATA, GSS_C_EMPTY_BUFFER},
    };
    OM_uint32 minor = 0;
    int confidential = 0;
    const OM_uint32 major = gss_unwrap_iov(&minor, context->context, &confidential, nullptr, areas, std::size(areas));
    if (GSS_ERROR(major) || confidential == 0) return false;
    const gss_buffer_desc &message = areas[1].buffer;
    room->before = static_cast<size_t>(static_cast<const std::byte *>(message.value) - static_cast<std::byte *>(area));
    room->behind = size - room->before - message.length;
    return true;
}

void release(NfstdmGssBytes *bytes) {
    gss_buffer_desc buffer = {bytes->size, bytes->data};
    OM_uint32 minor = 0;
    gss_release_buffer(&minor, &buffer);
    *bytes = {};
}

constexpr NfstdmGssModule kModule = {
    kNfstdmGssVersion, create, step, get_mic, verify_mic, wrap_room, wrap, unwrap, destroy, release, explain,
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const NfstdmGssModule *nfstdm_gss_module(void) {
    return &kModule;
}
