/// The crash handler of the access point's daemons: on a fatal signal it appends a short record to the program's
/// stack-trace file and kills the process. Each program registers once, under its own name, before it starts threads;
/// the handler runs on whichever thread faulted, with the four fatal signals blocked.
#pragma once

#include <csignal>

extern char g_application_name[128];  // at most 127 characters
extern struct sigaction sa_crash;     // the installed action

/// Installs the handler for SIGSEGV, SIGILL, SIGFPE and SIGBUS.
///
/// @param name  the program's name, copied; the record file is "/opt/sensor/stacktrace_<name>"
void register_crash_handler(const char *name);

/// Appends the record and ends the process by SIGKILL; does not return. Takes no lock but the C library's one for the
/// time zone, and no memory from the heap, since the fault may have hit inside the allocator or the log.
///
/// @param context  the machine context (ucontext_t) of the faulting instruction
void sensord_crash_handler(int signal, siginfo_t *info, void *context);
