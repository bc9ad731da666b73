#pragma once

// SIGUSR1 wakes the signal pipe; interrupted system calls go on.
void installWakeHandler();
// Children of the engine link never become zombies; signalHandler takes the six ending signals.
void installExitHandlers();

// Ends the process at once: status 1 for SIGABRT, SIGBUS and SIGSEGV, 0 for SIGHUP, SIGINT and
// SIGTERM. Nothing is flushed, since every line was flushed when it was written.
void signalHandler(int signal);
