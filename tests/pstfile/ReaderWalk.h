#pragma once

// Reads whole items of a data file with our reader and with libpff into one
// plain form, so the two can be compared and their damage counted: every
// property (id, type, bytes, and what a named property's id stands for),
// recipient and attachment table rows, attachment data (its size and a
// digest) and attached messages to a bounded depth. Every loop is bounded,
// so a damaged file that claims huge counts cannot hang a test.

#include "pstfile/Reader.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>
#include <QString>
#include <QUuid>
#include <algorithm>
#include <cstdint>
#include <libpff.h>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace tessaly::test {

// Bounds of a walk.
constexpr int MaxEmbeddedDepth = 16;
constexpr int MaxChildren = 1 << 20;            // sub-folders, items, rows or attachments of one object
constexpr qint64 MaxAttachmentBytes = qint64(1) << 30;
constexpr qint64 ChunkBytes = 64 * 1024;

// --- libpff handles -----------------------------------------------------------------

template <class T, int (*Free)(T**, libpff_error_t**)>
class TPffOwner {
public:
    TPffOwner() = default;
    explicit TPffOwner(T* handle) : m_handle(handle) {}
    ~TPffOwner() { Reset(); }
    TPffOwner(const TPffOwner&) = delete;
    TPffOwner& operator=(const TPffOwner&) = delete;
    TPffOwner(TPffOwner&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    TPffOwner& operator=(TPffOwner&& other) noexcept
    {
        if (this != &other) {
            Reset();
            m_handle = std::exchange(other.m_handle, nullptr);
        }
        return *this;
    }
    T* Get() const { return m_handle; }
    T** Out()
    {
        Reset();
        return &m_handle;
    }
    explicit operator bool() const { return m_handle != nullptr; }
    void Reset()
    {
        if (m_handle)
            Free(&m_handle, nullptr);
        m_handle = nullptr;
    }

private:
    T* m_handle = nullptr;
};

inline int ClosePffFile(libpff_file_t** file, libpff_error_t** error)
{
    libpff_file_close(*file, nullptr);
    return libpff_file_free(file, error);
}

using TPffFile = TPffOwner<libpff_file_t, ClosePffFile>;
using TPffItem = TPffOwner<libpff_item_t, libpff_item_free>;
using TPffRecordSet = TPffOwner<libpff_record_set_t, libpff_record_set_free>;
using TPffEntry = TPffOwner<libpff_record_entry_t, libpff_record_entry_free>;

// Opens a file with libpff; an empty handle when it cannot.
inline TPffFile OpenPff(const QString& fileName)
{
    TPffFile file;
    if (libpff_file_initialize(file.Out(), nullptr) != 1
        || libpff_file_open(file.Get(), QFile::encodeName(fileName).constData(), LIBPFF_OPEN_READ, nullptr) != 1)
        return {};
    return file;
}

inline std::optional<uint32_t> PffIdentifier(libpff_item_t* item)
{
    uint32_t id = 0;
    if (libpff_item_get_identifier(item, &id, nullptr) != 1)
        return std::nullopt;
    return id;
}

// --- the plain form -----------------------------------------------------------------

// What a named property's id stands for ([MS-PST] 2.4.7).
struct TNamed {
    bool isString = false;
    uint32_t number = 0;
    QString name;
    QByteArray guid; // 16 bytes as stored
    bool operator==(const TNamed&) const = default;
};

struct TProp {
    uint16_t id = 0, type = 0;
    bool readable = false;
    QByteArray value;
    std::optional<TNamed> named;
};

struct TPropSet {
    bool readable = false; // the set itself could be read
    std::vector<TProp> props; // sorted by id, then type

    void Sort()
    {
        std::stable_sort(props.begin(), props.end(),
            [](const TProp& a, const TProp& b) { return std::pair(a.id, a.type) < std::pair(b.id, b.type); });
    }
    // Readable, with at least one value that could be read.
    bool HasValues() const
    {
        return readable && std::any_of(props.begin(), props.end(), [](const TProp& p) { return p.readable; });
    }
};

struct TData {
    bool readable = false;
    qint64 size = 0;
    QByteArray digest;
};

struct TItem;

struct TAttach {
    uint32_t id = 0;
    bool opened = false;
    TPropSet props;
    char kind = 0; // 'd' data, 'i' an attached message, 'r' a reference, 0 none
    TData data;
    std::shared_ptr<TItem> embedded;
};

struct TItem {
    uint32_t id = 0;
    bool opened = false;
    TPropSet props;
    std::vector<TPropSet> recipients;
    std::vector<TPropSet> attachmentRows;
    std::vector<TAttach> attachments;
};

// The form of a stored GUID: Data1 to Data3 little-endian, then Data4.
inline QByteArray GuidBytes(const QUuid& uuid)
{
    QByteArray out(16, '\0');
    for (int i = 0; i < 4; ++i)
        out[i] = char(uuid.data1 >> (8 * i));
    for (int i = 0; i < 2; ++i) {
        out[4 + i] = char(uuid.data2 >> (8 * i));
        out[6 + i] = char(uuid.data3 >> (8 * i));
    }
    for (int i = 0; i < 8; ++i)
        out[8 + i] = char(uuid.data4[i]);
    return out;
}

// --- our reader ----------------------------------------------------------------------

inline TPropSet ReadOurs(const pstfile::TPstFile& file, const pstfile::TProperties& props)
{
    TPropSet set;
    set.readable = props.IsValid();
    if (!set.readable)
        return set;
    for (const auto& e : props.Entries()) {
        TProp p;
        p.id = e.id;
        p.type = e.type;
        if (const auto v = props.Value(e)) {
            p.readable = true;
            p.value = *v;
        }
        if (e.id >= 0x8000)
            if (const pstfile::TNamedId* named = file.NameMap().Find(e.id))
                p.named = TNamed{named->isString, named->isString ? 0 : named->lid, named->name, GuidBytes(named->guid)};
        set.props.push_back(std::move(p));
    }
    set.Sort();
    return set;
}

inline TData ReadOurData(const pstfile::TAttachment& attachment)
{
    TData data;
    data.size = attachment.DataSize();
    QCryptographicHash hash(QCryptographicHash::Sha1);
    QByteArray buffer(ChunkBytes, '\0');
    qint64 at = 0;
    const qint64 limit = std::min(data.size, MaxAttachmentBytes);
    data.readable = true;
    while (at < limit) {
        const qint64 n = attachment.ReadData(at, buffer.data(), std::min(ChunkBytes, limit - at));
        if (n <= 0) {
            data.readable = false;
            break;
        }
        hash.addData(QByteArrayView(buffer.constData(), n));
        at += n;
    }
    data.digest = hash.result();
    return data;
}

inline TItem ReadOurItem(const pstfile::TPstFile& file, const pstfile::TMessage& message, int depth = 0)
{
    TItem item;
    item.id = message.Nid();
    item.opened = true;
    item.props = ReadOurs(file, message.Properties());
    for (const auto& row : message.Recipients())
        item.recipients.push_back(ReadOurs(file, row));
    for (const auto& row : message.AttachmentRows())
        item.attachmentRows.push_back(ReadOurs(file, row));
    const size_t count = std::min<size_t>(message.AttachmentCount(), MaxChildren);
    for (size_t i = 0; i < count; ++i) {
        TAttach a;
        const auto attachment = message.OpenAttachment(i);
        if (attachment) {
            a.id = attachment->Nid();
            a.opened = true;
            a.props = ReadOurs(file, attachment->Properties());
            const auto binary = attachment->Properties().FindRaw(pstfile::pid::AttachDataBin);
            if (const auto inner = attachment->Embedded()) {
                a.kind = 'i';
                if (depth < MaxEmbeddedDepth)
                    a.embedded = std::make_shared<TItem>(ReadOurItem(file, *inner, depth + 1));
            } else if (binary && binary->type == pstfile::ptBinary) {
                a.kind = 'd';
                a.data = ReadOurData(*attachment);
            } else if (binary && binary->type == pstfile::ptObject) {
                a.kind = 'i'; // an attached message that does not open
            }
        }
        item.attachments.push_back(std::move(a));
    }
    return item;
}

// --- libpff ---------------------------------------------------------------------------

inline std::optional<TNamed> PffNamed(libpff_record_entry_t* entry)
{
    libpff_name_to_id_map_entry_t* map = nullptr;
    if (libpff_record_entry_get_name_to_id_map_entry(entry, &map, nullptr) != 1 || !map)
        return std::nullopt;
    TNamed named;
    uint8_t type = 0;
    if (libpff_name_to_id_map_entry_get_type(map, &type, nullptr) != 1)
        return std::nullopt;
    named.isString = type == LIBPFF_NAME_TO_ID_MAP_ENTRY_TYPE_STRING;
    if (named.isString) {
        size_t size = 0;
        if (libpff_name_to_id_map_entry_get_utf16_string_size(map, &size, nullptr) == 1 && size > 0 && size < 65536) {
            std::vector<uint16_t> text(size);
            if (libpff_name_to_id_map_entry_get_utf16_string(map, text.data(), size, nullptr) == 1)
                named.name = QString::fromUtf16(reinterpret_cast<const char16_t*>(text.data()), qsizetype(size - 1));
        }
    } else {
        libpff_name_to_id_map_entry_get_number(map, &named.number, nullptr);
    }
    uint8_t guid[16] = {};
    if (libpff_name_to_id_map_entry_get_guid(map, guid, sizeof guid, nullptr) == 1)
        named.guid = QByteArray(reinterpret_cast<const char*>(guid), 16);
    return named;
}

// The properties of one record set of a libpff item.
inline TPropSet ReadPffSet(libpff_item_t* item, int index)
{
    TPropSet set;
    TPffRecordSet rs;
    if (libpff_item_get_record_set_by_index(item, index, rs.Out(), nullptr) != 1)
        return set;
    int entries = 0;
    if (libpff_record_set_get_number_of_entries(rs.Get(), &entries, nullptr) != 1)
        return set;
    set.readable = true;
    entries = std::clamp(entries, 0, MaxChildren);
    for (int e = 0; e < entries; ++e) {
        TPffEntry entry;
        if (libpff_record_set_get_entry_by_index(rs.Get(), e, entry.Out(), nullptr) != 1)
            continue;
        uint32_t id = 0, type = 0;
        if (libpff_record_entry_get_entry_type(entry.Get(), &id, nullptr) != 1
            || libpff_record_entry_get_value_type(entry.Get(), &type, nullptr) != 1)
            continue;
        TProp p;
        p.id = uint16_t(id);
        p.type = uint16_t(type);
        size_t size = 0;
        if (libpff_record_entry_get_data_size(entry.Get(), &size, nullptr) == 1 && size <= size_t(pstfile::TNdb::MaxStream)) {
            p.value = QByteArray(qsizetype(size), '\0');
            p.readable = size == 0
                || libpff_record_entry_get_data(entry.Get(), reinterpret_cast<uint8_t*>(p.value.data()), size, nullptr) == 1;
            if (!p.readable)
                p.value.clear();
        }
        if (p.id >= 0x8000)
            p.named = PffNamed(entry.Get());
        set.props.push_back(std::move(p));
    }
    set.Sort();
    return set;
}

// Every record set of an item: the rows of a table item.
inline std::vector<TPropSet> ReadPffRows(libpff_item_t* item)
{
    std::vector<TPropSet> rows;
    int sets = 0;
    if (libpff_item_get_number_of_record_sets(item, &sets, nullptr) != 1)
        return rows;
    sets = std::clamp(sets, 0, MaxChildren);
    for (int s = 0; s < sets; ++s)
        rows.push_back(ReadPffSet(item, s));
    return rows;
}

inline TPropSet ReadPffProps(libpff_item_t* item)
{
    int sets = 0;
    if (libpff_item_get_number_of_record_sets(item, &sets, nullptr) != 1 || sets < 1)
        return {};
    return ReadPffSet(item, 0);
}

inline TData ReadPffData(libpff_item_t* attachment)
{
    TData data;
    size64_t size = 0;
    if (libpff_attachment_get_data_size(attachment, &size, nullptr) != 1)
        return data;
    data.size = qint64(std::min<size64_t>(size, size64_t(MaxAttachmentBytes) * 4));
    data.readable = true;
    QCryptographicHash hash(QCryptographicHash::Sha1);
    const qint64 limit = std::min(data.size, MaxAttachmentBytes);
    if (limit > 0 && libpff_attachment_data_seek_offset(attachment, 0, SEEK_SET, nullptr) != 0)
        data.readable = false;
    std::vector<uint8_t> buffer(ChunkBytes);
    for (qint64 at = 0; data.readable && at < limit;) {
        const ssize_t n = libpff_attachment_data_read_buffer(attachment, buffer.data(),
            size_t(std::min(ChunkBytes, limit - at)), nullptr);
        if (n <= 0) {
            data.readable = false;
            break;
        }
        hash.addData(QByteArrayView(reinterpret_cast<const char*>(buffer.data()), qsizetype(n)));
        at += n;
    }
    data.digest = hash.result();
    return data;
}

inline TItem ReadPffItem(libpff_item_t* message, int depth = 0)
{
    TItem item;
    item.id = PffIdentifier(message).value_or(0);
    item.opened = true;
    item.props = ReadPffProps(message);
    TPffItem table;
    if (libpff_message_get_recipients(message, table.Out(), nullptr) == 1 && table)
        item.recipients = ReadPffRows(table.Get());
    if (libpff_message_get_attachments(message, table.Out(), nullptr) == 1 && table)
        item.attachmentRows = ReadPffRows(table.Get());
    int count = 0;
    if (libpff_message_get_number_of_attachments(message, &count, nullptr) != 1)
        count = 0;
    count = std::clamp(count, 0, MaxChildren);
    for (int i = 0; i < count; ++i) {
        TAttach a;
        TPffItem attachment;
        if (libpff_message_get_attachment(message, i, attachment.Out(), nullptr) == 1 && attachment) {
            a.id = PffIdentifier(attachment.Get()).value_or(0);
            a.opened = true;
            a.props = ReadPffProps(attachment.Get());
            int type = 0;
            if (libpff_attachment_get_type(attachment.Get(), &type, nullptr) == 1)
                a.kind = char(type);
            if (a.kind == LIBPFF_ATTACHMENT_TYPE_DATA) {
                a.data = ReadPffData(attachment.Get());
            } else if (a.kind == LIBPFF_ATTACHMENT_TYPE_ITEM && depth < MaxEmbeddedDepth) {
                TPffItem inner;
                if (libpff_attachment_get_item(attachment.Get(), inner.Out(), nullptr) == 1 && inner)
                    a.embedded = std::make_shared<TItem>(ReadPffItem(inner.Get(), depth + 1));
            }
        }
        item.attachments.push_back(std::move(a));
    }
    return item;
}

// The ids of a libpff folder's sub-folders or items, with their handles.
inline std::vector<std::pair<uint32_t, TPffItem>> PffChildren(libpff_item_t* folder, bool folders)
{
    std::vector<std::pair<uint32_t, TPffItem>> out;
    int count = 0;
    if ((folders ? libpff_folder_get_number_of_sub_folders(folder, &count, nullptr)
                 : libpff_folder_get_number_of_sub_messages(folder, &count, nullptr))
        != 1)
        return out;
    count = std::clamp(count, 0, MaxChildren);
    for (int i = 0; i < count; ++i) {
        TPffItem child;
        const int got = folders ? libpff_folder_get_sub_folder(folder, i, child.Out(), nullptr)
                                : libpff_folder_get_sub_message(folder, i, child.Out(), nullptr);
        if (got != 1 || !child)
            continue;
        const auto id = PffIdentifier(child.Get());
        if (id)
            out.emplace_back(*id, std::move(child));
    }
    return out;
}

} // namespace tessaly::test
