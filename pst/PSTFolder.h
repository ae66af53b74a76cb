#pragma once

#include "pst/PSTMailItem.h"

#include <vector>

namespace tessaly::pst {

class TPSTMessageStore;

// Folders nested deeper below the root are not listed: no mailbox comes
// near it, and a damaged or hostile file could nest them without end.
constexpr int MaxFolderDepth = 300;
// What the user is told when that happened.
QString FoldersLeftOutText();

enum TPSTFolderKind { fkInbox, fkSent, fkDrafts, fkTrash, fkOutbox, fkOther };

class TPSTFolder : public TPSTItem {
public:
    TPSTFolder(TPSTMessageStore* store, TPSTFileContextPtr file, uint32_t id, pstfile::TProperties props);
    ~TPSTFolder() override;

    virtual QString Name() const;
    TPSTFolderKind Kind() const { return m_kind; }
    // The container class (entry 0x3613), "IPF.Note" and the like.
    QString ContainerClass() const;
    TPSTMessageStore* Store() const { return m_store; }

    // Sub-folders, read once on first demand. A folder that is one of its
    // own parents, or below MaxFolderDepth, is left out (and the file says so).
    int FolderCount();
    TPSTFolder* GetFolder(int index) const;
    TPSTFolder* Parent() const { return m_parent; }
    // The root is at 0.
    int Depth() const { return m_depth; }

    // Items hold the file's lock while they are looked up and counted.
    int ItemCount();
    // Throws std::out_of_range for an index outside the folder.
    std::shared_ptr<TPSTDetailItem> GetItem(int index);
    // Creates every item at once; a failed fetch leaves no slot, so indexes
    // may shift. The items stay until ClearItems.
    void PrepareItems();
    // Lets go of the items; when none is held elsewhere any more, the item
    // list goes and (with initItem) the folder's list of item ids with it,
    // to be read again when next asked for.
    void ClearItems(bool initItem);
    // In cached mode the folder keeps every item it hands out.
    bool Cached() const { return m_cached; }
    void SetCached(bool cached);

protected:
    virtual void LoadFolders();
    virtual std::shared_ptr<TPSTDetailItem> CreateItem(int index, std::unique_ptr<pstfile::TMessage> message);
    // The node ids of the items, in the order of the contents table.
    const std::vector<uint32_t>& ItemIds();
    // The item at a position of ItemIds, to be held at index of the list.
    std::shared_ptr<TPSTDetailItem> OpenItem(size_t position, int index);

private:
    struct TSlot {
        std::weak_ptr<TPSTDetailItem> weak;
        std::shared_ptr<TPSTDetailItem> strong;
    };
    void Keep(TSlot& slot, const std::shared_ptr<TPSTDetailItem>& item, bool strong);

    TPSTMessageStore* m_store;
    TPSTFolder* m_parent = nullptr;
    int m_depth = 0;
    std::optional<std::vector<uint32_t>> m_itemIds;
    std::optional<std::vector<TSlot>> m_items;
    std::optional<std::vector<std::unique_ptr<TPSTFolder>>> m_folders;
    TPSTFolderKind m_kind = fkOther;
    bool m_cached = false;
};

class TPSTMailFolder : public TPSTFolder {
public:
    using TPSTFolder::TPSTFolder;

protected:
    std::shared_ptr<TPSTDetailItem> CreateItem(int index, std::unique_ptr<pstfile::TMessage> message) override;
};

class TPSTContactFolder : public TPSTFolder {
public:
    using TPSTFolder::TPSTFolder;

protected:
    std::shared_ptr<TPSTDetailItem> CreateItem(int index, std::unique_ptr<pstfile::TMessage> message) override;
};

class TPSTAppointmentFolder : public TPSTFolder {
public:
    using TPSTFolder::TPSTFolder;

protected:
    std::shared_ptr<TPSTDetailItem> CreateItem(int index, std::unique_ptr<pstfile::TMessage> message) override;
};

class TPSTRootFolder : public TPSTMailFolder {
public:
    TPSTRootFolder(TPSTMessageStore* store, TPSTFileContextPtr file, uint32_t id, pstfile::TProperties props);
    QString Name() const override { return m_name; }

private:
    QString m_name;
};

} // namespace tessaly::pst
