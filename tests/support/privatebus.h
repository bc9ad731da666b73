#pragma once

#include <QByteArray>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

// A message bus of the test's own, which starts with the object and ends with it (or with the
// test, should that crash). Every name may be owned and every message sent. Of the services
// installed here the bus starts only those whose names it is given.
class PrivateBus
{
public:
    explicit PrivateBus(const QStringList &services = {}); // fatal when the bus does not start
    ~PrivateBus();
    PrivateBus(const PrivateBus &) = delete;
    PrivateBus &operator=(const PrivateBus &) = delete;

    void stop(); // as a crash would
    QByteArray address() const { return m_address; }

private:
    QTemporaryDir m_directory;
    QProcess m_daemon;
    QByteArray m_address;
};

// Folders of the test's own for what programs keep for their user, named by the environment from now on.
class PrivateHome
{
public:
    PrivateHome();

private:
    QTemporaryDir m_directory;
};

// A session and a system bus, which the process's environment names from now on. Make it before
// anything asks QDBusConnection for either.
class PrivateBuses
{
    PrivateHome m_home; // the first: what the buses start lives there

public:
    explicit PrivateBuses(const QStringList &sessionServices = {});

    PrivateBus session;
    PrivateBus system;
};

// In place of QTEST_GUILESS_MAIN, for tests with buses of their own.
#define PRIVATE_BUS_TEST_MAIN(TestObject)                                                                    \
    int main(int argc, char *argv[])                                                                         \
    {                                                                                                        \
        const PrivateBuses buses;                                                                            \
        QCoreApplication application(argc, argv);                                                            \
        TestObject test;                                                                                     \
        return QTest::qExec(&test, argc, argv);                                                              \
    }
