#include "client/locationuitest.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QFile>
#include <QMetaMethod>
#include <QXmlStreamReader>

using namespace Qt::StringLiterals;

namespace {

// A structure of one value.
template <typename T>
struct Boxed {
    T value{};
};

template <typename T>
QDBusArgument &operator<<(QDBusArgument &argument, const Boxed<T> &box)
{
    argument.beginStructure();
    argument << box.value;
    argument.endStructure();
    return argument;
}

template <typename T>
const QDBusArgument &operator>>(const QDBusArgument &argument, Boxed<T> &)
{
    return argument; // only the daemon's side reads
}

} // namespace

// The two dialogs, what their answers lead to, and how they fail.
class TestLocationUI : public LocationUITest
{
    Q_OBJECT
private slots:
    void initTestCase();
    void theResultsKeepTheirNumbers();
    void theCallsAreThoseOfTheDocuments();
    void thePrivacyDialogIsShown();
    void anAnswerIsToldAndTheDialogEnds_data();
    void anAnswerIsToldAndTheDialogEnds();
    void aLocationRequestIsShownAsItCame_data();
    void aLocationRequestIsShownAsItCame();
    void anAnswerToALocationRequest_data();
    void anAnswerToALocationRequest();
    void aReplyOfTheWrongTypeIsNoConsent_data();
    void aReplyOfTheWrongTypeIsNoConsent();
    void theResultIsToldBeforeTheServiceIsEnded();
    void aDialogIsOpenUntilItsResultWasTold();
    void whateverExitAnswersTheDialogIsClosed_data();
    void whateverExitAnswersTheDialogIsClosed();
    void aSecondDialogIsRefused_data();
    void aSecondDialogIsRefused();
    void anErrorLeavesTheDialogOpen_data();
    void anErrorLeavesTheDialogOpen();
    void withoutTheServiceTheDialogFails();
    void aServiceThatDiesInMidDialogFails();
};

namespace {

const QString FailedCall = u"warning: LocationUI::dialogDone() : Dbus Error:"_s;
const QString NoBoolean =
    u"warning: LocationUI::privacyDialogDone: no boolean in the reply, taken as declined"_s;
const QString NoInteger =
    u"warning: LocationUI::locationRequestDone: no integer in the reply, taken as declined"_s;

QVariant inVariant(const QVariant &value)
{
    return QVariant::fromValue(QDBusVariant(value));
}

template <typename T>
QVariant boxed(const T &value)
{
    return QVariant::fromValue(Boxed<T>{value});
}

// Each method of the document and the types that go in.
QStringList documentedMethods(const QString &name)
{
    QFile file(QStringLiteral(LODESTARD_SOURCE_DIR "/docs/dbus/") + name);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("no such document");
    QXmlStreamReader document(&file);
    QStringList methods;
    while (!document.atEnd()) {
        if (document.readNext() != QXmlStreamReader::StartElement)
            continue;
        const auto attributes = document.attributes();
        if (document.name() == u"method")
            methods << attributes.value(u"name"_s).toString() + u' ';
        else if (document.name() == u"arg" && attributes.value(u"direction"_s) == u"in")
            methods.last() += attributes.value(u"type"_s);
    }
    return methods;
}

} // namespace

void TestLocationUI::initTestCase()
{
    qDBusRegisterMetaType<Boxed<bool>>();
    qDBusRegisterMetaType<Boxed<Boxed<bool>>>();
    qDBusRegisterMetaType<Boxed<int>>();
    qDBusRegisterMetaType<Boxed<QString>>();
    qDBusRegisterMetaType<std::pair<bool, bool>>();
    qDBusRegisterMetaType<std::pair<int, int>>();
}

void TestLocationUI::theResultsKeepTheirNumbers()
{
    QCOMPARE(int(LocationUI::Declined), 0);
    QCOMPARE(int(LocationUI::Accepted), 1);
    QCOMPARE(int(LocationUI::DialogReply::AcceptedForGood), 2);
    QCOMPARE(QMetaMethod::fromSignal(&LocationUI::privacyDialogResult).methodSignature(),
             "privacyDialogResult(LocationUI::DialogReply)");
}

void TestLocationUI::theCallsAreThoseOfTheDocuments()
{
    m_ui->privacyDialog();
    const QDBusMessage privacy = m_dialogs->nextCall();
    m_dialogs->answer(privacy, {true});
    const QDBusMessage exit = m_dialogs->nextCall();
    m_ui->showLocationRequest(9, 1, true, u"Alice"_s, u"42"_s);
    const QDBusMessage request = m_dialogs->nextCall();

    QStringList asked;
    for (const QDBusMessage &call : {privacy, request}) {
        asked << call.member() + u' ' + call.signature();
        QCOMPARE(call.path(), u"/com/varn/location/ui"_s);
        QCOMPARE(call.interface(), u"com.varn.location.ui"_s);
        QVERIFY(call.isReplyRequired());
    }
    QCOMPARE(asked, documentedMethods(u"com.varn.location.ui.xml"_s));
    QCOMPARE(exit.path(), u"/org/sarnel/m"_s);
    QCOMPARE(exit.interface(), u"com.varn.MApplicationIf"_s);
    QVERIFY(exit.isReplyRequired());
    QCOMPARE(QStringList(exit.member() + u' ' + exit.signature()),
             documentedMethods(u"com.varn.MApplicationIf.xml"_s));
    QVERIFY(!m_dialogs->wasIntrospected());
}

void TestLocationUI::thePrivacyDialogIsShown()
{
    QVERIFY(m_ui->privacyDialog());
    QCOMPARE(m_dialogs->next(), u"privacyDialog"_s);
    QVERIFY(m_dialogs->isIdle());
    QCOMPARE(lines(), QStringList());
}

void TestLocationUI::anAnswerIsToldAndTheDialogEnds_data()
{
    QTest::addColumn<QVariant>("answer");
    QTest::addColumn<int>("result");
    QTest::newRow("accepted") << QVariant(true) << 1;
    QTest::newRow("declined") << QVariant(false) << 0;
    QTest::newRow("accepted, in a variant") << inVariant(true) << 1;
    QTest::newRow("declined, in a variant") << inVariant(false) << 0;
    QTest::newRow("accepted, in a structure") << boxed(true) << 1;
    QTest::newRow("declined, in a structure") << boxed(false) << 0;
    QTest::newRow("accepted, in a structure in a structure") << boxed(Boxed<bool>{true}) << 1;
}

void TestLocationUI::anAnswerIsToldAndTheDialogEnds()
{
    QFETCH(QVariant, answer);
    QFETCH(int, result);
    m_ui->privacyDialog();
    m_dialogs->answer(m_dialogs->nextCall(), {answer});
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QCOMPARE(m_privacy->count(), 1);
    QCOMPARE(int(m_privacy->takeFirst().at(0).value<LocationUI::DialogReply>()), result);
    QCOMPARE(m_request->count(), 0);
    QCOMPARE(lines(), QStringList());

    // Closed: the next one is shown.
    QVERIFY(m_ui->privacyDialog());
    QCOMPARE(m_dialogs->next(), u"privacyDialog"_s);
}

void TestLocationUI::aLocationRequestIsShownAsItCame_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("defaultAccept");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("id");
    QTest::newRow("type 0, refused by default") << 0 << false << u"Alice"_s << u"+358 40 123"_s;
    QTest::newRow("type 1, accepted by default") << 1 << true << u"Alice"_s << u"42"_s;
    QTest::newRow("without texts") << 1 << false << QString() << QString();
    QTest::newRow("texts in other scripts") << 1 << false << u"Ωμέγα 東京 שלום 😀"_s << u"北 №1 𐍈"_s;
}

void TestLocationUI::aLocationRequestIsShownAsItCame()
{
    QFETCH(int, type);
    QFETCH(bool, defaultAccept);
    QFETCH(QString, name);
    QFETCH(QString, id);
    m_ui->showLocationRequest(200, type, defaultAccept, name, id);
    const QDBusMessage call = m_dialogs->nextCall();
    QCOMPARE(call.member(), u"locationRequest"_s);
    QCOMPARE(call.signature(), u"ibss"_s);
    QCOMPARE(call.arguments(), (QVariantList{type, defaultAccept, name, id}));
    QCOMPARE(lines(), QStringList());
}

void TestLocationUI::anAnswerToALocationRequest_data()
{
    QTest::addColumn<QVariant>("answer");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("0") << QVariant(0) << false;
    QTest::newRow("1") << QVariant(1) << true;
    QTest::newRow("2") << QVariant(2) << true;
    QTest::newRow("-1") << QVariant(-1) << true;
    QTest::newRow("1 in a variant") << inVariant(1) << true;
    QTest::newRow("0 in a structure") << boxed(0) << false;
    QTest::newRow("1 in a structure") << boxed(1) << true;
}

void TestLocationUI::anAnswerToALocationRequest()
{
    QFETCH(QVariant, answer);
    QFETCH(bool, accepted);
    m_ui->showLocationRequest(1, 1, false, u"Alice"_s, {});
    m_dialogs->answer(m_dialogs->nextCall(), {answer});
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QCOMPARE(m_request->count(), 1);
    QCOMPARE(m_request->takeFirst(), QVariantList{accepted});
    QCOMPARE(m_privacy->count(), 0);
    QCOMPARE(lines(), QStringList());
    m_ui->showLocationRequest(2, 1, false, {}, {});
    QCOMPARE(m_dialogs->next(), u"locationRequest 1 false  "_s);
}

void TestLocationUI::aReplyOfTheWrongTypeIsNoConsent_data()
{
    QTest::addColumn<bool>("isPrivacy");
    QTest::addColumn<QVariantList>("answer");
    const auto row = [](const char *name, bool isPrivacy, const QVariantList &answer) {
        QTest::addRow("%s: %s", isPrivacy ? "privacy" : "location request", name) << isPrivacy << answer;
    };
    for (const bool isPrivacy : {true, false}) {
        row("nothing", isPrivacy, {});
        row("a text", isPrivacy, {u"true"_s});
        row("a number", isPrivacy, {1.5});
        row("an array of texts", isPrivacy, {QStringList(u"1"_s)});
        row("an empty array", isPrivacy, {QVariant(QVariantList())});
        row("an array of bytes", isPrivacy, {QByteArray("1")});
        row("a structure around a text", isPrivacy, {boxed(u"1"_s)});
        row("an unsigned integer", isPrivacy, {1U});
    }
    row("an integer", true, {1});
    row("an integer in a variant", true, {inVariant(1)});
    row("an array of booleans", true, {QVariant(QVariantList{true})});
    row("a structure of two", true, {QVariant::fromValue(std::pair(true, true))});
    row("a structure of two", false, {QVariant::fromValue(std::pair(1, 1))});
    row("a boolean", false, {true});
    row("a boolean in a structure", false, {boxed(true)});
}

void TestLocationUI::aReplyOfTheWrongTypeIsNoConsent()
{
    QFETCH(bool, isPrivacy);
    QFETCH(QVariantList, answer);
    if (isPrivacy)
        m_ui->privacyDialog();
    else
        m_ui->showLocationRequest(9, 1, true, u"Alice"_s, {});
    m_dialogs->answer(m_dialogs->nextCall(), answer);
    // The dialog has ended all the same, and no later one is kept from being shown.
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QCOMPARE(lines(), QStringList(isPrivacy ? NoBoolean : NoInteger));
    QCOMPARE(m_privacy->count(), isPrivacy ? 1 : 0);
    QCOMPARE(m_request->count(), isPrivacy ? 0 : 1);
    if (isPrivacy)
        QCOMPARE(m_privacy->takeFirst().at(0).value<LocationUI::DialogReply>(), LocationUI::Declined);
    else
        QCOMPARE(m_request->takeFirst(), QVariantList{false});
    QVERIFY(m_ui->privacyDialog());
}

void TestLocationUI::theResultIsToldBeforeTheServiceIsEnded()
{
    bool idle = false;
    connect(m_ui.get(), &LocationUI::privacyDialogResult, this, [&] { idle = m_dialogs->isIdle(); });
    m_ui->privacyDialog();
    m_dialogs->answer(m_dialogs->nextCall(), {true});
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QVERIFY(idle);
}

void TestLocationUI::aDialogIsOpenUntilItsResultWasTold()
{
    bool shown = true;
    connect(m_ui.get(), &LocationUI::privacyDialogResult, this, [&] { shown = m_ui->privacyDialog(); });
    m_ui->privacyDialog();
    m_dialogs->answer(m_dialogs->nextCall(), {false});
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QVERIFY(!shown);
    QCOMPARE(lines(), QStringList(AlreadyOpen));
}

void TestLocationUI::whateverExitAnswersTheDialogIsClosed_data()
{
    QTest::addColumn<FakeDialogs::Exit>("exit");
    QTest::newRow("an error") << FakeDialogs::Exit::Refused;
    QTest::newRow("nothing, it leaves the bus") << FakeDialogs::Exit::Dies;
}

void TestLocationUI::whateverExitAnswersTheDialogIsClosed()
{
    QFETCH(FakeDialogs::Exit, exit);
    m_dialogs->setExit(exit);
    m_ui->privacyDialog();
    m_dialogs->answer(m_dialogs->nextCall(), {true});
    QCOMPARE(m_dialogs->next(), u"exit"_s);
    QTRY_COMPARE(m_privacy->count(), 1);
    m_dialogs.reset();
    m_dialogs = std::make_unique<FakeDialogs>();
    QVERIFY(m_ui->privacyDialog());
    QCOMPARE(m_dialogs->next(), u"privacyDialog"_s);
    QCOMPARE(lines(), QStringList());
}

void TestLocationUI::aSecondDialogIsRefused_data()
{
    QTest::addColumn<bool>("firstIsPrivacy");
    QTest::newRow("while the privacy dialog is open") << true;
    QTest::newRow("while a location request is open") << false;
}

void TestLocationUI::aSecondDialogIsRefused()
{
    QFETCH(bool, firstIsPrivacy);
    if (firstIsPrivacy)
        QVERIFY(m_ui->privacyDialog());
    else
        m_ui->showLocationRequest(3, 0, true, u"Alice"_s, {});
    m_dialogs->nextCall();

    QVERIFY(!m_ui->privacyDialog());
    QCOMPARE(lines(), QStringList(AlreadyOpen));
    m_ui->showLocationRequest(4, 1, true, u"Bob"_s, u"42"_s);
    QCOMPARE(lines(), QStringList(AlreadyOpen));
    QVERIFY(m_dialogs->isIdle());
}

void TestLocationUI::anErrorLeavesTheDialogOpen_data()
{
    aSecondDialogIsRefused_data();
}

void TestLocationUI::anErrorLeavesTheDialogOpen()
{
    QFETCH(bool, firstIsPrivacy);
    if (firstIsPrivacy)
        m_ui->privacyDialog();
    else
        m_ui->showLocationRequest(3, 0, true, u"Alice"_s, {});
    m_dialogs->fail(m_dialogs->nextCall(), u"The display is 100% off."_s);
    QTRY_COMPARE(m_log->lines().size(), 2);
    QCOMPARE(lines(), (QStringList{FailedCall, u"warning: The display is 100% off."_s}));
    QVERIFY(!m_ui->privacyDialog());
    QCOMPARE(lines(), QStringList(AlreadyOpen));
    QVERIFY(m_dialogs->isIdle()); // nobody was told to exit
    QCOMPARE(m_privacy->count() + m_request->count(), 0);
}

void TestLocationUI::withoutTheServiceTheDialogFails()
{
    m_dialogs.reset();
    QVERIFY(m_ui->privacyDialog());
    QTRY_COMPARE(m_log->lines().size(), 2);
    const QStringList logged = lines();
    QCOMPARE(logged.at(0), FailedCall);
    QVERIFY2(logged.at(1).contains(u"com.varn.location.ui"), qPrintable(logged.at(1)));
    QVERIFY(!m_ui->privacyDialog());
    QCOMPARE(m_privacy->count(), 0);
}

void TestLocationUI::aServiceThatDiesInMidDialogFails()
{
    m_ui->showLocationRequest(3, 0, true, u"Alice"_s, {});
    m_dialogs->nextCall();
    m_dialogs->leave();
    QTRY_COMPARE(m_log->lines().size(), 2);
    const QStringList logged = lines();
    QCOMPARE(logged.at(0), FailedCall);
    QVERIFY2(logged.at(1).contains(u"disconnected"), qPrintable(logged.at(1)));
    QCOMPARE(m_request->count(), 0);
    QVERIFY(!m_ui->privacyDialog());
}

QTEST_GUILESS_MAIN(TestLocationUI)
#include "tst_locationui.moc"
