// Profile events one after the other. The input is a sequence of a byte with the event's length and the event.
#include <algorithm>
#include <memory>

#include "profile_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    drop_log_lines();
    wl_init_cl_cache_info();
    const uint8_t *const end = data + size;
    while (data != end) {
        const size_t stated = *data++;
        const size_t length = std::min(stated, static_cast<size_t>(end - data));
        const std::unique_ptr<uint8_t[]> event(new uint8_t[length]);
        std::copy_n(data, length, event.get());
        handle_wl_ssid_profile_update(VRE_WL_SSID_PROFILE_UPDATE, event.get(), static_cast<int>(length));
        data += length;
    }
    check_and_drop_profiles();
    return 0;
}
