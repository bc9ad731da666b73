#include "settings/settingsfile.h"

#include "settings/privatefile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QSettings>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

// QSettings locks what it writes with a file beside it. A process that is killed in that moment
// leaves the lock behind, and QSettings would wait half a minute for a dead owner: so every new file
// has a name of its own, and what a killed process left is swept up at the start.
constexpr QLatin1StringView FreshMark(".new-");

QString freshName(const QString &path)
{
    return path + FreshMark + QString::number(QRandomGenerator::system()->generate64(), 16);
}

void removeLeftovers(const QString &path)
{
    const QFileInfo file(path);
    QDir directory = file.dir();
    for (const QString &name :
         directory.entryList({file.fileName() + FreshMark + u'*'}, QDir::Files | QDir::Hidden))
        directory.remove(name);
}

// A file that ends too early lacks its last line feed or some of its lines; QSettings writes one
// line for each key, empty lines and section headers.
bool holdsAllKeys(const QString &path, qsizetype keys)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray text = file.readAll();
    const auto lines = text.split('\n');
    const auto isKey = [](const QByteArray &line) { return !line.isEmpty() && !line.startsWith('['); };
    return text.endsWith('\n') && std::ranges::count_if(lines, isKey) == keys;
}

} // namespace

SettingsFile::SettingsFile(const QString &path)
    : m_path(path)
{
    if (m_path.isEmpty())
        return;
    ensurePrivateFile(m_path);
    if (const QString target = QFileInfo(m_path).canonicalFilePath(); !target.isEmpty())
        m_path = target; // a link stays a link
    removeLeftovers(m_path);
    readFromDisk();
}

void SettingsFile::setValue(const QString &key, const QVariant &value)
{
    m_values.insert(key, value);
    m_unwritten.insert(key);
}

bool SettingsFile::write()
{
    const QFileInfo old(m_path);
    if (m_path.isEmpty() || (old.exists() && !old.isWritable()))
        return false;
    if (old.exists() && stampOnDisk() != m_stamp)
        readFromDisk();
    const QString fresh = freshName(m_path);
    if (!formatInto(fresh) ||
        std::rename(QFile::encodeName(fresh).constData(), QFile::encodeName(m_path).constData()) != 0) {
        QFile::remove(fresh);
        return false;
    }
    m_unwritten.clear();
    m_stamp = stampOnDisk();
    return true;
}

SettingsFile::Stamp SettingsFile::stampOnDisk() const
{
    const QFileInfo file(m_path);
    return {file.size(), file.lastModified()};
}

// Our own unwritten changes win, and what the file does not hold stays.
void SettingsFile::readFromDisk()
{
    const QSettings disk(m_path, QSettings::NativeFormat);
    for (const QString &key : disk.allKeys()) {
        if (!m_unwritten.contains(key))
            m_values.insert(key, disk.value(key));
    }
    m_stamp = stampOnDisk();
}

bool SettingsFile::formatInto(const QString &path) const
{
    if (!ensurePrivateFile(path))
        return false;
    QSettings file(path, QSettings::NativeFormat);
    file.clear();
    for (auto it = m_values.cbegin(); it != m_values.cend(); ++it)
        file.setValue(it.key(), it.value());
    file.sync();
    return file.status() == QSettings::NoError && holdsAllKeys(path, m_values.size());
}
