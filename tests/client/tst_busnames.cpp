#include "client/busnames.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestBusNames : public QObject
{
    Q_OBJECT
private slots:
    void busName_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("valid");
        QTest::newRow("a unique name") << u":1.42"_s << true;
        QTest::newRow("a well-known name") << u"com.varn.maps"_s << true;
        QTest::newRow("hyphens, underscores and digits") << u"com.varn-2._maps9"_s << true;
        QTest::newRow("255 characters") << u"a."_s + QString(253, u'b') << true;
        QTest::newRow("256 characters") << u"a."_s + QString(254, u'b') << false;
        QTest::newRow("nothing") << QString() << false;
        QTest::newRow("a single word") << u"context"_s << false;
        QTest::newRow("a lone colon") << u":"_s << false;
        QTest::newRow("an empty element") << u"com..maps"_s << false;
        QTest::newRow("a dot in front") << u".com.maps"_s << false;
        QTest::newRow("a dot at the end") << u"com.maps."_s << false;
        QTest::newRow("a digit in front of an element") << u"com.2maps"_s << false;
        QTest::newRow("a wildcard") << u"com.varn.*"_s << false;
        QTest::newRow("a quote that would end a match rule") << u"com.varn',type='signal"_s << false;
        QTest::newRow("a blank") << u"com.va rn"_s << false;
        QTest::newRow("a letter beyond ASCII") << u"com.värn"_s << false;
        QTest::newRow("a path") << u"/com/varn"_s << false;
    }
    void busName()
    {
        QFETCH(QString, name);
        QTEST(isBusName(name), "valid");
    }

    void objectPath_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("valid");
        QTest::newRow("the root") << u"/"_s << true;
        QTest::newRow("one element") << u"/maps"_s << true;
        QTest::newRow("several elements with digits and underscores") << u"/com/varn_2/9maps"_s << true;
        QTest::newRow("nothing") << QString() << false;
        QTest::newRow("no slash in front") << u"com/varn"_s << false;
        QTest::newRow("a slash at the end") << u"/com/"_s << false;
        QTest::newRow("an empty element") << u"/com//varn"_s << false;
        QTest::newRow("a hyphen") << u"/com-varn"_s << false;
        QTest::newRow("a dot") << u"/com.varn"_s << false;
        QTest::newRow("a letter beyond ASCII") << u"/värn"_s << false;
    }
    void objectPath()
    {
        QFETCH(QString, path);
        QTEST(isObjectPath(path), "valid");
    }
};

QTEST_APPLESS_MAIN(TestBusNames)
#include "tst_busnames.moc"
