// Why an attempt failed: each event is looked at as it comes, and the whole attempt when it has ended or stands still.
#include <cstdio>
#include <cstring>

#include "debug_log.h"
#include "wl_ap_logging_evt.h"
#include "wl_client_ts_internal.h"
#include "wl_evt_payloads.h"
#include "wl_evt_register.h"
#include "wl_info_codes.h"

namespace {

constexpr uint16_t STATUS_SUCCESS = 0;
constexpr uint16_t STATUS_CAPABILITIES = 10;
constexpr uint16_t STATUS_AP_FULL = 17;
constexpr uint16_t SUB_ASSOC_UNANSWERED = 41;
constexpr uint16_t SUB_DHCP_UNANSWERED = 0;
constexpr uint16_t SUB_DNS_UNANSWERED = 3;
constexpr uint16_t SUB_MIC_FAILURE = 14;
constexpr uint16_t SUB_GAUTH_FAILURE = 45;
constexpr uint16_t SUB_ROAMED = 1;

constexpr int REPEAT_INTERVAL = 120;  // seconds, as the line says; the record itself is the limit
constexpr int SSID_ALERT_SIZE = 88;   // bytes of a decoded event on the access point
constexpr char CHECK[] = "check_err_code";
constexpr char DECIDE[] = "decide_on_client";

/// What an event says about a failure.
struct finding {
    bool is_error;
    uint8_t failure;  // FAILURE_NONE: an error that is not reported
    uint16_t sub;
};

constexpr finding NOTHING = {false, FAILURE_NONE, 0};

finding found(uint8_t failure, uint16_t sub) {
    return {true, failure, sub};
}

void raise_ssid_alert(const cl_conn_evt_rec &rec) {
    char text[256];
    std::snprintf(text, sizeof text, "SSID,ALERT,%s", text_or_null(rec.cl_info.ssid));
    wl_evt_info_t alert{};
    alert.info_code = VRE_CL_COUNT_EXCEEDED;
    alert.subinfo_value = reinterpret_cast<uint8_t *>(text);
    alert.subinfo_value_len = static_cast<uint16_t>(std::strlen(text));  // an overlong text is cut
    (void)wl_ap_ts(VRE_RADIO_EVT, &alert, SSID_ALERT_SIZE);
}

finding look_at_auth_response(const wl_evt_info_t &evt) {
    if (evt.subinfo_code == STATUS_SUCCESS || check_for_11r_failures(&evt) != 0)
        return NOTHING;
    WL_LOG_AS(CHECK, 6, "CONN INFO: Auth failure - failure code %d, subinfo code %d", FAILURE_AUTH, evt.subinfo_code);
    return found(FAILURE_AUTH, evt.subinfo_code);
}

finding look_at_assoc_response(const wl_evt_info_t &evt, const cl_conn_evt_rec &rec) {
    if (evt.subinfo_code == STATUS_SUCCESS || rec.ignore_assoc_fail != 0 || check_for_11r_failures(&evt) != 0)
        return NOTHING;
    const cl_failure failure = evt.subinfo_code == STATUS_AP_FULL        ? FAILURE_ASSOC_AP_FULL
                               : evt.subinfo_code == STATUS_CAPABILITIES ? FAILURE_ASSOC_CAPABILITIES
                                                                         : FAILURE_ASSOC;
    WL_LOG_AS(CHECK, 6, "CONN INFO: Assoc failure -failure code %d, subinfo code %d", failure, evt.subinfo_code);
    if (failure == FAILURE_ASSOC_AP_FULL)
        raise_ssid_alert(rec);
    return found(failure, evt.subinfo_code);
}

finding look_at_radius(uint16_t sub) {
    switch (sub) {
    case 2:
    case 5:
    case 12:
    case 803:
    case 809:
    case 846:
        WL_LOG_AS(CHECK, 6, "CONN INFO: Radius auth fail - Error code %d, subinfo code %d", FAILURE_RADIUS_AUTH, sub);
        return found(FAILURE_RADIUS_AUTH, sub);
    case 7:
    case 8:
        WL_LOG_AS(CHECK, 6, "CONN INFO: Radius server not reachable - Error code %d, subinfo code %d",
                  FAILURE_RADIUS_UNREACHABLE, sub);
        return found(FAILURE_RADIUS_UNREACHABLE, sub);
    case 10:
    case 17:
        // Deliberately not reported: the client or the server may still try again.
        WL_LOG_AS(CHECK, 6, "CONN INFO: Auth timedout - Error code %d, subinfo code %d", FAILURE_NONE, sub);
        return found(FAILURE_NONE, sub);
    default:
        return NOTHING;
    }
}

finding look_at_key_handshake(uint16_t sub, const cl_conn_evt_rec &rec) {
    if (sub == SUB_MIC_FAILURE) {
        const cl_failure failure = rec.is_dot1x != 0 ? FAILURE_HANDSHAKE : FAILURE_PSK;
        WL_LOG_AS(CHECK, 6, "CONN INFO: MIC Client failure code %d, subinfo code %d", failure, sub);
        return found(failure, sub);
    }
    if ((sub >= 15 && sub <= 22) || sub == 40 || sub == 41) {
        WL_LOG_AS(CHECK, 6, "CONN INFO: WPA handshake fail - Error code %d, subinfo code %d", FAILURE_HANDSHAKE, sub);
        return found(FAILURE_HANDSHAKE, sub);
    }
    if (sub == SUB_GAUTH_FAILURE) {
        WL_LOG_AS(CHECK, 6, "CONN INFO: GAUTH failed - failure code %d, subinfo code %d", FAILURE_GAUTH, sub);
        return found(FAILURE_GAUTH, sub);
    }
    return NOTHING;
}

finding look_at_portal(uint16_t sub) {
    switch (sub) {
    case 1:
        return found(FAILURE_PORTAL_A, sub);
    case 2:
    case 3:
    case 6:
        return found(FAILURE_PORTAL_B, sub);
    case 4:
        return found(FAILURE_PORTAL_C, sub);
    default:
        return NOTHING;
    }
}

finding look_at_roaming(uint16_t sub, cl_conn_evt_rec &rec) {
    if (sub == SUB_ROAMED)
        return NOTHING;
    rec.roaming_failure_occured = 1;
    WL_LOG_AS(CHECK, 6, "CONN INFO: Roaming failure - failure code %d, subinfo code %d", FAILURE_ROAMING, sub);
    return found(FAILURE_ROAMING, sub);
}

finding look_at_dns(uint16_t sub) {
    if (sub != SUB_DNS_UNANSWERED)
        return NOTHING;
    WL_LOG_AS(CHECK, 6, "CONN INFO: DNS failure - failure code %d, subinfo code %d", FAILURE_DNS, sub);
    return found(FAILURE_DNS, sub);
}

finding look_at(const wl_evt_info_t &evt, cl_conn_evt_rec &rec) {
    const uint16_t sub = evt.subinfo_code;
    switch (evt.info_code) {
    case INFO_KEY_HANDSHAKE:
        return look_at_key_handshake(sub, rec);
    case INFO_AUTH_REQUEST:
        rec.state = CL_AUTH_REQUESTED;
        return NOTHING;
    case INFO_AUTH_RESPONSE:
        // Deliberately after an association request too: the state is lowered, the next request continues the attempt.
        rec.state = CL_AUTH_ANSWERED;
        return look_at_auth_response(evt);
    case INFO_ASSOC_REQUEST:
        rec.state = CL_ASSOC_REQUESTED;
        return NOTHING;
    case INFO_ASSOC_RESPONSE:
        rec.state = CL_ASSOC_ANSWERED;
        return look_at_assoc_response(evt, rec);
    case INFO_PORTAL:
        return look_at_portal(sub);
    case INFO_RADIUS:
        return look_at_radius(sub);
    case INFO_DNS:
        return look_at_dns(sub);
    case INFO_ROAMING:
        return look_at_roaming(sub, rec);
    case INFO_INVALID_IP:
        WL_LOG_AS(CHECK, 6, "CONN INFO: IP failure - failure code %d, subinfo code %d", FAILURE_IP, sub);
        return found(FAILURE_IP, sub);
    case INFO_IP_CONFLICT:
        WL_LOG_AS(CHECK, 6, "CONN INFO: IP Conflict - failure code %d, subinfo code %d", FAILURE_IP, SUB_IP_CONFLICT);
        return found(FAILURE_IP, SUB_IP_CONFLICT);
    default:
        return NOTHING;
    }
}

/// Reports a failure unless the record holds it already.
void report_once(const wl_evt_info_t &evt, cl_conn_evt_rec &rec, const finding &what) {
    WL_LOG_AS(CHECK, 6, "CONN INFO: Client failure code %d, subinfo code %d", what.failure, what.sub);
    for (int slot = 0; slot < CL_MAX_FAILURES; slot++) {
        if (rec.failure_code[slot] == what.failure) {
            WL_LOG_AS(CHECK, 6, "CONN INFO: Not sending to server, already sent within %d secs interval\n",
                      REPEAT_INTERVAL);
            return;
        }
        if (rec.failure_code[slot] == FAILURE_NONE) {
            send_error_to_server(&evt, &rec, slot, what.failure, what.sub);
            return;
        }
    }
    WL_LOG_AS(CHECK, 6, "CONN INFO: No space to store new failure info");
}

/// The slot for a failure of the whole attempt; the last one is overwritten when all are taken.
int slot_for_verdict(const cl_conn_evt_rec &rec) {
    int slot = 0;
    while (slot < CL_MAX_FAILURES - 1 && rec.failure_code[slot] != FAILURE_NONE)
        slot++;
    return slot;
}

void report_verdict(cl_conn_evt_rec *rec, uint8_t failure, uint16_t sub) {
    send_error_to_server(nullptr, rec, slot_for_verdict(*rec), failure, sub);
}

bool vlan_was_seen(const cl_conn_evt_rec &rec) {
    return rec.vlan < VLAN_COUNT && vlan_detected(rec.vlan);
}

bool has_ip_address(const cl_conn_evt_rec &rec) {
    return rec.ipaddr_evt_id != 0 && rec.is_link_local_ip_rcvd == 0 && (rec.is_ipv4_rcvd != 0 || rec.is_ipv6_rcvd != 0);
}

void report_dns_failure(cl_conn_evt_rec *rec) {
    const uint16_t sub = rec->is_nat_enabled != 0 && !vlan_was_seen(*rec) ? SUB_DNS_VLAN_NOT_SEEN : SUB_DNS_UNANSWERED;
    WL_LOG_AS(DECIDE, 6, "CONN INFO: DNS failure - failure code %d, subinfo code %d", FAILURE_DNS, sub);
    report_verdict(rec, FAILURE_DNS, sub);
}

void report_assumed_success(cl_conn_evt_rec *rec) {
    const uint8_t *const mac = rec->cl_info.mac;
    if (rec->is_client_disconnected != 0) {
        WL_LOG_AS(DECIDE, 6,
                  "CTS: Not sending success log for client " MAC_FMT " since it is no longer connected to AP",
                  MAC_ARGS(mac));
        return;
    }
    WL_LOG_AS(DECIDE, 6, "CTS: Client " MAC_FMT " assumed to connect successfuly!", MAC_ARGS(mac));
    log_latencies(DECIDE, *rec);
    check_and_send_client_connection_info(rec, SUCCESS_REPORT);
}

void decide_with_ip_address(cl_conn_evt_rec *rec) {
    if (rec->rcvd_err_evt == 0 && rec->dns_timestamp != 0 && rec->dns_latency == 0)
        report_dns_failure(rec);
    else
        report_assumed_success(rec);
    settle_record(rec);
}

void report_dhcp_failure(cl_conn_evt_rec *rec) {
    const uint8_t *const mac = rec->cl_info.mac;
    if (rec->is_link_local_ip_rcvd != 0)
        WL_LOG_AS(DECIDE, 7, "CTS: Client " MAC_FMT " still has link local IP. Sending DHCP failure", MAC_ARGS(mac));
    else
        WL_LOG_AS(DECIDE, 7, "CTS: Client " MAC_FMT " DHCP failure", MAC_ARGS(mac));
    report_verdict(rec, FAILURE_DHCP,
                   rec->is_tunnel_enabled == 0 && !vlan_was_seen(*rec) ? SUB_DHCP_VLAN_NOT_SEEN : SUB_DHCP_UNANSWERED);
}

/// An associated client that never asked for an address.
void report_silent_client(cl_conn_evt_rec *rec) {
    const uint8_t *const mac = rec->cl_info.mac;
    if (rec->is_node_authorised != 0 && rec->is_client_disconnected == 0) {
        WL_LOG_AS(DECIDE, 7,
                  "CTS: Client " MAC_FMT
                  " not in DHCP request/discover received state, sending success since client is authorised and still "
                  "connected to AP",
                  MAC_ARGS(mac));
        check_and_send_client_connection_info(rec, SUCCESS_REPORT);
    } else {
        WL_LOG_AS(DECIDE, 7,
                  "CTS: Client " MAC_FMT
                  " not in DHCP request/discover received state, not sending the DHCP failure. Node authorised[%d], "
                  "client disconnected[%d]",
                  MAC_ARGS(mac), rec->is_node_authorised, rec->is_client_disconnected);
    }
}

/// Judges a client that got no address and met no error by how far it came.
///
/// @return true when a failure was reported; false when the record was settled or freed
bool judge_by_state(cl_conn_evt_rec *rec) {
    const uint8_t *const mac = rec->cl_info.mac;
    if (rec->state == CL_ASSOC_REQUESTED) {
        WL_LOG_AS(DECIDE, 3, "CTS: Client " MAC_FMT " Assoc failure - failure code %d subinfo code %d", MAC_ARGS(mac),
                  FAILURE_ASSOC, SUB_ASSOC_UNANSWERED);
        report_verdict(rec, FAILURE_ASSOC, SUB_ASSOC_UNANSWERED);
        return true;
    }
    if (rec->state != CL_ASSOC_ANSWERED) {
        WL_LOG_AS(DECIDE, 7, "CTS: Supressing CL_CONN_NO_ASSOC_RCVD failure for client" MAC_FMT, MAC_ARGS(mac));
        clrec_free(rec);
        return false;
    }
    if (is_asking_for_address(*rec) || rec->is_link_local_ip_rcvd != 0) {
        report_dhcp_failure(rec);
        return true;
    }
    report_silent_client(rec);
    settle_record(rec);
    return false;
}

void log_verdict(const cl_conn_evt_rec &rec) {
    char failures[30];
    char subs[30];
    get_failure_code(&rec, failures);
    get_subinfo_code(&rec, subs);
    // "IP Addr Rcvd" can only be "No", an attempt with an address is settled before; the line keeps its form for tools.
    WL_LOG_AS(DECIDE, 7,
              "CTS: Client " MAC_FMT
              " connection error! Num Evts: %d; IP Addr Rcvd: %s; Rcvd err evt: 0x%x; failure_code: %s, subinfo_code: "
              "%s",
              MAC_ARGS(rec.cl_info.mac), rec.num_evt, has_ip_address(rec) ? "Yes" : "No", rec.rcvd_err_evt, failures,
              subs);
}

/// Deliberately asks only whether the record was reported, where settle_record asks for a failure too: what comes here
/// was reported as a failure or not at all, a success is settled.
void keep_failed_record(cl_conn_evt_rec *rec) {
    if (rec->is_rec_sent_to_server != 0) {
        if (move_clrec_to_err_list(rec) == 0)
            return;
    } else {
        merge_connection_info_in_previous_records(rec);
    }
    clrec_free(rec);
}

}  // namespace

uint32_t check_err_code(const wl_evt_info_t *evt, cl_conn_evt_rec *rec) {
    const finding what = look_at(*evt, *rec);
    if (!what.is_error)
        return 0;
    rec->rcvd_err_evt = evt->info_code * 65536 + evt->subinfo_code;
    if (what.failure != FAILURE_NONE)
        report_once(*evt, *rec, what);
    return rec->rcvd_err_evt;
}

int check_for_11r_failures(const wl_evt_info_t *evt) {
    if (evt->subinfo_code < 53 || evt->subinfo_code > 55)
        return 0;
    WL_LOG(6, "CONN INFO: Ignore 11r related Auth/Assoc failures, reason code %d", evt->subinfo_code);
    return 1;
}

void send_error_to_server(const wl_evt_info_t *, cl_conn_evt_rec *rec, int slot, uint8_t failure, uint16_t sub) {
    rec->failure_code[slot] = failure;
    rec->subinfo_code[slot] = sub;
    check_and_send_client_connection_info(rec, slot);
}

void decide_on_client(cl_conn_evt_rec *rec) {
    if (has_ip_address(*rec)) {
        decide_with_ip_address(rec);
        return;
    }
    if (rec->ignore_assoc_fail != 0) {
        WL_LOG(6, "CTS: Client " MAC_FMT " ignore sending assoc failure to server", MAC_ARGS(rec->cl_info.mac));
        clrec_free(rec);
        return;
    }
    const bool nothing_seen = rec->rcvd_err_evt == 0 && rec->is_ipv4_rcvd == 0 && rec->is_ipv6_rcvd == 0;
    if (nothing_seen && !judge_by_state(rec))
        return;
    log_verdict(*rec);
    keep_failed_record(rec);
}

int check_clrec_for_failures(const cl_conn_evt_rec *rec) {
    for (const uint8_t failure : rec->failure_code) {
        if (failure != FAILURE_NONE)
            return 1;
    }
    return 0;
}

void get_failure_code(const cl_conn_evt_rec *rec, char *buf) {
    const uint8_t *const code = rec->failure_code;
    std::snprintf(buf, 30, "%d:%d:%d:%d:", code[0], code[1], code[2], code[3]);
}

void get_subinfo_code(const cl_conn_evt_rec *rec, char *buf) {
    const uint16_t *const code = rec->subinfo_code;
    std::snprintf(buf, 30, "%d:%d:%d:%d:", code[0], code[1], code[2], code[3]);
}
