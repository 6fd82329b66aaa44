#include "fault.h"

#include <cerrno>
#include <climits>
#include <map>
#include <mutex>
#include <string>

#include "fault_point.h"

namespace {

struct fault {
    int calls_left;  // calls that still succeed, the failing one included; 0 after it has failed
    bool every;
    int error;
    int fired;
};

std::mutex faults_mutex;
std::map<std::string, fault> *faults;
thread_local bool inside;  // the bookkeeping itself may allocate

}  // namespace

void fail_nth_call(const char *function, int nth, int error) {
    const std::lock_guard lock(faults_mutex);
    if (faults == nullptr)
        faults = new std::map<std::string, fault>;
    (*faults)[function] = {nth, false, error, 0};
}

void fail_every_call(const char *function, int error) {
    fail_nth_call(function, INT_MAX, error);
    const std::lock_guard lock(faults_mutex);
    (*faults)[function].every = true;
}

void clear_faults() {
    const std::lock_guard lock(faults_mutex);
    delete faults;
    faults = nullptr;
}

int faults_fired(const char *function) {
    const std::lock_guard lock(faults_mutex);
    if (faults == nullptr)
        return 0;
    const auto found = faults->find(function);
    return found == faults->end() ? 0 : found->second.fired;
}

bool fault_is_due(const char *function) {
    if (inside)
        return false;
    inside = true;
    bool due = false;
    int error = 0;
    {
        const std::lock_guard lock(faults_mutex);
        const auto found = faults == nullptr ? std::map<std::string, fault>::iterator() : faults->find(function);
        if (faults != nullptr && found != faults->end()) {
            fault &armed = found->second;
            due = armed.every || (armed.calls_left > 0 && --armed.calls_left == 0);
            armed.fired += due ? 1 : 0;
            error = armed.error;
        }
    }
    inside = false;
    if (due)
        errno = error;
    return due;
}
