#include "platform/FileSystem.h"

#include <QDir>
#include <QFile>
#include <QSet>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tessaly::platform {

namespace {

QByteArray Native(const QString& path)
{
    return QFile::encodeName(path);
}

} // namespace

TLinkResult RenameNoReplace(const QString& from, const QString& to)
{
    const QByteArray source = Native(from);
    const QByteArray target = Native(to);
    if (renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0)
        return lrLinked;
    if (errno == EEXIST)
        return lrTaken;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP)
        return lrFailed;
    // The file system cannot rename without replacing: a second link is
    // refused when the name exists, and the first is dropped after.
    if (link(source.constData(), target.constData()) == 0) {
        unlink(source.constData());
        return lrLinked;
    }
    if (errno == EEXIST)
        return lrTaken;
    if (errno != EPERM && errno != ENOTSUP && errno != ENOSYS)
        return lrFailed;
    // No hard links either (FAT, some network shares): the name is claimed
    // with an exclusive create, then the file is renamed over the claim.
    const int claim = open(target.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (claim < 0)
        return errno == EEXIST ? lrTaken : lrFailed;
    close(claim);
    if (rename(source.constData(), target.constData()) == 0)
        return lrLinked;
    unlink(target.constData());
    return lrFailed;
}

bool RenameReplace(const QString& from, const QString& to)
{
    return rename(Native(from).constData(), Native(to).constData()) == 0;
}

int CreateUnnamed(const QString& folder, bool privateToUser)
{
    // Naming it later goes through /proc; without /proc it is not made.
    static const bool procFds = access("/proc/self/fd", X_OK) == 0;
    if (!procFds)
        return -1;
    return open(Native(folder).constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, privateToUser ? 0600 : 0666);
}

TLinkResult LinkUnnamed(int handle, const QString& to)
{
    char self[64];
    std::snprintf(self, sizeof self, "/proc/self/fd/%d", handle);
    if (linkat(AT_FDCWD, self, AT_FDCWD, Native(to).constData(), AT_SYMLINK_FOLLOW) == 0)
        return lrLinked;
    return errno == EEXIST ? lrTaken : lrFailed;
}

void StartWriteBack(int handle)
{
    if (handle >= 0)
        sync_file_range(handle, 0, 0, SYNC_FILE_RANGE_WRITE);
}

void CloseUnnamed(int handle)
{
    if (handle >= 0)
        close(handle);
}

int CreateLocked(const QString& path, bool privateToUser)
{
    const QByteArray name = Native(path);
    const int handle = open(name.constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, privateToUser ? 0600 : 0666);
    if (handle < 0)
        return -1;
    // Between the create and the lock, a cleaner may have taken the file
    // for a dead writer's and removed it: then it is no longer ours.
    struct stat opened {}, named {};
    if (flock(handle, LOCK_EX) != 0 || fstat(handle, &opened) != 0 || stat(name.constData(), &named) != 0
        || opened.st_ino != named.st_ino || opened.st_dev != named.st_dev) {
        close(handle);
        return -1;
    }
    return handle;
}

void CloseLocked(int handle)
{
    if (handle >= 0)
        close(handle);
}

bool TryLockOpenFile(int handle)
{
    return handle >= 0 && flock(handle, LOCK_EX | LOCK_NB) == 0;
}

bool RemoveIfUnlocked(const QString& path)
{
    const QByteArray name = Native(path);
    const int handle = open(name.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (handle < 0)
        return false;
    struct stat info {};
    bool removed = false;
    if (fstat(handle, &info) == 0 && S_ISREG(info.st_mode) && flock(handle, LOCK_EX | LOCK_NB) == 0)
        removed = unlink(name.constData()) == 0;
    close(handle);
    return removed;
}

bool SyncFolders(const QStringList& folders)
{
    QSet<dev_t> synced;
    bool ok = true;
    for (const QString& folder : folders) {
        const int handle = open(Native(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (handle < 0) {
            ok = false;
            continue;
        }
        struct stat info {};
        if (fstat(handle, &info) == 0 && !synced.contains(info.st_dev)) {
            synced.insert(info.st_dev);
            ok = syncfs(handle) == 0 && ok;
        }
        close(handle);
    }
    return ok;
}

QString PrivateTempFolder(const QString& name)
{
    const QString path = QDir::temp().filePath(QStringLiteral("%1-%2").arg(name).arg(getuid()));
    const QByteArray native = Native(path);
    if (mkdir(native.constData(), 0700) != 0 && errno != EEXIST)
        return {};
    // Someone else may have made it first: it must be ours, a real folder
    // and closed to others.
    struct stat info {};
    if (lstat(native.constData(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != getuid())
        return {};
    if ((info.st_mode & 077) != 0 && chmod(native.constData(), 0700) != 0)
        return {};
    return path;
}

} // namespace tessaly::platform
