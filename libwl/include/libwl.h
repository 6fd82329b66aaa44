/// The event bus: POSIX message queues, one for each process of the access point. A message is an event's name, a NUL
/// and the payload.
///
/// These are the platform's C functions, declared for C++; the build can link a device's own library behind it instead
/// of ours. Registering, binding and reading belong to the main thread; sending, the counters and the radio query are
/// safe from any thread. No lock is held while a handler runs, so a handler may send, bind and register; it may not
/// read.
#pragma once

#include <cstdint>

#include "wl_events.h"

/// What went wrong on the bus since the process started. Both counts wrap.
struct mq_failure_statistics {
    int send_failure_count;  // deliveries that an existing queue refused
    int recv_failure_count;  // failed reads, and messages that were dropped because they name no event
};

extern "C" {

/// Empties the binding table, opens the process's own queue and calls `register_callback` to bind its handlers. The
/// descriptor of an earlier registration is closed first, so that its number is likely to come back.
///
/// Where the queue's documented depth is refused, it is halved until the kernel takes it, never below 8, which leaves
/// room for the queues of the other processes. A queue that exists is taken as it is.
///
/// @param key                of the process's queue (wl_message_queues)
/// @param register_callback  its result is not looked at: a handler that could not be bound does not stop the bus
/// @return a descriptor usable in select, owned by the library; -1 with `errno` set, and then nothing is bound
[[nodiscard]] int wl_mq_register_and_init(int key, int (*register_callback)());

/// Binds a handler to an event index; several may share one. Index 66 receives every event, index 95 also events 93
/// and 94; the handler's first argument is the actual index. A binding made by a handler counts from the next message.
///
/// @return 0, or -1 for an index outside 0..108, a null handler or a full table (128 bindings)
[[nodiscard]] int wl_register_handler(vre_iw_cmd_t event, wl_evt_handler_t handler);

/// Reads one message without blocking and calls its handlers in binding order.
///
/// The payload handed out is followed by at least 64 zero bytes and is gone when the last handler has returned.
///
/// @return 0 when a message was handled or dropped or none was there; -1 when the queue is gone or was never opened
[[nodiscard]] int handle_wl_evt();

/// Publishes an event: sends it without blocking to every other process's queue that exists, and to the process's own
/// queue when a handler is bound to that very index (a binding of index 66 or of the group 95 does not ask for it).
/// Never calls a handler and never logs.
///
/// @param payload  may be null when `length` is 0
/// @param length   bytes of payload
/// @return the number of queues that took the message; -1 when none did, when the event has no name, when the message
///         does not fit, when memory is short or when the arguments make no payload
int wl_send_evt(vre_iw_cmd_t event, const void *payload, int length);

/// Fetches the failure counters.
void get_mq_failure_statistics(mq_failure_statistics *statistics);

/// Asks the wireless interfaces for the radio that serves a client: those whose driver offers the private command
/// "get_cl_radio" (6 bytes in, one int out), until one knows the client.
///
/// @param mac  6 bytes
/// @return the radio's number, or -1 when no interface knows the client
int get_wl_client_radio(const uint8_t *mac);
}
