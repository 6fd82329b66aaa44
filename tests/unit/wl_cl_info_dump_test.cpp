// The dumps of the client cache, whole, to files and to standard output.
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

#include "child.h"
#include "files.h"
#include "wl_cl_info_fixture.h"

namespace {

bool fdopen_fails;
int copy_flags;         // of the descriptor that the last stream was made of
std::string open_mode;  // of the last file

}  // namespace

extern "C" {

FILE *__real_fdopen(int fd, const char *mode);
FILE *__wrap_fdopen(int fd, const char *mode) {
    copy_flags = fcntl(fd, F_GETFD);
    if (!fdopen_fails)
        return __real_fdopen(fd, mode);
    errno = ENOMEM;
    return nullptr;
}

FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode) {
    open_mode = mode;
    return __real_fopen(path, mode);
}
}

namespace {

constexpr char FILE_NAME[] = "/tmp/clients.txt";
constexpr uint8_t CACHE = 0;
constexpr uint8_t ROLES = 1;

byte_string request(const byte_string &mac = EVERYONE, uint8_t flags = CACHE, const std::string &file = FILE_NAME) {
    byte_string name = text_bytes(file);
    name.resize(32);
    return event_payload().bytes(mac).bytes(name).bytes({flags}).bytes();
}

/// What a request writes to its file.
std::string dumped(const byte_string &mac = EVERYONE, uint8_t flags = CACHE) {
    unlink(FILE_NAME);
    received_payload event(request(mac, flags));
    handle_wl_client_info_dump_req(VRE_WL_CLIENT_INFO_DUMP, event.data(), event.length());
    return file_text(FILE_NAME);
}

/// What a dump writes.
std::string written(const std::function<void(FILE *)> &dump) {
    char *text = nullptr;
    size_t size = 0;
    FILE *const out = open_memstream(&text, &size);
    dump(out);
    std::fclose(out);
    const std::string result(text, size);
    std::free(text);
    return result;
}

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != text.npos;
}

class Dump : public ClientCache {
protected:
    /// A client that has everything.
    static wl_client_info *add_full_client(ssid_profile_info *profile, const byte_string &mac = ALICE) {
        wl_client_info *const client = add_client(profile, mac);
        client->is_active = 1;
        client->connected_vap = get_vap_from_list_by_name(profile->vap_data_list, "ath0");
        give_pmk(client);
        dot1x_pmk_cl_data *const pmk = client->hapd_cl_info->pmk_fullauth;
        std::memcpy(pmk->pmk, "SECRETSECRETSECRETSECRETSECRETSE", 32);
        pmk->expiration = 4000000000;
        pmk->eap_type_authsrv = 25;
        pmk->acct_interim_interval = 60;
        pmk->bw_data = {-1, 512};
        give_pmk(client, true);
        client->hapd_cl_info->ft_data = static_cast<ft_80211r_cl_data *>(std::calloc(1, sizeof(ft_80211r_cl_data)));
        ft_80211r_cl_data *const ft = client->hapd_cl_info->ft_data;
        std::memcpy(ft->pmk_r1, "SECRETSECRETSECRETSECRETSECRETSE", 32);
        ft->expiration = 7;
        ft->pairwise = 16;
        ft->vlan_id = 9;
        give_login(client);
        portal_cl_auth_info *const auth = client->portal_cl_info->portal_cl_auth_info;
        *auth = {{}, 100, -5, 3000000000, 11, -1, {}};
        std::strcpy(auth->ip_addr, "192.168.1.20");
        std::strcpy(auth->username, "guest");
        role_client_t &role = client->role_info;
        role.role_id = 12;
        role.vendor_id = 3000000001;
        role.attr_id = 14;
        role.rdp_method = 1;
        std::strcpy(role.client_role, "staff");
        role.apply_ssid_portal_or_webq = 1;
        client->google_ou = strdup("/teachers");
        client->vlan_info = {33, 34, 2};
        client->cl_bw_info = {1000, 2000, 3};
        return client;
    }
};

constexpr char FULL_CLIENT[] = "\n----------- Client MAC : [02:00:00:00:00:0A]\n"
                               "Is Active on this SSID : 1\n"
                               "Connected to VAP : ath0\n"
                               "PMK of full authentication : present\n"
                               "  Length : 32\n"
                               "  Expiration : 4000000000\n"
                               "  EAP type : 25\n"
                               "  Accounting interval : 60\n"
                               "  Download limit : -1\n"
                               "  Upload limit : 512\n"
                               "  Vlan : -1\n"
                               "  Identity length : 13\n"
                               "  Identity : alice@example\n"
                               "PMK of OKC : present\n"
                               "  Length : 32\n"
                               "  Expiration : 0\n"
                               "  EAP type : 0\n"
                               "  Accounting interval : 0\n"
                               "  Download limit : 0\n"
                               "  Upload limit : 0\n"
                               "  Vlan : -1\n"
                               "  Identity length : 13\n"
                               "  Identity : alice@example\n"
                               "802.11r data : present\n"
                               "  Expiration : 7\n"
                               "  Accounting interval : 0\n"
                               "  Pairwise : 16\n"
                               "  Download limit : 0\n"
                               "  Upload limit : 0\n"
                               "  Vlan : 9\n"
                               "  Identity length : 0\n"
                               "Portal login : present\n"
                               "  IP address : 192.168.1.20\n"
                               "  Expiration : 100\n"
                               "  Blackout expiration : -5\n"
                               "  Login time : 3000000000\n"
                               "  Download limit : 11\n"
                               "  Upload limit : -1\n"
                               "  User name : guest\n"
                               "Role : staff\n"
                               "  Role id : 12\n"
                               "  Vendor id : 3000000001\n"
                               "  Attribute id : 14\n"
                               "  Method : Radius\n"
                               "  SSID firewall applied : 0\n"
                               "  SSID portal or web filter applied : 1\n"
                               "  SSID bandwidth limit applied : 0\n"
                               "  Google OU : /teachers\n"
                               "Vlan applied to the client: [33] \n"
                               "Vlan received : 34\n"
                               "Vlan priority : 2\n"
                               "Bandwidth down : 1000\n"
                               "Bandwidth up : 2000\n"
                               "Bandwidth priority : 3\n";

constexpr char EMPTY_CLIENT[] = "\n----------- Client MAC : [02:00:00:00:00:BB]\n"
                                "Is Active on this SSID : 0\n"
                                "Connected to VAP : (null)\n"
                                "PMK of full authentication : none\n"
                                "PMK of OKC : none\n"
                                "802.11r data : none\n"
                                "Portal login : none\n"
                                "Role : \n"
                                "  Role id : 0\n"
                                "  Vendor id : 0\n"
                                "  Attribute id : 0\n"
                                "  Method : Unknown\n"
                                "  SSID firewall applied : 0\n"
                                "  SSID portal or web filter applied : 0\n"
                                "  SSID bandwidth limit applied : 0\n"
                                "  Google OU : \n"
                                "Vlan applied to the client: [0] \n"
                                "Vlan received : 0\n"
                                "Vlan priority : 0\n"
                                "Bandwidth down : 0\n"
                                "Bandwidth up : 0\n"
                                "Bandwidth priority : 0\n";

std::string profile_text(const std::string &id, const std::string &ssid, int role, int clients) {
    return "\n=========== SSID Profile : [" + id + "]\nSSID : " + ssid + "\nRole profile : " + std::to_string(role) +
           "\nRole profiles enabled : 0\n802.1X configured : 1\nPortal configured : 0\nVlan : 0\n"
           "External interface : (null)\nInter AP path : 0\nRegistered with synch agent : 0\nRefused by synch agent : 0\n"
           "Number of VAPs : 2\n  VAP : ath0\n  VAP : ath1\nNumber of clients : " +
           std::to_string(clients) + "\n";
}

TEST_F(Dump, AClientWithEverything) {
    const wl_client_info *const client = add_full_client(add_profile(1));
    EXPECT_EQ(written([=](FILE *out) { dump_client_info(out, client); }), FULL_CLIENT);
}

TEST_F(Dump, AClientWithNothing) {
    const wl_client_info *const client = add_client(add_profile(1), BOB);
    EXPECT_EQ(written([=](FILE *out) { dump_client_info(out, client); }), EMPTY_CLIENT);
}

TEST_F(Dump, NamesTheProfileOfTheClientsRole) {
    wl_client_info *const client = add_client(add_profile(1), BOB);
    client->role_ssid = add_profile(8, "staff", true);
    EXPECT_TRUE(contains(written([=](FILE *out) { dump_client_info(out, client); }), "\n  Role profile : 8\n"));
}

TEST_F(Dump, AProfileWithItsSettings) {
    ssid_profile_info *const profile = add_profile(0xFFFFFFFE);
    profile->flags.role_profile_enabled = 1;
    profile->is_1x_configured = 0;
    profile->is_portal_configured = 1;
    profile->ap_vlan = 77;
    profile->external_interface = strdup("br0");
    profile->iapc_path = 2;
    profile->synch_registered = 1;
    profile->nack = 1;
    EXPECT_EQ(written([=](FILE *out) { dump_ssid_profile_info(out, profile); }),
              "\n=========== SSID Profile : [-2]\nSSID : net\nRole profile : 0\nRole profiles enabled : 1\n"
              "802.1X configured : 0\nPortal configured : 1\nVlan : 77\nExternal interface : br0\nInter AP path : 2\n"
              "Registered with synch agent : 1\nRefused by synch agent : 1\nNumber of VAPs : 2\n  VAP : ath0\n"
              "  VAP : ath1\nNumber of clients : 0\n");
}

TEST_F(Dump, NeverShowsAKey) {
    add_full_client(add_profile(1));
    EXPECT_FALSE(contains(dumped(), "SECRET"));
    EXPECT_FALSE(contains(dumped(ALICE), "SECRET"));
    EXPECT_FALSE(contains(dumped(EVERYONE, ROLES), "SECRET"));
}

TEST_F(Dump, ForAllOnesListsEveryProfileRolesIncludedWithAllClients) {
    ssid_profile_info *const profile = add_profile(1);
    add_full_client(profile);
    add_client(profile, BOB);
    add_profile(2, "staff", true);
    // Alice's and Bob's buckets are 12 and 17.
    EXPECT_EQ(dumped(), profile_text("1", "net", 0, 2) + FULL_CLIENT + EMPTY_CLIENT + profile_text("2", "staff", 1, 0));
}

TEST_F(Dump, ForOneAddressListsTheProfilesThatHaveIt) {
    add_client(add_profile(1), BOB);
    add_full_client(add_profile(2, "other"));
    add_profile(3, "empty");
    add_client(add_profile(4, "third"), BOB);
    const std::string found = "Client info found for following SSID Profile\n";
    EXPECT_EQ(dumped(BOB), found + profile_text("1", "net", 0, 1) + "Client Info : \n" + EMPTY_CLIENT + found +
                               profile_text("4", "third", 0, 1) + "Client Info : \n" + EMPTY_CLIENT);
}

TEST_F(Dump, ForOneAddressSkipsRoles) {
    ssid_profile_info *const profile = add_profile(1);
    add_client(profile, BOB);
    profile->flags.is_role_profile = 1;
    EXPECT_EQ(dumped(BOB), "");
    EXPECT_TRUE(contains(dumped(), "Client MAC"));
}

TEST_F(Dump, ForAnUnknownAddressIsAnEmptyFile) {
    add_client(add_profile(1), BOB);
    write_file(FILE_NAME, "before");
    EXPECT_EQ(dumped(ALICE), "");
    EXPECT_EQ(access(FILE_NAME, F_OK), 0);
}

TEST_F(Dump, AlmostAllOnesIsOneAddress) {
    add_client(add_profile(1), BOB);
    byte_string mac = EVERYONE;
    mac[5] = 0xFE;
    EXPECT_EQ(dumped(mac), "");
}

TEST_F(Dump, OfRolesListsAllClientsInBrief) {
    add_full_client(add_profile(1));
    add_client(add_profile(2, "other"), BOB);
    add_profile(3, "staff", true);
    EXPECT_EQ(dumped(BOB, ROLES), "\n----------- Client MAC : [02:00:00:00:00:0A]\nSSID : net\nRole : staff\n"
                                  "  Role id : 12\n  Method : Radius\n"
                                  "\n----------- Client MAC : [02:00:00:00:00:BB]\nSSID : other\nRole : \n"
                                  "  Role id : 0\n  Method : Unknown\n");
}

TEST_F(Dump, AnyOtherFlagDumpsTheCache) {
    add_client(add_profile(1), BOB);
    const std::string cache = dumped(EVERYONE, 0);
    EXPECT_EQ(dumped(EVERYONE, 2), cache);
    EXPECT_EQ(dumped(EVERYONE, 255), cache);
    EXPECT_NE(dumped(EVERYONE, ROLES), cache);
}

TEST_F(Dump, AClientOfNoProfileHasNoSsid) {
    wl_client_info *const client = get_new_wl_client_info(BOB.data(), nullptr);
    EXPECT_TRUE(contains(written([=](FILE *out) { dump_cl_role_info_brief(out, client); }), "\nSSID : (null)\n"));
    free_cl_info_node(client);
}

TEST_F(Dump, NamesTheMethodsOfRoles) {
    EXPECT_STREQ(get_rdp_method_str(1), "Radius");
    EXPECT_STREQ(get_rdp_method_str(2), "Google OU");
    EXPECT_STREQ(get_rdp_method_str(3), "Secondary Auth");
    for (const uint8_t other : {0, 4, 255})
        EXPECT_STREQ(get_rdp_method_str(other), "Unknown");
}

TEST_F(Dump, TextsFromOutsideStayOnTheirLine) {
    wl_client_info *const client = add_full_client(add_profile(1));
    dot1x_pmk_cl_data *const pmk = client->hapd_cl_info->pmk_fullauth;
    std::memcpy(pmk->identity, "a\n\x7F\xFF\x1B", 5);
    pmk->identity_len = 5;
    portal_cl_auth_info *const auth = client->portal_cl_info->portal_cl_auth_info;
    std::memset(auth->username, 'u', sizeof auth->username);
    std::memset(auth->ip_addr, '\t', sizeof auth->ip_addr);
    std::memset(client->role_info.client_role, 'r', sizeof client->role_info.client_role);
    const std::string text = written([=](FILE *out) { dump_client_info(out, client); });
    EXPECT_TRUE(contains(text, "  Identity : a????\n"));
    EXPECT_TRUE(contains(text, "  User name : " + std::string(64, 'u') + "\n"));
    EXPECT_TRUE(contains(text, "  IP address : " + std::string(16, '?') + "\n"));
    EXPECT_TRUE(contains(text, "Role : " + std::string(33, 'r') + "\n"));
}

TEST_F(Dump, AShortRequestIsRefused) {
    unlink(FILE_NAME);
    for (const int length : {38, 0, -1})
        expect_logged(3,
                      "handle_wl_client_info_dump_req: Insufficient data len [" + std::to_string(length) +
                          "] received for event[97]",
                      [length] {
                          received_payload event(request());
                          handle_wl_client_info_dump_req(VRE_WL_CLIENT_INFO_DUMP, event.data(), length);
                      });
    EXPECT_NE(access(FILE_NAME, F_OK), 0);
}

TEST_F(Dump, BytesBehindARequestDoNotCount) {
    add_client(add_profile(1), BOB);
    const std::string cache = dumped(BOB);
    unlink(FILE_NAME);
    byte_string longer = request(BOB);
    longer.resize(1500, ROLES);
    received_payload event(longer);
    handle_wl_client_info_dump_req(VRE_WL_CLIENT_INFO_DUMP, event.data(), event.length());
    EXPECT_NE(cache, "");
    EXPECT_EQ(file_text(FILE_NAME), cache);
}

TEST_F(Dump, AnAbsentRequestIsRefused) {
    expect_logged(3, "handle_client_info_dump_req: Received evt info null for eevent[97]",
                  [] { EXPECT_EQ(handle_client_info_dump_req(nullptr), -1); });
    handle_wl_client_info_dump_req(VRE_WL_CLIENT_INFO_DUMP, nullptr, 39);
}

TEST_F(Dump, ARequestThatIsCarriedOutGivesZero) {
    EXPECT_EQ(handle_client_info_dump_req(request().data()), 0);
}

TEST_F(Dump, AFileNameMayFillItsField) {
    add_client(add_profile(1), BOB);
    const std::string name = "/tmp/" + std::string(27, 'n');
    byte_string exact = request(EVERYONE, 0xEE, name);  // the flag's byte follows the name's last
    EXPECT_EQ(handle_client_info_dump_req(exact.data()), 0);
    EXPECT_TRUE(contains(file_text(name), "Client MAC"));
}

/// Runs `action` with standard output going to a file.
///
/// @return what was written there
std::string output_of(const std::function<void()> &action) {
    const int before = dup(STDOUT_FILENO);
    const int file = open("/tmp/stdout.txt", O_CREAT | O_TRUNC | O_WRONLY, 0600);
    std::fflush(stdout);
    dup2(file, STDOUT_FILENO);
    close(file);
    action();
    std::fflush(stdout);
    dup2(before, STDOUT_FILENO);
    close(before);
    return file_text("/tmp/stdout.txt");
}

TEST_F(Dump, WithoutAFileGoesToStandardOutputWhichStaysOpen) {
    add_client(add_profile(1), BOB);
    const std::string text = profile_text("1", "net", 0, 1) + EMPTY_CLIENT;
    const std::string output = output_of([] {
        for (int i = 0; i < 2; i++) {
            EXPECT_EQ(handle_client_info_dump_req(request(EVERYONE, CACHE, "/nowhere/file").data()), 0);
            EXPECT_GE(fcntl(STDOUT_FILENO, F_GETFD), 0);
        }
        std::printf("still here\n");
    });
    EXPECT_EQ(output, text + text + "still here\n");
}

TEST_F(Dump, IsNotInheritedByShellCommands) {
    handle_client_info_dump_req(request().data());
    EXPECT_EQ(open_mode, "we");
    output_of([] { handle_client_info_dump_req(request(EVERYONE, CACHE, "").data()); });
    EXPECT_EQ(copy_flags, FD_CLOEXEC);
}

TEST_F(Dump, WithoutAFileIsTold) {
    expect_logged(
        3, "handle_client_info_dump_req: Could not open file for dumping client info. Dumping to default stdout.",
        [] { output_of([] { handle_client_info_dump_req(request(EVERYONE, CACHE, "").data()); }); });
}

TEST_F(Dump, LeavesNoDescriptorOpen) {
    const auto open_descriptors = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    const auto before = open_descriptors();
    output_of([] {
        handle_client_info_dump_req(request().data());
        handle_client_info_dump_req(request(EVERYONE, CACHE, "").data());
        fdopen_fails = true;
        EXPECT_EQ(handle_client_info_dump_req(request(EVERYONE, CACHE, "").data()), -1);
        fdopen_fails = false;
    });
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Dump, WithoutAnyOutputFails) {
    EXPECT_EQ(wait_for(start_child([] {
                  close(STDOUT_FILENO);
                  if (handle_client_info_dump_req(request(EVERYONE, CACHE, "").data()) != -1)
                      _exit(1);
              })),
              0);
}

}  // namespace
