/// Stands in for the shell and the clock of the bandwidth worker: what system() is given is noted and answered as the
/// test wants, and a pause ends at once. The test executable links with --wrap=system and --wrap=sleep.
#pragma once

#include <cstdlib>
#include <functional>
#include <mutex>
#include <sched.h>
#include <string>
#include <vector>

#include "wl_bw_internal.h"

/// All of it may be used from any thread.
struct scripted_shell {
    std::mutex mutex;
    std::vector<std::string> timeline;  // "run <command>" and "sleep <seconds>", in order

    // Called without the mutex, on the worker's thread; what system() returns. Set them while no worker runs.
    std::function<int(const std::string &)> on_run;
    std::function<void(unsigned)> on_sleep;

    scripted_shell() {
        start_afresh();
    }

    void start_afresh() {
        timeline.clear();
        on_run = [](const std::string &) { return 0; };
        on_sleep = [](unsigned) {};
    }

    void note(const std::string &what) {
        const std::lock_guard lock(mutex);
        timeline.push_back(what);
    }

    std::vector<std::string> seen() {
        const std::lock_guard lock(mutex);
        return timeline;
    }

    std::vector<std::string> runs() {
        std::vector<std::string> commands;
        for (const std::string &what : seen())
            if (what.compare(0, 4, "run ") == 0)
                commands.push_back(what.substr(4));
        return commands;
    }
};

inline scripted_shell shell;

extern "C" [[gnu::used]] inline int __wrap_system(const char *command) {
    shell.note(std::string("run ") + command);
    return shell.on_run(command);
}

extern "C" [[gnu::used]] inline unsigned __wrap_sleep(unsigned seconds) {
    shell.note("sleep " + std::to_string(seconds));
    shell.on_sleep(seconds);
    return 0;
}

/// What system() returns for a script that exits with a status.
constexpr int exited(int status) {
    return status << 8;
}

inline bool worker_runs() {
    const queue_lock lock;
    return g_bw_queue_started != 0;
}

/// Waits until the worker has run everything and ended. The test's own time limit bounds it.
inline void wait_for_worker() {
    while (worker_runs())
        sched_yield();
}
