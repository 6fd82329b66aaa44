// Registration of SSIDs with the synch agent, its answers, requests to the neighbours and the announcement of portal
// logins. The state of the interfaces is the test's.
#include "wl_synch.h"

#include "test_clock.h"
#include "wl_synch_fixture.h"

namespace {

bool interface_is_up;
std::vector<std::string> interfaces_asked;

}  // namespace

extern "C" int __wrap__Z11is_iface_upPKc(const char *name) {
    interfaces_asked.push_back(name != nullptr ? name : "(null)");
    return interface_is_up ? 0 : -1;
}

namespace {

constexpr char REGISTER[] = "01 20 00 00 00 03 00 1C FF FF FF FF FF FF 'net' "
                            "0A 04 'eth0' 0B 04 00 00 04 08 0C 0E 'wl_evt_handler'";
constexpr char UNREGISTER[] = "01 23 00 00 00 03 00 1C FF FF FF FF FF FF 'net' "
                              "0A 04 'eth0' 0B 04 00 00 04 08 0C 0E 'wl_evt_handler'";
constexpr char REQUEST_1[] = "01 0A 02 00 01 03 00 03 FF FF FF FF FF FF 'net' 1E 01 01";
constexpr char REQUEST_0[] = "01 0A 02 00 01 03 00 03 FF FF FF FF FF FF 'net' 1E 01 00";

constexpr char DOWN[] = "register_ssid_with_synch_agent: Interface [eth0] is not UP/Running, not sending register "
                        "request, try again.";
constexpr char NULL_PROFILE[] = "NULL ssid_profile_info passed for registering with synch_agent.";
constexpr char LOGIN_OVER[] = "send_cl_portal_login_packet: Completed with blaskout time. This entry should have been "
                              "deleted. Not sending synch pakcet.";

packets packets_of(const char *text) {
    return {bytes_of(text)};
}

/// Has the daemon handle a packet of the agent that has no payload.
int handle(uint8_t type, uint8_t subtype, const std::string &appid) {
    byte_string packet{1, type, 2, 0, subtype, static_cast<uint8_t>(appid.size()), 0, 0, 2, 0, 0, 0, 0, 9};
    packet = packet + text_bytes(appid);
    return handle_synch_packet(packet.data(), static_cast<int>(packet.size()));
}

void from_agent(uint8_t type, uint8_t subtype, const std::string &appid) {
    EXPECT_EQ(handle(type, subtype, appid), 0);
}

/// Makes the 1st, 2nd, ... allocation of `action` fail until none is left to fail; expects `allocations` of them.
void sweep_allocations(int allocations, const std::function<void(int failed)> &action) {
    for (int failed = 1; failed <= allocations + 1; failed++) {
        fail_nth_call("calloc", failed);
        action(failed);
        EXPECT_EQ(faults_fired("calloc"), failed <= allocations ? 1 : 0) << failed;
    }
    clear_faults();
}

class Synch : public SynchFixture {
protected:
    Synch() {
        interface_is_up = true;
        interfaces_asked.clear();
        std::strcpy(g_comm_vlan_iface_name, "br0.12");
        test_time = 1'700'000'000;
    }

    ssid_profile_info *profile = add_profile(1);
};

}  // namespace

TEST_F(Synch, RegistrationNamesTheInterfaceTheNumberAndTheProgram) {
    EXPECT_EQ(register_ssid_with_synch_agent(profile), 0);
    EXPECT_EQ(sent(), packets_of(REGISTER));
    EXPECT_EQ(interfaces_asked, lines{"eth0"});
}

TEST_F(Synch, OnlyTheAnswerMakesAProfileRegistered) {
    EXPECT_EQ(register_ssid_with_synch_agent(profile), 0);
    EXPECT_EQ(profile->synch_registered, 0);
    from_agent(33, 0, "net");
    EXPECT_EQ(profile->synch_registered, 1);
}

TEST_F(Synch, RegistrationOfNoProfileIsLogged) {
    expect_logged(3, std::string("register_ssid_with_synch_agent: ") + NULL_PROFILE,
                  [] { EXPECT_EQ(register_ssid_with_synch_agent(nullptr), -1); });
}

TEST_F(Synch, AProfileOfAnotherPathIsNotRegistered) {
    for (const uint8_t path : {0, 1, 3, 255}) {
        profile->iapc_path = path;
        const auto text = "register_ssid_with_synch_agent: Packet path is [" + std::to_string(path) +
                          "]. Not registering with synch agent.";
        expect_logged(7, text, [this] { EXPECT_EQ(register_ssid_with_synch_agent(profile), -1); });
    }
    EXPECT_EQ(sent(), packets{});
    EXPECT_EQ(interfaces_asked, lines{});
    EXPECT_EQ(profile->nack, 0);
}

TEST_F(Synch, AnInterfaceThatIsDownIsTriedAgainAndLoggedEveryTime) {
    interface_is_up = false;
    EXPECT_EQ(lines_at_level(7, [this] { EXPECT_EQ(register_ssid_with_synch_agent(profile), -1); }), lines{DOWN});
    EXPECT_EQ(profile->nack, 1);
    EXPECT_EQ(g_synch_nack_count, 1);
    expect_logged(3, DOWN, [this] { EXPECT_EQ(register_ssid_with_synch_agent(profile), -1); });
    EXPECT_EQ(g_synch_nack_count, 1);  // counted once
    EXPECT_EQ(sent(), packets{});
}

TEST_F(Synch, AMissingInterfaceNameIsDown) {
    std::free(profile->external_interface);
    profile->external_interface = nullptr;
    interface_is_up = false;
    expect_logged(3,
                  "register_ssid_with_synch_agent: Interface [(null)] is not UP/Running, not sending register request, "
                  "try again.",
                  [this] { EXPECT_EQ(register_ssid_with_synch_agent(profile), -1); });
}

TEST_F(Synch, AMeshIsNotRegisteredAndCountsAsDone) {
    profile->flags.is_mesh_enabled = 1;
    profile->nack = 1;
    g_synch_nack_count = 1;
    EXPECT_EQ(check_and_register_ssids(0), 0);
    EXPECT_EQ(sent(), packets{});
    EXPECT_EQ(profile->synch_registered, 0);
    EXPECT_EQ(profile->nack, 0);
    EXPECT_EQ(g_synch_nack_count, 0);
}

TEST_F(Synch, AMeshOnAnInterfaceThatIsDownIsTriedAgain) {
    profile->flags.is_mesh_enabled = 1;
    interface_is_up = false;
    EXPECT_EQ(register_ssid_with_synch_agent(profile), -1);
    EXPECT_EQ(profile->nack, 1);
}

TEST_F(Synch, RemoteBridgingWithoutRemoteAccessPointsUsesTheCommunicationVlan) {
    for (const bool unregister : {false, true}) {
        for (const int bridging : {0, 1, 2}) {
            for (const int remote : {0, 1, 2}) {
                profile->ena_remote_bridging = static_cast<uint8_t>(bridging);
                profile->remote_iapc_enabled = static_cast<uint8_t>(remote);
                EXPECT_EQ(unregister ? unregister_ssid_with_synch_agent(profile)
                                     : register_ssid_with_synch_agent(profile),
                          0);
                const bool vlan = bridging == 1 && remote == 0;
                byte_string expected = bytes_of(unregister ? UNREGISTER : REGISTER);
                if (vlan) {
                    expected[7] = 0x1E;
                    expected[18] = 6;
                    expected.erase(expected.begin() + 19, expected.begin() + 23);
                    const byte_string name = text_bytes("br0.12");
                    expected.insert(expected.begin() + 19, name.begin(), name.end());
                }
                EXPECT_EQ(sent(), packets{expected}) << bridging << remote;
                if (!unregister) {
                    EXPECT_EQ(interfaces_asked.back(), vlan ? "br0.12" : "eth0");
                }
            }
        }
    }
}

TEST_F(Synch, RegistrationThatCannotBeSentDropsTheConnectionAndSucceeds) {
    profile->synch_registered = 1;
    stop_agent();
    EXPECT_EQ(register_ssid_with_synch_agent(profile), 0);
    EXPECT_EQ(g_synch_sock, -1);
    EXPECT_EQ(profile->synch_registered, 0);
}

TEST_F(Synch, RegistrationWithoutMemoryIsNotSentAndSucceeds) {
    const int connection = g_synch_sock;
    sweep_allocations(1, [&](int failed) {
        const lines log = lines_at_level(6, [&] { EXPECT_EQ(register_ssid_with_synch_agent(profile), 0); });
        EXPECT_EQ(log, failed == 1 ? lines{NO_MEMORY} : lines{});
        EXPECT_EQ(sent(), failed == 1 ? packets{} : packets_of(REGISTER));
        EXPECT_EQ(g_synch_sock, connection);
        EXPECT_EQ(profile->nack, 0);
    });
}

TEST_F(Synch, ARetryWithoutMemoryIsTakenOffTheCount) {
    sweep_allocations(1, [&](int failed) {
        profile->nack = 1;
        g_synch_nack_count = 1;
        EXPECT_EQ(check_and_register_ssids(0), 0);
        EXPECT_EQ(sent(), failed == 1 ? packets{} : packets_of(REGISTER));
        EXPECT_EQ(profile->nack, 0);
        EXPECT_EQ(g_synch_nack_count, 0);
    });
}

TEST_F(Synch, ProfilesBehindOneWithoutMemoryAreRegistered) {
    add_profile(2);
    add_profile(3);
    sweep_allocations(3, [&](int failed) {
        EXPECT_EQ(check_and_register_ssids(1), 0);
        EXPECT_EQ(sent().size(), failed <= 3 ? 2U : 3U);
    });
}

TEST_F(Synch, UnregistrationWithoutMemoryIsNotSentAndSucceeds) {
    const int connection = g_synch_sock;
    sweep_allocations(1, [&](int failed) {
        EXPECT_EQ(unregister_ssid_with_synch_agent(profile), 0);
        EXPECT_EQ(sent(), failed == 1 ? packets{} : packets_of(UNREGISTER));
        EXPECT_EQ(g_synch_sock, connection);
    });
}

TEST_F(Synch, WithoutTheSensorsFileRemoteBridgingHasNoInterface) {
    std::strcpy(g_comm_vlan_iface_name, "");
    set_comm_vlan_iface_name();
    profile->ena_remote_bridging = 1;
    interface_is_up = false;
    expect_logged(3,
                  "register_ssid_with_synch_agent: Interface [] is not UP/Running, not sending register request, try "
                  "again.",
                  [this] { EXPECT_EQ(register_ssid_with_synch_agent(profile), -1); });
    EXPECT_EQ(interfaces_asked.back(), "");
    EXPECT_EQ(profile->nack, 1);
    EXPECT_EQ(sent(), packets{});
    EXPECT_EQ(unregister_ssid_with_synch_agent(profile), 0);
    EXPECT_EQ(sent(), packets_of("01 23 00 00 00 03 00 18 FF FF FF FF FF FF 'net' "
                                 "0A 00 0B 04 00 00 04 08 0C 0E 'wl_evt_handler'"));
}

TEST_F(Synch, UnregistrationAsksNeitherForTheInterfaceNorForAMesh) {
    profile->flags.is_mesh_enabled = 1;
    interface_is_up = false;
    EXPECT_EQ(unregister_ssid_with_synch_agent(profile), 0);
    EXPECT_EQ(sent(), packets_of(UNREGISTER));
    EXPECT_EQ(interfaces_asked, lines{});
}

TEST_F(Synch, UnregistrationThatCannotBeSentSucceeds) {
    stop_agent();
    EXPECT_EQ(unregister_ssid_with_synch_agent(profile), 0);
    EXPECT_EQ(g_synch_sock, -1);
}

TEST_F(Synch, UnregistrationOfAProfileOfAnotherPathIsRefused) {
    profile->iapc_path = 1;
    expect_logged(7,
                  "unregister_ssid_with_synch_agent: Packet path is [1]. Not unregistering since didn't register "
                  "earlier.",
                  [this] { EXPECT_EQ(unregister_ssid_with_synch_agent(profile), -1); });
    EXPECT_EQ(sent(), packets{});
}

TEST_F(Synch, UnregistrationOfNoProfileIsLoggedAsARegistration) {
    expect_logged(3, std::string("unregister_ssid_with_synch_agent: ") + NULL_PROFILE,
                  [] { EXPECT_EQ(unregister_ssid_with_synch_agent(nullptr), -1); });
}

TEST_F(Synch, ANewConnectionRegistersEveryProfile) {
    add_profile(2)->synch_registered = 1;
    add_profile(3)->iapc_path = 1;
    EXPECT_EQ(check_and_register_ssids(1), 0);
    EXPECT_EQ(sent(), (packets{bytes_of(REGISTER), bytes_of(REGISTER)}));
}

TEST_F(Synch, AConnectionLostByTheFirstProfileRegistersNoneAndTheNextOneAll) {
    ssid_profile_info *const all[] = {profile, add_profile(2), add_profile(3)};
    for (ssid_profile_info *const each : all)
        each->nack = each->synch_registered = 1;
    g_synch_nack_count = 3;
    stop_agent();
    const lines log = lines_at_level(3, [] { EXPECT_EQ(check_and_register_ssids(1), 0); });
    EXPECT_EQ(log, (lines{send_failed("Broken pipe"), send_failed("Bad file descriptor"),
                          send_failed("Bad file descriptor")}));
    EXPECT_EQ(g_synch_sock, -1);
    EXPECT_EQ(g_synch_nack_count, 0);
    for (const ssid_profile_info *const each : all)
        EXPECT_EQ(each->nack + each->synch_registered, 0) << each->profile_id;

    connect();
    EXPECT_EQ(check_and_register_ssids(1), 0);
    EXPECT_EQ(sent(), (packets{bytes_of(REGISTER), bytes_of(REGISTER), bytes_of(REGISTER)}));
}

TEST_F(Synch, ARetryRegistersOnlyRefusedProfiles) {
    ssid_profile_info *const refused = add_profile(2, "two");
    refused->nack = 1;
    g_synch_nack_count = 1;
    EXPECT_EQ(check_and_register_ssids(0), 0);
    byte_string expected = bytes_of(REGISTER);
    std::memcpy(&expected[14], "two", 3);
    EXPECT_EQ(sent(), packets{expected});
    EXPECT_EQ(refused->nack, 0);
    EXPECT_EQ(g_synch_nack_count, 0);
    EXPECT_EQ(check_and_register_ssids(0), 0);
    EXPECT_EQ(sent(), packets{});
}

TEST_F(Synch, ARetryEndsWhenTheCountIsUsedUp) {
    ssid_profile_info *const other = add_profile(2);
    profile->nack = other->nack = 1;
    g_synch_nack_count = 1;
    EXPECT_EQ(check_and_register_ssids(0), 0);
    EXPECT_EQ(sent().size(), 1U);
    EXPECT_EQ(profile->nack + other->nack, 1);
    EXPECT_EQ(g_synch_nack_count, 0);
}

TEST_F(Synch, ARetryWithoutACountDoesNothing) {
    profile->nack = 1;
    EXPECT_EQ(check_and_register_ssids(0), 0);
    EXPECT_EQ(sent(), packets{});
    EXPECT_EQ(profile->nack, 1);
}

TEST_F(Synch, ARefusedProfileStaysRefusedWhileItsInterfaceIsDown) {
    profile->nack = 1;
    g_synch_nack_count = 1;
    interface_is_up = false;
    for (const int all : {0, 1}) {
        EXPECT_EQ(check_and_register_ssids(all), 0);
        EXPECT_EQ(profile->nack, 1);
        EXPECT_EQ(g_synch_nack_count, 1);
    }
}

TEST_F(Synch, ANewConnectionTakesRefusedProfilesOffTheCount) {
    add_profile(2);  // not refused
    profile->nack = 1;
    g_synch_nack_count = 2;
    EXPECT_EQ(check_and_register_ssids(1), 0);
    EXPECT_EQ(profile->nack, 0);
    EXPECT_EQ(g_synch_nack_count, 1);
}

TEST_F(Synch, ACountOfNoneIsNotLowered) {
    profile->nack = 1;
    EXPECT_EQ(check_and_register_ssids(1), 0);
    EXPECT_EQ(sent(), packets_of(REGISTER));
    EXPECT_EQ(profile->nack, 1);
    EXPECT_EQ(g_synch_nack_count, 0);
}

TEST_F(Synch, WithoutProfilesThereIsNothingToRegister) {
    hash_table_delete(ssid_profile_list, &profile->profile_id);
    EXPECT_EQ(check_and_register_ssids(1), 0);
    EXPECT_EQ(sent(), packets{});
}

TEST_F(Synch, AnAcceptedRegistrationSendsThePendingRequest) {
    profile->send_cl_info_req = 1;
    const lines log = lines_at_level(7, [] { from_agent(33, 5, "net"); });
    EXPECT_EQ(sent(), packets_of(REQUEST_1));
    EXPECT_EQ(profile->send_cl_info_req, 0);
    EXPECT_EQ(profile->synch_registered, 1);
    const lines expected{
        "handle_synch_packet: Received synch agent packet type : 33 subtype : 5 for appid(ssid) : [net]",
        "process_synch_packet: SSID [net] Matched for interface [eth0] for packet [type:33 subtype:5]",
        "process_synch_packet: Registration with synch-agent successful for [net]",
        "send_cl_info_req_packet: Sending cl info req packet for ssid 'net'",
        "send_packet_to_synch_agent: Sending packet to synchagent. pkt type [10] subtype [1] payload/tlv len[3]"};
    EXPECT_EQ(log, expected);
}

TEST_F(Synch, AnAcceptedRegistrationSendsNothingWithoutAPendingRequest) {
    from_agent(33, 0, "net");
    EXPECT_EQ(sent(), packets{});
    EXPECT_EQ(profile->synch_registered, 1);
}

TEST_F(Synch, AnAcceptedProfileIsRegisteredAlsoWhenItsRequestDropsTheConnection) {
    profile->send_cl_info_req = 1;
    stop_agent();
    from_agent(33, 0, "net");
    EXPECT_EQ(g_synch_sock, -1);
    EXPECT_EQ(profile->send_cl_info_req, 0);
    EXPECT_EQ(profile->synch_registered, 1);
}

TEST_F(Synch, AnAnswerIsMatchedAndAcceptedAtLevel7) {
    for (const char *const line :
         {"process_synch_packet: SSID [net] Matched for interface [eth0] for packet [type:33 subtype:0]",
          "process_synch_packet: Registration with synch-agent successful for [net]"})
        expect_logged(7, line, [] { from_agent(33, 0, "net"); });
}

TEST_F(Synch, AnAcceptedProfileIsRegisteredAlsoWithoutMemoryForItsRequest) {
    const int connection = g_synch_sock;
    sweep_allocations(2, [&](int failed) {  // the SSID of the answer, the request
        profile->send_cl_info_req = 1;
        profile->synch_registered = 0;
        EXPECT_EQ(handle(33, 0, "net"), failed == 1 ? -1 : 0);
        EXPECT_EQ(sent(), failed <= 2 ? packets{} : packets_of(REQUEST_1));
        EXPECT_EQ(profile->synch_registered, failed == 1 ? 0 : 1);
        EXPECT_EQ(profile->send_cl_info_req, failed == 1 ? 1 : 0);
        EXPECT_EQ(g_synch_sock, connection);
    });
}

TEST_F(Synch, OfTwoProfilesBothAreRegisteredWhenTheRequestOfTheFirstDropsTheConnection) {
    ssid_profile_info *const other = add_profile(2);
    profile->send_cl_info_req = other->send_cl_info_req = 1;
    stop_agent();
    const lines log = lines_at_level(3, [] { from_agent(33, 0, "net"); });
    EXPECT_EQ(lines(log.begin() + 1, log.end()),
              (lines{send_failed("Broken pipe"), send_failed("Bad file descriptor")}));
    EXPECT_EQ(g_synch_sock, -1);
    EXPECT_EQ(profile->synch_registered + other->synch_registered, 2);
    EXPECT_EQ(profile->send_cl_info_req + other->send_cl_info_req, 0);
}

TEST_F(Synch, OfTwoProfilesTheFirstIsNotRegisteredWhenTheRequestOfTheSecondDropsTheConnection) {
    add_profile(2);
    hash_table_iter_t profiles;
    hash_table_iter_init(ssid_profile_list, &profiles);
    ssid_profile_info *in_order[2];
    for (ssid_profile_info *&each : in_order) {
        ASSERT_NE(hash_table_iter_next(&profiles), 0);
        each = static_cast<ssid_profile_info *>(profiles.entry->value);
    }
    in_order[1]->send_cl_info_req = 1;
    stop_agent();
    from_agent(33, 0, "net");
    EXPECT_EQ(in_order[0]->synch_registered, 0);
    EXPECT_EQ(in_order[1]->synch_registered, 1);
}

TEST_F(Synch, AnAcceptedProfileThatWasRefusedStaysCounted) {
    profile->nack = 1;
    g_synch_nack_count = 1;
    from_agent(33, 0, "net");
    EXPECT_EQ(profile->nack, 1);
    EXPECT_EQ(g_synch_nack_count, 1);
}

TEST_F(Synch, ARefusedRegistrationIsCountedOnceAndTriedAgain) {
    const std::string failed = "process_synch_packet: Registration with synch-agent failed for [net]";
    expect_logged(7, failed, [] { from_agent(34, 0, "net"); });
    EXPECT_EQ(profile->nack, 1);
    EXPECT_EQ(g_synch_nack_count, 1);
    EXPECT_EQ(profile->synch_registered, 0);
    EXPECT_EQ(sent(), packets{});

    EXPECT_EQ(check_and_register_ssids(0), 0);
    EXPECT_EQ(sent(), packets_of(REGISTER));
    EXPECT_EQ(g_synch_nack_count, 0);
    from_agent(34, 0, "net");
    EXPECT_EQ(g_synch_nack_count, 1);
}

TEST_F(Synch, ARefusalLeavesTheRegistrationAndThePendingRequestAsTheyAre) {
    profile->synch_registered = 1;
    profile->send_cl_info_req = 1;
    from_agent(34, 0, "net");
    EXPECT_EQ(profile->synch_registered, 1);
    EXPECT_EQ(profile->send_cl_info_req, 1);
}

TEST_F(Synch, TheCountHas8Bits) {
    g_synch_nack_count = 255;
    from_agent(34, 0, "net");
    EXPECT_EQ(profile->nack, 1);
    EXPECT_EQ(g_synch_nack_count, 0);
}

TEST_F(Synch, AnAnswerIsForEveryProfileOfItsSsid) {
    ssid_profile_info *const other = add_profile(2);
    from_agent(33, 0, "net");
    EXPECT_EQ(profile->synch_registered, 1);
    EXPECT_EQ(other->synch_registered, 1);
    from_agent(34, 0, "net");
    EXPECT_EQ(g_synch_nack_count, 2);
}

TEST_F(Synch, AnAnswerIsForNoOtherSsid) {
    for (const std::string ssid : {"ne", "nets", "Net", "", "n"})
        from_agent(33, 0, ssid);
    from_agent(33, 0, std::string("net\0", 4));
    from_agent(33, 0, std::string("ne\0", 3));
    EXPECT_EQ(profile->synch_registered, 0);
}

TEST_F(Synch, AnAnswerIsForNoProfileOfAnotherPath) {
    profile->iapc_path = 1;
    EXPECT_EQ(lines_at_level(7, [] { from_agent(33, 0, "net"); }).size(), 1U);
    EXPECT_EQ(profile->synch_registered, 0);
}

TEST_F(Synch, AnSsidOf32CharactersIsMatchedWhole) {
    const std::string ssid(32, 's');
    ssid_profile_info *const other = add_profile(2, ssid);
    from_agent(33, 0, ssid.substr(1));
    EXPECT_EQ(other->synch_registered, 0);
    from_agent(33, 0, ssid);
    EXPECT_EQ(other->synch_registered, 1);
}

TEST_F(Synch, AnAnswerWithoutAnSsidIsForAProfileWithout) {
    ssid_profile_info *const role = add_profile(2, "");
    from_agent(33, 0, "");
    EXPECT_EQ(role->synch_registered, 1);
    EXPECT_EQ(profile->synch_registered, 0);
}

TEST_F(Synch, TheAnswersOfOtherAccessPointsAreNotForTheDaemon) {
    expect_logged(3, "process_synch_packet: Packet subtype [2] recevied (which should not be received) for type [10].",
                  [] { from_agent(10, 2, "net"); });
    EXPECT_EQ(sent(), packets{});
}

TEST_F(Synch, AnUnknownSubtypeOfClientInformationIsLogged) {
    for (const int subtype : {0, 3, 255})
        expect_logged(
            3, "process_synch_packet: Invalid packet subtype [" + std::to_string(subtype) + "] recevied for type [10].",
            [=] { from_agent(10, static_cast<uint8_t>(subtype), "net"); });
    EXPECT_EQ(sent(), packets{});
}

TEST_F(Synch, AnUnknownTypeIsLogged) {
    char ssid[] = "net";
    const app_header header{1, 32, 2, 0, 3, 7, 0, {}, ssid};
    expect_logged(3, "process_synch_packet: Invalid packet type [32] subtype [7].",
                  [&] { process_synch_packet(nullptr, &header); });
}

TEST_F(Synch, ARequestIsAnsweredForEveryProfileOfItsSsid) {
    add_key(add_client(profile, 1), "one");
    add_key(add_client(add_profile(2), 2), "two");
    from_agent(10, 1, "net");
    const packets answers = sent();
    ASSERT_EQ(answers.size(), 2U);
    const auto header = bytes_of("01 0A 02 00 02 03 00 3C 02 00 00 00 00 09 'net' 00 01 00 38 0A 06 02 00 00 00 00");
    for (uint8_t client = 1; client <= 2; client++)
        EXPECT_EQ(byte_string(answers[client - 1].begin(), answers[client - 1].begin() + 29),
                  header + byte_string{client});
}

TEST_F(Synch, ALostConnectionLeavesNoProfileRegistered) {
    ssid_profile_info *const other = add_profile(2);
    profile->synch_registered = other->synch_registered = 1;
    profile->nack = 1;
    synch_disconn_update_ssid_profiles();
    EXPECT_EQ(profile->synch_registered + other->synch_registered, 0);
    EXPECT_EQ(profile->nack, 1);
}

TEST_F(Synch, ANewNeighbourIsAskedForTheClientsOfEverySsid) {
    profile->synch_registered = 1;
    add_profile(2);
    add_profile(3)->iapc_path = 1;
    expect_logged(2,
                  "handle_rf_neighbor_list_update: RF neighbor list update packet received.Will send Cl info request "
                  "packet for each SSID.",
                  [this] {
                      from_agent(36, 0, "any");
                      EXPECT_EQ(sent(), (packets{bytes_of(REQUEST_0), bytes_of(REQUEST_0)}));
                  });
}

TEST_F(Synch, ARequestCarriesItsFlag) {
    profile->iapc_path = 9;  // of no account here
    const std::string line = "send_cl_info_req_packet: Sending cl info req packet for ssid 'net'";
    expect_logged(7, line, [this] { EXPECT_EQ(send_cl_info_req_packet(profile, 1), 0); });
    EXPECT_EQ(sent(), (packets{bytes_of(REQUEST_1), bytes_of(REQUEST_1)}));
    EXPECT_EQ(send_cl_info_req_packet(profile, 0), 0);
    EXPECT_EQ(sent(), packets_of(REQUEST_0));
}

TEST_F(Synch, ARequestThatCannotBeSentDropsTheConnection) {
    stop_agent();
    EXPECT_EQ(send_cl_info_req_packet(profile, 1), -1);
    EXPECT_EQ(g_synch_sock, -1);
}

TEST_F(Synch, APortalLoginIsAnnouncedWithoutThePrefixOfARecord) {
    profile->iapc_path = 7;  // sent whatever it is
    wl_client_info *const client = add_client(profile, 0x1AF);
    add_login(client, 1'700'000'060, 1'700'000'100);
    EXPECT_EQ(lines_at_level(6, [&] { send_cl_portal_login_packet(profile, client); }), lines{});
    EXPECT_EQ(sent(), packets_of("01 03 07 00 01 03 00 30 FF FF FF FF FF FF 'net' "
                                 "08 14 '02:00:00:00:01:AF' 00 00 00 07 0C '192.168.1.20' "
                                 "06 04 00 00 00 3C 10 04 00 00 00 28"));
}

TEST_F(Synch, APortalLoginIsAnnouncedUntilItsBlackoutIsOver) {
    wl_client_info *const client = add_client(profile, 1);
    portal_cl_auth_info *const auth = add_login(client, 1'699'999'000, 1'700'000'001);
    send_cl_portal_login_packet(profile, client);
    EXPECT_EQ(sent().size(), 1U);
    for (const int32_t over : {1'700'000'000, 1'699'999'999, 0, -1}) {
        auth->blackout_expire = over;
        expect_logged(3, LOGIN_OVER, [&] { send_cl_portal_login_packet(profile, client); });
    }
    EXPECT_EQ(sent(), packets{});
}

TEST_F(Synch, AClientWithoutAPortalLoginIsLoggedAsOneWhoseBlackoutIsOver) {
    wl_client_info *const client = add_client(profile, 1);
    expect_logged(3, LOGIN_OVER, [&] { send_cl_portal_login_packet(profile, client); });
    client->portal_cl_info = static_cast<portal_cl_info *>(std::calloc(1, sizeof(portal_cl_info)));
    expect_logged(3, LOGIN_OVER, [&] { send_cl_portal_login_packet(profile, client); });
    EXPECT_EQ(sent(), packets{});
}

TEST_F(Synch, AnAnnouncementCarriesTheUserAndTheLimitsOfItsProfile) {
    profile->portal_radius_acc_enabled = profile->per_user_bw_enable = 1;
    wl_client_info *const client = add_client(profile, 1);
    portal_cl_auth_info *const auth = add_login(client, 1'700'000'060, 1'700'000'100);
    std::strcpy(auth->username, "alice");
    auth->login_time = 0x01020304;
    auth->bw_download_limit = 0x11121314;
    auth->bw_upload_limit = 0x21222324;
    send_cl_portal_login_packet(profile, client);
    EXPECT_EQ(sent(), packets_of("01 03 02 00 01 03 00 49 FF FF FF FF FF FF 'net' "
                                 "08 14 '02:00:00:00:00:01' 00 00 00 07 0C '192.168.1.20' "
                                 "06 04 00 00 00 3C 10 04 00 00 00 28 0E 05 'alice' 0F 04 01 02 03 04 "
                                 "11 04 11 12 13 14 12 04 21 22 23 24"));
}

TEST_F(Synch, AnAnnouncementThatCannotBeSentDropsTheConnection) {
    wl_client_info *const client = add_client(profile, 1);
    add_login(client, 1'700'000'060, 1'700'000'100);
    profile->synch_registered = 1;
    stop_agent();
    EXPECT_EQ(lines_at_level(6, [&] { send_cl_portal_login_packet(profile, client); }),
              lines{send_failed("Broken pipe")});
    EXPECT_EQ(g_synch_sock, -1);
    EXPECT_EQ(profile->synch_registered, 0);
}

TEST_F(Synch, AnAnnouncementWithoutMemoryIsNotSentAndKeepsTheConnection) {
    wl_client_info *const client = add_client(profile, 1);
    add_login(client, 1'700'000'060, 1'700'000'100);
    const int connection = g_synch_sock;
    sweep_allocations(1, [&](int failed) {
        send_cl_portal_login_packet(profile, client);
        EXPECT_EQ(sent().size(), failed == 1 ? 0U : 1U);
        EXPECT_EQ(g_synch_sock, connection);
    });
}
