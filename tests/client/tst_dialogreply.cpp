#include "client/dialogreply.h"

#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QTest>

using namespace Qt::StringLiterals;

// Which replies count as an answer.
class TestDialogReply : public QObject
{
    Q_OBJECT
private slots:
    void booleans_data();
    void booleans();
    void integers_data();
    void integers();
};

namespace {

QVariant inVariant(const QVariant &value)
{
    return QVariant::fromValue(QDBusVariant(value));
}

} // namespace

void TestDialogReply::booleans_data()
{
    QTest::addColumn<QVariantList>("reply");
    QTest::addColumn<std::optional<bool>>("answer");
    const auto row = [](const char *name, const QVariantList &reply, std::optional<bool> answer) {
        QTest::newRow(name) << reply << answer;
    };
    row("true", {true}, true);
    row("false", {false}, false);
    row("true in a variant", {inVariant(true)}, true);
    row("false in a variant in a variant", {inVariant(inVariant(false))}, false);
    row("only the first argument counts", {false, true}, false);
    row("nothing", {}, std::nullopt);
    row("an integer is no consent", {1}, std::nullopt);
    row("nor is one that would be remembered", {2}, std::nullopt);
    row("nor is one in a variant", {inVariant(1)}, std::nullopt);
    row("a text is no consent", {u"true"_s}, std::nullopt);
    row("a number is no consent", {1.0}, std::nullopt);
    row("a byte is no consent", {QVariant::fromValue(uchar(1))}, std::nullopt);
    row("a path is no consent", {QVariant::fromValue(QDBusObjectPath(u"/yes"_s))}, std::nullopt);
    row("a list is no consent", {QVariant(QStringList(u"true"_s))}, std::nullopt);
    row("an empty variant is no consent", {inVariant(QVariant())}, std::nullopt);
    row("the second argument is not looked at", {u"x"_s, true}, std::nullopt);
}

void TestDialogReply::booleans()
{
    QFETCH(QVariantList, reply);
    QTEST(readBoolean(reply), "answer");
}

void TestDialogReply::integers_data()
{
    QTest::addColumn<QVariantList>("reply");
    QTest::addColumn<std::optional<int>>("answer");
    const auto row = [](const char *name, const QVariantList &reply, std::optional<int> answer) {
        QTest::newRow(name) << reply << answer;
    };
    row("zero", {0}, 0);
    row("one", {1}, 1);
    row("a negative number", {-5}, -5);
    row("in a variant", {inVariant(7)}, 7);
    row("nothing", {}, std::nullopt);
    row("a boolean is no integer", {true}, std::nullopt);
    row("a text is no integer", {u"1"_s}, std::nullopt);
    row("an unsigned one is not what was agreed on", {1U}, std::nullopt);
    row("a long one is not what was agreed on", {qlonglong(1)}, std::nullopt);
    row("a floating-point number is no integer", {1.0}, std::nullopt);
}

void TestDialogReply::integers()
{
    QFETCH(QVariantList, reply);
    QTEST(readInteger(reply), "answer");
}

QTEST_APPLESS_MAIN(TestDialogReply)
#include "tst_dialogreply.moc"
