// What the device and the bus are told of the role of a client, in which order, and how a role is taken away.
#include "wl_client_role_fixture.h"

namespace {

class ClientRoleSent : public ClientRole {};

// What the neighbours are told.

TEST_F(ClientRoleSent, LimitsThenVlanThenDeviceThenTheBus) {
    const lines order = {"limit", "vlan", "open", "request", "event 44", "event 59"};
    ssid->per_user_bw_enable = 1;
    staff->per_user_bw_enable = 1;
    set();
    EXPECT_EQ(timeline, order);
    timeline.clear();
    role.rdp_method = 0;
    set();
    EXPECT_EQ(timeline, order);
}

TEST_F(ClientRoleSent, LinesComeInTheOrderOfTheSteps) {
    add_client(ssid, ALICE);
    EXPECT_EQ(set_lines(7),
              lines({SET + "Profile ID 1 Client Role staff mac 02:00:00:00:00:0A",
                     SET + "Client added successfully [Radius]", "get_role_id_by_role_name: rdp_method [Radius] ",
                     "get_role_id_by_role_name: role_info-> vendor_id[9] attribute_id[26]",
                     "get_role_id_by_role_name: rdp-> vendor_id[9] attribute_id[26]",
                     "get_role_id_by_role_name: Match type is Exact", "get_role_id_by_role_name: Role Ids : 100",
                     SET + "Role found for client :100 with Role { vlan[10] apply_ssid_firewall[0] "
                           "apply_ssid_portal_or_webq[0] apply_ssid_bw_limit[0] }",
                     "wl_send_cl_role: Sending client Role info for mac: - 02:00:00:00:00:0A, role: - staff",
                     "wl_send_applied_role: Sending Role applied event successful"}));
}

TEST_F(ClientRoleSent, TheDeviceIsAskedToAddTheRole) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    EXPECT_EQ(request, event_payload()
                           .bytes({1})
                           .bytes(ALICE)
                           .bytes(big_endian_bytes(1, 4))
                           .bytes(bytes_of_role(100, 9, 26, 1, "staff", 0xE0).bytes())
                           .bytes());
    EXPECT_EQ(request_number, 0x40046401U);
    EXPECT_TRUE(request_on_device);
}

TEST_F(ClientRoleSent, TheDeviceIsAskedToAddTheSsidAsARole) {
    role.vendor_id = 0x01020304;
    role.attr_id = 0x05060708;
    set();
    EXPECT_EQ(request, event_payload()
                           .bytes({1})
                           .bytes(ALICE)
                           .bytes(big_endian_bytes(1, 4))
                           .bytes(bytes_of_role(1, 0x01020304, 0x05060708, 1, "staff", 0).bytes())
                           .bytes());
}

TEST_F(ClientRoleSent, ADeviceThatRefusesChangesNothingElse) {
    device_result = -1;
    EXPECT_TRUE(holds(set_lines(3), "send_role_ioctl: ioctl_get_msg failed:-1"));
    EXPECT_EQ(timeline, lines({"vlan", "open", "request", "event 44", "event 59"}));
    EXPECT_EQ(alice()->role_ssid, staff);
}

TEST_F(ClientRoleSent, TheBusIsToldTheRole) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    set();
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].event, 44);
    EXPECT_EQ(sent[0].payload, cl_role("staff", 1));
    EXPECT_EQ(sent[1].event, 59);
    EXPECT_EQ(sent[1].payload, applied_role(bytes_of_debug("staff", 100, 1, 1, 1, 0)));
}

TEST_F(ClientRoleSent, TheBusIsToldWhetherThePortalIsInherited) {
    staff->role_flags.inherit_ssid_settings_enabled = 1;
    staff->flags.webq_enabled = 1;
    set();
    EXPECT_EQ(sent[0].payload, cl_role("staff", 0));
}

TEST_F(ClientRoleSent, TheBusIsToldTwoDashesWithoutARole) {
    std::strcpy(role.client_role, "nobody");
    set();
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].event, 44);
    EXPECT_EQ(sent[0].payload, cl_role("--", 0));
    EXPECT_EQ(sent[1].payload, applied_role(bytes_of_debug("net", 1, 1, 1, 0, 1)));
}

TEST_F(ClientRoleSent, TheBusIsNotToldTheNameOfAProfileThatIsNoRole) {
    staff->flags.is_role_profile = 0;
    set();
    EXPECT_EQ(timeline, lines({"vlan", "open", "request", "event 59"}));
    EXPECT_EQ(sent[0].payload, applied_role(bytes_of_debug("staff", 100, 1, 1, 1, 0)));
}

TEST_F(ClientRoleSent, TheBusIsToldHowTheRoleWasFound) {
    by_ou("crew");
    set();
    EXPECT_EQ(sent.back().payload, applied_role(bytes_of_debug("staff", 100, 2, 1, 3, 0)));
    by_id(100);
    set();
    EXPECT_EQ(sent.back().payload, applied_role(bytes_of_debug("staff", 100, 3, 0, 0, 0)));
    by_id(0);
    set();
    EXPECT_EQ(sent.back().payload, applied_role(bytes_of_debug("net", 1, 3, 0, 0, 1)));
    by_id(1);
    set();
    EXPECT_EQ(sent.back().payload, applied_role(bytes_of_debug("net", 1, 3, 0, 0, 1)));
}

TEST_F(ClientRoleSent, WithoutAnSsidInTheEventTheProfilesIsTold) {
    info.ssid = nullptr;
    std::strcpy(ssid->ssid, "other");
    set();
    EXPECT_EQ(sent.back().payload, event_payload()
                                       .header(ALICE, 1)
                                       .text(1, "other")
                                       .item(2, BSSID)
                                       .u32(5, 104)
                                       .u16(6, 44)
                                       .item(7, bytes_of_debug("staff", 100, 1, 1, 1, 0))
                                       .bytes());
}

TEST_F(ClientRoleSent, WithoutABssidInTheEventNoneIsTold) {
    info.bssid = nullptr;
    set();
    EXPECT_EQ(sent.back().payload, event_payload()
                                       .header(ALICE, 1)
                                       .text(1, "net")
                                       .u32(5, 104)
                                       .u16(6, 44)
                                       .item(7, bytes_of_debug("staff", 100, 1, 1, 1, 0))
                                       .bytes());
}

TEST_F(ClientRoleSent, WhatDoesNotFitInTheEventIsLeftOut) {
    std::string name(2029, 'x');
    info.ssid = name.data();
    set();
    EXPECT_EQ(sent.back().payload, event_payload()
                                       .header(ALICE, 1)
                                       .item(2, BSSID)
                                       .u32(5, 104)
                                       .u16(6, 44)
                                       .item(7, bytes_of_debug("staff", 100, 1, 1, 1, 0))
                                       .bytes());
    name.pop_back();
    set();
    EXPECT_EQ(sent.back().payload, event_payload().header(ALICE, 1).text(1, name).bytes());
    EXPECT_EQ(sent.back().payload.size(), 2047U);
}

TEST_F(ClientRoleSent, ASentRoleIsToldAtDebugLevel) {
    const std::string line = "wl_send_cl_role: Sending client Role info for mac: - 02:00:00:00:00:0A, role: - ";
    expect_set_logs(7, line + "staff");
    expect_set_logs(7, line + "--", [&] { role.rdp_method = 0; });
}

TEST_F(ClientRoleSent, ARoleThatNoProcessTookIsAnError) {
    for (const int result : {0, -1})
        expect_set_logs(3,
                        "wl_send_cl_role: FAILED: Sending client Role info for mac: - 02:00:00:00:00:0A, role: - staff",
                        [&] { send_results = {result}; });
}

TEST_F(ClientRoleSent, TheOutcomeOfAnAppliedRoleIsToldAtDebugLevel) {
    expect_set_logs(7, "wl_send_applied_role: Sending Role applied event successful");
    for (const int result : {0, -1})
        expect_set_logs(7, "wl_send_applied_role: Sending Role applied event failed", [&] {
            send_results = {1, result};
        });
}

TEST_F(ClientRoleSent, ARoleThatNoProcessTookIsInForceAllTheSame) {
    ssid->per_user_bw_enable = staff->per_user_bw_enable = 1;
    send_results = {-1, -1};
    set();
    EXPECT_EQ(timeline, lines({"limit", "vlan", "open", "request", "event 44", "event 59"}));
    ASSERT_NE(alice(), nullptr);
    const auto *const mine = reinterpret_cast<const uint8_t *>(&alice()->role_info);
    EXPECT_EQ(byte_string(mine, mine + 47), bytes_of_role(100, 9, 26, 1, "staff", 0).bytes());
    EXPECT_EQ(alice()->role_ssid, staff);
    EXPECT_EQ(alice()->ssid, ssid);
    EXPECT_EQ(alice()->cl_bw_info.down, 3000U);
    EXPECT_EQ(alice()->cl_bw_info.up, 4000U);
}

TEST_F(ClientRoleSent, AClientWhoseDisconnectNoProcessTookStaysInTheCacheWithWhatItSaid) {
    for (const int result : {1, 0, -1}) {
        begin();
        send_results = {result};
        by_id(300);
        set();
        EXPECT_EQ(timeline, lines{"event 50"});
        ASSERT_NE(alice(), nullptr);
        const auto *const mine = reinterpret_cast<const uint8_t *>(&alice()->role_info);
        EXPECT_EQ(byte_string(mine, mine + 47), bytes_of_role(0, 0, 0, 3, "", 0).bytes());
        EXPECT_EQ(alice()->role_ssid, nullptr);
    }
}

TEST_F(ClientRoleSent, AnyNumberOfReceiversIsASuccess) {
    send_results = {3, 2};
    const lines all = set_lines(7);
    EXPECT_TRUE(holds(all, "wl_send_cl_role: Sending client Role info for mac: - 02:00:00:00:00:0A, role: - staff"));
    EXPECT_TRUE(holds(all, "wl_send_applied_role: Sending Role applied event successful"));
}

TEST_F(ClientRoleSent, TheNameOfARoleIsPostedWithThirtyThreeBytesAtMost) {
    const std::string name(33, 'y');
    wl_send_cl_role(ALICE.data(), (name + "zzz").c_str(), 1, 1);
    EXPECT_EQ(sent.back().payload, cl_role(name, 1));
}

TEST_F(ClientRoleSent, ANameOfThirtyThreeBytesNeedsNoNul) {
    char name[33];
    std::memset(name, 'y', sizeof name);
    log_capture log(7);
    wl_send_cl_role(ALICE.data(), name, 1, 0);
    EXPECT_EQ(sent.back().payload, cl_role(std::string(33, 'y'), 0));
    EXPECT_EQ(log.lines(), lines{"wl_send_cl_role: Sending client Role info for mac: - 02:00:00:00:00:0A, role: - " +
                                 std::string(33, 'y')});
}

TEST_F(ClientRoleSent, ADisconnectWithoutAnSsidIsTheHeadAlone) {
    info.ssid = nullptr;
    send_client_disconnect(&info);
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].event, 50);
    EXPECT_EQ(sent[0].payload, event_payload().header(ALICE, 1).bytes());
}

TEST_F(ClientRoleSent, ADisconnectHasAsMuchOfTheSsidAsTheEventSays) {
    info.ssid_len = 2;
    send_client_disconnect(&info);
    EXPECT_EQ(sent[0].payload, event_payload().header(ALICE, 1).item(1, text_bytes("net")).bytes());
}

TEST_F(ClientRoleSent, AnSsidThatDoesNotFitInADisconnectIsLeftOut) {
    std::string name(2029, 'x');
    info.ssid = name.data();
    info.ssid_len = 2029;
    send_client_disconnect(&info);
    EXPECT_EQ(sent.back().payload, event_payload().header(ALICE, 1).bytes());
    name.pop_back();
    info.ssid_len = 2028;
    send_client_disconnect(&info);
    EXPECT_EQ(sent.back().payload, event_payload().header(ALICE, 1).text(1, name).bytes());
}

// The device.

TEST_F(ClientRoleSent, TheDeviceIsTriedUntilItOpens) {
    opens_that_fail = 3;
    wl_client_info *const client = add_client(ssid, ALICE);
    log_capture log(7);
    EXPECT_EQ(send_role_ioctl(ssid, client, ADD_CLIENT_ROLE), 0);
    EXPECT_EQ(timeline, lines({"open", "open", "open", "open", "request"}));
    EXPECT_EQ(log.lines(), lines(3, "send_role_ioctl: Can't open device file: /dev/app_visibility"));
}

TEST_F(ClientRoleSent, ADeviceThatDoesNotOpenIsToldAtDebugLevel) {
    opens_that_fail = 3;
    log_capture log(6);
    EXPECT_EQ(send_role_ioctl(ssid, add_client(ssid, ALICE), ADD_CLIENT_ROLE), 0);
    EXPECT_EQ(log.lines(), lines{});
}

TEST_F(ClientRoleSent, TheDeviceIsOpenedForReadingAndClosed) {
    for (const int result : {0, -1}) {
        device_result = result;
        (void)send_role_ioctl(ssid, add_client(ssid, result == 0 ? ALICE : BOB), ADD_CLIENT_ROLE);
        EXPECT_EQ(device_flags & O_ACCMODE, O_RDONLY);
        EXPECT_NE(device_flags & O_CLOEXEC, 0);
        EXPECT_EQ(fcntl(device, F_GETFD), -1);
    }
}

TEST_F(ClientRoleSent, ADeviceThatRefusesIsAnError) {
    wl_client_info *const client = add_client(ssid, ALICE);
    device_result = -1;
    for (const int level : {3, 2}) {
        log_capture log(level);
        EXPECT_EQ(send_role_ioctl(ssid, client, ADD_CLIENT_ROLE), -1);
        EXPECT_EQ(log.lines(), level == 3 ? lines{"send_role_ioctl: ioctl_get_msg failed:-1"} : lines{});
    }
}

TEST_F(ClientRoleSent, APositiveAnswerOfTheDeviceIsASuccess) {
    device_result = 4;
    EXPECT_EQ(send_role_ioctl(ssid, add_client(ssid, ALICE), ADD_CLIENT_ROLE), 0);
}

TEST_F(ClientRoleSent, WithContentAnalyticsADeletedRoleIsCleared) {
    wl_client_info *const client = add_client(ssid, ALICE);
    const auto action = [&](role_ioctl_action wanted) {
        EXPECT_EQ(send_role_ioctl(ssid, client, wanted), 0);
        return int{request[0]};
    };
    EXPECT_EQ(action(ADD_CLIENT_ROLE), 1);
    EXPECT_EQ(action(DELETE_CLIENT_ROLE), 2);
    EXPECT_EQ(action(CLEAR_ROLE_INFO), 3);
    ssid->flags.content_analytics_enabled = 1;
    EXPECT_EQ(action(ADD_CLIENT_ROLE), 1);
    EXPECT_EQ(action(DELETE_CLIENT_ROLE), 3);
    EXPECT_EQ(action(CLEAR_ROLE_INFO), 3);
}

TEST_F(ClientRoleSent, TheRequestHasTheNameByItsBytes) {
    wl_client_info *const client = add_client(ssid, ALICE);
    std::memset(client->role_info.client_role, 'z', sizeof client->role_info.client_role);
    client->role_info.role_id = 0x0A0B0C0D;
    client->role_info.apply_ssid_portal_or_webq = 1;
    EXPECT_EQ(send_role_ioctl(ssid, client, CLEAR_ROLE_INFO), 0);
    EXPECT_EQ(request, event_payload()
                           .bytes({3})
                           .bytes(ALICE)
                           .bytes(big_endian_bytes(1, 4))
                           .bytes(bytes_of_role(0x0A0B0C0D, 0, 0, 0, std::string(33, 'z'), 0x40).bytes())
                           .bytes());
}

// Taking a role away.

TEST_F(ClientRoleSent, ClearingTellsTheDeviceAndForgetsTheClient) {
    set();
    timeline.clear();
    clear();
    EXPECT_EQ(timeline, lines({"open", "request"}));
    EXPECT_EQ(request, event_payload()
                           .bytes({2})
                           .bytes(ALICE)
                           .bytes(big_endian_bytes(1, 4))
                           .bytes(bytes_of_role(100, 9, 26, 1, "staff", 0).bytes())
                           .bytes());
    EXPECT_EQ(alice(), nullptr);
}

TEST_F(ClientRoleSent, ClearingIsToldAtDebugLevel) {
    expect_logged(7, "handle_client_role_clear: Client deleted successfully", [&] {
        begin();
        add_client(ssid, ALICE);
        clear();
    });
}

TEST_F(ClientRoleSent, ClearingForgetsAlsoAnActiveClientWithKeyAndLogin) {
    wl_client_info *const client = add_client(ssid, ALICE);
    client->is_active = 1;
    give_pmk(client);
    give_login(client);
    client->google_ou = strdup("crew");
    clear();
    EXPECT_EQ(alice(), nullptr);
}

TEST_F(ClientRoleSent, ClearingForgetsOneClientOnly) {
    add_client(ssid, ALICE);
    add_client(ssid, BOB);
    clear();
    EXPECT_EQ(alice(), nullptr);
    EXPECT_NE(find(ssid, BOB), nullptr);
}

TEST_F(ClientRoleSent, ADeviceThatRefusesDoesNotKeepTheClient) {
    add_client(ssid, ALICE);
    device_result = -1;
    clear();
    EXPECT_EQ(alice(), nullptr);
}

TEST_F(ClientRoleSent, ClearingWithContentAnalyticsClears) {
    ssid->flags.content_analytics_enabled = 1;
    add_client(ssid, ALICE);
    clear();
    EXPECT_EQ(request[0], 3);
}

TEST_F(ClientRoleSent, ClearingWhatIsNotThereDoesNothing) {
    for (const uint32_t id : {1, 5, 100}) {
        info.profile_id = id;
        log_capture log(7);
        clear();
        EXPECT_EQ(log.lines(), lines{}) << id;
    }
    expect_nothing_done();
}

TEST_F(ClientRoleSent, AClearedClientCanComeAgain) {
    set();
    clear();
    set();
    EXPECT_EQ(alice()->role_ssid, staff);
}

}  // namespace
