#pragma once

// Writes small .msg files ([MS-OXMSG]) for tests that need what no sample
// holds. Only what the tests use: string, binary and fixed-size properties
// of the message and of by-value attachments, and named strings and times of
// the message with the name-to-id map that gives them their ids.

#include <QByteArray>
#include <QString>
#include <QUuid>
#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-memory.h>
#include <gsf/gsf-utils.h>

#include <algorithm>
#include <map>
#include <vector>

namespace tessaly::test {

struct TMsgAttachSpec {
    QString longFileName;
    QByteArray data;
};

// A numbered named property: a string, or a time (a FILETIME) when the
// text is null.
struct TMsgNamedSpec {
    QUuid set;
    uint32_t lid = 0;
    QString text;
    uint64_t filetime = 0;
};

struct TMsgContent {
    std::map<uint16_t, QString> strings; // property id -> Unicode string
    std::vector<TMsgAttachSpec> attachments;
    std::vector<TMsgNamedSpec> named = {}; // ids 0x8000, 0x8001... in this order
    std::map<uint32_t, uint64_t> fixed = {}; // property tag (id and type) -> 8-byte value
};

namespace detail {

inline void WriteStream(GsfOutfile* storage, const QString& name, const QByteArray& data)
{
    GsfOutput* child = gsf_outfile_new_child(storage, name.toLatin1().constData(), FALSE);
    gsf_output_write(child, size_t(data.size()), reinterpret_cast<const guint8*>(data.constData()));
    gsf_output_close(child);
    g_object_unref(child);
}

inline QByteArray Utf16(const QString& text)
{
    return QByteArray(reinterpret_cast<const char*>(text.utf16()), text.size() * 2) + QByteArray(2, '\0');
}

inline QString StreamName(uint16_t id, uint16_t type)
{
    return QStringLiteral("__substg1.0_")
        + QStringLiteral("%1%2").arg(id, 4, 16, QLatin1Char('0')).arg(type, 4, 16, QLatin1Char('0')).toUpper();
}

// A property stream: the header, then one 16-byte entry per property.
inline QByteArray Properties(int headerSize, const std::vector<std::pair<uint32_t, uint32_t>>& entries)
{
    QByteArray data(headerSize, '\0');
    for (const auto& [tag, size] : entries) {
        QByteArray entry(16, '\0');
        for (int i = 0; i < 4; ++i) {
            entry[i] = char((tag >> (8 * i)) & 0xFF);
            entry[8 + i] = char((size >> (8 * i)) & 0xFF);
        }
        entry[4] = 0x06; // readable, writable
        data += entry;
    }
    return data;
}

inline QByteArray Le(uint64_t value, int bytes)
{
    QByteArray data(bytes, '\0');
    for (int i = 0; i < bytes; ++i)
        data[i] = char((value >> (8 * i)) & 0xFF);
    return data;
}

// A fixed-size value's entry of a property stream: tag, flags, the value.
inline QByteArray FixedEntry(uint32_t tag, uint64_t value)
{
    return Le(tag, 4) + Le(0x06, 4) + Le(value, 8);
}

// The __nameid_version1.0 storage ([MS-OXMSG] 2.2.3): the sets other than
// the two predefined ones in the GUID stream, one entry per property.
inline void WriteNameMap(GsfOutfile* root, const std::vector<TMsgNamedSpec>& named)
{
    const QUuid mapi(0x00020328, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46);
    const QUuid publicStrings(0x00020329, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46);
    std::vector<QUuid> sets;
    QByteArray guids, entries;
    for (size_t i = 0; i < named.size(); ++i) {
        uint32_t guidIndex = 1;
        if (named[i].set == publicStrings) {
            guidIndex = 2;
        } else if (named[i].set != mapi) {
            auto it = std::find(sets.begin(), sets.end(), named[i].set);
            if (it == sets.end()) {
                const QUuid& g = named[i].set;
                guids += Le(g.data1, 4) + Le(g.data2, 2) + Le(g.data3, 2)
                    + QByteArray(reinterpret_cast<const char*>(g.data4), 8);
                it = sets.insert(sets.end(), g);
            }
            guidIndex = uint32_t(3 + (it - sets.begin()));
        }
        entries += Le(named[i].lid, 4) + Le(uint32_t(i) << 16 | guidIndex << 1, 4);
    }
    GsfOutput* storage = gsf_outfile_new_child(root, "__nameid_version1.0", TRUE);
    WriteStream(GSF_OUTFILE(storage), StreamName(0x0002, 0x0102), guids);
    WriteStream(GSF_OUTFILE(storage), StreamName(0x0003, 0x0102), entries);
    WriteStream(GSF_OUTFILE(storage), StreamName(0x0004, 0x0102), {});
    gsf_output_close(storage);
    g_object_unref(storage);
}

} // namespace detail

inline QByteArray BuildMsg(const TMsgContent& content)
{
    gsf_init();
    GsfOutput* sink = gsf_output_memory_new();
    GsfOutfile* root = gsf_outfile_msole_new(sink);
    std::vector<std::pair<uint32_t, uint32_t>> entries;
    for (const auto& [id, text] : content.strings) {
        const QByteArray value = detail::Utf16(text);
        detail::WriteStream(root, detail::StreamName(id, 0x001F), value);
        entries.emplace_back(uint32_t(id) << 16 | 0x001F, uint32_t(value.size()));
    }
    QByteArray fixed;
    for (const auto& [tag, value] : content.fixed)
        fixed += detail::FixedEntry(tag, value);
    for (size_t i = 0; i < content.named.size(); ++i) {
        const auto& named = content.named[i];
        const uint16_t id = uint16_t(0x8000 + i);
        if (named.text.isNull()) {
            fixed += detail::FixedEntry(uint32_t(id) << 16 | 0x0040, named.filetime);
            continue;
        }
        const QByteArray value = detail::Utf16(named.text);
        detail::WriteStream(root, detail::StreamName(id, 0x001F), value);
        entries.emplace_back(uint32_t(id) << 16 | 0x001F, uint32_t(value.size()));
    }
    if (!content.named.empty())
        detail::WriteNameMap(root, content.named);
    QByteArray header = detail::Properties(32, entries) + fixed;
    header[20] = char(content.attachments.size()); // attachment count
    detail::WriteStream(root, QStringLiteral("__properties_version1.0"), header);
    for (size_t i = 0; i < content.attachments.size(); ++i) {
        const auto& attach = content.attachments[i];
        const QString storageName =
            QStringLiteral("__attach_version1.0_#") + QStringLiteral("%1").arg(i, 8, 16, QLatin1Char('0')).toUpper();
        GsfOutput* storage = gsf_outfile_new_child(root, storageName.toLatin1().constData(), TRUE);
        GsfOutfile* attachment = GSF_OUTFILE(storage);
        const QByteArray name = detail::Utf16(attach.longFileName);
        detail::WriteStream(attachment, detail::StreamName(0x3707, 0x001F), name);
        detail::WriteStream(attachment, detail::StreamName(0x3701, 0x0102), attach.data);
        detail::WriteStream(attachment, QStringLiteral("__properties_version1.0"),
            detail::Properties(8, {{0x3707001F, uint32_t(name.size())}, {0x37010102, uint32_t(attach.data.size())},
                                      {0x37050003, 1}}));
        gsf_output_close(storage);
        g_object_unref(storage);
    }
    gsf_output_close(GSF_OUTPUT(root));
    g_object_unref(root);
    const gsf_off_t size = gsf_output_size(sink);
    const QByteArray bytes(
        reinterpret_cast<const char*>(gsf_output_memory_get_bytes(GSF_OUTPUT_MEMORY(sink))), qsizetype(size));
    gsf_output_close(sink);
    g_object_unref(sink);
    return bytes;
}

// A compound file of the given streams and nothing else.
inline QByteArray BuildCompoundFile(const std::map<QString, QByteArray>& streams)
{
    gsf_init();
    GsfOutput* sink = gsf_output_memory_new();
    GsfOutfile* root = gsf_outfile_msole_new(sink);
    for (const auto& [name, data] : streams)
        detail::WriteStream(root, name, data);
    gsf_output_close(GSF_OUTPUT(root));
    g_object_unref(root);
    const QByteArray bytes(reinterpret_cast<const char*>(gsf_output_memory_get_bytes(GSF_OUTPUT_MEMORY(sink))),
        qsizetype(gsf_output_size(sink)));
    gsf_output_close(sink);
    g_object_unref(sink);
    return bytes;
}

} // namespace tessaly::test
