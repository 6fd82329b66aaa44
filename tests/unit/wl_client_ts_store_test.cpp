// The error store: five records of a client, 512 of all, the oldest pushed out; what counts as the same failure.
#include "wl_client_ts_verdict_fixture.h"

#include <set>

namespace {

constexpr uint8_t FAILURE = FAILURE_HANDSHAKE;
constexpr uint8_t OTHER_FAILURE = FAILURE_DHCP;

class ErrorStore : public VerdictFixture {
protected:
    /// A failed attempt that ended at `msec`.
    static cl_conn_evt_rec *failed_at(unsigned client, uint32_t msec, uint8_t failure = FAILURE) {
        cl_conn_evt_rec *const rec = failed_attempt(client, failure);
        rec->timestamp = msec;
        return rec;
    }

    static cl_conn_evt_rec *store(cl_conn_evt_rec *rec) {
        EXPECT_EQ(move_clrec_to_err_list(rec), 0);
        return rec;
    }

    static cl_conn_evt_rec *store(unsigned client, uint32_t msec, uint8_t failure = FAILURE) {
        return store(failed_at(client, msec, failure));
    }

    /// Fills the store with a record of each of 512 clients, beginning with client 1.
    static void fill() {
        for (unsigned client = 1; client <= 512; client++)
            store(client, client);
        ASSERT_EQ(stored().size(), 512u);
    }

    /// The records of a client, slot by slot; null: free.
    static std::vector<cl_conn_evt_rec *> slots(unsigned client) {
        std::vector<cl_conn_evt_rec *> all;
        if (const client_hash_rec *const hrec = client_of(client))
            for (const dllist_t *const node : hrec->cl_ptr)
                all.push_back(node != nullptr ? record_of(node) : nullptr);
        return all;
    }

    static int entries(unsigned client) {
        const client_hash_rec *const hrec = client_of(client);
        return hrec != nullptr ? hrec->num_entries : -1;
    }

    static int clients() {
        return conn_cb.err_conn_table->num_entries;
    }

    static lines log_of_storing(cl_conn_evt_rec *rec, int level) {
        log_capture log(level);
        store(rec);
        return log.lines();
    }

    /// Checks that the list, the slots and the counters tell the same.
    ~ErrorStore() override {
        std::set<const client_hash_rec *> owners;
        for (const dllist_t *node = conn_cb.err_conn_list.head; node != nullptr; node = node->next) {
            const auto *const entry = static_cast<const client_list_rec *>(node->value);
            owners.insert(entry->ch_ptr);
            EXPECT_EQ(std::count(std::begin(entry->ch_ptr->cl_ptr), std::end(entry->ch_ptr->cl_ptr), node), 1);
            EXPECT_EQ(std::memcmp(entry->ch_ptr->cl_mac, entry->clrec->cl_info.mac, 6), 0);
        }
        for (const client_hash_rec *const owner : owners)
            EXPECT_EQ(std::count(std::begin(owner->cl_ptr), std::end(owner->cl_ptr), nullptr), 5 - owner->num_entries);
        EXPECT_EQ(static_cast<int>(owners.size()), clients());
        EXPECT_EQ(conn_cb.num_hashrec_malloc, clients());
        EXPECT_EQ(conn_cb.num_listrec_malloc, dllist_num_entries(&conn_cb.err_conn_list));
        EXPECT_LE(dllist_num_entries(&conn_cb.err_conn_list), 512);
    }
};

using records = std::vector<cl_conn_evt_rec *>;

// ---- Five of a client ----

TEST_F(ErrorStore, TheFirstRecordOfAClientMakesItsEntry) {
    EXPECT_EQ(client_of(1), nullptr);
    cl_conn_evt_rec *const rec = store(1, 100);
    const client_hash_rec *const hrec = client_of(1);
    ASSERT_NE(hrec, nullptr);
    EXPECT_EQ(byte_string(hrec->cl_mac, hrec->cl_mac + 6), mac_of(1));
    EXPECT_EQ(hrec->num_entries, 1);
    EXPECT_EQ(slots(1), (records{rec, nullptr, nullptr, nullptr, nullptr}));
    ASSERT_EQ(stored(), records{rec});
    EXPECT_EQ(hrec->cl_ptr[0], conn_cb.err_conn_list.head);
    EXPECT_EQ(static_cast<client_list_rec *>(hrec->cl_ptr[0]->value)->ch_ptr, hrec);
}

TEST_F(ErrorStore, WhatItHoldsIsCounted) {
    cl_conn_evt_rec *const rec = failed_at(1, 100);
    const accounts before = accounts::now();
    store(rec);
    accounts expected = before;
    expected.hashrec = 1;
    expected.listrec = 1;
    expected.size += static_cast<int>(sizeof(client_hash_rec) + sizeof(client_list_rec));
    EXPECT_EQ(accounts::now(), expected);
    store(1, 101);
    EXPECT_EQ(conn_cb.num_hashrec_malloc, 1);
    EXPECT_EQ(conn_cb.num_listrec_malloc, 2);
}

TEST_F(ErrorStore, FiveRecordsOfAClientTakeItsSlotsInOrder) {
    records all;
    for (uint32_t i = 0; i < 5; i++) {
        all.push_back(store(1, 100 + i));
        EXPECT_EQ(entries(1), static_cast<int>(i + 1));
    }
    EXPECT_EQ(slots(1), all);
    EXPECT_EQ(stored(), all);
    EXPECT_EQ(clients(), 1);
}

TEST_F(ErrorStore, TheSixthRecordReplacesTheOldestOfTheClient) {
    const uint32_t times[] = {105, 104, 101, 103, 102};
    records all;
    for (const uint32_t time : times)
        all.push_back(store(1, time));
    const accounts before = accounts::now();
    cl_conn_evt_rec *const sixth = store(1, 50);
    EXPECT_EQ(slots(1), (records{all[0], all[1], sixth, all[3], all[4]}));
    EXPECT_EQ(stored(), (records{all[0], all[1], all[3], all[4], sixth}));
    EXPECT_EQ(entries(1), 5);
    EXPECT_EQ(accounts::now(), before) << "the oldest was freed";
}

TEST_F(ErrorStore, OfEquallyOldRecordsTheOneInTheFirstSlotIsReplaced) {
    const uint32_t times[] = {105, 101, 102, 101, 101};
    records all;
    for (const uint32_t time : times)
        all.push_back(store(1, time));
    cl_conn_evt_rec *const sixth = store(1, 200);
    EXPECT_EQ(slots(1), (records{all[0], sixth, all[2], all[3], all[4]}));
}

TEST_F(ErrorStore, TheOldestInTheLastSlotIsReplacedToo) {
    records all;
    for (const uint32_t time : {5u, 4u, 3u, 2u, 1u})
        all.push_back(store(1, time));
    cl_conn_evt_rec *const sixth = store(1, 6);
    EXPECT_EQ(slots(1), (records{all[0], all[1], all[2], all[3], sixth}));
}

TEST_F(ErrorStore, TheSmallestTimeIsTheOldestEvenAcrossTheWrap) {
    records all;
    for (const uint32_t time : {0xFFFFFFF0u, 0xFFFFFFF1u, 0x7FFFFFFFu, 0x80000000u, 3u})
        all.push_back(store(1, time));
    cl_conn_evt_rec *const sixth = store(1, 4);
    EXPECT_EQ(slots(1), (records{all[0], all[1], all[2], all[3], sixth}));
}

TEST_F(ErrorStore, AHundredRecordsOfAClientLeaveFive) {
    for (uint32_t i = 0; i < 100; i++)
        store(1, 1000 + i);
    std::vector<uint32_t> times;
    for (const cl_conn_evt_rec *const rec : stored())
        times.push_back(rec->timestamp);
    EXPECT_EQ(times, (std::vector<uint32_t>{1095, 1096, 1097, 1098, 1099}));
    EXPECT_EQ(conn_cb.num_clrec_malloc, 5);
}

// ---- 512 of all ----

TEST_F(ErrorStore, HoldsA512thRecordBesideTheOthers) {
    fill();
    EXPECT_EQ(stored().front()->timestamp, 1u);
    EXPECT_EQ(stored().back()->timestamp, 512u);
    EXPECT_EQ(clients(), 512);
}

TEST_F(ErrorStore, The513thRecordPushesOutTheOldestOfAll) {
    fill();
    const accounts before = accounts::now();
    cl_conn_evt_rec *const rec = store(600, 600);
    EXPECT_EQ(stored().size(), 512u);
    EXPECT_EQ(stored().front()->timestamp, 2u);
    EXPECT_EQ(stored().back(), rec);
    EXPECT_EQ(client_of(1), nullptr);
    EXPECT_EQ(slots(600), (records{rec, nullptr, nullptr, nullptr, nullptr}));
    EXPECT_EQ(entries(600), 1);
    EXPECT_EQ(accounts::now(), before);
}

TEST_F(ErrorStore, TheOldestIsTheOneThatCameFirstWhateverItsTime) {
    store(1000, 0xFFFFFFFF);
    for (unsigned client = 1; client <= 511; client++)
        store(client, client);
    store(600, 600);
    EXPECT_EQ(client_of(1000), nullptr);
    EXPECT_NE(client_of(1), nullptr);
}

TEST_F(ErrorStore, AClientThatLosesOneOfSeveralRecordsKeepsTheOthers) {
    store(1000, 1);
    cl_conn_evt_rec *const second = store(1000, 2);
    for (unsigned client = 1; client <= 510; client++)
        store(client, client);
    store(600, 600);
    EXPECT_EQ(slots(1000), (records{nullptr, second, nullptr, nullptr, nullptr}));
    EXPECT_EQ(entries(1000), 1);
    store(601, 601);
    EXPECT_EQ(client_of(1000), nullptr);
}

TEST_F(ErrorStore, AFreedSlotIsTheFirstToBeUsedAgain) {
    store(1000, 1);
    cl_conn_evt_rec *const second = store(1000, 2);
    for (unsigned client = 1; client <= 510; client++)
        store(client, client);
    store(600, 600);  // takes the place of the first
    cl_conn_evt_rec *const third = store(1000, 3);
    EXPECT_EQ(slots(1000), (records{third, nullptr, nullptr, nullptr, nullptr})) << "the second was the oldest of all";
    EXPECT_NE(stored().front(), second);
}

TEST_F(ErrorStore, AClientWhoseOnlyRecordIsTheOldestOfAllKeepsItsEntry) {
    fill();
    const client_hash_rec *const before = client_of(1);
    const accounts held = accounts::now();
    cl_conn_evt_rec *const rec = store(1, 1000);
    EXPECT_EQ(client_of(1), before);
    EXPECT_EQ(entries(1), 1);
    EXPECT_EQ(slots(1), (records{nullptr, rec, nullptr, nullptr, nullptr})) << "the slot chosen before";
    EXPECT_EQ(stored().size(), 512u);
    EXPECT_EQ(stored().back(), rec);
    EXPECT_EQ(accounts::now(), held);
}

TEST_F(ErrorStore, AClientThatPushesOutItsOwnOldestRecordKeepsTheCount) {
    for (const uint32_t time : {1u, 2u, 3u, 4u})
        store(1000, time);
    for (unsigned client = 1; client <= 508; client++)
        store(client, client);
    const records before = slots(1000);
    cl_conn_evt_rec *const rec = store(1000, 5);
    EXPECT_EQ(entries(1000), 4);
    EXPECT_EQ(slots(1000), (records{nullptr, before[1], before[2], before[3], rec}));
}

TEST_F(ErrorStore, AClientWithFiveRecordsReplacesItsOwnThoughTheStoreIsFull) {
    for (unsigned client = 1; client <= 507; client++)
        store(client, client);
    for (const uint32_t time : {1001u, 1002u, 1003u, 1004u, 1005u})
        store(1000, time);
    cl_conn_evt_rec *const rec = store(1000, 1006);
    EXPECT_EQ(slots(1000).front(), rec);
    EXPECT_EQ(stored().size(), 512u);
    EXPECT_NE(client_of(1), nullptr);
}

TEST_F(ErrorStore, KeepsItsBoundsUnderThousandsOfMixedRecords) {
    uint32_t seed = 1;
    for (uint32_t i = 0; i < 4000; i++) {
        seed = seed * 1664525 + 1013904223;
        store(1 + (seed >> 16) % 140, i);
    }
    EXPECT_EQ(stored().size(), 512u);
}

TEST_F(ErrorStore, AnEntryIsRemovedWithItsLastRecord) {
    store(1, 1);
    store(1, 2);
    dllist_t *const first = conn_cb.err_conn_list.head;
    dllist_t *const second = first->next;
    auto *const hrec = static_cast<client_list_rec *>(first->value)->ch_ptr;
    remove_hash_entry(hrec, second);
    EXPECT_EQ(client_of(1), hrec);
    EXPECT_EQ(hrec->num_entries, 1);
    EXPECT_EQ(hrec->cl_ptr[0], first);
    EXPECT_EQ(hrec->cl_ptr[1], nullptr);
    hrec->cl_ptr[1] = second;  // as it was
    hrec->num_entries = 2;
}

TEST_F(ErrorStore, AnEntryIsAddedInTheSlotThatIsAskedFor) {
    store(1, 1);
    auto *const hrec = static_cast<client_list_rec *>(conn_cb.err_conn_list.head->value)->ch_ptr;
    cl_conn_evt_rec *const rec = failed_at(1, 2);
    EXPECT_EQ(add_err_cache_entry(hrec, 3, rec, 0), 0);
    EXPECT_EQ(slots(1)[3], rec);
    EXPECT_EQ(entries(1), 2);
    cl_conn_evt_rec *const replacement = failed_at(1, 3);
    EXPECT_EQ(add_err_cache_entry(hrec, 3, replacement, 1), 0);
    EXPECT_EQ(slots(1)[3], replacement);
    EXPECT_EQ(entries(1), 2);
}

// ---- Lines ----

TEST_F(ErrorStore, AnAddedRecordIsLogged) {
    const std::string line = "add_err_cache_entry: CTS: Add Err Conn Cache entry for 00:11:22:33:00:01";
    EXPECT_EQ(log_of_storing(failed_at(1, 1), 7), (lines{line, ""}));
    EXPECT_EQ(log_of_storing(failed_at(1, 2), 6), lines());
}

TEST_F(ErrorStore, AReplacedRecordOfAClientIsLogged) {
    for (uint32_t time = 1; time <= 5; time++)
        store(1, time);
    const std::string line = "add_err_cache_entry: CTS: Replace Err Conn Cache entry for 00:11:22:33:00:01; Client has "
                             "MAX entries";
    EXPECT_EQ(log_of_storing(failed_at(1, 6), 7), (lines{line, ""}));
    EXPECT_EQ(log_of_storing(failed_at(1, 7), 6), lines());
}

TEST_F(ErrorStore, AReplacedRecordOfTheStoreIsLoggedWithTheNewClient) {
    fill();
    const std::string line = "add_err_cache_entry: CTS: Replace Err Conn Cache entry for 00:11:22:33:02:58; Err List "
                             "has MAX entries";
    EXPECT_EQ(log_of_storing(failed_at(600, 600), 7), (lines{line, ""}));
    EXPECT_EQ(log_of_storing(failed_at(601, 601), 6), lines());
}

// ---- Out of memory ----

TEST_F(ErrorStore, ARecordForWhichMemoryIsShortStaysTheCallers) {
    int failures = 0;
    for (const char *const function : {"malloc", "calloc"}) {
        for (int nth = 1;; nth++) {
            cl_conn_evt_rec *const rec = failed_at(1, 1);
            const accounts before = accounts::now();
            fail_nth_call(function, nth);
            const int result = move_clrec_to_err_list(rec);
            const int fired = faults_fired(function);
            clear_faults();
            if (fired == 0) {
                EXPECT_EQ(result, 0);
                break;
            }
            failures++;
            EXPECT_EQ(result, -1) << function << ' ' << nth;
            EXPECT_EQ(accounts::now(), before) << function << ' ' << nth;
            clrec_free(rec);
            EXPECT_EQ(client_of(1), nullptr);
            EXPECT_TRUE(stored().empty());
        }
        // Leaves the store empty for the next function.
        dllist_t *const node = dllist_delink_head(&conn_cb.err_conn_list);
        auto *entry = static_cast<client_list_rec *>(node->value);
        remove_hash_entry(entry->ch_ptr, node);
        clrec_free(entry->clrec);
        clts_release(entry, sizeof *entry);
        conn_cb.num_listrec_malloc--;
        std::free(node);
    }
    EXPECT_EQ(failures, 4) << "entry of the client, its place in the table, entry of the list, its node";
}

TEST_F(ErrorStore, AKnownClientKeepsItsRecordsWhenMemoryIsShort) {
    int failures = 0;
    for (const char *const function : {"malloc", "calloc"}) {
        for (int nth = 1;; nth++) {
            store(1, 1);
            const records before = slots(1);
            const int count = entries(1);
            cl_conn_evt_rec *const rec = failed_at(1, 2);
            fail_nth_call(function, nth);
            const int result = move_clrec_to_err_list(rec);
            const int fired = faults_fired(function);
            clear_faults();
            if (fired == 0)
                break;
            failures++;
            EXPECT_EQ(result, -1);
            EXPECT_EQ(slots(1), before);
            EXPECT_EQ(entries(1), count);
            clrec_free(rec);
        }
    }
    EXPECT_EQ(failures, 2) << "entry of the list, its node";
}

TEST_F(ErrorStore, RecordsThatReplaceOthersNeedNoMemory) {
    fill();
    cl_conn_evt_rec *const rec = failed_at(2, 1000);
    fail_every_call("malloc");
    fail_every_call("calloc");
    EXPECT_EQ(move_clrec_to_err_list(rec), 0);
    EXPECT_EQ(faults_fired("malloc") + faults_fired("calloc"), 0);
    EXPECT_EQ(stored().back(), rec);
}

TEST_F(ErrorStore, WholeAttemptsSurviveAShortageAtEveryAllocation) {
    for (const char *const function : {"malloc", "calloc"}) {
        int failures = 0;
        for (int nth = 1;; nth++) {
            fail_nth_call(function, nth);
            deliver(1, INFO_AUTH_REQUEST, 0);
            deliver(message(1, INFO_ASSOC_REQUEST, 0).item(WL_SUBINFO_VALUE, {0, 6, 200}));
            deliver(message(1, INFO_ASSOC_RESPONSE, 17).item(WL_SUBINFO_VALUE, byte_string(20)));
            deliver(1, INFO_KEY_HANDSHAKE, 14);
            deliver(1, INFO_AUTH_REQUEST, 0);
            deliver(1, INFO_ASSOC_REQUEST, 0);
            advance(700000);
            sweep();
            const int fired = faults_fired(function);
            clear_faults();
            EXPECT_EQ(in_progress(), nullptr);
            EXPECT_LE(conn_cb.num_clrec_malloc, 5);
            EXPECT_EQ(conn_cb.num_clrec_malloc, static_cast<int>(stored().size()));
            if (fired == 0)
                break;
            failures++;
        }
        EXPECT_GE(failures, function[0] == 'm' ? 12 : 2) << function;
    }
}

// ---- The same failure again ----

class PreviousRecords : public ErrorStore {
protected:
    static constexpr uint32_t STORED_AT = 1000000;

    /// A record is stored; would the same failure `later` milliseconds after it be reported?
    static bool is_known(uint32_t later, uint32_t stored_at = STORED_AT) {
        store(1, stored_at);
        const own_record rec(failed_at(1, stored_at + later));
        return check_connection_info_in_previous_records(rec.get(), 0) == 1;
    }
};

TEST_F(PreviousRecords, AFailureIsKnownAtOnce) {
    EXPECT_TRUE(is_known(0));
}

TEST_F(PreviousRecords, AFailureIsKnownForAlmostTenMinutes) {
    EXPECT_TRUE(is_known(599999));
}

TEST_F(PreviousRecords, AFailureIsForgottenAfterTenMinutes) {
    EXPECT_FALSE(is_known(600000));
}

TEST_F(PreviousRecords, ANewerStoredRecordDoesNotCount) {
    EXPECT_FALSE(is_known(static_cast<uint32_t>(-1)));
}

TEST_F(PreviousRecords, TheTenMinutesMayCrossTheWrap) {
    EXPECT_TRUE(is_known(599999, 0xFFFFFFF0));
}

TEST_F(PreviousRecords, TheTenMinutesEndAcrossTheWrapToo) {
    EXPECT_FALSE(is_known(600000, 0xFFFFFFF0));
}

TEST_F(PreviousRecords, AClientWithoutRecordsHasNoKnownFailure) {
    store(2, STORED_AT);
    const own_record rec(failed_at(1, STORED_AT));
    EXPECT_EQ(check_connection_info_in_previous_records(rec.get(), 0), 0);
}

TEST_F(PreviousRecords, AnotherBssidMakesAnotherFailure) {
    store(1, STORED_AT);
    const own_record rec(failed_at(1, STORED_AT));
    rec->cl_info.bssid[5]++;
    EXPECT_EQ(check_connection_info_in_previous_records(rec.get(), 0), 0);
    rec->cl_info.bssid[5]--;
    rec->cl_info.bssid[0]++;
    EXPECT_EQ(check_connection_info_in_previous_records(rec.get(), 0), 0);
}

TEST_F(PreviousRecords, AnotherCodeIsAnotherFailure) {
    store(1, STORED_AT);
    const own_record rec(failed_at(1, STORED_AT, OTHER_FAILURE));
    EXPECT_EQ(check_connection_info_in_previous_records(rec.get(), 0), 0);
}

TEST_F(PreviousRecords, TheSubDoesNotMatter) {
    store(1, STORED_AT);
    const own_record rec(failed_at(1, STORED_AT));
    rec->subinfo_code[0] = 99;
    EXPECT_EQ(check_connection_info_in_previous_records(rec.get(), 0), 1);
}

TEST_F(PreviousRecords, EveryFailureOfAStoredRecordCounts) {
    cl_conn_evt_rec *const before = store(1, STORED_AT, OTHER_FAILURE);
    const own_record rec(failed_at(1, STORED_AT));
    for (const size_t slot : {1, 2, 3}) {
        before->failure_code[slot] = FAILURE;
        EXPECT_EQ(check_connection_info_in_previous_records(rec.get(), 0), 1);
        before->failure_code[slot] = 0;
    }
    EXPECT_EQ(check_connection_info_in_previous_records(rec.get(), 0), 0);
}

TEST_F(PreviousRecords, OnlyTheFailureOfTheSlotIsLookedFor) {
    store(1, STORED_AT);
    const own_record rec(failed_at(1, STORED_AT));
    rec->failure_code[3] = OTHER_FAILURE;
    EXPECT_EQ(check_connection_info_in_previous_records(rec.get(), 0), 1);
    EXPECT_EQ(check_connection_info_in_previous_records(rec.get(), 3), 0);
}

TEST_F(PreviousRecords, EachStoredRecordOfTheClientIsLookedAt) {
    store(1, STORED_AT - 700000);
    store(1, STORED_AT, OTHER_FAILURE);
    cl_conn_evt_rec *const elsewhere = store(1, STORED_AT);
    elsewhere->cl_info.bssid[5]++;
    store(1, STORED_AT, OTHER_FAILURE);
    const own_record rec(failed_at(1, STORED_AT + 1));
    EXPECT_EQ(check_connection_info_in_previous_records(rec.get(), 0), 0);
    store(1, STORED_AT);
    EXPECT_EQ(check_connection_info_in_previous_records(rec.get(), 0), 1);
}

TEST_F(PreviousRecords, AFailureIsNotSentAgainWithinTenMinutes) {
    store(1, STORED_AT);
    const own_record rec(failed_at(1, STORED_AT + 599999));
    rec->is_rec_sent_to_server = 0;
    log_capture log(6);
    check_and_send_client_connection_info(rec.get(), 0);
    EXPECT_TRUE(take_reports().empty());
    EXPECT_EQ(rec->is_rec_sent_to_server, 0);
    EXPECT_EQ(log.lines(), (lines{"check_and_send_client_connection_info: CONN INFO: Not sending to server for client "
                                  "00:11:22:33:00:01, already sent in 600000 ms interval",
                                  ""}));
}

TEST_F(PreviousRecords, AFailureIsSentAgainAfterTenMinutes) {
    store(1, STORED_AT);
    const own_record rec(failed_at(1, STORED_AT + 600000));
    rec->is_rec_sent_to_server = 0;
    check_and_send_client_connection_info(rec.get(), 0);
    EXPECT_EQ(take_reports().size(), 1u);
    EXPECT_EQ(rec->is_rec_sent_to_server, 1);
}

TEST_F(PreviousRecords, ASuccessIsSentWhateverIsStored) {
    store(1, STORED_AT);
    const own_record rec(failed_at(1, STORED_AT));
    check_and_send_client_connection_info(rec.get(), -1);
    EXPECT_EQ(take_reports().size(), 1u);
}

// ---- Merging ----

class Merging : public PreviousRecords {
protected:
    /// A failed attempt each of whose times says whose it is.
    static cl_conn_evt_rec *timed(unsigned client, uint32_t msec, uint8_t failure, uint32_t mark) {
        cl_conn_evt_rec *const rec = failed_at(client, msec, failure);
        rec->auth_timestamp = mark + 1;
        rec->dhcp_timestamp = mark + 2;
        rec->aaa_timestamp = mark + 3;
        rec->dns_timestamp = mark + 4;
        rec->dhcp_latency = mark + 5;
        rec->aaa_latency = mark + 6;
        rec->dns_latency = mark + 7;
        return rec;
    }

    /// Merges a record of the client that came `later` milliseconds after STORED_AT.
    static void merge(uint32_t later, uint8_t failure = FAILURE) {
        const own_record rec(timed(1, STORED_AT + later, failure, 500));
        merge_connection_info_in_previous_records(rec.get());
    }

    static bool is_merged(const cl_conn_evt_rec *rec, uint32_t later) {
        return rec->timestamp == STORED_AT + later && rec->auth_timestamp == 501;
    }
};

TEST_F(Merging, TheTimesAreCopied) {
    cl_conn_evt_rec *const before = store(timed(1, STORED_AT, FAILURE, 100));
    merge(10);
    EXPECT_EQ(before->timestamp, STORED_AT + 10);
    EXPECT_EQ(before->auth_timestamp, 501u);
    EXPECT_EQ(before->dhcp_timestamp, 502u);
    EXPECT_EQ(before->aaa_timestamp, 503u);
    EXPECT_EQ(before->dns_timestamp, 504u);
    EXPECT_EQ(before->dhcp_latency, 505u);
    EXPECT_EQ(before->aaa_latency, 506u);
    EXPECT_EQ(before->dns_latency, 507u);
}

TEST_F(Merging, NothingElseIsCopied) {
    cl_conn_evt_rec *const before = store(timed(1, STORED_AT, FAILURE, 100));
    cl_conn_evt_rec expected = *before;
    const own_record rec(timed(1, STORED_AT + 10, FAILURE, 500));
    rec->gmt++;
    rec->cli_jrny = {1, 2, 3};
    rec->rcvd_err_evt = 77;
    rec->subinfo_code[0] = 78;
    rec->failure_code[1] = OTHER_FAILURE;
    rec->is_rec_sent_to_server = 0;
    rec->state = 4;
    rec->channel = 36;
    rec->dhcp_state = 1;
    rec->dhcp_server_ip = rec->dns_server_ip = rec->aaa_server_ip = 79;
    rec->ipaddr_evt_id = 9;
    rec->prev_evt_info_code = 5;
    rec->vlan = 80;
    const wl_evt_info_t event = event_of(INFO_ROLE, 0);
    rec->dns_latency = 0;  // else the event would complete the attempt
    (void)add_evt(rec.get(), &event);
    rec->dns_latency = 507;
    rec->timestamp = STORED_AT + 10;
    merge_connection_info_in_previous_records(rec.get());
    expected.timestamp = STORED_AT + 10;
    expected.auth_timestamp = 501;
    expected.dhcp_timestamp = 502;
    expected.aaa_timestamp = 503;
    expected.dns_timestamp = 504;
    expected.dhcp_latency = 505;
    expected.aaa_latency = 506;
    expected.dns_latency = 507;
    EXPECT_EQ(std::memcmp(before, &expected, sizeof expected), 0);
}

TEST_F(Merging, TheFirstSlotThatMatchesTakesTheTimes) {
    cl_conn_evt_rec *const other = store(1, STORED_AT, OTHER_FAILURE);
    cl_conn_evt_rec *const first = store(1, STORED_AT);
    cl_conn_evt_rec *const second = store(1, STORED_AT);
    merge(10);
    EXPECT_FALSE(is_merged(other, 10));
    EXPECT_TRUE(is_merged(first, 10));
    EXPECT_FALSE(is_merged(second, 10));
}

TEST_F(Merging, AnyFailureInCommonMatches) {
    cl_conn_evt_rec *const before = store(1, STORED_AT);
    before->failure_code[3] = FAILURE_DNS;
    const own_record rec(timed(1, STORED_AT + 10, OTHER_FAILURE, 500));
    rec->failure_code[2] = FAILURE_DNS;
    merge_connection_info_in_previous_records(rec.get());
    EXPECT_TRUE(is_merged(before, 10));
}

TEST_F(Merging, FreeSlotsAreNothingInCommon) {
    cl_conn_evt_rec *const before = store(1, STORED_AT);
    merge(10, OTHER_FAILURE);
    EXPECT_FALSE(is_merged(before, 10));
}

TEST_F(Merging, ARecordWithoutFailureIsNotMerged) {
    cl_conn_evt_rec *const before = store(1, STORED_AT);
    merge(10, 0);
    EXPECT_FALSE(is_merged(before, 10));
}

TEST_F(Merging, ARecordOfAnotherBssidIsNotMerged) {
    cl_conn_evt_rec *const before = store(1, STORED_AT);
    before->cl_info.bssid[0]++;
    merge(10);
    EXPECT_FALSE(is_merged(before, 10));
}

TEST_F(Merging, ARecordOfAnotherClientIsNotMerged) {
    cl_conn_evt_rec *const before = store(2, STORED_AT);
    merge(10);
    EXPECT_FALSE(is_merged(before, 10));
}

TEST_F(Merging, TheLastMillisecondOfTenMinutesMatches) {
    cl_conn_evt_rec *const before = store(1, STORED_AT);
    merge(599999);
    EXPECT_TRUE(is_merged(before, 599999));
}

TEST_F(Merging, AfterTenMinutesNothingIsMerged) {
    cl_conn_evt_rec *const before = store(1, STORED_AT);
    merge(600000);
    EXPECT_FALSE(is_merged(before, 600000));
}

TEST_F(Merging, ANewerRecordIsLeftAlone) {
    cl_conn_evt_rec *const before = store(1, STORED_AT);
    merge(static_cast<uint32_t>(-1));
    EXPECT_EQ(before->timestamp, STORED_AT);
}

TEST_F(Merging, MatchesAcrossTheWrap) {
    cl_conn_evt_rec *const before = store(1, 0xFFFFFFFF);
    const own_record rec(timed(1, 5, FAILURE, 500));
    merge_connection_info_in_previous_records(rec.get());
    EXPECT_EQ(before->timestamp, 5u);
}

TEST_F(Merging, NoMemoryIsNeeded) {
    store(1, STORED_AT);
    const own_record rec(timed(1, STORED_AT + 1, FAILURE, 500));
    const accounts before = accounts::now();
    fail_every_call("malloc");
    fail_every_call("calloc");
    merge_connection_info_in_previous_records(rec.get());
    EXPECT_EQ(faults_fired("malloc") + faults_fired("calloc"), 0);
    EXPECT_EQ(accounts::now(), before);
}

TEST_F(Merging, ARepeatedFailureKeepsTheTenMinutesRunning) {
    const auto fail_once = [] {
        deliver(1, INFO_AUTH_REQUEST, 0);
        deliver(1, INFO_ASSOC_REQUEST, 1);
        deliver(1, INFO_AUTH_REQUEST, 0);  // ends the attempt
    };
    fail_once();
    EXPECT_EQ(take_reports().size(), 1u);
    for (int i = 0; i < 3; i++) {
        advance(599999);
        fail_once();
        EXPECT_TRUE(take_reports().empty());
        EXPECT_EQ(stored().size(), 1u);
    }
    advance(600000);
    fail_once();
    EXPECT_EQ(take_reports().size(), 1u);
    EXPECT_EQ(stored().size(), 2u);
}

}  // namespace
