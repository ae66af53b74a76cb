#include "pstfile/Ndb.h"

#include "pstfile/Crypt.h"
#include "pstfile/Endian.h"

#include <algorithm>
#include <tuple>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <unistd.h>
#endif

namespace tessaly::pstfile {

namespace {

constexpr size_t CacheLimit = 16 << 20; // bytes of pages and blocks kept
constexpr int MaxTreeDepth = 16;        // B-tree levels; more means a loop
constexpr size_t MaxProblems = 1000;

// Cache keys: pages and blocks have ids of their own spaces.
uint64_t PageKey(uint64_t bid) { return bid | (uint64_t(1) << 63); }

QString Hex(uint64_t v) { return QStringLiteral("0x") + QString::number(v, 16); }

// Inflates a zlib stream (blocks of files with 4 KiB pages).
std::optional<QByteArray> Inflate(const QByteArray& data, uint32_t size)
{
    QByteArray framed(4, '\0');
    framed[0] = char(size >> 24);
    framed[1] = char(size >> 16);
    framed[2] = char(size >> 8);
    framed[3] = char(size);
    framed.append(data);
    QByteArray out = qUncompress(framed);
    if (out.size() != qsizetype(size))
        return std::nullopt;
    return out;
}

} // namespace

TNdb::TNdb(const QString& fileName) : m_fileName(fileName), m_file(fileName)
{
    using enum TPstFileFault;
    if (!m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        throw EPstFileError(m_file.error() == QFileDevice::PermissionsError ? PermissionDenied : CannotOpen,
            QStringLiteral("Can not open %1: %2").arg(fileName, m_file.errorString()));
    }
    m_fileSize = m_file.size();
    char h[sizeof(THeaderUnicode)] = {};
    const qint64 got = std::min<qint64>(m_fileSize, sizeof h);
    if (m_fileSize < qint64(sizeof(HeaderMagic)) || !ReadAt(0, h, got))
        throw EPstFileError(NotDataFile, QStringLiteral("%1 is not an Outlook data file: it is too short").arg(fileName));
    // The mark tells a data file from any other; what follows it is its header.
    if (Load<uint32_t>(h) != HeaderMagic)
        throw EPstFileError(NotDataFile, QStringLiteral("%1 is not an Outlook data file").arg(fileName));
    if (m_fileSize < qint64(sizeof(THeaderAnsi)))
        throw EPstFileError(DamagedHeader, QStringLiteral("%1 is damaged: its header is cut short").arg(fileName));
    const auto start = Load<THeaderStart>(h);
    m_isOst = start.wMagicClient == MagicClientOst;
    // Both kinds of header keep the same fields at different places.
    auto take = [&](const auto& header, uint32_t crc, uint32_t storedCrc) {
        if (crc != storedCrc)
            Report(0, QStringLiteral("the header's checksum is wrong"));
        m_crypt = header.bCryptMethod;
        m_nbtBid = header.root.brefNBT.bid;
        m_nbtIb = header.root.brefNBT.ib;
        m_bbtBid = header.root.brefBBT.bid;
        m_bbtIb = header.root.brefBBT.ib;
    };
    if (start.wVer >= VerAnsiMin && start.wVer <= VerAnsiMax) {
        m_layout = TLayout::For(TFileKind::Ansi);
        const auto header = Load<THeaderAnsi>(h);
        take(header, Crc(h + HeaderCrcStart, HeaderCrcPartialSize), header.start.dwCRCPartial);
    } else if (start.wVer > VerAnsiMax && start.wVer <= VerUnicode4K) {
        if (m_fileSize < qint64(sizeof(THeaderUnicode)))
            throw EPstFileError(DamagedHeader, QStringLiteral("%1 is damaged: its header is cut short").arg(fileName));
        m_layout = TLayout::For(start.wVer == VerUnicode4K ? TFileKind::Unicode4K : TFileKind::Unicode);
        const auto header = Load<THeaderUnicode>(h);
        take(header, Crc(h + HeaderCrcStart, HeaderCrcFullSize), header.dwCRCFull);
    } else {
        throw EPstFileError(DamagedHeader,
            QStringLiteral("%1 is an Outlook data file of an unknown version (%2)").arg(fileName).arg(start.wVer));
    }
    if (m_crypt != CryptNone && m_crypt != CryptPermute && m_crypt != CryptCyclic)
        throw EPstFileError(DamagedHeader, QStringLiteral("%1 uses an unknown encoding (%2)").arg(fileName).arg(m_crypt));
    if (m_nbtIb == 0 || m_bbtIb == 0 || qint64(m_nbtIb) >= m_fileSize || qint64(m_bbtIb) >= m_fileSize)
        throw EPstFileError(DamagedHeader, QStringLiteral("%1 is damaged: its index is outside the file").arg(fileName));
}

TNdb::~TNdb() = default;

bool TNdb::ReadAt(uint64_t ib, char* out, qint64 size) const
{
    if (size < 0 || ib > uint64_t(m_fileSize) || uint64_t(size) > uint64_t(m_fileSize) - ib)
        return false;
#ifdef Q_OS_UNIX
    // One call, and no lock: readers on other threads read at once.
    const int handle = m_file.handle();
    while (size > 0) {
        const ssize_t got = pread(handle, out, size_t(size), off_t(ib));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        out += got;
        size -= got;
        ib += uint64_t(got);
    }
    return true;
#else
    std::lock_guard lock(m_fileLock);
    return m_file.seek(qint64(ib)) && m_file.read(out, size) == size;
#endif
}

void TNdb::Report(uint64_t id, const QString& problem) const
{
    std::lock_guard lock(m_problemLock);
    if (!m_reported.insert(id).second || size_t(m_problems.size()) >= MaxProblems)
        return;
    m_problems.append(problem);
}

QStringList TNdb::Problems() const
{
    std::lock_guard lock(m_problemLock);
    return m_problems;
}

TBlock TNdb::CacheGet(uint64_t key) const
{
    std::lock_guard lock(m_cacheLock);
    const auto it = m_cache.find(key);
    if (it == m_cache.end())
        return nullptr;
    m_lru.splice(m_lru.begin(), m_lru, it->second);
    return it->second->second;
}

void TNdb::CachePut(uint64_t key, const TBlock& block) const
{
    std::lock_guard lock(m_cacheLock);
    if (m_cache.count(key))
        return;
    m_lru.emplace_front(key, block);
    m_cache[key] = m_lru.begin();
    m_cacheBytes += size_t(block->size()) + 64;
    while (m_cacheBytes > CacheLimit && m_lru.size() > 1) {
        const auto& last = m_lru.back();
        m_cacheBytes -= size_t(last.second->size()) + 64;
        m_cache.erase(last.first);
        m_lru.pop_back();
    }
}

TBlock TNdb::ReadPage(uint64_t bid, uint64_t ib, uint8_t ptype) const
{
    if (TBlock page = CacheGet(PageKey(bid)))
        return page;
    const uint32_t size = m_layout.pageSize;
    auto page = std::make_shared<QByteArray>(qsizetype(size), '\0');
    char* p = page->data();
    auto fail = [&](const QString& why) {
        Report(PageKey(bid), QStringLiteral("page %1 at offset %2: %3").arg(Hex(bid), QString::number(ib), why));
        return TBlock();
    };
    if (!ReadAt(ib, p, size))
        return fail(QStringLiteral("outside the file"));
    uint8_t type, repeat;
    uint32_t crc, storedCrc;
    uint64_t storedBid;
    switch (m_layout.kind) {
    case TFileKind::Ansi: {
        const auto t = Load<TPageTrailerAnsi>(p + offsetof(TBTPageAnsi, trailer));
        type = t.ptype, repeat = t.ptypeRepeat, storedCrc = t.dwCRC, storedBid = t.bid;
        crc = Crc(p, offsetof(TBTPageAnsi, trailer));
        break;
    }
    case TFileKind::Unicode: {
        const auto t = Load<TPageTrailerUnicode>(p + offsetof(TBTPageUnicode, trailer));
        type = t.ptype, repeat = t.ptypeRepeat, storedCrc = t.dwCRC, storedBid = t.bid;
        crc = Crc(p, offsetof(TBTPageUnicode, trailer));
        break;
    }
    default: {
        const auto t = Load<TPageTrailer4K>(p + offsetof(TBTPage4K, trailer)).trailer;
        type = t.ptype, repeat = t.ptypeRepeat, storedCrc = t.dwCRC, storedBid = t.bid;
        crc = Crc(p, offsetof(TBTPage4K, trailer));
        break;
    }
    }
    if (type != ptype || repeat != ptype)
        return fail(QStringLiteral("not a page of the expected kind"));
    if (storedBid != bid)
        return fail(QStringLiteral("its id does not match"));
    // A wrong checksum alone is reported, and the page is still used: its
    // entries are checked one by one where they are read.
    if (crc != storedCrc)
        Report(PageKey(bid), QStringLiteral("page %1 at offset %2: its checksum is wrong").arg(Hex(bid), QString::number(ib)));
    CachePut(PageKey(bid), page);
    return page;
}

namespace {

struct TPageCounts {
    uint32_t cEnt, cEntMax, cbEnt, cLevel;
    uint32_t entriesSize;
};

TPageCounts Counts(const TLayout& layout, const char* p)
{
    switch (layout.kind) {
    case TFileKind::Ansi: {
        const auto c = Load<TBTPageCountsSmall>(p + offsetof(TBTPageAnsi, counts));
        return {c.cEnt, c.cEntMax, c.cbEnt, c.cLevel, sizeof(TBTPageAnsi::rgentries)};
    }
    case TFileKind::Unicode: {
        const auto c = Load<TBTPageCountsSmall>(p + offsetof(TBTPageUnicode, counts));
        return {c.cEnt, c.cEntMax, c.cbEnt, c.cLevel, sizeof(TBTPageUnicode::rgentries)};
    }
    default: {
        const auto c = Load<TBTPageCounts4K>(p + offsetof(TBTPage4K, counts));
        return {c.cEnt, c.cEntMax, c.cbEnt, c.cLevel, sizeof(TBTPage4K::rgentries)};
    }
    }
}

// The page an index entry points to.
std::pair<uint64_t, uint64_t> IndexRef(bool wide, const char* e)
{
    if (wide) {
        const auto entry = Load<TBTEntryUnicode>(e);
        return {entry.bref.bid, entry.bref.ib};
    }
    const auto entry = Load<TBTEntryAnsi>(e);
    return {entry.bref.bid, entry.bref.ib};
}

TNodeEntry NodeAt(bool wide, const char* e)
{
    if (wide) {
        const auto n = Load<TNBTEntryUnicode>(e);
        return {uint32_t(n.nid), n.bidData, n.bidSub, n.nidParent};
    }
    const auto n = Load<TNBTEntryAnsi>(e);
    return {n.nid, n.bidData, n.bidSub, n.nidParent};
}

} // namespace

bool TNdb::SearchTree(uint64_t rootBid, uint64_t rootIb, uint8_t ptype, uint64_t key, QByteArray& entryOut) const
{
    const bool wide = m_layout.Wide();
    uint64_t bid = rootBid, ib = rootIb;
    for (int depth = 0; depth < MaxTreeDepth; ++depth) {
        const TBlock page = ReadPage(bid, ib, ptype);
        if (!page)
            return false;
        const char* p = page->constData();
        const TPageCounts c = Counts(m_layout, p);
        const uint32_t leafSize = ptype == ptypeNBT ? m_layout.nbtLeafEntry : m_layout.bbtLeafEntry;
        const uint32_t want = c.cLevel == 0 ? leafSize : m_layout.indexEntry;
        if (c.cbEnt < want || c.cEnt * c.cbEnt > c.entriesSize) {
            Report(PageKey(bid), QStringLiteral("page %1: its entry counts are wrong").arg(Hex(bid)));
            return false;
        }
        auto keyAt = [&](uint32_t i) {
            const char* e = p + size_t(i) * c.cbEnt;
            return wide ? Get64(e) : uint64_t(Get32(e));
        };
        // The last entry whose key is not above the one searched.
        uint32_t lo = 0, hi = c.cEnt;
        while (lo < hi) {
            const uint32_t mid = (lo + hi) / 2;
            if (keyAt(mid) <= key)
                lo = mid + 1;
            else
                hi = mid;
        }
        if (lo == 0)
            return false;
        const char* e = p + size_t(lo - 1) * c.cbEnt;
        if (c.cLevel == 0) {
            if (keyAt(lo - 1) != key)
                return false;
            entryOut = QByteArray(e, qsizetype(c.cbEnt));
            return true;
        }
        std::tie(bid, ib) = IndexRef(wide, e);
    }
    Report(PageKey(rootBid), QStringLiteral("B-tree %1 is deeper than any file has").arg(Hex(rootBid)));
    return false;
}

std::optional<TNodeEntry> TNdb::FindNode(uint32_t nid) const
{
    QByteArray e;
    if (!SearchTree(m_nbtBid, m_nbtIb, ptypeNBT, nid, e))
        return std::nullopt;
    return NodeAt(m_layout.Wide(), e.constData());
}

void TNdb::ForEachNode(const std::function<void(const TNodeEntry&)>& visit) const
{
    // Depth first over the pages; a page that fails is left out with what
    // is below it.
    struct TRef {
        uint64_t bid, ib;
        int depth;
    };
    std::vector<TRef> stack{{m_nbtBid, m_nbtIb, 0}};
    std::unordered_set<uint64_t> seen;
    const bool wide = m_layout.Wide();
    while (!stack.empty()) {
        const TRef ref = stack.back();
        stack.pop_back();
        if (ref.depth >= MaxTreeDepth || !seen.insert(ref.bid).second)
            continue;
        const TBlock page = ReadPage(ref.bid, ref.ib, ptypeNBT);
        if (!page)
            continue;
        const char* p = page->constData();
        const TPageCounts c = Counts(m_layout, p);
        const uint32_t want = c.cLevel == 0 ? m_layout.nbtLeafEntry : m_layout.indexEntry;
        if (c.cbEnt < want || c.cEnt * c.cbEnt > c.entriesSize)
            continue;
        if (c.cLevel == 0) {
            for (uint32_t i = 0; i < c.cEnt; ++i) {
                visit(NodeAt(wide, p + size_t(i) * c.cbEnt));
            }
            continue;
        }
        for (uint32_t i = c.cEnt; i-- > 0;) {
            const auto [bid, ib] = IndexRef(wide, p + size_t(i) * c.cbEnt);
            stack.push_back({bid, ib, ref.depth + 1});
        }
    }
}

std::optional<TNdb::TBlockRef> TNdb::FindBlock(uint64_t bid) const
{
    // Bit 0 of a block id is reserved: readers ignore it.
    QByteArray e;
    const uint64_t key = bid & ~uint64_t(1);
    if (!SearchTree(m_bbtBid, m_bbtIb, ptypeBBT, key, e))
        return std::nullopt;
    TBlockRef block;
    switch (m_layout.kind) {
    case TFileKind::Ansi: {
        const auto b = Load<TBBTEntryAnsi>(e.constData());
        block = {b.bref.bid, b.bref.ib, b.cb, b.cb};
        break;
    }
    case TFileKind::Unicode: {
        const auto b = Load<TBBTEntryUnicode>(e.constData());
        block = {b.bref.bid, b.bref.ib, b.cb, b.cb};
        break;
    }
    default: {
        const auto b = Load<TBBTEntry4K>(e.constData());
        block = {b.bref.bid, b.bref.ib, b.cb, b.cbInflated};
        break;
    }
    }
    return block;
}

std::optional<uint32_t> TNdb::BlockSize(uint64_t bid) const
{
    if (const TBlock block = CacheGet(bid & ~uint64_t(1)))
        return uint32_t(block->size());
    const auto ref = FindBlock(bid & ~uint64_t(1));
    if (!ref)
        return std::nullopt;
    return ref->cbInflated;
}

TBlock TNdb::ReadBlock(uint64_t bid) const
{
    bid &= ~uint64_t(1);
    if (bid == 0)
        return nullptr;
    if (TBlock block = CacheGet(bid))
        return block;
    auto fail = [&](const QString& why) {
        Report(bid, QStringLiteral("block %1: %2").arg(Hex(bid), why));
        return TBlock();
    };
    const auto ref = FindBlock(bid);
    if (!ref)
        return fail(QStringLiteral("not in the block index"));
    const uint32_t total = m_layout.BlockTotal(ref->cb);
    if (ref->cb == 0 || total > m_layout.blockSize)
        return fail(QStringLiteral("its size is wrong"));
    QByteArray raw(qsizetype(total), '\0');
    if (!ReadAt(ref->ib, raw.data(), total))
        return fail(QStringLiteral("outside the file"));
    const char* t = raw.constData() + total - m_layout.blockTrailer;
    uint32_t cb, storedCrc;
    uint64_t storedBid;
    uint16_t sig;
    switch (m_layout.kind) {
    case TFileKind::Ansi: {
        const auto trailer = Load<TBlockTrailerAnsi>(t);
        cb = trailer.cb, sig = trailer.wSig, storedCrc = trailer.dwCRC, storedBid = trailer.bid;
        break;
    }
    case TFileKind::Unicode: {
        const auto trailer = Load<TBlockTrailerUnicode>(t);
        cb = trailer.cb, sig = trailer.wSig, storedCrc = trailer.dwCRC, storedBid = trailer.bid;
        break;
    }
    default: {
        const auto trailer = Load<TBlockTrailer4K>(t);
        cb = trailer.cb, sig = trailer.wSig, storedCrc = trailer.dwCRC, storedBid = trailer.bid;
        break;
    }
    }
    if (cb != ref->cb)
        return fail(QStringLiteral("its size does not match the index"));
    if ((storedBid & ~uint64_t(1)) != bid)
        return fail(QStringLiteral("its id does not match"));
    if (sig != 0 && sig != Signature(ref->ib, storedBid))
        return fail(QStringLiteral("its signature is wrong"));
    // A wrong checksum alone is reported, and what the block holds is still
    // read: every structure in it is checked where it is used, and a
    // damaged byte in a body or an attachment costs less than the item.
    if (storedCrc != Crc(raw.constData(), cb))
        Report(bid, QStringLiteral("block %1: its checksum is wrong").arg(Hex(bid)));
    raw.truncate(qsizetype(cb));
    if (!IsInternalBid(bid)) {
        if (m_crypt == CryptPermute)
            DecodePermute(raw.data(), size_t(raw.size()));
        else if (m_crypt == CryptCyclic)
            Cyclic(raw.data(), size_t(raw.size()), uint32_t(bid));
    }
    if (m_layout.kind == TFileKind::Unicode4K && ref->cbInflated != ref->cb) {
        auto inflated = Inflate(raw, ref->cbInflated);
        if (!inflated)
            return fail(QStringLiteral("it cannot be inflated"));
        raw = std::move(*inflated);
    }
    auto block = std::make_shared<const QByteArray>(std::move(raw));
    CachePut(bid, block);
    return block;
}

std::optional<std::vector<uint64_t>> TNdb::DataBlocks(uint64_t bid) const
{
    if (!IsInternalBid(bid))
        return std::vector<uint64_t>{bid};
    const TBlock top = ReadBlock(bid);
    if (!top)
        return std::nullopt;
    const uint32_t bidSize = m_layout.bidSize;
    std::vector<uint64_t> out;
    auto entries = [&](const QByteArray& block, uint8_t level, std::vector<uint64_t>& ids) {
        if (block.size() < qsizetype(sizeof(TXBlockHeader)))
            return false;
        const auto h = Load<TXBlockHeader>(block.constData());
        if (h.btype != 0x01 || h.cLevel != level
            || sizeof(TXBlockHeader) + size_t(h.cEnt) * bidSize > size_t(block.size()))
            return false;
        for (uint32_t i = 0; i < h.cEnt; ++i) {
            const char* e = block.constData() + sizeof(TXBlockHeader) + size_t(i) * bidSize;
            ids.push_back(bidSize == 8 ? Get64(e) : Get32(e));
        }
        return true;
    };
    const auto h = top->size() >= 2 ? uint8_t((*top)[1]) : 0;
    if (h == 1) {
        if (!entries(*top, 1, out)) {
            Report(bid, QStringLiteral("block %1: not a data tree").arg(Hex(bid)));
            return std::nullopt;
        }
        return out;
    }
    std::vector<uint64_t> middle;
    if (h != 2 || !entries(*top, 2, middle)) {
        Report(bid, QStringLiteral("block %1: not a data tree").arg(Hex(bid)));
        return std::nullopt;
    }
    for (uint64_t x : middle) {
        const TBlock block = IsInternalBid(x) ? ReadBlock(x) : nullptr;
        if (!block || !entries(*block, 1, out)) {
            Report(x, QStringLiteral("block %1: not a data tree").arg(Hex(x)));
            return std::nullopt;
        }
    }
    return out;
}

std::optional<QByteArray> TNdb::ReadData(uint64_t bid, qint64 maxBytes) const
{
    const auto blocks = DataBlocks(bid);
    if (!blocks)
        return std::nullopt;
    QByteArray out;
    for (uint64_t b : *blocks) {
        const TBlock block = ReadBlock(b);
        if (!block || IsInternalBid(b))
            return std::nullopt;
        if (out.size() + block->size() > maxBytes)
            return std::nullopt;
        out.append(*block);
    }
    return out;
}

std::optional<std::vector<TSubnodeEntry>> TNdb::ReadSubnodes(uint64_t bidSub) const
{
    std::vector<TSubnodeEntry> out;
    if (bidSub == 0)
        return out;
    const bool wide = m_layout.Wide();
    const uint32_t header = m_layout.subnodeHeader;
    auto parse = [&](uint64_t bid, uint8_t level, auto&& each) {
        const TBlock block = ReadBlock(bid);
        if (!block)
            return false;
        if (block->size() < qsizetype(header)) {
            Report(bid, QStringLiteral("block %1: not a subnode block").arg(Hex(bid)));
            return false;
        }
        const auto h = Load<TSubnodeBlockHeader>(block->constData());
        const uint32_t size = level == 0 ? m_layout.slEntry : m_layout.siEntry;
        if (h.btype != 0x02 || h.cLevel != level || header + size_t(h.cEnt) * size > size_t(block->size())) {
            Report(bid, QStringLiteral("block %1: not a subnode block").arg(Hex(bid)));
            return false;
        }
        for (uint32_t i = 0; i < h.cEnt; ++i)
            each(block->constData() + header + size_t(i) * size);
        return true;
    };
    auto leaf = [&](uint64_t bid) {
        return parse(bid, 0, [&](const char* e) {
            if (wide) {
                const auto s = Load<TSLEntryUnicode>(e);
                out.push_back({uint32_t(s.nid), s.bidData, s.bidSub});
            } else {
                const auto s = Load<TSLEntryAnsi>(e);
                out.push_back({s.nid, s.bidData, s.bidSub});
            }
        });
    };
    const TBlock top = ReadBlock(bidSub);
    if (!top)
        return std::nullopt;
    if (top->size() >= 2 && (*top)[1] == 0) {
        if (!leaf(bidSub))
            return std::nullopt;
    } else {
        std::vector<uint64_t> leaves;
        if (!parse(bidSub, 1, [&](const char* e) {
                leaves.push_back(wide ? Load<TSIEntryUnicode>(e).bid : Load<TSIEntryAnsi>(e).bid);
            }))
            return std::nullopt;
        for (uint64_t l : leaves)
            if (!leaf(l))
                return std::nullopt;
    }
    std::stable_sort(out.begin(), out.end(), [](const TSubnodeEntry& a, const TSubnodeEntry& b) { return a.nid < b.nid; });
    return out;
}

} // namespace tessaly::pstfile
