#include "pstfile/PSTWriter.h"

#include "core/DateTime.h"
#include "core/Exceptions.h"
#include "pstfile/Endian.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace tessaly::pstfile {

namespace {

constexpr uint32_t NidRecipientTable = 0x692,
                   NidAttachmentTable = 0x671, NidHierarchyTemplate = 0x60D, NidContentsTemplate = 0x60E,
                   NidAssocTemplate = 0x60F;

// The special folders keep the identifiers data files have always had.
constexpr uint32_t SpecialNids[] = {MakeNid(nidNormalFolder, 0x401), MakeNid(nidNormalFolder, 0x404),
    MakeNid(nidNormalFolder, 0x405), MakeNid(nidNormalFolder, 0x406), MakeNid(nidNormalFolder, 0x403),
    MakeNid(nidNormalFolder, 0x40E)};

const std::vector<uint32_t> ContentsColumns{Tag(pid::Importance, ptLong), Tag(pid::MessageClass, ptUnicode),
    Tag(pid::Sensitivity, ptLong), Tag(pid::Subject, ptUnicode), Tag(pid::ClientSubmitTime, ptSysTime),
    Tag(pid::SentRepresentingName, ptUnicode), Tag(pid::ConversationTopic, ptUnicode),
    Tag(pid::DisplayCc, ptUnicode), Tag(pid::DisplayTo, ptUnicode), Tag(pid::DeliveryTime, ptSysTime),
    Tag(pid::MessageFlags, ptLong), Tag(pid::MessageSize, ptLong), Tag(pid::MessageStatus, ptLong),
    Tag(pid::LastModificationTime, ptSysTime), Tag(pid::HasAttach, ptBoolean)};

const std::vector<uint32_t> HierarchyColumns{Tag(pid::DisplayName, ptUnicode), Tag(pid::ContentCount, ptLong),
    Tag(pid::ContentUnread, ptLong), Tag(pid::Subfolders, ptBoolean), Tag(pid::ContainerClass, ptUnicode)};

const std::vector<uint32_t> RecipientColumns{Tag(pid::RecipientType, ptLong), Tag(pid::Responsibility, ptBoolean),
    Tag(pid::ObjectType, ptLong), Tag(pid::DisplayType, ptLong), Tag(pid::RowId, ptLong),
    Tag(pid::DisplayName, ptUnicode), Tag(pid::AddrType, ptUnicode), Tag(pid::EmailAddress, ptUnicode),
    Tag(pid::SmtpAddress, ptUnicode), Tag(pid::RecipientDisplayName, ptUnicode)};

const std::vector<uint32_t> AttachmentColumns{Tag(pid::AttachSize, ptLong), Tag(pid::AttachFilename, ptUnicode),
    Tag(pid::AttachMethod, ptLong), Tag(pid::RenderingPosition, ptLong)};

std::vector<uint32_t> WithTags(std::vector<uint32_t> columns, const std::vector<TProp>& props)
{
    for (const TProp& p : props)
        if (std::find(columns.begin(), columns.end(), p.tag) == columns.end())
            columns.push_back(p.tag);
    return columns;
}

QByteArray PackCells(const std::vector<TProp>& props)
{
    QByteArray b;
    for (const TProp& p : props)
        if (std::find(ContentsColumns.begin(), ContentsColumns.end(), p.tag) != ContentsColumns.end())
            b.append(Le32(p.tag)).append(Le32(uint32_t(p.value.size()))).append(p.value);
    return b;
}

std::vector<TProp> UnpackCells(const QByteArray& b)
{
    std::vector<TProp> cells;
    for (qsizetype at = 0; at + 8 <= b.size();) {
        const uint32_t tag = Get32(b.constData() + at), size = Get32(b.constData() + at + 4);
        cells.push_back({tag, b.mid(at + 8, size)});
        at += 8 + qsizetype(size);
    }
    return cells;
}

// Subjects are stored as MAPI keeps them: SOH and the length of the prefix
// ("RE: ") before the text; 1 for none. Readers that expect the marker
// would otherwise take the first character of the subject for it.
void MarkSubject(std::vector<TProp>& props)
{
    for (TProp& p : props)
        if (p.tag == Tag(pid::Subject, ptUnicode) && !(p.value.size() >= 2 && p.value[0] == 1 && p.value[1] == 0))
            p.value = QByteArray("\x01\0\x01\0", 4) + p.value;
}

void SetDefault(std::vector<TProp>& props, uint32_t tag, QByteArray value)
{
    for (const TProp& p : props)
        if (TagId(p.tag) == TagId(tag))
            return;
    props.push_back({tag, std::move(value)});
}

} // namespace

// --- property bags -------------------------------------------------------------

void TPSTPropertyBag::Set(uint32_t tag, QByteArray value)
{
    for (TProp& p : m_props)
        if (TagId(p.tag) == TagId(tag)) {
            p = {tag, std::move(value)};
            return;
        }
    m_props.push_back({tag, std::move(value)});
}

void TPSTPropertyBag::SetString(uint16_t id, const QString& text)
{
    if (!text.isEmpty())
        Set(Tag(id, ptUnicode), Utf16Le(text));
}

void TPSTPropertyBag::SetLong(uint16_t id, int32_t value) { Set(Tag(id, ptLong), Le32(uint32_t(value))); }
void TPSTPropertyBag::SetBool(uint16_t id, bool value) { Set(Tag(id, ptBoolean), QByteArray(1, value ? 1 : 0)); }

void TPSTPropertyBag::SetTime(uint16_t id, const QDateTime& time)
{
    if (time.isValid())
        Set(Tag(id, ptSysTime), Le64(core::QDateTimeToFiletime(time)));
}

void TPSTPropertyBag::SetBinary(uint16_t id, const QByteArray& data)
{
    if (!data.isEmpty())
        Set(Tag(id, ptBinary), data);
}

void TPSTPropertyBag::SetNamed(const QUuid& set, uint32_t lid, uint16_t type, QByteArray value)
{
    m_named.push_back({set, lid, {}, type, std::move(value)});
}

void TPSTPropertyBag::SetNamedString(const QUuid& set, uint32_t lid, const QString& text)
{
    if (!text.isEmpty())
        SetNamed(set, lid, ptUnicode, Utf16Le(text));
}

void TPSTPropertyBag::SetNamedTime(const QUuid& set, uint32_t lid, const QDateTime& time)
{
    if (time.isValid())
        SetNamed(set, lid, ptSysTime, Le64(core::QDateTimeToFiletime(time)));
}

QString TPSTPropertyBag::String(uint16_t id) const
{
    const QByteArray value = Value(id);
    return QString::fromUtf16(reinterpret_cast<const char16_t*>(value.constData()), value.size() / 2);
}

QByteArray TPSTPropertyBag::Value(uint16_t id) const
{
    for (const TProp& p : m_props)
        if (TagId(p.tag) == id)
            return p.value;
    return {};
}

void TPSTMessage::SetSender(const QString& name, const QString& addrType, const QString& email, const QString& smtp)
{
    SetString(pid::SenderName, name);
    SetString(pid::SenderAddrType, addrType);
    SetString(pid::SenderEmail, email);
    SetString(pid::SenderSmtpAddress, smtp);
    SetString(pid::SentRepresentingName, name);
    SetString(pid::SentRepresentingAddrType, addrType);
    SetString(pid::SentRepresentingEmail, email);
    SetString(pid::SentRepresentingSmtpAddress, smtp);
}

TPSTRecipient& TPSTMessage::AddRecipient(int kind, const QString& name, const QString& addrType, const QString& email,
    const QString& smtp)
{
    TPSTRecipient& r = recipients.emplace_back();
    r.SetLong(pid::RecipientType, kind);
    r.SetString(pid::DisplayName, name);
    r.SetString(pid::RecipientDisplayName, name);
    r.SetString(pid::AddrType, addrType);
    r.SetString(pid::EmailAddress, email);
    r.SetString(pid::SmtpAddress, smtp);
    return r;
}

TPSTAttachment& TPSTMessage::AddAttachment(const QString& name, const QByteArray& data, const QString& mimeType)
{
    TPSTAttachment& a = attachments.emplace_back();
    a.SetString(pid::AttachLongFilename, name);
    a.SetString(pid::AttachFilename, name);
    a.SetString(pid::DisplayName, name);
    a.SetString(pid::AttachMimeTag, mimeType);
    a.SetLong(pid::AttachMethod, 1);
    a.data = data;
    return a;
}

TPSTAttachment& TPSTMessage::AddEmbedded(std::shared_ptr<TPSTMessage> message)
{
    TPSTAttachment& a = attachments.emplace_back();
    a.SetString(pid::DisplayName, message->String(pid::Subject));
    a.SetLong(pid::AttachMethod, 5);
    a.embedded = std::move(message);
    return a;
}

void TPSTMessage::SetBodies(const QString& text, const QByteArray& htmlUtf8, const QByteArray& rtf)
{
    SetString(pid::Body, text);
    if (!htmlUtf8.isEmpty()) {
        SetBinary(pid::Html, htmlUtf8);
        SetLong(pid::InternetCodepage, 65001);
    }
    if (!rtf.isEmpty()) {
        SetBinary(pid::RtfCompressed, CompressRtf(rtf));
        SetBool(pid::RtfInSync, true);
    }
}

QByteArray CompressRtf(const QByteArray& rtf)
{
    // Groups of eight literal tokens under a zero control byte; the stream
    // ends with a reference to the dictionary's own write position.
    constexpr int InitialDictionary = 207;
    QByteArray data;
    data.reserve(rtf.size() + rtf.size() / 8 + 4);
    qsizetype at = 0;
    for (;;) {
        const qsizetype n = std::min<qsizetype>(8, rtf.size() - at);
        if (n == 8) {
            data.append('\0').append(rtf.constData() + at, 8);
            at += 8;
            continue;
        }
        const uint16_t end = uint16_t(((InitialDictionary + rtf.size()) % 4096) << 4);
        data.append(char(1 << n)).append(rtf.constData() + at, n);
        data.append(char(end >> 8)).append(char(end & 0xFF));
        break;
    }
    QByteArray out = Le32(uint32_t(data.size() + 12));
    out.append(Le32(uint32_t(rtf.size())));
    out.append(Le32(0x75465A4C)); // "LZFu"
    out.append(Le32(Crc(data.constData(), size_t(data.size()))));
    out.append(data);
    return out;
}

// --- the writer ------------------------------------------------------------------

TPSTWriter::TPSTWriter(const QString& fileName, const QString& storeName, const QUuid& storeId,
    const TPSTWriterOptions& options)
    : m_options(options), m_ndb(fileName, options.cryptMethod), m_storeName(storeName), m_storeId(storeId)
{
    m_folders[RootFolder] = {RootFolder, {}, {}, {}, {}, {}, {}};
    static const char* const Names[] = {"Top of Personal Folders", "Inbox", "Outbox", "Sent Items", "Deleted Items",
        "Drafts"};
    m_folders[SpecialNids[0]] = {RootFolder, QString::fromLatin1(Names[0]), {}, {}, {}, {}, {}};
    m_folders[RootFolder].children.push_back(SpecialNids[0]);
    for (int i = 1; i < 6; ++i) {
        m_folders[SpecialNids[i]] = {SpecialNids[0], QString::fromLatin1(Names[i]), QStringLiteral("IPF.Note"), {}, {}, {}, {}};
        m_folders[SpecialNids[0]].children.push_back(SpecialNids[i]);
    }
    // Readers expect every stream of the name-to-id map to hold data, so the
    // map starts with properties that every store may use.
    NamedId({PSETID_Address(), pid::Email1Address, {}, ptUnicode, {}});
    NamedId({PSETID_Appointment(), pid::Location, {}, ptUnicode, {}});
    NamedId({PS_PUBLIC_STRINGS(), 0, QStringLiteral("Keywords"), ptUnicode, {}});
}

TPSTWriter::~TPSTWriter()
{
    if (!m_finished)
        m_ndb.Abort();
}

uint32_t TPSTWriter::SpecialFolder(TPSTSpecialFolder folder) const { return SpecialNids[folder]; }

uint32_t TPSTWriter::AddFolder(uint32_t parent, const QString& name, const QString& containerClass)
{
    const auto it = m_folders.find(parent);
    if (it == m_folders.end())
        throw core::ETessalyError(QStringLiteral("No folder %1 to add \"%2\" to").arg(parent).arg(name));
    const uint32_t nid = MakeNid(nidNormalFolder, m_nextFolder++);
    it->second.children.push_back(nid);
    m_folders[nid] = {parent, name, containerClass, {}, {}, {}, {}};
    return nid;
}

void TPSTWriter::RenameFolder(uint32_t folder, const QString& name)
{
    if (const auto it = m_folders.find(folder); it != m_folders.end())
        it->second.name = name;
}

uint32_t TPSTWriter::FindFolder(uint32_t parent, const QString& name) const
{
    const auto it = m_folders.find(parent);
    if (it == m_folders.end())
        return 0;
    for (uint32_t child : it->second.children)
        if (m_folders.at(child).name.compare(name, Qt::CaseInsensitive) == 0)
            return child;
    return 0;
}

TSubnodeSink TPSTWriter::Sink(TSubnodes& subnodes)
{
    return [this, &subnodes](const std::vector<QByteArray>& blocks) {
        const uint32_t nid = MakeNid(nidLtp, m_nextLtp++);
        subnodes.push_back({nid, m_ndb.WriteBlocks(blocks), 0});
        return nid;
    };
}

uint16_t TPSTWriter::NamedId(const TNamedProperty& named)
{
    const QString key = named.set.toString() + QLatin1Char('/')
        + (named.name.isEmpty() ? QString::number(named.lid) : QLatin1Char('"') + named.name);
    if (const auto it = m_namedIds.constFind(key); it != m_namedIds.constEnd())
        return *it;
    // A numbered property keeps its own number as its id where it can, as
    // Outlook's own files commonly have it for the address and calendar sets.
    uint16_t id = 0;
    if (named.name.isEmpty() && named.lid >= 0x8000 && named.lid < 0xC000) {
        const bool taken = std::any_of(m_namedList.begin(), m_namedList.end(),
            [&](const auto& entry) { return entry.first == named.lid; });
        if (!taken)
            id = uint16_t(named.lid);
    }
    if (!id) {
        if (m_nextNamed == 0xFFFF)
            throw core::ETessalyError(QStringLiteral("Too many named properties"));
        id = m_nextNamed++;
    }
    m_namedIds.insert(key, id);
    m_namedList.emplace_back(id, named);
    return id;
}

std::vector<TProp> TPSTWriter::Resolve(const TPSTPropertyBag& bag)
{
    std::vector<TProp> props = bag.Props();
    for (const TNamedProperty& named : bag.Named())
        props.push_back({Tag(NamedId(named), named.type), named.value});
    return props;
}

TPSTWriter::TNodeData TPSTWriter::WriteMessage(const TPSTMessage& message, std::vector<TProp> extra)
{
    TSubnodes subnodes;
    const TSubnodeSink sink = Sink(subnodes);
    uint64_t size = 0;

    std::vector<TTableRow> rows;
    std::vector<TProp> all;
    for (size_t i = 0; i < message.recipients.size(); ++i) {
        std::vector<TProp> cells = Resolve(message.recipients[i]);
        SetDefault(cells, Tag(pid::RowId, ptLong), Le32(uint32_t(i)));
        SetDefault(cells, Tag(pid::ObjectType, ptLong), Le32(6)); // a mail user
        SetDefault(cells, Tag(pid::DisplayType, ptLong), Le32(0));
        SetDefault(cells, Tag(pid::Responsibility, ptBoolean), QByteArray(1, '\0'));
        for (const TProp& c : cells)
            size += uint64_t(c.value.size());
        all.insert(all.end(), cells.begin(), cells.end());
        rows.push_back({uint32_t(i), std::move(cells)});
    }
    // A table's large values belong to the table's own subnodes.
    auto writeTable = [&](uint32_t nid, const std::vector<uint32_t>& columns) {
        TSubnodes own;
        const uint64_t bidData = m_ndb.WriteBlocks(BuildTableContext(columns, rows, Sink(own)));
        subnodes.push_back({nid, bidData, m_ndb.WriteSubnodes(std::move(own))});
    };
    writeTable(NidRecipientTable, WithTags(RecipientColumns, all));

    if (!message.attachments.empty()) {
        rows.clear();
        all.clear();
        for (size_t k = 0; k < message.attachments.size(); ++k) {
            const TPSTAttachment& attach = message.attachments[k];
            const uint32_t nid = MakeNid(nidAttachment, uint32_t(0x400 + k));
            TSubnodes attachSubnodes;
            const TSubnodeSink attachSink = Sink(attachSubnodes);
            std::vector<TProp> props = Resolve(attach);
            uint64_t attachSize = 0;
            if (attach.embedded) {
                const TNodeData inner = WriteMessage(*attach.embedded, {});
                const uint32_t innerNid = MakeNid(nidLtp, m_nextLtp++); // apart from the folders' messages
                attachSubnodes.push_back({innerNid, inner.bidData, inner.bidSub});
                props.push_back({Tag(pid::AttachDataBin, ptObject), Le32(innerNid) + Le32(inner.size)});
                attachSize = inner.size;
            } else if (!attach.data.isEmpty()) {
                props.push_back({Tag(pid::AttachDataBin, ptBinary), attach.data});
                attachSize = uint64_t(attach.data.size());
            }
            for (const TProp& p : props)
                attachSize += p.tag == Tag(pid::AttachDataBin, ptBinary) ? 0 : uint64_t(p.value.size());
            SetDefault(props, Tag(pid::AttachMethod, ptLong), Le32(attach.embedded ? 5 : 1));
            SetDefault(props, Tag(pid::AttachSize, ptLong), Le32(uint32_t(std::min<uint64_t>(attachSize, 0x7FFFFFFF))));
            SetDefault(props, Tag(pid::RenderingPosition, ptLong), Le32(0xFFFFFFFF));
            size += attachSize;
            const uint64_t bidData = m_ndb.WriteBlocks(BuildPropertyContext(props, attachSink));
            subnodes.push_back({nid, bidData, m_ndb.WriteSubnodes(std::move(attachSubnodes))});
            std::vector<TProp> cells;
            for (const TProp& p : props)
                if (std::find(AttachmentColumns.begin(), AttachmentColumns.end(), p.tag) != AttachmentColumns.end())
                    cells.push_back(p);
            rows.push_back({nid, std::move(cells)});
        }
        writeTable(NidAttachmentTable, AttachmentColumns);
    }

    std::vector<TProp> props = Resolve(message);
    props.insert(props.end(), extra.begin(), extra.end());
    MarkSubject(props);
    for (const TProp& p : props)
        size += uint64_t(p.value.size()) + 8;
    const bool hasAttach = !message.attachments.empty();
    SetDefault(props, Tag(pid::MessageClass, ptUnicode), Utf16Le(QStringLiteral("IPM.Note")));
    SetDefault(props, Tag(pid::MessageFlags, ptLong), Le32(hasAttach ? 0x11 : 0x01)); // read, has attachments
    SetDefault(props, Tag(pid::MessageSize, ptLong), Le32(uint32_t(std::min<uint64_t>(size, 0x7FFFFFFF))));
    SetDefault(props, Tag(pid::HasAttach, ptBoolean), QByteArray(1, hasAttach ? 1 : 0));
    const uint64_t bidData = m_ndb.WriteBlocks(BuildPropertyContext(props, sink));
    return {bidData, m_ndb.WriteSubnodes(std::move(subnodes)), uint32_t(std::min<uint64_t>(size, 0x7FFFFFFF))};
}

void TPSTWriter::AddMessage(uint32_t folder, const TPSTMessage& message)
{
    const auto it = m_folders.find(folder);
    if (it == m_folders.end())
        throw core::ETessalyError(QStringLiteral("No folder %1 to add a message to").arg(folder));
    const TNodeData node = WriteMessage(message, {});
    std::vector<TProp> cells = Resolve(message);
    MarkSubject(cells);
    SetDefault(cells, Tag(pid::MessageClass, ptUnicode), Utf16Le(QStringLiteral("IPM.Note")));
    SetDefault(cells, Tag(pid::MessageSize, ptLong), Le32(node.size));
    SetDefault(cells, Tag(pid::MessageFlags, ptLong), Le32(message.attachments.empty() ? 0x01 : 0x11));
    it->second.rows.push_back(PackCells(cells));
    if (m_options.order == pmoArrival) {
        const uint32_t nid = MakeNid(nidNormalMessage, m_nextMessage++);
        it->second.rowIds.push_back(nid);
        m_ndb.AddNode(nid, node.bidData, node.bidSub, folder);
    } else {
        it->second.blocks.emplace_back(node.bidData, node.bidSub);
    }
    ++m_messageCount;
}

void TPSTWriter::NumberMessages()
{
    // Readers build their tree in node id order and look each parent up
    // from the top, depth first. Folders come first (lower ids), and the
    // messages of the folders last in that order get the lowest message
    // ids, so a lookup never passes the messages already in the tree.
    std::vector<uint32_t> preorder;
    std::vector<uint32_t> pending{RootFolder};
    while (!pending.empty()) {
        const uint32_t nid = pending.back();
        pending.pop_back();
        preorder.push_back(nid);
        // Children go on the stack highest id first, so the lowest comes off next.
        const size_t first = pending.size();
        const std::vector<uint32_t>& children = m_folders.at(nid).children;
        pending.insert(pending.end(), children.begin(), children.end());
        std::sort(pending.begin() + std::ptrdiff_t(first), pending.end(), std::greater<>());
    }
    for (auto it = preorder.rbegin(); it != preorder.rend(); ++it) {
        TFolder& folder = m_folders.at(*it);
        for (const auto& [bidData, bidSub] : folder.blocks) {
            const uint32_t nid = MakeNid(nidNormalMessage, m_nextMessage++);
            folder.rowIds.push_back(nid);
            m_ndb.AddNode(nid, bidData, bidSub, *it);
        }
    }
}

QByteArray TPSTWriter::EntryId(uint32_t nid) const
{
    return QByteArray(4, '\0') + GuidBytes(m_storeId) + Le32(nid);
}

// What a folder's own properties and its row in its parent's table hold.
TPSTPropertyBag TPSTWriter::FolderCells(const TFolder& folder)
{
    TPSTPropertyBag cells;
    cells.SetString(pid::DisplayName, folder.name);
    cells.SetLong(pid::ContentCount, int32_t(folder.rows.size()));
    cells.SetLong(pid::ContentUnread, 0);
    cells.SetBool(pid::Subfolders, !folder.children.empty());
    cells.SetString(pid::ContainerClass, folder.containerClass);
    return cells;
}

void TPSTWriter::WriteFolder(uint32_t nid, const TFolder& folder)
{
    auto writeNode = [&](uint32_t node, const std::function<std::vector<QByteArray>(const TSubnodeSink&)>& build,
                         uint32_t parent) {
        TSubnodes subnodes;
        const uint64_t bidData = m_ndb.WriteBlocks(build(Sink(subnodes)));
        m_ndb.AddNode(node, bidData, m_ndb.WriteSubnodes(std::move(subnodes)), parent);
    };
    TPSTPropertyBag pc = FolderCells(folder);
    if (nid == RootFolder)
        pc.SetBinary(pid::IpmDraftsEntryId, EntryId(SpecialNids[psfDrafts]));
    writeNode(nid, [&](const TSubnodeSink& sink) { return BuildPropertyContext(pc.Props(), sink); }, folder.parent);

    std::vector<TTableRow> rows;
    for (uint32_t child : folder.children) {
        rows.push_back({child, FolderCells(m_folders.at(child)).Props()});
    }
    const uint32_t index = nid >> 5;
    writeNode(MakeNid(nidHierarchyTable, index),
        [&](const TSubnodeSink& sink) { return BuildTableContext(HierarchyColumns, rows, sink); }, 0);
    rows.clear();
    for (size_t i = 0; i < folder.rows.size(); ++i)
        rows.push_back({folder.rowIds[i], UnpackCells(folder.rows[i])});
    writeNode(MakeNid(nidContentsTable, index),
        [&](const TSubnodeSink& sink) { return BuildTableContext(ContentsColumns, rows, sink); }, 0);
    writeNode(MakeNid(nidAssocContentsTable, index),
        [&](const TSubnodeSink& sink) { return BuildTableContext(ContentsColumns, {}, sink); }, 0);
}

void TPSTWriter::WriteStore()
{
    TPSTPropertyBag store;
    store.Set(Tag(pid::RecordKey, ptBinary), GuidBytes(m_storeId));
    store.SetString(pid::DisplayName, m_storeName);
    store.SetBinary(pid::IpmSubtreeEntryId, EntryId(SpecialNids[psfTopOfStore]));
    store.SetBinary(pid::IpmOutboxEntryId, EntryId(SpecialNids[psfOutbox]));
    store.SetBinary(pid::IpmWastebasketEntryId, EntryId(SpecialNids[psfDeletedItems]));
    store.SetBinary(pid::IpmSentMailEntryId, EntryId(SpecialNids[psfSentItems]));
    store.SetLong(pid::ValidFolderMask, 0x1D); // valid: the subtree, outbox, deleted items and sent items ids
    store.SetLong(pid::PstPassword, 0);        // no password
    TSubnodes subnodes;
    const uint64_t bidData = m_ndb.WriteBlocks(BuildPropertyContext(store.Props(), Sink(subnodes)));
    m_ndb.AddNode(nidMessageStore, bidData, m_ndb.WriteSubnodes(std::move(subnodes)), 0);
}

TNameIdStreams BuildNameIdStreams(const std::vector<std::pair<uint16_t, TNamedProperty>>& properties,
    uint32_t bucketCount, const std::function<uint32_t(const QByteArray&)>& stringHash)
{
    TNameIdStreams out;
    out.buckets.resize(bucketCount);
    std::vector<QUuid> guidList;
    for (const auto& [id, named] : properties) {
        uint16_t guidIndex;
        if (named.set == PS_MAPI())
            guidIndex = 1;
        else if (named.set == PS_PUBLIC_STRINGS())
            guidIndex = 2;
        else {
            auto it = std::find(guidList.begin(), guidList.end(), named.set);
            if (it == guidList.end()) {
                guidList.push_back(named.set);
                out.guids.append(GuidBytes(named.set));
                it = guidList.end() - 1;
            }
            guidIndex = uint16_t(3 + (it - guidList.begin()));
        }
        const bool isString = !named.name.isEmpty();
        uint32_t key = named.lid;
        uint32_t hash = named.lid;
        if (isString) {
            key = uint32_t(out.strings.size());
            const QByteArray text = Utf16Le(named.name);
            hash = stringHash(text);
            out.strings.append(Le32(uint32_t(text.size()))).append(text);
            while (out.strings.size() % 4)
                out.strings.append('\0');
        }
        const uint16_t guidField = uint16_t(guidIndex << 1 | (isString ? 1 : 0));
        TNameIdEntry entry{key, guidField, uint16_t(id - 0x8000)};
        Append(out.entries, entry);
        entry.dwPropertyID = hash; // the buckets hold the hash in its place
        Append(out.buckets[(hash ^ guidField) % bucketCount], entry);
    }
    return out;
}

void TPSTWriter::WriteNameMap()
{
    // [MS-PST] 2.4.7: the string names hashed with the file's own CRC.
    constexpr uint32_t Buckets = 251;
    auto sorted = m_namedList;
    std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    const TNameIdStreams streams = BuildNameIdStreams(
        sorted, Buckets, [](const QByteArray& text) { return Crc(text.constData(), size_t(text.size())); });
    TPSTPropertyBag map;
    map.SetLong(pid::NameidBucketCount, int32_t(Buckets));
    map.Set(Tag(pid::NameidStreamGuid, ptBinary), streams.guids);
    map.Set(Tag(pid::NameidStreamEntry, ptBinary), streams.entries);
    map.Set(Tag(pid::NameidStreamString, ptBinary), streams.strings);
    for (uint32_t b = 0; b < Buckets; ++b)
        if (!streams.buckets[b].isEmpty())
            map.Set(Tag(uint16_t(pid::NameidBucketBase + b), ptBinary), streams.buckets[b]);
    TSubnodes subnodes;
    const uint64_t bidData = m_ndb.WriteBlocks(BuildPropertyContext(map.Props(), Sink(subnodes)));
    m_ndb.AddNode(nidNameToIdMap, bidData, m_ndb.WriteSubnodes(std::move(subnodes)), 0);
}

void TPSTWriter::WriteTemplates()
{
    // Empty tables with the usual columns, which new folders and messages copy.
    const std::pair<uint32_t, const std::vector<uint32_t>*> templates[] = {{NidHierarchyTemplate, &HierarchyColumns},
        {NidContentsTemplate, &ContentsColumns}, {NidAssocTemplate, &ContentsColumns},
        {NidAttachmentTable, &AttachmentColumns}, {NidRecipientTable, &RecipientColumns}};
    for (const auto& [nid, columns] : templates) {
        TSubnodes none;
        m_ndb.AddNode(nid, m_ndb.WriteBlocks(BuildTableContext(*columns, {}, Sink(none))), 0, 0);
    }
}

void TPSTWriter::Finish()
{
    NumberMessages();
    for (const auto& [nid, folder] : m_folders)
        WriteFolder(nid, folder);
    WriteStore();
    WriteNameMap();
    WriteTemplates();
    std::array<uint32_t, 32> next{};
    for (uint32_t type = 0; type < 32; ++type)
        next[type] = MakeNid(type, 0x400);
    next[nidNormalFolder] = MakeNid(nidNormalFolder, m_nextFolder);
    next[nidNormalMessage] = MakeNid(nidNormalMessage, m_nextMessage);
    next[nidLtp] = MakeNid(nidLtp, m_nextLtp);
    m_ndb.Finish(next);
    m_finished = true;
}

} // namespace tessaly::pstfile
