#include "mail/MsgWriter.h"

#include "platform/StagedFile.h"
#include "pstfile/Crypt.h"
#include "pstfile/Endian.h"

#include <QCoreApplication>

#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-memory.h>
#include <gsf/gsf-utils.h>

#include <algorithm>
#include <map>
#include <mutex>

namespace tessaly::mail {

using namespace pstfile;

// --- the compound file ------------------------------------------------------------

namespace {

constexpr uint32_t PropReadWrite = 0x06; // PROPATTR_READABLE | PROPATTR_WRITABLE
constexpr uint32_t StoreUnicodeOk = 0x00040000;
constexpr uint16_t StoreSupportMask = 0x340D, AttachNumber = 0x0E21, AttachDataObject = 0x3701;

void EnsureGsf()
{
    static std::once_flag once;
    std::call_once(once, [] { gsf_init(); });
}

// The standard CRC-32 ([MS-OXMSG] hashes a string-named property with it):
// the data file's CRC, inverted before and after.
uint32_t Crc32(const QByteArray& data)
{
    return ~pstfile::Crc(data.constData(), size_t(data.size()), 0xFFFFFFFFu);
}

QString StreamName(uint32_t tag)
{
    return QStringLiteral("__substg1.0_") + QStringLiteral("%1").arg(tag, 8, 16, QLatin1Char('0')).toUpper();
}

QString NumberedName(const char* prefix, int index)
{
    return QLatin1String(prefix) + QStringLiteral("%1").arg(index, 8, 16, QLatin1Char('0')).toUpper();
}

// The named properties of the whole file, numbered from 0x8000 in the order
// they are first met ([MS-OXMSG] 2.2.3).
class TNameTable {
public:
    uint16_t Id(const TNamedProperty& property)
    {
        for (size_t i = 0; i < m_entries.size(); ++i) {
            const TNamedProperty& e = m_entries[i];
            if (e.set == property.set && e.lid == property.lid && e.name == property.name)
                return uint16_t(0x8000 + i);
        }
        if (m_entries.size() >= 0x7FFF)
            throw EMsgWriteError(QCoreApplication::translate("TMsgWriter", "too many named properties"));
        m_entries.push_back({property.set, property.lid, property.name, 0, {}});
        return uint16_t(0x8000 + m_entries.size() - 1);
    }

    // Stream name -> bytes: the GUID, entry and string streams, and the
    // hash buckets readers look names up in (0x1F of them, from stream
    // 0x1000; string names hashed with the standard CRC-32).
    std::map<QString, QByteArray> Streams() const
    {
        std::vector<std::pair<uint16_t, TNamedProperty>> numbered;
        for (size_t i = 0; i < m_entries.size(); ++i)
            numbered.push_back({uint16_t(0x8000 + i), m_entries[i]});
        const pstfile::TNameIdStreams built = pstfile::BuildNameIdStreams(numbered, 0x1F, Crc32);
        std::map<QString, QByteArray> streams;
        for (uint32_t b = 0; b < built.buckets.size(); ++b)
            if (!built.buckets[b].isEmpty())
                streams[StreamName((0x1000 + b) << 16 | ptBinary)] = built.buckets[b];
        streams[StreamName(Tag(pid::NameidStreamGuid, ptBinary))] = built.guids;
        streams[StreamName(Tag(pid::NameidStreamEntry, ptBinary))] = built.entries;
        streams[StreamName(Tag(pid::NameidStreamString, ptBinary))] = built.strings;
        return streams;
    }

private:
    std::vector<TNamedProperty> m_entries;
};

// One entry of a property stream with the stream of its value, if any.
struct TEntry {
    uint32_t tag;
    QByteArray value;
};

class TCompoundBuilder {
public:
    QByteArray Build(const TPSTMessage& message)
    {
        EnsureGsf();
        GsfOutput* sink = gsf_output_memory_new();
        GsfOutfile* root = gsf_outfile_msole_new(sink);
        if (!root) {
            g_object_unref(sink);
            throw EMsgWriteError(QCoreApplication::translate("TMsgWriter", "the compound file could not be made"));
        }
        try {
            WriteMessage(root, message, 0);
            GsfOutfile* nameStorage = NewStorage(root, QStringLiteral("__nameid_version1.0"));
            for (const auto& [name, data] : m_names.Streams())
                WriteStream(nameStorage, name, data);
            Close(GSF_OUTPUT(nameStorage));
        } catch (...) {
            gsf_output_close(GSF_OUTPUT(root));
            g_object_unref(root);
            g_object_unref(sink);
            throw;
        }
        m_ok = gsf_output_close(GSF_OUTPUT(root)) && m_ok;
        g_object_unref(root);
        QByteArray bytes;
        if (m_ok)
            bytes = QByteArray(reinterpret_cast<const char*>(gsf_output_memory_get_bytes(GSF_OUTPUT_MEMORY(sink))),
                qsizetype(gsf_output_size(sink)));
        g_object_unref(sink); // closed with the compound file
        if (!m_ok)
            throw EMsgWriteError(QCoreApplication::translate("TMsgWriter", "the compound file could not be written"));
        return bytes;
    }

private:
    GsfOutfile* NewStorage(GsfOutfile* parent, const QString& name)
    {
        GsfOutput* child = gsf_outfile_new_child(parent, name.toLatin1().constData(), TRUE);
        if (!child)
            throw EMsgWriteError(QCoreApplication::translate("TMsgWriter", "the storage %1 could not be made").arg(name));
        return GSF_OUTFILE(child);
    }

    void Close(GsfOutput* output)
    {
        m_ok = gsf_output_close(output) && m_ok;
        g_object_unref(output);
    }

    void WriteStream(GsfOutfile* storage, const QString& name, const QByteArray& data)
    {
        GsfOutput* child = gsf_outfile_new_child(storage, name.toLatin1().constData(), FALSE);
        if (!child)
            throw EMsgWriteError(QCoreApplication::translate("TMsgWriter", "the stream %1 could not be made").arg(name));
        if (!data.isEmpty())
            m_ok = gsf_output_write(child, size_t(data.size()), reinterpret_cast<const guint8*>(data.constData()))
                && m_ok;
        Close(child);
    }

    // The bag's properties with named ones given their ids.
    std::vector<TEntry> Entries(const TPSTPropertyBag& bag)
    {
        std::vector<TEntry> entries;
        for (const TProp& p : bag.Props())
            entries.push_back({p.tag, p.value});
        for (const TNamedProperty& named : bag.Named())
            entries.push_back({Tag(m_names.Id(named), named.type), named.value});
        return entries;
    }

    // [MS-OXMSG] 2.4: the property stream after its header, and a stream
    // for every value of variable size.
    void WriteProperties(GsfOutfile* storage, QByteArray header, std::vector<TEntry> entries)
    {
        std::sort(entries.begin(), entries.end(), [](const TEntry& a, const TEntry& b) { return a.tag < b.tag; });
        QByteArray stream = std::move(header);
        for (const TEntry& e : entries) {
            const uint16_t type = TagType(e.tag);
            if (type & ptMultiFlag)
                continue; // not written by this program
            pstfile::Add32(stream, e.tag);
            pstfile::Add32(stream, PropReadWrite);
            if (type == ptObject) {
                pstfile::Add32(stream, 0xFFFFFFFF); // the value is a storage
                pstfile::Add32(stream, 0);
            } else if (FixedSize(type) > 0) {
                stream += e.value.left(8);
                stream += QByteArray(8 - std::min<qsizetype>(8, e.value.size()), '\0');
            } else {
                // The size of a string counts its terminator, which the
                // stream leaves out.
                const qsizetype size = e.value.size() + (type == ptUnicode ? 2 : type == ptString8 ? 1 : 0);
                if (size > qsizetype(UINT32_MAX - 1))
                    throw EMsgWriteError(QCoreApplication::translate("TMsgWriter", "a value is too large for a message file"));
                pstfile::Add32(stream, uint32_t(size));
                pstfile::Add32(stream, 0);
                WriteStream(storage, StreamName(e.tag), e.value);
            }
        }
        WriteStream(storage, QStringLiteral("__properties_version1.0"), stream);
    }

    void WriteMessage(GsfOutfile* storage, const TPSTMessage& message, int depth)
    {
        if (depth > MaxMsgEmbeddingDepth + 1)
            throw EMsgWriteError(QCoreApplication::translate("TMsgWriter", "attached messages are nested too deeply"));
        const auto recipients = uint32_t(message.recipients.size());
        const auto attachments = uint32_t(message.attachments.size());
        // [MS-OXMSG] 2.4.1: 32 bytes at the top level, 24 in an attached message.
        QByteArray header(8, '\0');
        pstfile::Add32(header, recipients);
        pstfile::Add32(header, attachments);
        pstfile::Add32(header, recipients);
        pstfile::Add32(header, attachments);
        if (depth == 0)
            header += QByteArray(8, '\0');
        std::vector<TEntry> entries = Entries(message);
        entries.push_back({Tag(StoreSupportMask, ptLong), pstfile::Le32(StoreUnicodeOk)});
        WriteProperties(storage, header, std::move(entries));

        for (uint32_t i = 0; i < recipients; ++i) {
            GsfOutfile* child = NewStorage(storage, NumberedName("__recip_version1.0_#", int(i)));
            std::vector<TEntry> props = Entries(message.recipients[i]);
            props.push_back({Tag(pid::RowId, ptLong), pstfile::Le32(i)});
            props.push_back({Tag(pid::ObjectType, ptLong), pstfile::Le32(6)}); // MAPI_MAILUSER
            props.push_back({Tag(pid::DisplayType, ptLong), pstfile::Le32(0)});
            WriteProperties(child, QByteArray(8, '\0'), std::move(props));
            Close(GSF_OUTPUT(child));
        }
        for (uint32_t i = 0; i < attachments; ++i) {
            const TPSTAttachment& attach = message.attachments[i];
            GsfOutfile* child = NewStorage(storage, NumberedName("__attach_version1.0_#", int(i)));
            std::vector<TEntry> props = Entries(attach);
            props.push_back({Tag(AttachNumber, ptLong), pstfile::Le32(i)});
            props.push_back({Tag(pid::ObjectType, ptLong), pstfile::Le32(7)}); // MAPI_ATTACH
            if (attach.embedded) {
                props.push_back({Tag(AttachDataObject, ptObject), {}});
                GsfOutfile* inner = NewStorage(child, StreamName(Tag(AttachDataObject, ptObject)));
                WriteMessage(inner, *attach.embedded, depth + 1);
                Close(GSF_OUTPUT(inner));
            } else {
                props.push_back({Tag(pid::AttachDataBin, ptBinary), attach.data});
            }
            WriteProperties(child, QByteArray(8, '\0'), std::move(props));
            Close(GSF_OUTPUT(child));
        }
    }

    TNameTable m_names;
    bool m_ok = true;
};

} // namespace

TMsgWriter::TMsgWriter(std::shared_ptr<const TPSTMessage> model) : m_model(std::move(model)) {}

TMsgWriter::TMsgWriter(const IMailMessage& message) : m_model(ToMsgModel(message)) {}

QByteArray TMsgWriter::SaveToBytes() const
{
    if (!m_model)
        throw EMsgWriteError(QCoreApplication::translate("TMsgWriter", "no message to write"));
    return TCompoundBuilder().Build(*m_model);
}

bool TMsgWriter::SaveToFile(const QString& fileName, bool replace, QString* error, bool privateToUser) const
{
    const auto fail = [&](const QString& reason) {
        if (error)
            *error = reason;
        return false;
    };
    QByteArray bytes;
    try {
        bytes = SaveToBytes();
    } catch (const EMsgWriteError& e) {
        return fail(e.Message());
    }
    platform::TStagedFile file(fileName, privateToUser);
    if (!file.IsOpen())
        return fail(file.ErrorString());
    if (file.Device().write(bytes) != bytes.size() || !file.Device().flush())
        return fail(file.Device().errorString());
    QString target = fileName;
    switch (file.Commit(target, {}, replace)) {
    case platform::lrLinked: return true;
    case platform::lrTaken: return fail(QStringLiteral("the file exists already"));
    default: return fail(file.ErrorString());
    }
}

} // namespace tessaly::mail
