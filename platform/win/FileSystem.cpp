#include "platform/FileSystem.h"

#include <QDir>

#include <windows.h>

namespace tessaly::platform {

namespace {

std::wstring Native(const QString& path)
{
    return QDir::toNativeSeparators(path).toStdWString();
}

} // namespace

TLinkResult RenameNoReplace(const QString& from, const QString& to)
{
    // Without MOVEFILE_REPLACE_EXISTING the move fails when the name exists.
    if (MoveFileExW(Native(from).c_str(), Native(to).c_str(), 0))
        return lrLinked;
    const DWORD error = GetLastError();
    return error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS ? lrTaken : lrFailed;
}

bool RenameReplace(const QString& from, const QString& to)
{
    return MoveFileExW(Native(from).c_str(), Native(to).c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
}

int CreateUnnamed(const QString&, bool)
{
    return -1; // every file has a name here: the caller writes under a temporary one
}

TLinkResult LinkUnnamed(int, const QString&)
{
    return lrFailed;
}

// Windows writes back on its own schedule; a run's end flushes its files.
void StartWriteBack(int) {}

void CloseUnnamed(int) {}

int CreateLocked(const QString& path, bool)
{
    // Opened without sharing deletion: a cleaner cannot remove it while the
    // writer lives. The handle value stands for the lock.
    const HANDLE handle = CreateFileW(Native(path).c_str(), GENERIC_READ | GENERIC_WRITE,
        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return -1;
    return int(reinterpret_cast<intptr_t>(handle) & 0x7fffffff);
}

void CloseLocked(int handle)
{
    if (handle >= 0)
        CloseHandle(reinterpret_cast<HANDLE>(intptr_t(handle)));
}

bool TryLockOpenFile(int handle)
{
    // Files are opened without write sharing there: the open itself is the lock.
    return handle >= 0;
}

bool RemoveIfUnlocked(const QString& path)
{
    // Deleting a file another process holds open without delete sharing fails.
    return DeleteFileW(Native(path).c_str()) != 0;
}

bool SyncFolders(const QStringList&)
{
    // Windows flushes a volume only with administrator rights; files are
    // durable once their handles are closed on local disks.
    return true;
}

QString PrivateTempFolder(const QString& name)
{
    // The temporary folder of a Windows user is private to that user.
    const QString path = QDir::temp().filePath(name);
    return QDir().mkpath(path) ? path : QString();
}

} // namespace tessaly::platform
