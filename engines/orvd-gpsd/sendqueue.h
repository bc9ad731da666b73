#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <chrono>
#include <deque>
#include <utility>

// Messages that wait for the daemon to read. The kernel holds only a few (ten, on some machines), and
// a recording that is fed at once makes hundreds; but a daemon that hangs shall not be told of fixes
// from long ago when it comes back, nor fill the memory.
namespace orvdgpsd {
class SendQueue
{
public:
    using Milliseconds = std::chrono::milliseconds;
    static constexpr std::size_t Most = 4096;
    static constexpr Milliseconds Oldest{30000};

    bool isEmpty() const { return m_waiting.empty(); }
    void push(const QByteArray &message, Milliseconds now)
    {
        if (m_waiting.size() == Most)
            drop();
        m_waiting.push_back({message, now});
    }
    // The message to send next, null when there is none. What has become too old is dropped.
    const QByteArray *next(Milliseconds now)
    {
        while (!m_waiting.empty() && now - m_waiting.front().since > Oldest)
            drop();
        return m_waiting.empty() ? nullptr : &m_waiting.front().message;
    }
    void sent() { m_waiting.pop_front(); } // the one that next() gave
    quint64 takeDropped() { return std::exchange(m_dropped, 0); }

private:
    struct Waiting {
        QByteArray message;
        Milliseconds since;
    };
    void drop()
    {
        m_waiting.pop_front();
        ++m_dropped;
    }

    std::deque<Waiting> m_waiting;
    quint64 m_dropped = 0;
};
} // namespace orvdgpsd
