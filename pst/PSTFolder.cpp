#include "pst/PSTFolder.h"

#include "pst/PSTFile.h"
#include "pst/PSTProperty.h"
#include "pstfile/PropTags.h"

#include <QCoreApplication>

#include <algorithm>
#include <stdexcept>

namespace tessaly::pst {

namespace {

namespace pid = pstfile::pid;
constexpr int MeetingItemType = 15;
constexpr int AppointmentItemType = 2;

bool IsListedContainerClass(const QString& containerClass)
{
    return containerClass.isEmpty() || containerClass == QLatin1String("IPF.Note")
        || containerClass == QLatin1String("IPF.Contact") || containerClass == QLatin1String("IPF.Imap")
        || containerClass == QLatin1String("IPF.Appointment");
}

} // namespace

TPSTFolder::TPSTFolder(TPSTMessageStore* store, TPSTFileContextPtr file, uint32_t id, pstfile::TProperties props)
    : TPSTItem(std::move(file), id, std::move(props)), m_store(store)
{
    m_kind = m_store ? m_store->GetFolderKind(ID()) : fkOther;
}

TPSTFolder::~TPSTFolder()
{
    if (!m_items)
        return;
    // Items still held elsewhere outlive the folder; they lose their owner.
    std::lock_guard lock(FileContext()->Lock);
    for (auto& slot : *m_items)
        if (auto item = slot.weak.lock())
            item->m_owner = nullptr;
}

QString TPSTFolder::Name() const
{
    return ReadString(Props(), pid::DisplayName, NameChars);
}

QString TPSTFolder::ContainerClass() const
{
    return ReadUtf8(Props(), pid::ContainerClass, 1023);
}

int TPSTFolder::FolderCount()
{
    if (!m_folders)
        LoadFolders();
    return int(m_folders->size());
}

TPSTFolder* TPSTFolder::GetFolder(int index) const
{
    Q_ASSERT_X(m_folders, "TPSTFolder::GetFolder", "sub-folders not loaded");
    if (!m_folders || index < 0 || index >= int(m_folders->size()))
        return nullptr;
    return (*m_folders)[size_t(index)].get();
}

QString FoldersLeftOutText()
{
    return QCoreApplication::translate("TPSTFolder", "Folders nested deeper than %1 levels, or inside themselves, are left out").arg(MaxFolderDepth);
}

void TPSTFolder::LoadFolders()
{
    m_folders.emplace();
    const pstfile::TPstFile& file = *FileContext()->File;
    // In node id order: the order in which the tree has always listed them.
    std::vector<uint32_t> ids = file.SubFolders(ID());
    std::sort(ids.begin(), ids.end());
    // A folder listed below itself would nest without end.
    for (const TPSTFolder* above = this; above; above = above->m_parent) {
        const auto found = std::find(ids.begin(), ids.end(), above->ID());
        if (found != ids.end()) {
            ids.erase(found);
            FileContext()->FoldersLeftOut = true;
        }
    }
    if (m_depth >= MaxFolderDepth && !ids.empty()) {
        FileContext()->FoldersLeftOut = true;
        return;
    }
    for (uint32_t id : ids) {
        pstfile::TProperties props = file.Properties(id);
        if (!props.IsValid())
            continue;
        // Folders of other kinds than mail, contacts and calendars are not
        // listed; a folder without a class is.
        const QString containerClass = ReadUtf8(props, pid::ContainerClass, 1023);
        if (!IsListedContainerClass(containerClass))
            continue;
        if (!HasProperty(props, pid::DisplayName))
            continue;
        const QString name = ReadString(props, pid::DisplayName, NameChars);
        if (name.startsWith(QLatin1String("MS-OLK")))
            continue;
        if (name.startsWith(QLatin1String("IPM")) && file.SubFolders(id).empty())
            continue;

        std::unique_ptr<TPSTFolder> folder;
        if (containerClass == QLatin1String("IPF.Contact"))
            folder = std::make_unique<TPSTContactFolder>(m_store, FileContext(), id, std::move(props));
        else if (containerClass == QLatin1String("IPF.Appointment"))
            folder = std::make_unique<TPSTAppointmentFolder>(m_store, FileContext(), id, std::move(props));
        else
            folder = std::make_unique<TPSTMailFolder>(m_store, FileContext(), id, std::move(props));
        folder->m_parent = this;
        folder->m_depth = m_depth + 1;
        m_folders->push_back(std::move(folder));
    }
}

namespace {

// Items are allocated apart from their control block: the folder keeps a
// weak reference to every item handed out, and a block shared with the
// control block would stay allocated, item and all, as long as that does.
std::shared_ptr<TPSTDetailItem> Own(TPSTDetailItem* item)
{
    return std::shared_ptr<TPSTDetailItem>(item);
}

} // namespace

std::shared_ptr<TPSTDetailItem> TPSTFolder::CreateItem(int index, std::unique_ptr<pstfile::TMessage> message)
{
    return Own(new TPSTMailItem(this, index, FileContext(), std::move(message)));
}

std::shared_ptr<TPSTDetailItem> TPSTMailFolder::CreateItem(int index, std::unique_ptr<pstfile::TMessage> message)
{
    // Meeting requests and responses, and appointments outside a calendar
    // (one deleted, or moved into a mail folder) still say when and where.
    const int type = ItemTypeOfClass(ReadString(message->Properties(), pid::MessageClass, ShortStringChars));
    if (type == MeetingItemType || type == AppointmentItemType)
        return Own(new TPSTMeetingItem(this, index, FileContext(), std::move(message)));
    return Own(new TPSTMailItem(this, index, FileContext(), std::move(message)));
}

std::shared_ptr<TPSTDetailItem> TPSTContactFolder::CreateItem(int index, std::unique_ptr<pstfile::TMessage> message)
{
    return Own(new TPSTContactItem(this, index, FileContext(), std::move(message)));
}

std::shared_ptr<TPSTDetailItem> TPSTAppointmentFolder::CreateItem(int index, std::unique_ptr<pstfile::TMessage> message)
{
    return Own(new TPSTMeetingItem(this, index, FileContext(), std::move(message)));
}

const std::vector<uint32_t>& TPSTFolder::ItemIds()
{
    if (!m_itemIds)
        m_itemIds = FileContext()->File->Contents(ID());
    return *m_itemIds;
}

std::shared_ptr<TPSTDetailItem> TPSTFolder::OpenItem(size_t position, int index)
{
    const auto& ids = ItemIds();
    if (position >= ids.size())
        return nullptr;
    auto message = FileContext()->File->OpenMessage(ids[position]);
    if (!message || !message->Properties().IsValid())
        return nullptr;
    return CreateItem(index, std::move(message));
}

int TPSTFolder::ItemCount()
{
    std::lock_guard lock(FileContext()->Lock);
    if (m_items)
        return int(m_items->size());
    if (m_itemIds)
        return int(m_itemIds->size());
    // Counted without reading the rows of the contents table.
    return int(FileContext()->File->ContentCount(ID()));
}

void TPSTFolder::Keep(TSlot& slot, const std::shared_ptr<TPSTDetailItem>& item, bool strong)
{
    slot.weak = item;
    if (strong)
        slot.strong = item;
}

std::shared_ptr<TPSTDetailItem> TPSTFolder::GetItem(int index)
{
    std::lock_guard lock(FileContext()->Lock);
    if (!m_items)
        m_items.emplace(ItemIds().size());
    if (index < 0 || index >= int(m_items->size()))
        throw std::out_of_range("item index out of range");
    TSlot& slot = (*m_items)[size_t(index)];
    if (auto item = slot.weak.lock())
        return item;
    auto item = OpenItem(size_t(index), index);
    if (!item)
        return nullptr;
    Keep(slot, item, m_cached);
    return item;
}

void TPSTFolder::PrepareItems()
{
    std::lock_guard lock(FileContext()->Lock);
    if (m_items)
        return;
    m_items.emplace();
    const size_t count = ItemIds().size();
    for (size_t i = 0; i < count; ++i) {
        auto item = OpenItem(i, int(m_items->size()));
        if (!item)
            continue;
        m_items->emplace_back();
        Keep(m_items->back(), item, true);
    }
}

void TPSTFolder::SetCached(bool cached)
{
    std::lock_guard lock(FileContext()->Lock);
    m_cached = cached;
    if (!m_items)
        return;
    for (auto& slot : *m_items)
        slot.strong = cached ? slot.weak.lock() : nullptr;
}

void TPSTFolder::ClearItems(bool initItem)
{
    std::lock_guard lock(FileContext()->Lock);
    m_cached = false;
    if (!m_items)
        return;
    for (auto it = m_items->rbegin(); it != m_items->rend(); ++it)
        it->strong.reset();
    for (const auto& slot : *m_items)
        if (!slot.weak.expired())
            return; // still in use elsewhere
    m_items.reset();
    if (initItem)
        m_itemIds.reset();
}

TPSTRootFolder::TPSTRootFolder(TPSTMessageStore* store, TPSTFileContextPtr file, uint32_t id, pstfile::TProperties props)
    : TPSTMailFolder(store, std::move(file), id, std::move(props))
{
    m_name = ReadString(Props(), pid::DisplayName, NameChars);
}

} // namespace tessaly::pst
