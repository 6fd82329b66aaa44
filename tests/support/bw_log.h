/// Reads the log of bandwidth control by itself, apart from the product's code: what its records are, and what rules a
/// daemon that starts with it has. Also writes the product's rules in the same words, to compare the two.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <string_view>

#include "wl_bw_internal.h"

namespace bw_log {

inline const std::string FILE_NAME = "/tmp/.wl.bw_cache";
constexpr size_t RECORD = 45;
constexpr uint8_t BSS = 0x80, TRANSITION = 0x40, TO_APPLIED = 0x20;  // flags
constexpr uint32_t SET = 24, CLEAR = 25;

using mac_address = std::array<uint8_t, 6>;

/// The fields of a record.
struct fields {
    mac_address mac{};
    uint8_t pri = 0;
    uint32_t command = SET;
    int32_t up = 0;
    int32_t down = 0;
    uint32_t profile = 0;
    uint32_t classid = 0;
    std::string interface {};  // at most 17 bytes
    uint8_t flags = 0;
};

inline std::string big_endian_text(uint32_t value) {
    return {char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
}

/// The 45 bytes of a record.
inline std::string record(const fields &of) {
    std::string bytes(of.mac.begin(), of.mac.end());
    bytes += char(of.pri);
    for (const uint32_t number : {of.command, uint32_t(of.up), uint32_t(of.down), of.profile, of.classid})
        bytes += big_endian_text(number);
    std::string interface = of.interface;
    interface.resize(17);
    return bytes + interface + char(of.flags);
}

/// The same as the product has it in memory.
inline bw_rule_info request_of(const fields &of) {
    bw_rule_info out;
    static_assert(sizeof out == RECORD);
    std::memcpy(&out, record(of).data(), sizeof out);
    return out;
}

/// A record from its bytes; what is missing of the 45 is zero.
inline fields parse(std::string bytes) {
    bytes.resize(RECORD);
    const auto byte = [&](size_t at) { return uint8_t(bytes[at]); };
    const auto number = [&](size_t at) {
        return uint32_t(byte(at)) << 24 | uint32_t(byte(at + 1)) << 16 | uint32_t(byte(at + 2)) << 8 | byte(at + 3);
    };
    fields out;
    for (size_t i = 0; i < 6; i++)
        out.mac[i] = byte(i);
    out.pri = byte(6);
    out.command = number(7);
    out.up = int32_t(number(11));
    out.down = int32_t(number(15));
    out.profile = number(19);
    out.classid = number(23);
    out.interface = bytes.substr(27, 17);
    out.flags = byte(44);
    return out;
}

struct station {
    uint8_t pri = 0;
    bool applied = false;
    uint32_t classid = 0;
    int32_t up = -1;
    int32_t down = -1;
    std::string interface;  // 17 bytes
};

struct profile {
    uint32_t id = 0;
    uint8_t pri = 0;
    int32_t up = 0;
    int32_t down = 0;
    std::array<bool, 256> used{};
    uint32_t last = 1;
    std::map<mac_address, station> stations;
};

inline void append_number(std::string &text, const char *name, int64_t value) {
    text += name;
    text += std::to_string(value);
}

inline std::string in_words(const profile &of) {
    std::string text;
    append_number(text, "profile ", of.id);
    append_number(text, " pri ", of.pri);
    append_number(text, " up ", of.up);
    append_number(text, " down ", of.down);
    append_number(text, " last ", of.last);
    text += " used";
    for (size_t id = 0; id < of.used.size(); id++)
        if (of.used[id])
            append_number(text, " ", int64_t(id));
    text += "\n";
    for (const auto &[mac, rule] : of.stations) {
        text += "  ";
        for (const uint8_t byte : mac)
            append_number(text, ":", byte);
        append_number(text, " pri ", rule.pri);
        text += rule.applied ? " applied" : " held";
        append_number(text, " class ", rule.classid);
        append_number(text, " up ", rule.up);
        append_number(text, " down ", rule.down);
        text += " on";
        for (const char letter : rule.interface)
            append_number(text, " ", uint8_t(letter));
        text += "\n";
    }
    return text;
}

/// The rules that a log leads to.
class reader {
public:
    explicit reader(std::string_view log) {
        for (size_t at = 0; at < log.size(); at += RECORD)
            apply(parse(std::string(log.substr(at, RECORD))));
    }

    std::string text() const {
        std::string all;
        for (const auto &[slot, each] : profiles_)
            all += in_words(each);
        return all;
    }

private:
    static std::string name(const std::string &interface) {
        return interface.substr(0, interface.find('\0'));
    }

    void apply(const fields &request) {
        if (request.profile == 0)
            return;
        if (request.command == SET)
            set(request);
        else if (request.command == CLEAR)
            clear(request);
    }

    void set(const fields &request) {
        const uint32_t slot = request.profile % 23;  // the first profile of a slot stands for all
        if (profiles_.count(slot) == 0) {
            profiles_[slot].id = request.profile;
            profiles_[slot].used[0] = profiles_[slot].used[1] = true;
        }
        profile &of = profiles_[slot];
        if ((request.flags & BSS) == 0) {
            set_station(of, request);
        } else if (request.pri >= of.pri) {
            of.pri = request.pri;
            of.up = request.up;
            of.down = request.down;
        }
    }

    void set_station(profile &of, const fields &request) {
        const bool to = (request.flags & TO_APPLIED) != 0;
        const auto found = of.stations.find(request.mac);
        if (found == of.stations.end()) {
            add_station(of, request, to);
            return;
        }
        station &rule = found->second;
        const bool transition = (request.flags & TRANSITION) != 0;
        const bool moves = transition && to != rule.applied;
        if (transition && !to) {
            if (request.pri == rule.pri || request.pri == 0) {
                clear(request);
                return;
            }
            if (name(request.interface) != name(rule.interface))
                return;
        } else {
            const bool same = request.up == rule.up && request.down == rule.down && request.pri == rule.pri;
            if (same && request.classid == rule.classid && !moves) {
                if (name(request.interface) != name(rule.interface))
                    rule.interface = request.interface;
                return;
            }
            if (!moves && request.pri < rule.pri)
                return;
            rule.classid = request.classid;
        }
        rule.interface = request.interface;
        if (moves)
            rule.applied = to;
        if (request.pri >= rule.pri)
            take_limits(rule, request);
    }

    static void add_station(profile &of, const fields &request, bool applied) {
        bool &used = of.used[request.classid % 256];
        if (used)
            return;
        used = true;
        of.last = std::max(of.last, request.classid);
        station rule;
        rule.classid = request.classid;
        rule.interface = request.interface;
        rule.applied = applied && (request.flags & TRANSITION) != 0;
        take_limits(rule, request);
        of.stations[request.mac] = rule;
    }

    static void take_limits(station &rule, const fields &request) {
        rule.pri = request.pri;
        rule.up = request.up;
        rule.down = request.down;
    }

    void clear(const fields &request) {
        const auto slot = profiles_.find(request.profile % 23);
        if (slot == profiles_.end())
            return;
        profile &of = slot->second;
        if ((request.flags & BSS) != 0) {
            if (request.pri == of.pri)
                profiles_.erase(slot);
            return;
        }
        const auto found = of.stations.find(request.mac);
        if (found == of.stations.end())
            return;
        station &rule = found->second;
        if ((request.pri != 0 && request.pri != rule.pri) || name(request.interface) != name(rule.interface))
            return;
        if (rule.applied && rule.pri != 0 && request.pri != 0) {
            rule.pri = 0;
            rule.up = rule.down = -1;
            return;
        }
        of.used[rule.classid % 256] = false;
        of.stations.erase(found);
    }

    std::map<uint32_t, profile> profiles_;  // by slot
};

/// The product's rules in the words of reader::text().
inline std::string rules_in_words() {
    std::map<uint32_t, std::string> by_slot;
    hash_table_iter_t each;
    hash_table_iter_init(&bw_profile_hash_t, &each);
    while (hash_table_iter_next(&each) != 0) {
        const auto &from = *static_cast<const bw_profile *>(each.entry->value);
        profile of;
        of.id = from.profile_id;
        of.pri = from.bw_bss.pri;
        of.up = from.bw_bss.up;
        of.down = from.bw_bss.down;
        of.last = from.last_classid;
        for (size_t id = 0; id < 256; id++)
            of.used[id] = (from.classid_bm[id / 64] >> id % 64 & 1) != 0;
        hash_table_iter_t client;
        hash_table_iter_init(&from.bw_sta_hash_t, &client);
        while (hash_table_iter_next(&client) != 0) {
            const auto &rule = *static_cast<const bw_rule *>(client.entry->value);
            mac_address mac;
            std::copy_n(rule.mac, 6, mac.begin());
            of.stations[mac] = {rule.pri, rule.state == 1, rule.classid,
                                rule.up,  rule.down,       std::string(rule.interface, 17)};
        }
        by_slot[from.profile_id % 23] = in_words(of);
    }
    std::string all;
    for (const auto &[slot, text] : by_slot)
        all += text;
    return all;
}

/// Empties the product's rules and replays a log, as a daemon that starts does.
inline void restart_with(const std::string &log) {
    hash_table_destroy(&bw_profile_hash_t);
    if (hash_table_init(&bw_profile_hash_t, BW_BUCKETS, &bw_profile_hash_fn, nullptr) == nullptr)
        std::abort();
    std::ofstream(FILE_NAME, std::ios::binary) << log;
    restore_bw_cache();
}

}  // namespace bw_log
