#pragma once

#include <QDateTime>
#include <QSet>
#include <QString>
#include <QVariant>

// The user's settings in memory, and the INI file of QSettings that keeps them on disk.
//
// QSettings reads and formats, but does not replace the file: when the disk is full it puts an empty
// or cut file in the place of the good one and reports success. Here a new file is written beside
// the old one, looked at, and only then moved over it. The file belongs to its owner alone.
class SettingsFile
{
public:
    // An empty path keeps the settings in memory only: they cannot be written.
    explicit SettingsFile(const QString &path);

    // By exact name; values read from the file are text, also for booleans and numbers.
    bool contains(const QString &key) const { return m_values.contains(key); }
    QVariant value(const QString &key) const { return m_values.value(key); }
    void setValue(const QString &key, const QVariant &value);

    bool hasUnwrittenChanges() const { return !m_unwritten.isEmpty(); }
    // Everything held in memory goes to disk, with what others changed there meanwhile. On failure the
    // file stays as it was and the changes stay unwritten.
    [[nodiscard]] bool write();

private:
    // Tells whether somebody else wrote the file.
    struct Stamp {
        qint64 size = -1;
        QDateTime modified;
        bool operator==(const Stamp &) const = default;
    };
    Stamp stampOnDisk() const;
    void readFromDisk();
    bool formatInto(const QString &path) const;

    QString m_path;
    QVariantMap m_values;
    QSet<QString> m_unwritten;
    Stamp m_stamp;
};
