#pragma once

#include <QByteArray>

#include <chrono>
#include <functional>
#include <memory>

// Runs jobs beside the event loop, one at a time, so that one that hangs costs the loop a bounded
// wait. There is a thread only while there are jobs.
class DeadlineWorker
{
public:
    using Job = std::function<void()>;

    explicit DeadlineWorker(std::chrono::milliseconds limit);
    ~DeadlineWorker(); // does not wait: jobs that have not begun are dropped
    DeadlineWorker(const DeadlineWorker &) = delete;
    DeadlineWorker &operator=(const DeadlineWorker &) = delete;

    // Waits for the job's end, at most for the limit, and not at all while an earlier job is overdue.
    // A job that has not begun is replaced by a later one of the same name. True when it has ended.
    bool run(const QByteArray &name, Job job);
    bool isBusy() const; // an overdue job is still running

private:
    struct Queue;
    std::shared_ptr<Queue> m_queue; // the thread's too, which may outlive this object
    const std::chrono::milliseconds m_limit;
};
