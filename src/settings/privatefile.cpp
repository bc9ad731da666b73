#include "settings/privatefile.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t PrivateDirectory = 0700;
constexpr mode_t OpenDirectory = 0755;
constexpr mode_t PrivateFile = 0600;

bool ensureDirectory(const QString &path, int privateLevels)
{
    const QFileInfo info(path);
    if (info.exists())
        return info.isDir();
    if (!ensureDirectory(info.absolutePath(), privateLevels - 1))
        return false;
    const mode_t mode = privateLevels > 0 ? PrivateDirectory : OpenDirectory;
    const QByteArray name = QFile::encodeName(path);
    if (::mkdir(name.constData(), mode) != 0)
        return errno == EEXIST;
    return ::chmod(name.constData(), mode) == 0; // the umask may have taken bits away
}

} // namespace

bool ensurePrivateFile(const QString &path)
{
    if (path.isEmpty() || !ensureDirectory(QFileInfo(path).absolutePath(), 2))
        return false;
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK;
    const int descriptor = ::open(QFile::encodeName(path).constData(), flags, PrivateFile);
    if (descriptor < 0)
        return false;
    const bool restricted = ::fchmod(descriptor, PrivateFile) == 0;
    ::close(descriptor);
    return restricted;
}
