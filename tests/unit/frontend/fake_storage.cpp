// SPDX-License-Identifier: Apache-2.0
// A storage library, a client layer, a caller check and a path resolution that note how they were called.
#include <cstdio>
#include <string>
#include <string_view>

#include "include/tdm.h"
#include "platform/caller.h"
#include "platform/paths.h"
#include "recorder.h"
#include "tslwnfs/client/presented_identity.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/storage/identity.h"
#include "tslwnfs/storage/resolve.h"

namespace {
int discovery, session;
}

uint32_t tdm_tslinit(void *product_context) {
    return recorder().call("tdm_tslinit", product_context == &octx ? "octx" : "?");
}

uint32_t tdm_discover(uint32_t *version, void **handle, char *description, uint32_t description_length,
                      uint32_t *block_size, uint32_t *extra) {
    *handle = &discovery;
    std::snprintf(description, description_length, "a recording library");
    *block_size = 512;
    *extra = 7;
    return recorder().call("tdm_discover", std::to_string(*version) + ", " + std::to_string(description_length));
}

uint32_t tdm_registerthread(void *handle, uint32_t word1, uint32_t word2, uint32_t word3, const char *name,
                            uint32_t word4) {
    std::string words;
    for (const uint32_t word : {word1, word2, word3, word4})
        words += std::to_string(word) + ", ";
    return recorder().call("tdm_registerthread", (handle == &discovery ? "" : "? ") + words + name);
}

uint32_t tdm_trace(uint32_t event, uint32_t level) {
    return recorder().call("tdm_trace", std::to_string(event) + ", " + std::to_string(level));
}

uint32_t tdm_init(void *handle, void **context) {
    *context = &session;
    return recorder().call("tdm_init", handle == &discovery ? "" : "?");
}

uint32_t tdm_fini(void *context) {
    return recorder().call("tdm_fini", context == &session ? "" : "?");
}

uint32_t tdm_getattr(void *, const char *path, TdmAttributes *, uint32_t *location) {
    *location = recorder().remote.contains(path) ? TDM_LOCATION_REMOTE : TDM_LOCATION_LOCAL;
    return 0;
}

uint32_t tdm_expect(void *, const char *path, uint32_t what) {
    if (what == TDM_EXPECT_CONTENT) recorder().expected.push_back("content " + std::string(path));
    if (what == TDM_EXPECT_DELETE) recorder().expected.push_back("deletion " + std::string(path));
    return 0;
}

bool presented_identity(PresentedIdentity &identity) {
    identity = {"dbhost", 1001, 54321};
    return recorder().has_identity;
}

std::optional<FileIdentity> look_at(const std::string &path, LastLink) {
    const auto found = recorder().existing.find(path);
    if (found == recorder().existing.end()) return std::nullopt;
    FileIdentity identity;
    identity.directory = found->second;
    return identity;
}

int UserInTSLDBA() {
    return recorder().allowed ? 1 : 0;
}

void sslnrmc(uint32_t *status, const char *path, PathBuffer &resolved) {
    const bool usable = !recorder().unresolvable.contains(path) && platform_normalize_path(path, resolved);
    *status = usable ? 0 : 1;
}

std::size_t last_separator(std::string_view path) {
    const std::size_t backslash = path.rfind('\\');
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return backslash;
    return backslash == std::string_view::npos || slash > backslash ? slash : backslash;
}
