#pragma once

#include <QByteArray>
#include <QDBusAbstractAdaptor>

// The callback object that lodestard calls: hands the bytes on, decides nothing.
class UpdatesAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.varn.qlocation.updates")
public:
    explicit UpdatesAdaptor(QObject *host);

public slots:
    void positionUpdate(const QByteArray &fix);
    void satellitesInUseUpdate(const QByteArray &satellites);
    void satellitesInViewUpdate(const QByteArray &satellites);
    void currentSettings(uint methods, uint minInterval);

signals:
    void fixArrived(const QByteArray &fix);
    void satellitesInUseArrived(const QByteArray &satellites);
    void satellitesInViewArrived(const QByteArray &satellites);
    void settingsArrived(uint methods);
};
