#pragma once

// The messages an export run takes: the items of data-file folders (with
// their sub-folders), single message files, and the folder paths of the
// main window ("Inbox\", names with "\" and "/" doubled; "Outlook" for the
// whole file).

#include "pst/PSTFile.h"
#include "tasks/CustomTask.h"

#include <memory>

namespace tessaly::tasks {

// The folder names of a path of the main window, top down; empty for
// "Outlook" or an empty path.
QStringList SplitFolderPath(const QString& path);

// The folder a path names, below the root folder (whose own name may lead
// the path); null when there is none. Empty names give the root.
pst::TPSTFolder* FindFolderByPath(pst::TPSTFile& file, const QStringList& names);

// Entries for every item of a folder, and of its sub-folders with
// recursive. folders: the names that lead to it, for the mirrored layout.
void AddFolderEntries(TCustomTask& task, const std::shared_ptr<pst::TPSTFile>& file, pst::TPSTFolder* folder,
    const QStringList& folders, bool recursive);
// An entry for one item of a folder.
void AddItemEntry(TCustomTask& task, const std::shared_ptr<pst::TPSTFile>& file, pst::TPSTFolder* folder,
    const QStringList& folders, int row);
// An entry for a .msg, .eml, .emlx, .mim or .vcf file.
void AddMessageFileEntry(TCustomTask& task, const QString& fileName);
// The names of a folder from below the root, top down.
QStringList FolderNames(pst::TPSTFolder* folder);

} // namespace tessaly::tasks
