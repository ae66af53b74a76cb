#include "tasks/MailExportSource.h"

#include "mail/FileMailMsg.h"
#include "pst/PSTFolder.h"
#include "pst/PSTProjectData.h"

namespace tessaly::tasks {

QStringList SplitFolderPath(const QString& path)
{
    if (path.isEmpty() || path == QLatin1String("Outlook"))
        return {};
    // A single "\" ends a name; "\\" and "//" stand for one "\" and one "/".
    QStringList names;
    QString name;
    for (qsizetype i = 0; i < path.size(); ++i) {
        const QChar c = path[i];
        if (c == QLatin1Char('\\')) {
            if (i + 1 < path.size() && path[i + 1] == QLatin1Char('\\')) {
                name += c;
                ++i;
            } else {
                names << name;
                name.clear();
            }
        } else if (c == QLatin1Char('/') && i + 1 < path.size() && path[i + 1] == QLatin1Char('/')) {
            name += c;
            ++i;
        } else {
            name += c;
        }
    }
    if (!name.isEmpty())
        names << name;
    return names;
}

pst::TPSTFolder* FindFolderByPath(pst::TPSTFile& file, const QStringList& names)
{
    pst::TPSTFolder* folder = file.RootFolder();
    if (!folder)
        return nullptr;
    qsizetype first = 0;
    if (!names.isEmpty() && names.front().compare(folder->Name(), Qt::CaseInsensitive) == 0) {
        // The root's own name may lead, unless a folder below carries it too.
        bool child = false;
        for (int i = 0; i < folder->FolderCount(); ++i)
            child = child || folder->GetFolder(i)->Name().compare(names.front(), Qt::CaseInsensitive) == 0;
        if (!child)
            first = 1;
    }
    for (qsizetype n = first; n < names.size(); ++n) {
        pst::TPSTFolder* next = nullptr;
        for (int i = 0; i < folder->FolderCount() && !next; ++i)
            if (folder->GetFolder(i)->Name().compare(names[n], Qt::CaseInsensitive) == 0)
                next = folder->GetFolder(i);
        if (!next)
            return nullptr;
        folder = next;
    }
    return folder;
}

QStringList FolderNames(pst::TPSTFolder* folder)
{
    // Names come from the tree the file keeps; the root is not named.
    QStringList names;
    for (pst::TPSTFolder* current = folder; current && current->Parent(); current = current->Parent())
        names.prepend(current->Name());
    return names;
}

namespace {

// The folder's class is read once and shared by its entries.
void AddStoreEntry(TCustomTask& task, const std::shared_ptr<pst::TPSTFile>& file, const QString& folderClass,
    const std::shared_ptr<pst::TPSTMailDataStore>& store, const QStringList& folders, int row)
{
    TTaskEntry entry;
    entry.Source = file->FileName();
    entry.InStore = true;
    entry.Folders = folders;
    entry.FolderClass = folderClass;
    entry.Load = [file, store, row] { return store->Message(row); };
    task.AddEntry(std::move(entry));
}

} // namespace

void AddItemEntry(TCustomTask& task, const std::shared_ptr<pst::TPSTFile>& file, pst::TPSTFolder* folder,
    const QStringList& folders, int row)
{
    auto store = std::make_shared<pst::TPSTMailDataStore>();
    store->LoadFolder(folder);
    AddStoreEntry(task, file, folder->ContainerClass(), store, folders, row);
}

void AddFolderEntries(TCustomTask& task, const std::shared_ptr<pst::TPSTFile>& file, pst::TPSTFolder* folder,
    const QStringList& folders, bool recursive)
{
    if (!folder)
        return;
    // Parents before their sub-folders, in the tree's order, without
    // recursion: the names of a folder's path are kept by depth.
    std::vector<pst::TPSTFolder*> pending{folder};
    std::vector<QStringList> paths{folders};
    while (!pending.empty()) {
        pst::TPSTFolder* current = pending.back();
        const QStringList path = std::move(paths.back());
        pending.pop_back();
        paths.pop_back();
        auto store = std::make_shared<pst::TPSTMailDataStore>();
        store->LoadFolder(current);
        const QString folderClass = current->ContainerClass();
        for (int row = 0; row < store->RowCount(); ++row)
            AddStoreEntry(task, file, folderClass, store, path, row);
        if (!recursive)
            break;
        for (int i = current->FolderCount() - 1; i >= 0; --i) {
            pst::TPSTFolder* child = current->GetFolder(i);
            pending.push_back(child);
            paths.push_back(path + QStringList{child->Name()});
        }
    }
    if (recursive && file->FoldersLeftOut())
        task.AddLog(0, pst::FoldersLeftOutText());
}

void AddMessageFileEntry(TCustomTask& task, const QString& fileName)
{
    TTaskEntry entry;
    entry.Source = fileName;
    entry.Load = [fileName]() -> std::shared_ptr<mail::IMailMessage> {
        mail::TFileMailMsgRequest request(fileName);
        return request.Message();
    };
    task.AddEntry(std::move(entry));
}

} // namespace tessaly::tasks
