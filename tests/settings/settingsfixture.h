#pragma once

#include "settings/locationsecuresettings.h"
#include "settings/settingstable.h"
#include "support/devicetree.h"
#include "support/logcapture.h"
#include "support/privatebus.h"
#include "support/scoped.h"

#include <QSettings>
#include <QSignalSpy>

#include <memory>

// The daemon object as the settings service knows it.
class Handler : public LocationSecureSettingsIF
{
public:
    void clearAssistanceData(int data) override { cleared << data; }
    QList<int> cleared;
};

// The settings service of a device whose user is the handset user.
class SettingsFixture
{
public:
    static inline const QString UserFile = QStringLiteral("/home/user/.lodestard/private/location_settings");
    static inline const QString OperatorFile = QStringLiteral("/etc/xdg/varn/location-settings.conf");

    void start()
    {
        settings = std::make_unique<LocationSecureSettings>(&host, &handler, tree.paths());
        signalled = std::make_unique<QSignalSpy>(settings.get(), &LocationSecureSettings::valueChanged);
    }
    // Without the lines of the start.
    void startQuietly()
    {
        start();
        log.takeLines();
    }
    bool writeUserFile(const QByteArray &keys) const { return tree.write(UserFile, "[General]\n" + keys); }
    bool writeOperatorFile(const QByteArray &keys) const
    {
        return tree.write(OperatorFile, "[General]\n" + keys);
    }

    bool set(const QString &key, const QVariant &value) const
    {
        return settings->setSetting(key, QDBusVariant(value));
    }
    QStringList takeSignals() const
    {
        QStringList keys;
        while (!signalled->isEmpty())
            keys << signalled->takeFirst().constFirst().toString();
        return keys;
    }

    const ScopedVariable user{"USER", "root"};
    DeviceTree tree;
    LogCapture log;
    Handler handler;
    QObject host;
    std::unique_ptr<LocationSecureSettings> settings; // before its host goes
    std::unique_ptr<QSignalSpy> signalled;
};
