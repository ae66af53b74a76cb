#pragma once

// The messaging layer of a personal folders file ([MS-PST] 2.4), read only
// and lazily: the message store, the name-to-id map, folders with their
// hierarchy and contents tables, messages with recipients and attachments,
// attachment data in parts, and attached messages to any depth.
//
// Opening reads the header and nothing per item. Objects read their
// properties when asked; the node database below caches a bounded amount.
// A TPstFile may be read from several threads at once; each object handed
// out (properties, messages, attachments) belongs to the thread that asked.

#include "pstfile/Ltp.h"

#include <QString>
#include <QUuid>
#include <atomic>
#include <map>
#include <mutex>
#include <unordered_map>

namespace tessaly::pstfile {

class TPstFile;

// A named property ([MS-PST] 2.4.7): a property set and a number or name.
struct TNamedId {
    QUuid guid;
    bool isString = false;
    uint32_t lid = 0;
    QString name;
};

class TNameMap {
public:
    void Load(const TPropertyContext& pc);
    // The named property that the id (0x8000 and above) stands for.
    const TNamedId* Find(uint16_t id) const;
    // The id of the numbered property of a set; none when the file has none.
    std::optional<uint16_t> Id(const QUuid& set, uint32_t lid) const;
    size_t Size() const { return m_ids.size(); }

private:
    std::unordered_map<uint16_t, TNamedId> m_ids;
    std::map<std::pair<QUuid, uint32_t>, uint16_t> m_numbered;
};

// One value of a table row, read with the row.
struct TPropValue {
    uint16_t id = 0;
    uint16_t type = 0;
    QByteArray data;
};

// The properties of one object: a property context read on demand, or the
// cells of a table row. Ids from 0x8000 up are named properties; Find with
// such an id looks for the property whose name-to-id map entry is that
// number, as files written by this program and by Outlook's own property
// sets use them (0x8208 for the location of a meeting, for example). For
// the named properties of pid, whose sets are known (NamedPropertySet), the
// entry must be of that set: other sets use the same numbers.
class TProperties {
public:
    TProperties() = default;
    TProperties(std::shared_ptr<const TPstFile> file, std::shared_ptr<const TPropertyContext> pc);
    TProperties(std::shared_ptr<const TPstFile> file, std::vector<TPropValue> values);

    bool IsValid() const { return m_pc || m_isRow; }
    // Every property as stored (id, type), in id order.
    std::vector<TPropEntry> Entries() const;
    // The entry stored under exactly this id.
    std::optional<TPropEntry> FindRaw(uint16_t id) const;
    // The entry for the id, named properties through the name-to-id map.
    std::optional<TPropEntry> Find(uint16_t id) const;
    std::optional<QByteArray> Value(const TPropEntry& entry, qint64 maxBytes = TNdb::MaxStream) const;
    bool Has(uint16_t id) const { return Find(id).has_value(); }

    // Typed readers; each gives an empty value when the property is absent,
    // of another type, or unreadable.
    std::optional<QByteArray> Bytes(uint16_t id, qint64 maxBytes = TNdb::MaxStream) const;
    std::optional<uint32_t> Int32(uint16_t id) const;
    std::optional<bool> Bool(uint16_t id) const;
    uint64_t Filetime(uint16_t id) const;
    // A string property: UTF-16, or 8-bit in the file's code page.
    std::optional<QString> String(uint16_t id) const;
    QByteArray Binary(uint16_t id) const;
    // Decodes a string value of either type.
    QString DecodeString(const TPropEntry& entry, const QByteArray& data) const;

    // When a value is kept in a subnode: that subnode, to be read in parts.
    std::optional<TSubnodeEntry> ValueNode(const TPropEntry& entry) const;

private:
    std::shared_ptr<const TPstFile> m_file;
    std::shared_ptr<const TPropertyContext> m_pc;
    std::vector<TPropValue> m_values;
    bool m_isRow = false;
};

class TAttachment;

// A message: one of a folder's items, or a message attached to another.
class TMessage {
public:
    TMessage(std::shared_ptr<const TPstFile> file, uint32_t nid, TNodeScope scope);
    uint32_t Nid() const { return m_nid; }
    const TProperties& Properties() const;
    // Rows of the recipient table.
    std::vector<TProperties> Recipients() const;
    // Rows of the attachment table: its row ids name the attachments.
    std::vector<TProperties> AttachmentRows() const;
    size_t AttachmentCount() const;
    // The attachment of the table's row i; null when it cannot be read.
    std::unique_ptr<TAttachment> OpenAttachment(size_t index) const;

private:
    std::optional<TTableContext> OpenTable(uint32_t nid) const;
    std::vector<TProperties> Rows(uint32_t nid) const;

    std::shared_ptr<const TPstFile> m_file;
    uint32_t m_nid;
    TNodeScope m_scope;
    mutable std::optional<TProperties> m_props;
    mutable std::optional<std::vector<uint32_t>> m_attachIds;
};

class TAttachment {
public:
    TAttachment(std::shared_ptr<const TPstFile> file, uint32_t nid, TNodeScope scope);
    uint32_t Nid() const { return m_nid; }
    const TProperties& Properties() const;
    // The method (PidTagAttachMethod): 1 by value, 5 an attached message...
    uint32_t Method() const;
    // The attached message, when the attachment holds one.
    std::unique_ptr<TMessage> Embedded() const;
    // The data (PidTagAttachDataBinary): its size, and parts of it.
    qint64 DataSize() const;
    // Reads from the data at offset; returns the bytes read, -1 on failure.
    qint64 ReadData(qint64 offset, char* out, qint64 size) const;

private:
    void LoadData() const;

    std::shared_ptr<const TPstFile> m_file;
    uint32_t m_nid;
    TNodeScope m_scope;
    mutable std::optional<TProperties> m_props;
    // The data: inline bytes, or the blocks of a subnode with their offsets.
    mutable bool m_dataLoaded = false;
    mutable bool m_dataOk = false;
    mutable QByteArray m_inline;
    mutable std::vector<uint64_t> m_blocks;
    mutable std::vector<qint64> m_offsets; // start of each block, and the end
};

class TPstFile : public std::enable_shared_from_this<TPstFile> {
public:
    // Throws EPstFileError when the file cannot be read as a data file.
    static std::shared_ptr<TPstFile> Open(const QString& fileName);
    explicit TPstFile(const QString& fileName);

    const TNdb& Ndb() const { return m_ndb; }
    bool IsOst() const { return m_ndb.IsOst(); }
    bool IsUnicode() const { return m_ndb.Kind() != TFileKind::Ansi; }
    // The Windows code page of 8-bit strings.
    int CodePage() const { return m_codePage.load(); }
    void SetCodePage(int codePage) { m_codePage.store(codePage); }
    const TNameMap& NameMap() const;

    // The properties of a node of the node B-tree (the store, a folder, a
    // message); invalid when it cannot be read.
    TProperties Properties(uint32_t nid) const;
    // The store's properties.
    TProperties Store() const { return Properties(nidMessageStore); }
    // Sub-folders of a folder in the order of its hierarchy table.
    std::vector<uint32_t> SubFolders(uint32_t folder) const;
    // Items of a folder in the order of its contents table.
    std::vector<uint32_t> Contents(uint32_t folder) const;
    // The items Contents gives, counted without reading the table's rows.
    uint32_t ContentCount(uint32_t folder) const;
    std::unique_ptr<TMessage> OpenMessage(uint32_t nid) const;

private:
    // A table context of a node of the node B-tree.
    std::optional<TTableContext> OpenTable(uint32_t nid) const;
    std::optional<std::vector<uint32_t>> TableRowIds(uint32_t tableNid) const;
    // Children found from the parent ids of the node B-tree, when a folder's
    // tables cannot be read.
    std::vector<uint32_t> ChildrenByParent(uint32_t folder, bool folders) const;

    TNdb m_ndb;
    std::atomic<int> m_codePage{1252};
    mutable std::once_flag m_nameMapOnce;
    mutable TNameMap m_nameMap;
    mutable std::once_flag m_parentsOnce;
    mutable std::unordered_map<uint32_t, std::vector<uint32_t>> m_children;
};

} // namespace tessaly::pstfile
