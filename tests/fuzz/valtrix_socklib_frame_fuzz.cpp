// A frame of any addresses, ports and data, sent through a pair of sockets and decoded byte by byte. The input is a
// byte whose low bits say which texts are there, those texts (device, source MAC and IP, destination MAC and IP), each
// ending with a NUL, four bytes of ports and the data.
#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "address_texts.h"
#include "valtrix_socklib.h"
#include "wl_log.h"

namespace {

using octets = std::vector<uint8_t>;

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

/// Reads the input from its beginning; behind its end there are zeros.
class reader {
public:
    reader(const uint8_t *data, size_t size) : left_(data, data + size) {}
    uint8_t byte() {
        if (left_.empty())
            return 0;
        const auto value = static_cast<uint8_t>(left_[0]);
        left_.erase(0, 1);
        return value;
    }
    uint16_t port() {
        const uint8_t high = byte();
        return static_cast<uint16_t>(high * 256 + byte());
    }
    std::string text() {
        const std::string found = left_.substr(0, left_.find('\0'));
        left_.erase(0, found.size() + 1);
        return found;
    }
    octets rest() const {
        return {left_.begin(), left_.end()};
    }

private:
    std::string left_;
};

/// A text in a block of its own size, or none.
struct text_argument {
    std::unique_ptr<char[]> block;

    text_argument(bool there, reader &input) {
        if (!there)
            return;
        const std::string text = input.text();
        block.reset(new char[text.size() + 1]);
        std::memcpy(block.get(), text.c_str(), text.size() + 1);
    }
    const char *get() const {
        return block.get();
    }
};

struct order {
    explicit order(reader input)
        : flags(input.byte()), device(flags & 1, input), src_mac(flags & 2, input), src_ip(flags & 4, input),
          dst_mac(flags & 8, input), dst_ip(flags & 16, input), src_port(input.port()), dst_port(input.port()),
          data(input.rest()) {}
    uint8_t flags;
    text_argument device, src_mac, src_ip, dst_mac, dst_ip;
    uint16_t src_port, dst_port;
    octets data;
};

template <size_t SIZE> octets bytes_of(const std::optional<std::array<uint8_t, SIZE>> &address) {
    return address ? octets(address->begin(), address->end()) : octets();
}

octets own_mac(const char *device) {
    octets mac(6, 0);
    return socklib_get_hwaddr(device, mac.data()) == 0 ? mac : octets(6, 0);
}

octets own_ip(const char *device) {
    uint32_t address = 0;
    const int result = socklib_get_saddr(device, &address);
    return bytes_of<4>(std::bit_cast<std::array<uint8_t, 4>>(result == 0 ? address : 0));
}

void append(octets &to, const octets &bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

octets word(size_t value) {
    return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

/// The checksum's two bytes: overflows of a sum in sixteen bits are counted and added in at the end.
octets checksum(octets bytes) {
    bytes.resize(bytes.size() + bytes.size() % 2);
    uint16_t sum = 0;
    size_t overflows = 0;
    for (size_t at = 0; at < bytes.size(); at += 2) {
        const auto next = static_cast<uint16_t>(bytes[at] * 256 + bytes[at + 1]);
        sum = static_cast<uint16_t>(sum + next);
        overflows += sum < next ? 1 : 0;
    }
    return word(0xffffu ^ ((sum + overflows) & 0xffff));
}

void overwrite(octets &in, size_t at, const octets &bytes) {
    std::copy(bytes.begin(), bytes.end(), in.begin() + static_cast<ptrdiff_t>(at));
}

/// The frame that an order makes; empty when a text is no address.
octets expected_frame(const order &what) {
    const octets src_mac = what.src_mac.get() ? bytes_of(mac_in(what.src_mac.get())) : own_mac(what.device.get());
    const octets src_ip = what.src_ip.get() ? bytes_of(ipv4_in(what.src_ip.get())) : own_ip(what.device.get());
    octets dst_mac = what.dst_mac.get() ? bytes_of(mac_in(what.dst_mac.get())) : octets(6, 0xff);
    const octets dst_ip = what.dst_ip.get() ? bytes_of(ipv4_in(what.dst_ip.get())) : octets(4, 0xff);
    if (src_mac.empty() || src_ip.empty() || dst_mac.empty() || dst_ip.empty())
        return {};
    if (dst_ip[0] >= 224 && dst_ip[0] <= 239)
        dst_mac = {0x01, 0x00, 0x5e, static_cast<uint8_t>(dst_ip[1] & 0x7f), dst_ip[2], dst_ip[3]};

    octets ip = {0x45, 0};
    append(ip, word(what.data.size() + 28));
    append(ip, {0, 0, 0, 0, 1, 17, 0, 0});
    append(ip, src_ip);
    append(ip, dst_ip);
    overwrite(ip, 10, checksum(ip));

    octets udp = word(what.src_port);
    append(udp, word(what.dst_port));
    append(udp, word(what.data.size() + 8));
    append(udp, {0, 0});
    octets summed = src_ip;
    append(summed, dst_ip);
    append(summed, {0, 17});
    append(summed, word(what.data.size() + 8));
    append(summed, udp);
    append(summed, what.data);
    overwrite(udp, 6, checksum(summed));

    octets frame = dst_mac;
    append(frame, src_mac);
    append(frame, {8, 0});
    append(frame, ip);
    append(frame, udp);
    append(frame, what.data);
    return frame;
}

octets received(int socket) {
    octets frame(70000);
    const ssize_t size = recv(socket, frame.data(), frame.size(), MSG_DONTWAIT);
    frame.resize(size < 0 ? 0 : static_cast<size_t>(size));
    return frame;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static int ends[2];
    static const int made = socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends);
    require(made == 0);
    debug = 2;  // refusals are no news here
    const order what(reader(data, size));
    const std::unique_ptr<uint8_t[]> payload(new uint8_t[what.data.size()]);  // exact: a vector's own may be larger
    std::copy(what.data.begin(), what.data.end(), payload.get());
    const int result =
        socklib_send_eth_raw(ends[0], what.device.get(), what.src_mac.get(), what.src_ip.get(), what.src_port,
                             what.dst_mac.get(), what.dst_ip.get(), what.dst_port, payload.get(), what.data.size());
    const octets expected = expected_frame(what);
    require(result == (expected.empty() ? -1 : 0));
    require(received(ends[1]) == expected);
    require(received(ends[1]).empty());
    return 0;
}
