#include "driver_config.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int FAULTS = 32;

struct fault {
    char name[32];
    long nth;  // 0: every call
    int error;
    long calls;
};

fault faults[FAULTS];
int fault_count;
struct stat faults_read;  // the file that `faults` holds
pthread_mutex_t faults_mutex = PTHREAD_MUTEX_INITIALIZER;

const char *path_of(const char *variable, const char *otherwise) {
    const char *path = getenv(variable);
    return path != nullptr ? path : otherwise;
}

int number(const char *text) {
    return static_cast<int>(strtol(text, nullptr, 0));
}

/// Copies a text in which %XX stands for a byte; "-" is the empty text.
void read_ssid(const char *text, char (&ssid)[33]) {
    size_t length = 0;
    for (; *text != 0 && length < sizeof ssid && strcmp(text, "-") != 0; text++) {
        unsigned byte;
        if (*text == '%' && sscanf(text + 1, "%2x", &byte) == 1) {
            ssid[length++] = static_cast<char>(byte);
            text += 2;
        } else {
            ssid[length++] = *text;
        }
    }
}

bool read_mac(const char *text, uint8_t (&mac)[6]) {
    return sscanf(text, "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4], &mac[5]) ==
           6;
}

bool read_vap(const char *line, sim_vap *vap) {
    char index[16], ssid[100], bssid[20], state[8];
    if (sscanf(line, "%15s %15s %99s %19s %hhu %7s", index, vap->name, ssid, bssid, &vap->proto, state) != 6 ||
        !read_mac(bssid, vap->bssid))
        return false;
    vap->index = strcmp(index, "-") == 0 ? -1 : number(index);
    vap->up = strcmp(state, "up") == 0;
    read_ssid(ssid, vap->ssid);
    return true;
}

bool read_client(const char *line, sim_client *client) {
    char mac[20];
    return sscanf(line, "client %19s %15s %d", mac, client->vap, &client->radio) == 3 && read_mac(mac, client->mac);
}

bool read_args(const char *line, sim_args *args) {
    char set_args[16], get_args[16];
    if (sscanf(line, "args %15s %15s %15s", args->command, set_args, get_args) != 3)
        return false;
    args->set_args = static_cast<uint16_t>(number(set_args));
    args->get_args = static_cast<uint16_t>(number(get_args));
    return true;
}

void read_switch(const char *line, sim_config *config) {
    const struct {
        const char *name;
        int *value;
    } switches[] = {
        {"subcommands", &config->subcommands}, {"names_without_nul", &config->names_without_nul},
        {"table_count", &config->table_count}, {"table_claims", &config->table_claims},
        {"reply_size", &config->reply_size},   {"reply_claims", &config->reply_claims},
    };
    char name[32], value[16];
    if (sscanf(line, "%31s %15s", name, value) != 2)
        return;
    for (const auto &known : switches) {
        if (strcmp(known.name, name) == 0)
            *known.value = number(value);
    }
}

void read_line(const char *line, sim_config *config) {
    if (line[0] == '#')
        return;
    if (config->vap_count < SIM_VAPS && read_vap(line, &config->vaps[config->vap_count]))
        config->vap_count++;
    else if (config->client_count < SIM_CLIENTS && read_client(line, &config->clients[config->client_count]))
        config->client_count++;
    else if (config->args_count < SIM_ARGS && read_args(line, &config->args[config->args_count]))
        config->args_count++;
    else
        read_switch(line, config);
}

/// @return the number of an error's name or number, in the machine's own numbers. A text that is neither ends the
///         program: a test whose fault is never armed would pass for nothing
int error_of(const char *text) {
    for (int error = 1; error < 256; error++) {
        const char *name = strerrorname_np(error);
        if (name != nullptr && strcmp(name, text) == 0)
            return error;
    }
    char *end;
    const long error = strtol(text, &end, 0);
    if (*end != 0 || error <= 0) {
        fprintf(stderr, "sim_driver: unknown error \"%s\"\n", text);
        abort();
    }
    return static_cast<int>(error);
}

bool read_fault(const char *line, fault *one) {
    char nth[16], error[32];
    if (line[0] == '#' || sscanf(line, "%31s %15s %31s", one->name, nth, error) != 3)
        return false;
    one->nth = strcmp(nth, "*") == 0 ? 0 : number(nth);
    one->error = error_of(error);
    return true;
}

const char *name_of(int error) {
    const char *name = error != 0 ? strerrorname_np(error) : "";
    return name != nullptr ? name : "unknown";
}

bool is_the_file_read(const struct stat &now) {
    return now.st_ino == faults_read.st_ino && now.st_size == faults_read.st_size &&
           now.st_mtim.tv_sec == faults_read.st_mtim.tv_sec && now.st_mtim.tv_nsec == faults_read.st_mtim.tv_nsec;
}

/// Reads the fault file when it is another one than last time; the calls are then counted anew.
void read_faults() {
    FILE *file = fopen(path_of("SIM_DRIVER_FAULTS", "/tmp/sim/driver.faults"), "re");
    struct stat now = {};
    if (file != nullptr)
        fstat(fileno(file), &now);
    if (!is_the_file_read(now)) {
        faults_read = now;
        memset(faults, 0, sizeof faults);
        fault_count = 0;
        char line[256];
        while (file != nullptr && fault_count < FAULTS && fgets(line, sizeof line, file) != nullptr)
            fault_count += read_fault(line, &faults[fault_count]) ? 1 : 0;
    }
    if (file != nullptr)
        fclose(file);
}

/// Copies a name into a JSON text; what is not plain becomes \u00XX.
void write_text(FILE *out, const char *text, size_t limit) {
    for (size_t i = 0; text != nullptr && i < limit && text[i] != 0; i++) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x20 || byte > 0x7E || byte == '"' || byte == '\\')
            fprintf(out, "\\u%04x", byte);
        else
            fputc(byte, out);
    }
}

}  // namespace

void sim_read_config(sim_config *config) {
    FILE *file = fopen(path_of("SIM_DRIVER_CONF", "/tmp/sim/driver.conf"), "re");
    if (file == nullptr)
        return;
    char line[256];
    while (fgets(line, sizeof line, file) != nullptr)
        read_line(line, config);
    fclose(file);
}

const sim_vap *sim_vap_named(const sim_config *config, const char *name) {
    for (int i = 0; i < config->vap_count; i++) {
        if (strncmp(config->vaps[i].name, name, sizeof config->vaps[i].name) == 0)
            return &config->vaps[i];
    }
    return nullptr;
}

int sim_fault(const char *name) {
    int error = 0;
    pthread_mutex_lock(&faults_mutex);
    read_faults();
    for (int i = 0; i < fault_count; i++) {
        fault &one = faults[i];
        if (strcmp(one.name, name) != 0)
            continue;
        one.calls++;
        if (one.nth == 0 || one.calls == one.nth)
            error = one.error;
    }
    pthread_mutex_unlock(&faults_mutex);
    return error;
}

void sim_record(const sim_call *call, int error) {
    char *line = nullptr;
    size_t length = 0;
    FILE *out = open_memstream(&line, &length);
    if (out == nullptr)
        return;
    fprintf(out, "{\"pid\": %d, \"call\": \"%s\", \"interface\": \"", static_cast<int>(getpid()), call->name);
    write_text(out, call->interface, 16);
    fprintf(out, "\", \"number\": %u, \"sub_command\": %u, \"data\": \"", call->number, call->sub_command);
    for (size_t i = 0; i < call->data_size; i++)
        fprintf(out, "%02x", call->data[i]);
    fprintf(out, "\", \"error\": \"%s\"}\n", name_of(error));
    fclose(out);
    // One write for a line, so that lines of several processes do not mix.
    const int file =
        open(path_of("SIM_DRIVER_RECORD", "/tmp/sim/driver.jsonl"), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (file >= 0 && write(file, line, length) < 0)
        perror("sim_driver: record");
    if (file >= 0)
        close(file);
    free(line);
}
