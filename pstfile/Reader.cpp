#include "pstfile/Reader.h"

#include "core/Charset.h"
#include "pstfile/Endian.h"

#include <algorithm>
#include <cstring>

namespace tessaly::pstfile {

namespace {

constexpr uint32_t nidRecipients = MakeNid(nidRecipientTable, 0x34);  // 0x692
constexpr uint32_t nidAttachments = MakeNid(nidAttachmentTable, 0x33); // 0x671
constexpr uint16_t FirstNamedId = 0x8000;

QUuid GuidFromBytes(const char* p)
{
    return QUuid(Get32(p), Get16(p + 4), Get16(p + 6), uchar(p[8]), uchar(p[9]), uchar(p[10]), uchar(p[11]),
        uchar(p[12]), uchar(p[13]), uchar(p[14]), uchar(p[15]));
}

// The property context of a node, or invalid properties.
TProperties OpenProperties(std::shared_ptr<const TPstFile> file, const TNodeScope& scope)
{
    auto pc = TPropertyContext::Open(scope);
    if (!pc)
        return {};
    return TProperties(std::move(file), std::make_shared<const TPropertyContext>(std::move(*pc)));
}

} // namespace

// --- name-to-id map ------------------------------------------------------------------

void TNameMap::Load(const TPropertyContext& pc)
{
    auto stream = [&](uint16_t id) {
        const TPropEntry* e = pc.Find(id);
        auto value = e ? pc.Value(*e, 64 << 20) : std::nullopt;
        return value ? *value : QByteArray();
    };
    const QByteArray guids = stream(0x0002), entries = stream(0x0003), strings = stream(0x0004);
    for (qsizetype at = 0; at + qsizetype(sizeof(TNameIdEntry)) <= entries.size(); at += sizeof(TNameIdEntry)) {
        const auto e = pstfile::Load<TNameIdEntry>(entries.constData() + at);
        TNamedId named;
        const uint32_t guidIndex = e.wGuid >> 1;
        if (guidIndex == 1) {
            named.guid = PS_MAPI();
        } else if (guidIndex == 2) {
            named.guid = PS_PUBLIC_STRINGS();
        } else if (guidIndex >= 3) {
            const qsizetype g = qsizetype(guidIndex - 3) * 16;
            if (g + 16 > guids.size())
                continue;
            named.guid = GuidFromBytes(guids.constData() + g);
        }
        if (e.wGuid & 1) {
            named.isString = true;
            const qsizetype s = qsizetype(e.dwPropertyID);
            if (s + 4 > strings.size())
                continue;
            const uint32_t length = Get32(strings.constData() + s);
            if (length > uint32_t(strings.size() - s - 4))
                continue;
            named.name = QString::fromUtf16(reinterpret_cast<const char16_t*>(strings.constData() + s + 4), length / 2);
        } else {
            named.lid = e.dwPropertyID;
        }
        const uint16_t id = uint16_t(FirstNamedId + e.wPropIdx);
        if (!named.isString)
            m_numbered.emplace(std::pair(named.guid, named.lid), id); // the first entry counts
        m_ids.emplace(id, std::move(named));
    }
}

std::optional<uint16_t> TNameMap::Id(const QUuid& set, uint32_t lid) const
{
    const auto it = m_numbered.find(std::pair(set, lid));
    return it == m_numbered.end() ? std::nullopt : std::optional<uint16_t>(it->second);
}

const TNamedId* TNameMap::Find(uint16_t id) const
{
    const auto it = m_ids.find(id);
    return it == m_ids.end() ? nullptr : &it->second;
}

// --- properties -------------------------------------------------------------------------

TProperties::TProperties(std::shared_ptr<const TPstFile> file, std::shared_ptr<const TPropertyContext> pc)
    : m_file(std::move(file)), m_pc(std::move(pc))
{
}

TProperties::TProperties(std::shared_ptr<const TPstFile> file, std::vector<TPropValue> values)
    : m_file(std::move(file)), m_values(std::move(values)), m_isRow(true)
{
    std::stable_sort(m_values.begin(), m_values.end(), [](const TPropValue& a, const TPropValue& b) { return a.id < b.id; });
}

std::vector<TPropEntry> TProperties::Entries() const
{
    if (m_pc)
        return m_pc->Entries();
    std::vector<TPropEntry> out;
    for (size_t i = 0; i < m_values.size(); ++i)
        out.push_back({m_values[i].id, m_values[i].type, uint32_t(i)});
    return out;
}

std::optional<TPropEntry> TProperties::FindRaw(uint16_t id) const
{
    if (m_pc) {
        const TPropEntry* e = m_pc->Find(id);
        return e ? std::optional<TPropEntry>(*e) : std::nullopt;
    }
    for (size_t i = 0; i < m_values.size(); ++i)
        if (m_values[i].id == id)
            return TPropEntry{id, m_values[i].type, uint32_t(i)};
    return std::nullopt;
}

std::optional<TPropEntry> TProperties::Find(uint16_t id) const
{
    if (id < FirstNamedId || !m_file)
        return FindRaw(id);
    const TNameMap& names = m_file->NameMap();
    // A property of a known set has the id the map gives that set's number;
    // without an entry, the number stands for itself unless the map gives
    // it to another property.
    if (const QUuid set = NamedPropertySet(id); !set.isNull()) {
        if (const auto mapped = names.Id(set, id))
            return FindRaw(*mapped);
        return names.Find(id) ? std::nullopt : FindRaw(id);
    }
    // Any other is found by the number its name-to-id map entry gives; an
    // id without an entry in the map stands for itself.
    std::optional<TPropEntry> raw;
    auto consider = [&](const TPropEntry& e) {
        const TNamedId* named = names.Find(e.id);
        const bool numbered = named && !named->isString;
        if (numbered && named->lid == id)
            return true;
        if (e.id == id && !numbered)
            raw = e;
        return false;
    };
    if (m_pc) {
        const auto& entries = m_pc->Entries(); // sorted by id: the named ones last
        for (auto it = std::lower_bound(entries.begin(), entries.end(), FirstNamedId,
                 [](const TPropEntry& e, uint16_t i) { return e.id < i; });
             it != entries.end(); ++it)
            if (consider(*it))
                return *it;
        return raw;
    }
    for (size_t i = 0; i < m_values.size(); ++i) {
        const TPropEntry e{m_values[i].id, m_values[i].type, uint32_t(i)};
        if (e.id >= FirstNamedId && consider(e))
            return e;
    }
    return raw;
}

std::optional<QByteArray> TProperties::Value(const TPropEntry& entry, qint64 maxBytes) const
{
    if (m_pc)
        return m_pc->Value(entry, maxBytes);
    if (entry.hnid >= m_values.size())
        return std::nullopt;
    return m_values[entry.hnid].data;
}

std::optional<TSubnodeEntry> TProperties::ValueNode(const TPropEntry& entry) const
{
    return m_pc ? m_pc->ValueNode(entry) : std::nullopt;
}

std::optional<QByteArray> TProperties::Bytes(uint16_t id, qint64 maxBytes) const
{
    const auto e = Find(id);
    return e ? Value(*e, maxBytes) : std::nullopt;
}

std::optional<uint32_t> TProperties::Int32(uint16_t id) const
{
    const auto e = Find(id);
    if (!e)
        return std::nullopt;
    const auto v = Value(*e);
    if (!v)
        return std::nullopt;
    switch (e->type) {
    case ptLong: case ptError: return v->size() >= 4 ? std::optional<uint32_t>(Get32(v->constData())) : std::nullopt;
    case ptShort: return v->size() >= 2 ? std::optional<uint32_t>(Get16(v->constData())) : std::nullopt;
    case ptBoolean: return v->size() >= 1 ? std::optional<uint32_t>(uint8_t(v->at(0))) : std::nullopt;
    default: return std::nullopt;
    }
}

std::optional<bool> TProperties::Bool(uint16_t id) const
{
    const auto v = Int32(id);
    return v ? std::optional<bool>(*v != 0) : std::nullopt;
}

uint64_t TProperties::Filetime(uint16_t id) const
{
    const auto e = Find(id);
    if (!e || (e->type != ptSysTime && e->type != ptInt64))
        return 0;
    const auto v = Value(*e);
    return v && v->size() == 8 ? Get64(v->constData()) : 0;
}

QString TProperties::DecodeString(const TPropEntry& entry, const QByteArray& data) const
{
    if (entry.type == ptUnicode) {
        qsizetype chars = data.size() / 2;
        const auto* p = reinterpret_cast<const char16_t*>(data.constData());
        while (chars > 0 && p[chars - 1] == 0)
            --chars;
        return QString::fromUtf16(p, chars);
    }
    QByteArray bytes = data;
    while (!bytes.isEmpty() && bytes.back() == '\0')
        bytes.chop(1);
    return core::DecodeCodePage(bytes, m_file ? m_file->CodePage() : 1252);
}

std::optional<QString> TProperties::String(uint16_t id) const
{
    const auto e = Find(id);
    if (!e || (e->type != ptUnicode && e->type != ptString8))
        return std::nullopt;
    const auto v = Value(*e);
    if (!v)
        return std::nullopt;
    return DecodeString(*e, *v);
}

QByteArray TProperties::Binary(uint16_t id) const
{
    const auto e = Find(id);
    if (!e || e->type != ptBinary)
        return {};
    const auto v = Value(*e);
    return v ? *v : QByteArray();
}

// --- messages -----------------------------------------------------------------------------

TMessage::TMessage(std::shared_ptr<const TPstFile> file, uint32_t nid, TNodeScope scope)
    : m_file(std::move(file)), m_nid(nid), m_scope(std::move(scope))
{
}

const TProperties& TMessage::Properties() const
{
    if (!m_props)
        m_props = OpenProperties(m_file, m_scope);
    return *m_props;
}

std::optional<TTableContext> TMessage::OpenTable(uint32_t nid) const
{
    const auto node = m_scope.Subnode(nid);
    if (!node)
        return std::nullopt;
    return TTableContext::Open(TNodeScope(m_scope.Ndb(), node->bidData, node->bidSub));
}

std::vector<TProperties> TMessage::Rows(uint32_t nid) const
{
    std::vector<TProperties> rows;
    const auto table = OpenTable(nid);
    if (!table)
        return rows;
    for (size_t r = 0; r < table->RowCount(); ++r) {
        const QByteArray row = table->Row(r);
        if (row.isEmpty())
            continue;
        std::vector<TPropValue> values;
        for (const auto& column : table->Columns()) {
            const auto cell = table->Cell(row, column, 64 << 20);
            if (cell)
                values.push_back({TagId(column.tag), TagType(column.tag), *cell});
        }
        rows.emplace_back(m_file, std::move(values));
    }
    return rows;
}

std::vector<TProperties> TMessage::Recipients() const { return Rows(nidRecipients); }

std::vector<TProperties> TMessage::AttachmentRows() const { return Rows(nidAttachments); }

size_t TMessage::AttachmentCount() const
{
    if (!m_attachIds) {
        m_attachIds.emplace();
        if (const auto table = OpenTable(nidAttachments)) {
            for (size_t r = 0; r < table->RowCount(); ++r)
                if (const auto id = table->RowId(r))
                    m_attachIds->push_back(*id);
        }
    }
    return m_attachIds->size();
}

std::unique_ptr<TAttachment> TMessage::OpenAttachment(size_t index) const
{
    if (index >= AttachmentCount())
        return nullptr;
    const uint32_t nid = (*m_attachIds)[index];
    const auto node = m_scope.Subnode(nid);
    if (!node)
        return nullptr;
    return std::make_unique<TAttachment>(m_file, nid, TNodeScope(m_scope.Ndb(), node->bidData, node->bidSub));
}

// --- attachments --------------------------------------------------------------------------

TAttachment::TAttachment(std::shared_ptr<const TPstFile> file, uint32_t nid, TNodeScope scope)
    : m_file(std::move(file)), m_nid(nid), m_scope(std::move(scope))
{
}

const TProperties& TAttachment::Properties() const
{
    if (!m_props)
        m_props = OpenProperties(m_file, m_scope);
    return *m_props;
}

uint32_t TAttachment::Method() const { return Properties().Int32(pid::AttachMethod).value_or(0); }

std::unique_ptr<TMessage> TAttachment::Embedded() const
{
    const auto e = Properties().FindRaw(pid::AttachDataBin);
    if (!e || e->type != ptObject)
        return nullptr;
    const auto value = Properties().Value(*e);
    if (!value || value->size() < 4)
        return nullptr;
    const uint32_t nid = Get32(value->constData());
    const auto node = m_scope.Subnode(nid);
    if (!node)
        return nullptr;
    return std::make_unique<TMessage>(m_file, nid, TNodeScope(m_scope.Ndb(), node->bidData, node->bidSub));
}

void TAttachment::LoadData() const
{
    if (m_dataLoaded)
        return;
    m_dataLoaded = true;
    const auto e = Properties().FindRaw(pid::AttachDataBin);
    if (!e || e->type != ptBinary)
        return;
    const auto node = Properties().ValueNode(*e);
    if (!node) {
        auto value = Properties().Value(*e);
        if (value) {
            m_inline = std::move(*value);
            m_dataOk = true;
        }
        return;
    }
    auto blocks = m_scope.Ndb().DataBlocks(node->bidData);
    if (!blocks)
        return;
    qint64 offset = 0;
    m_offsets.push_back(0);
    for (uint64_t bid : *blocks) {
        const auto size = m_scope.Ndb().BlockSize(bid);
        if (!size || IsInternalBid(bid)) {
            m_offsets.clear();
            return;
        }
        offset += *size;
        m_offsets.push_back(offset);
    }
    m_blocks = std::move(*blocks);
    m_dataOk = true;
}

qint64 TAttachment::DataSize() const
{
    LoadData();
    if (!m_dataOk)
        return 0;
    return m_blocks.empty() ? m_inline.size() : m_offsets.back();
}

qint64 TAttachment::ReadData(qint64 offset, char* out, qint64 size) const
{
    LoadData();
    if (!m_dataOk || offset < 0 || size < 0)
        return -1;
    if (m_blocks.empty()) {
        if (offset >= m_inline.size())
            return 0;
        const qint64 n = std::min<qint64>(m_inline.size() - offset, size);
        std::memcpy(out, m_inline.constData() + offset, size_t(n));
        return n;
    }
    qint64 done = 0;
    auto it = std::upper_bound(m_offsets.begin(), m_offsets.end(), offset);
    if (it == m_offsets.begin())
        return -1;
    size_t index = size_t(it - m_offsets.begin()) - 1;
    while (done < size && index < m_blocks.size()) {
        const TBlock block = m_scope.Ndb().ReadBlock(m_blocks[index]);
        if (!block || block->size() != m_offsets[index + 1] - m_offsets[index])
            return done > 0 ? done : -1;
        const qint64 at = offset + done - m_offsets[index];
        const qint64 n = std::min<qint64>(size - done, block->size() - at);
        std::memcpy(out + done, block->constData() + at, size_t(n));
        done += n;
        ++index;
    }
    return done;
}

// --- the file -----------------------------------------------------------------------------

std::shared_ptr<TPstFile> TPstFile::Open(const QString& fileName) { return std::make_shared<TPstFile>(fileName); }

TPstFile::TPstFile(const QString& fileName) : m_ndb(fileName) {}

const TNameMap& TPstFile::NameMap() const
{
    std::call_once(m_nameMapOnce, [&] {
        const auto node = m_ndb.FindNode(nidNameToIdMap);
        if (!node)
            return;
        if (const auto pc = TPropertyContext::Open(TNodeScope(m_ndb, node->bidData, node->bidSub)))
            m_nameMap.Load(*pc);
    });
    return m_nameMap;
}

TProperties TPstFile::Properties(uint32_t nid) const
{
    const auto node = m_ndb.FindNode(nid);
    if (!node)
        return {};
    return OpenProperties(shared_from_this(), TNodeScope(m_ndb, node->bidData, node->bidSub));
}

std::optional<TTableContext> TPstFile::OpenTable(uint32_t nid) const
{
    const auto node = m_ndb.FindNode(nid);
    if (!node)
        return std::nullopt;
    return TTableContext::Open(TNodeScope(m_ndb, node->bidData, node->bidSub));
}

std::optional<std::vector<uint32_t>> TPstFile::TableRowIds(uint32_t tableNid) const
{
    const auto table = OpenTable(tableNid);
    if (!table)
        return std::nullopt;
    std::vector<uint32_t> ids;
    ids.reserve(table->RowCount());
    for (size_t r = 0; r < table->RowCount(); ++r)
        if (const auto id = table->RowId(r))
            ids.push_back(*id);
    return ids;
}

std::vector<uint32_t> TPstFile::ChildrenByParent(uint32_t folder, bool folders) const
{
    std::call_once(m_parentsOnce, [&] {
        m_ndb.ForEachNode([&](const TNodeEntry& node) {
            const uint32_t type = NidType(node.nid);
            if (node.nidParent != 0 && node.nidParent != node.nid
                && (type == nidNormalFolder || type == nidSearchFolder || type == nidNormalMessage))
                m_children[node.nidParent].push_back(node.nid);
        });
    });
    std::vector<uint32_t> out;
    const auto it = m_children.find(folder);
    if (it == m_children.end())
        return out;
    for (uint32_t nid : it->second) {
        const bool isFolder = NidType(nid) != nidNormalMessage;
        if (isFolder == folders)
            out.push_back(nid);
    }
    return out;
}

std::vector<uint32_t> TPstFile::SubFolders(uint32_t folder) const
{
    auto ids = TableRowIds((folder & ~0x1Fu) | nidHierarchyTable);
    std::vector<uint32_t> out = ids ? std::move(*ids) : ChildrenByParent(folder, true);
    // A damaged table may name the folder itself.
    out.erase(std::remove(out.begin(), out.end(), folder), out.end());
    return out;
}

std::vector<uint32_t> TPstFile::Contents(uint32_t folder) const
{
    if (auto ids = TableRowIds((folder & ~0x1Fu) | nidContentsTable))
        return std::move(*ids);
    return ChildrenByParent(folder, false);
}

uint32_t TPstFile::ContentCount(uint32_t folder) const
{
    // The rows of the contents table: its size is known without reading
    // them. The count a folder records may differ: a search folder records
    // the items it finds but has no contents table of its own.
    if (const auto table = OpenTable((folder & ~0x1Fu) | nidContentsTable))
        return uint32_t(table->RowCount());
    return uint32_t(ChildrenByParent(folder, false).size());
}

std::unique_ptr<TMessage> TPstFile::OpenMessage(uint32_t nid) const
{
    const auto node = m_ndb.FindNode(nid);
    if (!node)
        return nullptr;
    return std::make_unique<TMessage>(shared_from_this(), nid, TNodeScope(m_ndb, node->bidData, node->bidSub));
}

} // namespace tessaly::pstfile
