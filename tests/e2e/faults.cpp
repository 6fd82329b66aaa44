// Preloaded into the daemon under test: the n-th call of a function fails. WL_FAULTS holds "name:n:ERRNO" entries
// separated by commas, such as "mq_receive:1:EBADF"; n = 0 makes every call fail.
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <mqueue.h>
#include <sys/select.h>
#include <unistd.h>

namespace {

int error_of(const char *name) {
    static constexpr struct {
        const char *name;
        int error;
    } known[] = {{"EACCES", EACCES}, {"EBADF", EBADF}, {"EAGAIN", EAGAIN}, {"EINVAL", EINVAL}, {"ENOSPC", ENOSPC}};
    for (const auto &each : known) {
        if (std::strncmp(name, each.name, std::strlen(each.name)) == 0)
            return each.error;
    }
    std::abort();
}

/// Counts a call; whether it is to fail, and then with `errno` set.
bool due(const char *function, int &calls) {
    calls++;
    const char *entry = std::getenv("WL_FAULTS");
    const size_t length = std::strlen(function);
    for (; entry != nullptr; entry = std::strchr(entry, ',')) {
        entry += *entry == ',' ? 1 : 0;
        if (std::strncmp(entry, function, length) != 0 || entry[length] != ':')
            continue;
        char *rest = nullptr;
        const long nth = std::strtol(entry + length + 1, &rest, 10);
        if (nth != 0 && nth != calls)
            continue;
        errno = error_of(rest + 1);
        return true;
    }
    return false;
}

template <class Function> Function *real(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

ssize_t mq_receive(mqd_t queue, char *buffer, size_t size, unsigned *priority) {
    static int calls;
    return due("mq_receive", calls) ? -1 : real<decltype(mq_receive)>("mq_receive")(queue, buffer, size, priority);
}

mqd_t mq_open(const char *name, int flags, ...) {
    static int calls;
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, mode_t);
    auto *attributes = va_arg(arguments, mq_attr *);
    va_end(arguments);
    return due("mq_open", calls) ? -1 : real<decltype(mq_open)>("mq_open")(name, flags, mode, attributes);
}

pid_t fork() {
    static int calls;
    return due("fork", calls) ? -1 : real<decltype(fork)>("fork")();
}
}
