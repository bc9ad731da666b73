#include "platform/sysinfo.h"

#include <QFile>

#include <iterator>

using namespace Qt::StringLiterals;

namespace {

// A device-tree text ends in a zero byte, a DMI text in a line feed.
QByteArray withoutTerminator(QByteArray text)
{
    if (text.endsWith('\0') || text.endsWith('\n'))
        text.chop(1);
    return text;
}

std::optional<QByteArray> contentOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return file.readAll();
}

std::optional<QByteArray> firstNonEmpty(const QString &root, std::initializer_list<QLatin1StringView> paths)
{
    for (const auto path : paths) {
        const auto text = contentOf(root + path);
        if (text && !withoutTerminator(*text).isEmpty())
            return withoutTerminator(*text);
    }
    return std::nullopt;
}

// The value of one NAME=value or NAME="value" line. The administrator's file counts alone where there
// is one, else the vendor's; os-release(5).
std::optional<QByteArray> osRelease(const QString &root, QByteArrayView name)
{
    auto text = contentOf(root + u"/etc/os-release"_s);
    if (!text)
        text = contentOf(root + u"/usr/lib/os-release"_s);
    if (!text)
        return std::nullopt;
    for (QByteArray line : text->split('\n')) {
        if (!line.startsWith(name) || line.size() <= name.size() || line.at(name.size()) != '=')
            continue;
        line = line.sliced(name.size() + 1).trimmed();
        if (line.size() >= 2 && (line.startsWith('"') || line.startsWith('\'')) &&
            line.back() == line.front())
            line = line.sliced(1, line.size() - 2);
        return line;
    }
    return std::nullopt;
}

std::optional<QByteArray> knownByTheMachine(const QString &root, QByteArrayView key)
{
    if (key == "/component/product-name")
        return firstNonEmpty(root, {"/sys/class/dmi/id/product_name"_L1, "/proc/device-tree/model"_L1});
    if (key == "/device/hw-version")
        return firstNonEmpty(root,
                             {"/sys/class/dmi/id/product_version"_L1, "/proc/device-tree/compatible"_L1});
    if (key == "/device/sw-release-ver")
        return osRelease(root, "PRETTY_NAME");
    return std::nullopt;
}

} // namespace

std::optional<SysinfoContext> sysinfo_init(const DevicePaths &paths)
{
    return SysinfoContext{paths};
}

std::optional<QByteArray> sysinfo_get_value(const SysinfoContext &context, const char *key)
{
    auto value = contentOf(context.paths.systemInformation() + QString::fromLatin1(key));
    if (!value)
        return knownByTheMachine(context.paths.root, key);
    if (value->endsWith('\n'))
        value->chop(1);
    return value;
}

void sysinfo_finish(SysinfoContext &context)
{
    context.paths = {};
}
