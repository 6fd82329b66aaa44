/* A program in C that uses the library through its header. */
#include <string.h>

#include "valtrix_socklib.h"

int mac_round_trip_from_c(void);

int mac_round_trip_from_c(void) {
    const uint8_t mac[6] = {0x02, 0x00, 0x5e, 0xab, 0xcd, 0xef};
    uint8_t parsed[6];
    struct socklib_inet_addr address;
    char text[18];
    if (socklib_mac_ntoa(mac, 6, text, sizeof text) != text || strcmp(text, "02:00:5E:AB:CD:EF") != 0)
        return -1;
    if (socklib_mac_aton(parsed, 6, text, 17) != parsed || memcmp(parsed, mac, sizeof mac) != 0)
        return -1;
    return socklib_inet_pton("10.1.2.3", &address) == 0 && address.family == AF_INET ? 0 : -1;
}
