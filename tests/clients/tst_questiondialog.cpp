#include "elidedlabel.h"
#include "questiondialog.h"
#include "support/stillclock.h"
#include "translations.h"

#include <QAccessible>
#include <QAccessibleInterface>
#include <QApplication>
#include <QFontMetrics>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStyleFactory>
#include <QTest>
#include <QTranslator>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

LocationRequest request(bool defaultAccept = false)
{
    return {
        .type = 1, .defaultAccept = defaultAccept, .name = u"Friend Finder"_s, .id = u"+49 170 1234567"_s};
}

} // namespace

// One dialog on a screen that nobody sees, with a clock that only the test winds.
class TestQuestionDialog : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        loadTranslation(m_english, QLocale(QLocale::English));
        QApplication::installTranslator(&m_english);
    }
    void init()
    {
        QTest::failOnWarning(QRegularExpression(u"^(?!This plugin does not support)"_s));
        m_clock.elapsed = 10s;
    }

    void keysAnswer_data()
    {
        QTest::addColumn<bool>("isPrivacy");
        QTest::addColumn<bool>("defaultAccept");
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifier");
        QTest::addColumn<int>("result");
        const int none = int(Qt::NoModifier), alt = int(Qt::AltModifier);
        QTest::newRow("Enter allows")
            << true << false << int(Qt::Key_Return) << none << int(QDialog::Accepted);
        QTest::newRow("Escape does not")
            << true << false << int(Qt::Key_Escape) << none << int(QDialog::Rejected);
        QTest::newRow("Alt+A allows") << true << false << int(Qt::Key_A) << alt << int(QDialog::Accepted);
        QTest::newRow("Alt+N does not") << true << false << int(Qt::Key_N) << alt << int(QDialog::Rejected);
        QTest::newRow("Enter takes the default, yes")
            << false << true << int(Qt::Key_Enter) << none << int(QDialog::Accepted);
        QTest::newRow("Enter takes the default, no")
            << false << false << int(Qt::Key_Return) << none << int(QDialog::Rejected);
        QTest::newRow("Space presses the default too")
            << false << true << int(Qt::Key_Space) << none << int(QDialog::Accepted);
        QTest::newRow("Escape refuses whatever the default is")
            << false << true << int(Qt::Key_Escape) << none << int(QDialog::Rejected);
        QTest::newRow("Alt+S sends against the default")
            << false << false << int(Qt::Key_S) << alt << int(QDialog::Accepted);
        QTest::newRow("Alt+R refuses against the default")
            << false << true << int(Qt::Key_R) << alt << int(QDialog::Rejected);
    }
    void keysAnswer()
    {
        QFETCH(bool, isPrivacy);
        QFETCH(bool, defaultAccept);
        QFETCH(int, key);
        QFETCH(int, modifier);
        QuestionDialog dialog(
            isPrivacy ? Questions::privacy() : Questions::locationRequest(request(defaultAccept)), m_clock);
        QSignalSpy finished(&dialog, &QDialog::finished);
        show(dialog);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key(key), Qt::KeyboardModifier(modifier));
        QTRY_COMPARE(finished.size(), 1);
        QTEST(finished.at(0).at(0).toInt(), "result");
        QVERIFY(!dialog.isVisible());
    }

    void keysOfTheFirstMomentAreNotForTheDialog()
    {
        QuestionDialog dialog(Questions::privacy(), m_clock);
        QSignalSpy finished(&dialog, &QDialog::finished);
        showUnread(dialog);
        m_clock.elapsed += QuestionDialog::UnreadTime - 1ms;
        for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Escape, Qt::Key_Space})
            QTest::keyClick(QApplication::focusWidget(), key);
        QTest::mouseClick(dialog.acceptButton(), Qt::LeftButton);
        QVERIFY(dialog.isVisible());
        QCOMPARE(finished.size(), 0);
        m_clock.elapsed += 1ms;
        QTest::mouseClick(dialog.acceptButton(), Qt::LeftButton);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.at(0).at(0).toInt(), int(QDialog::Accepted));
    }

    void closingTheWindowMeansNo()
    {
        for (const bool defaultAccept : {false, true}) {
            QuestionDialog dialog(Questions::locationRequest(request(defaultAccept)), m_clock);
            QSignalSpy finished(&dialog, &QDialog::finished);
            showUnread(dialog);
            dialog.close();
            QCOMPARE(finished.size(), 1);
            QCOMPARE(finished.at(0).at(0).toInt(), int(QDialog::Rejected));
        }
    }

    void theTabKeyGoesRound()
    {
        QuestionDialog dialog(Questions::locationRequest(request()), m_clock);
        show(dialog);
        QCOMPARE(QApplication::focusWidget(), dialog.declineButton());
        QVERIFY(dialog.declineButton()->isDefault());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), dialog.acceptButton());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), dialog.declineButton());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Backtab);
        QCOMPARE(QApplication::focusWidget(), dialog.acceptButton());
    }

    void theCountdownEndsInTheDefaultAnswer()
    {
        for (const bool defaultAccept : {false, true}) {
            QuestionDialog dialog(Questions::locationRequest(request(defaultAccept)), m_clock);
            QSignalSpy finished(&dialog, &QDialog::finished);
            show(dialog);
            m_clock.elapsed = m_shownAt + 120s - 1ms;
            dialog.tick();
            QVERIFY(dialog.isVisible());
            QCOMPARE(finished.size(), 0);
            m_clock.elapsed += 1ms;
            dialog.tick();
            QVERIFY(!dialog.isVisible());
            QCOMPARE(finished.size(), 1);
            QCOMPARE(finished.at(0).at(0).toInt(),
                     int(defaultAccept ? QDialog::Accepted : QDialog::Rejected));
            m_clock.elapsed += 120s;
            dialog.tick(); // nothing is left to happen
            QCOMPARE(finished.size(), 1);
        }
    }

    void theCountdownIsSeen()
    {
        QuestionDialog dialog(Questions::locationRequest(request(true)), m_clock);
        show(dialog);
        const auto *bar = dialog.findChild<QProgressBar *>();
        QVERIFY(bar && bar->isVisible());
        QCOMPARE(dialog.timeLeftText(), u"Without an answer, your position is sent in 120 seconds."_s);
        m_clock.elapsed = m_shownAt + 60s;
        dialog.tick();
        QCOMPARE(dialog.timeLeftText(), u"Without an answer, your position is sent in 60 seconds."_s);
        QCOMPARE(bar->value() * 2, bar->maximum());
        m_clock.elapsed = m_shownAt + 119s;
        dialog.tick();
        QCOMPARE(dialog.timeLeftText(), u"Without an answer, your position is sent in 1 second."_s);
    }

    void theCountdownTicksByItself()
    {
        QuestionDialog dialog(Questions::locationRequest(request()), m_clock);
        show(dialog);
        m_clock.elapsed += 30s;
        QTRY_COMPARE(dialog.timeLeftText(), u"Without an answer, the request is refused in 90 seconds."_s);
    }

    void thePrivacyDialogHasNoCountdown()
    {
        QuestionDialog dialog(Questions::privacy(), m_clock);
        QSignalSpy finished(&dialog, &QDialog::finished);
        show(dialog);
        QVERIFY(!dialog.findChild<QProgressBar *>());
        QCOMPARE(dialog.timeLeftText(), QString());
        m_clock.elapsed += 24h;
        dialog.tick();
        QVERIFY(dialog.isVisible());
        QCOMPARE(finished.size(), 0);
    }

    void everyTextIsPlain()
    {
        const LocationRequest hostile{.name = u"<h1>Bank</h1><img src='file:///dev/zero'>"_s,
                                      .id = u"<a href='x'>1</a>"_s};
        QuestionDialog dialog(Questions::locationRequest(hostile), m_clock);
        show(dialog);
        const auto labels = dialog.findChildren<QLabel *>();
        QVERIFY(labels.size() >= 8);
        for (const QLabel *label : labels)
            QCOMPARE(label->textFormat(), Qt::PlainText);
        QCOMPARE(values(dialog), (QStringList{hostile.name, hostile.id}));
    }

    void aLongNameIsElidedAndWholeInItsToolTip()
    {
        const QString name = u"<b>"_s + QString(300, u'W') + u"</b>"_s;
        QuestionDialog shortNamed(Questions::locationRequest(request()), m_clock);
        QuestionDialog dialog(Questions::locationRequest({.name = name, .id = u"7"_s}), m_clock);
        show(shortNamed);
        show(dialog);
        QCOMPARE(dialog.width(), shortNamed.width());
        const auto fields = dialog.findChildren<ElidedLabel *>();
        QCOMPARE(fields.size(), 2);
        QVERIFY(fields.at(0)->isElided());
        QCOMPARE(fields.at(0)->toolTip(), u"<qt>&lt;b&gt;"_s + QString(300, u'W') + u"&lt;/b&gt;</qt>"_s);
        QVERIFY(fields.at(0)->accessibleName().contains(name));
        QVERIFY(!fields.at(1)->isElided());
        QCOMPARE(fields.at(1)->toolTip(), QString());
    }

    void theElidedTextIsWhatIsPainted()
    {
        ElidedLabel label(QString(40, u'W'));
        ElidedLabel empty(u" "_s);
        const QSize size(label.fontMetrics().horizontalAdvance(u'W') * 10, label.fontMetrics().height());
        const auto painted = [size](QWidget &widget) {
            widget.resize(size);
            return widget.grab().toImage();
        };
        const QImage image = painted(label);
        QVERIFY(image != painted(empty));
        ElidedLabel expected(label.fontMetrics().elidedText(label.text(), Qt::ElideRight, size.width()));
        QCOMPARE(image, painted(expected));
    }

    void screenReadersAreToldEverything()
    {
        QuestionDialog dialog(Questions::locationRequest(request()), m_clock);
        show(dialog);
        const auto text = [](QWidget *widget, QAccessible::Text what) {
            return QAccessible::queryAccessibleInterface(widget)->text(what);
        };
        QCOMPARE(text(&dialog, QAccessible::Name), u"Location request"_s);
        const QString told = text(&dialog, QAccessible::Description);
        for (const QString &part : {u"Somebody asks where you are"_s, u"Asked by: Friend Finder."_s,
                                    u"Identification: +49 170 1234567."_s, u"refused in 120 seconds."_s})
            QVERIFY2(told.contains(part), qPrintable(told));
        QCOMPARE(text(dialog.acceptButton(), QAccessible::Name), u"Send position"_s);
        QCOMPARE(text(dialog.acceptButton(), QAccessible::Description),
                 u"The position of this device is sent."_s);
        QCOMPARE(text(dialog.declineButton(), QAccessible::Name), u"Refuse"_s);
        QVERIFY(text(dialog.declineButton(), QAccessible::Description).contains(u"Escape"_s));
        QCOMPARE(text(dialog.findChild<QProgressBar *>(), QAccessible::Name), u"Time left for an answer"_s);
        QVERIFY(QAccessible::queryAccessibleInterface(dialog.declineButton())->state().defaultButton);
    }

    void screenReadersAreNotDisturbedEverySecond()
    {
        QuestionDialog dialog(Questions::locationRequest(request()), m_clock);
        show(dialog);
        const auto spoken = [&dialog] {
            for (QLabel *label : dialog.findChildren<QLabel *>())
                if (label->text() == dialog.timeLeftText())
                    return label->accessibleName();
            return QString();
        };
        m_clock.elapsed = m_shownAt + 7s;
        dialog.tick();
        QVERIFY2(spoken().contains(u"120 seconds"_s), qPrintable(spoken()));
        m_clock.elapsed = m_shownAt + 30s;
        dialog.tick();
        QVERIFY2(spoken().contains(u"90 seconds"_s), qPrintable(spoken()));
    }

    void everyTextIsSeenWhole_data()
    {
        QTest::addColumn<bool>("german");
        QTest::addColumn<double>("fontScale");
        QTest::newRow("English") << false << 1.0;
        QTest::newRow("German, which is longer") << true << 1.0;
        QTest::newRow("German in a large font") << true << 1.5;
        QTest::newRow("German in a font too large for the screen") << true << 3.0;
    }
    void everyTextIsSeenWhole()
    {
        QFETCH(bool, german);
        QFETCH(double, fontScale);
        QTranslator texts;
        loadTranslation(texts, QLocale(german ? QLocale::German : QLocale::English));
        QApplication::installTranslator(&texts);
        const QFont font = QApplication::font();
        QFont scaled = font;
        scaled.setPointSizeF(font.pointSizeF() * fontScale);
        QApplication::setFont(scaled);
        for (const Question &question : {Questions::privacy(), Questions::locationRequest(request())}) {
            QuestionDialog dialog(question, m_clock);
            show(dialog);
            QVERIFY(dialog.width() <= dialog.screen()->availableSize().width());
            QVERIFY(dialog.height() <= dialog.screen()->availableSize().height());
            const auto *scroll = dialog.findChild<QScrollArea *>();
            const bool fits = !scroll->verticalScrollBar()->isVisible();
            QCOMPARE(fits, fontScale < 3.0);
            // Where the text has to be scrolled, keys can do it.
            QCOMPARE(scroll->focusPolicy(), fits ? Qt::NoFocus : Qt::TabFocus);
            for (const QPushButton *button : {dialog.acceptButton(), dialog.declineButton()})
                QVERIFY(dialog.rect().contains(button->rect().translated(button->mapTo(&dialog, QPoint()))));
            for (const QLabel *label : dialog.findChildren<QLabel *>())
                if (label->wordWrap())
                    QVERIFY2(label->height() >= label->heightForWidth(label->width()),
                             qPrintable(label->text()));
        }
        QApplication::setFont(font);
        QApplication::removeTranslator(&texts);
    }

    void germanIsComplete()
    {
        QTranslator texts;
        loadTranslation(texts, QLocale(QLocale::German, QLocale::Austria));
        QApplication::installTranslator(&texts);
        QCOMPARE(Questions::privacy().accept, u"&Erlauben"_s);
        QCOMPARE(Questions::timeLeft(true, 1), u"Ohne Antwort wird Ihr Standort in 1 Sekunde gesendet."_s);
        QCOMPARE(Questions::timeLeft(false, 2), u"Ohne Antwort wird die Anfrage in 2 Sekunden abgelehnt."_s);
        for (const Question &question : {Questions::privacy(), Questions::locationRequest(request())})
            QVERIFY(question.accept.indexOf(u'&') >= 0 && question.decline.indexOf(u'&') >= 0);
        QApplication::removeTranslator(&texts);
    }

    void anotherLanguageGetsEnglish()
    {
        QTranslator texts;
        loadTranslation(texts, QLocale(QLocale::Finnish));
        QApplication::removeTranslator(&m_english);
        QApplication::installTranslator(&texts);
        QCOMPARE(Questions::timeLeft(true, 1), u"Without an answer, your position is sent in 1 second."_s);
        QApplication::removeTranslator(&texts);
        QApplication::installTranslator(&m_english);
    }

private:
    void showUnread(QuestionDialog &dialog)
    {
        m_shownAt = m_clock.elapsed;
        dialog.show();
        dialog.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&dialog));
        QTRY_VERIFY(QApplication::focusWidget() && dialog.isAncestorOf(QApplication::focusWidget()));
    }
    void show(QuestionDialog &dialog)
    {
        showUnread(dialog);
        m_clock.elapsed += QuestionDialog::UnreadTime;
    }
    static QStringList values(const QuestionDialog &dialog)
    {
        QStringList texts;
        for (const ElidedLabel *label : dialog.findChildren<ElidedLabel *>())
            texts.append(label->text());
        return texts;
    }

    StillClock m_clock;
    std::chrono::milliseconds m_shownAt{0};
    QTranslator m_english;
};

QTEST_MAIN(TestQuestionDialog)
#include "tst_questiondialog.moc"
