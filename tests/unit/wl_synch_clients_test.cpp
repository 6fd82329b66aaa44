// What the neighbours are told of the clients: which key, which login, the bytes of their records and how they are
// packed. Wall clock 1'700'000'000, monotonic clock 1000 s unless a test sets them.
#include <map>
#include <set>

#include "wl_synch_fixture.h"
#include "wl_synch_internal.h"

namespace {

constexpr int32_t WALL = 1'700'000'000;

time_t test_time;
int32_t monotonic;
bool clocks_fail;
int wall_clock_reads;
int monotonic_reads;
char request_ssid[] = "net";

}  // namespace

extern "C" time_t __wrap_time(time_t *) {
    wall_clock_reads++;
    return test_time;
}

extern "C" int __wrap__Z14os_get_reltimeP10os_reltime(os_reltime *now) {
    monotonic_reads++;
    if (clocks_fail)
        return -1;
    *now = {monotonic, 999'999};
    return 0;
}

namespace {

constexpr char KEY[] =
    "AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA AA";
const std::string PMK_START = std::string("0A 06 02 00 00 00 00 01 01 20 ") + KEY + " 02 04 00 00 0E 10 ";
const std::string BLACKOUT_OVER = "fill_client_synch_info: Completed with blaskout time. This entry should have been "
                                  "deleted. Not adding portal info";

byte_string repeated(size_t count, uint8_t byte) {
    return byte_string(count, byte);
}

/// The wall clock some seconds after the last that 31 bits hold; where its type has 32 bits it is negative.
time_t behind_the_wrap(int seconds) {
    return static_cast<time_t>(int64_t{INT32_MAX} + seconds);
}

/// The header and the application id of an answer to `ask()`.
byte_string answer_header(size_t length) {
    return bytes_of("01 0A 02 00 02 03") + big_endian_bytes(length, 2) + bytes_of("02 00 00 00 00 09 'net'");
}

class SynchClients : public SynchFixture {
protected:
    SynchClients() {
        test_time = WALL;
        monotonic = 1000;
        clocks_fail = false;
    }

    void ask() {
        const app_header request{1, 10, 5, 0, 3, 1, 0, {2, 0, 0, 0, 0, 9}, request_ssid};
        send_all_cl_info_for_ssid(profile, &request);
    }

    /// The one packet that answers a request, without its header.
    byte_string answer() {
        ask();
        const packets answers = sent();
        EXPECT_EQ(answers.size(), 1U);
        if (answers.empty())
            return {};
        EXPECT_EQ(byte_string(answers[0].begin(), answers[0].begin() + 17), answer_header(answers[0].size() - 17));
        return byte_string(answers[0].begin() + 17, answers[0].end());
    }

    /// The items of the one record that answers a request.
    byte_string items(int kind) {
        const byte_string all = answer();
        if (all.size() < 4)
            return {};
        EXPECT_EQ(byte_string(all.begin(), all.begin() + 4),
                  big_endian_bytes(uint64_t(kind), 2) + big_endian_bytes(all.size() - 4, 2));
        return byte_string(all.begin() + 4, all.end());
    }

    ssid_profile_info *profile = add_profile(1);
    wl_client_info *client = add_client(profile, 1);
    const os_reltime now{1000, 0};
};

}  // namespace

TEST_F(SynchClients, AKeyHasFiveItems) {
    const dot1x_pmk_cl_data *const pmk = add_key(client, "bob@corp");
    EXPECT_EQ(items(1), bytes_of(PMK_START + "03 08 'bob@corp' 04 01 19"));
    EXPECT_EQ(get_okc_info_len(pmk), 61U);
}

TEST_F(SynchClients, AKeyIsSentWholeWhateverItsLength) {
    add_key(client, "bob")->pmk_len = 16;
    EXPECT_EQ(items(1), bytes_of(PMK_START + "03 03 'bob' 04 01 19"));
}

TEST_F(SynchClients, AKeyWithEveryOption) {
    dot1x_pmk_cl_data *const pmk = add_key(client, "bob");
    pmk->vlan_id = 0x01020304;
    pmk->bw_data = {0x11121314, 0x21222324};
    pmk->acct_interim_interval = 600;
    EXPECT_EQ(items(1), bytes_of(PMK_START + "03 03 'bob' 04 01 19 06 04 01 02 03 04 07 08 11 12 13 14 21 22 23 24 "
                                             "09 04 00 00 02 58"));
    EXPECT_EQ(get_okc_info_len(pmk), 56U + 6 + 10 + 6);
}

TEST_F(SynchClients, VlanZeroHasAnItemMore) {
    dot1x_pmk_cl_data *const pmk = add_key(client, "bob");
    pmk->vlan_id = 0;
    pmk->acct_interim_interval = -2;
    EXPECT_EQ(items(1), bytes_of(PMK_START + "03 03 'bob' 04 01 19 06 04 00 00 00 00 09 04 FF FF FF FE 08 01 00"));
    EXPECT_EQ(get_okc_info_len(pmk), 56U + 6 + 6 + 3);
}

TEST_F(SynchClients, AnyVlanButMinusOneIsSent) {
    add_key(client, "bob")->vlan_id = -2;
    EXPECT_EQ(items(1), bytes_of(PMK_START + "03 03 'bob' 04 01 19 06 04 FF FF FF FE"));
}

TEST_F(SynchClients, OneLimitIsEnoughForTheBandwidth) {
    dot1x_pmk_cl_data *const pmk = add_key(client, "bob");
    pmk->bw_data = {-1, 5};
    EXPECT_EQ(items(1), bytes_of(PMK_START + "03 03 'bob' 04 01 19 07 08 FF FF FF FF 00 00 00 05"));
    pmk->bw_data = {0, -1};
    EXPECT_EQ(items(1), bytes_of(PMK_START + "03 03 'bob' 04 01 19 07 08 00 00 00 00 FF FF FF FF"));
}

TEST_F(SynchClients, ALongIdentityFollowsWholeItsLengthByteIsTheLow8Bits) {
    const std::string identity(300, 'i');
    add_key(client, identity);
    EXPECT_EQ(items(1), bytes_of(PMK_START + "03 2C") + text_bytes(identity) + bytes_of("04 01 19"));
}

TEST_F(SynchClients, AKeyThatHasExpiredIsSentWithAHugeLifetime) {
    add_key(client, "bob", 0xAA, 999);
    const byte_string found = items(1);
    ASSERT_EQ(found.size(), 56U);
    EXPECT_EQ(byte_string(found.begin() + 42, found.begin() + 48), bytes_of("02 04 FF FF FF FF"));
    monotonic = 0x10000;
    const byte_string later = items(1);
    EXPECT_EQ(byte_string(later.begin() + 42, later.begin() + 48), bytes_of("02 04 FF FF 03 E7"));
}

TEST_F(SynchClients, AKeyThatExpiresThisSecondIsNotSent) {
    add_key(client, "bob", 0xAA, 1000);
    ask();
    EXPECT_EQ(sent(), packets{});
    monotonic = 1001;
    EXPECT_EQ(answer().size(), 60U);
}

TEST_F(SynchClients, WithoutAClockLifetimesCountFromZero) {
    clocks_fail = true;
    add_key(client, "bob", 0xAA, 5);
    const byte_string found = items(1);
    EXPECT_EQ(byte_string(found.begin() + 42, found.begin() + 48), bytes_of("02 04 00 00 00 05"));
}

TEST_F(SynchClients, OfTwoKeysTheOneOfTheFullAuthenticationIsSent) {
    add_key(client, "full");
    add_okc_key(client, "okc", 0xBB, 4600);
    EXPECT_EQ(items(1), bytes_of(PMK_START + "03 04 'full' 04 01 19"));
}

TEST_F(SynchClients, AKeyOfTheCacheStandsInForOneThatExpiresThisSecond) {
    add_key(client, "full", 0xBB, 1000);
    dot1x_pmk_cl_data *const okc = add_okc_key(client, "okc", 0xAA, 4600);
    EXPECT_EQ(items(1), bytes_of(PMK_START + "03 03 'okc' 04 01 19"));
    okc->expiration = 1000;
    ask();
    EXPECT_EQ(sent(), packets{});
}

TEST_F(SynchClients, AKeyOfTheCacheIsSentAlone) {
    add_okc_key(client, "okc", 0xAA, 4600);
    EXPECT_EQ(items(1), bytes_of(PMK_START + "03 03 'okc' 04 01 19"));
}

TEST_F(SynchClients, AKeyWithoutAnIdentityLeavesItsPlaceToTheNextRecordAndZerosAtTheEnd) {
    add_key(client, "");
    add_login(client, WALL + 60, WALL + 100);
    const byte_string login = bytes_of("00 02 00 30 08 14 '02:00:00:00:00:01' 00 00 00 07 0C '192.168.1.20' "
                                       "06 04 00 00 00 3C 10 04 00 00 00 28");
    EXPECT_EQ(answer(), bytes_of("00 01 00 35") + login + repeated(53, 0));
}

TEST_F(SynchClients, AClientFollowsAKeyWithoutAnIdentityAtOnce) {
    add_key(client, "");
    wl_client_info *const next = add_client(profile, 2);
    add_key(next, "bob");
    byte_string expected = bytes_of("00 01 00 35 00 01 00 38 " + PMK_START + "03 03 'bob' 04 01 19");
    expected[15] = 2;  // its MAC
    EXPECT_EQ(answer(), expected + repeated(53, 0));
}

TEST_F(SynchClients, ALoginHasFourItems) {
    const portal_cl_auth_info *const auth = add_login(client, WALL + 3600, WALL + 7200);
    EXPECT_EQ(items(2), bytes_of("08 14 '02:00:00:00:00:01' 00 00 00 07 0C '192.168.1.20' "
                                 "06 04 00 00 0E 10 10 04 00 00 0E 10"));
    EXPECT_EQ(get_portal_cl_auth_info_len(profile, auth), 48U);
}

TEST_F(SynchClients, TheMacOfALoginIsATextInUpperCase) {
    wl_client_info *const other = add_client(profile, 0xABCD);
    add_login(other, WALL + 1, WALL + 2);
    const byte_string found = items(2);
    ASSERT_GE(found.size(), 22U);
    EXPECT_EQ(byte_string(found.begin(), found.begin() + 22), bytes_of("08 14 '02:00:00:00:AB:CD' 00 00 00"));
}

TEST_F(SynchClients, ALoginThatIsOverHasOneSecondLeftAndTheRestOfItsBlackout) {
    portal_cl_auth_info *const auth = add_login(client, WALL, WALL + 7);
    const byte_string start = bytes_of("08 14 '02:00:00:00:00:01' 00 00 00 07 0C '192.168.1.20' ");
    for (const int32_t expire : {WALL, WALL - 1, 0}) {
        auth->expire = expire;
        EXPECT_EQ(items(2), start + bytes_of("06 04 00 00 00 01 10 04 00 00 00 07"));
    }
    auth->expire = WALL + 1;
    EXPECT_EQ(items(2), start + bytes_of("06 04 00 00 00 01 10 04 00 00 00 06"));
}

TEST_F(SynchClients, ALoginAfterItsBlackoutIsAsNegativeAsItIs) {
    add_login(client, WALL + 100, WALL + 40);
    EXPECT_EQ(items(2), bytes_of("08 14 '02:00:00:00:00:01' 00 00 00 07 0C '192.168.1.20' "
                                 "06 04 00 00 00 64 10 04 FF FF FF C4"));
}

TEST_F(SynchClients, AnAddressIsAtMost16Characters) {
    portal_cl_auth_info *const auth = add_login(client, WALL + 1, WALL + 2);
    std::memset(auth->ip_addr, '1', sizeof auth->ip_addr);
    EXPECT_EQ(items(2), bytes_of("08 14 '02:00:00:00:00:01' 00 00 00 07 10 '1111111111111111' "
                                 "06 04 00 00 00 01 10 04 00 00 00 01"));
    auth->ip_addr[0] = '\0';
    EXPECT_EQ(items(2), bytes_of("08 14 '02:00:00:00:00:01' 00 00 00 07 00 06 04 00 00 00 01 10 04 00 00 00 01"));
}

TEST_F(SynchClients, AccountingAddsTheUserAndTheTimeOfTheLogin) {
    portal_cl_auth_info *const auth = add_login(client, WALL + 1, WALL + 2);
    std::strcpy(auth->username, "alice");
    auth->login_time = 0xFEDCBA98;
    EXPECT_EQ(items(2).size(), 48U);
    profile->portal_radius_acc_enabled = 1;
    const byte_string found = items(2);
    EXPECT_EQ(byte_string(found.begin() + 48, found.end()), bytes_of("0E 05 'alice' 0F 04 FE DC BA 98"));
    EXPECT_EQ(get_portal_cl_auth_info_len(profile, auth), 48U + 5 + 8);
    auth->username[0] = '\0';
    EXPECT_EQ(items(2).size(), 48U);
}

TEST_F(SynchClients, AUserNameIsAtMost64Characters) {
    profile->portal_radius_acc_enabled = 2;
    portal_cl_auth_info *const auth = add_login(client, WALL + 1, WALL + 2);
    std::memset(auth->username, 'u', sizeof auth->username);
    const byte_string found = items(2);
    EXPECT_EQ(byte_string(found.begin() + 48, found.end()),
              bytes_of("0E 40") + repeated(64, 'u') + bytes_of("0F 04 00 00 00 00"));
}

TEST_F(SynchClients, LimitsOfUsersAddTheBandwidth) {
    portal_cl_auth_info *const auth = add_login(client, WALL + 1, WALL + 2);
    auth->bw_download_limit = 0x01020304;
    EXPECT_EQ(items(2).size(), 48U);
    profile->per_user_bw_enable = 1;
    byte_string found = items(2);
    EXPECT_EQ(byte_string(found.begin() + 48, found.end()), bytes_of("11 04 01 02 03 04 12 04 FF FF FF FF"));
    EXPECT_EQ(get_portal_cl_auth_info_len(profile, auth), 60U);
    auth->bw_download_limit = -1;
    EXPECT_EQ(items(2).size(), 48U);
    auth->bw_upload_limit = 0;
    found = items(2);
    EXPECT_EQ(byte_string(found.begin() + 48, found.end()), bytes_of("11 04 FF FF FF FF 12 04 00 00 00 00"));
}

TEST_F(SynchClients, AClientHasAKeyThenALogin) {
    add_key(client, "bob");
    portal_cl_auth_info *const auth = add_login(client, WALL + 60, WALL + 100);
    profile->portal_radius_acc_enabled = profile->per_user_bw_enable = 1;
    std::strcpy(auth->username, "al");
    auth->bw_download_limit = auth->bw_upload_limit = 1;
    EXPECT_EQ(answer(),
              bytes_of("00 01 00 38 " + PMK_START +
                       "03 03 'bob' 04 01 19 "
                       "00 02 00 46 08 14 '02:00:00:00:00:01' 00 00 00 07 0C '192.168.1.20' 06 04 00 00 00 3C "
                       "10 04 00 00 00 28 0E 02 'al' 0F 04 00 00 00 00 11 04 00 00 00 01 12 04 00 00 00 01"));
    EXPECT_EQ(get_cl_data_len(profile, client, WALL, &now), 60U + 74);
}

TEST_F(SynchClients, ALoginWhoseBlackoutIsOverIsLoggedWhenTheClientHasAKey) {
    add_key(client, "bob");
    add_login(client, WALL - 100, WALL);
    expect_logged(3, BLACKOUT_OVER, [this] { EXPECT_EQ(answer().size(), 60U); });
    client->portal_cl_info->portal_cl_auth_info->blackout_expire = WALL + 1;
    EXPECT_EQ(lines_at_level(6, [this] { EXPECT_EQ(answer().size(), 60U + 52); }), lines{});
}

TEST_F(SynchClients, AClientWithoutALoginIsNotLogged) {
    add_key(client, "bob");
    client->portal_cl_info = static_cast<portal_cl_info *>(std::calloc(1, sizeof(portal_cl_info)));
    EXPECT_EQ(lines_at_level(6, [this] { EXPECT_EQ(answer().size(), 60U); }), lines{});
}

TEST_F(SynchClients, AClientOfWhichNothingIsLeftToTellIsSilentlySkipped) {
    keys_of(client);
    add_login(client, WALL - 100, WALL);
    EXPECT_EQ(lines_at_level(7, [this] { ask(); }), lines{});
    EXPECT_EQ(sent(), packets{});
    EXPECT_EQ(get_cl_data_len(profile, client, WALL, &now), 0U);
}

TEST_F(SynchClients, ALoginOutlivesTheWrapOfTheClock) {
    const byte_string start = bytes_of("08 14 '02:00:00:00:00:01' 00 00 00 07 0C '192.168.1.20' ");
    test_time = INT32_MAX - 9;
    portal_cl_auth_info *const auth = add_login(client, INT32_MIN + 20, INT32_MIN + 50);
    EXPECT_EQ(items(2), start + bytes_of("06 04 00 00 00 1E 10 04 00 00 00 1E"));
    auth->expire = INT32_MAX - 10;
    EXPECT_EQ(items(2), start + bytes_of("06 04 00 00 00 01 10 04 00 00 00 3C"));
    test_time = behind_the_wrap(50);
    EXPECT_EQ(items(2), start + bytes_of("06 04 00 00 00 01 10 04 00 00 00 01"));
    for (const int seconds : {51, 52, 1000}) {
        test_time = behind_the_wrap(seconds);
        ask();
        EXPECT_EQ(sent(), packets{}) << seconds;
    }
}

TEST_F(SynchClients, ABlackoutThatEndedBeforeTheWrapIsOver) {
    test_time = behind_the_wrap(1);
    add_login(client, INT32_MAX - 100, INT32_MAX);
    ask();
    EXPECT_EQ(sent(), packets{});
}

TEST_F(SynchClients, TimesFarApartAreComparedByTheir32Bits) {
    portal_cl_auth_info *const auth = add_login(client, INT32_MIN, INT32_MAX);
    EXPECT_EQ(items(2).size(), 48U);
    auth->blackout_expire = WALL + INT32_MIN;  // as far ahead as behind: over
    ask();
    EXPECT_EQ(sent(), packets{});
    auth->blackout_expire--;  // reads as 2^31 - 1 ahead
    EXPECT_EQ(items(2).size(), 48U);
}

TEST_F(SynchClients, AClientThatIsNotActiveIsNeverSent) {
    add_key(client, "bob");
    add_login(client, WALL + 60, WALL + 100);
    client->is_active = 0;
    ask();
    EXPECT_EQ(sent(), packets{});
}

TEST_F(SynchClients, WithoutClientsNothingIsSent) {
    profile = add_profile(2);
    ask();
    EXPECT_EQ(sent(), packets{});
    hash_table_destroy(&profile->cl_info_hash);  // as of a role profile
    ask();
    EXPECT_EQ(sent(), packets{});
}

TEST_F(SynchClients, AnAnswerGoesToTheAskerOverThePathOfTheProfile) {
    add_key(client, "bob");
    profile->iapc_path = 4;
    char appid[] = "ssid";
    const app_header request{1, 10, 2, 0, 4, 1, 0, {9, 8, 7, 6, 5, 4}, appid};
    send_all_cl_info_for_ssid(profile, &request);
    const packets answers = sent();
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(byte_string(answers[0].begin(), answers[0].begin() + 18),
              bytes_of("01 0A 04 00 02 04 00 3C 09 08 07 06 05 04 'ssid'"));
}

TEST_F(SynchClients, AHundredClientsGoInPacketsOfFifteen) {
    for (uint16_t number = 1; number <= 100; number++)
        add_key(number == 1 ? client : add_client(profile, number), "twenty-characters-id");
    ask();
    const packets answers = sent();
    std::vector<size_t> sizes;
    std::set<int> clients;
    for (const byte_string &packet : answers) {
        sizes.push_back(packet.size() - 17);
        for (size_t at = 17; at + 77 <= packet.size(); at += 77)
            clients.insert(packet[at + 11]);
    }
    EXPECT_EQ(sizes, (std::vector<size_t>{1155, 1155, 1155, 1155, 1155, 1155, 770}));
    EXPECT_EQ(clients.size(), 100U);
}

TEST_F(SynchClients, TheClocksAreReadOncePerAnswer) {
    for (uint16_t number = 1; number <= 40; number++) {
        wl_client_info *const each = number == 1 ? client : add_client(profile, number);
        add_key(each, "twenty-characters-id");
        add_login(each, WALL + 60, WALL + 100);
    }
    wall_clock_reads = monotonic_reads = 0;
    ask();
    EXPECT_GT(sent().size(), 1U);
    EXPECT_EQ(wall_clock_reads, 1);
    EXPECT_EQ(monotonic_reads, 1);
}

TEST_F(SynchClients, APacketWithoutMemoryIsMissingFromItsAnswer) {
    for (uint16_t number = 1; number <= 46; number++)
        add_key(number == 1 ? client : add_client(profile, number), "twenty-characters-id");
    ask();
    const packets whole = sent();
    ASSERT_EQ(whole.size(), 4U);
    const int connection = g_synch_sock;
    for (int failed = 1; failed <= 5; failed++) {
        packets expected = whole;
        if (failed <= 4)
            expected.erase(expected.begin() + failed - 1);
        fail_nth_call("calloc", failed);
        EXPECT_EQ(lines_at_level(6, [this] { ask(); }), failed <= 4 ? lines{NO_MEMORY} : lines{}) << failed;
        EXPECT_EQ(faults_fired("calloc"), failed <= 4 ? 1 : 0);
        EXPECT_EQ(sent(), expected) << failed;
        EXPECT_EQ(g_synch_sock, connection);
    }
}

TEST_F(SynchClients, APayloadIsSentBeforeItReaches1200Bytes) {
    add_key(client, std::string(543, 'i'));  // 600 bytes
    dot1x_pmk_cl_data *const next = add_key(add_client(profile, 2), std::string(543, 'i'));
    EXPECT_EQ(get_cl_data_len(profile, client, WALL, &now), 600U);
    ask();
    EXPECT_EQ(sent().size(), 2U);
    next->identity_len--;
    EXPECT_EQ(answer().size(), 1199U);
}

TEST_F(SynchClients, ALargeClientGoesAlone) {
    add_key(client, "bob");
    add_key(add_client(profile, 2), std::string(2000, 'i'));
    add_key(add_client(profile, 3), "bob");
    ask();
    std::vector<size_t> sizes;
    for (const byte_string &packet : sent())
        sizes.push_back(packet.size() - 17);
    EXPECT_EQ(sizes, (std::vector<size_t>{60, 2057, 60}));
}

TEST_F(SynchClients, AClientThatFitsInNoPacketIsSkipped) {
    dot1x_pmk_cl_data *const pmk = add_key(client, std::string(5000, 'i'));
    add_key(add_client(profile, 2), "bob");
    pmk->identity_len = 4395 - 57 + 1;
    EXPECT_EQ(lines_at_level(6, [this] { EXPECT_EQ(answer().size(), 60U); }), lines{});
    pmk->identity_len--;
    ask();
    const packets answers = sent();
    ASSERT_EQ(answers.size(), 2U);
    EXPECT_EQ(answers[0].size(), 17U + 4395);
}

TEST_F(SynchClients, APayloadStartsWithoutTheBytesOfTheOneBefore) {
    add_key(client, std::string(1100, 'i'));
    add_key(add_client(profile, 2), "");
    add_key(add_client(profile, 3), std::string(1100, 'i'));
    ask();
    const packets answers = sent();
    ASSERT_EQ(answers.size(), 3U);
    EXPECT_EQ(byte_string(answers[1].begin() + 17, answers[1].end()), bytes_of("00 01 00 35") + repeated(53, 0));
}

TEST_F(SynchClients, TheRestOfAnAnswerIsDroppedWithItsConnection) {
    profile->synch_registered = 1;
    for (uint16_t number = 1; number <= 31; number++)
        add_key(number == 1 ? client : add_client(profile, number), "twenty-characters-id");
    stop_agent();
    const lines log = lines_at_level(3, [this] { ask(); });
    EXPECT_EQ(log, (lines{send_failed("Broken pipe"), send_failed("Bad file descriptor"),
                          send_failed("Bad file descriptor")}));
    EXPECT_EQ(g_synch_sock, -1);
    EXPECT_EQ(profile->synch_registered, 0);
}

TEST_F(SynchClients, TheSizeOfAClientIsWhatItsRecordsTake) {
    profile->portal_radius_acc_enabled = profile->per_user_bw_enable = 1;
    dot1x_pmk_cl_data *const pmk = add_key(client, "bob");
    portal_cl_auth_info *const auth = add_login(client, WALL + 60, WALL + 100);
    for (const int vlan : {-1, 0, 5}) {
        for (const int limit : {-1, 0, 7}) {
            for (const char *const name : {"", "alice"}) {
                pmk->vlan_id = vlan;
                pmk->bw_data.bw_upload_limit = auth->bw_download_limit = limit;
                pmk->acct_interim_interval = limit;
                std::strcpy(auth->username, name);
                uint8_t buffer[500];
                EXPECT_EQ(fill_client_synch_info(profile, client, buffer, WALL, &now),
                          buffer + get_cl_data_len(profile, client, WALL, &now));
            }
        }
    }
}
