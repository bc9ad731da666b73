#pragma once

#include "platform/devicepaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <sys/stat.h>

// An empty file system of a device below a temporary directory. Paths are absolute on the device.
class DeviceTree
{
public:
    DevicePaths paths() const { return {m_root.path()}; }
    QString at(const QString &path) const { return m_root.path() + path; }

    bool makeDirectory(const QString &path) const { return QDir().mkpath(at(path)); }
    // With the directories that are missing.
    bool write(const QString &path, const QByteArray &content) const
    {
        QFile file(at(path));
        return QDir().mkpath(QFileInfo(file).path()) && file.open(QIODevice::WriteOnly) &&
               file.write(content) == content.size();
    }
    QByteArray read(const QString &path) const
    {
        QFile file(at(path));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<cannot be read>");
    }
    bool exists(const QString &path) const { return QFileInfo::exists(at(path)); }
    // Permission bits; -1 when there is no such file.
    int mode(const QString &path) const
    {
        struct stat status;
        return ::stat(QFile::encodeName(at(path)).constData(), &status) == 0 ? int(status.st_mode & 07777)
                                                                             : -1;
    }

private:
    QTemporaryDir m_root;
};
