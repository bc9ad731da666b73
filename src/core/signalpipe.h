#pragma once

#include <QObject>

#include <memory>

class QSocketNotifier;

// Carries SIGUSR1 from signal context into the event loop: one byte through a socket pair.
class SignalPipe : public QObject
{
    Q_OBJECT
public:
    SignalPipe();
    ~SignalPipe() override;

    bool isValid() const { return m_notifier != nullptr; } // false when the socket pair could not be made

    // Wakes the pipe made last. The one call that is safe in a signal handler; never blocks, and does
    // nothing while no pipe exists.
    static void notify();

signals:
    void raised(); // once for each byte

private slots:
    void onActivated();

private:
    int m_writeEnd = -1;
    int m_readEnd = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
};
