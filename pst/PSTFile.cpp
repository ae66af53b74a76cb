#include "pst/PSTFile.h"

#include "platform/CodePage.h"
#include "pst/PSTProperty.h"
#include "pstfile/Endian.h"
#include "pstfile/PropTags.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>
#include <algorithm>
#include <iterator>

namespace tessaly::pst {

namespace {

Q_LOGGING_CATEGORY(lcOpen, "tessaly.pst.open")

TPSTOpenError FromReader(pstfile::TPstFileFault fault)
{
    switch (fault) {
    case pstfile::TPstFileFault::PermissionDenied:
        return oeNoPermission;
    case pstfile::TPstFileFault::NotDataFile:
        return oeNotDataFile;
    case pstfile::TPstFileFault::DamagedHeader:
        return oeDamagedHeader;
    case pstfile::TPstFileFault::CannotOpen:
        break;
    }
    return oeCannotOpen;
}

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

TPSTMessageStore::TPSTMessageStore(TPSTFile& file, pstfile::TProperties props)
    : TPSTItem(file.Context(), pstfile::nidMessageStore, std::move(props)), m_file(file)
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
    const QByteArray data = ReadBinary(Props(), tag);
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
    pstfile::TPstFile* file = m_file.Reader();
    if (!file)
        return nullptr;
    // The root named by the store, else the root of the folder hierarchy.
    uint32_t id = m_file.IsOST() ? OstRootID : EntryDescriptor(RootEntryTag);
    if (id == 0 || !file->Ndb().FindNode(id))
        id = pstfile::nidRootFolder;
    pstfile::TProperties props = file->Properties(id);
    if (!props.IsValid())
        return nullptr;
    return std::make_unique<TPSTRootFolder>(this, m_file.Context(), id, std::move(props));
}

// --- reasons ---------------------------------------------------------------

QString OpenErrorText(TPSTOpenError error)
{
    switch (error) {
    case oeNone:
        break;
    case oeNotFound:
        return QCoreApplication::translate("TPSTFile", "The file does not exist.");
    case oeFolder:
        return QCoreApplication::translate("TPSTFile", "This is a folder, not a file.");
    case oeNoPermission:
        return QCoreApplication::translate("TPSTFile", "Permission denied: the file cannot be read.");
    case oeEmpty:
        return QCoreApplication::translate("TPSTFile", "The file is empty.");
    case oeNotDataFile:
        return QCoreApplication::translate("TPSTFile", "This is not an Outlook data file (.pst or .ost).");
    case oeDamagedHeader:
        return QCoreApplication::translate("TPSTFile", "The file's header is damaged.");
    case oeCannotOpen:
        return QCoreApplication::translate("TPSTFile", "The system could not open the file.");
    case oeNoFolders:
        return QCoreApplication::translate("TPSTFile", "The file is damaged: its folders cannot be read.");
    }
    return {};
}

TPSTOpenError CheckFileAccess(const QString& fileName)
{
    const QFileInfo info(fileName);
    if (!info.exists())
        return oeNotFound;
    if (info.isDir())
        return oeFolder;
    if (!info.isReadable())
        return oeNoPermission;
    if (info.size() == 0)
        return oeEmpty;
    return oeNone;
}

// --- TPSTFile -------------------------------------------------------------

TPSTFile::TPSTFile(const QString& fileName)
    : m_fileName(fileName), m_caption(QFileInfo(fileName).completeBaseName()), m_displayCaption(m_caption)
{
    const auto fail = [this](TPSTOpenError error, const QString& detail) {
        m_openError = error;
        qCWarning(lcOpen, "%s cannot be opened: %s%s", qUtf8Printable(QDir::toNativeSeparators(m_fileName)),
            qUtf8Printable(OpenErrorText(error)), qUtf8Printable(detail.isEmpty() ? detail : QStringLiteral(" (") + detail + QLatin1Char(')')));
    };
    if (const TPSTOpenError error = CheckFileAccess(fileName); error != oeNone) {
        fail(error, {});
        return;
    }
    auto context = std::make_shared<TPSTFileContext>();
    try {
        context->File = pstfile::TPstFile::Open(fileName); // read only, always
    } catch (const pstfile::EPstFileError& e) {
        fail(FromReader(e.Fault()), e.Message()); // no root folder: the file cannot be read
        return;
    }
    m_context = std::move(context);
    m_isOST = m_context->File->IsOst();

    if (TPSTMessageStore* store = MessageStore())
        m_root = store->Root();
    if (!m_root)
        fail(oeNoFolders, {});

    // The root's name above is read with the default code page (1252); only
    // then does a 32-bit file get the user's.
    m_is64 = m_context->File->IsUnicode();
    if (!m_is64)
        SetAsciiCodePage(platform::DefaultAnsiCodePage());
}

// Folders and the store go first; the file stays open for as long as any
// item handed out still lives.
TPSTFile::~TPSTFile()
{
    m_root.reset();
    m_store.reset();
}

TPSTMessageStore* TPSTFile::MessageStore()
{
    if (!m_store && IsOpen()) {
        pstfile::TProperties props = Reader()->Store();
        if (props.IsValid())
            m_store = std::make_unique<TPSTMessageStore>(*this, std::move(props));
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
    return Reader() ? Reader()->CodePage() : 0;
}

bool TPSTFile::SetAsciiCodePage(int codePage)
{
    // The code pages of 8-bit strings that Windows versions of Outlook write.
    static const int Known[] = {20127, 874, 932, 936, 949, 950, 1250, 1251, 1252, 1253, 1254, 1255, 1256, 1257, 1258};
    if (!Reader() || std::find(std::begin(Known), std::end(Known), codePage) == std::end(Known))
        return false;
    Reader()->SetCodePage(codePage);
    return true;
}

} // namespace tessaly::pst
