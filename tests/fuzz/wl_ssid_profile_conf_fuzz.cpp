// The daemon configuration file, of any bytes.
#include "profile_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    drop_log_lines();
    wl_init_cl_cache_info();
    input_bytes = data;
    input_size = size;
    read_wl_conf(INPUT_PATH);
    check_and_drop_profiles();
    return 0;
}
