#include "child.h"

#include <cerrno>
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

pid_t start_child(const std::function<void()> &body) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child != 0)
        return child;
    body();
    _exit(0);
}

int wait_for(pid_t child) {
    int status = -1;
    TEMP_FAILURE_RETRY(waitpid(child, &status, 0));
    return status;
}
