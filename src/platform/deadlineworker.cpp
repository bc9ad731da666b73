#include "platform/deadlineworker.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

struct DeadlineWorker::Queue {
    std::mutex mutex;
    std::condition_variable idle;
    std::map<QByteArray, Job> waiting;
    bool running = false; // there is a thread

    void work();
};

void DeadlineWorker::Queue::work()
{
    std::unique_lock lock(mutex);
    while (!waiting.empty()) {
        auto next = waiting.extract(waiting.begin());
        lock.unlock();
        next.mapped()();
        next = {}; // what the job held goes before anybody is told that it has ended
        lock.lock();
    }
    running = false;
    idle.notify_all();
}

DeadlineWorker::DeadlineWorker(std::chrono::milliseconds limit)
    : m_queue(std::make_shared<Queue>())
    , m_limit(limit)
{
}

DeadlineWorker::~DeadlineWorker()
{
    const std::lock_guard lock(m_queue->mutex);
    m_queue->waiting.clear();
}

bool DeadlineWorker::run(const QByteArray &name, Job job)
{
    std::unique_lock lock(m_queue->mutex);
    m_queue->waiting.insert_or_assign(name, std::move(job));
    if (m_queue->running)
        return false;
    m_queue->running = true;
    std::thread([queue = m_queue] { queue->work(); }).detach();
    return m_queue->idle.wait_for(lock, m_limit, [this] { return !m_queue->running; });
}

bool DeadlineWorker::isBusy() const
{
    const std::lock_guard lock(m_queue->mutex);
    return m_queue->running;
}
