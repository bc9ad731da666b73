#include "core/positiondaemon.h"

#include <QMetaMethod>
#include <QTest>

namespace {

// The whole interface in its order.
constexpr const char *Order[] = {
    "settingVESK(int,int)",
    "userSettingsChanged(QString)",
    "onPositionUpdateGNSS(quint16,QGeoPositionInfo&)",
    "onPositionUpdateSUPL(QGeoPositionInfo&)",
    "onPositionUpdateVESK(QGeoPositionInfo&,int)",
    "onSatellitesInView(QList<QGeoSatelliteInfo>&)",
    "onSatellitesInUse(QList<QGeoSatelliteInfo>&)",
    "onGNSSStateUpdated(ORVComm::GNSSState)",
    "onUpdateTimeoutGNSS(quint16)",
    "onFixStatusUpdate(GypsyComm::FixStatus)",
    "onConnectionStatusUpdate(GypsyComm::ConnectionStatus)",
    "requestPositionSUPL()",
    "privacyDialogFinished(LocationUI::DialogReply)",
    "onSigUsr1()",
    "onClientDisconnected(int)",
    "onOrvDisconnected()",
    "reconnectOrv()",
    "allowOrvClients()",
    "addContextFWPositionClient(QString)",
    "delContextFWPositionClient(QString)",
    "addContextFWStateClient(QString)",
    "delContextFWStateClient(QString)",
    "removePrestartClient()",
    "onPowerSaveTimeout(bool)",
    "onPowerSaveTimeout()",
    "onPowerSaveContextUnsubscribe()",
    "onScreenBlanked()",
};

// The meta-object spells types by their registered names.
QByteArray registered(QByteArray signature)
{
    return signature.replace("quint16", QMetaType::fromType<quint16>().name());
}

QList<QByteArray> declaredMethods()
{
    const QMetaObject &meta = PositionDaemon::staticMetaObject;
    QList<QByteArray> methods;
    for (int index = meta.methodOffset(); index < meta.methodCount(); ++index)
        methods << meta.method(index).methodSignature();
    return methods;
}

} // namespace

class TestMetaObject : public QObject
{
    Q_OBJECT

private slots:
    void methodsStandInTheirOrder();
    void theSignalComesFirstAndNamesItsArguments();
};

void TestMetaObject::methodsStandInTheirOrder()
{
    QList<QByteArray> expected;
    for (const char *signature : Order)
        expected << registered(signature);
    QCOMPARE(declaredMethods(), expected);
}

void TestMetaObject::theSignalComesFirstAndNamesItsArguments()
{
    const QMetaObject &meta = PositionDaemon::staticMetaObject;
    const QMetaMethod first = meta.method(meta.methodOffset());
    QCOMPARE(first.methodType(), QMetaMethod::Signal);
    QCOMPARE(first.parameterNames(), (QList<QByteArray>{"setting", "enabled"}));
    for (int index = meta.methodOffset() + 1; index < meta.methodCount(); ++index)
        QCOMPARE(meta.method(index).methodType(), QMetaMethod::Slot);
}

QTEST_APPLESS_MAIN(TestMetaObject)
#include "tst_metaobject.moc"
