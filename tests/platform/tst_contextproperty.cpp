#include "platform/contextproperty.h"
#include "support/fakescreensaver.h"
#include "support/leavebus.h"
#include "support/privatebus.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

using Answers = FakeScreenSaver::Answers;
Q_DECLARE_METATYPE(Answers)

class TestContextProperty : public QObject
{
    Q_OBJECT

private slots:
    void nothingIsAskedWhileUnsubscribed();
    void theScreenSaverIsAskedAndFollowed_data();
    void theScreenSaverIsAskedAndFollowed();
    void theDesktopsCommonNameComesFirst();
    void aCommonNameWithoutAnswerLeavesTheOther_data();
    void aCommonNameWithoutAnswerLeavesTheOther();
    void aScreenSaverMayComeLate();
    void aScreenSaverMayVanishAndComeBack();
    void onlyTheOwnersWordCounts();
    void aFormerOwnersAnswerDoesNotCount();
    void aSignalBeatsASlowAnswer();
    void unsubscribingEndsItAll();
    void unsubscribingInsideTheChangeIsFine();
    void subscribingTwiceAsksOnce();
    void otherKeysHaveNoSource();

private:
    // All that the bus had for us by now has been dealt with.
    static void settle()
    {
        for (int turn = 0; turn < 3; ++turn) {
            auto call = QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/"_s,
                                                       u"org.freedesktop.DBus.Peer"_s, u"Ping"_s);
            QDBusConnection::sessionBus().call(call, QDBus::BlockWithGui);
            QCoreApplication::processEvents();
        }
    }
};

void TestContextProperty::nothingIsAskedWhileUnsubscribed()
{
    FakeScreenSaver saver(FakeScreenSaver::Freedesktop, true);
    ContextProperty screen(u"Screen.Blanked"_s);
    const QSignalSpy changes(&screen, &ContextProperty::valueChanged);
    settle();
    saver.setActive(false);
    settle();
    QVERIFY(!screen.value().isValid());
    QCOMPARE(saver.takeCalls(), QStringList());
    QCOMPARE(changes.count(), 0);
}

void TestContextProperty::theScreenSaverIsAskedAndFollowed_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("the common one") << FakeScreenSaver::Freedesktop;
    QTest::newRow("GNOME's own") << FakeScreenSaver::Gnome;
}

void TestContextProperty::theScreenSaverIsAskedAndFollowed()
{
    QFETCH(QString, name);
    FakeScreenSaver saver(name, true);
    ContextProperty screen(u"Screen.Blanked"_s);
    const QSignalSpy changes(&screen, &ContextProperty::valueChanged);
    screen.subscribe();
    QVERIFY(!screen.value().isValid()); // asynchronous
    QTRY_COMPARE(screen.value(), QVariant(true));
    QCOMPARE(changes.count(), 1);
    QCOMPARE(saver.takeCalls(), QStringList{u"GetActive"_s}); // never introspected

    saver.setActive(false);
    QTRY_COMPARE(screen.value(), QVariant(false));
    saver.setActive(false); // no news
    saver.setActive(true);
    QTRY_COMPARE(screen.value(), QVariant(true));
    QCOMPARE(changes.count(), 3);
    QCOMPARE(saver.takeCalls(), QStringList());
}

void TestContextProperty::theDesktopsCommonNameComesFirst()
{
    FakeScreenSaver common(FakeScreenSaver::Freedesktop, false);
    FakeScreenSaver gnome(FakeScreenSaver::Gnome, true);
    ContextProperty screen(u"Screen.Blanked"_s);
    screen.subscribe();
    QTRY_COMPARE(screen.value(), QVariant(false));
    settle();
    QCOMPARE(screen.value(), QVariant(false));
    common.leave();
    QTRY_COMPARE(screen.value(), QVariant(true));
}

void TestContextProperty::aCommonNameWithoutAnswerLeavesTheOther_data()
{
    QTest::addColumn<Answers>("answers");
    QTest::newRow("it refuses") << Answers::WithAnError;
    QTest::newRow("it answers with another type") << Answers::WithAText;
    QTest::newRow("it hangs") << Answers::Never;
}

void TestContextProperty::aCommonNameWithoutAnswerLeavesTheOther()
{
    QFETCH(Answers, answers);
    FakeScreenSaver common(FakeScreenSaver::Freedesktop, false, answers);
    FakeScreenSaver gnome(FakeScreenSaver::Gnome, true);
    ContextProperty screen(u"Screen.Blanked"_s);
    screen.subscribe();
    QTRY_COMPARE(screen.value(), QVariant(true));
    QTRY_COMPARE(common.calls(), QStringList{u"GetActive"_s});
    settle();
    QCOMPARE(screen.value(), QVariant(true));
    common.setActive(false); // it does know after all
    QTRY_COMPARE(screen.value(), QVariant(false));
}

void TestContextProperty::aScreenSaverMayComeLate()
{
    ContextProperty screen(u"Screen.Blanked"_s);
    const QSignalSpy changes(&screen, &ContextProperty::valueChanged);
    screen.subscribe();
    settle();
    QVERIFY(!screen.value().isValid());
    QCOMPARE(changes.count(), 0);
    const FakeScreenSaver saver(FakeScreenSaver::Gnome, true);
    QTRY_COMPARE(screen.value(), QVariant(true));
    QCOMPARE(changes.count(), 1);
}

void TestContextProperty::aScreenSaverMayVanishAndComeBack()
{
    auto saver = std::make_unique<FakeScreenSaver>(FakeScreenSaver::Freedesktop, true);
    ContextProperty screen(u"Screen.Blanked"_s);
    const QSignalSpy changes(&screen, &ContextProperty::valueChanged);
    screen.subscribe();
    QTRY_COMPARE(screen.value(), QVariant(true));
    saver.reset();
    QTRY_VERIFY(!screen.value().isValid());
    QCOMPARE(changes.count(), 2); // not known is a change too
    saver = std::make_unique<FakeScreenSaver>(FakeScreenSaver::Freedesktop, false);
    QTRY_COMPARE(screen.value(), QVariant(false));
    saver->setActive(true);
    QTRY_COMPARE(screen.value(), QVariant(true));
}

void TestContextProperty::onlyTheOwnersWordCounts()
{
    FakeScreenSaver saver(FakeScreenSaver::Freedesktop, false);
    FakeScreenSaver former(FakeScreenSaver::Gnome, false);
    ContextProperty screen(u"Screen.Blanked"_s);
    screen.subscribe();
    QTRY_COMPARE(screen.value(), QVariant(false));
    former.leave();
    settle();
    // The same object and interface, but somebody else.
    auto bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"stranger"_s);
    for (const QString &name : {u"org/freedesktop/ScreenSaver"_s, u"org/gnome/ScreenSaver"_s}) {
        auto signal =
            QDBusMessage::createSignal(u'/' + name, QString(name).replace(u'/', u'.'), u"ActiveChanged"_s);
        signal << true;
        QVERIFY(bus.send(signal));
    }
    former.setActive(true);
    settle();
    leaveBus(u"stranger"_s);
    QCOMPARE(screen.value(), QVariant(false));
}

void TestContextProperty::aFormerOwnersAnswerDoesNotCount()
{
    FakeScreenSaver former(FakeScreenSaver::Freedesktop, true, Answers::Never);
    ContextProperty screen(u"Screen.Blanked"_s);
    screen.subscribe();
    QTRY_COMPARE(former.calls(), QStringList{u"GetActive"_s});
    former.leave();
    FakeScreenSaver owner(FakeScreenSaver::Freedesktop, false, Answers::Never);
    QTRY_COMPARE(owner.calls(), QStringList{u"GetActive"_s});
    former.answerHeldCalls();
    settle();
    QVERIFY(!screen.value().isValid());
    owner.answerHeldCalls();
    QTRY_COMPARE(screen.value(), QVariant(false));
}

void TestContextProperty::aSignalBeatsASlowAnswer()
{
    FakeScreenSaver saver(FakeScreenSaver::Freedesktop, false, Answers::Never);
    ContextProperty screen(u"Screen.Blanked"_s);
    screen.subscribe();
    QTRY_COMPARE(saver.calls(), QStringList{u"GetActive"_s});
    saver.setActive(true);
    QTRY_COMPARE(screen.value(), QVariant(true));
    const QSignalSpy changes(&screen, &ContextProperty::valueChanged);
    saver.answerHeldCalls();
    settle();
    QCOMPARE(changes.count(), 0);
    QCOMPARE(screen.value(), QVariant(true));
}

void TestContextProperty::unsubscribingEndsItAll()
{
    FakeScreenSaver saver(FakeScreenSaver::Freedesktop, true);
    ContextProperty screen(u"Screen.Blanked"_s);
    screen.subscribe();
    QTRY_COMPARE(screen.value(), QVariant(true));
    saver.takeCalls();
    const QSignalSpy changes(&screen, &ContextProperty::valueChanged);
    screen.unsubscribe();
    QVERIFY(!screen.value().isValid()); // what was true once says nothing later
    saver.setActive(false);
    settle();
    QCOMPARE(changes.count(), 0);
    QVERIFY(!screen.value().isValid());
    QCOMPARE(saver.takeCalls(), QStringList());

    screen.subscribe();
    QTRY_COMPARE(screen.value(), QVariant(false));
    QCOMPARE(saver.takeCalls(), QStringList{u"GetActive"_s});
}

void TestContextProperty::unsubscribingInsideTheChangeIsFine()
{
    FakeScreenSaver saver(FakeScreenSaver::Freedesktop, true);
    ContextProperty screen(u"Screen.Blanked"_s);
    int changes = 0;
    connect(&screen, &ContextProperty::valueChanged, &screen, [&] {
        ++changes;
        screen.unsubscribe();
    });
    screen.subscribe();
    QTRY_COMPARE(changes, 1);
    settle();
    QVERIFY(!screen.value().isValid());
}

void TestContextProperty::subscribingTwiceAsksOnce()
{
    FakeScreenSaver saver(FakeScreenSaver::Freedesktop, true);
    ContextProperty screen(u"Screen.Blanked"_s);
    screen.subscribe();
    screen.subscribe();
    QTRY_COMPARE(screen.value(), QVariant(true));
    settle();
    QCOMPARE(saver.takeCalls(), QStringList{u"GetActive"_s});
}

void TestContextProperty::otherKeysHaveNoSource()
{
    FakeScreenSaver saver(FakeScreenSaver::Freedesktop, true);
    ContextProperty other(u"Battery.OnBattery"_s);
    other.subscribe();
    settle();
    QVERIFY(!other.value().isValid());
    QCOMPARE(saver.takeCalls(), QStringList());
}

PRIVATE_BUS_TEST_MAIN(TestContextProperty)
#include "tst_contextproperty.moc"
