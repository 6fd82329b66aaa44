// Private commands called by name on a VAP: what they hand over, return, print and leave behind.
#include "wlan_ioctl.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <linux/sockios.h>

#include "fake_driver.h"
#include "fault.h"

namespace {

constexpr uint32_t GET = SIOCIWFIRSTPRIV + 1;
constexpr uint32_t SET = SIOCIWFIRSTPRIV + 2;

void offer(std::vector<iw_priv_args> table) {
    driver.tables["ath0"] = std::move(table);
}

std::string pattern(size_t size) {
    std::string all(size, '\0');
    for (size_t i = 0; i < size; i++)
        all[i] = static_cast<char>(i + 1);
    return all;
}

/// The buffer of a caller, filled with a mark; `reply` stands at its start.
std::string marked(size_t size = VAP_IOCTL_DATA_SIZE, const std::string &reply = "") {
    return reply + std::string(size - reply.size(), '\xA5');
}

std::string pointed_at(const iwreq &request, size_t size) {
    return {static_cast<const char *>(request.u.data.pointer), size};
}

int open_descriptors() {
    int count = 0;
    for (int fd = 0; fd < 256; fd++)
        count += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
    return count;
}

/// What a caller hands over, in a block of just the size that it must have: a sanitizer sees every step beyond.
std::vector<char> block_of(const std::string &data) {
    std::vector<char> block(VAP_IOCTL_DATA_SIZE);
    data.copy(block.data(), block.size());
    return block;
}

/// Calls a command that gets something into a marked buffer of `size` bytes.
struct got {
    int result;
    std::string buffer;

    bool operator==(const got &) const = default;
};

got get(const char *command, const std::string *args = nullptr, size_t size = VAP_IOCTL_DATA_SIZE) {
    std::string buffer = marked(size);
    const std::vector<char> block = block_of(args != nullptr ? *args : "");
    const int result = do_ioctl_on_vap(buffer.data(), args != nullptr ? block.data() : nullptr, "ath0", command);
    return {result, buffer};
}

/// What do_wlan_priv_ioctl returned and printed.
struct outcome {
    int result;
    std::string errors;

    bool operator==(const outcome &) const = default;
};

outcome set(const char *command, const std::string &data) {
    std::vector<char> block = block_of(data);
    testing::internal::CaptureStderr();
    const int result = do_wlan_priv_ioctl(command, block.data(), 0, "ath0");
    return {result, testing::internal::GetCapturedStderr()};
}

std::ostream &operator<<(std::ostream &out, const outcome &outcome) {
    return out << outcome.result << " \"" << outcome.errors << '"';
}

TEST(DoIoctlOnVap, CopiesTheReplyAndLeavesTheRestOfTheBufferAlone) {
    offer({priv_entry(GET, 0, BYTES | 110, "get_vaps")});
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_by_pointer(request, pattern(110), 110);
        return 0;
    };
    EXPECT_EQ(get("get_vaps"), (got{0, marked(512, pattern(110))}));
    ASSERT_EQ(driver.calls.size(), 1U);
    EXPECT_EQ(driver.calls[0].interface, "ath0");
    EXPECT_EQ(driver.calls[0].request, GET);
}

TEST(DoIoctlOnVap, NeverWritesMoreThanTheDriverDeclares) {
    offer({priv_entry(GET, 0, BYTES | 110, "get_vaps")});
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_by_pointer(request, pattern(512), 65535);
        return 0;
    };
    EXPECT_EQ(get("get_vaps", nullptr, 110), (got{0, pattern(110)}));
}

TEST(DoIoctlOnVap, TakesAReplyOf512Bytes) {
    offer({priv_entry(GET, 0, BYTES | 512, "get_vaps")});
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_by_pointer(request, pattern(512), 512);
        return 0;
    };
    EXPECT_EQ(get("get_vaps"), (got{0, pattern(512)}));
}

TEST(DoIoctlOnVap, RefusesMoreThan512BytesInEitherDirection) {
    const std::string args(512, 'x');
    for (const auto &entry : {priv_entry(GET, 0, BYTES | 513, "get_vaps"), priv_entry(GET, 0, INTS | 129, "get_vaps"),
                              priv_entry(GET, BYTES | FIXED | 513, 0, "get_vaps")}) {
        offer({entry});
        EXPECT_EQ(get("get_vaps", &args), (got{-1, marked()}));
    }
    EXPECT_TRUE(driver.calls.empty());
}

TEST(DoIoctlOnVap, TakesASmallReplyFromTheRequest) {
    offer({priv_entry(GET, 0, INTS | FIXED | 4, "get_four")});
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_in_request(request, pattern(16).data(), 16);
        return 0;
    };
    EXPECT_EQ(get("get_four"), (got{0, marked(512, pattern(16))}));
}

TEST(DoIoctlOnVap, HandsOverAsManyArgumentsAsTheDriverDeclares) {
    const std::string args = pattern(20);
    offer({priv_entry(GET, BYTES | FIXED | 6, 0, "small"), priv_entry(SET, CHARS | 18, 0, "large")});
    driver.on_call = [](driver_call &call, iwreq &request) {
        if (call.request == SET) {
            EXPECT_EQ(request.u.data.length, 18);
            EXPECT_EQ(pointed_at(request, 19), pattern(18) + '\0');
        }
        return 0;
    };
    EXPECT_EQ(get("small", &args), (got{0, marked()}));
    EXPECT_EQ(driver.calls.at(0).in_request(), pattern(6) + std::string(10, '\0'));
    EXPECT_EQ(get("large", &args), (got{0, marked()}));
    EXPECT_EQ(driver.calls.size(), 2U);
}

TEST(DoIoctlOnVap, HandsOverTheWholeBlockToADriverThatDeclares512Bytes) {
    const std::string args = pattern(512);
    offer({priv_entry(SET, BYTES | FIXED | 512, 0, "large")});
    driver.on_call = [&args](driver_call &, iwreq &request) {
        EXPECT_EQ(pointed_at(request, 512), args);
        return 0;
    };
    EXPECT_EQ(get("large", &args), (got{0, marked()}));
    EXPECT_EQ(driver.calls.size(), 1U);
}

TEST(DoIoctlOnVap, CallsASubCommandThroughItsIoctl) {
    offer({priv_entry(3, 0, BYTES | 110, "get_vaps"), priv_entry(GET, 0, BYTES | 110, "")});
    driver.on_call = [](driver_call &call, iwreq &request) {
        EXPECT_EQ(call.request, GET);
        EXPECT_EQ(request.u.data.flags, 3);
        reply_by_pointer(request, pattern(110), 110);
        return 0;
    };
    EXPECT_EQ(get("get_vaps"), (got{0, marked(512, pattern(110))}));
}

TEST(DoIoctlOnVap, FailsForEveryCommandThatCannotBeCalled) {
    const std::string args(16, 'x');
    for (const auto &entry :
         {priv_entry(GET, 0, BYTES | 110, "get_vapsxxxxxxxx"), priv_entry(3, 0, BYTES | 110, "get_vaps"),
          priv_entry(GET, 0, IW_PRIV_TYPE_ADDR | 1, "get_vaps"),
          priv_entry(GET, IW_PRIV_TYPE_FLOAT | 1, 0, "get_vaps")}) {
        offer({entry});
        EXPECT_EQ(get("get_vaps", &args), (got{-1, marked()}));
    }
    EXPECT_TRUE(driver.calls.empty());
}

TEST(DoIoctlOnVap, LeavesTheBufferAloneWhenTheCommandFails) {
    offer({priv_entry(GET, 0, BYTES | 110, "get_vaps")});
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_by_pointer(request, pattern(110), 110);
        return EIO;
    };
    EXPECT_EQ(get("get_vaps"), (got{-1, marked()}));
}

TEST(DoIoctlOnVap, FailsWithoutTable) {
    driver.table_error = ENODEV;
    EXPECT_EQ(get("get_vaps"), (got{-1, marked()}));
}

TEST(DoIoctlOnVap, SurvivesAbsurdTables) {
    offer({priv_entry(GET, 0, BYTES | 110, "get_vaps")});
    driver.reported_count = 65535;
    EXPECT_EQ(get("get_vaps").result, 0);
    EXPECT_EQ(get("get_vapx").result, -1);
    driver.table_error = E2BIG;
    EXPECT_EQ(get("get_vaps").result, -1);
    EXPECT_LT(driver.table_rooms.size(), 20U);
}

TEST(DoIoctlOnVap, FailsWithoutSocketOrMemory) {
    offer({priv_entry(GET, 0, 0, "get_vaps")});
    for (const char *function : {"socket", "calloc"}) {
        fail_nth_call(function, 1, EMFILE);
        EXPECT_EQ(get("get_vaps").result, -1) << function;
        EXPECT_EQ(faults_fired(function), 1) << function;
        EXPECT_EQ(get("get_vaps").result, 0) << function;
    }
}

TEST(DoWlanPrivIoctl, HandsSmallDataOverInTheRequest) {
    offer({priv_entry(SET, BYTES | FIXED | 8, 0, "set_user_vlan")});
    EXPECT_EQ(set("set_user_vlan", pattern(9)), (outcome{0, ""}));
    ASSERT_EQ(driver.calls.size(), 1U);
    EXPECT_EQ(driver.calls[0].interface, "ath0");
    EXPECT_EQ(driver.calls[0].request, SET);
    EXPECT_EQ(driver.calls[0].in_request(), pattern(8) + std::string(8, '\0'));
}

TEST(DoWlanPrivIoctl, HandsLargerDataOverByPointer) {
    offer({priv_entry(SET, INTS | FIXED | 5, 0, "set_mac_acl")});
    driver.on_call = [](driver_call &, iwreq &request) {
        EXPECT_EQ(request.u.data.length, 5);
        EXPECT_EQ(request.u.data.flags, 0);
        EXPECT_EQ(pointed_at(request, 20), pattern(20));
        return 0;
    };
    EXPECT_EQ(set("set_mac_acl", pattern(20)), (outcome{0, ""}));
}

TEST(DoWlanPrivIoctl, PutsASubCommandsNumberBeforeSmallData) {
    offer({priv_entry(5, BYTES | FIXED | 12, 0, "set_user_vlan"), priv_entry(SET, BYTES | FIXED | 12, 0, "")});
    EXPECT_EQ(set("set_user_vlan", pattern(12)), (outcome{0, ""}));
    ASSERT_EQ(driver.calls.size(), 1U);
    EXPECT_EQ(driver.calls[0].data.u.mode, 5U);
    EXPECT_EQ(driver.calls[0].in_request().substr(4), pattern(12));
}

TEST(DoWlanPrivIoctl, PutsASubCommandsNumberBesideThePointerToLargerData) {
    offer({priv_entry(5, BYTES | FIXED | 13, 0, "set_user_vlan"), priv_entry(SET, BYTES | FIXED | 13, 0, "")});
    driver.on_call = [](driver_call &, iwreq &request) {
        EXPECT_EQ(request.u.data.flags, 5);
        EXPECT_EQ(pointed_at(request, 13), pattern(13));
        return 0;
    };
    EXPECT_EQ(set("set_user_vlan", pattern(13)), (outcome{0, ""}));
}

TEST(DoWlanPrivIoctl, SetsZerosWhereThereIsNoData) {
    offer({priv_entry(SET, BYTES | FIXED | 8, 0, "set_user_vlan")});
    EXPECT_EQ(do_wlan_priv_ioctl("set_user_vlan", nullptr, 0, "ath0"), 0);
    EXPECT_EQ(driver.calls.at(0).in_request(), std::string(16, '\0'));
}

TEST(DoWlanPrivIoctl, TellsAMissingSocket) {
    fail_nth_call("socket", 1, EMFILE);
    EXPECT_EQ(set("set_user_vlan", pattern(8)), (outcome{-1, "Could not create socket: ath0\n"}));
}

TEST(DoWlanPrivIoctl, TellsAMissingTable) {
    driver.table_error = ENODEV;
    EXPECT_EQ(set("set_user_vlan", pattern(8)), (outcome{-1, "[ath0]: get priv ioctl list failed: No such device\n"}));
}

TEST(DoWlanPrivIoctl, TellsThatThereIsNoMemoryForTheTable) {
    fail_nth_call("calloc", 1);
    EXPECT_EQ(set("set_user_vlan", pattern(8)),
              (outcome{-1, "[ath0]: get priv ioctl list failed: Cannot allocate memory\n"}));
}

TEST(DoWlanPrivIoctl, TellsAnUnknownCommand) {
    offer({priv_entry(SET, BYTES | FIXED | 8, 0, "set_mac_acl")});
    EXPECT_EQ(set("set_user_vlan", pattern(8)), (outcome{-1, "[ath0]: Invalid command: set_user_vlan\n"}));
}

TEST(DoWlanPrivIoctl, TellsASubCommandWithoutIoctl) {
    offer({priv_entry(5, BYTES | FIXED | 8, 0, "set_user_vlan")});
    EXPECT_EQ(set("set_user_vlan", pattern(8)), (outcome{-1, "[ath0]: Invalid IOCTL: set_user_vlan\n"}));
}

TEST(DoWlanPrivIoctl, TellsAnUnsupportedArgumentType) {
    offer({priv_entry(SET, IW_PRIV_TYPE_ADDR | FIXED | 1, 0, "set_mac_acl")});
    EXPECT_EQ(set("set_mac_acl", pattern(16)),
              (outcome{-1, "[ath0]: Unsupported argument type (24576) for command set_mac_acl\n"}));
    EXPECT_TRUE(driver.calls.empty());
}

TEST(DoWlanPrivIoctl, TellsAnUnsupportedTypeOfWhatTheCommandGets) {
    offer({priv_entry(SET, BYTES | FIXED | 8, IW_PRIV_TYPE_FLOAT | FIXED | 1, "set_user_vlan")});
    EXPECT_EQ(set("set_user_vlan", pattern(8)),
              (outcome{-1, "[ath0]: Unsupported argument type (20480) for command set_user_vlan\n"}));
    EXPECT_TRUE(driver.calls.empty());
}

TEST(DoWlanPrivIoctl, TellsTheTypeOfWhatTheCommandSetsWhenBothAreUnsupported) {
    offer({priv_entry(SET, IW_PRIV_TYPE_ADDR | FIXED | 1, IW_PRIV_TYPE_FLOAT | FIXED | 1, "set_mac_acl")});
    EXPECT_EQ(set("set_mac_acl", pattern(16)),
              (outcome{-1, "[ath0]: Unsupported argument type (24576) for command set_mac_acl\n"}));
}

TEST(DoWlanPrivIoctl, TellsAFailedCommand) {
    offer({priv_entry(SET, BYTES | FIXED | 8, 0, "set_user_vlan")});
    driver.on_call = [](driver_call &, iwreq &) { return EBUSY; };
    EXPECT_EQ(set("set_user_vlan", pattern(8)),
              (outcome{-1, "[ath0]: set priv ioctl (command: set_user_vlan) failed: Device or resource busy\n"}));
}

TEST(DoWlanPrivIoctl, TellsDataBeyond512BytesAsAFailedCommand) {
    for (const auto &entry :
         {priv_entry(SET, BYTES | FIXED | 513, 0, "set_mac_acl"), priv_entry(SET, BYTES | 513, 0, "set_mac_acl"),
          priv_entry(SET, BYTES | FIXED | 8, BYTES | 513, "set_mac_acl"),
          priv_entry(SET, BYTES | FIXED | 8, INTS | FIXED | 129, "set_mac_acl")}) {
        offer({entry});
        EXPECT_EQ(set("set_mac_acl", pattern(512)),
                  (outcome{-1, "[ath0]: set priv ioctl (command: set_mac_acl) failed: Argument list too long\n"}));
    }
    EXPECT_TRUE(driver.calls.empty());
}

TEST(WlanIoctl, ClosesItsSocketOnEveryPath) {
    const int before = open_descriptors();
    for (const auto &entry :
         {priv_entry(SET, BYTES | FIXED | 8, 0, "command"), priv_entry(5, BYTES | FIXED | 8, 0, "command"),
          priv_entry(SET, IW_PRIV_TYPE_ADDR | 1, 0, "command"), priv_entry(SET, BYTES | FIXED | 513, 0, "command"),
          priv_entry(SET, 0, 0, "another")}) {
        for (const int error : {0, EIO}) {
            offer({entry});
            driver.on_call = [error](driver_call &, iwreq &) { return error; };
            (void)set("command", pattern(520));
            (void)get("command");
        }
    }
    driver.table_error = ENODEV;
    (void)set("command", pattern(8));
    (void)get("command");
    EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
