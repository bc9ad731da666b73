#include "countdown.h"
#include "dialogdesk.h"
#include "dialogsoptions.h"
#include "displaytext.h"
#include "question.h"

#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Dialog = DialogDesk::Dialog;
using Verdict = DialogDesk::Verdict;

Q_DECLARE_METATYPE(DialogDesk::Dialog)
Q_DECLARE_METATYPE(DialogDesk::Verdict)

// What the dialogs say and when, without a dialog.
class TestDialogQuestions : public QObject
{
    Q_OBJECT
private slots:
    void init() { QTest::failOnWarning(QRegularExpression(u".*"_s)); }

    void textsFromTheNetworkAreMadeHarmless_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("shown");
        QTest::newRow("a plain name stays") << u"Friend Finder"_s << u"Friend Finder"_s;
        QTest::newRow("letters of all scripts stay") << u"Jürgen Ωmega \u05D3\u05D5\u05D3 \u4F4D\u7F6E"_s
                                                     << u"Jürgen Ωmega \u05D3\u05D5\u05D3 \u4F4D\u7F6E"_s;
        QTest::newRow("an emoji beyond 16 bits stays") << u"\U0001F4CD here"_s << u"\U0001F4CD here"_s;
        QTest::newRow("markup is text") << u"<b>Bank</b> &amp;"_s << u"<b>Bank</b> &amp;"_s;
        QTest::newRow("an ampersand stays") << u"Smith & Sons"_s << u"Smith & Sons"_s;
        QTest::newRow("lines become one") << u"Bank\r\n\n\tPress Send"_s << u"Bank Press Send"_s;
        QTest::newRow("line and paragraph separators too") << u"a\u2028b\u2029c\u0085d"_s << u"a b c d"_s;
        QTest::newRow("control characters are blanks")
            << QString(u'a') + QChar(0) + u'b' + QChar(7) + QChar(0x1B) + u"[0m"_s << u"a b [0m"_s;
        QTest::newRow("no override of the direction") << u"evil\u202Eknab\u202C"_s << u"evilknab"_s;
        QTest::newRow("no embedding, no isolate, no mark")
            << u"\u202Aa\u202B\u202D\u2066b\u2067\u2068\u2069\u200E\u200F\u061Cc"_s << u"abc"_s;
        QTest::newRow("nothing of no width") << u"pay\u200Bpal\uFEFF\u00AD\u2060"_s << u"paypal"_s;
        QTest::newRow("joiners that letters need stay")
            << u"\u0645\u06CC\u200C\u062E\u0648\u0627\u0647\u0645"_s
            << u"\u0645\u06CC\u200C\u062E\u0648\u0627\u0647\u0645"_s;
        QTest::newRow("blanks of all widths are one blank") << u" a \u00A0\u2003\u3000 b "_s << u"a b"_s;
        QTest::newRow("fillers are blanks") << u"a\u3164\u115F\u2800b"_s << u"a b"_s;
        QTest::newRow("half a surrogate pair is replaced") << QString(u"a"_s + QChar(0xD83D)) << u"a\uFFFD"_s;
        QTest::newRow("nothing") << QString() << QString();
        QTest::newRow("only what cannot be seen is nothing") << u"\u200D \u202E\u200C\n\u3164"_s << QString();
    }
    void textsFromTheNetworkAreMadeHarmless()
    {
        QFETCH(QString, text);
        QTEST(displayText(text), "shown");
    }

    void aLongTextEndsInAnEllipsis()
    {
        QCOMPARE(displayText(u"abcde"_s, 5), u"abcde"_s);
        QCOMPARE(displayText(u"abcdef"_s, 5), u"abcde…"_s);
        QCOMPARE(displayText(u"\U0001F4CD\U0001F4CD\U0001F4CD"_s, 2), u"\U0001F4CD\U0001F4CD…"_s);
        QCOMPARE(displayText(QString(65535, u'x')).size(), 501);
    }

    void thePrivacyQuestionWaits()
    {
        const Question question = Questions::privacy();
        QVERIFY(!question.hasTimeLimit());
        QVERIFY(question.acceptIsDefault);
        QVERIFY(question.fields.isEmpty());
        QVERIFY(question.spoken().startsWith(question.headline));
        QVERIFY(question.spoken().endsWith(question.explanation.constLast()));
    }

    void aLocationRequestNamesWhoAsks_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("id");
        QTest::addColumn<QStringList>("values");
        QTest::addColumn<bool>("isNamed");
        QTest::newRow("name and identification")
            << u"Friend Finder"_s << u"+49 170"_s << QStringList{u"Friend Finder"_s, u"+49 170"_s} << true;
        QTest::newRow("no identification")
            << u"Friend Finder"_s << QString() << QStringList{u"Friend Finder"_s} << true;
        QTest::newRow("no name") << QString() << u"42"_s << QStringList{u"no name given"_s, u"42"_s} << false;
        QTest::newRow("nothing") << QString() << QString() << QStringList{u"no name given"_s} << false;
        QTest::newRow("a name that cannot be seen")
            << u"\u202E\n"_s << u"\u200B"_s << QStringList{u"no name given"_s} << false;
        QTest::newRow("texts are cleaned")
            << u"a\nb"_s << u"c\u202Ed"_s << QStringList{u"a b"_s, u"cd"_s} << true;
    }
    void aLocationRequestNamesWhoAsks()
    {
        QFETCH(QString, name);
        QFETCH(QString, id);
        const Question question = Questions::locationRequest({.name = name, .id = id});
        QStringList values;
        for (const auto &field : question.fields)
            values.append(field.value);
        QTEST(values, "values");
        QTEST(question.fields.constFirst().isKnown, "isNamed");
    }

    void aLocationRequestSaysWhatHappensWithoutAnAnswer()
    {
        const Question refused = Questions::locationRequest({.defaultAccept = false, .name = u"A"_s});
        QVERIFY(!refused.acceptIsDefault);
        QCOMPARE(refused.timeLimit, 120s);
        QVERIFY(refused.spoken().endsWith(u"Without an answer, the request is refused in 120 second(s)."_s));
        QVERIFY(refused.spoken().contains(u"Asked by: A."_s));
        const Question sent = Questions::locationRequest({.defaultAccept = true});
        QVERIFY(sent.acceptIsDefault);
        QVERIFY(sent.spoken().endsWith(u"Without an answer, your position is sent in 120 second(s)."_s));
    }

    void bothTypesAreShownAlike()
    {
        const auto texts = [](int type) {
            return Questions::locationRequest({.type = type, .name = u"A"_s}).spoken();
        };
        QCOMPARE(texts(0), texts(1));
    }

    void mnemonicsDiffer()
    {
        for (const Question &question : {Questions::privacy(), Questions::locationRequest({})}) {
            const auto mnemonic = [](const QString &text) {
                return text.at(text.indexOf(u'&') + 1).toLower();
            };
            QVERIFY(question.accept.contains(u'&') && question.decline.contains(u'&'));
            QVERIFY(mnemonic(question.accept) != mnemonic(question.decline));
        }
    }

    void theCountdownRunsToItsEnd_data()
    {
        QTest::addColumn<int>("now"); // ms; it starts at 1000 and lasts 10 s
        QTest::addColumn<int>("secondsLeft");
        QTest::addColumn<int>("untilNextChange");
        QTest::newRow("all of it") << 1000 << 10 << 1000;
        QTest::newRow("a moment later") << 1001 << 10 << 999;
        QTest::newRow("just before the change") << 1999 << 10 << 1;
        QTest::newRow("one second is over") << 2000 << 9 << 1000;
        QTest::newRow("the last second") << 10001 << 1 << 999;
        QTest::newRow("the last millisecond") << 10999 << 1 << 1;
        QTest::newRow("the end") << 11000 << 0 << 0;
        QTest::newRow("long after") << 500000 << 0 << 0;
    }
    void theCountdownRunsToItsEnd()
    {
        QFETCH(int, now);
        const Countdown countdown(10s, 1000ms);
        const Countdown::Milliseconds time(now);
        QTEST(countdown.secondsLeft(time), "secondsLeft");
        QTEST(int(countdown.untilNextChange(time).count()), "untilNextChange");
        QCOMPARE(countdown.isOver(time), now >= 11000);
        QCOMPARE(countdown.share(time), std::max(0.0, (11000 - now) / 10000.0));
    }

    void aScreenReaderIsToldNowAndThen()
    {
        QList<int> spoken;
        for (int second = 120; second >= 0; --second)
            if (isSpoken(second))
                spoken.append(second);
        QCOMPARE(spoken, (QList<int>{120, 90, 60, 30, 20, 10, 5}));
    }

    void oneDialogAtATime_data()
    {
        QTest::addColumn<Dialog>("open");
        QTest::addColumn<bool>("leaving");
        QTest::addColumn<int>("type"); // of the location request; -1 asks for the privacy dialog
        QTest::addColumn<Verdict>("verdict");
        QTest::newRow("the privacy dialog alone") << Dialog::None << false << -1 << Verdict::Show;
        QTest::newRow("a request of type 0 alone") << Dialog::None << false << 0 << Verdict::Show;
        QTest::newRow("a request of type 1 alone") << Dialog::None << false << 1 << Verdict::Show;
        QTest::newRow("a request beside the privacy dialog")
            << Dialog::Privacy << false << 0 << Verdict::Busy;
        QTest::newRow("the privacy dialog beside a request")
            << Dialog::LocationRequest << false << -1 << Verdict::Busy;
        QTest::newRow("two privacy dialogs") << Dialog::Privacy << false << -1 << Verdict::Busy;
        QTest::newRow("two requests") << Dialog::LocationRequest << false << 1 << Verdict::Busy;
        QTest::newRow("a request is withdrawn") << Dialog::LocationRequest << false << 2 << Verdict::Withdraw;
        QTest::newRow("nothing is withdrawn") << Dialog::None << false << 2 << Verdict::NothingToDo;
        QTest::newRow("the privacy dialog is not withdrawn")
            << Dialog::Privacy << false << 2 << Verdict::NothingToDo;
        QTest::newRow("an unknown type") << Dialog::None << false << 3 << Verdict::UnknownType;
        QTest::newRow("a negative type") << Dialog::LocationRequest << false << -2 << Verdict::UnknownType;
        QTest::newRow("the privacy dialog while leaving") << Dialog::None << true << -1 << Verdict::Leaving;
        QTest::newRow("a request while leaving") << Dialog::None << true << 0 << Verdict::Leaving;
    }
    void oneDialogAtATime()
    {
        QFETCH(Dialog, open);
        QFETCH(bool, leaving);
        QFETCH(int, type);
        QFETCH(Verdict, verdict);
        DialogDesk desk;
        desk.opened(open);
        if (leaving)
            desk.leave();
        QCOMPARE(int(type == -1 ? desk.privacyAsked() : desk.locationAsked(type)), int(verdict));
    }

    void aClosedDialogMakesRoom()
    {
        DialogDesk desk;
        desk.opened(Dialog::Privacy);
        desk.closed();
        QCOMPARE(int(desk.locationAsked(1)), int(Verdict::Show));
    }

    void argumentsAreFew()
    {
        QVERIFY(!readArguments({}));
        const auto help = readArguments({u"--help"_s});
        QVERIFY(help && help->status == DialogsStatus::Told &&
                help->text.startsWith(u"Usage: lodestar-dialogs\n"_s));
        QVERIFY(readArguments({u"-h"_s}) && readArguments({u"-h"_s})->text == help->text);
        const auto version = readArguments({u"-V"_s});
        QVERIFY(version && version->status == DialogsStatus::Told &&
                version->text.startsWith(u"lodestar-dialogs "_s));
        const auto wrong = readArguments({u"--fullscreen"_s});
        QVERIFY(wrong && wrong->status == DialogsStatus::Usage);
        QCOMPARE(wrong->text,
                 u"lodestar-dialogs: unexpected argument '--fullscreen'\nTry 'lodestar-dialogs --help'.\n"_s);
    }
};

QTEST_APPLESS_MAIN(TestDialogQuestions)
#include "tst_dialogquestions.moc"
