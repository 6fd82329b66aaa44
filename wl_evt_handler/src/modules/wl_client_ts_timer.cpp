// The timer thread, which ends the attempts that stand still and forgets the clients of the detailed log.
#include <unistd.h>

#include "debug_log.h"
#include "wl_client_ts_internal.h"

namespace {

constexpr unsigned SWEEP_INTERVAL = 30;  // seconds

constexpr char TIMER[] = "conn_fail_det_timer_func";

void log_accounts() {
    int in_progress = 0;
    (void)hash_get_num_entries(conn_cb.inprog_conn_table, &in_progress);
    WL_LOG_AS(TIMER, 7, "CTS: Conn InProg Count %d; Err Count %d; Malloc info %d/%d/%d/%d/%d/%d", in_progress,
              dllist_num_entries(&conn_cb.err_conn_list), conn_cb.num_clrec_malloc, conn_cb.num_ssid_malloc,
              conn_cb.num_hashrec_malloc, conn_cb.num_listrec_malloc, conn_cb.num_subinfovalue_malloc,
              __atomic_load_n(&conn_cb.size_malloc, __ATOMIC_RELAXED));
}

void end_attempts(uint32_t now) {
    hash_Iterator_t *const attempts = conn_cb.inprog_conn_iter;
    (void)hash_reset_iterator(attempts);  // it does not survive what the main thread has removed meanwhile
    while (auto *const rec = static_cast<cl_conn_evt_rec *>(hash_next_iterator(attempts))) {
        const uint32_t limit = rec->is_portal_enabled != 0 ? PORTAL_CONN_TIMEOUT : CONN_TIMEOUT;
        if (msec_between(now, rec->timestamp) < limit)
            continue;
        (void)hash_delnode_iterator(attempts);
        decide_on_client(rec);
    }
}

void forget_clients(uint32_t now) {
    WL_LOG_AS(TIMER, 7, "DETAILED CONN INFO: detail_conn_table Count %d;", conn_cb.detail_conn_table->num_entries);
    hash_Iterator_t *const clients = conn_cb.detail_conn_iter;
    (void)hash_reset_iterator(clients);
    while (auto *rec = static_cast<detail_clrec *>(hash_next_iterator(clients))) {
        if (msec_between(now, rec->timestamp) < DETAIL_TIMEOUT)
            continue;
        (void)hash_delnode_iterator(clients);
        WL_LOG_AS(TIMER, 7, "DETAILED CONN INFO: deleted detailed_clrec " MAC_FMT " from conn_rec",
                  MAC_ARGS(rec->cl_mac));
        clts_release(rec, sizeof *rec);
    }
}

}  // namespace

void *conn_fail_det_timer_func(void *) {
    for (;;) {
        sleep(SWEEP_INTERVAL);
        const conn_lock lock;
        if (conn_cb.terminate_timer != 0)
            return nullptr;
        const uint32_t now = clts_now().msec;
        if (conn_cb.init == 0) {
            log_accounts();
            if (conn_cb.enable != 0)
                end_attempts(now);
        }
        if (conn_cb.detail_log_init == 0)
            forget_clients(now);
    }
}
