// The profile file that a VAP's record is filled from, of any bytes. Linked with --wrap=fopen: it comes from memory.
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "vap_table.h"
#include "wl_log.h"

namespace {

const uint8_t *input_bytes;
size_t input_size;

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

}  // namespace

extern "C" FILE *__real_fopen(const char *path, const char *mode);

extern "C" FILE *__wrap_fopen(const char *path, const char *mode) {
    if (std::strcmp(path, "/tmp/profile7/profile.conf") == 0)
        return fmemopen(const_cast<uint8_t *>(input_bytes), input_size, "r");
    return __real_fopen(path, mode);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (g_logfile_fd == nullptr) {  // log lines are formatted and dropped
        g_logfile_fd = std::fopen("/dev/null", "w");
        g_max_logfile_size = INT_MAX;
        debug = 7;
    }
    input_bytes = data;
    input_size = size;
    vap_info vap{};
    vap.profile_id = 7;
    update_other_vap_information(&vap);
    dump_vapinfo(&vap);
    require(vap.dot1x_enabled <= vap.secured_vap && vap.secured_vap <= 1);

    vap_info expected{};  // what no key can reach
    expected.profile_id = 7;
    vap.dot1x_enabled = vap.secured_vap = vap.samog_enabled = vap.gauth_enabled = 0;
    vap.ssid_vlan = 0;
    require(std::memcmp(&vap, &expected, sizeof vap) == 0);
    return 0;
}
