#include "support/privatebus.h"

#include <QDir>
#include <QFile>

#include <csignal>

#include <sys/prctl.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int StartTimeoutMs = 30000;

constexpr const char *Configuration =
    R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:dir=%1</listen>
  <auth>EXTERNAL</auth>
  <servicedir>%1/services</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
    <allow user="*"/>
  </policy>
</busconfig>
)";

} // namespace

PrivateBus::PrivateBus(const QStringList &services)
{
    const QDir folder(m_directory.path());
    folder.mkdir(u"services"_s);
    for (const QString &name : services)
        QFile::link(u"/usr/share/dbus-1/services/%1.service"_s.arg(name),
                    folder.filePath(u"services/%1.service"_s.arg(name)));
    const QString path = m_directory.filePath(u"bus.conf"_s);
    QFile configuration(path);
    if (!configuration.open(QIODevice::WriteOnly))
        qFatal("Cannot write %s", qUtf8Printable(path));
    configuration.write(QString::fromLatin1(Configuration).arg(m_directory.path()).toUtf8());
    configuration.close();

    m_daemon.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    m_daemon.start(u"dbus-daemon"_s, {u"--config-file="_s + path, u"--nofork"_s, u"--print-address=1"_s});
    while (!m_daemon.canReadLine()) {
        if (!m_daemon.waitForReadyRead(StartTimeoutMs))
            qFatal("dbus-daemon does not start: %s", m_daemon.readAllStandardError().constData());
    }
    m_address = m_daemon.readLine().trimmed();
}

PrivateBus::~PrivateBus()
{
    stop();
}

void PrivateBus::stop()
{
    m_daemon.kill();
    m_daemon.waitForFinished();
}

PrivateHome::PrivateHome()
{
    const QByteArray path = QFile::encodeName(m_directory.path());
    qputenv("HOME", path);
    qputenv("XDG_CONFIG_HOME", path + "/.config");
    qputenv("XDG_CACHE_HOME", path + "/.cache");
    qputenv("XDG_RUNTIME_DIR", path);
}

PrivateBuses::PrivateBuses(const QStringList &sessionServices)
    : session(sessionServices)
{
    qputenv("DBUS_SESSION_BUS_ADDRESS", session.address());
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", system.address());
}
