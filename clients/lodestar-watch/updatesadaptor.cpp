#include "updatesadaptor.h"

UpdatesAdaptor::UpdatesAdaptor(QObject *host)
    : QDBusAbstractAdaptor(host)
{
}

void UpdatesAdaptor::positionUpdate(const QByteArray &fix)
{
    emit fixArrived(fix);
}

void UpdatesAdaptor::satellitesInUseUpdate(const QByteArray &satellites)
{
    emit satellitesInUseArrived(satellites);
}

void UpdatesAdaptor::satellitesInViewUpdate(const QByteArray &satellites)
{
    emit satellitesInViewArrived(satellites);
}

void UpdatesAdaptor::currentSettings(uint methods, uint)
{
    emit settingsArrived(methods);
}
