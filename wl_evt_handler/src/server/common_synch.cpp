#include "common_synch.h"

synch_tcp_pkt_info_t synch_tcp_pkt_info;
char g_comm_vlan_iface_name[40];

void receive_synch_data() {}
