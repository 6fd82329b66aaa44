// The functions of a test executable's WRAP list: each fails when its fault is due and else is the real one. To make
// another function wrappable, add its line.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mqueue.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fault_point.h"
#include "test_clock.h"

#define WRAPPED(result, name, parameters, arguments, failure)             \
    extern "C" result __real_##name parameters;                           \
    extern "C" result __wrap_##name parameters {                          \
        return fault_is_due(#name) ? (failure) : __real_##name arguments; \
    }

#ifdef WRAP_malloc
WRAPPED(void *, malloc, (size_t size), (size), (errno = ENOMEM, nullptr))
#endif
#ifdef WRAP_calloc
WRAPPED(void *, calloc, (size_t count, size_t size), (count, size), (errno = ENOMEM, nullptr))
#endif
#ifdef WRAP_realloc
WRAPPED(void *, realloc, (void *block, size_t size), (block, size), (errno = ENOMEM, nullptr))
#endif
#ifdef WRAP_strdup
WRAPPED(char *, strdup, (const char *text), (text), (errno = ENOMEM, nullptr))
#endif
#ifdef WRAP_fopen
WRAPPED(FILE *, fopen, (const char *path, const char *mode), (path, mode), nullptr)
#endif
#ifdef WRAP_stat
WRAPPED(int, stat, (const char *path, struct stat *out), (path, out), -1)
#endif
#ifdef WRAP_fork
WRAPPED(pid_t, fork, (), (), -1)
#endif
#ifdef WRAP_setsid
WRAPPED(pid_t, setsid, (), (), -1)
#endif
#ifdef WRAP_socket
WRAPPED(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1)
#endif
#ifdef WRAP_bind
WRAPPED(int, bind, (int fd, const sockaddr *address, socklen_t length), (fd, address, length), -1)
#endif
#ifdef WRAP_connect
WRAPPED(int, connect, (int fd, const sockaddr *address, socklen_t length), (fd, address, length), -1)
#endif
#ifdef WRAP_listen
WRAPPED(int, listen, (int fd, int backlog), (fd, backlog), -1)
#endif
#ifdef WRAP_recv
WRAPPED(ssize_t, recv, (int fd, void *buffer, size_t size, int flags), (fd, buffer, size, flags), -1)
#endif
#ifdef WRAP_recvfrom
WRAPPED(ssize_t, recvfrom, (int fd, void *buffer, size_t size, int flags, sockaddr *from, socklen_t *length),
        (fd, buffer, size, flags, from, length), -1)
#endif
#ifdef WRAP_send
WRAPPED(ssize_t, send, (int fd, const void *data, size_t size, int flags), (fd, data, size, flags), -1)
#endif
#ifdef WRAP_sendto
WRAPPED(ssize_t, sendto, (int fd, const void *data, size_t size, int flags, const sockaddr *to, socklen_t length),
        (fd, data, size, flags, to, length), -1)
#endif
#ifdef WRAP_select
WRAPPED(int, select, (int count, fd_set *in, fd_set *out, fd_set *other, timeval *limit),
        (count, in, out, other, limit), -1)
#endif
#ifdef WRAP_read
WRAPPED(ssize_t, read, (int fd, void *buffer, size_t size), (fd, buffer, size), -1)
#endif
#ifdef WRAP_write
WRAPPED(ssize_t, write, (int fd, const void *data, size_t size), (fd, data, size), -1)
#endif
#ifdef WRAP_ftruncate
WRAPPED(int, ftruncate, (int fd, off_t size), (fd, size), -1)
#endif
#ifdef WRAP_setrlimit
WRAPPED(int, setrlimit, (__rlimit_resource_t resource, const rlimit *limit), (resource, limit), -1)
#endif
#ifdef WRAP_getrlimit
WRAPPED(int, getrlimit, (__rlimit_resource_t resource, rlimit *limit), (resource, limit), -1)
#endif
#ifdef WRAP_mq_receive
WRAPPED(ssize_t, mq_receive, (mqd_t queue, char *buffer, size_t size, unsigned *priority),
        (queue, buffer, size, priority), -1)
#endif
#ifdef WRAP_mq_send
WRAPPED(int, mq_send, (mqd_t queue, const char *data, size_t size, unsigned priority), (queue, data, size, priority),
        -1)
#endif
#ifdef WRAP_mq_getattr
WRAPPED(int, mq_getattr, (mqd_t queue, mq_attr *attributes), (queue, attributes), -1)
#endif
#ifdef WRAP_mq_open
extern "C" mqd_t __real_mq_open(const char *name, int flags, mode_t mode, mq_attr *attributes);
extern "C" mqd_t __wrap_mq_open(const char *name, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    mq_attr *attributes = va_arg(arguments, mq_attr *);
    va_end(arguments);
    return fault_is_due("mq_open") ? -1 : __real_mq_open(name, flags, mode, attributes);
}
#endif
#ifdef WRAP_ioctl
extern "C" int __real_ioctl(int fd, unsigned long request, void *argument);
extern "C" int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return fault_is_due("ioctl") ? -1 : __real_ioctl(fd, request, argument);
}
#endif
#ifdef WRAP_fcntl
extern "C" int __real_fcntl(int fd, int command, void *argument);
extern "C" int __wrap_fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return fault_is_due("fcntl") ? -1 : __real_fcntl(fd, command, argument);
}
#endif
#ifdef WRAP_open
extern "C" int __real_open(const char *path, int flags, mode_t mode);
extern "C" int __wrap_open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return fault_is_due("open") ? -1 : __real_open(path, flags, mode);
}
#endif
#ifdef WRAP_time
extern "C" time_t __real_time(time_t *out);
extern "C" time_t __wrap_time(time_t *out) {
    if (test_time == 0)
        return __real_time(out);
    if (out != nullptr)
        *out = test_time;
    return test_time;
}
#endif
