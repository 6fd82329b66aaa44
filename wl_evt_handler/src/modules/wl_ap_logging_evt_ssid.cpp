// Which SSID a VAP serves, by the files of the active SSID profiles.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "debug_log.h"
#include "error_text.h"
#include "wl_ap_logging_evt_internal.h"
#include "wl_vap_helpers.h"

namespace {

constexpr char PROFILES[] = "/tmp/";
constexpr size_t PATH_SIZE = 300;         // of a file in a directory of "/tmp"
constexpr size_t PROFILE_CONF_PATH = 30;  // characters; deliberately few: directories of longer names are not found
constexpr size_t LINE_SIZE = 128;
constexpr size_t SSID_LENGTH = 33;  // bytes of an SSID that are kept

bool is_directory(const dirent *entry) {
    if (entry->d_type != DT_UNKNOWN)
        return entry->d_type == DT_DIR;
    char path[PATH_SIZE];
    std::snprintf(path, sizeof path, "/tmp/%s", entry->d_name);
    struct stat status;
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

bool can_be_opened(const char *path) {
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    close(fd);
    return true;
}

/// @param vaps  names with commas between; cut up in place. What follows a "." in a name is not the VAP's.
bool names_vap(char *vaps, const char *vap_name) {
    char *rest = nullptr;
    for (char *vap = strtok_r(vaps, ",", &rest); vap != nullptr; vap = strtok_r(nullptr, ",", &rest)) {
        vap[std::strcspn(vap, ".")] = '\0';
        if (std::strcmp(vap, vap_name) == 0)
            return true;
    }
    return false;
}

bool lists_vap(FILE *profile_conf, const char *vap_name) {
    char line[LINE_SIZE] = {};
    bool at_line_start = true;  // of a line that is longer than the buffer only the first piece counts
    while (std::fgets(line, sizeof line, profile_conf) != nullptr) {
        char vaps[LINE_SIZE];
        if (at_line_start && std::sscanf(line, "VAP_LIST=%127s", vaps) == 1 && names_vap(vaps, vap_name))
            return true;
        // A NUL among the bytes of a line does not end it.
        at_line_start = std::memchr(line, '\n', sizeof line) != nullptr;
        std::memset(line, 0, sizeof line);
    }
    return false;
}

bool serves_vap(const char *dir, const char *vap_name) {
    char path[PATH_SIZE];
    std::snprintf(path, sizeof path, "/tmp/%s/profile.conf", dir);
    path[PROFILE_CONF_PATH] = '\0';
    FILE *const file = std::fopen(path, "re");
    if (file == nullptr) {
        WL_LOG_AS("translater_vap_to_ssid", 3, "ERROR cannot open profile.conf file %s", path);
        return false;
    }
    const bool serves = lists_vap(file, vap_name);
    std::fclose(file);
    return serves;
}

}  // namespace

int profile_dir_selector(const dirent *entry) {
    if (std::strstr(entry->d_name, "profile") == nullptr || !is_directory(entry))
        return 0;
    char path[PATH_SIZE];
    std::snprintf(path, sizeof path, "/tmp/%s/running", entry->d_name);
    if (!can_be_opened(path))
        return 0;
    std::snprintf(path, sizeof path, "/tmp/%s/is_role_profile", entry->d_name);
    if (access(path, F_OK) != 0)
        return 1;
    WL_LOG(7, "Role profile /tmp/%s/", entry->d_name);
    return 0;
}

int translater_vap_to_ssid(const char *vap_name, char *ssid_out) {
    dirent **profiles = nullptr;
    int count = scandir(PROFILES, &profiles, profile_dir_selector, alphasort);
    int result = 1;
    bool found = false;
    while (count-- > 0) {  // the last one first
        if (!found && serves_vap(profiles[count]->d_name, vap_name)) {
            found = true;
            result = read_ssid_from_wl_conf(profiles[count]->d_name, ssid_out);
        }
        std::free(profiles[count]);
    }
    std::free(profiles);
    return result;
}

int read_ssid_from_wl_conf(const char *dir, char *ssid_out) {
    char path[PATH_SIZE];
    std::snprintf(path, sizeof path, "/tmp/%s/wl.conf", dir);
    FILE *const file = std::fopen(path, "re");
    if (file == nullptr) {
        const int error = errno;
        WL_LOG(3, "Cannot open %s for reading (%s)", path, error_text(error));
        return 1;
    }
    int result = 1;
    char *key = nullptr;
    char *value = nullptr;
    while (result != 0 && parse_config(file, &key, &value) != nullptr) {
        if (strcasecmp(key, "WL_PROFILE_SSID") != 0)
            continue;
        WL_LOG(6, "WL_PROFILE_SSID");
        std::snprintf(ssid_out, SSID_LENGTH + 1, "%s", value);
        result = 0;
    }
    std::fclose(file);
    return result;
}
