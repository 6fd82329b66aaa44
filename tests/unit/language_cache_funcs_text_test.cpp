// The line of an event: the sentence of its labels, its tokens filled from the event.
#include <cerrno>

#include "fault.h"
#include "language_cache_fixture.h"

namespace {

using namespace std::string_literals;

/// The line of an event whose sentence is `sentence`.
std::string expand(const std::string &sentence, const logged_event &event) {
    const catalogue labels("INFOCODE_" + std::to_string(event.params.info_code) + "=WORD\nWORD_" +
                           std::to_string(event.params.subinfo_code) + "=" + sentence + "\n");
    char *line = nullptr;
    EXPECT_EQ(fill_cl_debug_log_params(labels.table, &event.params, &line, 0), 0);
    return taken(line);
}

/// What a token becomes for an event with a value of these bytes; without a value for an empty one.
std::string filled(const char *token, int info_code, int subinfo_code, const std::string &value = {}) {
    if (value.empty())
        return expand(token, logged_event(info_code, subinfo_code));
    return expand(token, logged_event(info_code, subinfo_code, value));
}

int fill(const catalogue &labels, const logged_event &event, std::string *text) {
    char *line = nullptr;
    const int result = fill_cl_debug_log_params(labels.table, &event.params, &line, 0);
    *text = taken(line);
    return result;
}

TEST(Line, IsTheSentenceOfTheEventsLabels) {
    const catalogue labels("INFOCODE_14=DHCP\nDHCP_5=confirmed\nDHCP_6=refused\nWORD_5=other\n");
    std::string text;
    EXPECT_EQ(fill(labels, {14, 6}, &text), 0);
    EXPECT_EQ(text, "refused");
}

TEST(Line, NeedsACatalogueAndAnEvent) {
    const catalogue labels;
    const logged_event event(1, 0);
    char other = 'x';
    const lines message{"fill_cl_debug_log_params: NULL params passed."};
    expect_logged(3, message, [&] {
        char *line = &other;
        EXPECT_EQ(fill_cl_debug_log_params(nullptr, &event.params, &line, 0), -1);
        EXPECT_EQ(line, nullptr);
    });
    expect_logged(3, message, [&] {
        char *line = &other;
        EXPECT_EQ(fill_cl_debug_log_params(labels.table, nullptr, &line, 0), -1);
        EXPECT_EQ(line, nullptr);
    });
}

TEST(Line, OfARadiusPacketNeedsACatalogueToo) {
    const logged_event event(15, 801);
    const log_capture log;
    char *line = nullptr;
    EXPECT_EQ(fill_cl_debug_log_params(nullptr, &event.params, &line, 1), -1);
    EXPECT_EQ(line, nullptr);
}

TEST(Line, IsMissingWithoutTheWordOfTheInfoCode) {
    const catalogue labels("INFOCODE_13=WORD\nWORD_5=text\n");
    std::string text;
    expect_logged(3, {"fill_cl_debug_log_params: Could not find value for label[INFOCODE_14]"}, [&] {
        EXPECT_EQ(fill(labels, {14, 5}, &text), -1);
    });
    EXPECT_EQ(text, "<none>");
}

TEST(Line, IsMissingWithoutTheSentenceOfTheSubinfoCode) {
    const catalogue labels("INFOCODE_14=DHCP\nDHCP_6=text\n");
    std::string text;
    expect_logged(3, {"fill_cl_debug_log_params: Could not find value for label[DHCP_5]"}, [&] {
        EXPECT_EQ(fill(labels, {14, 5}, &text), -1);
    });
    EXPECT_EQ(text, "<none>");
}

TEST(Line, IsMissingInAnEmptyCatalogue) {
    const catalogue labels;
    std::string text;
    log_capture log;
    EXPECT_EQ(fill(labels, {14, 5}, &text), -1);
    EXPECT_EQ(log.lines(), lines{"fill_cl_debug_log_params: Could not find value for label[INFOCODE_14]"});
}

TEST(Line, LooksNumbersUpInDecimalWithTheirSign) {
    const catalogue labels("INFOCODE_-1=A\nA_65535=text\n");
    std::string text;
    EXPECT_EQ(fill(labels, {-1, 65535}, &text), 0);
    EXPECT_EQ(text, "text");
}

// The bytes "~_5" sum up to twice the number of rows: both names are of one row, and the newer one is found first.
TEST(Line, TakesTheValueOfAStoredNameThatBeginsTheKey) {
    const catalogue labels("INFOCODE_14=W~\nW~_5=its own\nW=of the prefix\n");
    std::string text;
    EXPECT_EQ(fill(labels, {14, 5}, &text), 0);
    EXPECT_EQ(text, "of the prefix");
}

TEST(Line, OfRadiusPacketsComesWithoutLabels) {
    const catalogue labels;
    std::string text;
    log_capture log;
    EXPECT_EQ(fill(labels, {15, 800}, &text), 0);
    EXPECT_EQ(text, "Radius Pkt Type: Invalid");
    EXPECT_EQ(fill(labels, {15, 802}, &text), 0);
    EXPECT_EQ(text, "Radius Pkt Type: Access-Accept");
    EXPECT_EQ(log.lines(), lines{});
}

TEST(Line, OfOtherRadiusEventsAndOfOtherInfoCodesNeedsLabels) {
    const catalogue labels("INFOCODE_15=R\nR_799=below\nINFOCODE_14=D\nD_801=other\n");
    std::string text;
    EXPECT_EQ(fill(labels, {15, 799}, &text), 0);
    EXPECT_EQ(text, "below");
    EXPECT_EQ(fill(labels, {14, 801}, &text), 0);
    EXPECT_EQ(text, "other");
}

TEST(Line, OfARadiusPacketShowsItsAttributesWhenVerbose) {
    const catalogue labels;
    const logged_event event(15, 801, field("Port", 33) + big_endian_text(5) + big_endian_text(1) + big_endian_text(9));
    for (const auto &[verbose, text] : std::vector<std::pair<int, const char *>>{
             {0, "Radius Pkt Type: Access-Request"}, {1, "Radius Pkt Type: Access-Request\n\t\t[Port: 9]"}}) {
        char *line = nullptr;
        EXPECT_EQ(fill_cl_debug_log_params(labels.table, &event.params, &line, verbose), 0);
        EXPECT_EQ(taken(line), text);
    }
}

TEST(Line, OfARadiusPacketWithoutMemoryIsNoneButNoFailure) {
    const catalogue labels;
    const logged_event event(15, 801);
    char other = 'x';
    char *line = &other;
    log_capture log;
    fail_nth_call("realloc", 1, ENOMEM);
    EXPECT_EQ(fill_cl_debug_log_params(labels.table, &event.params, &line, 1), 0);
    EXPECT_EQ(line, nullptr);
    EXPECT_EQ(log.lines(), lines{});
}

TEST(Line, WithoutMemoryIsLoggedWhicheverAllocationFails) {
    const catalogue labels("INFOCODE_14=DHCP\nDHCP_5=" + std::string(500, 'x') + "$MAC" + std::string(3000, 'y') +
                           "\n");
    const logged_event event(14, 5);
    int nth = 1;
    for (;; nth++) {
        char *line = nullptr;
        log_capture log;
        fail_nth_call("realloc", nth, ENOMEM);
        const int result = fill_cl_debug_log_params(labels.table, &event.params, &line, 0);
        if (faults_fired("realloc") == 0) {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(taken(line).size(), 3517u);
            break;
        }
        EXPECT_EQ(result, -1);
        EXPECT_EQ(line, nullptr);
        EXPECT_EQ(log.lines(), lines{"fill_cl_debug_log_params: Failed to alloc memory for expanded log."});
    }
    EXPECT_GE(nth, 3);
}

TEST(Line, LogsAMissingMemoryAtLevel3) {
    const catalogue labels("INFOCODE_14=DHCP\nDHCP_5=text\n");
    std::string text;
    expect_logged(3, {"fill_cl_debug_log_params: Failed to alloc memory for expanded log."}, [&] {
        fail_nth_call("realloc", 1, ENOMEM);
        EXPECT_EQ(fill(labels, {14, 5}, &text), -1);
        clear_faults();
    });
}

TEST(Sentence, WithoutTokensIsTheLine) {
    EXPECT_EQ(expand("plain text, 100 %s", {1, 1}), "plain text, 100 %s");
}

TEST(Sentence, HasItsTokensReplacedWhereverTheyStand) {
    EXPECT_EQ(expand("$SSID", {1, 1}), "Office");
    EXPECT_EQ(expand("a $SSID", {1, 1}), "a Office");
    EXPECT_EQ(expand("$SSID b", {1, 1}), "Office b");
    EXPECT_EQ(expand("$SSID$SSID", {1, 1}), "OfficeOffice");
    EXPECT_EQ(expand("<$MAC|$SSID>", {1, 1}), "<00:1A:2B:3C:4D:5E|Office>");
}

TEST(Sentence, HasTokensThatEndWithTheirName) {
    EXPECT_EQ(expand("$SSIDs and $MACs", {1, 1}), "Offices and 00:1A:2B:3C:4D:5Es");
}

TEST(Sentence, KeepsADollarThatBeginsNoToken) {
    EXPECT_EQ(expand("$", {1, 1}), "$");
    EXPECT_EQ(expand("5 $ and $$SSID", {1, 1}), "5 $ and $Office");
    EXPECT_EQ(expand("$mac $MA $SSI $XSSID", {1, 1}), "$mac $MA $SSI $XSSID");
    EXPECT_EQ(expand("end $", {1, 1}), "end $");
}

TEST(Sentence, DoesNotReadTokensInWhatReplacedOne) {
    logged_event event(1, 1);
    std::snprintf(event.params.ssid, sizeof event.params.ssid, "$MAC");
    EXPECT_EQ(expand("$SSID", event), "$MAC");
}

TEST(Sentence, GrowsAsItsTokensNeed) {
    std::string sentence;
    std::string text;
    for (int i = 0; i < 300; i++) {
        sentence += "$MAC$BSSID";
        text += "00:1A:2B:3C:4D:5EA0:B1:C2:D3:E4:F5";
    }
    EXPECT_EQ(expand(sentence, {1, 1}), text);
}

TEST(Sentence, TakesAValueOf65535Bytes) {
    const std::string value(65535, 'v');
    EXPECT_EQ(filled("<$OU>", 1, 46, value), "<" + value + ">");
}

TEST(Mac, IsTheClients) {
    EXPECT_EQ(filled("$MAC", 1, 1), "00:1A:2B:3C:4D:5E");
    EXPECT_EQ(filled("$MAC", 25, 1, "\1\2\3\4\5\6"), "00:1A:2B:3C:4D:5E");
}

TEST(Mac, OfAnAddressConflictIsTheOtherStations) {
    EXPECT_EQ(filled("$MAC", 26, 0, "\x0A\xBC\x00\x01\x02\xFF\x0A\0\0\x01"s), "0A:BC:00:01:02:FF");
    EXPECT_EQ(filled("$MAC", 26, 0, "\x0A\xBC\x00\x01\x02\xFF"s), "0A:BC:00:01:02:FF");
}

TEST(Mac, OfAShortAddressConflictIsTheClients) {
    EXPECT_EQ(filled("$MAC", 26, 0, "\1\2\3\4\5"), "00:1A:2B:3C:4D:5E");
    EXPECT_EQ(filled("$MAC", 26, 0), "00:1A:2B:3C:4D:5E");
}

TEST(Names, ComeFromTheEvent) {
    EXPECT_EQ(filled("$BSSID", 1, 1), "A0:B1:C2:D3:E4:F5");
    EXPECT_EQ(filled("$SSID", 1, 1), "Office");
}

TEST(Names, MayBeEmpty) {
    logged_event event(1, 1);
    event.params.cl_mac[0] = event.params.bssid[0] = event.params.ssid[0] = '\0';
    EXPECT_EQ(expand("[$MAC$BSSID$SSID]", event), "[]");
}

TEST(Names, EndWithTheirFields) {
    logged_event event(1, 1);
    std::memset(event.params.cl_mac, 'm', sizeof event.params.cl_mac);
    std::memset(event.params.bssid, 'b', sizeof event.params.bssid);
    std::memset(event.params.ssid, 's', sizeof event.params.ssid);
    EXPECT_EQ(expand("$MAC", event), std::string(20, 'm'));
    EXPECT_EQ(expand("$BSSID", event), std::string(20, 'b'));
    EXPECT_EQ(expand("$SSID", event), std::string(33, 's'));
}

std::string applied_role(int method, int lookup, int match, int mapped, const std::string &name = "Guest") {
    return field(name, 33) + big_endian_text(7) + std::string{char(method), char(lookup), char(match), char(mapped)};
}

TEST(Role, OfAnAppliedRoleNamesItAndHowItWasFound) {
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(1, 1, 1, 0)), "[Guest] applied, match type[Exact]");
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(1, 1, 2, 0)), "[Guest] applied, match type[Contains]");
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(2, 255, 3, 0)), "[Guest] applied, match type[Equals]");
}

TEST(Role, FoundWithoutARuleHasNoMatchType) {
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(3, 0, 1, 0)), "[Guest] applied");
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(1, 1, 0, 0)), "[Guest] applied");
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(1, 1, 4, 0)), "[Guest] applied");
}

TEST(Role, ThatIsTheSsidsTellsWhy) {
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(1, 1, 0, 1)), "mapped to SSID, no rule matched");
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(1, 0, 0, 1)), "mapped to SSID");
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(2, 1, 0, 1)), "mapped to SSID, no rule matched");
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(2, 0, 0, 1)), "mapped to SSID, no OU received");
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(3, 1, 0, 1)), "mapped to SSID");
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(3, 0, 0, 1)), "mapped to SSID");
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(0, 1, 0, 1)), "mapped to SSID, unknown method");
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(4, 0, 0, 255)), "mapped to SSID, unknown method");
}

TEST(Role, NameMayFillItsField) {
    const std::string name(33, 'r');
    EXPECT_EQ(filled("$ROLE", 104, 0, applied_role(3, 0, 0, 0, name)), "[" + name + "] applied");
}

TEST(Role, OfAShortValueIsEmpty) {
    EXPECT_EQ(filled("[$ROLE]", 104, 0, applied_role(3, 0, 0, 0).substr(0, 40)), "[]");
    EXPECT_EQ(filled("[$ROLE]", 104, 0), "[]");
}

TEST(Role, OfALongerValueOrAnotherInfoCodeIsTheSame) {
    EXPECT_EQ(filled("$ROLE", 1, 5, applied_role(3, 0, 0, 0) + "more"), "[Guest] applied");
}

TEST(Role, OfAnAssignedVlanIsTheVlan) {
    EXPECT_EQ(filled("$ROLE", 1, 39, big_endian_text(30)), "30 from Radius");
    EXPECT_EQ(filled("$ROLE", 104, 39, big_endian_text(0) + "more"), "0 from Radius");
    EXPECT_EQ(filled("$ROLE", 1, 39, big_endian_text(0xFFFFFFFE)), "-2 from Radius");
    EXPECT_EQ(filled("$ROLE", 1, 39, big_endian_text(0xFFFFFFFF)), "SSID VLAN from Radius");
}

TEST(Role, OfAVlanThatIsMissingIsFromNowhere) {
    EXPECT_EQ(filled("$ROLE", 1, 39), "from unkwown method");
    EXPECT_EQ(filled("$ROLE", 1, 39, "\0\0\x1E"s), "from unkwown method");
}

TEST(Role, ThatTheAuthenticatorAsksForIsNamed) {
    EXPECT_EQ(filled("$ROLE", 1, 42, field("Staff", 46)), "[Staff] applied");
    EXPECT_EQ(filled("$ROLE", 1, 42, field(std::string(40, 's'), 46)), "[" + std::string(33, 's') + "] applied");
    EXPECT_EQ(filled("[$ROLE]", 1, 42, field("Staff", 45)), "[]");
    EXPECT_EQ(filled("[$ROLE]", 1, 42), "[]");
}

TEST(Role, OfOtherMessagesOfTheAuthenticatorIsEmpty) {
    for (const int sub : {43, 46, 47})
        EXPECT_EQ(filled("[$ROLE]", 1, sub, applied_role(3, 0, 0, 0)), "[]") << sub;
}

TEST(Ou, IsTheValueUpToItsNul) {
    EXPECT_EQ(filled("$OU", 1, 46, "Sales"), "Sales");
    EXPECT_EQ(filled("$OU", 1, 46, "Sales\0Staff"s), "Sales");
    EXPECT_EQ(filled("$OU", 1, 46, "ab"), "ab");
    EXPECT_EQ(filled("[$OU]", 1, 46, "\0\0"s), "[]");
}

TEST(Ou, OfLessThanTwoBytesIsNil) {
    EXPECT_EQ(filled("$OU", 1, 46, "a"), "(Nil)");
    EXPECT_EQ(filled("$OU", 1, 46), "(Nil)");
}

TEST(Value, OfANegativeLengthCountsAsNone) {
    logged_event event(1, 46, "Sales");
    event.params.subinfo_value_len = -1;
    EXPECT_EQ(expand("$OU", event), "(Nil)");
}

TEST(Value, OfALengthWithoutBytesCountsAsNone) {
    logged_event event(1, 46);
    event.params.subinfo_value_len = 5;
    EXPECT_EQ(expand("$OU", event), "(Nil)");
}

TEST(Ip, OfIpv6AndDhcpEventsIsText) {
    for (const int info_code : {9, 14}) {
        EXPECT_EQ(filled("$IP", info_code, 0, "2001:db8::1"), "2001:db8::1");
        EXPECT_EQ(filled("$IP", info_code, 0, "1234"), "1234");
        EXPECT_EQ(filled("$IP", info_code, 0, "10.0.0.1\0rest"s), "10.0.0.1");
        EXPECT_EQ(filled("[$IP]", info_code, 0), "[]");
    }
}

TEST(Ip, OfAnInvalidAddressIsTheFirst) {
    EXPECT_EQ(filled("$IP", 25, 2, "\x0A\0\0\x05\xC0\xA8\x01\xFE"s), "10.0.0.5");
    EXPECT_EQ(filled("$IP", 25, 2, "\x0A\xFF"), "10.255.0.0");
    EXPECT_EQ(filled("[$IP]", 25, 2), "[]");
}

TEST(Ip, OfAConflictFollowsTheMac) {
    EXPECT_EQ(filled("$IP", 26, 0, "\1\2\3\4\5\6\xAC\x10\0\x07"s), "172.16.0.7");
    EXPECT_EQ(filled("$IP", 26, 0, "\1\2\3\4"), "0.0.0.0");
    EXPECT_EQ(filled("[$IP]", 26, 0), "[]");
}

TEST(Ip, OfADnsEventIsTheServers) {
    EXPECT_EQ(filled("$IP", 21, 1, big_endian_text(12) + "\x08\x08\x04\x04"), "8.8.4.4");
    EXPECT_EQ(filled("$IP", 21, 0, "\x08\x08\x08\x08"), "8.8.8.8");
    EXPECT_EQ(filled("$IP", 21, 1, big_endian_text(12) + "\x08\x08"), "8.8.0.0");
    EXPECT_EQ(filled("[$IP]", 21, 0), "[]");
}

TEST(Ip, OfOtherEventsIsAnAddressOfFourBytes) {
    EXPECT_EQ(filled("$IP", 23, 0, "\xFF\x00\x80\x7F"s), "255.0.128.127");
    EXPECT_EQ(filled("$IP", 1, 7, "1234"), "49.50.51.52");
}

TEST(Ip, OfOtherEventsMayBeText) {
    EXPECT_EQ(filled("$IP", 23, 0, "10.0.0.77"), "10.0.0.77");
    EXPECT_EQ(filled("$IP", 23, 0, "10.0.0.7\0\xFF\xFF"s), "10.0.0.7");
    EXPECT_EQ(filled("$IP", 23, 0, " ~"), " ~");
}

TEST(Ip, OfBytesThatAreNoTextIsEmpty) {
    for (const std::string &value : {"\x1F!"s, "!\x7F"s, "ab\x80"s, "a\nb"s, "\0abcde"s})
        EXPECT_EQ(filled("[$IP]", 23, 0, value), "[]") << value;
    EXPECT_EQ(filled("[$IP]", 23, 0), "[]");
}

TEST(DhcpServer, OfAnInvalidAddressIsTheSecond) {
    EXPECT_EQ(filled("$DHCPSERVERIP", 25, 2, "\x0A\0\0\x05\xC0\xA8\x01\xFE"s), "192.168.1.254");
    EXPECT_EQ(filled("$DHCPSERVERIP", 25, 2, "\x0A\0\0\x05\xC0"s), "192.0.0.0");
}

TEST(DhcpServer, OfADhcpEventIsItsText) {
    EXPECT_EQ(filled("$DHCPSERVERIP", 14, 5, "10.0.0.1"), "10.0.0.1");
}

TEST(DhcpServer, OfOtherEventsIsEmpty) {
    EXPECT_EQ(filled("[$DHCPSERVERIP]", 23, 0, "\x0A\0\0\x05\xC0\xA8\x01\xFE"s), "[]");
    EXPECT_EQ(filled("[$DHCPSERVERIP]", 25, 2), "[]");
    EXPECT_EQ(filled("[$DHCPSERVERIP]", 14, 5), "[]");
}

TEST(Vlan, OfAVlanEventHasTwoOrFourBytes) {
    EXPECT_EQ(filled("$VLAN", 27, 0, big_endian_text(30)), "30");
    EXPECT_EQ(filled("$VLAN", 27, 0, big_endian_text(4095) + "more"), "4095");
    EXPECT_EQ(filled("$VLAN", 27, 0, big_endian_text(300, 2)), "300");
    EXPECT_EQ(filled("$VLAN", 27, 0, big_endian_text(300, 2) + "x"), "300");
}

TEST(Vlan, OutsideTheRangeIs0) {
    EXPECT_EQ(filled("$VLAN", 27, 0, big_endian_text(4096)), "0");
    EXPECT_EQ(filled("$VLAN", 27, 0, big_endian_text(0xFFFFFFFF)), "0");
    EXPECT_EQ(filled("$VLAN", 27, 0, "\x1E"), "0");
    EXPECT_EQ(filled("$VLAN", 27, 0), "0");
}

TEST(Vlan, OfAnAssignmentIsAnyNumber) {
    EXPECT_EQ(filled("$VLAN", 1, 39, big_endian_text(30)), "30");
    EXPECT_EQ(filled("$VLAN", 104, 39, big_endian_text(5000)), "5000");
    EXPECT_EQ(filled("$VLAN", 1, 39, big_endian_text(0xFFFFFFFF)), "-1");
    EXPECT_EQ(filled("$VLAN", 27, 39, big_endian_text(0xFFFFFFFF)), "-1");
    EXPECT_EQ(filled("$VLAN", 1, 39, "\0\0\x1E"s), "0");
    EXPECT_EQ(filled("$VLAN", 1, 39), "0");
}

TEST(Vlan, OfOtherEventsIs0) {
    EXPECT_EQ(filled("$VLAN", 1, 38, big_endian_text(30)), "0");
}

TEST(Rssi, OfARequestIsTheThirdByte) {
    for (const int info_code : {2, 4}) {
        EXPECT_EQ(filled("$RSSI", info_code, 0, "\0\x24\xC4"s), "-60");
        EXPECT_EQ(filled("$RSSI", info_code, 0, "\0\x24\x7F"s), "127");
        EXPECT_EQ(filled("$RSSI", info_code, 0, "\0\x24\x80more"s), "-128");
        EXPECT_EQ(filled("$RSSI", info_code, 0, "\0\x24"s), "0");
        EXPECT_EQ(filled("$RSSI", info_code, 0), "0");
    }
}

TEST(Rssi, OfSteeringFollowsTheMac) {
    EXPECT_EQ(filled("$RSSI", 20, 2, "\1\2\3\4\5\6\xBA"), "-70");
    EXPECT_EQ(filled("$RSSI", 20, 2, "\1\2\3\4\5\6"), "0");
}

TEST(Rssi, OfOtherEventsIs0) {
    EXPECT_EQ(filled("$RSSI", 3, 0, "\0\x24\xC4\1\1\1\1"s), "0");
}

TEST(Channel, IsTheFirstTwoBytes) {
    EXPECT_EQ(filled("$CHAN", 2, 0, "\0\x24\xC4"s), "36");
    EXPECT_EQ(filled("$CHAN", 4, 0, "\xFF\xFE"), "65534");
    EXPECT_EQ(filled("$CHAN", 4, 0, "\x24"), "0");
    EXPECT_EQ(filled("$CHAN", 4, 0), "0");
}

TEST(Version, IsThatOf8021X) {
    EXPECT_EQ(filled("$VER", 15, 501), "8021X_2001");
    EXPECT_EQ(filled("$VER", 15, 502), "8021X_2004");
    EXPECT_EQ(filled("$VER", 15, 503), "Unknown");
    EXPECT_EQ(filled("$VER", 1, 501), "Unknown");
    EXPECT_EQ(filled("$VER", 1, 502), "Unknown");
}

constexpr char BANDWIDTH[] = "$ID $UP $DOWN $PRI";

TEST(Bandwidth, ComesFromTheRecordOf13Bytes) {
    EXPECT_EQ(filled(BANDWIDTH, 19, 0, "\x02" + big_endian_text(1000) + big_endian_text(2000) + big_endian_text(7)),
              "7 1000 2000 2");
}

TEST(Bandwidth, HasSignedLimitsAndUnsignedIds) {
    EXPECT_EQ(filled(BANDWIDTH, 19, 0,
                     "\xFF" + big_endian_text(0xFFFFFFFF) + big_endian_text(0x80000000) + big_endian_text(0xFFFFFFFF)),
              "4294967295 -1 -2147483648 255");
}

TEST(Bandwidth, TakesMissingBytesAs0) {
    EXPECT_EQ(filled(BANDWIDTH, 19, 0, "\x02" + big_endian_text(1000) + "\0\1"s), "0 1000 65536 2");
    EXPECT_EQ(filled(BANDWIDTH, 19, 0), "0 0 0 0");
}

TEST(Bandwidth, OfOtherEventsIs0) {
    EXPECT_EQ(filled(BANDWIDTH, 18, 0, std::string(13, '\1')), "0 0 0 0");
}

TEST(RuleMatchType, HasAText) {
    EXPECT_STREQ(get_rule_match_type(1), "Exact");
    EXPECT_STREQ(get_rule_match_type(2), "Contains");
    EXPECT_STREQ(get_rule_match_type(3), "Equals");
    for (const int other : {0, 4, -1, 255})
        EXPECT_STREQ(get_rule_match_type(other), "Unknown");
}

}  // namespace
