// The sensor's file that names the communication VLAN, of any bytes. Linked with --wrap=fopen: it comes from memory. A
// reader of its own says which interface the daemon must come to.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "common_synch.h"
#include "wl_log.h"
#include "wl_synch.h"

namespace {

const uint8_t *input_bytes;
size_t input_size;

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

/// Takes a line of up to 511 characters, its newline among them, off the front.
///
/// @return what stands before its first NUL
std::string take_line(std::string &text) {
    const size_t newline = text.find('\n');
    const size_t length =
        std::min({newline == std::string::npos ? text.size() : newline + 1, text.size(), size_t{511}});
    const std::string line = text.substr(0, length);
    text.erase(0, length);
    return line.c_str();
}

std::string first_word(const std::string &text) {
    constexpr char BLANKS[] = " \t\n\v\f\r";
    const size_t start = text.find_first_not_of(BLANKS);
    if (start == std::string::npos)
        return "";
    const size_t end = text.find_first_of(BLANKS, start);
    return text.substr(start, end == std::string::npos ? end : end - start);
}

/// A number without its digits' limits: what passes 32 bits becomes the last that they hold.
int number(const std::string &text) {
    const bool negative = text[0] == '-';
    long long value = 0;
    for (size_t i = negative || text[0] == '+'; text[i] >= '0' && text[i] <= '9'; i++)
        value = std::min(value * 10 + (text[i] - '0'), 1LL << 32);
    return static_cast<int>(negative ? std::max<long long>(-value, INT_MIN) : std::min<long long>(value, INT_MAX));
}

std::string expected_name(std::string text) {
    while (!text.empty()) {
        const std::string line = take_line(text);
        const size_t separator = line.find('=');
        if (separator == std::string::npos || first_word(line.substr(0, separator)) != "communication_vlan")
            continue;
        const int vlan = number(first_word(line.substr(separator + 1)));
        return vlan == 0 || vlan == -1 ? "br0" : "br0." + std::to_string(vlan);
    }
    return "br0";
}

}  // namespace

extern "C" FILE *__real_fopen(const char *path, const char *mode);

extern "C" FILE *__wrap_fopen(const char *path, const char *mode) {
    if (std::strcmp(path, "/opt/sensor/discovery.conf") == 0)
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
    std::memset(g_comm_vlan_iface_name, 0, sizeof g_comm_vlan_iface_name);
    set_comm_vlan_iface_name();
    require(g_comm_vlan_iface_name == expected_name(std::string(reinterpret_cast<const char *>(data), size)));
    return 0;
}
