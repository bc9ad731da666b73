#pragma once

#include <optional>

#include <sys/types.h>

// The system calls of detaching; a test hands in its own.
struct ProcessCalls {
    pid_t (*getppid)();
    pid_t (*fork)();
    pid_t (*setsid)();
    int (*chdir)(const char *path);
    mode_t (*umask)(mode_t mask);

    static const ProcessCalls &system();
};

// A standard stream that the caller has closed becomes /dev/null. Or a socket of ours would get its
// number, and log lines would go into that socket. Before anything else is opened.
void fillStandardStreams();

// Leaves the caller's session, directory and umask behind in a forked child; nothing happens below
// process 1, where the process is detached already. Buffers must be empty, and no other thread may
// run yet. The status with which this process has to _exit: 0 in the parent, 1 after a failure;
// nothing where the daemon goes on.
[[nodiscard]] std::optional<int> daemonize(const ProcessCalls &calls = ProcessCalls::system());
