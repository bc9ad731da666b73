#pragma once

#include <QFile>
#include <QTemporaryDir>

#include <functional>

#include <sys/wait.h>
#include <unistd.h>

// What a forked copy of the test wrote, and how it ended.
struct ChildOutcome {
    int status = -1; // exit status; -1 when it did not exit by itself
    QByteArray out;
    QByteArray err;
};

// Runs `body` in a child whose standard output and error are kept; a body that returns ends it with 42.
inline ChildOutcome runInChild(const std::function<void()> &body)
{
    const QTemporaryDir directory;
    QFile out(directory.filePath(QStringLiteral("out")));
    QFile err(directory.filePath(QStringLiteral("err")));
    ChildOutcome outcome;
    if (!out.open(QIODevice::ReadWrite) || !err.open(QIODevice::ReadWrite))
        return outcome;

    std::fflush(nullptr); // or the child writes what is still in the buffers once more
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(out.handle(), STDOUT_FILENO);
        ::dup2(err.handle(), STDERR_FILENO);
        body();
        ::_exit(42);
    }
    int status = 0;
    if (child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status))
        outcome.status = WEXITSTATUS(status);
    out.seek(0);
    err.seek(0);
    outcome.out = out.readAll();
    outcome.err = err.readAll();
    return outcome;
}
