/// What the receiving and the sending half of the event-bus library share.
#pragma once

#include <atomic>
#include <pthread.h>

#include "wl_events.h"

/// Guards the binding table and the senders' descriptors. Only the main thread writes the table, so it reads it without
/// the mutex. Nothing else is ever locked, logged or called with it held.
extern pthread_mutex_t wl_bus_mutex;

extern std::atomic<int> wl_send_failures;
extern std::atomic<int> wl_receive_failures;

/// Whether an event goes to the queue of a slot: the process's own wants only what has a binding of its very index,
/// every other one that has a name takes all. The caller holds wl_bus_mutex.
bool is_addressed(unsigned slot, vre_iw_cmd_t event);
