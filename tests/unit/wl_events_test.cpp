// The table of events: every index, its enumerator and its name.
#include "wl_events.h"

#include <gtest/gtest.h>

#include "wl_common.h"

namespace {

struct documented_event {
    int index;
    vre_iw_cmd_t enumerator;
    const char *name;
};

constexpr documented_event DOCUMENTED[] = {
    {0, VRE_AUTH_RECV, "VRE.auth.recv"},
    {1, VRE_AUTH_SUCCESS, "VRE.auth.success"},
    {2, VRE_AUTH_FAILURE, "VRE.auth.failure"},
    {3, VRE_DEAUTH_SENT, "VRE.deauth.sent"},
    {4, VRE_DEAUTH_RECV, "VRE.deauth.recv"},
    {5, VRE_ASSOC_RECV, "VRE.assoc.recv"},
    {6, VRE_ASSOC_SUCCESS, "VRE.assoc.success"},
    {7, VRE_ASSOC_FAILURE, "VRE.assoc.failure"},
    {8, VRE_REASSOC_RECV, "VRE.reassoc.recv"},
    {9, VRE_REASSOC_SUCCESS, "VRE.reassoc.success"},
    {10, VRE_REASSOC_FAILURE, "VRE.reassoc.failure"},
    {11, VRE_DISASSOC_SENT, "VRE.disassoc.sent"},
    {12, VRE_DISASSOC_RECV, "VRE.disassoc.recv"},
    {13, VRE_NODE_TIMEOUT, "VRE.node.timeout"},
    {14, VRE_NODE_LEAVE, "VRE.node_leave"},
    {15, VRE_NODE_IP, "VRE.node_ip"},
    {16, VRE_NODE_IPV6, "VRE.node_ipv6"},
    {17, VRE_NODE_AUTHORIZE, "VRE.node_authorize"},
    {18, VRE_NODE_DHCP, "VRE.node.dhcp"},
    {19, VRE_NODE_DOT1X, "VRE.node_dot1x"},
    {20, VRE_HOTSPOT20_GAS_INITIAL_REQUEST, "VRE.hotspot20.gas_initial_request"},
    {21, VRE_HOTSPOT20_GAS_COMEBACK_REQUEST, "VRE.hotspot20.gas_comeback_request"},
    {22, VRE_HOTSPOT20_GAS_INITIAL_RESPONSE, "VRE.hotspot20.gas_initial_response"},
    {23, VRE_HOTSPOT20_GAS_COMEBACK_RESPONSE, "VRE.hotspot20.gas_comeback_response"},
    {24, VRE_BW_SET, "VRE.bw.set"},
    {25, VRE_BW_CLR, "VRE.bw.clr"},
    {26, VRE_BW_GET_STATUS, "VRE.bw.getstatus"},
    {27, VRE_BW_INFORM, "VRE.bw.inform"},
    {28, VRE_BW_UPDATE, "VRE.bw.update"},
    {29, VRE_EAPOL, "VRE.eapol"},
    {30, VRE_DOT1X, "VRE.dot1x"},
    {31, VRE_PORTAL, "VRE.portal"},
    {32, VRE_SS, "VRE.smart_steering"},
    {33, VRE_PREVENTION, "VRE.prevention"},
    {34, VRE_DNS, "VRE.dns.info"},
    {35, VRE_ROAMING, "VRE.roaming"},
    {36, VRE_NODE_IP_PKT, "VRE.node_ip.pkt"},
    {37, VRE_NODE_INVALID_IP, "VRE.node.invalid.ip"},
    {38, VRE_NODE_IP_CONFLICT, "VRE.node.ip.conflict"},
    {39, VRE_NODE_VLAN, "VRE.node.vlan"},
    {40, VRE_BW_EVENTS, "VRE.bw.events"},
    {41, VRE_DEBUG_AP_TS, "VRE.debug.ap_ts"},
    {42, VRE_DEBUG_CLIENT_TS, "VRE.debug.client_ts"},
    {43, VRE_SENSOR_VLAN_DETECTED, "VRE.vlan.detector"},
    {44, VRE_CL_ROLE, "VRE.debug.cl_role"},
    {45, VRE_STA_INFO, nullptr},
    {46, VRE_PORTAL_USERNAME, "VRE.debug.username"},
    {47, VRE_PORTAL_CL_POLL, "VRE.debug.cl_poll"},
    {48, VRE_TUNNEL_INFO, "VRE.tunnel.info"},
    {49, VRE_DEBUG_CLIENT_CONN_INFO, "VRE.debug.client_info"},
    {50, VRE_CLIENT_DISCONNECT, "VRE.client.disconnect"},
    {51, VRE_DEAUTH, "VRE.deauth"},
    {52, VRE_DISASSOC, "VRE.disassoc"},
    {53, VRE_AUTH, "VRE.auth"},
    {54, VRE_ASSOC, "VRE.assoc"},
    {55, VRE_REASSOC, "VRE.reassoc"},
    {56, VRE_NODE, "VRE.node"},
    {57, VRE_HOTSPOT20, "VRE.hotspot20"},
    {58, VRE_BW, "VRE.bw"},
    {59, VRE_HOSTAPD_EVENT, "VRE.hostapd_event"},
    {60, VRE_DEBUG, "VRE.debug"},
    {61, VRE_DISCONNECT, nullptr},
    {62, VRE_PAUSED_TID_ON_NODE_LEAVE, "VRE.paused_tid"},
    {63, VRE_REQUEST_PORTAL_PEER_INFO, "VRE.request_portal_peer_info"},
    {64, VRE_REPLY_PORTAL_PEER_INFO, "VRE.reply_portal_peer_info"},
    {65, VRE_CL_INFO, "VRE.cl_info"},
    {66, VRE_ALL, nullptr},
    {67, VRE_SYSTEM_SERVICE_CRASH_EVT, "VRE.system_service_crash_event"},
    {68, VRE_INTERNET_DOWN_EVT, "VRE.internet_down_evt"},
    {69, VRE_UPGRADE_LOG_EVT, "VRE.ap_upgrade_log_evt"},
    {70, VRE_UPGRADE_SUCCESS_EVT, "VRE.ap_upgrade_success_evt"},
    {71, VRE_LEASEFAIL_EVT, "VRE.ap_leasefail_evt"},
    {72, VRE_IP_CONFLICT_EVT, "VRE.ap_ip_conflict_evt"},
    {73, VRE_CONFIG_CHANGE_EVT, "VRE.ap_config_changed_evt"},
    {74, VRE_TUNNEL_DOWN, "VRE.ap_tunnel_down"},
    {75, VRE_ETHERNET_UP_DOWN_EVT, "VRE.evt_ethernet_up_down"},
    {76, VRE_MEM_UTIL_EVT, "VRE.ap_memory_utilization_evt"},
    {77, VRE_REBOOT_EVT, "VRE.ap_reboot_evt"},
    {78, VRE_USERSPACE_EVT, "VRE.userspace_event"},
    {79, VRE_VAP_EVENTS, nullptr},
    {80, VRE_RADIO_EVT, nullptr},
    {81, VRE_EVT_TXPOW_CHANGE, "VRE.evt_tx_power_change"},
    {82, VRE_EVT_TXPOW_NOT_CHANGED, "VRE.evt_tx_power_not_changed"},
    {83, VRE_EVT_CHAN_INFO, "VRE.evt_chan_debug_info"},
    {84, VRE_VAP_DOWN, "VRE.vap_down"},
    {85, VRE_CL_COUNT_EXCEEDED, "VRE.evt_cl_count_exceeded"},
    {86, VRE_STA_START, nullptr},
    {87, VRE_STA_ABORT, nullptr},
    {88, VRE_STA_END, nullptr},
    {89, VRE_STA_SUPP, nullptr},
    {90, VRE_STA_DRIVER, nullptr},
    {91, VRE_STA_USRSPACE, nullptr},
    {92, VRE_STA, nullptr},
    {93, VRE_TARGET_AP_TRAFFIC_TEST_INFO, "VRE.Target.AP.Traffic.details"},
    {94, VRE_TARGET_AP_TRAFFIC_TEST_PID, "VRE.Target.AP.Traffic.PID"},
    {95, VRE_TARGET_AP_TRAFFIC_TEST, "VRE.Target.AP.Traffic.test"},
    {96, VRE_WL_SSID_PROFILE_UPDATE, "VRE.ssid_profile_update"},
    {97, VRE_WL_CLIENT_INFO_DUMP, "VRE.wl_client_info_dump"},
    {98, VRE_CLIENT_TS_CONN_ERR_LOG_ENABLE, "VRE.client_ts_conn_err_log_enable"},
    {99, VRE_CLIENT_TS_CONN_ERR_LOG_DUMP, "VRE.client_ts_conn_err_log_dump"},
    {100, VRE_SPECTRUM_START, "VRE.spectrum_start"},
    {101, VRE_INTER_AP_SYNCH_CONF, "VRE.inter_ap_synch"},
    {102, VRE_VLAN_GATEWAY_INFO, "VRE.vlan.gateway.info"},
    {103, VRE_WL_REGIST, "VRE.wl_regist"},
    {104, VRE_WL_DEREGIST, "VRE.wl_deregist"},
    {105, VRE_BW_VAP_PROFILE_ID, "VRE.bw.vap_profile_id"},
    {106, VRE_WL_CLR_IFACE_TABLE_CACHE, "VRE.clr.iface"},
    {107, VRE_SPL_BW_EVENTS, "VRE.splbw.events"},
    {108, VRE_MAX_EVT, "VRE.max_evt"},
};

}  // namespace

TEST(Events, TableHas109Entries) {
    EXPECT_EQ(std::size(wl_events), 109U);
    EXPECT_EQ(std::size(DOCUMENTED), 109U);
}

TEST(Events, EveryEnumeratorHasItsIndex) {
    for (const documented_event &event : DOCUMENTED)
        EXPECT_EQ(event.enumerator, event.index);
}

TEST(Events, EveryIndexHasItsName) {
    for (const documented_event &event : DOCUMENTED)
        EXPECT_STREQ(wl_events[event.index], event.name) << event.index;
}

TEST(Events, NamesForLogLinesStandInForTheAbsent) {
    EXPECT_STREQ(event_name(0), "VRE.auth.recv");
    EXPECT_STREQ(event_name(108), "VRE.max_evt");
    for (const int index : {45, 66, -1, 109, INT32_MAX, INT32_MIN})
        EXPECT_STREQ(event_name(index), "(null)") << index;
}

TEST(Events, AnyFourBytesAreAValidIndex) {
    EXPECT_EQ(sizeof(vre_iw_cmd_t), 4U);
    EXPECT_EQ(static_cast<int32_t>(static_cast<vre_iw_cmd_t>(-5)), -5);
}

TEST(WlGetEvt, FindsEveryName) {
    for (const documented_event &event : DOCUMENTED) {
        if (event.name != nullptr) {
            EXPECT_EQ(wl_get_evt(event.name), event.index) << event.name;
        }
    }
}

TEST(WlGetEvt, GivesTheUnknownEventForNamesOutsideTheTable) {
    for (const char *name : {"VRE.max_evt", "VRE.nothing", "", "VRE.bw.se", "VRE.bw.set ", "vre.bw.set"})
        EXPECT_EQ(wl_get_evt(name), VRE_MAX_EVT) << name;
}

TEST(WlGetEvt, GivesTheUnknownEventForNull) {
    EXPECT_EQ(wl_get_evt(nullptr), VRE_MAX_EVT);
}
