#pragma once

// The lists, tables and properties layer ([MS-PST] 2.3) over the node
// database: heap-on-node, B-tree-on-heap, property contexts and table
// contexts. Everything is read only and fails soft: an object that cannot
// be read does not open, a value that cannot be read is nullopt.

#include "pstfile/Ndb.h"
#include "pstfile/PropTags.h"

#include <QByteArray>
#include <memory>
#include <optional>
#include <vector>

namespace tessaly::pstfile {

// A node's data and subnodes: what heap ids and node ids of its values
// resolve in.
class TNodeScope {
public:
    TNodeScope(const TNdb& ndb, uint64_t bidData, uint64_t bidSub) : m_ndb(&ndb), m_bidData(bidData), m_bidSub(bidSub) {}
    const TNdb& Ndb() const { return *m_ndb; }
    uint64_t BidData() const { return m_bidData; }
    uint64_t BidSub() const { return m_bidSub; }
    // The node's subnodes, read once; empty when they cannot be read.
    const std::vector<TSubnodeEntry>& Subnodes() const;
    std::optional<TSubnodeEntry> Subnode(uint32_t nid) const;

private:
    const TNdb* m_ndb;
    uint64_t m_bidData, m_bidSub;
    mutable std::shared_ptr<std::vector<TSubnodeEntry>> m_subnodes;
};

class THeap {
public:
    static std::optional<THeap> Open(const TNodeScope& scope);
    uint8_t ClientSig() const { return m_clientSig; }
    uint32_t UserRoot() const { return m_userRoot; }
    // The bytes of one allocation.
    std::optional<QByteArray> Item(uint32_t hid) const;
    const TNodeScope& Scope() const { return m_scope; }
    // A value by HNID: an allocation of the heap, or the data of a subnode.
    std::optional<QByteArray> Value(uint32_t hnid, qint64 maxBytes = TNdb::MaxStream) const;

private:
    explicit THeap(const TNodeScope& scope) : m_scope(scope) {}
    TNodeScope m_scope;
    std::vector<TBlock> m_pages;
    uint8_t m_clientSig = 0;
    uint32_t m_userRoot = 0;
};

// The records of a B-tree on the heap, in key order; each record is its key
// followed by its data. nullopt when the tree cannot be read.
struct TBTreeRecords {
    uint8_t cbKey = 0, cbEnt = 0;
    std::vector<QByteArray> records;
};
std::optional<TBTreeRecords> ReadBTree(const THeap& heap, uint32_t hidHeader);

// A property of a property context; the value is read on demand.
struct TPropEntry {
    uint16_t id = 0;
    uint16_t type = 0;
    uint32_t hnid = 0; // the value itself for fixed types of up to 4 bytes
};

class TPropertyContext {
public:
    static std::optional<TPropertyContext> Open(const TNodeScope& scope);
    const std::vector<TPropEntry>& Entries() const { return m_entries; }
    const TPropEntry* Find(uint16_t id) const;
    // The value's bytes as stored: little-endian numbers, strings without
    // terminator, multi-valued properties as their packed form.
    std::optional<QByteArray> Value(const TPropEntry& entry, qint64 maxBytes = TNdb::MaxStream) const;
    // When the value is held in a subnode: that subnode (to read in parts).
    std::optional<TSubnodeEntry> ValueNode(const TPropEntry& entry) const;

private:
    explicit TPropertyContext(THeap heap) : m_heap(std::move(heap)) {}
    THeap m_heap;
    std::vector<TPropEntry> m_entries;
};

class TTableContext {
public:
    struct TColumn {
        uint32_t tag = 0;
        uint16_t ib = 0;
        uint8_t cb = 0, bit = 0;
    };
    static std::optional<TTableContext> Open(const TNodeScope& scope);
    const std::vector<TColumn>& Columns() const { return m_columns; }
    const TColumn* Column(uint16_t id) const;
    size_t RowCount() const { return m_rowCount; }
    // A row's bytes; empty when its block cannot be read.
    QByteArray Row(size_t row) const;
    // The row's id (its first cell); nullopt when the row cannot be read.
    std::optional<uint32_t> RowId(size_t row) const;
    // A cell of a row read with Row: nullopt when absent or unreadable.
    std::optional<QByteArray> Cell(const QByteArray& row, const TColumn& column, qint64 maxBytes = TNdb::MaxStream) const;

private:
    explicit TTableContext(THeap heap) : m_heap(std::move(heap)) {}
    THeap m_heap;
    std::vector<TColumn> m_columns;
    uint16_t m_rowSize = 0, m_cebOffset = 0;
    size_t m_rowCount = 0;
    // The row matrix: in the heap, or in a subnode's blocks of whole rows.
    QByteArray m_heapRows;
    std::vector<uint64_t> m_rowBlocks;
    size_t m_rowsPerBlock = 0;
};

} // namespace tessaly::pstfile
