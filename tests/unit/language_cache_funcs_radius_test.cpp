// The line of a RADIUS packet: its name and its attributes.
#include <cerrno>

#include "fault.h"
#include "language_cache_fixture.h"

namespace {

using namespace std::string_literals;

constexpr char HEAD[] = "Radius Pkt Type: Access-Request";

/// An attribute: for types 0, 4 and 9 the word is the length of the text that follows.
std::string attribute(const std::string &name, uint32_t type, uint32_t word, const std::string &text = {}) {
    return field(name, 33) + big_endian_text(99) + big_endian_text(type) + big_endian_text(word) + text;
}

std::string text_attribute(const std::string &name, uint32_t type, const std::string &text) {
    return attribute(name, type, static_cast<uint32_t>(text.size()), text);
}

std::string parse(const logged_event &event, int rad_attr = 1) {
    char *line = nullptr;
    parse_radius_attr(&event.params, &line, rad_attr);
    return taken(line);
}

/// What stands behind the packet's name for these attributes.
std::string shown(const std::string &attributes) {
    const std::string line = parse({15, 801, attributes});
    EXPECT_EQ(line.substr(0, sizeof HEAD - 1), HEAD);
    return line.substr(std::min(line.size(), sizeof HEAD - 1));
}

struct packet {
    int subinfo_code;
    const char *name;
};

const packet PACKETS[] = {
    {800, "Invalid"},
    {801, "Access-Request"},
    {802, "Access-Accept"},
    {803, "Access-Reject"},
    {804, "Accounting-Request"},
    {805, "Accounting-Response"},
    {806, "Accounting-Status"},
    {807, "Password-Request"},
    {808, "Password-Ack"},
    {809, "Password-Reject"},
    {810, "Accounting-Message"},
    {811, "Access-Challenge"},
    {812, "Status-Server"},
    {813, "Status-Client"},
    {814, "Invalid"},
    {839, "Invalid"},
    {840, "Disconnect-Request"},
    {841, "Disconnect-Ack"},
    {842, "Disconnect-Nak"},
    {843, "COA-Request"},
    {844, "COA-Ack"},
    {845, "COA-Nak"},
    {846, "Invalid"},
    {1055, "Invalid"},
    {65535, "Invalid"},
};

TEST(RadiusType, NamesThePacketOfASubinfoCode) {
    for (const auto &[subinfo_code, name] : PACKETS) {
        const auto given = std::make_unique<char[]>(21);
        radius_type(subinfo_code, given.get());
        EXPECT_STREQ(given.get(), name) << subinfo_code;
    }
}

TEST(RadiusLine, BeginsWithThePacketsName) {
    for (const auto &[subinfo_code, name] : PACKETS)
        EXPECT_EQ(parse({15, subinfo_code}), std::string("Radius Pkt Type: ") + name);
}

TEST(RadiusLine, ShowsAttributesOnlyWhenAsked) {
    const logged_event event(15, 801, attribute("Port", 1, 5));
    EXPECT_EQ(parse(event, 0), HEAD);
    EXPECT_EQ(parse(event, 1), HEAD + "\n\t\t[Port: 5]"s);
    EXPECT_EQ(parse(event, -1), HEAD + "\n\t\t[Port: 5]"s);
}

TEST(RadiusLine, WithoutAValueIsTheName) {
    EXPECT_EQ(parse({15, 801}), HEAD);
    logged_event event(15, 801);
    event.params.subinfo_value_len = 45;
    EXPECT_EQ(parse(event), HEAD);
}

TEST(RadiusLine, OfANegativeLengthIsTheName) {
    logged_event event(15, 801, attribute("Port", 1, 5));
    event.params.subinfo_value_len = -45;
    EXPECT_EQ(parse(event), HEAD);
}

TEST(RadiusLine, NeedsWholeAttributes) {
    EXPECT_EQ(shown(attribute("Port", 1, 5).substr(0, 44)), "");
    EXPECT_EQ(shown(attribute("Port", 1, 5)), "\n\t\t[Port: 5]");
    EXPECT_EQ(shown(attribute("Port", 1, 5) + attribute("Type", 1, 6).substr(0, 44)), "\n\t\t[Port: 5]");
}

TEST(RadiusLine, ShowsIntegersUnsigned) {
    EXPECT_EQ(shown(attribute("Port", 1, 0xFFFFFFFF)), "\n\t\t[Port: 4294967295]");
    EXPECT_EQ(shown(attribute("Port", 1, 0x01020304)), "\n\t\t[Port: 16909060]");
}

TEST(RadiusLine, ShowsAddressesDotted) {
    EXPECT_EQ(shown(attribute("NAS-IP-Address", 2, 0xC0A801FE)), "\n\t\t[NAS-IP-Address: 192.168.1.254]");
}

TEST(RadiusLine, ShowsTexts) {
    EXPECT_EQ(shown(text_attribute("User-Name", 0, "anna")), "\n\t\t[User-Name: anna]");
    EXPECT_EQ(shown(text_attribute("Class", 4, "a b")), "\n\t\t[Class: a b]");
}

TEST(RadiusLine, ShowsTextsOfType9WithTheBlankBeforeTheColon) {
    EXPECT_EQ(shown(text_attribute("User-Name", 9, "anna")), "\n\t\t[User-Name :anna]");
}

TEST(RadiusLine, ShowsATextUpToItsNul) {
    EXPECT_EQ(shown(text_attribute("Class", 4, "ab\0cd"s) + attribute("Port", 1, 5)),
              "\n\t\t[Class: ab]\n\t\t[Port: 5]");
}

TEST(RadiusLine, ShowsAnEmptyText) {
    EXPECT_EQ(shown(text_attribute("Class", 0, "")), "\n\t\t[Class: ]");
    EXPECT_EQ(shown(text_attribute("Class", 9, "") + attribute("Port", 1, 5)), "\n\t\t[Class :]\n\t\t[Port: 5]");
}

TEST(RadiusLine, PassesOverType3WithoutConsumingText) {
    EXPECT_EQ(shown(attribute("Date", 3, 1000) + attribute("Port", 1, 5)), "\n\t\t[Port: 5]");
}

TEST(RadiusLine, EndsAtAnUnknownType) {
    for (const auto &[type, number] : std::vector<std::pair<uint32_t, const char *>>{
             {5, "5"}, {6, "6"}, {7, "7"}, {8, "8"}, {10, "10"}, {0x80000000, "-2147483648"}, {0xFFFFFFFF, "-1"}})
        EXPECT_EQ(shown(attribute("Port", 1, 5) + attribute("What", type, 0) + attribute("Port", 1, 6)),
                  "\n\t\t[Port: 5]\n\t\t[Invalid radius attribute type "s + number + "]");
}

TEST(RadiusLine, CutsATextThatClaimsMoreThanThereIsAndEnds) {
    EXPECT_EQ(shown(attribute("Class", 0, 5, "abcd")), "\n\t\t[Class: abcd]");
    EXPECT_EQ(shown(attribute("Class", 0, 0xFFFFFFFF, "abcd")), "\n\t\t[Class: abcd]");
    EXPECT_EQ(shown(attribute("Class", 9, 0x80000000, "")), "\n\t\t[Class :]");
    EXPECT_EQ(shown(attribute("Class", 4, 46, attribute("Port", 1, 5))), "\n\t\t[Class: Port]");
}

TEST(RadiusLine, CutsAPieceAt255Characters) {
    // Newline, two tabs, bracket, name of five, colon and blank.
    const std::string text(243, 't');
    EXPECT_EQ(shown(text_attribute("Class", 0, text)), "\n\t\t[Class: " + text + "]");
    EXPECT_EQ(shown(text_attribute("Class", 0, text + "u")), "\n\t\t[Class: " + text + "u");
    EXPECT_EQ(shown(text_attribute("Class", 0, text + "uv")), "\n\t\t[Class: " + text + "u");
}

TEST(RadiusLine, ConsumesALongTextWhole) {
    for (const size_t length : {255, 256, 257, 300, 1000})
        EXPECT_EQ(shown(text_attribute("Class", 4, std::string(length, 't')) + attribute("Port", 1, 5)),
                  "\n\t\t[Class: " + std::string(244, 't') + "\n\t\t[Port: 5]");
}

TEST(RadiusLine, TakesANameThatFillsItsField) {
    const std::string name(33, 'n');
    EXPECT_EQ(shown(attribute(name, 1, 5)), "\n\t\t[" + name + ": 5]");
    EXPECT_EQ(shown(attribute("", 1, 5)), "\n\t\t[: 5]");
}

TEST(RadiusLine, GrowsWithItsAttributes) {
    std::string attributes;
    std::string text;
    for (int i = 0; i < 44; i++) {
        attributes += attribute(std::string(33, 'n'), 2, 0xFFFFFFFF);
        text += "\n\t\t[" + std::string(33, 'n') + ": 255.255.255.255]";
    }
    EXPECT_GT(text.size(), 2048u);
    EXPECT_EQ(shown(attributes), text);
}

TEST(RadiusLine, GrowsWithTextsOf64KiB) {
    std::string attributes;
    std::string text;
    while (attributes.size() + 345 <= 65535) {
        attributes += text_attribute("Class", 0, std::string(300, 't'));
        text += "\n\t\t[Class: " + std::string(244, 't');
    }
    EXPECT_EQ(shown(attributes), text);
}

TEST(RadiusLine, IsNotHandedOverWhicheverAllocationFails) {
    const logged_event event(15, 801, [] {
        std::string attributes;
        for (int i = 0; i < 200; i++)
            attributes += attribute("Port", 1, 5);
        return attributes;
    }());
    int nth = 1;
    for (;; nth++) {
        char other = 'x';
        char *line = &other;
        fail_nth_call("realloc", nth, ENOMEM);
        parse_radius_attr(&event.params, &line, 1);
        if (faults_fired("realloc") == 0) {
            EXPECT_EQ(taken(line).size(), sizeof HEAD - 1 + 200 * 12);
            break;
        }
        EXPECT_EQ(line, &other);
    }
    EXPECT_EQ(nth, 3);
}

}  // namespace
