#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "language_cache_funcs_internal.h"

namespace {

constexpr size_t LINE_CAPACITY = 2047;
constexpr size_t PIECE_SIZE = 256;

// An attribute in the value, all numbers big-endian: name, number, type and a word, which is the attribute's value or
// the length of the text that follows.
constexpr size_t TYPE_OFFSET = 37;
constexpr size_t WORD_OFFSET = 41;
constexpr size_t ATTRIBUTE_SIZE = 45;
constexpr size_t TEXT_LIMIT = 256;

enum attribute_type : uint32_t {
    ATTRIBUTE_TEXT = 0,
    ATTRIBUTE_INTEGER = 1,
    ATTRIBUTE_ADDRESS = 2,
    ATTRIBUTE_UNSHOWN = 3,
    ATTRIBUTE_OCTETS = 4,
    ATTRIBUTE_OTHER_TEXT = 9,
};

struct packet_name {
    int subinfo_code;
    const char *name;
};

constexpr packet_name PACKET_NAMES[] = {
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
    {840, "Disconnect-Request"},
    {841, "Disconnect-Ack"},
    {842, "Disconnect-Nak"},
    {843, "COA-Request"},
    {844, "COA-Ack"},
    {845, "COA-Nak"},
};

constexpr size_t PACKET_NAME_SIZE = 21;

/// Appends one attribute's piece, which is cut at 255 characters.
__attribute__((format(printf, 2, 3))) void append_piece(growing_text *line, const char *format, ...) {
    char piece[PIECE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(piece, sizeof piece, format, arguments);
    va_end(arguments);
    if (length > 0)
        append(line, {piece, std::min(static_cast<size_t>(length), sizeof piece - 1)});
}

/// Appends the attribute that `rest` begins with and moves `rest` behind it.
///
/// @return whether more may follow
bool append_attribute(growing_text *line, value_bytes *rest) {
    const value_bytes attribute = rest->first(ATTRIBUTE_SIZE);
    *rest = rest->subspan(ATTRIBUTE_SIZE);
    const short_name name = name_at_start(attribute);
    const uint32_t type = number_at(attribute, TYPE_OFFSET, 4);
    const uint32_t word = number_at(attribute, WORD_OFFSET, 4);
    switch (type) {
    case ATTRIBUTE_INTEGER:
        append_piece(line, "\n\t\t[%s: %u]", name.text, word);
        return true;
    case ATTRIBUTE_ADDRESS:
        append_piece(line, "\n\t\t[%s: %s]", name.text, address_at(attribute, WORD_OFFSET).text);
        return true;
    case ATTRIBUTE_UNSHOWN:
        return true;
    case ATTRIBUTE_TEXT:
    case ATTRIBUTE_OCTETS:
    case ATTRIBUTE_OTHER_TEXT:
        break;
    default:
        append_piece(line, "\n\t\t[Invalid radius attribute type %d]", static_cast<int32_t>(type));
        return false;
    }
    const value_bytes bytes = rest->first(std::min<size_t>(word, rest->size()));
    *rest = rest->subspan(bytes.size());
    const std::string_view text = text_of(bytes.first(std::min(bytes.size(), TEXT_LIMIT)));
    // Type 9 has its blank on the other side of the colon.
    append_piece(line, type == ATTRIBUTE_OTHER_TEXT ? "\n\t\t[%s :%.*s]" : "\n\t\t[%s: %.*s]", name.text,
                 static_cast<int>(text.size()), text.data());
    return true;
}

}  // namespace

void radius_type(int subinfo_code, char *name) {
    const auto *const found = std::find_if(std::begin(PACKET_NAMES), std::end(PACKET_NAMES),
                                           [=](const packet_name &each) { return each.subinfo_code == subinfo_code; });
    (void)std::snprintf(name, PACKET_NAME_SIZE, "%s", found != std::end(PACKET_NAMES) ? found->name : "Invalid");
}

void parse_radius_attr(const cl_debug_record_params *evt_info, char **output_mesg, int rad_attr) {
    growing_text line{};
    reserve(&line, LINE_CAPACITY);
    char name[PACKET_NAME_SIZE];
    radius_type(evt_info->subinfo_code, name);
    append_format(&line, "Radius Pkt Type: %s", name);
    value_bytes rest = rad_attr != 0 ? value_of(evt_info) : value_bytes{};
    while (rest.size() >= ATTRIBUTE_SIZE && append_attribute(&line, &rest)) {
    }
    if (line.failed) {
        std::free(line.text);
        return;
    }
    *output_mesg = line.text;
}
