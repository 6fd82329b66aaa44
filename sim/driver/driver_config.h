/// The files of the simulated driver: what it simulates, which calls fail, and the record of the calls. The texts are
/// described at the top of driver.cpp.
#pragma once

#include <cstddef>
#include <cstdint>

struct sim_vap {
    int index;  // -1: the kernel's own
    char name[16];
    char ssid[33];  // may lack its NUL
    uint8_t bssid[6];
    uint8_t proto;
    bool up;
};

struct sim_client {
    uint8_t mac[6];
    char vap[16];
    int32_t radio;
};

/// Argument descriptors that replace a command's own.
struct sim_args {
    char command[16];
    uint16_t set_args;
    uint16_t get_args;
};

constexpr int SIM_VAPS = 32;
constexpr int SIM_CLIENTS = 64;
constexpr int SIM_ARGS = 8;
constexpr int SIM_UNSET = -1;

struct sim_config {
    sim_vap vaps[SIM_VAPS];
    int vap_count;
    sim_client clients[SIM_CLIENTS];
    int client_count;
    sim_args args[SIM_ARGS];
    int args_count;
    int subcommands;
    int names_without_nul;
    int table_count = SIM_UNSET;
    int table_claims = SIM_UNSET;
    int reply_size = SIM_UNSET;
    int reply_claims = SIM_UNSET;
};

/// What one call was, for the record.
struct sim_call {
    const char *name;       // as the fault file names it
    const char *interface;  // null or up to 15 characters
    uint32_t number;        // request, interface index or size of the caller's table
    uint32_t sub_command;   // 0: none
    const uint8_t *data;    // what the caller set
    size_t data_size;
};

/// Reads the configuration; an absent file is an empty one.
void sim_read_config(sim_config *config);

/// The VAP with an interface name that may lack its NUL; null when there is none.
const sim_vap *sim_vap_named(const sim_config *config, const char *name);

/// @return the `errno` with which the fault file makes this call of `name` fail, or 0
int sim_fault(const char *name);

/// Appends a call and its outcome to the record.
///
/// @param error  0: it succeeded
void sim_record(const sim_call *call, int error);
