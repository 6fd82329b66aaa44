/// Runs code that ends its process, in a child.
#pragma once

#include <functional>
#include <sys/types.h>

/// Starts `body` in a child process; the child leaves with status 0 when `body` returns.
///
/// @return the child's process id
pid_t start_child(const std::function<void()> &body);

/// @return the wait status with which a child ended
int wait_for(pid_t child);
