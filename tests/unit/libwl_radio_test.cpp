#include <cerrno>
#include <gtest/gtest.h>
#include <unistd.h>

#include "fake_driver.h"
#include "libwl.h"

namespace {

constexpr uint8_t MAC[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
const std::string MAC_IN_REQUEST("\x00\x1a\x2b\x3c\x4d\x5e\0\0\0\0\0\0\0\0\0\0", 16);
constexpr uint32_t REAL_IOCTL = SIOCIWFIRSTPRIV + 5;

std::vector<std::string> interface_names;
bool no_interfaces;
int lists_held;

}  // namespace

extern "C" struct if_nameindex *__wrap_if_nameindex() {
    if (no_interfaces) {
        errno = ENOBUFS;
        return nullptr;
    }
    lists_held++;
    auto *list = new struct if_nameindex[interface_names.size() + 1]();
    for (size_t i = 0; i < interface_names.size(); i++)
        list[i] = {static_cast<unsigned>(i + 1), interface_names[i].data()};
    return list;
}

extern "C" void __wrap_if_freenameindex(struct if_nameindex *list) {
    lists_held--;
    delete[] list;
}

namespace {

iw_priv_args get_cl_radio(int set_args = BYTES | FIXED | 6, int get_args = INTS | FIXED | 1) {
    return priv_entry(REAL_IOCTL, set_args, get_args, "get_cl_radio");
}

/// What the driver answers for each interface; for one that is not listed the call fails.
std::map<std::string, int32_t> radios;

class LibwlRadio : public testing::Test {
protected:
    void SetUp() override {
        driver = {};
        driver.on_call = [](driver_call &call, iwreq &request) {
            const auto radio = radios.find(call.interface);
            if (radio == radios.end())
                return ENOENT;
            reply_in_request(request, &radio->second, sizeof radio->second);
            return 0;
        };
        interface_names = {"lo", "ath0", "ath1"};
        no_interfaces = false;
        lists_held = 0;
        radios.clear();
        first_free_ = lowest_free_descriptor();
    }

    void TearDown() override {
        EXPECT_EQ(lists_held, 0);
        EXPECT_EQ(lowest_free_descriptor(), first_free_);
    }

    static int lowest_free_descriptor() {
        const int descriptor = dup(STDOUT_FILENO);
        close(descriptor);
        return descriptor;
    }

    static std::vector<std::string> interfaces_called() {
        std::vector<std::string> names;
        for (const driver_call &call : driver.calls)
            names.push_back(call.interface);
        return names;
    }

    int first_free_ = -1;
};

TEST_F(LibwlRadio, AsksTheInterfaceThatOffersTheCommand) {
    driver.tables["ath0"] = {get_cl_radio()};
    radios = {{"ath0", 1}};
    EXPECT_EQ(get_wl_client_radio(MAC), 1);
    ASSERT_EQ(driver.calls.size(), 1u);
    EXPECT_EQ(driver.calls[0].request, REAL_IOCTL);
    EXPECT_EQ(driver.calls[0].in_request(), MAC_IN_REQUEST);
}

TEST_F(LibwlRadio, RadioZeroIsAnAnswer) {
    driver.tables["ath0"] = {get_cl_radio()};
    driver.tables["ath1"] = {get_cl_radio()};
    radios = {{"ath0", 0}, {"ath1", 1}};
    EXPECT_EQ(get_wl_client_radio(MAC), 0);
    EXPECT_EQ(interfaces_called(), std::vector<std::string>{"ath0"});
}

TEST_F(LibwlRadio, GoesOnToTheInterfaceThatKnowsTheClient) {
    driver.tables["ath0"] = {get_cl_radio()};
    driver.tables["ath1"] = {get_cl_radio()};
    radios = {{"ath0", -1}, {"ath1", 2}};
    EXPECT_EQ(get_wl_client_radio(MAC), 2);
    EXPECT_EQ(interfaces_called(), (std::vector<std::string>{"ath0", "ath1"}));
}

TEST_F(LibwlRadio, GoesOnAfterAFailedCall) {
    driver.tables["ath0"] = {get_cl_radio()};
    driver.tables["ath1"] = {get_cl_radio()};
    radios = {{"ath1", 2}};
    EXPECT_EQ(get_wl_client_radio(MAC), 2);
}

TEST_F(LibwlRadio, WorksAsASubCommand) {
    driver.tables["ath0"] = {priv_entry(REAL_IOCTL, BYTES | FIXED | 6, INTS | FIXED | 1, ""),
                             priv_entry(9, BYTES | FIXED | 6, INTS | FIXED | 1, "get_cl_radio")};
    radios = {{"ath0", 1}};
    EXPECT_EQ(get_wl_client_radio(MAC), 1);
    const uint32_t number = 9;
    EXPECT_EQ(driver.calls[0].request, REAL_IOCTL);
    EXPECT_EQ(driver.calls[0].in_request(),
              std::string(reinterpret_cast<const char *>(&number), 4) + MAC_IN_REQUEST.substr(0, 12));
}

TEST_F(LibwlRadio, AnyNegativeAnswerIsMinusOne) {
    driver.tables["ath1"] = {get_cl_radio()};
    radios = {{"ath1", -22}};
    EXPECT_EQ(get_wl_client_radio(MAC), -1);
}

TEST_F(LibwlRadio, WithoutADriverThatOffersTheCommandIsMinusOne) {
    driver.tables["ath0"] = {priv_entry(REAL_IOCTL, 0, 0, "get_vaps")};
    EXPECT_EQ(get_wl_client_radio(MAC), -1);
    EXPECT_TRUE(driver.calls.empty());
}

TEST_F(LibwlRadio, WithoutWirelessInterfacesIsMinusOne) {
    driver.table_error = EOPNOTSUPP;
    EXPECT_EQ(get_wl_client_radio(MAC), -1);
    EXPECT_TRUE(driver.calls.empty());
}

TEST_F(LibwlRadio, WithoutAListOfInterfacesIsMinusOne) {
    no_interfaces = true;
    EXPECT_EQ(get_wl_client_radio(MAC), -1);
}

class LibwlRadioArguments : public LibwlRadio, public testing::WithParamInterface<std::pair<int, int>> {};

TEST_P(LibwlRadioArguments, OfAnotherKindAreNotCalled) {
    driver.tables["ath0"] = {get_cl_radio(GetParam().first, GetParam().second)};
    radios = {{"ath0", 1}};
    EXPECT_EQ(get_wl_client_radio(MAC), -1);
    EXPECT_TRUE(driver.calls.empty());
}

INSTANTIATE_TEST_SUITE_P(Descriptors, LibwlRadioArguments,
                         testing::Values(std::pair(BYTES | 6, INTS | FIXED | 1), std::pair(BYTES | FIXED | 6, INTS | 1),
                                         std::pair(BYTES | FIXED | 7, INTS | FIXED | 1),
                                         std::pair(BYTES | FIXED | 6, INTS | FIXED | 2),
                                         std::pair(BYTES | FIXED | 6, BYTES | FIXED | 4),
                                         std::pair(INTS | FIXED | 6, INTS | FIXED | 1), std::pair(BYTES | FIXED | 6, 0),
                                         std::pair(0, INTS | FIXED | 1)));

}  // namespace
