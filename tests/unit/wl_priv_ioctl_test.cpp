#include "wl_priv_ioctl.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <linux/sockios.h>

#include "fake_driver.h"
#include "fault.h"

namespace {

constexpr uint32_t REAL_IOCTL = SIOCIWFIRSTPRIV + 3;

class WlPriv : public testing::Test {
protected:
    void SetUp() override {
        clear_faults();
        driver = {};
        command_.socket = -1;
    }

    void TearDown() override {
        clear_faults();
        if (command_.socket >= 0)
            wl_priv_close(&command_);
    }

    static void offer(std::vector<iw_priv_args> table) {
        driver.tables["ath0"] = std::move(table);
    }

    /// Offers one command of its own ioctl and opens it.
    void open_command(int set_args, int get_args) {
        offer({priv_entry(REAL_IOCTL, set_args, get_args, "command")});
        ASSERT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_OK);
    }

    /// Offers one command as the 7th sub-command of an ioctl and opens it.
    void open_sub_command(int set_args, int get_args) {
        offer({priv_entry(REAL_IOCTL, set_args, get_args, ""), priv_entry(7, set_args, get_args, "command")});
        ASSERT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_OK);
    }

    wl_priv_result call(const std::string &data, void *reply = nullptr, size_t reply_size = 0) {
        return wl_priv_call(&command_, data.data(), data.size(), reply, reply_size);
    }

    static int lowest_free_descriptor() {
        const int descriptor = dup(STDOUT_FILENO);
        close(descriptor);
        return descriptor;
    }

    wl_priv_command command_{};
};

/// A text padded with NULs.
std::string padded(std::string text, size_t size) {
    text.resize(size);
    return text;
}

std::string sub_command_number(uint32_t number) {
    return {reinterpret_cast<const char *>(&number), sizeof number};
}

std::string pointed_at(const iwreq &request, size_t size) {
    return {static_cast<const char *>(request.u.data.pointer), size};
}

using WlPrivDataSize = WlPriv;

TEST_F(WlPrivDataSize, IsTheNumberTimesTheSizeOfTheType) {
    EXPECT_EQ(wl_priv_data_size(BYTES | 6), 6u);
    EXPECT_EQ(wl_priv_data_size(BYTES | FIXED | 6), 6u);
    EXPECT_EQ(wl_priv_data_size(CHARS | 0x7ff), 2047u);
    EXPECT_EQ(wl_priv_data_size(INTS | FIXED | 3), 12u);
    EXPECT_EQ(wl_priv_data_size(0), 0u);
    EXPECT_EQ(wl_priv_data_size(IW_PRIV_TYPE_FLOAT | 1), 0u);
    EXPECT_EQ(wl_priv_data_size(IW_PRIV_TYPE_ADDR | 1), 0u);
}

using WlPrivOpen = WlPriv;

TEST_F(WlPrivOpen, FindsACommandByItsName) {
    offer({priv_entry(REAL_IOCTL, BYTES | 1, 0, "first"),
           priv_entry(REAL_IOCTL + 2, BYTES | FIXED | 6, INTS | 1, "second")});
    ASSERT_EQ(wl_priv_open(&command_, "ath0", "second"), WL_PRIV_OK);
    EXPECT_EQ(command_.request, REAL_IOCTL + 2);
    EXPECT_FALSE(command_.is_sub_command);
    EXPECT_EQ(command_.set_args, BYTES | FIXED | 6);
    EXPECT_EQ(command_.get_args, INTS | 1);
}

TEST_F(WlPrivOpen, KeepsShellChildrenOffTheSocket) {
    open_command(0, 0);
    EXPECT_EQ(fcntl(command_.socket, F_GETFD), FD_CLOEXEC);
}

TEST_F(WlPrivOpen, WithoutASocketSaysWhy) {
    fail_nth_call("socket", 1, EMFILE);
    EXPECT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_NO_SOCKET);
    EXPECT_EQ(errno, EMFILE);
}

TEST_F(WlPrivOpen, WithoutATableSaysWhyAndClosesTheSocket) {
    const int free = lowest_free_descriptor();
    driver.table_error = EOPNOTSUPP;
    EXPECT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_NO_TABLE);
    EXPECT_EQ(errno, EOPNOTSUPP);
    EXPECT_EQ(driver.table_rooms.size(), 1u);
    EXPECT_EQ(lowest_free_descriptor(), free);
}

TEST_F(WlPrivOpen, WithoutMemoryForTheTableSaysSo) {
    const int free = lowest_free_descriptor();
    fail_nth_call("calloc", 1);
    EXPECT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_NO_TABLE);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(lowest_free_descriptor(), free);
}

TEST_F(WlPrivOpen, AnUnknownCommandIsReportedAndTheSocketClosed) {
    const int free = lowest_free_descriptor();
    offer({priv_entry(REAL_IOCTL, 0, 0, "other")});
    EXPECT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_UNKNOWN_COMMAND);
    EXPECT_EQ(lowest_free_descriptor(), free);
}

TEST_F(WlPrivOpen, AnEmptyTableHasNoCommand) {
    offer({});
    EXPECT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_UNKNOWN_COMMAND);
}

TEST_F(WlPrivOpen, ANameOfSixteenCharactersHasNoNul) {
    offer({priv_entry(REAL_IOCTL, 0, 0, "sixteen_letters"), priv_entry(REAL_IOCTL + 1, 0, 0, "sixteen_letters_")});
    EXPECT_EQ(wl_priv_open(&command_, "ath0", "sixteen_letters_"), WL_PRIV_OK);
    EXPECT_EQ(command_.request, REAL_IOCTL + 1);
}

TEST_F(WlPrivOpen, TheWholeNameCounts) {
    offer({priv_entry(REAL_IOCTL, 0, 0, "sixteen_letters_"), priv_entry(REAL_IOCTL, 0, 0, "get_vaps")});
    wl_priv_command command;
    EXPECT_EQ(wl_priv_open(&command, "ath0", "sixteen_letters_x"), WL_PRIV_UNKNOWN_COMMAND);
    EXPECT_EQ(wl_priv_open(&command, "ath0", "sixteen_letters"), WL_PRIV_UNKNOWN_COMMAND);
    EXPECT_EQ(wl_priv_open(&command, "ath0", "get_vap"), WL_PRIV_UNKNOWN_COMMAND);
    EXPECT_EQ(wl_priv_open(&command, "ath0", "GET_VAPS"), WL_PRIV_UNKNOWN_COMMAND);
}

TEST_F(WlPrivOpen, TheFirstEntryOfANameCounts) {
    offer({priv_entry(REAL_IOCTL, 0, 0, "command"), priv_entry(REAL_IOCTL + 1, 0, 0, "command")});
    ASSERT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_OK);
    EXPECT_EQ(command_.request, REAL_IOCTL);
}

TEST_F(WlPrivOpen, AsksForALongTableWithMoreRoom) {
    std::vector<iw_priv_args> table(300, priv_entry(REAL_IOCTL, 0, 0, "other"));
    table.push_back(priv_entry(REAL_IOCTL + 1, 0, 0, "command"));
    offer(table);
    ASSERT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_OK);
    EXPECT_EQ(driver.table_rooms, (std::vector<unsigned>{128, 256, 512}));
}

TEST_F(WlPrivOpen, GivesUpOnATableWithoutEnd) {
    driver.table_error = E2BIG;
    EXPECT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_NO_TABLE);
    EXPECT_EQ(errno, E2BIG);
    EXPECT_EQ(driver.table_rooms, (std::vector<unsigned>{128, 256, 512, 1024, 2048, 4096}));
}

TEST_F(WlPrivOpen, AMemoryShortageForALongerTableIsReported) {
    driver.table_error = E2BIG;
    fail_nth_call("calloc", 2);
    EXPECT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_NO_TABLE);
    EXPECT_EQ(errno, ENOMEM);
}

TEST_F(WlPrivOpen, LooksAtNoEntryBeyondTheTable) {
    offer({priv_entry(REAL_IOCTL, 0, 0, "other")});
    driver.reported_count = 65535;
    EXPECT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_UNKNOWN_COMMAND);
}

TEST_F(WlPrivOpen, LooksAtNoEntryThatTheDriverDoesNotCount) {
    offer({priv_entry(REAL_IOCTL, 0, 0, "other"), priv_entry(REAL_IOCTL, 0, 0, "command")});
    driver.reported_count = 1;
    EXPECT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_UNKNOWN_COMMAND);
}

TEST_F(WlPrivOpen, AnInterfaceNameWithoutNulIsCut) {
    driver.tables["fifteen_letters"] = {priv_entry(REAL_IOCTL, 0, 0, "command")};
    const char name[IFNAMSIZ] = {'f', 'i', 'f', 't', 'e', 'e', 'n', '_', 'l', 'e', 't', 't', 'e', 'r', 's', '!'};
    EXPECT_EQ(wl_priv_open(&command_, name, "command"), WL_PRIV_OK);
    EXPECT_STREQ(command_.interface, "fifteen_letters");
}

TEST_F(WlPrivOpen, ASubCommandIsCarriedByTheNamelessIoctlWithItsArguments) {
    offer({
        priv_entry(7, BYTES | FIXED | 6, INTS | FIXED | 1, "command"),
        priv_entry(REAL_IOCTL, BYTES | FIXED | 6, INTS | FIXED | 1, "named"),
        priv_entry(REAL_IOCTL + 1, BYTES | FIXED | 5, INTS | FIXED | 1, ""),
        priv_entry(REAL_IOCTL + 2, BYTES | FIXED | 6, INTS | FIXED | 2, ""),
        priv_entry(8, BYTES | FIXED | 6, INTS | FIXED | 1, ""),
        priv_entry(SIOCDEVPRIVATE, BYTES | FIXED | 6, INTS | FIXED | 1, ""),
        priv_entry(REAL_IOCTL + 3, BYTES | FIXED | 6, INTS | FIXED | 1, ""),
    });
    ASSERT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_OK);
    EXPECT_TRUE(command_.is_sub_command);
    EXPECT_EQ(command_.sub_command, 7u);
    EXPECT_EQ(command_.request, uint32_t{SIOCDEVPRIVATE});
}

TEST_F(WlPrivOpen, TheLastNumberBelowTheDeviceRangeIsASubCommand) {
    offer({priv_entry(SIOCDEVPRIVATE - 1, 0, 0, "command"), priv_entry(REAL_IOCTL, 0, 0, "")});
    ASSERT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_OK);
    EXPECT_TRUE(command_.is_sub_command);
    EXPECT_EQ(command_.request, REAL_IOCTL);
}

TEST_F(WlPrivOpen, ASubCommandThatNoIoctlCarriesIsReported) {
    const int free = lowest_free_descriptor();
    offer({priv_entry(7, BYTES | 6, 0, "command"), priv_entry(REAL_IOCTL, BYTES | FIXED | 6, 0, "")});
    EXPECT_EQ(wl_priv_open(&command_, "ath0", "command"), WL_PRIV_NO_IOCTL);
    EXPECT_EQ(lowest_free_descriptor(), free);
}

using WlPrivCall = WlPriv;

TEST_F(WlPrivCall, FixedDataThatFitsTravelsInTheRequest) {
    open_command(BYTES | FIXED | 16, 0);
    EXPECT_EQ(call("0123456789abcdef"), WL_PRIV_OK);
    ASSERT_EQ(driver.calls.size(), 1u);
    EXPECT_EQ(driver.calls[0].interface, "ath0");
    EXPECT_EQ(driver.calls[0].request, REAL_IOCTL);
    EXPECT_EQ(driver.calls[0].in_request(), "0123456789abcdef");
}

TEST_F(WlPrivCall, FixedDataThatDoesNotFitGoesByPointer) {
    open_command(CHARS | FIXED | 17, 0);
    driver.on_call = [](driver_call &, iwreq &request) {
        EXPECT_EQ(request.u.data.length, 17);
        EXPECT_EQ(request.u.data.flags, 0);
        EXPECT_EQ(pointed_at(request, 18), padded("0123456789abcdefg", 18));
        return 0;
    };
    EXPECT_EQ(call("0123456789abcdefg"), WL_PRIV_OK);
    EXPECT_EQ(driver.calls.size(), 1u);
}

TEST_F(WlPrivCall, ANumberThatMayVaryGoesByPointer) {
    open_command(BYTES | 16, 0);
    driver.on_call = [](driver_call &, iwreq &request) {
        EXPECT_EQ(request.u.data.length, 3);
        EXPECT_EQ(pointed_at(request, 4), padded("abc", 4));
        return 0;
    };
    EXPECT_EQ(call("abc"), WL_PRIV_OK);
    EXPECT_EQ(driver.calls.size(), 1u);
}

TEST_F(WlPrivCall, IntegersAreCountedNotBytes) {
    open_command(INTS | FIXED | 5, 0);
    driver.on_call = [](driver_call &, iwreq &request) {
        EXPECT_EQ(request.u.data.length, 5);
        EXPECT_EQ(pointed_at(request, 20), std::string(20, 'i'));
        return 0;
    };
    EXPECT_EQ(call(std::string(20, 'i')), WL_PRIV_OK);
    EXPECT_EQ(driver.calls.size(), 1u);
}

TEST_F(WlPrivCall, AVaryingNumberOfIntegersIsCutToWholeOnes) {
    open_command(INTS | 5, 0);
    driver.on_call = [](driver_call &, iwreq &request) {
        EXPECT_EQ(request.u.data.length, 2);
        EXPECT_EQ(pointed_at(request, 12), padded("12345678", 12));
        return 0;
    };
    EXPECT_EQ(call("1234567890"), WL_PRIV_OK);
    EXPECT_EQ(driver.calls.size(), 1u);
}

TEST_F(WlPrivCall, FourIntegersFitInTheRequest) {
    open_command(INTS | FIXED | 4, 0);
    EXPECT_EQ(call("0123456789abcdef"), WL_PRIV_OK);
    EXPECT_EQ(driver.calls[0].in_request(), "0123456789abcdef");
}

TEST_F(WlPrivCall, DataBeyondTheDescriptorIsLeftOut) {
    open_command(BYTES | FIXED | 6, 0);
    EXPECT_EQ(call("0123456789"), WL_PRIV_OK);
    EXPECT_EQ(driver.calls[0].in_request(), padded("012345", 16));
}

TEST_F(WlPrivCall, MissingDataIsZero) {
    open_command(BYTES | FIXED | 6, 0);
    EXPECT_EQ(wl_priv_call(&command_, nullptr, 0, nullptr, 0), WL_PRIV_OK);
    EXPECT_EQ(driver.calls[0].in_request(), std::string(16, '\0'));
}

TEST_F(WlPrivCall, ACommandWithoutArgumentsPointsAtNoData) {
    open_command(0, 0);
    EXPECT_EQ(call(""), WL_PRIV_OK);
    EXPECT_EQ(driver.calls[0].data.u.data.length, 0);
}

TEST_F(WlPrivCall, TheNumberOfASubCommandPrecedesDataInTheRequest) {
    open_sub_command(BYTES | FIXED | 12, 0);
    EXPECT_EQ(call("0123456789ab"), WL_PRIV_OK);
    EXPECT_EQ(driver.calls[0].request, REAL_IOCTL);
    EXPECT_EQ(driver.calls[0].in_request(), sub_command_number(7) + "0123456789ab");
}

TEST_F(WlPrivCall, DataOfASubCommandThatNoLongerFitsGoesByPointerWithTheNumberInTheFlags) {
    open_sub_command(BYTES | FIXED | 13, 0);
    driver.on_call = [](driver_call &, iwreq &request) {
        EXPECT_EQ(request.u.data.flags, 7);
        EXPECT_EQ(request.u.data.length, 13);
        EXPECT_EQ(pointed_at(request, 13), "0123456789abc");
        return 0;
    };
    EXPECT_EQ(call("0123456789abc"), WL_PRIV_OK);
    EXPECT_EQ(driver.calls.size(), 1u);
}

TEST_F(WlPrivCall, ASubCommandThatOnlyGetsHasItsNumberInTheRequest) {
    open_sub_command(0, BYTES | FIXED | 16);
    driver.on_call = [](driver_call &call, iwreq &request) {
        EXPECT_EQ(call.in_request(), padded(sub_command_number(7), 16));
        reply_in_request(request, "0123456789abcdef", 16);
        return 0;
    };
    std::string reply(16, '?');
    EXPECT_EQ(call("", reply.data(), reply.size()), WL_PRIV_OK);
    EXPECT_EQ(reply, "0123456789abcdef");
}

TEST_F(WlPrivCall, ASubCommandThatGetsMuchHasItsNumberInTheFlags) {
    open_sub_command(0, BYTES | FIXED | 110);
    driver.on_call = [](driver_call &, iwreq &request) {
        EXPECT_EQ(request.u.data.flags, 7);
        reply_by_pointer(request, std::string(110, 'v'), 110);
        return 0;
    };
    std::string reply(110, '?');
    EXPECT_EQ(call("", reply.data(), reply.size()), WL_PRIV_OK);
    EXPECT_EQ(reply, std::string(110, 'v'));
}

TEST_F(WlPrivCall, AnIntegerComesBackInTheMachinesOwnOrder) {
    open_command(BYTES | FIXED | 6, INTS | FIXED | 1);
    driver.on_call = [](driver_call &, iwreq &request) {
        const int32_t value = -2;
        reply_in_request(request, &value, sizeof value);
        return 0;
    };
    int32_t reply = 0;
    EXPECT_EQ(call("012345", &reply, sizeof reply), WL_PRIV_OK);
    EXPECT_EQ(reply, -2);
}

TEST_F(WlPrivCall, AReplyThatFitsComesInTheRequestAlsoWhenTheDataWentByPointer) {
    open_command(BYTES | FIXED | 17, BYTES | FIXED | 2);
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_in_request(request, "ok", 2);
        return 0;
    };
    std::string reply(2, '?');
    EXPECT_EQ(call("0123456789abcdefg", reply.data(), reply.size()), WL_PRIV_OK);
    EXPECT_EQ(reply, "ok");
}

TEST_F(WlPrivCall, AFixedReplyIsWholeWhateverLengthTheDriverReports) {
    open_command(0, BYTES | FIXED | 110);
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_by_pointer(request, std::string(110, 'v'), 65535);
        return 0;
    };
    std::string reply(512, '?');
    EXPECT_EQ(call("", reply.data(), reply.size()), WL_PRIV_OK);
    EXPECT_EQ(reply, padded(std::string(110, 'v'), 512));
}

TEST_F(WlPrivCall, AShortReplyIsFilledUpWithZeros) {
    open_command(0, BYTES | FIXED | 110);
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_by_pointer(request, "short", 5);
        return 0;
    };
    std::string reply(110, '?');
    EXPECT_EQ(call("", reply.data(), reply.size()), WL_PRIV_OK);
    EXPECT_EQ(reply, padded("short", 110));
}

TEST_F(WlPrivCall, AVaryingReplyHasTheLengthThatTheDriverReports) {
    open_command(0, BYTES | 110);
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_by_pointer(request, "long enough", 4);
        return 0;
    };
    std::string reply(110, '?');
    EXPECT_EQ(call("", reply.data(), reply.size()), WL_PRIV_OK);
    EXPECT_EQ(reply, padded("long", 110));
}

TEST_F(WlPrivCall, AVaryingReplyIsCountedInArguments) {
    open_command(0, INTS | 110);
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_by_pointer(request, "1234567890", 2);
        return 0;
    };
    std::string reply(16, '?');
    EXPECT_EQ(call("", reply.data(), reply.size()), WL_PRIV_OK);
    EXPECT_EQ(reply, padded("12345678", 16));
}

TEST_F(WlPrivCall, AVaryingReplyIsNeverLongerThanItsDescriptor) {
    open_command(0, BYTES | 20);
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_by_pointer(request, std::string(512, 'v'), 65535);
        return 0;
    };
    std::string reply(512, '?');
    EXPECT_EQ(call("", reply.data(), reply.size()), WL_PRIV_OK);
    EXPECT_EQ(reply, padded(std::string(20, 'v'), 512));
}

TEST_F(WlPrivCall, AReplyIsCutToTheCallersRoom) {
    open_command(0, BYTES | FIXED | 110);
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_by_pointer(request, std::string(110, 'v'), 110);
        return 0;
    };
    std::string reply(10, '?');
    EXPECT_EQ(wl_priv_call(&command_, nullptr, 0, reply.data(), 4), WL_PRIV_OK);
    EXPECT_EQ(reply, "vvvv??????");
}

TEST_F(WlPrivCall, ADriverThatFoundNoPlaceForItsReplyGaveNone) {
    open_command(BYTES | FIXED | 4, BYTES | FIXED | 110);
    std::string reply(110, '?');
    EXPECT_EQ(call("\xff\xff\xff\xff", reply.data(), reply.size()), WL_PRIV_OK);
    EXPECT_EQ(reply, std::string(110, '\0'));
}

TEST_F(WlPrivCall, TheReplyMayReplaceTheData) {
    open_command(BYTES | FIXED | 20, BYTES | FIXED | 20);
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_by_pointer(request, std::string(20, 'r'), 20);
        return 0;
    };
    std::string data(20, 'd');
    EXPECT_EQ(wl_priv_call(&command_, data.data(), data.size(), data.data(), data.size()), WL_PRIV_OK);
    EXPECT_EQ(data, std::string(20, 'r'));
}

TEST_F(WlPrivCall, FiveHundredAndTwelveBytesAreTheMostInEitherDirection) {
    open_command(BYTES | FIXED | 512, BYTES | FIXED | 512);
    EXPECT_EQ(call(std::string(512, 'x')), WL_PRIV_OK);
    command_.set_args = BYTES | FIXED | 513;
    EXPECT_EQ(call(""), WL_PRIV_TOO_LARGE);
    command_.set_args = INTS | FIXED | 129;
    EXPECT_EQ(call(""), WL_PRIV_TOO_LARGE);
    command_.set_args = 0;
    command_.get_args = BYTES | 513;
    EXPECT_EQ(call(""), WL_PRIV_TOO_LARGE);
    EXPECT_EQ(driver.calls.size(), 1u);
}

TEST_F(WlPrivCall, ACommandThatMayTakeMoreTakesLess) {
    open_command(BYTES | 2047, 0);
    EXPECT_EQ(call(std::string(512, 'x')), WL_PRIV_OK);
    EXPECT_EQ(call(std::string(513, 'x')), WL_PRIV_TOO_LARGE);
    EXPECT_EQ(driver.calls.size(), 1u);
}

class WlPrivUnsupported : public WlPriv, public testing::WithParamInterface<uint16_t> {};

TEST_P(WlPrivUnsupported, ArgumentTypeIsNotCalled) {
    open_command(GetParam() | 1, 0);
    EXPECT_EQ(call("x"), WL_PRIV_UNSUPPORTED_TYPE);
    command_.set_args = 0;
    command_.get_args = GetParam() | FIXED | 1;
    EXPECT_EQ(call("x"), WL_PRIV_UNSUPPORTED_TYPE);
    EXPECT_TRUE(driver.calls.empty());
}

INSTANTIATE_TEST_SUITE_P(Types, WlPrivUnsupported,
                         testing::Values(IW_PRIV_TYPE_FLOAT, IW_PRIV_TYPE_ADDR, 0x3000, 0x7000));

TEST_F(WlPrivCall, AFailureSaysWhyAndLeavesTheReplyAlone) {
    open_command(BYTES | FIXED | 6, INTS | FIXED | 1);
    driver.on_call = [](driver_call &, iwreq &request) {
        reply_in_request(request, "9999", 4);
        return ENODEV;
    };
    int32_t reply = 5;
    EXPECT_EQ(call("012345", &reply, sizeof reply), WL_PRIV_FAILED);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(reply, 5);
}

TEST_F(WlPrivCall, ACommandMayBeCalledAgain) {
    open_command(BYTES | FIXED | 1, 0);
    EXPECT_EQ(call("1"), WL_PRIV_OK);
    EXPECT_EQ(call("2"), WL_PRIV_OK);
    EXPECT_EQ(driver.calls[1].in_request(), padded("2", 16));
}

TEST_F(WlPriv, ClosingKeepsErrnoAndFreesTheDescriptor) {
    const int free = lowest_free_descriptor();
    open_command(0, 0);
    errno = ENODEV;
    wl_priv_close(&command_);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(command_.socket, -1);
    EXPECT_EQ(lowest_free_descriptor(), free);
}

}  // namespace
