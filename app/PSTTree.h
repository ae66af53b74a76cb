#pragma once

// The folder tree of the main window: top-level nodes are data files, the
// nodes below them folders. Each node owns its record; a file node owns its
// file object and frees it with the node.

#include "pst/PSTFile.h"

#include <QAbstractItemModel>
#include <QColor>
#include <QHash>
#include <QIcon>
#include <functional>
#include <memory>
#include <vector>

namespace tessaly::app {

// The tree's images by name: "outlook", "contacts", "inbox", "sent",
// "draft", "trash", "outbox", "other". Empty without a GUI application.
QIcon TreeImage(const QString& name);

enum TPSTNodeState { nsLoaded = 0, nsOpenFailed = 1, nsLoading = 2, nsDisabled = 3 };

struct TPSTNode {
    std::unique_ptr<pst::TPSTFile> File; // a file node, once loaded
    pst::TPSTFolder* Folder = nullptr;   // a folder node
    QString Image;                       // name in the tree's image list; empty for none
    int State = nsLoaded;
    QString Name;                        // a file node: the data file's full path
    QString Error;                       // a file node that failed to open: why
    int ItemCount = 0;                   // a folder node: items in the folder
    TPSTNode* Parent = nullptr;
    std::vector<std::unique_ptr<TPSTNode>> Children;

    bool IsFileNode() const { return Parent == nullptr; }
    QString Caption() const;
    QColor Colour() const; // invalid for the normal text colour
    // The file node above (or of) this node.
    const TPSTNode* FileNode() const;
};

// An entry of the open queue: the node to fill and the number after "?".
struct TPSTQueueData {
    TPSTNode* Node = nullptr;
    int Number = 0;
    int CodePage = 0; // a chosen "File language"; 0 for the default
    TPSTQueueData MakeCopy() const { return *this; }
};

// "path?number": the text before the first "?" and the number after it,
// 0 when it is not a number.
struct TOpenEntry {
    QString Path;
    int Number = 0;
};
TOpenEntry ParseOpenEntry(const QString& line);
// A data file's path as the tree and the settings keep it: absolute
// (against the working folder), cleaned, in native separators.
QString AbsoluteDataPath(const QString& path);

// The folder path of the main window: each name, top down, with "\" and
// "/" doubled and followed by "\"; "Outlook" when there is none.
QString BuildFolderPath(const QStringList& names);

// What the loading job read from a file: the file (without root folder when
// it could not be opened) and the item count of each folder.
struct TOpenResult {
    std::unique_ptr<pst::TPSTFile> File;
    QHash<const pst::TPSTFolder*, int> ItemCounts;
};
// Opens and expands a file; runs on the loading job's thread.
std::shared_ptr<TOpenResult> OpenPSTFile(const QString& path, int codePage);

class TPSTTreeModel : public QAbstractItemModel {
public:
    explicit TPSTTreeModel(QObject* parent = nullptr);
    ~TPSTTreeModel() override;

    std::function<QIcon(const QString&)> Images;
    // The root folder of a file gets no node of its own; its folders stand
    // right under the file node.
    bool HideRootFolder = true;

    // Adds a file node in sorted place.
    TPSTNode* AddFileNode(const QString& path, int state);
    TPSTNode* FindFileNode(const QString& path) const;
    const std::vector<std::unique_ptr<TPSTNode>>& FileNodes() const { return m_files; }
    void RemoveFileNode(TPSTNode* node);
    // Gives a file node its file and adds the folder nodes below; calls
    // visit for every folder node in tree order.
    void SetFile(TPSTNode* node, TOpenResult&& result, const std::function<void(TPSTNode*)>& visit);
    // Frees the file and deletes the folder nodes.
    void ClearFile(TPSTNode* node);
    void SetState(TPSTNode* node, int state);
    // A file node whose file could not be opened, with the reason.
    void SetOpenFailed(TPSTNode* node, const QString& reason);
    // Tells the views that captions changed, and sorts the file nodes again.
    void CaptionsChanged();

    QModelIndex IndexOf(const TPSTNode* node) const;
    static TPSTNode* NodeOf(const QModelIndex& index);

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    // Case-insensitive order of captions.
    static bool CaptionLess(const TPSTNode& a, const TPSTNode& b);

private:
    void AddFolders(TPSTNode* parent, pst::TPSTFolder* folder, const TOpenResult& result,
        const std::function<void(TPSTNode*)>& visit);
    void Sort();
    std::vector<std::unique_ptr<TPSTNode>> m_files;
};

} // namespace tessaly::app
