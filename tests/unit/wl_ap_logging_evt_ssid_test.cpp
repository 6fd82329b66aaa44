// Which SSID a VAP serves, by the files of the SSID profiles.
#include "wl_ap_logging_evt_fixture.h"

#include <array>
#include <dirent.h>
#include <sys/stat.h>

namespace {

class VapSsid : public ApReports {
protected:
    void TearDown() override {
        for (const std::string &name : written_)
            std::filesystem::remove_all(folder(name));
        written_.clear();
        ApReports::TearDown();
    }

    static std::string folder(const std::string &name) {
        return "/tmp/" + name + "/";
    }

    /// An active SSID profile that is no role.
    static void write_profile(const std::string &name, const std::string &profile_conf, const std::string &wl_conf) {
        written_.push_back(name);
        std::filesystem::create_directories(folder(name));
        write_file(folder(name) + "profile.conf", profile_conf);
        write_file(folder(name) + "wl.conf", wl_conf);
        write_file(folder(name) + "running", "");
    }

    static void write_profile_of(const std::string &name, const std::string &ssid, const std::string &vaps) {
        write_profile(name, "VAP_LIST=" + vaps + "\n", "WL_PROFILE_SSID=" + ssid + "\n");
    }

    /// @return the SSID; "none" when there is none
    static std::string ssid_of(const char *vap) {
        std::array<char, 34> ssid;
        ssid.fill('?');
        const int result = translater_vap_to_ssid(vap, ssid.data());
        EXPECT_TRUE(result == 0 || result == 1);
        return result == 0 ? ssid.data() : "none";
    }

    /// @return whether a line of a profile's file names the VAP ath0
    static bool names_ath0(const std::string &profile_conf) {
        write_profile("profile1", profile_conf, "WL_PROFILE_SSID=net\n");
        return ssid_of("ath0") == "net";
    }

    /// @return the SSID that a "wl.conf" tells; "none" when it tells none
    static std::string ssid_in(const std::string &wl_conf) {
        written_.emplace_back("profile1");
        std::filesystem::create_directories("/tmp/profile1");
        write_file("/tmp/profile1/wl.conf", wl_conf);
        std::array<char, 34> ssid;
        ssid.fill('?');
        const int result = read_ssid_from_wl_conf("profile1", ssid.data());
        EXPECT_TRUE(result == 0 || result == 1);
        return result == 0 ? ssid.data() : "none";
    }

    static int selected(const std::string &name, unsigned char type = DT_DIR) {
        dirent entry{};
        entry.d_type = type;
        name.copy(entry.d_name, sizeof entry.d_name - 1);
        return profile_dir_selector(&entry);
    }

private:
    inline static std::vector<std::string> written_;
};

}  // namespace

// Which directories count

TEST_F(VapSsid, AnActiveProfilesDirectoryCounts) {
    write_profile_of("profile1", "net", "ath0");
    EXPECT_EQ(selected("profile1"), 1);
}

TEST_F(VapSsid, TheNameMayHoldTheWordAnywhere) {
    for (const char *const name : {"profile", "profile1", "my_profile", "xprofile2", "profile.old", " profile%s"}) {
        write_profile_of(name, "net", "ath0");
        EXPECT_EQ(selected(name), 1) << name;
    }
    for (const char *const name : {"Profile1", "profil", "network1", "pro-file"}) {
        write_profile_of(name, "net", "ath0");
        EXPECT_EQ(selected(name), 0) << name;
    }
}

TEST_F(VapSsid, OnlyDirectoriesCount) {
    write_profile_of("profile1", "net", "ath0");
    for (const unsigned char type : {DT_REG, DT_LNK, DT_FIFO, DT_SOCK, DT_CHR, DT_BLK})
        EXPECT_EQ(selected("profile1", type), 0);
}

TEST_F(VapSsid, AnEntryOfUnknownTypeIsLookedAt) {
    write_profile_of("profile1", "net", "ath0");
    EXPECT_EQ(selected("profile1", DT_UNKNOWN), 1);
    EXPECT_EQ(selected("profile1/running", DT_UNKNOWN), 0);
    EXPECT_EQ(selected("profile3", DT_UNKNOWN), 0);
}

TEST_F(VapSsid, AProfileThatDoesNotRunDoesNotCount) {
    write_profile_of("profile1", "net", "ath0");
    std::filesystem::remove("/tmp/profile1/running");
    EXPECT_EQ(selected("profile1"), 0);
    EXPECT_EQ(ssid_of("ath0"), "none");
}

TEST_F(VapSsid, ARoleProfileDoesNotCount) {
    write_profile_of("profile1", "net", "ath0");
    write_file("/tmp/profile1/is_role_profile", "");
    EXPECT_EQ(selected("profile1"), 0);
    EXPECT_EQ(ssid_of("ath0"), "none");
    expect_logged(7, "profile_dir_selector: Role profile /tmp/profile1/", [] { selected("profile1"); });
}

TEST_F(VapSsid, OnlyARunningRoleProfileIsLogged) {
    write_profile_of("profile1", "net", "ath0");
    write_file("/tmp/profile1/is_role_profile", "");
    std::filesystem::remove("/tmp/profile1/running");
    EXPECT_EQ(lines_at_level(7, [] { EXPECT_EQ(selected("profile1"), 0); }), lines{});
}

TEST_F(VapSsid, ARunningFileThatIsAPipeDoesNotBlock) {
    write_profile_of("profile1", "net", "ath0");
    std::filesystem::remove("/tmp/profile1/running");
    ASSERT_EQ(mkfifo("/tmp/profile1/running", 0600), 0);
    EXPECT_EQ(selected("profile1"), 1);
}

TEST_F(VapSsid, TheLongestNameIsHandled) {
    const std::string name = "profile" + std::string(248, 'x');
    write_profile_of(name, "net", "ath0");
    EXPECT_EQ(selected(name), 1);
    EXPECT_EQ(ssid_of("ath0"), "none");
}

// Which of several profiles

TEST_F(VapSsid, AVapIsFoundInItsProfile) {
    write_profile_of("profile1", "one", "ath0");
    write_profile_of("profile2", "two", "ath1");
    write_profile_of("profile3", "three", "ath2");
    EXPECT_EQ(ssid_of("ath0"), "one");
    EXPECT_EQ(ssid_of("ath1"), "two");
    EXPECT_EQ(ssid_of("ath2"), "three");
    EXPECT_EQ(ssid_of("ath3"), "none");
}

TEST_F(VapSsid, TheLastProfileOfTheAlphabetCounts) {
    write_profile_of("profile9", "nine", "ath0");
    write_profile_of("profile1", "one", "ath0");
    write_profile_of("profile10", "ten", "ath0");
    EXPECT_EQ(ssid_of("ath0"), "nine");
    write_profile_of("profilea", "letter", "ath0");
    EXPECT_EQ(ssid_of("ath0"), "letter");
    write_profile_of("profileB", "capital", "ath0");
    EXPECT_EQ(ssid_of("ath0"), "letter");
    write_profile_of("vprofile", "last", "ath0");
    EXPECT_EQ(ssid_of("ath0"), "last");
}

TEST_F(VapSsid, AProfileWithoutItsFileIsPassedOver) {
    write_profile_of("profile1", "one", "ath0");
    write_profile_of("profile2", "two", "ath0");
    std::filesystem::remove("/tmp/profile2/profile.conf");
    EXPECT_EQ(ssid_of("ath0"), "one");
    expect_logged(3, "translater_vap_to_ssid: ERROR cannot open profile.conf file /tmp/profile2/profile.conf",
                  [] { ssid_of("ath0"); });
}

TEST_F(VapSsid, ADirectorysNameOf12CharactersFits) {
    write_profile_of("profile12345", "net", "ath0");
    EXPECT_EQ(ssid_of("ath0"), "net");
}

TEST_F(VapSsid, ALongerNamesPathIsCut) {
    write_profile_of("profile123456", "net", "ath0");
    EXPECT_EQ(ssid_of("ath0"), "none");
    expect_logged(3, "translater_vap_to_ssid: ERROR cannot open profile.conf file /tmp/profile123456/profile.con",
                  [] { ssid_of("ath0"); });
    std::filesystem::rename("/tmp/profile123456/profile.conf", "/tmp/profile123456/profile.con");
    EXPECT_EQ(ssid_of("ath0"), "net");
}

TEST_F(VapSsid, TheFirstMatchEndsTheSearch) {
    write_profile_of("profile1", "one", "ath0");
    write_profile_of("profile2", "two", "ath0");
    std::filesystem::remove("/tmp/profile2/wl.conf");
    EXPECT_EQ(ssid_of("ath0"), "none");
    write_file("/tmp/profile2/wl.conf", "OTHER=1\n");
    EXPECT_EQ(ssid_of("ath0"), "none");
}

TEST_F(VapSsid, WithoutProfilesThereIsNoSsid) {
    EXPECT_EQ(lines_at_level(7, [] { EXPECT_EQ(ssid_of("ath0"), "none"); }), lines{});
}

TEST_F(VapSsid, SearchesLeaveNoFileOpen) {
    write_profile_of("profile1", "one", "ath0");
    write_profile_of("profile2", "two", "ath1");
    const auto open_files = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto before = open_files();
    for (const char *const vap : {"ath0", "ath1", "ath2"})
        ssid_of(vap);
    std::filesystem::remove("/tmp/profile1/wl.conf");
    ssid_of("ath0");
    EXPECT_EQ(open_files(), before);
}

TEST_F(VapSsid, EveryFileOfASearchMayFailToOpen) {
    write_profile_of("profile1", "net", "ath0");
    for (const int nth : {1, 2}) {
        fail_nth_call("fopen", nth, ENOMEM);
        EXPECT_EQ(ssid_of("ath0"), "none");
        EXPECT_EQ(faults_fired("fopen"), 1);
        clear_faults();
        EXPECT_EQ(ssid_of("ath0"), "net");
    }
}

// Lines that list VAPs

TEST_F(VapSsid, AVapMayStandAnywhereInTheList) {
    for (const char *const line :
         {"VAP_LIST=ath0\n", "VAP_LIST=ath0,ath1\n", "VAP_LIST=ath1,ath0\n", "VAP_LIST=a,ath0,b\n", "VAP_LIST=ath0",
          "VAP_LIST=,,ath0,,\n", "VAP_LIST= ath0\n", "VAP_LIST=\t ath0 ath1\n", "VAP_LIST=ath0\r\n"})
        EXPECT_TRUE(names_ath0(line)) << line;
}

TEST_F(VapSsid, NamesAreComparedWhole) {
    for (const char *const line :
         {"VAP_LIST=ath\n", "VAP_LIST=ath00\n", "VAP_LIST=ath1,ath01\n", "VAP_LIST=ATH0\n", "VAP_LIST=xath0\n",
          "VAP_LIST=ath1 ath0\n", "VAP_LIST=ath1, ath0\n", "VAP_LIST=ath1;ath0\n"})
        EXPECT_FALSE(names_ath0(line)) << line;
}

TEST_F(VapSsid, WhatFollowsADotIsNotOfTheName) {
    EXPECT_TRUE(names_ath0("VAP_LIST=ath0.100\n"));
    EXPECT_TRUE(names_ath0("VAP_LIST=ath1.2,ath0.100.200,ath3\n"));
    EXPECT_TRUE(names_ath0("VAP_LIST=ath0.\n"));
    EXPECT_FALSE(names_ath0("VAP_LIST=.ath0\n"));
    EXPECT_FALSE(names_ath0("VAP_LIST=ath.0\n"));
}

TEST_F(VapSsid, OnlyLinesThatBeginWithTheKeyCount) {
    for (const char *const line :
         {" VAP_LIST=ath0\n", "XVAP_LIST=ath0\n", "vap_list=ath0\n", "VAP_LIST =ath0\n", "VAP_LIST:ath0\n",
          "VAP_LIST=\n", "VAP_LIST\n", "#VAP_LIST=ath0\n", "VAP_LISTS=ath0\n", "\n", ""})
        EXPECT_FALSE(names_ath0(line)) << line;
    EXPECT_TRUE(names_ath0("\nKEY=1\nVAP_LIST=ath0\n"));
}

TEST_F(VapSsid, EveryListOfAFileCounts) {
    EXPECT_TRUE(names_ath0("VAP_LIST=ath1\nKEY=1\nVAP_LIST=ath0\n"));
    EXPECT_TRUE(names_ath0("VAP_LIST=\nVAP_LIST=ath0\n"));
}

TEST_F(VapSsid, ALineOf127CharactersIsReadWhole) {
    const std::string start = "VAP_LIST=" + std::string(127 - 9 - 5, 'x');
    EXPECT_TRUE(names_ath0(start + ",ath0"));
    EXPECT_TRUE(names_ath0(start + ",ath0\n"));
    EXPECT_FALSE(names_ath0(start + "x,ath0\n"));
    EXPECT_TRUE(names_ath0(start + ",ath0123,ath1\n"));  // cut to a name that is one
}

TEST_F(VapSsid, OfALongerLineOnlyTheFirstPieceCounts) {
    EXPECT_TRUE(names_ath0("VAP_LIST=ath0," + std::string(300, 'x') + "\n"));
    EXPECT_FALSE(names_ath0("VAP_LIST=" + std::string(300, 'x') + ",ath0\n"));
    EXPECT_FALSE(names_ath0(std::string(127, 'x') + "VAP_LIST=ath0\n"));
    EXPECT_TRUE(names_ath0(std::string(500, 'x') + "\nVAP_LIST=ath0\n"));
}

TEST_F(VapSsid, LinesOfAnyBytesAreSurvived) {
    std::string bytes;
    for (int byte = 0; byte < 256; byte++)
        bytes += static_cast<char>(byte);
    EXPECT_TRUE(names_ath0(bytes + "\nVAP_LIST=ath0\n"));
    EXPECT_FALSE(names_ath0("VAP_LIST=" + bytes + "\n"));
    EXPECT_FALSE(names_ath0(std::string("\0VAP_LIST=ath0\n", 15)));
}

TEST_F(VapSsid, ALineWithANulEndsAtItsNewline) {
    EXPECT_TRUE(names_ath0(std::string("a\0b\nVAP_LIST=ath0\n", 18)));
    EXPECT_TRUE(names_ath0(std::string("\0\nVAP_LIST=ath0\n", 16)));
    EXPECT_TRUE(names_ath0(std::string("VAP_LIST=ath0\0\n", 15)));
    EXPECT_FALSE(names_ath0(std::string("a\0VAP_LIST=ath0\n", 16)));
}

// The SSID in "wl.conf"

TEST_F(VapSsid, TheSsidIsTheValueOfItsKey) {
    EXPECT_EQ(ssid_in("WL_PROFILE_SSID=net\n"), "net");
    EXPECT_EQ(ssid_in("A=1\n# comment\n\nWL_PROFILE_SSID=a net, with = and %s\nB=2\n"), "a net, with = and %s");
    EXPECT_EQ(ssid_in("WL_PROFILE_SSID=last line"), "last line");
    EXPECT_EQ(ssid_in("WL_PROFILE_SSID=caf\xC3\xA9\n"), "caf\xC3\xA9");
}

TEST_F(VapSsid, BlanksAroundTheKeyAndTheEqualsSignAreNone) {
    EXPECT_EQ(ssid_in("  WL_PROFILE_SSID  =  net\n"), "net");
    EXPECT_EQ(ssid_in("\tWL_PROFILE_SSID\tnet\r\n"), "net");
    EXPECT_EQ(ssid_in("WL_PROFILE_SSID===net\n"), "net");
}

TEST_F(VapSsid, TheKeyMayBeWrittenInAnyCase) {
    EXPECT_EQ(ssid_in("wl_Profile_ssid=net\n"), "net");
}

TEST_F(VapSsid, TheKeyIsComparedWhole) {
    EXPECT_EQ(ssid_in("WL_PROFILE_SSID2=net\n"), "none");
    EXPECT_EQ(ssid_in("XWL_PROFILE_SSID=net\n"), "none");
    EXPECT_EQ(ssid_in("WL_PROFILE_SSI=net\n"), "none");
    EXPECT_EQ(ssid_in("WL_PROFILE_SSID_X=one\nWL_PROFILE_SSID=two\n"), "two");
}

TEST_F(VapSsid, TheFirstValueCounts) {
    EXPECT_EQ(ssid_in("WL_PROFILE_SSID=one\nWL_PROFILE_SSID=two\n"), "one");
    EXPECT_EQ(ssid_in("WL_PROFILE_SSID=\nWL_PROFILE_SSID=two\n"), "two");
}

TEST_F(VapSsid, AnSsidIsCutAfter33Bytes) {
    EXPECT_EQ(ssid_in("WL_PROFILE_SSID=" + std::string(32, 's') + "\n"), std::string(32, 's'));
    EXPECT_EQ(ssid_in("WL_PROFILE_SSID=" + std::string(33, 's') + "\n"), std::string(33, 's'));
    EXPECT_EQ(ssid_in("WL_PROFILE_SSID=" + std::string(34, 's') + "\n"), std::string(33, 's'));
    EXPECT_EQ(ssid_in("WL_PROFILE_SSID=" + std::string(900, 's') + "\n"), std::string(33, 's'));
}

TEST_F(VapSsid, WithoutTheKeyThereIsNone) {
    for (const std::string &text : {std::string(), std::string("\n"), std::string("KEY=value\n"),
                                    std::string("WL_PROFILE_SSID\n"), std::string(5000, '\xFF')})
        EXPECT_EQ(ssid_in(text), "none");
}

TEST_F(VapSsid, TheKeyIsLogged) {
    expect_logged(6, "read_ssid_from_wl_conf: WL_PROFILE_SSID", [] { ssid_in("A=1\nwl_profile_ssid=net\n"); });
    EXPECT_EQ(lines_at_level(7, [] { ssid_in("A=1\n"); }), lines{});
}

TEST_F(VapSsid, AFileThatCannotBeOpenedIsLogged) {
    std::array<char, 34> ssid{};
    expect_logged(3,
                  "read_ssid_from_wl_conf: Cannot open /tmp/profile1/wl.conf for reading (No such file or directory)",
                  [&ssid] { EXPECT_EQ(read_ssid_from_wl_conf("profile1", ssid.data()), 1); });
}
