#include "pst/PSTFolder.h"

#include "core/Exceptions.h"
#include "pst/PSTFile.h"
#include "pst/PffProperty.h"
#include "pstfile/PropTags.h"

#include <stdexcept>

namespace tessaly::pst {

namespace {

namespace pid = pstfile::pid;
constexpr int MeetingItemType = 15;

// Folder types libpff reports for folders worth listing.
bool IsListedFolderType(int type)
{
    return type == 0 || type == 2 || type == 8 || type == 11;
}

bool IsListedContainerClass(const QString& containerClass)
{
    return containerClass.isEmpty() || containerClass == QLatin1String("IPF.Note")
        || containerClass == QLatin1String("IPF.Contact") || containerClass == QLatin1String("IPF.Imap")
        || containerClass == QLatin1String("IPF.Appointment");
}

// The content type libpff gives a folder: 0 undefined, 2 appointments,
// 8 contacts, 11 mail, other values for other classes. Some libpff versions
// fail on container classes stored as Unicode strings; the type then comes
// from the class as we read it.
std::optional<int> FolderContentType(libpff_item_t* folder, const QString& containerClass, bool classReadable)
{
    uint8_t type = 0;
    if (libpff_folder_get_type(folder, &type, nullptr) == 1)
        return type;
    if (!classReadable)
        return std::nullopt;
    if (containerClass.isEmpty())
        return 0;
    if (containerClass == QLatin1String("IPF.Appointment"))
        return 2;
    if (containerClass == QLatin1String("IPF.Contact"))
        return 8;
    if (containerClass == QLatin1String("IPF.Note") || containerClass == QLatin1String("IPF.Imap"))
        return 11;
    return -1;
}

int SubFolderCount(libpff_item_t* folder)
{
    int count = 0;
    if (!folder || libpff_folder_get_number_of_sub_folders(folder, &count, nullptr) != 1)
        return 0;
    return count;
}

} // namespace

TPSTFolder::TPSTFolder(TPSTMessageStore* store, TPSTFileContextPtr file, TPffItemHandle item)
    : TPSTItem(std::move(file), std::move(item)), m_store(store)
{
    if (libpff_item_clone(m_srcItem.Out(), Handle(), nullptr) != 1)
        m_srcItem.Reset();
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
    return ReadString(Handle(), 0, pid::DisplayName, NameChars);
}

QString TPSTFolder::ContainerClass() const
{
    return ReadUtf8(Handle(), 0, pid::ContainerClass, 1023);
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

void TPSTFolder::LoadFolders()
{
    m_folders.emplace();
    const int count = SubFolderCount(Handle());
    for (int i = 0; i < count; ++i) {
        TPffItemHandle sub;
        if (libpff_folder_get_sub_folder(Handle(), i, sub.Out(), nullptr) != 1 || !sub)
            continue;
        const bool hasClass = FindEntry(sub.Get(), 0, pid::ContainerClass) ? true : false;
        const QString containerClass = ReadUtf8(sub.Get(), 0, pid::ContainerClass, 1023);
        const auto type = FolderContentType(sub.Get(), containerClass, !hasClass || !containerClass.isEmpty());
        if (!type || !IsListedFolderType(*type))
            continue;
        if (!IsListedContainerClass(containerClass))
            continue;
        if (!FindEntry(sub.Get(), 0, pid::DisplayName))
            continue;
        const QString name = ReadString(sub.Get(), 0, pid::DisplayName, NameChars);
        if (name.startsWith(QLatin1String("MS-OLK")))
            continue;
        if (name.startsWith(QLatin1String("IPM")) && SubFolderCount(sub.Get()) < 1)
            continue;

        std::unique_ptr<TPSTFolder> folder;
        if (containerClass == QLatin1String("IPF.Contact"))
            folder = std::make_unique<TPSTContactFolder>(m_store, FileContext(), std::move(sub));
        else if (containerClass == QLatin1String("IPF.Appointment"))
            folder = std::make_unique<TPSTAppointmentFolder>(m_store, FileContext(), std::move(sub));
        else
            folder = std::make_unique<TPSTMailFolder>(m_store, FileContext(), std::move(sub));
        m_folders->push_back(std::move(folder));
    }
}

std::shared_ptr<TPSTDetailItem> TPSTFolder::CreateItem(int index, TPffItemHandle item)
{
    return std::make_shared<TPSTMailItem>(this, index, FileContext(), std::move(item));
}

std::shared_ptr<TPSTDetailItem> TPSTMailFolder::CreateItem(int index, TPffItemHandle item)
{
    uint8_t type = 0;
    if (libpff_item_get_type(item.Get(), &type, nullptr) == 1 && type == MeetingItemType)
        return std::make_shared<TPSTMeetingItem>(this, index, FileContext(), std::move(item));
    return std::make_shared<TPSTMailItem>(this, index, FileContext(), std::move(item));
}

std::shared_ptr<TPSTDetailItem> TPSTContactFolder::CreateItem(int index, TPffItemHandle item)
{
    return std::make_shared<TPSTContactItem>(this, index, FileContext(), std::move(item));
}

std::shared_ptr<TPSTDetailItem> TPSTAppointmentFolder::CreateItem(int index, TPffItemHandle item)
{
    return std::make_shared<TPSTMeetingItem>(this, index, FileContext(), std::move(item));
}

int TPSTFolder::ItemCount()
{
    std::lock_guard lock(FileContext()->Lock);
    if (m_items)
        return int(m_items->size());
    // Counted on a fresh clone, so that the folder's own item does not start
    // caching its sub-items.
    TPffItemHandle clone;
    if (libpff_item_clone(clone.Out(), Handle(), nullptr) != 1 || !clone)
        return 0;
    int count = 0;
    if (libpff_folder_get_number_of_sub_messages(clone.Get(), &count, nullptr) != 1)
        return 0;
    return std::max(0, count);
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
    if (!m_items) {
        const int count = ItemCount();
        m_items.emplace(size_t(count));
    }
    if (index < 0 || index >= int(m_items->size()))
        throw std::out_of_range("item index out of range");
    TSlot& slot = (*m_items)[size_t(index)];
    if (auto item = slot.weak.lock())
        return item;
    TPffItemHandle sub;
    if (libpff_folder_get_sub_message(Handle(), index, sub.Out(), nullptr) != 1 || !sub)
        return nullptr;
    auto item = CreateItem(index, std::move(sub));
    Keep(slot, item, m_cached);
    return item;
}

void TPSTFolder::PrepareItems()
{
    if (m_items)
        return;
    m_items.emplace();
    int count = 0;
    if (libpff_folder_get_number_of_sub_messages(Handle(), &count, nullptr) != 1)
        return;
    for (int i = 0; i < count; ++i) {
        TPffItemHandle sub;
        if (libpff_folder_get_sub_message(Handle(), i, sub.Out(), nullptr) != 1 || !sub)
            continue;
        const int index = int(m_items->size());
        auto item = CreateItem(index, std::move(sub));
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
    if (initItem && m_srcItem) {
        TPffItemHandle fresh;
        if (libpff_item_clone(fresh.Out(), m_srcItem.Get(), nullptr) != 1 || !fresh)
            throw core::ETessalyError(QStringLiteral("Can not clear items"));
        ReplaceHandle(std::move(fresh));
    }
}

TPSTRootFolder::TPSTRootFolder(TPSTMessageStore* store, TPSTFileContextPtr file, TPffItemHandle item)
    : TPSTMailFolder(store, std::move(file), std::move(item))
{
    m_name = ReadString(Handle(), 0, pid::DisplayName, NameChars);
}

} // namespace tessaly::pst
