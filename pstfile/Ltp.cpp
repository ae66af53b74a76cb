#include "pstfile/Ltp.h"

#include "pstfile/Endian.h"

#include <algorithm>
#include <unordered_set>

namespace tessaly::pstfile {

namespace {

constexpr int MaxBTreeLevels = 8;

bool IsHid(uint32_t hnid) { return NidType(hnid) == nidHid; }

} // namespace

// --- node scope ----------------------------------------------------------------

const std::vector<TSubnodeEntry>& TNodeScope::Subnodes() const
{
    if (!m_subnodes) {
        auto list = m_ndb->ReadSubnodes(m_bidSub);
        m_subnodes = std::make_shared<std::vector<TSubnodeEntry>>(list ? std::move(*list) : std::vector<TSubnodeEntry>());
    }
    return *m_subnodes;
}

std::optional<TSubnodeEntry> TNodeScope::Subnode(uint32_t nid) const
{
    const auto& list = Subnodes();
    const auto it = std::lower_bound(list.begin(), list.end(), nid,
        [](const TSubnodeEntry& e, uint32_t n) { return e.nid < n; });
    if (it == list.end() || it->nid != nid)
        return std::nullopt;
    return *it;
}

// --- heap-on-node ----------------------------------------------------------------

std::optional<THeap> THeap::Open(const TNodeScope& scope)
{
    const auto blocks = scope.Ndb().DataBlocks(scope.BidData());
    if (!blocks || blocks->empty())
        return std::nullopt;
    THeap heap(scope);
    for (uint64_t bid : *blocks) {
        TBlock page = scope.Ndb().ReadBlock(bid);
        if (!page || IsInternalBid(bid))
            return std::nullopt;
        heap.m_pages.push_back(std::move(page));
    }
    const QByteArray& first = *heap.m_pages.front();
    if (first.size() < qsizetype(sizeof(THNHeader)))
        return std::nullopt;
    const auto header = Load<THNHeader>(first.constData());
    if (header.bSig != HeapSig)
        return std::nullopt;
    heap.m_clientSig = header.bClientSig;
    heap.m_userRoot = header.hidUserRoot;
    return heap;
}

std::optional<QByteArray> THeap::Item(uint32_t hid) const
{
    if (!IsHid(hid))
        return std::nullopt;
    const uint32_t index = (hid >> 5) & 0x7FF;
    const uint32_t page = hid >> 16;
    if (index == 0 || page >= m_pages.size())
        return std::nullopt;
    const QByteArray& p = *m_pages[page];
    if (p.size() < 2)
        return std::nullopt;
    const uint32_t ibHnpm = Get16(p.constData());
    if (ibHnpm + sizeof(THNPageMap) > size_t(p.size()))
        return std::nullopt;
    const auto map = Load<THNPageMap>(p.constData() + ibHnpm);
    if (index > map.cAlloc || ibHnpm + sizeof(THNPageMap) + 2 * (size_t(map.cAlloc) + 1) > size_t(p.size()))
        return std::nullopt;
    const char* offsets = p.constData() + ibHnpm + sizeof(THNPageMap);
    const uint32_t from = Get16(offsets + 2 * (index - 1)), to = Get16(offsets + 2 * index);
    if (from > to || to > ibHnpm)
        return std::nullopt;
    return p.mid(qsizetype(from), qsizetype(to - from));
}

std::optional<QByteArray> THeap::Value(uint32_t hnid, qint64 maxBytes) const
{
    if (hnid == 0)
        return QByteArray();
    if (IsHid(hnid))
        return Item(hnid);
    const auto node = m_scope.Subnode(hnid);
    if (!node)
        return std::nullopt;
    return m_scope.Ndb().ReadData(node->bidData, maxBytes);
}

// --- B-tree-on-heap ------------------------------------------------------------------

std::optional<TBTreeRecords> ReadBTree(const THeap& heap, uint32_t hidHeader)
{
    const auto headerBytes = heap.Item(hidHeader);
    if (!headerBytes || headerBytes->size() < qsizetype(sizeof(TBTHHeader)))
        return std::nullopt;
    const auto header = Load<TBTHHeader>(headerBytes->constData());
    if (header.bType != bTypeBTH || header.cbKey == 0 || header.bIdxLevels > MaxBTreeLevels)
        return std::nullopt;
    TBTreeRecords out;
    out.cbKey = header.cbKey;
    out.cbEnt = header.cbEnt;
    if (header.hidRoot == 0)
        return out;
    const size_t leafSize = size_t(header.cbKey) + header.cbEnt, indexSize = size_t(header.cbKey) + 4;
    // Depth first, left to right: the records come out in key order.
    // A damaged tree may point back at its own nodes: each is read once.
    std::vector<std::pair<uint32_t, int>> stack{{header.hidRoot, header.bIdxLevels}};
    std::unordered_set<uint32_t> visited;
    while (!stack.empty()) {
        const auto [hid, level] = stack.back();
        stack.pop_back();
        if (!visited.insert(hid).second)
            return std::nullopt;
        const auto node = heap.Item(hid);
        if (!node)
            return std::nullopt;
        if (level == 0) {
            for (qsizetype at = 0; at + qsizetype(leafSize) <= node->size(); at += qsizetype(leafSize))
                out.records.push_back(node->mid(at, qsizetype(leafSize)));
            continue;
        }
        std::vector<uint32_t> children;
        for (qsizetype at = 0; at + qsizetype(indexSize) <= node->size(); at += qsizetype(indexSize))
            children.push_back(Get32(node->constData() + at + header.cbKey));
        for (auto it = children.rbegin(); it != children.rend(); ++it)
            stack.emplace_back(*it, level - 1);
    }
    return out;
}

// --- property context ----------------------------------------------------------------

std::optional<TPropertyContext> TPropertyContext::Open(const TNodeScope& scope)
{
    auto heap = THeap::Open(scope);
    if (!heap || heap->ClientSig() != bTypePC)
        return std::nullopt;
    TPropertyContext pc(std::move(*heap));
    const auto tree = ReadBTree(pc.m_heap, pc.m_heap.UserRoot());
    if (!tree || tree->cbKey != 2 || tree->cbEnt != 6)
        return std::nullopt;
    pc.m_entries.reserve(tree->records.size());
    for (const QByteArray& r : tree->records) {
        const auto record = Load<TPCRecord>(r.constData());
        pc.m_entries.push_back({record.wPropId, record.wPropType, record.dwValueHnid});
    }
    std::stable_sort(pc.m_entries.begin(), pc.m_entries.end(),
        [](const TPropEntry& a, const TPropEntry& b) { return a.id < b.id; });
    return pc;
}

const TPropEntry* TPropertyContext::Find(uint16_t id) const
{
    const auto it = std::lower_bound(m_entries.begin(), m_entries.end(), id,
        [](const TPropEntry& e, uint16_t i) { return e.id < i; });
    return it != m_entries.end() && it->id == id ? &*it : nullptr;
}

std::optional<QByteArray> TPropertyContext::Value(const TPropEntry& entry, qint64 maxBytes) const
{
    const int fixed = FixedSize(entry.type);
    if (fixed > 0 && fixed <= 4) {
        char bytes[4];
        Put32(bytes, entry.hnid);
        return QByteArray(bytes, fixed);
    }
    auto value = m_heap.Value(entry.hnid, maxBytes);
    if (value && fixed > 0 && value->size() != fixed)
        return std::nullopt;
    return value;
}

std::optional<TSubnodeEntry> TPropertyContext::ValueNode(const TPropEntry& entry) const
{
    const int fixed = FixedSize(entry.type);
    if ((fixed > 0 && fixed <= 4) || entry.hnid == 0 || IsHid(entry.hnid))
        return std::nullopt;
    return m_heap.Scope().Subnode(entry.hnid);
}

// --- table context -----------------------------------------------------------------------

std::optional<TTableContext> TTableContext::Open(const TNodeScope& scope)
{
    auto heap = THeap::Open(scope);
    if (!heap || heap->ClientSig() != bTypeTC)
        return std::nullopt;
    TTableContext tc(std::move(*heap));
    const auto info = tc.m_heap.Item(tc.m_heap.UserRoot());
    if (!info || info->size() < qsizetype(sizeof(TTCInfo)))
        return std::nullopt;
    const auto tcinfo = Load<TTCInfo>(info->constData());
    if (tcinfo.bType != bTypeTC || sizeof(TTCInfo) + size_t(tcinfo.cCols) * sizeof(TTCColDesc) > size_t(info->size()))
        return std::nullopt;
    tc.m_rowSize = tcinfo.rgib[TCI_bm];
    tc.m_cebOffset = tcinfo.rgib[TCI_1b];
    if (tc.m_rowSize == 0 || tc.m_cebOffset > tc.m_rowSize)
        return std::nullopt;
    for (uint32_t i = 0; i < tcinfo.cCols; ++i) {
        const auto c = Load<TTCColDesc>(info->constData() + sizeof(TTCInfo) + i * sizeof(TTCColDesc));
        // A cell must lie inside the row and its bit inside the bitmap.
        if (uint32_t(c.ibData) + c.cbData > tc.m_cebOffset || tc.m_cebOffset + c.iBit / 8u >= tc.m_rowSize)
            continue;
        tc.m_columns.push_back({c.tag, c.ibData, c.cbData, c.iBit});
    }
    const uint32_t hnidRows = tcinfo.hnidRows;
    if (hnidRows == 0)
        return tc;
    if (IsHid(hnidRows)) {
        auto rows = tc.m_heap.Item(hnidRows);
        if (!rows)
            return std::nullopt;
        tc.m_heapRows = std::move(*rows);
        tc.m_rowCount = size_t(tc.m_heapRows.size()) / tc.m_rowSize;
        return tc;
    }
    const auto node = scope.Subnode(hnidRows);
    if (!node)
        return std::nullopt;
    auto blocks = scope.Ndb().DataBlocks(node->bidData);
    if (!blocks || blocks->empty())
        return std::nullopt;
    // Every block but the last holds the same number of whole rows.
    const TBlock first = scope.Ndb().ReadBlock(blocks->front());
    const TBlock last = scope.Ndb().ReadBlock(blocks->back());
    if (!first || !last)
        return std::nullopt;
    tc.m_rowBlocks = std::move(*blocks);
    tc.m_rowsPerBlock = size_t(first->size()) / tc.m_rowSize;
    if (tc.m_rowsPerBlock == 0)
        return std::nullopt;
    tc.m_rowCount = (tc.m_rowBlocks.size() - 1) * tc.m_rowsPerBlock + size_t(last->size()) / tc.m_rowSize;
    return tc;
}

const TTableContext::TColumn* TTableContext::Column(uint16_t id) const
{
    for (const TColumn& c : m_columns)
        if (TagId(c.tag) == id)
            return &c;
    return nullptr;
}

QByteArray TTableContext::Row(size_t row) const
{
    if (row >= m_rowCount)
        return {};
    if (m_rowBlocks.empty())
        return m_heapRows.mid(qsizetype(row * m_rowSize), m_rowSize);
    const size_t block = row / m_rowsPerBlock, at = row % m_rowsPerBlock;
    const TBlock data = m_heap.Scope().Ndb().ReadBlock(m_rowBlocks[block]);
    if (!data || qsizetype((at + 1) * m_rowSize) > data->size())
        return {};
    return data->mid(qsizetype(at * m_rowSize), m_rowSize);
}

std::optional<uint32_t> TTableContext::RowId(size_t row) const
{
    const QByteArray bytes = Row(row);
    if (bytes.size() < 4)
        return std::nullopt;
    return Get32(bytes.constData());
}

std::optional<QByteArray> TTableContext::Cell(const QByteArray& row, const TColumn& column, qint64 maxBytes) const
{
    if (row.size() != m_rowSize)
        return std::nullopt;
    const uint8_t bits = uint8_t(row[m_cebOffset + column.bit / 8]);
    if (!(bits & (0x80 >> (column.bit % 8))))
        return std::nullopt;
    const uint16_t type = TagType(column.tag);
    const int fixed = FixedSize(type);
    if (fixed > 0) {
        if (column.cb < fixed)
            return std::nullopt;
        return row.mid(column.ib, fixed);
    }
    if (column.cb != 4)
        return std::nullopt;
    return m_heap.Value(Get32(row.constData() + column.ib), maxBytes);
}

} // namespace tessaly::pstfile
