#include "platform/linux/nfttable.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <nftables/libnftables.h>

#include "platform/linux/loop.h"
#include "platform/linux/nftrules.h"
#include "platform/linux/nftset.h"

namespace {

constexpr uint32_t TEXT_MAX = 32768;

nft_ctx *rules;
bool loaded;

} // namespace

int32_t linuxNftTableLoad(char *error, uint32_t errorSize) {
    static char text[TEXT_MAX];
    rules = nft_ctx_new(NFT_CTX_DEFAULT);
    if (rules == nullptr || linuxNftOpen() != 0 || !linuxNftRulesWrite(text, sizeof text)) {
        snprintf(error, errorSize, "the kernel's packet filter cannot be opened: %s", strerror(errno));
        return -1;
    }
    nft_ctx_buffer_error(rules);
    nft_ctx_buffer_output(rules);
    if (nft_run_cmd_from_buffer(rules, text) != 0) {
        const char *reason = nft_ctx_get_error_buffer(rules);
        snprintf(error, errorSize, "the kernel refuses the bridge filter table (is nf_tables with family bridge there?): %.*s",
                 static_cast<int>(strcspn(reason, "\n")), reason);
        return -1;
    }
    loaded = true;
    return 0;
}

bool linuxNftTableRun(const char *text, char *error, uint32_t errorSize) {
    if (!loaded) {
        snprintf(error, errorSize, "there is no bridge filter table");
        return false;
    }
    if (nft_run_cmd_from_buffer(rules, text) == 0)
        return true;
    const char *reason = nft_ctx_get_error_buffer(rules);
    snprintf(error, errorSize, "the kernel refuses the rules: %.*s", static_cast<int>(strcspn(reason, "\n")), reason);
    return false;
}

void linuxNftTableUnload() {
    if (rules == nullptr) {
        return;
    }
    if (loaded && nft_run_cmd_from_buffer(rules, "delete table bridge snoopd6") != 0) {
        linuxLog("cannot take the bridge filter table away: %s", nft_ctx_get_error_buffer(rules));
    }
    loaded = false;
    linuxNftClose();
    nft_ctx_free(rules);
    rules = nullptr;
}
