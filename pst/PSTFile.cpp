#include "pst/PSTFile.h"

#include "platform/CodePage.h"
#include "pst/PffProperty.h"
#include "pstfile/Endian.h"
#include "pstfile/PropTags.h"

#include <QFile>
#include <QFileInfo>
#include <string>

namespace tessaly::pst {

namespace {

// Special folders of an OST by kind (inbox, sent, drafts, trash, outbox, other).
constexpr std::array<uint32_t, 6> OstFolderIDs = {0x2182, 0x21C2, 0x8102, 0x2162, 0x2112, 0};
// Store properties holding the entry identifiers of a PST's special folders.
constexpr std::array<uint32_t, 6> PstFolderTags = {0, pstfile::pid::IpmSentMailEntryId, 0,
    pstfile::pid::IpmWastebasketEntryId, pstfile::pid::IpmOutboxEntryId, 0};
constexpr uint32_t PstInboxID = 0x8082;
constexpr uint32_t PstDraftsID = 0x81C2;
constexpr uint32_t OstRootID = 0x2142;
constexpr uint32_t RootEntryTag = 0x8022;

} // namespace

// --- TPSTMessageStore --------------------------------------------------------

TPSTMessageStore::TPSTMessageStore(TPSTFile& file, TPffItemHandle item)
    : TPSTItem(file.Context(), std::move(item)), m_file(file)
{
    if (file.IsOST()) {
        m_ids = OstFolderIDs;
        return;
    }
    for (size_t kind = 0; kind < m_ids.size(); ++kind)
        m_ids[kind] = PstFolderTags[kind] ? EntryDescriptor(PstFolderTags[kind]) : 0;
    m_ids[fkInbox] = PstInboxID;
    m_ids[fkDrafts] = PstDraftsID;
}

// An entry identifier: 4 bytes of flags, the 16-byte provider id, then the
// 32-bit descriptor of the object (the [MS-PST] form of an entry identifier).
uint32_t TPSTMessageStore::EntryDescriptor(uint32_t tag) const
{
    const QByteArray data = ReadBinary(Handle(), 0, tag);
    if (data.size() < 24)
        return 0;
    return pstfile::Get32(data.constData() + 20);
}

TPSTFolderKind TPSTMessageStore::GetFolderKind(uint32_t id) const
{
    for (size_t kind = 0; kind < m_ids.size(); ++kind)
        if (m_ids[kind] == id)
            return TPSTFolderKind(kind);
    return fkOther;
}

std::unique_ptr<TPSTRootFolder> TPSTMessageStore::Root()
{
    libpff_file_t* file = m_file.Handle();
    if (!file)
        return nullptr;
    const uint32_t id = m_file.IsOST() ? OstRootID : EntryDescriptor(RootEntryTag);
    TPffItemHandle root;
    if (id == 0 || libpff_file_get_item_by_identifier(file, id, root.Out(), nullptr) != 1 || !root) {
        if (libpff_file_get_root_folder(file, root.Out(), nullptr) != 1 || !root)
            return nullptr;
    }
    return std::make_unique<TPSTRootFolder>(this, m_file.Context(), std::move(root));
}

// --- TPSTFile -------------------------------------------------------------

TPSTFile::TPSTFile(const QString& fileName)
    : m_fileName(fileName), m_caption(QFileInfo(fileName).completeBaseName()), m_displayCaption(m_caption)
{
    auto context = std::make_shared<TPSTFileContext>();
    if (libpff_file_initialize(context->Handle.Out(), nullptr) != 1)
        return;
    // Read only, always. Windows takes the name in UTF-16, elsewhere the
    // name is bytes in the file system's encoding.
#ifdef _WIN32
    const std::wstring name = fileName.toStdWString();
    const int opened = libpff_file_open_wide(context->Handle.Get(), name.c_str(), LIBPFF_OPEN_READ, nullptr);
#else
    const QByteArray name = QFile::encodeName(fileName);
    const int opened = libpff_file_open(context->Handle.Get(), name.constData(), LIBPFF_OPEN_READ, nullptr);
#endif
    if (opened != 1)
        return;
    m_context = std::move(context);

    uint8_t contentType = 0;
    m_isOST = libpff_file_get_content_type(Handle(), &contentType, nullptr) == 1
        && contentType == LIBPFF_FILE_CONTENT_TYPE_OST;

    if (TPSTMessageStore* store = MessageStore())
        m_root = store->Root();

    // The root's name above is read with libpff's default code page; only
    // then does a 32-bit file get the user's.
    uint8_t type = 0;
    m_is64 = libpff_file_get_type(Handle(), &type, nullptr) == 1 && type > 32;
    if (!m_is64)
        SetAsciiCodePage(platform::DefaultAnsiCodePage());
}

// Folders and the store go first; the libpff file stays open for as long
// as any item handed out still lives.
TPSTFile::~TPSTFile()
{
    m_root.reset();
    m_store.reset();
}

TPSTMessageStore* TPSTFile::MessageStore()
{
    if (!m_store && IsOpen()) {
        TPffItemHandle item;
        if (libpff_file_get_message_store(Handle(), item.Out(), nullptr) == 1 && item)
            m_store = std::make_unique<TPSTMessageStore>(*this, std::move(item));
    }
    return m_store.get();
}

void TPSTFile::ExpandAll()
{
    std::vector<TPSTFolder*> pending;
    if (m_root)
        pending.push_back(m_root.get());
    while (!pending.empty()) {
        TPSTFolder* folder = pending.back();
        pending.pop_back();
        const int count = folder->FolderCount();
        for (int i = count - 1; i >= 0; --i)
            pending.push_back(folder->GetFolder(i));
    }
}

int TPSTFile::AsciiCodePage() const
{
    int codePage = 0;
    if (!Handle() || libpff_file_get_ascii_codepage(Handle(), &codePage, nullptr) != 1)
        return 0;
    return codePage;
}

bool TPSTFile::SetAsciiCodePage(int codePage)
{
    return Handle() && libpff_file_set_ascii_codepage(Handle(), codePage, nullptr) == 1;
}

} // namespace tessaly::pst
