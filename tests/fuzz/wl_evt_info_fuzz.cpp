// Both decoders of event payloads. The first byte of the input is the event's index, the rest its payload.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include "wl_common.h"

namespace {

constexpr size_t BYTES_AFTER_PAYLOAD = 64;

using decoder = void (*)(vre_iw_cmd_t, wl_evt_info_t *, void *, int);

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

void check_text(const char *text, int16_t length, size_t limit) {
    if (text == nullptr)
        return require(length == 0);
    require(std::strlen(text) == static_cast<size_t>(length));
    require(static_cast<size_t>(length) <= limit);
}

void touch(const uint8_t *bytes, size_t size) {
    volatile uint8_t sink = 0;
    for (size_t i = 0; i < size; i++)
        sink = bytes[i];
    (void)sink;
}

void decode(decoder decode, vre_iw_cmd_t e, const uint8_t *bytes, size_t size) {
    const std::unique_ptr<uint8_t[]> payload(new uint8_t[size + BYTES_AFTER_PAYLOAD]());
    std::copy_n(bytes, size, payload.get());
    wl_evt_info info;
    decode(e, &info, payload.get(), static_cast<int>(size));
    check_text(info.ssid, info.ssid_len, 32);
    check_text(info.name, info.name_len, 15);
    for (const uint8_t *mac : {info.cl_mac, info.bssid}) {
        if (mac != nullptr)
            touch(mac, 6);
    }
    if (info.subinfo_value == nullptr)
        return;
    touch(info.subinfo_value, info.subinfo_value_len);
    touch(info.subinfo_value, 25);  // what the smart-steering handler reads at the most
    require(info.subinfo_value_len == 0 ||
            info.subinfo_value + info.subinfo_value_len <= payload.get() + size + sizeof(wl_header));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    const auto e = static_cast<vre_iw_cmd_t>(data[0]);
    decode(wl_get_evt_info, e, data + 1, size - 1);
    decode(wl_get_spl_evt_info, e, data + 1, size - 1);
    return 0;
}
