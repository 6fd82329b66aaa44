// Which role a client gets and what it brings: each step, and what stays in the cache.
#include "wl_client_role_fixture.h"

namespace {

int flags_of(const wl_client_info *client) {
    return reinterpret_cast<const uint8_t *>(&client->role_info)[46];
}

// Who the event is about.

TEST_F(ClientRole, SettingTellsProfileRoleAndClient) {
    expect_set_logs(7, SET + "Profile ID 1 Client Role staff mac 02:00:00:00:00:0A");
}

TEST_F(ClientRole, AnUnknownProfileIsAnErrorAndNothingIsDone) {
    expect_set_logs(3, SET + "SSID profile structure not found for profile id[5]", [&] { info.profile_id = 5; });
    expect_nothing_done();
}

TEST_F(ClientRole, AnUnknownProfileIsFoundOutBeforeTheDriverIsAsked) {
    asked_for.clear();
    info.profile_id = 5;
    set();
    EXPECT_EQ(asked_for, byte_string{});
}

TEST_F(ClientRole, AClientThatTheDriverDoesNotKnowGetsNoRole) {
    expect_set_logs(3, SET + "Client 02:00:00:00:00:0A entry not found in driver, not applying role",
                    [&] { radio = -1; });
    EXPECT_EQ(asked_for, ALICE);
    expect_nothing_done();
    EXPECT_EQ(alice(), nullptr);
}

TEST_F(ClientRole, AnyRadioWillDo) {
    for (const int any : {0, 1, 7}) {
        begin();
        radio = any;
        set();
        EXPECT_NE(alice(), nullptr);
    }
}

TEST_F(ClientRole, ANewClientIsAddedToTheCacheOfTheSsid) {
    set();
    ASSERT_NE(alice(), nullptr);
    EXPECT_EQ(alice()->ssid, ssid);
    EXPECT_EQ(alice()->is_active, 0);
    EXPECT_EQ(ssid->cl_info_hash.entry_count, 1U);
}

TEST_F(ClientRole, ANewClientIsAnError) {
    expect_set_logs(3, SET + "client 02:00:00:00:00:0A entry not found in ssid profile [1] creating new one");
}

TEST_F(ClientRole, AKnownClientIsUsed) {
    const wl_client_info *const known = add_client(ssid, ALICE);
    const lines all = set_lines(6);
    EXPECT_EQ(alice(), known);
    EXPECT_EQ(alice()->role_info.role_id, 100U);
    for (const std::string &line : all)
        EXPECT_EQ(line.find("creating new one"), std::string::npos);
}

TEST_F(ClientRole, TheMethodIsToldForNewAndKnownClients) {
    expect_set_logs(7, SET + "Client added successfully [Radius]");
    expect_set_logs(7, SET + "Client added successfully [Google OU]", [&] { by_ou("crew"); });
    expect_set_logs(7, SET + "Client added successfully [Secondary Auth]",
                    [&] { add_client(ssid, ALICE), by_id(100); });
    expect_set_logs(7, SET + "Client added successfully [Unknown]", [&] { role.rdp_method = 9; });
}

TEST_F(ClientRole, WithoutMemoryForTheClientNothingIsDone) {
    for (const char *const function : {"malloc", "calloc"}) {
        begin();
        fail_nth_call(function, 1);
        set();
        EXPECT_EQ(faults_fired(function), 1);
        expect_nothing_done();
        EXPECT_EQ(alice(), nullptr);
    }
}

TEST_F(ClientRole, ARoleProfileIsNoSsidToJoin) {
    info.profile_id = 100;
    set();
    expect_nothing_done();
    EXPECT_EQ(staff->cl_info_hash.entry_count, 0U);
}

TEST_F(ClientRole, TheClientKeepsWhatTheAuthenticatorSaid) {
    role.rdp_method = 9;
    std::strcpy(role.client_role, "nobody");
    set();
    EXPECT_EQ(alice()->role_info.rdp_method, 9);
    EXPECT_EQ(alice()->role_info.vendor_id, 9U);
    EXPECT_EQ(alice()->role_info.attr_id, 26U);
    EXPECT_STREQ(alice()->role_info.client_role, "nobody");
}

TEST_F(ClientRole, ANameWithoutNulIsCut) {
    std::memset(role.client_role, 'x', sizeof role.client_role);
    EXPECT_TRUE(
        holds(set_lines(7), SET + "Profile ID 1 Client Role " + std::string(32, 'x') + " mac 02:00:00:00:00:0A"));
    EXPECT_EQ(std::string(alice()->role_info.client_role), std::string(32, 'x'));
}

// Which role it is.

TEST_F(ClientRole, RadiusFindsARoleByItsName) {
    set();
    EXPECT_EQ(alice()->role_info.role_id, 100U);
    EXPECT_EQ(alice()->role_ssid, staff);
}

TEST_F(ClientRole, ARadiusNameWithoutARuleIsTheSsid) {
    std::strcpy(role.client_role, "nobody");
    set();
    EXPECT_EQ(alice()->role_info.role_id, 1U);
    EXPECT_EQ(alice()->role_ssid, ssid);
}

TEST_F(ClientRole, AnOrganisationalUnitFindsARole) {
    by_ou("crew");
    set();
    EXPECT_EQ(alice()->role_ssid, staff);
    EXPECT_STREQ(alice()->google_ou, "crew");
    EXPECT_STREQ(alice()->role_info.client_role, "");
}

TEST_F(ClientRole, AnOrganisationalUnitIsToldAsAnError) {
    expect_set_logs(3, SET + "GAUTH: Google OU [crew] received", [&] { by_ou("crew"); });
}

TEST_F(ClientRole, ANewOrganisationalUnitReplacesTheOldOne) {
    by_ou("crew");
    set();
    const release_watch old = {{{alice()->google_ou, 1}}, {}};
    by_ou("gang");
    wiped_at_release(old, [&] { set(); });
    EXPECT_STREQ(alice()->google_ou, "gang");
    EXPECT_EQ(alice()->role_ssid, ssid);
}

TEST_F(ClientRole, AShortOrganisationalUnitIsTheSsid) {
    for (const std::string unit : {"", "c"}) {
        expect_set_logs(3, SET + "OU not received, set SSID role", [&] { by_ou(unit); });
        EXPECT_EQ(alice()->role_ssid, ssid);
        EXPECT_EQ(alice()->google_ou, nullptr);
        EXPECT_EQ(sent.back().payload, applied_role(bytes_of_debug("net", 1, 2, 0, 0, 1)));
    }
}

TEST_F(ClientRole, AMissingOrganisationalUnitIsTheSsidAndKeepsTheOldOne) {
    by_ou("crew");
    set();
    info.subinfo_value = nullptr;
    info.subinfo_value_len = 0;
    EXPECT_TRUE(holds(set_lines(3), SET + "OU not received, set SSID role"));
    EXPECT_EQ(alice()->role_ssid, ssid);
    EXPECT_STREQ(alice()->google_ou, "crew");
}

TEST_F(ClientRole, TwoBytesAreAnOrganisationalUnit) {
    by_ou("cr");
    set();
    EXPECT_STREQ(alice()->google_ou, "cr");
}

TEST_F(ClientRole, WithoutMemoryForTheOrganisationalUnitItIsTheSsid) {
    add_client(ssid, ALICE);
    by_ou("crew");
    fail_nth_call("calloc", 1);
    set();
    EXPECT_EQ(faults_fired("calloc"), 1);
    EXPECT_EQ(alice()->role_ssid, ssid);
    EXPECT_EQ(alice()->google_ou, nullptr);
}

TEST_F(ClientRole, AnIdFindsItsRoleAndGivesItsName) {
    by_id(100);
    set();
    EXPECT_EQ(alice()->role_ssid, staff);
    EXPECT_STREQ(alice()->role_info.client_role, "staff");
    EXPECT_STREQ(role.client_role, "staff");
}

TEST_F(ClientRole, AnIdFindsAnyProfile) {
    by_id(1);
    set();
    EXPECT_EQ(alice()->role_ssid, ssid);
    EXPECT_STREQ(alice()->role_info.client_role, "net");
}

TEST_F(ClientRole, TheIdZeroIsTheSsid) {
    expect_set_logs(3, SET + "Role ID received 0, set SSID role", [&] { by_id(0); });
    EXPECT_EQ(alice()->role_ssid, ssid);
}

TEST_F(ClientRole, AnUnknownIdDisconnectsTheClient) {
    expect_set_logs(3, SET + "Role profile not found for role id: 4294967295, deauthenticating client",
                    [&] { by_id(4294967295); });
    EXPECT_EQ(timeline, lines{"event 50"});
    EXPECT_EQ(sent.back().payload, event_payload().header(ALICE, 1).text(1, "net").bytes());
}

TEST_F(ClientRole, ADisconnectedClientStaysInTheCacheWithWhatItSaid) {
    by_id(300);
    role.vendor_id = 9;
    set();
    ASSERT_NE(alice(), nullptr);
    EXPECT_EQ(alice()->role_info.rdp_method, 3);
    EXPECT_EQ(alice()->role_info.vendor_id, 9U);
    EXPECT_EQ(alice()->role_info.role_id, 0U);
    EXPECT_EQ(alice()->role_ssid, nullptr);
}

TEST_F(ClientRole, ADisconnectedClientThatHadARoleKeepsIt) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    by_id(300);
    set();
    ASSERT_NE(alice(), nullptr);
    EXPECT_EQ(alice()->role_ssid, staff);
    EXPECT_EQ(alice()->role_info.role_id, 100U);
    EXPECT_EQ(flags_of(alice()), 0xE0);
    EXPECT_EQ(alice()->role_info.rdp_method, 3) << "what it said last";
    EXPECT_EQ(vlans.size(), 1U);
    EXPECT_EQ(timeline.back(), "event 50");
}

TEST_F(ClientRole, OtherMethodsAreTheSsid) {
    for (const uint8_t method : {0, 4, 255}) {
        begin();
        role.rdp_method = method;
        set();
        EXPECT_EQ(alice()->role_ssid, ssid);
        EXPECT_EQ(sent.back().payload, applied_role(bytes_of_debug("net", 1, method, 0, 0, 1)));
    }
}

// What a role brings.

TEST_F(ClientRole, ARoleWithAVlanBringsItsOwn) {
    staff->role_flags.ap_vlan_enabled = 1;
    set();
    ASSERT_EQ(vlans.size(), 1U);
    EXPECT_EQ(vlans[0].profile_id, 1U);
    EXPECT_EQ(vlans[0].mac, ALICE);
    EXPECT_EQ(vlans[0].vlan, 20U);
    EXPECT_EQ(vlans[0].source, 2);
    EXPECT_EQ(vlans[0].client, alice());
    EXPECT_EQ(vlans[0].ifname, "ath0");
}

TEST_F(ClientRole, ARoleWithoutAVlanBringsTheSsids) {
    set();
    ASSERT_EQ(vlans.size(), 1U);
    EXPECT_EQ(vlans[0].vlan, 10U);
    EXPECT_EQ(vlans[0].source, 1);
}

TEST_F(ClientRole, TheSsidBringsItsVlan) {
    role.rdp_method = 0;
    info.name = nullptr;
    set();
    ASSERT_EQ(vlans.size(), 1U);
    EXPECT_EQ(vlans[0].vlan, 10U);
    EXPECT_EQ(vlans[0].source, 1);
    EXPECT_EQ(vlans[0].client, alice());
    EXPECT_EQ(vlans[0].ifname, "(null)");
}

/// The byte of the client's flags.
TEST_F(ClientRole, ARoleThatInheritsNothingSetsNoFlag) {
    set();
    EXPECT_EQ(flags_of(alice()), 0);
}

TEST_F(ClientRole, ARoleInheritsWhatItDoesNotHave) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    EXPECT_EQ(flags_of(alice()), 0xE0);
}

TEST_F(ClientRole, ARoleInheritsNoFirewallWhenItHasOneOfEitherKind) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    staff->flags.firewall_enabled = 1;
    set();
    EXPECT_EQ(flags_of(alice()), 0x60);
    staff->flags.firewall_enabled = 0;
    staff->flags.app_firewall_enabled = 1;
    set();
    EXPECT_EQ(flags_of(alice()), 0x60);
}

TEST_F(ClientRole, ARoleInheritsNoPortalWhenItHasAQuotaOfItsOwn) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    staff->flags.webq_enabled = 1;
    set();
    EXPECT_EQ(flags_of(alice()), 0xA0);
}

TEST_F(ClientRole, ARoleInheritsNoLimitWhenItHasOne) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    staff->per_user_bw_enable = 1;
    set();
    EXPECT_EQ(flags_of(alice()), 0xC0);
}

TEST_F(ClientRole, ASecondRoleKeepsNothingOfTheFirst) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    staff->role_flags.inherit_ssid_settings_enabled = 0;
    set();
    EXPECT_EQ(flags_of(alice()), 0);
}

TEST_F(ClientRole, TheSsidKeepsNothingOfARole) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    role.rdp_method = 0;
    set();
    EXPECT_EQ(flags_of(alice()), 0);
    EXPECT_EQ(sent[2].payload, cl_role("--", 0));
}

/// The 45 bytes of a request for Alice on ath0.
byte_string limit_bytes(uint8_t priority, uint32_t up, uint32_t down) {
    return event_payload()
        .bytes(ALICE)
        .bytes({priority})
        .bytes(big_endian_bytes(24, 4))
        .bytes(big_endian_bytes(up, 4))
        .bytes(big_endian_bytes(down, 4))
        .bytes(big_endian_bytes(1, 4))
        .bytes(big_endian_bytes(0, 4))
        .bytes(field("ath0", 17))
        .bytes({0x60})
        .bytes();
}

TEST_F(ClientRole, ARolesLimitsAreAppliedWithPriorityOne) {
    ssid->per_user_bw_enable = 1;
    staff->per_user_bw_enable = 1;
    set();
    EXPECT_EQ(limit_requests, std::vector<byte_string>{limit_bytes(1, 4000, 3000)});
    EXPECT_EQ(alice()->cl_bw_info.down, 3000U);
    EXPECT_EQ(alice()->cl_bw_info.up, 4000U);
    EXPECT_EQ(alice()->cl_bw_info.pri, 1);
    ASSERT_EQ(limits.size(), 1U);
    EXPECT_EQ(limits[0].event, 24);
    EXPECT_EQ(limits[0].info, &info);
    EXPECT_EQ(limits[0].len, LENGTH);
}

TEST_F(ClientRole, ARolesLimitsGoBeforeInheritedOnes) {
    ssid->per_user_bw_enable = 1;
    staff->per_user_bw_enable = 1;
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    EXPECT_EQ(limit_requests, std::vector<byte_string>{limit_bytes(1, 4000, 3000)});
}

TEST_F(ClientRole, InheritedLimitsHaveTheRolesPriorityButAreKeptAsTheSsids) {
    ssid->per_user_bw_enable = 1;
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    EXPECT_EQ(limit_requests, std::vector<byte_string>{limit_bytes(1, 2000, 1000)});
    EXPECT_EQ(alice()->cl_bw_info.down, 1000U);
    EXPECT_EQ(alice()->cl_bw_info.up, 2000U);
    EXPECT_EQ(alice()->cl_bw_info.pri, 0);
}

TEST_F(ClientRole, ARoleWithoutLimitsThatInheritsNothingLeavesThemAlone) {
    ssid->per_user_bw_enable = 1;
    add_client(ssid, ALICE)->cl_bw_info = {5, 6, 7};
    set();
    EXPECT_EQ(limits.size(), 0U);
    EXPECT_EQ(alice()->cl_bw_info.down, 5U);
    EXPECT_EQ(alice()->cl_bw_info.up, 6U);
    EXPECT_EQ(alice()->cl_bw_info.pri, 7);
}

TEST_F(ClientRole, AnSsidWithoutLimitsLetsNoRoleHaveAny) {
    staff->per_user_bw_enable = 1;
    set();
    staff->per_user_bw_enable = 0;
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    role.rdp_method = 0;
    set();
    EXPECT_EQ(limits.size(), 0U);
}

TEST_F(ClientRole, TheSsidsLimitsAreAppliedWithPriorityZero) {
    ssid->per_user_bw_enable = 1;
    staff->per_user_bw_enable = 1;
    role.rdp_method = 0;
    set();
    EXPECT_EQ(limit_requests, std::vector<byte_string>{limit_bytes(0, 2000, 1000)});
    EXPECT_EQ(alice()->cl_bw_info.down, 1000U);
    EXPECT_EQ(alice()->cl_bw_info.up, 2000U);
    EXPECT_EQ(alice()->cl_bw_info.pri, 0);
    EXPECT_EQ(limits[0].event, 24);
    EXPECT_EQ(limits[0].len, LENGTH);
}

TEST_F(ClientRole, NoLimitIsAlsoALimit) {
    ssid->per_user_bw_enable = 1;
    ssid->per_user_bw_down_limit = 0xFFFFFFFF;
    ssid->per_user_bw_up_limit = 0x80000000;
    role.rdp_method = 0;
    set();
    EXPECT_EQ(limit_requests, std::vector<byte_string>{limit_bytes(0, 0x80000000, 0xFFFFFFFF)});
    EXPECT_EQ(alice()->cl_bw_info.down, 0xFFFFFFFF);
}

TEST_F(ClientRole, ARoleThatIsFoundIsToldAsCritical) {
    expect_set_logs(2, SET + "Role found for client :100 with Role { vlan[10] apply_ssid_firewall[0] "
                             "apply_ssid_portal_or_webq[0] apply_ssid_bw_limit[0] }");
    for (const int which : {0, 1, 2})
        expect_set_logs(2,
                        SET + "Role found for client :100 with Role { vlan[20] apply_ssid_firewall[" +
                            std::to_string(which == 0) + "] apply_ssid_portal_or_webq[" + std::to_string(which == 1) +
                            "] apply_ssid_bw_limit[" + std::to_string(which == 2) + "] }",
                        [&] {
                            staff->role_flags.ap_vlan_enabled = 1;
                            staff->role_flags.inherit_ssid_settings_enabled = 1;
                            staff->flags.firewall_enabled = which != 0;
                            staff->flags.webq_enabled = which != 1;
                            staff->per_user_bw_enable = which != 2;
                        });
}

TEST_F(ClientRole, ARoleThatIsNotFoundIsToldAsCritical) {
    expect_set_logs(2, SET + "Role Not found for client :1", [&] { role.rdp_method = 0; });
}

}  // namespace
