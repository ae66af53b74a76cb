#pragma once

// The node database of a personal folders file, read only ([MS-PST] 2.2):
// the header of each kind of file, the node and block B-trees searched page
// by page on demand, blocks decoded, checked and inflated, data trees and
// subnode trees. Nothing is read whole: a bounded cache keeps the pages and
// blocks read last. Safe for concurrent readers.
//
// Damage never throws past the constructor: a page or block that fails its
// checks is reported once (Problems) and reads that need it give nothing. A
// wrong checksum alone is reported and the bytes are still used, since every
// structure read from them is checked on its own.

#include "core/Exceptions.h"
#include "pstfile/Structs.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tessaly::pstfile {

// What kept a file from being read as a personal folders file.
enum class TPstFileFault {
    CannotOpen,       // the system refused to open it
    PermissionDenied, // the system refused to open it for reading
    NotDataFile,      // it does not start with the "!BDN" mark
    DamagedHeader,    // it starts with the mark, but its header cannot be used
};

// A file that cannot be read as a personal folders file at all.
class EPstFileError : public core::ETessalyError {
public:
    EPstFileError(TPstFileFault fault, QString message) : core::ETessalyError(std::move(message)), m_fault(fault) {}
    TPstFileFault Fault() const { return m_fault; }

private:
    TPstFileFault m_fault;
};

struct TNodeEntry {
    uint32_t nid = 0;
    uint64_t bidData = 0;
    uint64_t bidSub = 0;
    uint32_t nidParent = 0;
};

struct TSubnodeEntry {
    uint32_t nid = 0;
    uint64_t bidData = 0;
    uint64_t bidSub = 0;
};

using TBlock = std::shared_ptr<const QByteArray>;

class TNdb {
public:
    // Throws EPstFileError when the file cannot be opened or is not a
    // personal folders file of a kind we read.
    explicit TNdb(const QString& fileName);
    ~TNdb();
    TNdb(const TNdb&) = delete;
    TNdb& operator=(const TNdb&) = delete;

    const QString& FileName() const { return m_fileName; }
    TFileKind Kind() const { return m_layout.kind; }
    const TLayout& Layout() const { return m_layout; }
    bool IsOst() const { return m_isOst; }
    uint8_t CryptMethod() const { return m_crypt; }
    qint64 FileSize() const { return m_fileSize; }

    std::optional<TNodeEntry> FindNode(uint32_t nid) const;
    // Every node of the node B-tree, in node id order (one pass over its
    // leaves; pages that fail are skipped).
    void ForEachNode(const std::function<void(const TNodeEntry&)>& visit) const;

    // Where a block is stored and its sizes, as the block index gives them.
    struct TBlockRef {
        uint64_t bid = 0, ib = 0;
        uint32_t cb = 0, cbInflated = 0;
    };
    std::optional<TBlockRef> FindBlock(uint64_t bid) const;

    // One block's data, decoded and inflated; null when it cannot be read.
    TBlock ReadBlock(uint64_t bid) const;
    // The size of a block's data (inflated) as the block index gives it.
    std::optional<uint32_t> BlockSize(uint64_t bid) const;
    // The data blocks of a data tree, in order (the block itself when it is
    // not a tree); nullopt when a tree block cannot be read.
    std::optional<std::vector<uint64_t>> DataBlocks(uint64_t bid) const;
    // The whole stream of a data tree, at most maxBytes; nullopt when a
    // block cannot be read or the stream is larger.
    std::optional<QByteArray> ReadData(uint64_t bid, qint64 maxBytes = MaxStream) const;
    // The entries of a subnode tree, sorted by node id; nullopt when a block
    // of the tree cannot be read.
    std::optional<std::vector<TSubnodeEntry>> ReadSubnodes(uint64_t bidSub) const;

    // What failed so far, each block or page once.
    QStringList Problems() const;

    // The largest value read whole; attachment data is read in parts.
    static constexpr qint64 MaxStream = qint64(256) << 20;

private:
    // Searches a B-tree for the leaf entry of key; entryOut gets its bytes.
    bool SearchTree(uint64_t rootBid, uint64_t rootIb, uint8_t ptype, uint64_t key, QByteArray& entryOut) const;
    // One B-tree page, checked; null when it fails.
    TBlock ReadPage(uint64_t bid, uint64_t ib, uint8_t ptype) const;
    bool ReadAt(uint64_t ib, char* out, qint64 size) const;
    void Report(uint64_t id, const QString& problem) const;
    TBlock CacheGet(uint64_t key) const;
    void CachePut(uint64_t key, const TBlock& block) const;

    QString m_fileName;
    TLayout m_layout;
    bool m_isOst = false;
    uint8_t m_crypt = CryptNone;
    qint64 m_fileSize = 0;
    uint64_t m_nbtBid = 0, m_nbtIb = 0, m_bbtBid = 0, m_bbtIb = 0;

    mutable std::mutex m_fileLock;
    mutable QFile m_file;

    // A bounded cache of pages and blocks, most recently used first.
    mutable std::mutex m_cacheLock;
    mutable std::list<std::pair<uint64_t, TBlock>> m_lru;
    mutable std::unordered_map<uint64_t, std::list<std::pair<uint64_t, TBlock>>::iterator> m_cache;
    mutable size_t m_cacheBytes = 0;

    mutable std::mutex m_problemLock;
    mutable std::unordered_set<uint64_t> m_reported;
    mutable QStringList m_problems;
};

} // namespace tessaly::pstfile
