#include "settings/settingsfile.h"

#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <functional>

#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// What a crash of the daemon or of the machine leaves of the settings.

namespace {

// Hears of a file whose content is to be on the disk, instead of the disk.
std::function<void(const QString &)> flushing;

} // namespace

// Qt flushes what it has written with this call.
extern "C" int fdatasync(int descriptor)
{
    flushing(u"/proc/self/fd/%1"_s.arg(descriptor)); // it may not have a name yet
    return 0;
}

namespace {

constexpr int Kills = 500;
constexpr quint32 LongestLifeMicroseconds = 3000;

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A value whose length and text tell its number.
QString textOf(int number)
{
    return QString::number(number) + QString(number % 97, u'x');
}

// Writes higher and higher numbers and says each one that is written, until it is killed.
[[noreturn]] void writeOn(const QString &path, int say)
{
    SettingsFile file(path);
    for (int number = file.value(u"Number"_s).toInt() + 1;; ++number) {
        file.setValue(u"Number"_s, number);
        file.setValue(u"Text"_s, textOf(number));
        if (!file.write() || ::write(say, &number, sizeof number) != sizeof number)
            ::_exit(1);
    }
}

// The last number that a writer said before it was killed; 0 when it ended by itself.
int killWriter(const QString &path)
{
    int ends[2];
    if (::pipe(ends) != 0)
        return 0;
    const pid_t writer = ::fork();
    if (writer == 0)
        writeOn(path, ends[1]);
    ::close(ends[1]);
    int last = 0;
    int number = 0;
    const auto hear = [&] { return ::read(ends[0], &number, sizeof number) == sizeof number; };
    if (hear()) {
        last = number;
        ::usleep(QRandomGenerator::global()->bounded(LongestLifeMicroseconds)); // any moment
    }
    ::kill(writer, SIGKILL);
    while (hear())
        last = number;
    ::close(ends[0]);
    int status = 0;
    ::waitpid(writer, &status, 0);
    return WIFSIGNALED(status) ? last : 0;
}

} // namespace

class TestSettingsFileCrash : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        flushing = [](const QString &) {};
    }
    void killedAtAnyMomentItIsWhole();
    void theNewFileIsOnTheDiskBeforeItReplacesTheOldOne();

private:
    const QTemporaryDir m_directory;
    const QString m_path = m_directory.filePath(u"private/location_settings"_s);
};

void TestSettingsFileCrash::killedAtAnyMomentItIsWhole()
{
    int cutShort = 0;
    for (int kill = 0; kill < Kills; ++kill) {
        const int last = killWriter(m_path);
        QVERIFY2(last > 0, "the writer ended by itself");
        cutShort += QFileInfo(m_path).dir().entryList(QDir::Files | QDir::Hidden).size() > 1;
        const SettingsFile found(m_path);
        const int number = found.value(u"Number"_s).toInt();
        QVERIFY2(number == last || number == last + 1, qPrintable(u"%1 after %2"_s.arg(number).arg(last)));
        QCOMPARE(found.value(u"Text"_s).toString(), textOf(number));
        QCOMPARE(QFileInfo(m_path).dir().entryList(QDir::Files | QDir::Hidden),
                 QStringList{u"location_settings"_s});
    }
    qInfo("%d of %d left an unfinished file behind", cutShort, Kills);
    QVERIFY(cutShort > 0);
}

void TestSettingsFileCrash::theNewFileIsOnTheDiskBeforeItReplacesTheOldOne()
{
    SettingsFile file(m_path);
    file.setValue(u"Number"_s, 1);
    QVERIFY(file.write());
    const QByteArray old = contentOf(m_path);
    QByteArray flushed;
    QByteArray meanwhile;
    flushing = [&](const QString &name) {
        flushed = contentOf(name);
        meanwhile = contentOf(m_path);
    };
    file.setValue(u"Number"_s, 2);
    QVERIFY(file.write());
    QCOMPARE(meanwhile, old);
    QCOMPARE(flushed, contentOf(m_path));
    QVERIFY(contentOf(m_path).contains("Number=2\n"));
}

QTEST_GUILESS_MAIN(TestSettingsFileCrash)
#include "tst_settingsfile_crash.moc"
