#include "pstfile/NdbWriter.h"

#include "core/Exceptions.h"
#include "pstfile/Endian.h"

#include <algorithm>
#include <cstring>

namespace tessaly::pstfile {

namespace {

constexpr uint64_t PageSize = 512;
constexpr uint64_t BlockAlign = 64;
constexpr uint64_t FirstAMap = 0x4400;
constexpr uint64_t MapBytes = sizeof(TMapPageUnicode::rgb);
constexpr uint64_t RegionSize = MapBytes * 8 * BlockAlign; // what one allocation map covers
constexpr uint32_t FMapStart = 128, FMapEvery = MapBytes;
constexpr uint32_t FPMapStart = 128 * 8 * 8, FPMapEvery = MapBytes * 8 * 8;

uint64_t RegionStart(uint64_t r) { return FirstAMap + r * RegionSize; }
bool HasPMap(uint64_t r) { return r % 8 == 0; }
bool HasFMap(uint64_t r) { return r >= FMapStart && (r - FMapStart) % FMapEvery == 0; }
bool HasFPMap(uint64_t r) { return r >= FPMapStart && (r - FPMapStart) % FPMapEvery == 0; }
uint64_t MapPages(uint64_t r) { return PageSize * (1 + HasPMap(r) + HasFMap(r) + HasFPMap(r)); }

constexpr size_t BufferLimit = 8 << 20;

} // namespace

// --- node database -----------------------------------------------------------

TNdbWriter::TNdbWriter(const QString& fileName, uint8_t cryptMethod) : m_file(fileName), m_cryptMethod(cryptMethod)
{
    if (cryptMethod != CryptNone && cryptMethod != CryptPermute && cryptMethod != CryptCyclic)
        throw core::ETessalyError(QStringLiteral("Unknown encoding %1").arg(cryptMethod));
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
        const uint64_t first = RegionStart(r) + MapPages(r);
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
    TBlockTrailerUnicode trailer{};
    const uint32_t total = uint32_t((size + sizeof trailer + BlockAlign - 1) / BlockAlign * BlockAlign);
    const uint64_t ib = Allocate(total, BlockAlign);
    const uint64_t bid = (m_nextBid++ << 2) | (internal ? 2 : 0);
    if (!IsInternalBid(bid) && m_cryptMethod != CryptNone) {
        m_encoded.resize(qsizetype(size));
        memcpy(m_encoded.data(), data, size);
        if (m_cryptMethod == CryptPermute)
            EncodePermute(m_encoded.data(), size);
        else
            Cyclic(m_encoded.data(), size, uint32_t(bid));
        data = m_encoded.constData();
    }
    // The checksum is over the bytes as stored.
    trailer.cb = uint16_t(size);
    trailer.wSig = Signature(ib, bid);
    trailer.dwCRC = Crc(data, size);
    trailer.bid = bid;
    Put(ib, data, size);
    Put(ib + total - sizeof trailer, reinterpret_cast<const char*>(&trailer), sizeof trailer);
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
    constexpr size_t PerXBlock = (MaxBlockData - sizeof(TXBlockHeader)) / sizeof(uint64_t);
    if (total > 0xFFFFFFFFull || bids.size() > PerXBlock * PerXBlock)
        throw core::ETessalyError(QStringLiteral("A value of %1 bytes is too large for a data file").arg(total));
    auto xblock = [&](uint8_t level, const std::vector<uint64_t>& ids, uint64_t bytes) {
        QByteArray b;
        Append(b, TXBlockHeader{0x01, level, uint16_t(ids.size()), uint32_t(bytes)});
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
    // Unicode files pad the header of a subnode block to 8 bytes.
    constexpr size_t Header = sizeof(TSubnodeBlockHeader) + 4;
    constexpr size_t PerSL = (MaxBlockData - Header) / sizeof(TSLEntryUnicode),
                     PerSI = (MaxBlockData - Header) / sizeof(TSIEntryUnicode);
    auto header = [](uint8_t level, size_t count) {
        QByteArray b;
        Append(b, TSubnodeBlockHeader{0x02, level, uint16_t(count)});
        Add32(b, 0);
        return b;
    };
    if (subnodes.size() > PerSL * PerSI)
        throw core::ETessalyError(QStringLiteral("Too many parts in one item: %1").arg(subnodes.size()));
    std::vector<std::pair<uint32_t, uint64_t>> leaves;
    for (size_t at = 0; at < subnodes.size(); at += PerSL) {
        const size_t end = std::min(subnodes.size(), at + PerSL);
        QByteArray b = header(0, end - at);
        for (size_t i = at; i < end; ++i)
            Append(b, TSLEntryUnicode{subnodes[i].nid, subnodes[i].bidData, subnodes[i].bidSub});
        leaves.emplace_back(subnodes[at].nid, WriteBlock(b.constData(), uint32_t(b.size()), true));
    }
    if (leaves.size() == 1)
        return leaves.front().second;
    QByteArray b = header(1, leaves.size());
    for (const auto& [nid, bid] : leaves)
        Append(b, TSIEntryUnicode{nid, bid});
    return WriteBlock(b.constData(), uint32_t(b.size()), true);
}

void TNdbWriter::AddNode(uint32_t nid, uint64_t bidData, uint64_t bidSub, uint32_t nidParent)
{
    m_nodes.push_back({nid, nidParent, bidData, bidSub});
}

TNdbWriter::TPageRef TNdbWriter::WritePage(uint8_t ptype, const QByteArray& entries, const TBTPageCountsSmall& counts,
    uint64_t key)
{
    TBTPageUnicode page{};
    memcpy(page.rgentries, entries.constData(), size_t(entries.size()));
    page.counts = counts;
    const uint64_t ib = Allocate(sizeof page, PageSize);
    const uint64_t bid = m_nextPage++ << 2;
    page.trailer.ptype = ptype;
    page.trailer.ptypeRepeat = ptype;
    page.trailer.wSig = Signature(ib, bid);
    page.trailer.dwCRC = Crc(&page, offsetof(TBTPageUnicode, trailer));
    page.trailer.bid = bid;
    Put(ib, reinterpret_cast<const char*>(&page), sizeof page);
    return {key, bid, ib};
}

TNdbWriter::TPageRef TNdbWriter::WriteBTree(uint8_t ptype, size_t count, uint8_t cbEnt, const TEntryWriter& entry)
{
    // Leaves, then index levels of (first key, BREF) until one page is left.
    constexpr size_t EntryBytes = sizeof(TBTPageUnicode::rgentries);
    std::vector<TPageRef> level;
    const size_t perLeaf = EntryBytes / cbEnt;
    size_t at = 0;
    do {
        const size_t end = std::min(count, at + perLeaf);
        QByteArray entries(qsizetype((end - at) * cbEnt), '\0');
        uint64_t first = 0;
        for (size_t i = at; i < end; ++i) {
            const uint64_t key = entry(i, entries.data() + (i - at) * cbEnt);
            if (i == at)
                first = key;
        }
        level.push_back(WritePage(ptype, entries, {uint8_t(end - at), uint8_t(perLeaf), cbEnt, 0}, first));
        at = end;
    } while (at < count);
    constexpr size_t PerIndex = EntryBytes / sizeof(TBTEntryUnicode);
    for (uint8_t depth = 1; level.size() > 1; ++depth) {
        std::vector<TPageRef> upper;
        for (size_t from = 0; from < level.size(); from += PerIndex) {
            const size_t end = std::min(level.size(), from + PerIndex);
            QByteArray entries;
            for (size_t i = from; i < end; ++i)
                Append(entries, TBTEntryUnicode{level[i].key, {level[i].bid, level[i].ib}});
            upper.push_back(WritePage(ptype, entries,
                {uint8_t(end - from), uint8_t(PerIndex), uint8_t(sizeof(TBTEntryUnicode)), depth}, level[from].key));
        }
        level = std::move(upper);
    }
    return level.front();
}

void TNdbWriter::Finish(const std::array<uint32_t, 32>& nextNids)
{
    std::sort(m_nodes.begin(), m_nodes.end(), [](const TNodeRef& a, const TNodeRef& b) { return a.nid < b.nid; });
    const TPageRef nbt = WriteBTree(ptypeNBT, m_nodes.size(), sizeof(TNBTEntryUnicode), [&](size_t i, char* out) {
        const TNodeRef& node = m_nodes[i];
        Store(out, TNBTEntryUnicode{node.nid, node.bidData, node.bidSub, node.nidParent, 0});
        return uint64_t(node.nid);
    });
    // Block ids were handed out in increasing order, so the list is sorted.
    const TPageRef bbt = WriteBTree(ptypeBBT, m_blocks.size(), sizeof(TBBTEntryUnicode), [&](size_t i, char* out) {
        const TBlockRef& block = m_blocks[i];
        Store(out, TBBTEntryUnicode{{block.bid, block.ib}, block.cb, 1, 0}); // one reference
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
    // Everything below the end of the data is in use (blocks are never
    // freed), so only the last region has free space.
    const uint64_t regions = (m_eof - FirstAMap + RegionSize - 1) / RegionSize;
    const uint64_t perRegion = RegionSize / BlockAlign;
    auto freeSlots = [&](uint64_t r) { return perRegion - std::min(RegionSize, m_eof - RegionStart(r)) / BlockAlign; };
    auto freeRun = [&](uint64_t r) { return uint8_t(r < regions ? std::min<uint64_t>(255, freeSlots(r)) : 0); };
    auto writeMap = [&](uint64_t ib, uint8_t ptype, const TMapPageUnicode& map) {
        TMapPageUnicode page = map;
        page.trailer = {};
        page.trailer.ptype = ptype;
        page.trailer.ptypeRepeat = ptype;
        page.trailer.dwCRC = Crc(page.rgb, sizeof page.rgb);
        page.trailer.bid = ib;
        if (!m_file.seek(qint64(ib)) || m_file.write(reinterpret_cast<const char*>(&page), sizeof page) != qint64(sizeof page))
            throw core::ETessalyError(
                QStringLiteral("Can not write %1: %2").arg(m_file.fileName(), m_file.errorString()));
    };
    TMapPageUnicode allSet{};
    memset(allSet.rgb, 0xFF, sizeof allSet.rgb);
    for (uint64_t r = 0; r < regions; ++r) {
        const uint64_t used = perRegion - freeSlots(r);
        TMapPageUnicode amap{};
        for (uint64_t slot = 0; slot < used; ++slot)
            amap.rgb[slot / 8] |= uint8_t(0x80 >> (slot % 8));
        m_amapFree += freeSlots(r) * BlockAlign;
        m_lastAMap = RegionStart(r);
        uint64_t ib = RegionStart(r);
        writeMap(ib, ptypeAMap, amap);
        if (HasPMap(r))
            writeMap(ib += PageSize, ptypePMap, allSet);
        if (HasFMap(r)) {
            TMapPageUnicode fmap{};
            for (uint64_t k = 0; k < sizeof fmap.rgb; ++k)
                fmap.rgb[k] = freeRun(r + k);
            writeMap(ib += PageSize, ptypeFMap, fmap);
        }
        if (HasFPMap(r))
            writeMap(ib += PageSize, ptypeFPMap, allSet);
    }
    for (uint64_t r = 0; r < m_initialFMap.size(); ++r)
        m_initialFMap[r] = freeRun(r);
    // The file ends where its last region does, as Outlook's files do: the
    // free space the maps declare lies inside the file.
    m_eof = RegionStart(regions);
}

void TNdbWriter::WriteHeader(const std::array<uint32_t, 32>& nextNids, const TPageRef& nbt, const TPageRef& bbt)
{
    THeaderUnicode h{};
    h.start.dwMagic = HeaderMagic;
    h.start.wMagicClient = MagicClientPst;
    h.start.wVer = VerUnicode;
    h.start.wVerClient = VerClient;
    h.start.bPlatformCreate = 1;
    h.start.bPlatformAccess = 1;
    h.bidNextP = m_nextPage << 2;
    h.dwUnique = 1;
    std::copy(nextNids.begin(), nextNids.end(), h.rgnid);
    h.root.ibFileEof = m_eof;
    h.root.ibAMapLast = m_lastAMap;
    h.root.cbAMapFree = m_amapFree;
    h.root.cbPMapFree = 0;
    h.root.brefNBT = {nbt.bid, nbt.ib};
    h.root.brefBBT = {bbt.bid, bbt.ib};
    h.root.fAMapValid = 2; // VALID_AMAP2
    std::copy(m_initialFMap.begin(), m_initialFMap.end(), h.rgbFM);
    memset(h.rgbFP, 0xFF, sizeof h.rgbFP);
    h.bSentinel = 0x80;
    h.bCryptMethod = m_cryptMethod;
    h.bidNextB = m_nextBid << 2;
    const auto* bytes = reinterpret_cast<const char*>(&h);
    h.start.dwCRCPartial = Crc(bytes + HeaderCrcStart, HeaderCrcPartialSize);
    h.dwCRCFull = Crc(bytes + HeaderCrcStart, HeaderCrcFullSize);
    if (!m_file.resize(qint64(m_eof)) || !m_file.seek(0) || m_file.write(bytes, sizeof h) != qint64(sizeof h))
        throw core::ETessalyError(
            QStringLiteral("Can not write %1: %2").arg(m_file.fileName(), m_file.errorString()));
}

// --- heap-on-node ------------------------------------------------------------

THeapBuilder::THeapBuilder(uint8_t clientSig) : m_clientSig(clientSig) { m_pages.emplace_back(); }

namespace {

// Pages 8, 136, 264, ... of a heap start with a fill level bitmap.
bool IsBitmapPage(size_t page) { return page >= 8 && (page - 8) % 128 == 0; }

} // namespace

int THeapBuilder::HeaderSize(size_t page) const
{
    if (page == 0)
        return sizeof(THNHeader);
    return IsBitmapPage(page) ? sizeof(THNBitmapHeader) : sizeof(THNPageHeader);
}

uint32_t THeapBuilder::Allocate(const char* data, int size)
{
    Q_ASSERT(size >= 0 && uint32_t(size) <= MaxHeapItem);
    auto fits = [&](const TPage& page, size_t index) {
        const size_t count = page.starts.size() + 1;
        const size_t used = size_t(HeaderSize(index)) + size_t(page.data.size()) + size_t(size);
        return count < 2048 && (used + 1) / 2 * 2 + sizeof(THNPageMap) + 2 * (count + 1) <= MaxBlockData;
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
        b.append(page.data);
        if (b.size() % 2)
            b.append('\0');
        // The page map follows the allocations, at an even offset.
        const uint16_t ibHnpm = uint16_t(b.size());
        if (i == 0)
            Store(b.data(), THNHeader{ibHnpm, HeapSig, m_clientSig, m_userRoot, {}});
        else if (IsBitmapPage(i))
            Store(b.data(), THNBitmapHeader{ibHnpm, {}});
        else
            Store(b.data(), THNPageHeader{ibHnpm});
        Append(b, THNPageMap{uint16_t(page.starts.size()), 0});
        for (uint16_t start : page.starts)
            Add16(b, uint16_t(header + start));
        Add16(b, uint16_t(header + page.data.size()));
        pages.push_back(b);
    }
    return pages;
}

uint32_t BuildBTree(THeapBuilder& heap, const std::vector<QByteArray>& records, uint8_t cbKey, uint8_t cbEnt)
{
    uint8_t levels = 0;
    uint32_t root = 0;
    if (!records.empty()) {
        std::vector<std::pair<QByteArray, uint32_t>> nodes; // first key, allocation
        const size_t perLeaf = MaxHeapItem / (cbKey + cbEnt);
        for (size_t at = 0; at < records.size(); at += perLeaf) {
            QByteArray b;
            for (size_t i = at; i < std::min(records.size(), at + perLeaf); ++i)
                b.append(records[i]);
            nodes.emplace_back(records[at].left(cbKey), heap.Allocate(b));
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
    Append(header, TBTHHeader{bTypeBTH, cbKey, cbEnt, levels, root});
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
    THeapBuilder heap(bTypePC);
    std::vector<QByteArray> records;
    for (size_t i = 0; i < props.size(); ++i) {
        if (i + 1 < props.size() && TagId(props[i].tag) == TagId(props[i + 1].tag))
            continue; // the last value set wins
        const TProp& prop = props[i];
        const int fixed = FixedSize(TagType(prop.tag));
        const uint32_t hnid = fixed > 0 && fixed <= 4 ? InlineValue(prop.value) : StoreValue(heap, prop.value, sink);
        QByteArray record;
        Append(record, TPCRecord{TagId(prop.tag), TagType(prop.tag), hnid});
        records.push_back(record);
    }
    constexpr uint8_t KeySize = sizeof(TPCRecord::wPropId);
    heap.SetUserRoot(BuildBTree(heap, records, KeySize, sizeof(TPCRecord) - KeySize));
    return heap.Pages();
}

std::vector<QByteArray> BuildTableContext(std::vector<uint32_t> columns, const std::vector<TTableRow>& rows,
    const TSubnodeSink& sink)
{
    constexpr uint32_t RowIdTag = Tag(pid::LtpRowId, ptLong), RowVerTag = Tag(pid::LtpRowVer, ptLong);
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
            ends[size == 4 ? TCI_4b : size == 2 ? TCI_2b : TCI_1b] = offset;
    }
    const uint16_t rowSize = uint16_t(offset + (layout.size() + 7) / 8);
    const uint16_t cebOffset = offset;

    THeapBuilder heap(bTypeTC);
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
    // The row index: row id -> row number.
    std::vector<QByteArray> records;
    for (const auto& [id, number] : index) {
        QByteArray record;
        Add32(record, id);
        Add32(record, number);
        records.push_back(record);
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
    TTCInfo info{bTypeTC, uint8_t(layout.size()), {}, rowIndex, hnidRows, 0};
    std::copy(std::begin(ends), std::end(ends), info.rgib);
    info.rgib[TCI_bm] = rowSize;
    QByteArray infoBytes;
    Append(infoBytes, info);
    std::sort(layout.begin(), layout.end(), [](const TColumn& a, const TColumn& b) { return a.tag < b.tag; });
    for (const TColumn& c : layout)
        Append(infoBytes, TTCColDesc{c.tag, c.ib, c.cb, c.bit});
    heap.SetUserRoot(heap.Allocate(infoBytes));
    return heap.Pages();
}

} // namespace tessaly::pstfile
