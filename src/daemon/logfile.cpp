#include "daemon/logfile.h"

#include "platform/clock.h"
#include "platform/sysinfo.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <limits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr mode_t DirectoryMode = 0755;
constexpr mode_t FileMode = 0644;
constexpr qint64 LongestMarkerLine = 1024; // bytes; a number needs twelve
constexpr const char *RdModeKey = "/device/rd-mode";

constexpr const char *DeviceInfoKeys[] = {
    "/component/product-name",    "/component/product",
    "/component/hw-build",        "/component/keppo",
    "/component/boot-reason",     "/component/boot-mode",
    "/device/sw-release-ver",     "/device/content-ver",
    "/device/hw-version",         "/device/production-sn",
    "/device/product-code",       "/device/order-number",
    "/device/basic-product-code", RdModeKey,
    "/device/rd-flags",
};

QByteArrayView upToNul(QByteArrayView text)
{
    const auto nul = text.indexOf('\0');
    return nul < 0 ? text : text.first(nul);
}

// The number of this start, which the marker keeps from now on.
int countMarkerUp(const QString &markerPath)
{
    QFile marker(markerPath);
    if (!marker.open(QIODevice::ReadWrite | QIODevice::Text))
        return 1;
    const int number = nextLogNumber(marker.readLine(LongestMarkerLine));
    marker.resize(0);
    marker.seek(0);
    marker.write(QByteArray::number(number));
    return number;
}

bool makeDirectory(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    // The umask may take bits away from what mkdir is asked for.
    return ::mkdir(name.constData(), DirectoryMode) == 0 && ::chmod(name.constData(), DirectoryMode) == 0;
}

void ensureLogDirectory(const QString &path, LogFlags &flags, std::FILE *err)
{
    const QFileInfo directory(path);
    if (directory.exists()) {
        if (directory.isDir() && directory.isWritable())
            return;
        std::fputs("Cannot create log file.\n", err);
    } else {
        if (makeDirectory(path))
            return;
        std::fputs("Cannot create log file directory.\n", err);
    }
    flags.logToFile = false;
}

LogStream openLog(const QByteArray &name)
{
    const int descriptor = ::open(name.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, FileMode);
    if (descriptor < 0)
        return {};
    ::fchmod(descriptor, FileMode); // whatever the umask
    return LogStream(::fdopen(descriptor, "w"));
}

} // namespace

bool isRdMode(QByteArrayView value)
{
    return value.startsWith("enabled");
}

bool readRdMode(const DevicePaths &paths)
{
    auto context = sysinfo_init(paths);
    if (!context)
        return false;
    const auto value = sysinfo_get_value(*context, RdModeKey);
    sysinfo_finish(*context);
    return value && isRdMode(*value);
}

int nextLogNumber(QByteArrayView firstLine)
{
    const int last = upToNul(firstLine).toByteArray().toInt();
    return last == std::numeric_limits<int>::max() ? 1 : last + 1;
}

QString logName(int number)
{
    return u"lodestard_%1.log"_s.arg(number);
}

LogStream setUpLogFile(const DevicePaths &paths, const Clock &clock, LogFlags &flags, const Console &console)
{
    const QString directory = paths.logDirectory();
    const QString marker = directory + u"/log_lodestard"_s;
    int number = 1;
    if (QFileInfo::exists(marker)) {
        std::fputs("lodestard logfile requested by file.\n", console.out);
        flags.logToFile = true;
        number = countMarkerUp(marker);
    }
    if (!flags.logToFile)
        return {};

    ensureLogDirectory(directory, flags, console.err);
    // On purpose also after a failure: a file that exists already can still be written.
    const QByteArray name = QFile::encodeName(directory + u'/' + logName(number));
    std::fprintf(console.out, "Creating log file: %s\n", name.constData());
    std::fflush(console.out); // a silent daemon writes no later line, and a signal ends it unflushed
    LogStream stream = openLog(name);
    if (!stream) {
        flags.logToFile = false;
        std::fputs("Error creating logfile!\n", console.err);
    }
    if (flags.logToFile)
        writeDeviceInfo(stream.get(), paths, clock);
    return stream;
}

void writeDeviceInfo(std::FILE *stream, const DevicePaths &paths, const Clock &clock)
{
    const QDateTime now = clock.now();
    std::fprintf(stream, "\n\n\n---------------------------------------\n  lodestard start!\n     %s",
                 now.time().toString(Qt::TextDate).toLatin1().constData());
    std::fprintf(stream, "\n     %s\n---------------------------------------\n",
                 now.date().toString(u"dd.MM.yyyy"_s).toLatin1().constData());
    std::fputs("--------------DEVICE-INFO--------------\n", stream);
    auto context = sysinfo_init(paths);
    for (const char *key : DeviceInfoKeys) {
        const auto value = context ? sysinfo_get_value(*context, key) : std::nullopt;
        const QByteArray text = value && !value->isEmpty() ? upToNul(*value).toByteArray() : "<n/a>"_ba;
        std::fprintf(stream, "%s=%s\n", key, text.constData());
    }
    if (context)
        sysinfo_finish(*context);
    std::fputs("---------------------------------------\n", stream);
    std::fflush(stream);
}
