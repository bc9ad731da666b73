#pragma once

#include "engine/orvcomm.h"
#include "support/fakeengine.h"
#include "support/logcapture.h"
#include "support/scoped.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <optional>

inline const QByteArray Registration = QByteArray::fromHex("EF0C0006 0000");

// A test of connecting: a file system without an engine, and an environment that names none.
class OrvConnectionTest : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_noSource.emplace("POSITIONING_SOURCE", std::nullopt);
        m_root = std::make_unique<QTemporaryDir>();
        QVERIFY(m_root->isValid());
        m_paths = DevicePaths{m_root->path()};
        m_log = std::make_unique<LogCapture>();
    }
    void cleanup()
    {
        m_log.reset();
        m_noSource.reset();
    }

protected:
    bool write(const QString &path, const QByteArray &content = {}) const
    {
        QFile file(path);
        return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
               file.write(content) == content.size();
    }

    QStringList take() const { return m_log->takeLines(); }

    std::optional<ScopedVariable> m_noSource;
    std::unique_ptr<QTemporaryDir> m_root;
    DevicePaths m_paths;
    std::unique_ptr<LogCapture> m_log;
};
