#pragma once

#include <QMutex>
#include <QStringList>
#include <QThread>

#include <memory>

// bluez 4's manager and one adapter, on the system bus of the test. It lives on a thread of its own,
// since its callers block.
class FakeBluez
{
public:
    // Without an adapter. The process id is part of every path.
    explicit FakeBluez(int processId = 4711);
    ~FakeBluez();
    FakeBluez(const FakeBluez &) = delete;
    FakeBluez &operator=(const FakeBluez &) = delete;

    void plugAdapter(); // "/org/bluez/4711/hci0"
    void pair(const QString &address);
    void remove(const QString &address); // and says so, with "DeviceRemoved" of the adapter
    void rejectSessions();
    // "DefaultAdapter", "FindDevice 00:11:...", "RequestSession" since the last time
    QStringList takeCalls();

    struct State;

private:
    std::unique_ptr<State> m_state;
    std::unique_ptr<QObject> m_manager;
    std::unique_ptr<QObject> m_adapter;
    QThread m_thread;
};
