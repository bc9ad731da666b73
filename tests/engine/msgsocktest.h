#pragma once

#include "engine/msgsockclient.h"
#include "support/fakeengine.h"
#include "support/logcapture.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

// A test of the engine socket: every test function has a folder of its own for it.
class MsgSockTest : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_directory = std::make_unique<QTemporaryDir>();
        QVERIFY(m_directory->isValid());
    }

protected:
    QByteArray path() const { return QFile::encodeName(m_directory->filePath(QStringLiteral("engine"))); }

    std::unique_ptr<QTemporaryDir> m_directory;
};

// The numbers of this process's descriptors that are sockets.
inline QStringList openSockets()
{
    QStringList names = QDir(QStringLiteral("/proc/self/fd"))
                            .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    names.removeIf([](const QString &name) {
        return !QFile::symLinkTarget(QStringLiteral("/proc/self/fd/") + name)
                    .contains(QLatin1String("socket:"));
    });
    return names;
}

// A packet whose header says it is this long, whatever its size.
inline QByteArray message(quint8 length, int bufferSize)
{
    QByteArray bytes(bufferSize, '\x55');
    bytes[0] = char(0xEF);
    bytes[1] = char(0x01);
    bytes[2] = 0;
    bytes[3] = char(length);
    return bytes;
}
