// The lines of client events. They are read from a real system-log socket; what the text generator gets is watched
// through the linker.
#include "wl_logger.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#include "event_payload.h"
#include "fault.h"
#include "files.h"
#include "language_cache_funcs.h"
#include "log_capture.h"
#include "wl_info_codes.h"
#include "wl_server.h"

#define GENERATOR "_Z24fill_cl_debug_log_paramsPK10_hashtablePK22cl_debug_record_paramsPPci"
int real_generator(const hashTable_t *cache, const cl_debug_record_params *params, char **expanded_log,
                   int verbose) asm("__real_" GENERATOR);
int wrapped_generator(const hashTable_t *cache, const cl_debug_record_params *params, char **expanded_log,
                      int verbose) asm("__wrap_" GENERATOR);

namespace {

using lines = std::vector<std::string>;

/// The text generator: what it shall answer, and what it was given by its last call.
struct {
    bool real;
    int result;
    const char *line;  // null: none

    int calls;
    const hashTable_t *cache;
    cl_debug_record_params params;
    byte_string value;
    bool value_ends_with_zero;
    int verbose;
} generator;

}  // namespace

int wrapped_generator(const hashTable_t *cache, const cl_debug_record_params *params, char **expanded_log,
                      int verbose) {
    generator.calls++;
    generator.cache = cache;
    generator.params = *params;
    generator.verbose = verbose;
    if (params->subinfo_value != nullptr) {
        const char *const begin = params->subinfo_value;
        const char *const end = begin + params->subinfo_value_len;
        generator.value = byte_string(begin, end);
        generator.value_ends_with_zero = *end == '\0';
    }
    if (generator.real)
        return real_generator(cache, params, expanded_log, verbose);
    if (generator.line != nullptr)
        *expanded_log = strdup(generator.line);
    return generator.result;
}

namespace {

const byte_string MAC = {0x02, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
const byte_string BSSID = {0x00, 0x11, 0x74, 0xA1, 0xB2, 0xC3};

// Items of a message.
constexpr uint32_t TAG_SSID = 1;
constexpr uint32_t TAG_BSSID = 2;
constexpr uint32_t TAG_INFO = 5;
constexpr uint32_t TAG_SUBINFO = 6;
constexpr uint32_t TAG_VALUE = 7;

/// The access point's system log.
class system_log {
public:
    system_log() : socket_(socket(AF_UNIX, SOCK_DGRAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, "/dev/log");
        unlink(address.sun_path);
        EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    }

    ~system_log() {
        close(socket_);
        unlink("/dev/log");
    }

    /// The next message as it was sent, without its time of 16 characters; empty when there is none.
    std::string next() {
        char message[8192];
        const ssize_t length = recv(socket_, message, sizeof message, MSG_DONTWAIT);
        if (length < 0)
            return {};
        std::string text(message, static_cast<size_t>(length));
        return text.erase(text.find('>') + 1, 16);
    }

private:
    int socket_;
};

class Logger : public testing::Test {
protected:
    Logger() {
        generator = {};
        init_logger();
    }

    ~Logger() override {
        deinit_logger();
        clear_faults();
    }

    static void deliver(int event, const event_payload &payload) {
        received_payload received(payload);
        wl_logger(static_cast<vre_iw_cmd_t>(event), received.data(), received.length());
    }

    static event_payload client_event(uint32_t info, uint16_t sub = 0) {
        return event_payload().header(MAC, 7).u32(TAG_INFO, info).u16(TAG_SUBINFO, sub);
    }

    /// An event with an info code, as its index wants it.
    static event_payload event_of(int event, uint32_t info) {
        return event < 67 ? client_event(info) : event_payload().u32(TAG_INFO, info);
    }

    /// Writes one event to the system log, its value in a block of just its size.
    static void write(uint32_t info, uint16_t sub, const byte_string &value, const wl_evt_info_t *event = nullptr) {
        const std::unique_ptr<uint8_t[]> block(new uint8_t[value.size()]);
        std::copy(value.begin(), value.end(), block.get());
        wl_log_evt(nullptr, MAC.data(), BSSID.data(), "Office", 6, info, sub, block.get(),
                   static_cast<int>(value.size()), 0, event);
    }

    static void write(uint32_t info, uint16_t sub = 0, const wl_evt_info_t *event = nullptr) {
        wl_log_evt(nullptr, MAC.data(), BSSID.data(), "Office", 6, info, sub, nullptr, 0, 0, event);
    }

    static std::string written_to_file(int timestamp) {
        FILE *const file = fopen("/tmp/dump", "w");
        wl_log_evt(file, MAC.data(), BSSID.data(), "Office", 6, 1, 0, nullptr, 0, timestamp, nullptr);
        fclose(file);
        return file_text("/tmp/dump");
    }

    static lines lines_of(int level, int event, const event_payload &payload) {
        log_capture log(level);
        deliver(event, payload);
        return log.lines();
    }

    /// The value that the generator gets.
    static byte_string prepared(uint32_t info, uint16_t sub, const byte_string &value) {
        generator.params = {};
        generator.value = {0xEE};
        write(info, sub, value);
        EXPECT_NE(generator.params.subinfo_value, nullptr);
        EXPECT_TRUE(generator.value_ends_with_zero);
        return generator.value;
    }

    system_log syslog_;
};

/// Every event has a line; a test must read them, the socket holds about ten.
class Line : public Logger {
protected:
    Line() {
        generator.line = "a line";
    }
};

const lines NOT_LOGGED;

// --- which events have lines ---

TEST_F(Logger, EventsWithAnInfoCodeHaveALine) {
    for (int event = 0; event <= 108; event++) {
        if (event == 41 || event == 47 || event == 50 || (event >= 67 && event <= 95))
            continue;
        generator.calls = 0;
        deliver(event, event_of(event, 5));
        EXPECT_EQ(generator.calls, 1) << event;
        EXPECT_EQ(generator.params.info_code, 5) << event;
    }
}

TEST_F(Logger, TheDaemonsOwnRoleEventHasOneLineWhenTheBusBringsItBack) {
    deliver(VRE_HOSTAPD_EVENT, client_event(104));
    EXPECT_EQ(generator.calls, 1);
    EXPECT_EQ(generator.params.info_code, 104);
}

TEST_F(Line, IsNotWrittenForSomeEventsWhateverTheirInfoCode) {
    std::vector<int> events = {41, 47, 50};
    for (int event = 67; event <= 95; event++)
        events.push_back(event);
    for (const int event : events)
        deliver(event, event_of(event, 5));
    EXPECT_EQ(generator.calls, 0);
    EXPECT_EQ(syslog_.next(), "");
}

TEST_F(Line, IsNotWrittenWithoutAnInfoCode) {
    for (int event = 0; event <= 108; event++)
        deliver(event, event_of(event, 0));
    EXPECT_EQ(generator.calls, 0);
    EXPECT_EQ(syslog_.next(), "");
}

TEST_F(Logger, AnEventWithoutAPayloadHasNoLine) {
    wl_logger(VRE_NODE_IP, nullptr, 0);
    EXPECT_EQ(generator.calls, 0);
}

TEST_F(Logger, ALineIsMadeFromWhatTheEventBrings) {
    deliver(VRE_NODE_IP, client_event(23, 803).text(TAG_SSID, "Office").item(TAG_BSSID, BSSID).item(TAG_VALUE, {1, 2}));
    EXPECT_STREQ(generator.params.cl_mac, "02:1A:2B:3C:4D:5E");
    EXPECT_STREQ(generator.params.bssid, "00:11:74:A1:B2:C3");
    EXPECT_STREQ(generator.params.ssid, "Office");
    EXPECT_EQ(generator.params.ssid_len, 6);
    EXPECT_EQ(generator.params.info_code, 23);
    EXPECT_EQ(generator.params.subinfo_code, 803);
    EXPECT_EQ(generator.value, (byte_string{1, 2}));
}

TEST_F(Logger, ABandwidthEventsLineIsMadeFromItsRule) {
    deliver(VRE_BW_INFORM, client_event(19).item(8, {7}).u32(9, 0xFFFFFFFE).u32(10, 0x01020304));
    EXPECT_EQ(generator.value, (byte_string{7, 0xFF, 0xFF, 0xFF, 0xFE, 1, 2, 3, 4, 0, 0, 0, 7}));
}

TEST_F(Line, OfTheAccessPointItselfHasNoMac) {
    deliver(VRE_CLIENT_TS_CONN_ERR_LOG_ENABLE, event_payload().u32(TAG_INFO, 5));
    EXPECT_STREQ(generator.params.cl_mac, "");
    EXPECT_EQ(syslog_.next(), "<134>wl_event_handler: []=>[()] a line");
}

// --- settings ---

TEST_F(Logger, TheBandwidthStatusIsLoggedAtLevel6) {
    EXPECT_EQ(lines_of(6, VRE_BW_GET_STATUS, client_event(0)), lines{"wl_logger: WL.bw: BW status sent."});
    EXPECT_EQ(lines_of(5, VRE_BW_GET_STATUS, client_event(0)), NOT_LOGGED);
}

TEST_F(Logger, ANewDebugLevelIsLoggedAtLevel6) {
    const event_payload payload = client_event(0, 0).item(TAG_VALUE, {0, 7});
    EXPECT_EQ(lines_of(6, VRE_BW_EVENTS, payload),
              lines{"wl_logger: Setting Debug level of wl_evt_handler module to 7."});
    EXPECT_EQ(lines_of(5, VRE_BW_EVENTS, payload), NOT_LOGGED);
}

TEST_F(Logger, ANewDebugLevelIsTheFirstWordOfTheValue) {
    EXPECT_EQ(lines_of(6, VRE_BW_EVENTS, client_event(0, 0).item(TAG_VALUE, {0xFF, 0xFE, 1})),
              lines{"wl_logger: Setting Debug level of wl_evt_handler module to 65534."});
}

TEST_F(Logger, ADebugLevelThatIsAbsentOrShortIsNotLogged) {
    EXPECT_EQ(lines_of(6, VRE_BW_EVENTS, client_event(0, 0)), NOT_LOGGED);
    EXPECT_EQ(lines_of(6, VRE_BW_EVENTS, client_event(0, 0).item(TAG_VALUE, {})), NOT_LOGGED);
    EXPECT_EQ(lines_of(6, VRE_BW_EVENTS, client_event(0, 0).item(TAG_VALUE, {7})), NOT_LOGGED);
}

TEST_F(Logger, OtherSettingsOfThatEventAreNotLogged) {
    for (const uint16_t sub : {1, 2, 256})
        EXPECT_EQ(lines_of(6, VRE_BW_EVENTS, client_event(0, sub).item(TAG_VALUE, {0, 7})), NOT_LOGGED);
}

TEST_F(Logger, AVapsProfileIsLoggedAsZero) {
    const event_payload payload = event_payload().header(MAC, 7).u32(TAG_INFO, 5);
    EXPECT_EQ(lines_of(6, VRE_BW_VAP_PROFILE_ID, payload), lines{"wl_logger: WL.profile: Receiving profile ID 0."});
    EXPECT_EQ(lines_of(5, VRE_BW_VAP_PROFILE_ID, payload), NOT_LOGGED);
}

TEST_F(Logger, OtherEventsHaveNoSuchLine) {
    for (int event = 0; event < 108; event++) {
        if (event == VRE_BW_GET_STATUS || event == VRE_BW_EVENTS || event == VRE_BW_VAP_PROFILE_ID)
            continue;
        EXPECT_EQ(lines_of(7, event, event_of(event, 0).item(TAG_VALUE, {0, 7})), NOT_LOGGED) << event;
    }
}

TEST_F(Line, FollowsThatOfASetting) {
    const std::string line = "wl_log_evt: [02:1A:2B:3C:4D:5E]=>[()] a line";
    EXPECT_EQ(lines_of(6, VRE_BW_GET_STATUS, client_event(5)), (lines{"wl_logger: WL.bw: BW status sent.", line}));
    EXPECT_EQ(lines_of(6, VRE_BW_EVENTS, client_event(5).item(TAG_VALUE, {0, 7})),
              (lines{"wl_logger: Setting Debug level of wl_evt_handler module to 7.", line}));
    EXPECT_EQ(lines_of(6, VRE_BW_VAP_PROFILE_ID, event_payload().u32(TAG_INFO, 5)),
              (lines{"wl_logger: WL.profile: Receiving profile ID 0.", "wl_log_evt: []=>[()] a line"}));
}

// --- what the generator gets ---

TEST_F(Logger, TheGeneratorGetsTheCatalogue) {
    hashTable_t *const before = wl_debug_log_cache;
    wl_debug_log_cache = hash_newTable(137, lang_hash_func, lang_compare_record);
    write(5);
    EXPECT_EQ(generator.cache, wl_debug_log_cache);
    hash_delTable(&wl_debug_log_cache, nullptr);
    wl_debug_log_cache = before;
    write(5);
    EXPECT_EQ(generator.cache, before);
}

TEST_F(Logger, LinesAreVerboseInFilesAndAtLevel7) {
    for (const auto &[level, verbose] : std::vector<std::pair<int, int>>{{2, 0}, {3, 0}, {6, 0}, {7, 1}}) {
        log_capture log(level);
        write(5);
        EXPECT_EQ(generator.verbose, verbose) << level;
        written_to_file(0);
        EXPECT_EQ(generator.verbose, 1) << level;
    }
}

TEST_F(Logger, TheCodesArePassedOn) {
    write(0x7FFFFFFF, 65535);
    EXPECT_EQ(generator.params.info_code, 0x7FFFFFFF);
    EXPECT_EQ(generator.params.subinfo_code, 65535);
}

TEST_F(Line, HasEmptyTextsForWhatIsAbsent) {
    wl_log_evt(nullptr, nullptr, nullptr, nullptr, 6, 5, 0, nullptr, 0, 0, nullptr);
    EXPECT_STREQ(generator.params.cl_mac, "");
    EXPECT_STREQ(generator.params.bssid, "");
    EXPECT_STREQ(generator.params.ssid, "");
    EXPECT_EQ(generator.params.ssid_len, 0);
    EXPECT_EQ(syslog_.next(), "<134>wl_event_handler: []=>[()] a line");
}

TEST_F(Logger, AnSsidHasAtMost32Characters) {
    const std::string ssid = "0123456789abcdefghijABCDEFGHIJ+-*/";
    for (const auto &[length, used] : std::vector<std::pair<int, size_t>>{
             {-1, 0}, {-32768, 0}, {0, 0}, {1, 1}, {31, 31}, {32, 32}, {33, 32}, {34, 32}}) {
        wl_log_evt(nullptr, MAC.data(), BSSID.data(), ssid.data(), length, 5, 0, nullptr, 0, 0, nullptr);
        EXPECT_STREQ(generator.params.ssid, ssid.substr(0, used).c_str()) << length;
        EXPECT_EQ(generator.params.ssid_len, static_cast<short>(used)) << length;
    }
}

TEST_F(Logger, AnSsidNeedsNoNul) {
    const std::unique_ptr<char[]> ssid(new char[3]);
    std::memcpy(ssid.get(), "abc", 3);
    wl_log_evt(nullptr, MAC.data(), BSSID.data(), ssid.get(), 3, 5, 0, nullptr, 0, 0, nullptr);
    EXPECT_STREQ(generator.params.ssid, "abc");
}

TEST_F(Logger, AnAbsentValueStaysAbsent) {
    for (const uint32_t info : {1, 5, 9, 14, 15, 19, 25, 104}) {
        generator.params.subinfo_value_len = 1;
        write(info, 801);
        EXPECT_EQ(generator.params.subinfo_value, nullptr) << info;
        EXPECT_EQ(generator.params.subinfo_value_len, 0) << info;
    }
}

TEST_F(Logger, AValueIsCopiedAndEndsWithAZero) {
    const byte_string value = {0, 1, 0xFF, 0};
    for (const uint32_t info : {1, 2, 4, 5, 8, 16, 19, 20, 21, 23, 25, 26, 27, 99, 102, 104})
        EXPECT_EQ(prepared(info, 801, value), value) << info;
    EXPECT_EQ(prepared(INFO_RADIUS, 800, value), value);
    EXPECT_EQ(prepared(INFO_RADIUS, 802, value), value);
    EXPECT_EQ(prepared(INFO_PORTAL, 0, {}), byte_string());
    EXPECT_EQ(prepared(INFO_RADIUS, 802, byte_string(65535, 7)), byte_string(65535, 7));
}

TEST_F(Logger, KeysAndLoginsHaveNoValueInALine) {
    for (const uint32_t info : {100, 101})
        for (const uint16_t sub : {0, 39, 801}) {
            write(info, sub, text_bytes("correct horse battery staple"));
            EXPECT_EQ(generator.params.info_code, static_cast<int>(info));
            EXPECT_EQ(generator.params.subinfo_value, nullptr);
            EXPECT_EQ(generator.params.subinfo_value_len, 0);
        }
}

/// With sentences that ask for all that a value may hold.
class Secrets : public Logger {
protected:
    Secrets() {
        generator.real = true;
        std::string labels = "INFOCODE_100=PMK\nINFOCODE_101=LOGIN\n";
        for (const char *const word : {"PMK", "LOGIN"})
            for (const char *const sub : {"1", "39", "42"})
                labels += std::string(word) + "_" + sub + "=[$OU][$IP][$ROLE]\n";
        write_file("/tmp/labels", labels);
        wl_debug_log_cache = hash_newTable(137, lang_hash_func, lang_compare_record);
        EXPECT_EQ(pop_lang_cache_from_file("/tmp/labels", wl_debug_log_cache), 0);
    }

    ~Secrets() override {
        hash_delTable(&wl_debug_log_cache, free_lang_node);
    }
};

TEST_F(Secrets, OfKeysAndLoginsAreInNoLineWhateverTheLabels) {
    const byte_string values[] = {text_bytes("abcd"),
                                  text_bytes("correct horse battery staple, and fifty bytes in all, no less")};
    for (const uint32_t info : {100, 101})
        for (const auto &[sub, role] :
             std::vector<std::pair<uint16_t, std::string>>{{1, ""}, {39, "from unkwown method"}, {42, ""}})
            for (const byte_string &value : values) {
                log_capture log(7);
                deliver(VRE_CL_INFO, client_event(info, sub).item(TAG_VALUE, value));
                const std::string line = "[02:1A:2B:3C:4D:5E]=>[()] [(Nil)][][" + role + "]";
                EXPECT_EQ(syslog_.next(), "<134>wl_event_handler: " + line);
                EXPECT_EQ(log.lines(), lines{"wl_log_evt: " + line});
            }
}

TEST_F(Logger, ABandwidthEventWithoutAValueHasItsRuleForOne) {
    wl_evt_info_t event{};
    event.bw.pri = 0xFE;
    event.bw.up = -2;
    event.bw.down = 0x01020304;
    event.profile_id = 0x0A0B0C0D;
    write(INFO_BANDWIDTH, 3, &event);
    EXPECT_EQ(generator.value, (byte_string{0xFE, 0xFF, 0xFF, 0xFF, 0xFE, 1, 2, 3, 4, 10, 11, 12, 13}));
    EXPECT_EQ(generator.params.subinfo_value_len, 13);
}

TEST_F(Logger, OnlyABandwidthEventHasItsRuleForAValue) {
    const wl_evt_info_t event{};
    write(INFO_VLAN, 0, &event);
    EXPECT_EQ(generator.params.subinfo_value, nullptr);
}

TEST_F(Logger, ABandwidthEventWithAValueKeepsIt) {
    const wl_evt_info_t event{};
    write(INFO_BANDWIDTH, 3, {9, 8}, &event);
    EXPECT_EQ(generator.value, (byte_string{9, 8}));
}

TEST_F(Logger, AnAddressOfFourBytesIsADottedText) {
    for (const uint32_t info : {9, 14})
        for (const uint16_t sub : {0, 801})
            EXPECT_EQ(prepared(info, sub, {192, 168, 0, 255}), text_bytes("192.168.0.255"));
}

TEST_F(Logger, AnAddressOfAnotherLengthIsAnIpv6Text) {
    const byte_string longest = {0x20, 0x01, 0x0D, 0xB8, 0x11, 0x11, 0x22, 0x22,
                                 0x33, 0x33, 0x44, 0x44, 0x55, 0x55, 0x66, 0x66};
    for (const uint32_t info : {9, 14}) {
        EXPECT_EQ(prepared(info, 0, longest), text_bytes("2001:db8:1111:2222:3333:4444:5555:6666"));
        EXPECT_EQ(prepared(info, 0, byte_string(17, 0x11)), text_bytes("1111:1111:1111:1111:1111:1111:1111:1111"));
        EXPECT_EQ(prepared(info, 0, byte_string(15, 0x11)), text_bytes("1111:1111:1111:1111:1111:1111:1111:1100"));
        EXPECT_EQ(prepared(info, 0, {10, 0, 0, 1, 0}), text_bytes("a00:1::"));
        EXPECT_EQ(prepared(info, 0, {10, 0, 0}), text_bytes("a00::"));
        EXPECT_EQ(prepared(info, 0, {}), text_bytes("::"));
    }
}

TEST_F(Logger, ARadiusRequestLosesItsServersAddress) {
    EXPECT_EQ(prepared(INFO_RADIUS, 801, {10, 0, 0, 5, 'a', 0, 'b'}), (byte_string{'a', 0, 'b'}));
    for (size_t size = 0; size <= 4; size++)
        EXPECT_EQ(prepared(INFO_RADIUS, 801, byte_string(size, 1)), byte_string()) << size;
}

// --- lines in the system log ---

TEST_F(Line, GoesToTheSystemLogAtEveryLevel) {
    for (const int level : {2, 3, 6, 7}) {
        log_capture log(level);
        write(5);
        EXPECT_EQ(syslog_.next(), "<134>wl_event_handler: [02:1A:2B:3C:4D:5E]=>[Office(00:11:74:A1:B2:C3)] a line");
        EXPECT_EQ(syslog_.next(), "");
    }
}

TEST_F(Line, GoesToTheDebugLogFromLevel6On) {
    log_capture log(6);
    write(5);
    EXPECT_EQ(log.lines(), lines{"wl_log_evt: [02:1A:2B:3C:4D:5E]=>[Office(00:11:74:A1:B2:C3)] a line"});
    log_capture quiet(5);
    write(5);
    EXPECT_EQ(quiet.lines(), NOT_LOGGED);
}

TEST_F(Line, IsNotTakenForAFormat) {
    generator.line = "100%s %n %d";
    write(5);
    EXPECT_EQ(syslog_.next(), "<134>wl_event_handler: [02:1A:2B:3C:4D:5E]=>[Office(00:11:74:A1:B2:C3)] 100%s %n %d");
    EXPECT_EQ(written_to_file(1), "     1:100%s %n %d\n");
}

TEST_F(Logger, ALineOfTheRealCatalogueReachesTheSystemLog) {
    generator.real = true;
    write_file("/tmp/labels", "INFOCODE_14=DHCP\nDHCP_5=$MAC has an address from $IP\n");
    wl_debug_log_cache = hash_newTable(137, lang_hash_func, lang_compare_record);
    ASSERT_EQ(pop_lang_cache_from_file("/tmp/labels", wl_debug_log_cache), 0);
    deliver(VRE_NODE_DHCP, client_event(14, 5).item(TAG_VALUE, {10, 0, 0, 1}));
    EXPECT_EQ(syslog_.next(), "<134>wl_event_handler: [02:1A:2B:3C:4D:5E]=>[()] "
                              "02:1A:2B:3C:4D:5E has an address from 10.0.0.1");
    hash_delTable(&wl_debug_log_cache, free_lang_node);
}

TEST_F(Logger, TheSystemLogIsOpenedForADaemonWithoutOptions) {
    syslog(LOG_INFO, "hello");
    EXPECT_EQ(syslog_.next(), "<30>wl_event_handler: hello");
}

TEST_F(Logger, TheIdentityEndsWithTheLogger) {
    deinit_logger();
    syslog(LOG_LOCAL0 | LOG_INFO, "hello");
    EXPECT_EQ(syslog_.next(), "<134>wl_logger_test: hello");
}

// --- lines in a dump file ---

TEST_F(Line, OfAFileBeginsWithItsTime) {
    EXPECT_EQ(written_to_file(0), "     0:a line\n");
    EXPECT_EQ(written_to_file(123456), "123456:a line\n");
    EXPECT_EQ(written_to_file(1234567), "1234567:a line\n");
    EXPECT_EQ(written_to_file(-1), "    -1:a line\n");
}

TEST_F(Line, OfAFileGoesNowhereElse) {
    log_capture log(7);
    written_to_file(0);
    EXPECT_EQ(log.lines(), NOT_LOGGED);
    EXPECT_EQ(syslog_.next(), "");
}

// --- failures ---

TEST_F(Line, IsDroppedWithoutMemoryForTheValue) {
    struct {
        uint32_t info;
        uint16_t sub;
        byte_string value;
    } const kinds[] = {
        {1, 0, {1, 2}}, {9, 0, byte_string(16)}, {14, 0, {1, 2, 3, 4}}, {15, 801, {1, 2, 3, 4, 5}}, {15, 801, {}}};
    for (const auto &kind : kinds) {
        log_capture log(3);
        fail_nth_call("malloc", 1);
        write(kind.info, kind.sub, kind.value);
        EXPECT_EQ(faults_fired("malloc"), 1);
        EXPECT_EQ(log.lines(), lines{"wl_log_evt: wl_log_evt Memory Alloc Error"});
    }
    EXPECT_EQ(generator.calls, 0);
    EXPECT_EQ(syslog_.next(), "");
}

TEST_F(Line, IsDroppedWithoutMemoryForABandwidthRule) {
    const wl_evt_info_t event{};
    log_capture log(3);
    fail_nth_call("malloc", 1);
    write(INFO_BANDWIDTH, 0, &event);
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_EQ(log.lines(), lines{"wl_log_evt: wl_log_evt Memory Alloc Error"});
    EXPECT_EQ(generator.calls, 0);
}

/// Every event writes its line whole or not at all, whichever allocation fails.
TEST_F(Logger, AnEventIsSurvivedWhicheverAllocationFails) {
    generator.real = true;
    write_file("/tmp/labels", "INFOCODE_14=DHCP\nDHCP_5=$MAC has an address from $IP in $SSID, " +
                                  std::string(200, 'x') + "\nINFOCODE_19=BW\nBW_0=up $UP\n");
    wl_debug_log_cache = hash_newTable(137, lang_hash_func, lang_compare_record);
    ASSERT_EQ(pop_lang_cache_from_file("/tmp/labels", wl_debug_log_cache), 0);
    byte_string attributes;
    for (int i = 0; i < 10; i++) {
        attributes.insert(attributes.end(), 32, 'n');
        attributes.insert(attributes.end(), {0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 7});
    }
    const event_payload events[] = {client_event(14, 5).item(TAG_VALUE, {10, 0, 0, 1}), client_event(19),
                                    client_event(15, 802).item(TAG_VALUE, attributes)};
    log_capture log(7);
    for (const event_payload &event : events) {
        deliver(VRE_NODE_DHCP, event);
        const std::string line = syslog_.next();
        EXPECT_NE(line, "");
        int fired = 0;
        for (const char *const function : {"malloc", "calloc", "realloc", "strdup"}) {
            for (int nth = 1;; nth++) {
                fail_nth_call(function, nth);
                deliver(VRE_NODE_DHCP, event);
                const int failed = faults_fired(function);
                clear_faults();
                EXPECT_EQ(syslog_.next(), failed != 0 ? "" : line) << function << nth;
                if (failed == 0)
                    break;
                fired++;
            }
        }
        EXPECT_GE(fired, 2) << "the value and the text";
    }
    hash_delTable(&wl_debug_log_cache, free_lang_node);
}

TEST_F(Logger, ShortMemoryIsNotLoggedBelowLevel3) {
    log_capture log(2);
    fail_nth_call("malloc", 1);
    write(1, 0, {1});
    EXPECT_EQ(faults_fired("malloc"), 1);
    EXPECT_EQ(log.lines(), NOT_LOGGED);
}

TEST_F(Logger, ALineThatCannotBeMadeIsLoggedAndDropped) {
    generator.result = -1;
    log_capture log(3);
    write(23, 803, {1});
    EXPECT_EQ(log.lines(), lines{"wl_log_evt: Could not generate event log text 23:803"});
    EXPECT_EQ(syslog_.next(), "");
    EXPECT_EQ(written_to_file(0), "");
    log_capture quiet(2);
    write(23, 803);
    EXPECT_EQ(quiet.lines(), NOT_LOGGED);
}

TEST_F(Logger, AnAbsentTextIsNotWritten) {
    log_capture log(7);
    write(15, 802);
    EXPECT_EQ(log.lines(), NOT_LOGGED);
    EXPECT_EQ(syslog_.next(), "");
    EXPECT_EQ(written_to_file(0), "");
}

// --- texts of IEEE 802.11 codes ---

TEST(StatusStrings, NameEveryCode) {
    const char *const texts[] = {
        "Successful",
        "Unspecified failure",
        "Reserved",
        "Reserved",
        "Reserved",
        "Reserved",
        "Reserved",
        "Reserved",
        "Reserved",
        "Reserved",
        "Cannot support all requested capabilities in the Capability Information field",
        "Reassociation denied due to inability to confirm that association exists",
        "Association denied due to reason outside the scope of this standard",
        "Responding STA does not support the specified authentication algorithm",
        "Received an Authentication frame with authentication transaction sequence number out of expected sequence",
        "Authentication rejected because of challenge failure",
        "Authentication rejected due to timeout waiting for next frame in sequence",
        "Association denied because AP is unable to handle additional associated STAs",
        "Association denied due to requesting STA not supporting all of the data rates in the BSSBasicRateSet "
        "parameter",
        "Association denied due to requesting STA not supporting the short preamble option",
        "Association denied due to requesting STA not supporting the PBCC modulation option",
        "Association denied due to requesting STA not supporting the Channel Agility option",
        "Association request rejected because Spectrum Management capability is required",
        "Association denied due to mismatch in rates element",
        "Reserved",
        "Association denied due to requesting STA not supporting the Short Slot Time option",
        "Association denied due to requesting STA not supporting the DSSS-OFDM option",
        "Reserved",
        "Reserved",
        "Reserved",
        "Reserved",
        "Reserved",
        "Reserved",
        "Reserved",
        "Reserved",
        "Reserved",
        "Reserved",
        "The request has been declined",
        "The request has not been successful as one or more parameters have invalid values",
    };
    ASSERT_EQ(std::size(vre_status_strings), 39U);
    for (size_t i = 0; i < 39; i++)
        EXPECT_STREQ(vre_status_strings[i], texts[i]) << i;
}

TEST(StatusStrings, ShareOneTextForReservedCodes) {
    for (size_t i = 0; i < 39; i++) {
        const bool reserved = std::string(vre_status_strings[i]) == "Reserved";
        EXPECT_EQ(vre_status_strings[i] == vre_status_strings[2], reserved) << i;
    }
}

TEST(ReasonStrings, NameEveryCode) {
    const char *const texts[] = {
        "Success",
        "Unspecified reason",
        "Previous authentication no longer valid",
        "Deauthenticated because sending STA is leaving (or has left) IBSS or ESS",
        "Disassociated beacuase association is expired",
        "Disassociated because AP is unable to handle all currently associated STAs",
        "Class 2 frame received from nonauthenticated STA",
        "Class 3 frame received from nonassociated STA",
        "Disassociated because sending STA is leaving (or has left) BSS",
        "STA requesting (re)association is not authenticated with responding STA",
        "Disassociated because RSN in required",
        "Disassociated because RSN is inconsistent",
        "Invalid information element, i.e., an information element defined in this standard for",
        "Message integrity code (MIC) failure",
    };
    ASSERT_EQ(std::size(vre_reason_strings), 14U);
    for (size_t i = 0; i < 14; i++)
        EXPECT_STREQ(vre_reason_strings[i], texts[i]) << i;
}

}  // namespace
