#include "pstfile/NdbWriter.h"

#include "core/Exceptions.h"
#include "pstfile/Endian.h"

#include <algorithm>
#include <cstring>

namespace tessaly::pstfile {

namespace {

constexpr uint64_t FirstAMap = 0x4400;
constexpr uint64_t RegionSize = 496 * 8 * 64; // what one allocation map covers
constexpr uint64_t PageSize = 512;
constexpr uint32_t FMapStart = 128, FMapEvery = 496;
constexpr uint32_t FPMapStart = 128 * 8 * 8, FPMapEvery = 496 * 8 * 8;

uint64_t RegionStart(uint64_t r) { return FirstAMap + r * RegionSize; }
bool HasPMap(uint64_t r) { return r % 8 == 0; }
bool HasFMap(uint64_t r) { return r >= FMapStart && (r - FMapStart) % FMapEvery == 0; }
bool HasFPMap(uint64_t r) { return r >= FPMapStart && (r - FPMapStart) % FPMapEvery == 0; }
uint64_t MapBytes(uint64_t r) { return PageSize * (1 + HasPMap(r) + HasFMap(r) + HasFPMap(r)); }

constexpr size_t BufferLimit = 8 << 20;

} // namespace

// --- node database -----------------------------------------------------------

TNdbWriter::TNdbWriter(const QString& fileName) : m_file(fileName)
{
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        throw core::ETessalyError(QStringLiteral("Can not create %1: %2").arg(fileName, m_file.errorString()));
    m_buffer.reserve(BufferLimit + MaxBlockData * 2);
    m_buffer.fill(0, FirstAMap); // the header is written last
    m_eof = FirstAMap;
}

TNdbWriter::~TNdbWriter()
{
    if (m_file.isOpen())
        Abort();
}

void TNdbWriter::Abort()
{
    m_file.close();
    m_file.remove();
}

void TNdbWriter::Flush()
{
    if (m_buffer.isEmpty())
        return;
    if (m_file.write(m_buffer) != m_buffer.size())
        throw core::ETessalyError(
            QStringLiteral("Can not write %1: %2").arg(m_file.fileName(), m_file.errorString()));
    m_bufferStart += uint64_t(m_buffer.size());
    m_buffer.resize(0);
}

void TNdbWriter::Put(uint64_t ib, const char* data, size_t size)
{
    const uint64_t end = m_bufferStart + uint64_t(m_buffer.size());
    if (ib > end)
        m_buffer.append(qsizetype(ib - end), '\0');
    m_buffer.append(data, qsizetype(size));
    if (size_t(m_buffer.size()) >= BufferLimit)
        Flush();
}

uint64_t TNdbWriter::Allocate(uint32_t size, uint32_t align)
{
    uint64_t ib = (m_eof + align - 1) / align * align;
    for (;;) {
        const uint64_t r = (ib - FirstAMap) / RegionSize;
        const uint64_t first = RegionStart(r) + MapBytes(r);
        if (ib < first)
            ib = first;
        if (ib + size <= RegionStart(r + 1))
            break;
        ib = RegionStart(r + 1);
    }
    m_eof = ib + size;
    return ib;
}

uint64_t TNdbWriter::WriteBlock(const char* data, uint32_t size, bool internal)
{
    Q_ASSERT(size <= MaxBlockData);
    const uint32_t total = (size + 16 + 63) / 64 * 64;
    const uint64_t ib = Allocate(total, 64);
    const uint64_t bid = (m_nextBid++ << 2) | (internal ? 2 : 0);
    char trailer[16];
    Put16(trailer, uint16_t(size));
    Put16(trailer + 2, Signature(ib, bid));
    Put32(trailer + 4, Crc(data, size));
    Put64(trailer + 8, bid);
    Put(ib, data, size);
    Put(ib + total - 16, trailer, 16);
    m_blocks.push_back({bid, ib, uint16_t(size)});
    return bid;
}

std::vector<QByteArray> SplitBlocks(const QByteArray& data, qsizetype size)
{
    std::vector<QByteArray> blocks;
    for (qsizetype at = 0; at < data.size(); at += size)
        blocks.push_back(data.mid(at, size));
    if (blocks.empty())
        blocks.emplace_back();
    return blocks;
}


uint64_t TNdbWriter::WriteBlocks(const std::vector<QByteArray>& blocks)
{
    std::vector<uint64_t> bids;
    uint64_t total = 0;
    for (const QByteArray& block : blocks) {
        bids.push_back(WriteBlock(block.constData(), uint32_t(block.size())));
        total += uint64_t(block.size());
    }
    if (bids.empty())
        return 0;
    if (bids.size() == 1)
        return bids.front();
    // XBLOCKs over the data blocks, and an XXBLOCK over those when one is
    // not enough ([MS-PST] 2.2.2.8.3.2).
    constexpr size_t PerXBlock = (MaxBlockData - 8) / 8;
    if (total > 0xFFFFFFFFull || bids.size() > PerXBlock * PerXBlock)
        throw core::ETessalyError(QStringLiteral("A value of %1 bytes is too large for a data file").arg(total));
    auto xblock = [&](uint8_t level, const std::vector<uint64_t>& ids, uint64_t bytes) {
        QByteArray b;
        b.append(char(0x01)).append(char(level));
        Add16(b, uint16_t(ids.size()));
        Add32(b, uint32_t(bytes));
        for (uint64_t id : ids)
            Add64(b, id);
        return WriteBlock(b.constData(), uint32_t(b.size()), true);
    };
    std::vector<uint64_t> xbids;
    for (size_t at = 0; at < bids.size(); at += PerXBlock) {
        const size_t end = std::min(bids.size(), at + PerXBlock);
        uint64_t bytes = 0;
        for (size_t i = at; i < end; ++i)
            bytes += uint64_t(blocks[i].size());
        xbids.push_back(xblock(1, std::vector<uint64_t>(bids.begin() + qsizetype(at), bids.begin() + qsizetype(end)), bytes));
    }
    return xbids.size() == 1 ? xbids.front() : xblock(2, xbids, total);
}

uint64_t TNdbWriter::WriteSubnodes(std::vector<TSubnode> subnodes)
{
    if (subnodes.empty())
        return 0;
    std::sort(subnodes.begin(), subnodes.end(), [](const TSubnode& a, const TSubnode& b) { return a.nid < b.nid; });
    constexpr size_t PerSL = (MaxBlockData - 8) / 24, PerSI = (MaxBlockData - 8) / 16;
    if (subnodes.size() > PerSL * PerSI)
        throw core::ETessalyError(QStringLiteral("Too many parts in one item: %1").arg(subnodes.size()));
    std::vector<std::pair<uint32_t, uint64_t>> leaves;
    for (size_t at = 0; at < subnodes.size(); at += PerSL) {
        const size_t end = std::min(subnodes.size(), at + PerSL);
        QByteArray b;
        b.append(char(0x02)).append(char(0));
        Add16(b, uint16_t(end - at));
        Add32(b, 0);
        for (size_t i = at; i < end; ++i) {
            Add64(b, subnodes[i].nid);
            Add64(b, subnodes[i].bidData);
            Add64(b, subnodes[i].bidSub);
        }
        leaves.emplace_back(subnodes[at].nid, WriteBlock(b.constData(), uint32_t(b.size()), true));
    }
    if (leaves.size() == 1)
        return leaves.front().second;
    QByteArray b;
    b.append(char(0x02)).append(char(1));
    Add16(b, uint16_t(leaves.size()));
    Add32(b, 0);
    for (const auto& [nid, bid] : leaves) {
        Add64(b, nid);
        Add64(b, bid);
    }
    return WriteBlock(b.constData(), uint32_t(b.size()), true);
}

void TNdbWriter::AddNode(uint32_t nid, uint64_t bidData, uint64_t bidSub, uint32_t nidParent)
{
    m_nodes.push_back({nid, nidParent, bidData, bidSub});
}

TNdbWriter::TPageRef TNdbWriter::WritePage(uint8_t ptype, const QByteArray& body, uint8_t cEnt, uint8_t cEntMax,
    uint8_t cbEnt, uint8_t cLevel, uint64_t key)
{
    char page[PageSize] = {};
    memcpy(page, body.constData(), size_t(body.size()));
    page[488] = char(cEnt);
    page[489] = char(cEntMax);
    page[490] = char(cbEnt);
    page[491] = char(cLevel);
    const uint64_t ib = Allocate(PageSize, PageSize);
    const uint64_t bid = m_nextPage++ << 2;
    page[496] = char(ptype);
    page[497] = char(ptype);
    Put16(page + 498, Signature(ib, bid));
    Put32(page + 500, Crc(page, 496));
    Put64(page + 504, bid);
    Put(ib, page, PageSize);
    return {key, bid, ib};
}

TNdbWriter::TPageRef TNdbWriter::WriteBTree(uint8_t ptype, size_t count, uint8_t cbEnt, const TEntryWriter& entry)
{
    // Leaves, then index levels of (first key, BREF) until one page is left.
    std::vector<TPageRef> level;
    const size_t perLeaf = 488 / cbEnt;
    size_t at = 0;
    do {
        const size_t end = std::min(count, at + perLeaf);
        QByteArray body(qsizetype((end - at) * cbEnt), '\0');
        uint64_t first = 0;
        for (size_t i = at; i < end; ++i) {
            const uint64_t key = entry(i, body.data() + (i - at) * cbEnt);
            if (i == at)
                first = key;
        }
        level.push_back(WritePage(ptype, body, uint8_t(end - at), uint8_t(perLeaf), cbEnt, 0, first));
        at = end;
    } while (at < count);
    constexpr size_t PerIndex = 488 / 24;
    for (uint8_t depth = 1; level.size() > 1; ++depth) {
        std::vector<TPageRef> upper;
        for (size_t from = 0; from < level.size(); from += PerIndex) {
            const size_t end = std::min(level.size(), from + PerIndex);
            QByteArray body;
            for (size_t i = from; i < end; ++i) {
                Add64(body, level[i].key);
                Add64(body, level[i].bid);
                Add64(body, level[i].ib);
            }
            upper.push_back(WritePage(ptype, body, uint8_t(end - from), uint8_t(PerIndex), 24, depth, level[from].key));
        }
        level = std::move(upper);
    }
    return level.front();
}

void TNdbWriter::Finish(const std::array<uint32_t, 32>& nextNids)
{
    std::sort(m_nodes.begin(), m_nodes.end(), [](const TNodeRef& a, const TNodeRef& b) { return a.nid < b.nid; });
    const TPageRef nbt = WriteBTree(ptypeNBT, m_nodes.size(), 32, [&](size_t i, char* out) {
        const TNodeRef& node = m_nodes[i];
        Put64(out, node.nid);
        Put64(out + 8, node.bidData);
        Put64(out + 16, node.bidSub);
        Put32(out + 24, node.nidParent);
        Put32(out + 28, 0);
        return uint64_t(node.nid);
    });
    // Block ids were handed out in increasing order, so the list is sorted.
    const TPageRef bbt = WriteBTree(ptypeBBT, m_blocks.size(), 24, [&](size_t i, char* out) {
        const TBlockRef& block = m_blocks[i];
        Put64(out, block.bid);
        Put64(out + 8, block.ib);
        Put16(out + 16, block.cb);
        Put16(out + 18, 1); // references
        Put32(out + 20, 0);
        return block.bid;
    });
    Flush();
    WriteMaps();
    WriteHeader(nextNids, nbt, bbt);
    if (!m_file.flush())
        throw core::ETessalyError(
            QStringLiteral("Can not write %1: %2").arg(m_file.fileName(), m_file.errorString()));
    m_file.close();
}

void TNdbWriter::WriteMaps()
{
    // Everything below the end of the file is in use (blocks are never
    // freed), so only the last region has free space.
    const uint64_t regions = (m_eof - FirstAMap + RegionSize - 1) / RegionSize;
    auto freeSlots = [&](uint64_t r) { return RegionSize / 64 - std::min(RegionSize, m_eof - RegionStart(r)) / 64; };
    auto freeRun = [&](uint64_t r) { return char(r < regions ? std::min<uint64_t>(255, freeSlots(r)) : 0); };
    auto writeMap = [&](uint64_t ib, uint8_t ptype, const char* bits) {
        char page[PageSize] = {};
        memcpy(page, bits, 496);
        page[496] = char(ptype);
        page[497] = char(ptype);
        Put32(page + 500, Crc(page, 496));
        Put64(page + 504, ib);
        if (!m_file.seek(qint64(ib)) || m_file.write(page, PageSize) != qint64(PageSize))
            throw core::ETessalyError(
                QStringLiteral("Can not write %1: %2").arg(m_file.fileName(), m_file.errorString()));
    };
    const QByteArray allSet(496, char(0xFF));
    for (uint64_t r = 0; r < regions; ++r) {
        const uint64_t used = RegionSize / 64 - freeSlots(r);
        char bits[496] = {};
        for (uint64_t slot = 0; slot < used; ++slot)
            bits[slot / 8] = char(uint8_t(bits[slot / 8]) | (0x80 >> (slot % 8)));
        m_amapFree += freeSlots(r) * 64;
        m_lastAMap = RegionStart(r);
        uint64_t ib = RegionStart(r);
        writeMap(ib, ptypeAMap, bits);
        if (HasPMap(r))
            writeMap(ib += PageSize, ptypePMap, allSet.constData());
        if (HasFMap(r)) {
            char fmap[496];
            for (uint64_t k = 0; k < 496; ++k)
                fmap[k] = freeRun(r + k);
            writeMap(ib += PageSize, ptypeFMap, fmap);
        }
        if (HasFPMap(r))
            writeMap(ib += PageSize, ptypeFPMap, allSet.constData());
    }
    for (uint64_t r = 0; r < 128; ++r)
        m_initialFMap[r] = uint8_t(freeRun(r));
}

void TNdbWriter::WriteHeader(const std::array<uint32_t, 32>& nextNids, const TPageRef& nbt, const TPageRef& bbt)
{
    char h[564] = {};
    memcpy(h, "!BDN", 4);
    Put16(h + 8, 0x4D53);  // "SM"
    Put16(h + 10, 23);     // Unicode
    Put16(h + 12, 19);
    h[14] = 1;
    h[15] = 1;
    Put64(h + 32, m_nextPage << 2);
    Put32(h + 40, 1);
    for (int i = 0; i < 32; ++i)
        Put32(h + 44 + 4 * i, nextNids[size_t(i)]);
    char* root = h + 180;
    Put64(root + 4, m_eof);
    Put64(root + 12, m_lastAMap);
    Put64(root + 20, m_amapFree);
    Put64(root + 28, 0);
    Put64(root + 36, nbt.bid);
    Put64(root + 44, nbt.ib);
    Put64(root + 52, bbt.bid);
    Put64(root + 60, bbt.ib);
    root[68] = 2; // VALID_AMAP2
    memcpy(h + 256, m_initialFMap.data(), 128);
    memset(h + 384, 0xFF, 128);
    h[512] = char(0x80);
    h[513] = 0; // no encoding
    Put64(h + 516, m_nextBid << 2);
    Put32(h + 4, Crc(h + 8, 471));
    Put32(h + 524, Crc(h + 8, 516));
    if (!m_file.resize(qint64(m_eof)) || !m_file.seek(0) || m_file.write(h, sizeof h) != qint64(sizeof h))
        throw core::ETessalyError(
            QStringLiteral("Can not write %1: %2").arg(m_file.fileName(), m_file.errorString()));
}

// --- heap-on-node ------------------------------------------------------------

THeapBuilder::THeapBuilder(uint8_t clientSig) : m_clientSig(clientSig) { m_pages.emplace_back(); }

int THeapBuilder::HeaderSize(size_t page) const
{
    if (page == 0)
        return 12;
    return page >= 8 && (page - 8) % 128 == 0 ? 66 : 2;
}

uint32_t THeapBuilder::Allocate(const char* data, int size)
{
    Q_ASSERT(size >= 0 && uint32_t(size) <= MaxHeapItem);
    auto fits = [&](const TPage& page, size_t index) {
        const size_t count = page.starts.size() + 1;
        const size_t used = size_t(HeaderSize(index)) + size_t(page.data.size()) + size_t(size);
        return count < 2048 && (used + 1) / 2 * 2 + 4 + 2 * (count + 1) <= MaxBlockData;
    };
    if (!fits(m_pages.back(), m_pages.size() - 1))
        m_pages.emplace_back();
    TPage& page = m_pages.back();
    page.starts.push_back(uint16_t(page.data.size()));
    page.data.append(data, size);
    return uint32_t((m_pages.size() - 1) << 16) | uint32_t(page.starts.size() << 5);
}

std::vector<QByteArray> THeapBuilder::Pages() const
{
    std::vector<QByteArray> pages;
    for (size_t i = 0; i < m_pages.size(); ++i) {
        const TPage& page = m_pages[i];
        const int header = HeaderSize(i);
        QByteArray b(header, '\0');
        if (i == 0) {
            b[2] = char(0xEC);
            b[3] = char(m_clientSig);
            Put32(b.data() + 4, m_userRoot);
        }
        b.append(page.data);
        if (b.size() % 2)
            b.append('\0');
        Put16(b.data(), uint16_t(b.size()));
        Add16(b, uint16_t(page.starts.size()));
        Add16(b, 0);
        for (uint16_t start : page.starts)
            Add16(b, uint16_t(header + start));
        Add16(b, uint16_t(header + page.data.size()));
        pages.push_back(b);
    }
    return pages;
}

uint32_t BuildBTree(THeapBuilder& heap, const std::vector<std::pair<QByteArray, QByteArray>>& records, uint8_t cbKey,
    uint8_t cbEnt)
{
    uint8_t levels = 0;
    uint32_t root = 0;
    if (!records.empty()) {
        std::vector<std::pair<QByteArray, uint32_t>> nodes; // first key, allocation
        const size_t perLeaf = MaxHeapItem / (cbKey + cbEnt);
        for (size_t at = 0; at < records.size(); at += perLeaf) {
            QByteArray b;
            for (size_t i = at; i < std::min(records.size(), at + perLeaf); ++i)
                b.append(records[i].first).append(records[i].second);
            nodes.emplace_back(records[at].first, heap.Allocate(b));
        }
        const size_t perIndex = MaxHeapItem / (cbKey + 4);
        while (nodes.size() > 1) {
            std::vector<std::pair<QByteArray, uint32_t>> upper;
            for (size_t at = 0; at < nodes.size(); at += perIndex) {
                QByteArray b;
                for (size_t i = at; i < std::min(nodes.size(), at + perIndex); ++i) {
                    b.append(nodes[i].first);
                    Add32(b, nodes[i].second);
                }
                upper.emplace_back(nodes[at].first, heap.Allocate(b));
            }
            nodes = std::move(upper);
            ++levels;
        }
        root = nodes.front().second;
    }
    QByteArray header;
    header.append(char(0xB5)).append(char(cbKey)).append(char(cbEnt)).append(char(levels));
    Add32(header, root);
    return heap.Allocate(header);
}

namespace {

// Where a variable-size value goes: the heap when it fits, else a subnode.
uint32_t StoreValue(THeapBuilder& heap, const QByteArray& value, const TSubnodeSink& sink)
{
    if (value.isEmpty())
        return 0;
    if (uint32_t(value.size()) <= MaxHeapItem)
        return heap.Allocate(value);
    return sink(SplitBlocks(value));
}

uint32_t InlineValue(const QByteArray& value)
{
    char p[4] = {};
    memcpy(p, value.constData(), std::min<size_t>(4, size_t(value.size())));
    return Get32(p);
}

} // namespace

std::vector<QByteArray> BuildPropertyContext(std::vector<TProp> props, const TSubnodeSink& sink)
{
    std::stable_sort(props.begin(), props.end(), [](const TProp& a, const TProp& b) { return TagId(a.tag) < TagId(b.tag); });
    THeapBuilder heap(0xBC);
    std::vector<std::pair<QByteArray, QByteArray>> records;
    for (size_t i = 0; i < props.size(); ++i) {
        if (i + 1 < props.size() && TagId(props[i].tag) == TagId(props[i + 1].tag))
            continue; // the last value set wins
        const TProp& prop = props[i];
        const int fixed = FixedSize(TagType(prop.tag));
        const uint32_t hnid = fixed > 0 && fixed <= 4 ? InlineValue(prop.value) : StoreValue(heap, prop.value, sink);
        QByteArray key, data;
        Add16(key, TagId(prop.tag));
        Add16(data, TagType(prop.tag));
        Add32(data, hnid);
        records.emplace_back(key, data);
    }
    heap.SetUserRoot(BuildBTree(heap, records, 2, 6));
    return heap.Pages();
}

std::vector<QByteArray> BuildTableContext(std::vector<uint32_t> columns, const std::vector<TTableRow>& rows,
    const TSubnodeSink& sink)
{
    constexpr uint32_t RowIdTag = Tag(0x67F2, ptLong), RowVerTag = Tag(0x67F3, ptLong);
    columns.erase(std::remove_if(columns.begin(), columns.end(),
                      [](uint32_t tag) { return tag == RowIdTag || tag == RowVerTag; }),
        columns.end());
    std::sort(columns.begin(), columns.end());
    columns.erase(std::unique(columns.begin(), columns.end()), columns.end());

    // Cell layout: row id and version first, then 8-, 4-, 2- and 1-byte
    // cells (variable-size values take 4 bytes for their heap or node id),
    // then the cell existence bitmap.
    struct TColumn {
        uint32_t tag;
        uint16_t ib;
        uint8_t cb, bit;
    };
    std::vector<TColumn> layout{{RowIdTag, 0, 4, 0}, {RowVerTag, 4, 4, 1}};
    uint16_t offset = 8;
    uint8_t bit = 2;
    uint16_t ends[3] = {};
    for (int size : {8, 4, 2, 1}) {
        for (uint32_t tag : columns) {
            const int fixed = FixedSize(TagType(tag));
            if ((fixed ? fixed : 4) == size) {
                layout.push_back({tag, offset, uint8_t(size), bit++});
                offset = uint16_t(offset + size);
            }
        }
        if (size <= 4)
            ends[size == 4 ? 0 : size == 2 ? 1 : 2] = offset;
    }
    const uint16_t rowSize = uint16_t(offset + (layout.size() + 7) / 8);
    const uint16_t cebOffset = offset;

    THeapBuilder heap(0x7C);
    QByteArray matrix;
    matrix.reserve(qsizetype(rows.size()) * rowSize);
    std::vector<std::pair<uint32_t, uint32_t>> index; // row id, row number
    for (size_t r = 0; r < rows.size(); ++r) {
        const TTableRow& row = rows[r];
        QByteArray cells(rowSize, '\0');
        auto setBit = [&](uint8_t b) { cells[cebOffset + b / 8] = char(uint8_t(cells[cebOffset + b / 8]) | (0x80 >> (b % 8))); };
        Put32(cells.data(), row.rowId);
        Put32(cells.data() + 4, 1);
        setBit(0);
        setBit(1);
        for (const TProp& cell : row.cells) {
            const auto column = std::find_if(layout.begin(), layout.end(), [&](const TColumn& c) { return c.tag == cell.tag; });
            if (column == layout.end() || column->tag == RowIdTag || column->tag == RowVerTag)
                continue;
            if (FixedSize(TagType(cell.tag))) {
                memcpy(cells.data() + column->ib, cell.value.constData(), std::min<size_t>(column->cb, size_t(cell.value.size())));
            } else {
                if (cell.value.isEmpty())
                    continue;
                Put32(cells.data() + column->ib, StoreValue(heap, cell.value, sink));
            }
            setBit(column->bit);
        }
        matrix.append(cells);
        index.emplace_back(row.rowId, uint32_t(r));
    }
    std::sort(index.begin(), index.end());
    std::vector<std::pair<QByteArray, QByteArray>> records;
    for (const auto& [id, number] : index) {
        QByteArray key, data;
        Add32(key, id);
        Add32(data, number);
        records.emplace_back(key, data);
    }
    const uint32_t rowIndex = BuildBTree(heap, records, 4, 4);

    // Rows never straddle blocks of the row matrix ([MS-PST] 2.3.4.4): each
    // block holds whole rows only, so the blocks join into the plain matrix.
    uint32_t hnidRows = 0;
    if (!matrix.isEmpty()) {
        if (uint32_t(matrix.size()) <= MaxHeapItem) {
            hnidRows = heap.Allocate(matrix);
        } else {
            hnidRows = sink(SplitBlocks(matrix, qsizetype(MaxBlockData / rowSize) * rowSize));
        }
    }
    QByteArray info;
    info.append(char(0x7C)).append(char(layout.size()));
    Add16(info, ends[0]);
    Add16(info, ends[1]);
    Add16(info, ends[2]);
    Add16(info, rowSize);
    Add32(info, rowIndex);
    Add32(info, hnidRows);
    Add32(info, 0);
    std::sort(layout.begin(), layout.end(), [](const TColumn& a, const TColumn& b) { return a.tag < b.tag; });
    for (const TColumn& c : layout) {
        Add32(info, c.tag);
        Add16(info, c.ib);
        info.append(char(c.cb)).append(char(c.bit));
    }
    heap.SetUserRoot(heap.Allocate(info));
    return heap.Pages();
}

} // namespace tessaly::pstfile
