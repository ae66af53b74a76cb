#pragma once

// The lower two layers of a Unicode personal folders file as [MS-PST]
// describes them, for writing only:
// - the node database: blocks with trailers, data trees, subnode trees, the
//   node and block B-trees, the allocation maps and the header;
// - the lists, tables and properties layer: heap-on-node, B-tree-on-heap,
//   property contexts and table contexts.
// Blocks are appended in the order they are written; nothing is written twice
// except the map pages and the header, which are filled in at the end.

#include "pstfile/Crypt.h"
#include "pstfile/PropTags.h"
#include "pstfile/Structs.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <array>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <vector>

namespace tessaly::pstfile {

constexpr uint32_t MaxBlockData = 8192 - sizeof(TBlockTrailerUnicode);
constexpr uint32_t MaxHeapItem = 3580; // the largest heap allocation

// The bytes of an on-disk structure, appended.
template <class T>
void Append(QByteArray& b, const T& value)
{
    static_assert(std::is_trivially_copyable_v<T>);
    b.append(reinterpret_cast<const char*>(&value), qsizetype(sizeof value));
}

struct TSubnode {
    uint32_t nid = 0;
    uint64_t bidData = 0;
    uint64_t bidSub = 0;
};

// The file and its node database. Throws core::ETessalyError when the file
// cannot be written. cryptMethod (CryptNone, CryptPermute or CryptCyclic)
// encodes the data blocks; internal blocks (data trees, subnode trees) are
// never encoded ([MS-PST] 5.1).
class TNdbWriter {
public:
    explicit TNdbWriter(const QString& fileName, uint8_t cryptMethod = CryptNone);
    ~TNdbWriter();
    TNdbWriter(const TNdbWriter&) = delete;
    TNdbWriter& operator=(const TNdbWriter&) = delete;

    // One block of at most MaxBlockData bytes; returns its block id.
    uint64_t WriteBlock(const char* data, uint32_t size, bool internal = false);
    // Data already cut into blocks (the pages of a heap): one block, or a
    // data tree over them. 0 for no blocks.
    uint64_t WriteBlocks(const std::vector<QByteArray>& blocks);
    // A subnode tree (SLBLOCK, or SIBLOCK over SLBLOCKs); 0 for none.
    uint64_t WriteSubnodes(std::vector<TSubnode> subnodes);
    void AddNode(uint32_t nid, uint64_t bidData, uint64_t bidSub, uint32_t nidParent);

    // Writes the B-trees, the maps and the header, and closes the file.
    void Finish(const std::array<uint32_t, 32>& nextNids);
    void Abort();
    // The bytes written so far; after Finish, the size of the file.
    qint64 Size() const { return qint64(m_eof); }

private:
    struct TBlockRef {
        uint64_t bid, ib;
        uint16_t cb;
    };
    struct TNodeRef {
        uint32_t nid, nidParent;
        uint64_t bidData, bidSub;
    };
    struct TPageRef {
        uint64_t key, bid, ib;
    };
    uint64_t Allocate(uint32_t size, uint32_t align);
    void Put(uint64_t ib, const char* data, size_t size);
    void Flush();
    uint64_t WriteTree(std::vector<uint64_t> bids, uint64_t total);
    // Leaf entry i written to out (cbEnt bytes); returns its key.
    using TEntryWriter = std::function<uint64_t(size_t i, char* out)>;
    TPageRef WriteBTree(uint8_t ptype, size_t count, uint8_t cbEnt, const TEntryWriter& entry);
    TPageRef WritePage(uint8_t ptype, const QByteArray& entries, const TBTPageCountsSmall& counts, uint64_t key);
    void WriteMaps();
    void WriteHeader(const std::array<uint32_t, 32>& nextNids, const TPageRef& nbt, const TPageRef& bbt);

    QFile m_file;
    uint8_t m_cryptMethod;
    QByteArray m_encoded;      // a data block as stored
    QByteArray m_buffer;       // bytes from m_bufferStart on, not yet written
    uint64_t m_bufferStart = 0;
    uint64_t m_eof = 0;
    uint64_t m_nextBid = 1;  // block ids count in steps of 4
    uint64_t m_nextPage = 1; // page ids likewise
    std::vector<TBlockRef> m_blocks;
    std::vector<TNodeRef> m_nodes;
    uint64_t m_amapFree = 0;
    uint64_t m_lastAMap = 0;
    std::array<uint8_t, 128> m_initialFMap{};
};

// Heap-on-node ([MS-PST] 2.3.1): allocations of at most MaxHeapItem bytes
// spread over pages of one block each.
class THeapBuilder {
public:
    explicit THeapBuilder(uint8_t clientSig);
    uint32_t Allocate(const char* data, int size);
    uint32_t Allocate(const QByteArray& data) { return Allocate(data.constData(), int(data.size())); }
    void SetUserRoot(uint32_t hid) { m_userRoot = hid; }
    std::vector<QByteArray> Pages() const;

private:
    struct TPage {
        QByteArray data;       // allocations, back to back
        std::vector<uint16_t> starts;
    };
    int HeaderSize(size_t page) const;
    uint8_t m_clientSig;
    uint32_t m_userRoot = 0;
    std::vector<TPage> m_pages;
};

// A B-tree on a heap ([MS-PST] 2.3.2) over records of cbKey + cbEnt bytes,
// key first, sorted by key; returns the header's allocation.
uint32_t BuildBTree(THeapBuilder& heap, const std::vector<QByteArray>& records, uint8_t cbKey, uint8_t cbEnt);

// Writes a value too large for the heap, cut into blocks, as a subnode of
// the node being built and returns the subnode's id.
using TSubnodeSink = std::function<uint32_t(const std::vector<QByteArray>& blocks)>;
// Data cut into blocks of at most `size` bytes (at least one block).
std::vector<QByteArray> SplitBlocks(const QByteArray& data, qsizetype size = MaxBlockData);

struct TProp {
    uint32_t tag;
    QByteArray value; // little-endian bytes; strings as UTF-16LE without terminator
};

// Property context: the pages of the node's heap.
std::vector<QByteArray> BuildPropertyContext(std::vector<TProp> props, const TSubnodeSink& sink);

// Table context. Every row carries its row id; cells absent from a row do
// not exist in it.
struct TTableRow {
    uint32_t rowId;
    std::vector<TProp> cells;
};
std::vector<QByteArray> BuildTableContext(std::vector<uint32_t> columns, const std::vector<TTableRow>& rows,
    const TSubnodeSink& sink);

} // namespace tessaly::pstfile
