// The search for a VAP's SSID among directories of any names with files of any bytes. The input is the VAP's name, a
// byte of length and its bytes, and then what "/tmp" holds: a byte with what there is of it, its name, a byte of length
// and its bytes, and the bytes of "profile.conf" and "wl.conf", each two bytes of length and its bytes. A search of its
// own says which directory the daemon must come to.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "event_payload.h"
#include "fuzz_input.h"
#include "wl_ap_logging_evt_internal.h"

namespace {

constexpr size_t SSID_SIZE = 34;  // of the caller's buffer

/// What a byte says of an entry of "/tmp".
enum : uint8_t {
    RUNNING = 0x03,
    ROLE = 0x0C,
    IS_FILE = 0x10,
    NO_PROFILE_CONF = 0x20,
    PROFILE_CONF_IS_DIRECTORY = 0x40,
    NO_WL_CONF = 0x80,
};

/// What a marker is.
enum marker : uint8_t {
    MISSING,
    PLAIN,
    PIPE,  // nobody writes to it
    LINK_TO_NONE,
};

struct entry {
    uint8_t what;
    std::string name, profile_conf, wl_conf;

    marker running() const {
        return static_cast<marker>(what & RUNNING);
    }

    marker role() const {
        return static_cast<marker>((what & ROLE) >> 2);
    }

    std::string path() const {
        return "/tmp/" + name;
    }
};

std::string text_of(const byte_string &bytes) {
    return {bytes.begin(), bytes.end()};
}

void write(const std::string &path, const std::string &bytes) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    require(fd >= 0 && ::write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    close(fd);
}

void make_marker(const std::string &path, marker kind) {
    if (kind == PLAIN)
        write(path, "");
    else if (kind == PIPE)
        require(mkfifo(path.c_str(), 0600) == 0);
    else if (kind == LINK_TO_NONE)
        require(symlink("/tmp/there is none", path.c_str()) == 0);
}

/// @return false for a name that is taken or none
bool make(const entry &of) {
    struct stat status;
    if (of.name.empty() || lstat(of.path().c_str(), &status) == 0)
        return false;
    if ((of.what & IS_FILE) != 0) {
        write(of.path(), of.profile_conf);
        return true;
    }
    require(mkdir(of.path().c_str(), 0700) == 0);
    make_marker(of.path() + "/running", of.running());
    make_marker(of.path() + "/is_role_profile", of.role());
    if ((of.what & PROFILE_CONF_IS_DIRECTORY) != 0)
        require(mkdir((of.path() + "/profile.conf").c_str(), 0700) == 0);
    else if ((of.what & NO_PROFILE_CONF) == 0)
        write(of.path() + "/profile.conf", of.profile_conf);
    if ((of.what & NO_WL_CONF) == 0)
        write(of.path() + "/wl.conf", of.wl_conf);
    return true;
}

/// A name for an entry of a directory.
std::string name_of(const byte_string &bytes) {
    std::string name = text_of(bytes);
    std::replace(name.begin(), name.end(), '/', '_');
    std::replace(name.begin(), name.end(), '\0', '_');
    return name;
}

std::vector<entry> make_all(input_reader &input) {
    std::vector<entry> made;
    while (!input.done()) {
        const uint8_t what = input.byte();
        const std::string name = name_of(input.short_block());
        const std::string profile_conf = text_of(input.file());
        const entry next{what, name, profile_conf, text_of(input.file())};
        if (make(next))
            made.push_back(next);
    }
    return made;
}

bool counts(const entry &of) {
    return of.name.find("profile") != std::string::npos && (of.what & IS_FILE) == 0 &&
           (of.running() == PLAIN || of.running() == PIPE) && (of.role() == MISSING || of.role() == LINK_TO_NONE);
}

bool is_blank(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

/// Takes what comes before a separator off the front, and the separator.
std::string take(std::string &text, char separator) {
    const size_t end = std::min(text.find(separator), text.size());
    const std::string taken = text.substr(0, end);
    text.erase(0, end + 1);
    return taken;
}

/// @param line  without its newline; the first 127 bytes count, and of these what stands before a NUL
bool line_names(const std::string &line, const std::string &vap) {
    constexpr char KEY[] = "VAP_LIST=";
    const std::string text = line.substr(0, 127).c_str();
    if (text.rfind(KEY, 0) != 0)
        return false;
    const auto start = std::find_if_not(text.begin() + sizeof KEY - 1, text.end(), is_blank);
    std::string names(start, std::find_if(start, text.end(), is_blank));
    while (!names.empty()) {
        std::string name = take(names, ',');
        if (!name.empty() && take(name, '.') == vap)
            return true;
    }
    return false;
}

bool names(std::string profile_conf, const std::string &vap) {
    while (!profile_conf.empty()) {
        if (line_names(take(profile_conf, '\n'), vap))
            return true;
    }
    return false;
}

/// What is read for a directory's "profile.conf". Of its path 30 characters count: it is not found for a name of more
/// than 12, and from a name's 25th character on they are the path of what lies beside the directory.
///
/// @return empty for a file that is not there
std::string lists_of(const entry &of, const std::vector<entry> &entries) {
    if (of.name.size() <= 12)
        return (of.what & (PROFILE_CONF_IS_DIRECTORY | NO_PROFILE_CONF)) == 0 ? of.profile_conf : "";
    for (const entry &beside : entries) {
        if (beside.name.size() == 25 && of.name.rfind(beside.name, 0) == 0 && (beside.what & IS_FILE) != 0)
            return beside.profile_conf;
    }
    return "";
}

/// A result and the buffer, in a block of just its size.
struct answer {
    int result = -1;
    std::unique_ptr<char[]> ssid{new char[SSID_SIZE]};

    answer() {
        std::memset(ssid.get(), '?', SSID_SIZE);
    }

    /// It holds a text that is not empty, or what it held before.
    void check() const {
        require(result == 0 || result == 1);
        if (result == 0)
            require(ssid[0] != '\0' && std::memchr(ssid.get(), 0, SSID_SIZE) != nullptr);
        else
            require(std::all_of(ssid.get(), ssid.get() + SSID_SIZE, [](char byte) { return byte == '?'; }));
    }
};

void check_selection(const entry &of) {
    dirent found{};
    of.name.copy(found.d_name, sizeof found.d_name - 1);
    for (const uint8_t type : {(of.what & IS_FILE) != 0 ? DT_REG : DT_DIR, DT_UNKNOWN}) {
        found.d_type = type;
        require(profile_dir_selector(&found) == (counts(of) ? 1 : 0));
    }
}

void check_search(const std::vector<entry> &entries, const std::string &vap) {
    const entry *serving = nullptr;  // the last one by name
    for (const entry &candidate : entries) {
        if (counts(candidate) && names(lists_of(candidate, entries), vap) &&
            (serving == nullptr || candidate.name > serving->name))
            serving = &candidate;
    }
    answer expected;
    expected.result = serving != nullptr ? read_ssid_from_wl_conf(serving->name.c_str(), expected.ssid.get()) : 1;
    expected.check();
    answer found;
    found.result = translater_vap_to_ssid(vap.c_str(), found.ssid.get());
    found.check();
    require(found.result == expected.result);
    require(found.result != 0 || std::strcmp(found.ssid.get(), expected.ssid.get()) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    drop_log_lines();
    input_reader input(data, size);
    const std::string vap = text_of(input.short_block()).c_str();
    const std::vector<entry> entries = make_all(input);
    for (const entry &of : entries)
        check_selection(of);
    check_search(entries, vap);
    for (const entry &of : entries)
        std::filesystem::remove_all(of.path());
    return 0;
}
