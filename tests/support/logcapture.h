#pragma once

#include <QMutex>
#include <QMutexLocker>
#include <QStringList>
#include <QtMessageHandler>

#include <functional>
#include <utility>

// Takes every log line of the process while it lives, as "debug: text", "warning: text", ...
// One at a time: it is the process's message handler.
class LogCapture
{
public:
    LogCapture()
    {
        s_current = this;
        m_previous = qInstallMessageHandler(&LogCapture::take);
    }
    ~LogCapture()
    {
        qInstallMessageHandler(m_previous);
        s_current = nullptr;
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // The lines so far.
    QStringList lines() const
    {
        const QMutexLocker lock(&m_mutex);
        return m_lines;
    }
    // The same, and they are forgotten.
    QStringList takeLines()
    {
        const QMutexLocker lock(&m_mutex);
        return std::exchange(m_lines, {});
    }

    // Called after every line from now on, in the thread that wrote it.
    void onLine(const std::function<void(const QString &)> &reaction) { m_reaction = reaction; }

private:
    static void take(QtMsgType type, const QMessageLogContext &, const QString &text)
    {
        const QString line = levelName(type) + text;
        {
            const QMutexLocker lock(&s_current->m_mutex);
            s_current->m_lines.append(line);
        }
        if (s_current->m_reaction)
            s_current->m_reaction(line);
    }
    static QString levelName(QtMsgType type)
    {
        switch (type) {
        case QtDebugMsg:
            return QStringLiteral("debug: ");
        case QtInfoMsg:
            return QStringLiteral("info: ");
        case QtWarningMsg:
            return QStringLiteral("warning: ");
        case QtCriticalMsg:
            return QStringLiteral("critical: ");
        case QtFatalMsg:
            return QStringLiteral("fatal: ");
        }
        return {};
    }

    static inline LogCapture *s_current = nullptr;
    QtMessageHandler m_previous = nullptr;
    mutable QMutex m_mutex; // the bus thread logs too
    QStringList m_lines;
    std::function<void(const QString &)> m_reaction;
};
