#include "core/signalpipe.h"

#include <QSocketNotifier>

#include <atomic>
#include <cerrno>

#include <sys/socket.h>
#include <unistd.h>

namespace {

std::atomic<int> wakeEnd{-1};
static_assert(std::atomic<int>::is_always_lock_free, "read in signal context");

} // namespace

SignalPipe::SignalPipe()
{
    int ends[2];
    // Not blocking: a handler must return even when nobody has read for long.
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
        return;
    m_writeEnd = ends[0];
    m_readEnd = ends[1];
    m_notifier = std::make_unique<QSocketNotifier>(m_readEnd, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &SignalPipe::onActivated);
    wakeEnd = m_writeEnd;
}

SignalPipe::~SignalPipe()
{
    int own = m_writeEnd;
    wakeEnd.compare_exchange_strong(own, -1);
    m_notifier.reset();
    if (m_writeEnd >= 0)
        ::close(m_writeEnd);
    if (m_readEnd >= 0)
        ::close(m_readEnd);
}

void SignalPipe::notify()
{
    const int end = wakeEnd;
    if (end < 0)
        return;
    const int saved = errno; // belongs to the code that was interrupted
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(end, &byte, 1);
    errno = saved;
}

void SignalPipe::onActivated()
{
    m_notifier->setEnabled(false);
    char byte = 0;
    if (::read(m_readEnd, &byte, 1) == 1)
        emit raised();
    m_notifier->setEnabled(true);
}
