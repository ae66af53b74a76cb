#pragma once

// File-system services that differ between systems: linking a finished file
// in under its name without replacing anything, locks that tell a living
// writer's temporaries from a crashed one's, syncing once per run, and a
// folder only the user can read.

#include <QString>
#include <QStringList>

namespace tessaly::platform {

enum TLinkResult {
    lrLinked,  // the file now has the new name
    lrTaken,   // something has that name already; nothing changed
    lrFailed,  // any other failure; nothing changed
};

// Gives `from` the name `to` only when no file has it: an existing file is
// never replaced, even when another process creates it at the same moment.
TLinkResult RenameNoReplace(const QString& from, const QString& to);

// Gives `from` the name `to`, replacing what is there.
bool RenameReplace(const QString& from, const QString& to);

// A new file opened for writing under a name nobody else has, with an
// exclusive lock held until CloseLocked: another process can tell from the
// lock that the writer is alive. -1 when it cannot be made.
int CreateLocked(const QString& path, bool privateToUser = false);
void CloseLocked(int handle);

// A new file without a name in `folder`, open for writing, that vanishes
// when closed unless LinkUnnamed gave it one: a crash leaves nothing
// behind, and no temporary name is made and dropped again. -1 where the
// system or the file system cannot make one.
int CreateUnnamed(const QString& folder, bool privateToUser = false);
// Starts writing what was written to the file out to its disk, without
// waiting: the sync at the end of a run then finds little left to do.
void StartWriteBack(int handle);

// Gives an unnamed file the name `to` only when no file has it.
TLinkResult LinkUnnamed(int handle, const QString& to);
void CloseUnnamed(int handle);

// Takes the exclusive lock of an open file without waiting, held until the
// handle is closed; false when another process holds it.
bool TryLockOpenFile(int handle);

// Removes `path` when it is a file no living process holds locked (what a
// crashed writer left); true when it was removed.
bool RemoveIfUnlocked(const QString& path);

// Makes what was written below each folder durable: one sync per file
// system, not one per file.
bool SyncFolders(const QStringList& folders);

// A folder in the temporary folder that only this user can enter (mode
// 0700), made when missing; the same folder for every run of this user.
// Empty when no such folder can be had.
QString PrivateTempFolder(const QString& name);

} // namespace tessaly::platform
