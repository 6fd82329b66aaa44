#include <net/if.h>

#include "libwl.h"
#include "wl_priv_ioctl.h"

namespace {

constexpr uint16_t MAC_ARGUMENT = IW_PRIV_TYPE_BYTE | IW_PRIV_SIZE_FIXED | 6;
constexpr uint16_t RADIO_RESULT = IW_PRIV_TYPE_INT | IW_PRIV_SIZE_FIXED | 1;

/// @return the radio, or a negative value when the interface does not know the client or cannot be asked
int32_t ask_interface(const char *interface, const uint8_t *mac) {
    wl_priv_command command;
    if (wl_priv_open(&command, interface, "get_cl_radio") != WL_PRIV_OK)
        return -1;
    int32_t radio = -1;
    const bool offered = command.set_args == MAC_ARGUMENT && command.get_args == RADIO_RESULT;
    if (!offered || wl_priv_call(&command, mac, 6, &radio, sizeof radio) != WL_PRIV_OK)
        radio = -1;
    wl_priv_close(&command);
    return radio;
}

}  // namespace

int get_wl_client_radio(const uint8_t *mac) {
    struct if_nameindex *const interfaces = if_nameindex();
    if (interfaces == nullptr)
        return -1;
    int32_t radio = -1;
    for (const auto *interface = interfaces; interface->if_index != 0 && radio < 0; interface++)
        radio = ask_interface(interface->if_name, mac);
    if_freenameindex(interfaces);
    return radio < 0 ? -1 : radio;
}
