#include "mail/OutlookMessage.h"

#include "core/Charset.h"
#include "core/Rtf.h"
#include "platform/CodePage.h"
#include "pstfile/Endian.h"
#include "pstfile/PropTags.h"

#include <QDateTime>
#include <QFile>
#include <QUrl>
#include <gsf/gsf-infile-msole.h>
#include <gsf/gsf-infile.h>
#include <gsf/gsf-input-memory.h>
#include <gsf/gsf-utils.h>

#include <algorithm>
#include <mutex>

namespace tessaly::mail {

namespace {

namespace pid = pstfile::pid;
using pstfile::Get32;

// Streams larger than this are not read: a damaged directory can claim any size.
constexpr qint64 MaxStreamSize = 256LL * 1024 * 1024;

void EnsureGsf()
{
    static std::once_flag once;
    std::call_once(once, [] {
        gsf_init();
        // A damaged file makes libgsf complain on stderr; the reader reports
        // the damage itself.
        for (const char* domain : {"libgsf:msole", "libgsf"})
            g_log_set_handler(domain, GLogLevelFlags(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING),
                [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
    });
}

QByteArray ReadInput(GsfInput* input)
{
    if (!input)
        return {};
    const gsf_off_t size = gsf_input_size(input);
    if (size <= 0 || size > MaxStreamSize)
        return {};
    QByteArray data(qsizetype(size), '\0');
    if (!gsf_input_read(input, size_t(size), reinterpret_cast<guint8*>(data.data())))
        return {};
    return data;
}

QString StreamName(uint16_t id, uint16_t type)
{
    return QStringLiteral("__substg1.0_")
        + QStringLiteral("%1%2").arg(id, 4, 16, QLatin1Char('0')).arg(type, 4, 16, QLatin1Char('0')).toUpper();
}

QByteArray ChildStream(GsfInfile* storage, const char* name)
{
    GsfInput* input = gsf_infile_child_by_name(storage, name);
    const QByteArray data = ReadInput(input);
    if (input)
        g_object_unref(input);
    return data;
}

// The numbered named properties: [MS-OXMSG] 2.2.3, the entry stream, with
// the sets of the GUID stream.
std::shared_ptr<TMsgNameMap> ReadNameMap(GsfInfile* root)
{
    auto names = std::make_shared<TMsgNameMap>();
    GsfInput* nameStorage = gsf_infile_child_by_name(root, "__nameid_version1.0");
    if (!nameStorage)
        return names;
    if (GSF_IS_INFILE(nameStorage)) {
        const QByteArray guids = ChildStream(GSF_INFILE(nameStorage), "__substg1.0_00020102");
        const QByteArray data = ChildStream(GSF_INFILE(nameStorage), "__substg1.0_00030102");
        for (qsizetype pos = 0; pos + 8 <= data.size(); pos += 8) {
            const uint32_t nameOrOffset = Get32(data.constData() + pos);
            const uint32_t indexAndKind = Get32(data.constData() + pos + 4);
            if (indexAndKind & 1)
                continue; // a named property by string
            const uint32_t guidIndex = (indexAndKind & 0xFFFF) >> 1;
            QUuid set;
            if (guidIndex == 1) {
                set = pstfile::PS_MAPI();
            } else if (guidIndex == 2) {
                set = pstfile::PS_PUBLIC_STRINGS();
            } else if (guidIndex >= 3) {
                const qsizetype at = qsizetype(guidIndex - 3) * 16;
                if (at + 16 > guids.size())
                    continue;
                const char* g = guids.constData() + at;
                set = QUuid(Get32(g), pstfile::Get16(g + 4), pstfile::Get16(g + 6), uchar(g[8]), uchar(g[9]),
                    uchar(g[10]), uchar(g[11]), uchar(g[12]), uchar(g[13]), uchar(g[14]), uchar(g[15]));
            }
            const uint16_t propertyIndex = uint16_t(indexAndKind >> 16);
            names->emplace(std::pair(set, nameOrOffset), uint16_t(0x8000 + propertyIndex)); // the first entry counts
        }
    }
    g_object_unref(nameStorage);
    return names;
}

GDateTime* ToGDateTime(uint64_t filetime)
{
    if (filetime == 0)
        return nullptr;
    const qint64 unixSeconds = qint64(filetime / 10000000ULL) - 11644473600LL;
    return g_date_time_new_from_unix_utc(unixSeconds);
}

bool IsImageName(const QString& name)
{
    static const QString Images = QStringLiteral("jpg;jpeg;gif;png;bmp;ico;tif;tiff;");
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot < 0)
        return false;
    return Images.contains(name.mid(dot + 1).toLower() + QLatin1Char(';'));
}

// An attachment name as mail programs write it: a MIME encoded word, or
// percent-encoded.
QString DecodeAttachName(const QString& name)
{
    if (name.startsWith(QLatin1Char('='))) {
        EnsureGMime();
        char* decoded = g_mime_utils_header_decode_text(nullptr, name.toUtf8().constData());
        const QString text = QString::fromUtf8(decoded);
        g_free(decoded);
        return text;
    }
    if (name.contains(QLatin1Char('%')))
        return QUrl::fromPercentEncoding(name.toUtf8());
    return name;
}

} // namespace

// --- TMsgStorage ----------------------------------------------------------

TMsgStorage::TMsgStorage(GsfInfile* storage, int headerSize, int codePage, std::shared_ptr<const TMsgNameMap> names)
    : m_storage(storage), m_names(std::move(names)), m_codePage(codePage)
{
    if (m_storage)
        g_object_ref(m_storage);
    const QByteArray properties = Stream(QStringLiteral("__properties_version1.0"));
    for (qsizetype pos = headerSize; pos + 16 <= properties.size(); pos += 16) {
        const uint32_t tag = Get32(properties.constData() + pos);
        m_fixed.insert(uint16_t(tag >> 16), {uint16_t(tag & 0xFFFF), properties.mid(pos + 8, 8)});
    }
    // 8-bit strings are in the message's code page, or else in the ANSI code
    // page of its locale. (PR_INTERNET_CPID names the body's charset, not
    // theirs.)
    if (const auto cp = Int32(pid::MessageCodepage))
        m_codePage = int(*cp);
    else if (const auto lcid = Int32(pid::MessageLocaleId); lcid && core::LocaleCodePage(*lcid) != 0)
        m_codePage = core::LocaleCodePage(*lcid);
}

TMsgStorage::~TMsgStorage()
{
    if (m_storage)
        g_object_unref(m_storage);
}

TMsgStorage::TMsgStorage(TMsgStorage&& other) noexcept
    : m_storage(std::exchange(other.m_storage, nullptr))
    , m_names(std::move(other.m_names))
    , m_codePage(other.m_codePage)
    , m_fixed(std::move(other.m_fixed))
{
}

QByteArray TMsgStorage::Stream(const QString& name) const
{
    if (!m_storage)
        return {};
    GsfInput* input = gsf_infile_child_by_name(m_storage, name.toLatin1().constData());
    if (!input)
        return {};
    const QByteArray data = GSF_IS_INFILE(input) && gsf_infile_num_children(GSF_INFILE(input)) >= 0 ? QByteArray()
                                                                                                    : ReadInput(input);
    g_object_unref(input);
    return data;
}

std::optional<uint16_t> TMsgStorage::Resolve(uint32_t tag) const
{
    if (tag < 0x8000)
        return uint16_t(tag);
    if (!m_names || tag > 0xFFFF)
        return std::nullopt;
    if (const QUuid set = pstfile::NamedPropertySet(uint16_t(tag)); !set.isNull()) {
        const auto it = m_names->find(std::pair(set, tag));
        return it == m_names->end() ? std::nullopt : std::optional<uint16_t>(it->second);
    }
    for (const auto& [named, id] : *m_names)
        if (named.second == tag)
            return id;
    return std::nullopt;
}

bool TMsgStorage::Has(uint32_t tag) const
{
    const auto id = Resolve(tag);
    return id && (m_fixed.contains(*id) || !String(tag).isEmpty() || !Binary(tag).isEmpty());
}

std::optional<uint32_t> TMsgStorage::Int32(uint32_t tag) const
{
    const auto id = Resolve(tag);
    if (!id)
        return std::nullopt;
    const auto it = m_fixed.constFind(*id);
    if (it == m_fixed.constEnd() || it->second.size() < 4)
        return std::nullopt;
    const uint16_t type = it->first;
    if (type == pstfile::ptLong)
        return Get32(it->second.constData());
    if (type == pstfile::ptShort || type == pstfile::ptBoolean)
        return Get32(it->second.constData()) & 0xFFFF;
    return std::nullopt;
}

uint64_t TMsgStorage::FileTime(uint32_t tag) const
{
    const auto id = Resolve(tag);
    if (!id)
        return 0;
    const auto it = m_fixed.constFind(*id);
    if (it == m_fixed.constEnd() || it->first != pstfile::ptSysTime || it->second.size() < 8)
        return 0;
    return pstfile::Get64(it->second.constData());
}

QString TMsgStorage::String(uint32_t tag) const
{
    const auto id = Resolve(tag);
    if (!id)
        return {};
    const QByteArray unicode = Stream(StreamName(*id, pstfile::ptUnicode));
    if (!unicode.isEmpty()) {
        QString text = QString::fromUtf16(reinterpret_cast<const char16_t*>(unicode.constData()), unicode.size() / 2);
        const qsizetype nul = text.indexOf(QChar(0));
        return nul >= 0 ? text.left(nul) : text;
    }
    QByteArray bytes = Stream(StreamName(*id, pstfile::ptString8));
    const qsizetype nul = bytes.indexOf('\0');
    if (nul >= 0)
        bytes.truncate(nul);
    return core::DecodeCodePage(bytes, m_codePage);
}

QByteArray TMsgStorage::Binary(uint32_t tag) const
{
    const auto id = Resolve(tag);
    return id ? Stream(StreamName(*id, pstfile::ptBinary)) : QByteArray();
}

std::vector<TMsgStorage> TMsgStorage::Children(const char* prefix, int headerSize) const
{
    std::vector<std::pair<QString, GsfInfile*>> found;
    const int count = m_storage ? gsf_infile_num_children(m_storage) : 0;
    for (int i = 0; i < count; ++i) {
        const char* name = gsf_infile_name_by_index(m_storage, i);
        if (!name || !g_str_has_prefix(name, prefix))
            continue;
        GsfInput* child = gsf_infile_child_by_index(m_storage, i);
        if (child && GSF_IS_INFILE(child))
            found.emplace_back(QString::fromLatin1(name), GSF_INFILE(child));
        else if (child)
            g_object_unref(child);
    }
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<TMsgStorage> storages;
    for (auto& [name, child] : found) {
        storages.emplace_back(child, headerSize, m_codePage, m_names);
        g_object_unref(child);
    }
    return storages;
}

std::optional<TMsgStorage> TMsgStorage::EmbeddedMessage() const
{
    if (!m_storage)
        return std::nullopt;
    GsfInput* child = gsf_infile_child_by_name(m_storage, "__substg1.0_3701000D");
    if (!child)
        return std::nullopt;
    std::optional<TMsgStorage> message;
    if (GSF_IS_INFILE(child))
        message.emplace(GSF_INFILE(child), 24, m_codePage, m_names);
    g_object_unref(child);
    return message;
}

// --- TOutlookMessage ----------------------------------------------------------

TOutlookMessage::TOutlookMessage() = default;

TOutlookMessage::TOutlookMessage(TMsgStorage embedded) : m_root(std::make_unique<TMsgStorage>(std::move(embedded)))
{
    ReadBodies();
}

TOutlookMessage::~TOutlookMessage()
{
    m_root.reset();
    if (m_file)
        g_object_unref(m_file);
    if (m_input)
        g_object_unref(m_input);
}

bool TOutlookMessage::LoadFromFile(const QString& fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    return LoadFromBytes(file.readAll());
}

bool TOutlookMessage::LoadFromStream(QIODevice& stream)
{
    return LoadFromBytes(stream.readAll());
}

bool TOutlookMessage::LoadFromBytes(const QByteArray& data)
{
    EnsureGsf();
    m_root.reset();
    m_body = {};
    if (m_file)
        g_object_unref(std::exchange(m_file, nullptr));
    if (m_input)
        g_object_unref(std::exchange(m_input, nullptr));
    m_data = data;
    m_input = gsf_input_memory_new(reinterpret_cast<const guint8*>(m_data.constData()), m_data.size(), FALSE);
    if (!m_input)
        return false;
    GError* error = nullptr;
    m_file = gsf_infile_msole_new(m_input, &error);
    if (error)
        g_error_free(error);
    if (!m_file)
        return false;
    m_root = std::make_unique<TMsgStorage>(m_file, 32, platform::DefaultAnsiCodePage(), ReadNameMap(m_file));
    ReadBodies();
    return true;
}

bool TOutlookMessage::HasMessage() const
{
    if (!m_file)
        return false;
    // [MS-OXMSG]: every message storage has its property stream, after a
    // 32-byte header at the top level.
    GsfInput* properties = gsf_infile_child_by_name(m_file, "__properties_version1.0");
    if (!properties)
        return false;
    const bool stream = !GSF_IS_INFILE(properties) || gsf_infile_num_children(GSF_INFILE(properties)) < 0;
    const bool ok = stream && gsf_input_size(properties) >= 32;
    g_object_unref(properties);
    return ok;
}

bool TOutlookMessage::HasMessageEntries() const
{
    const int count = m_file ? gsf_infile_num_children(m_file) : 0;
    for (int i = 0; i < count; ++i) {
        const char* name = gsf_infile_name_by_index(m_file, i);
        if (name && (qstrncmp(name, "__substg1.0_", 12) == 0 || qstrncmp(name, "__recip_version1.0_", 19) == 0
                || qstrncmp(name, "__attach_version1.0_", 20) == 0 || qstrcmp(name, "__properties_version1.0") == 0))
            return true;
    }
    return false;
}

bool TOutlookMessage::LooksTruncated(const QByteArray& data)
{
    // [MS-CFB]: a 512-byte header, then whole sectors of 512 or 4096 bytes;
    // every sector the allocation table uses must be there.
    if (data.size() < 512)
        return true;
    const int shift = uint8_t(data[30]) | uint8_t(data[31]) << 8;
    if (shift != 9 && shift != 12)
        return true;
    const qint64 sector = qint64(1) << shift;
    const auto present = [&](qint64 index) { return 512 + (index + 1) * sector <= data.size(); };
    if ((data.size() - 512) % 512 != 0)
        return true;
    constexpr quint32 LastRegular = 0xFFFFFFF9, Free = 0xFFFFFFFF;
    const quint32 tableSectors = std::min<quint32>(Get32(data.constData() + 44), 109);
    for (quint32 k = 0; k < tableSectors; ++k) {
        const quint32 table = Get32(data.constData() + 76 + 4 * k);
        if (table > LastRegular)
            break;
        if (!present(table))
            return true;
        const char* entries = data.constData() + 512 + qint64(table) * sector;
        for (qint64 j = 0; j < sector / 4; ++j)
            if (Get32(entries + 4 * j) != Free && !present(qint64(k) * (sector / 4) + j))
                return true;
    }
    return false;
}

bool TOutlookMessage::HasCompoundSignature(const QByteArray& data)
{
    return data.startsWith(QByteArray::fromHex("D0CF11E0A1B11AE1"));
}

bool TOutlookMessage::IsStorage(const QByteArray& data)
{
    EnsureGsf();
    GsfInput* input = gsf_input_memory_new(reinterpret_cast<const guint8*>(data.constData()), data.size(), FALSE);
    if (!input)
        return false;
    GError* error = nullptr;
    GsfInfile* file = gsf_infile_msole_new(input, &error);
    if (error)
        g_error_free(error);
    const bool isStorage = file != nullptr;
    if (file)
        g_object_unref(file);
    g_object_unref(input);
    return isStorage;
}

bool TOutlookMessage::IsStorage(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) && IsStorage(file.readAll());
}

bool TOutlookMessage::IsStorage(QIODevice& stream)
{
    const qint64 position = stream.pos();
    const QByteArray data = stream.readAll();
    stream.seek(position);
    return IsStorage(data);
}

void TOutlookMessage::ReadBodies()
{
    const TMsgStorage& root = *m_root;
    m_body.Text = root.String(pid::Body);
    const QByteArray html = root.Binary(pid::Html);
    m_body.HTML = !html.isEmpty()
        ? core::DecodeHtml(html, root.String(pid::TransportHeaders), int(root.Int32(pid::InternetCodepage).value_or(0)))
        : root.String(pid::Html);
    const QByteArray compressed = root.Binary(pid::RtfCompressed);
    if (!compressed.isEmpty()) {
        try {
            m_body.RTF = core::DecompressRtf(compressed);
        } catch (const core::ERtfError&) {
            m_body.RTF.clear(); // a damaged RTF body is no body
        }
    }
    if (m_body.HTML.isEmpty() && !m_body.RTF.isEmpty()) {
        if (auto fromRtf = core::RtfToHtml(m_body.RTF))
            m_body.HTML = *fromRtf;
    }
}

QString TOutlookMessage::MessageClass() const
{
    return m_root ? m_root->String(pid::MessageClass).trimmed() : QString();
}

bool TOutlookMessage::IsContact() const
{
    return MessageClass() == QLatin1String("IPM.Contact");
}

bool TOutlookMessage::IsMeeting() const
{
    const QString messageClass = MessageClass();
    return messageClass.startsWith(QLatin1String("IPM.Appointment"), Qt::CaseInsensitive)
        || messageClass.startsWith(QLatin1String("IPM.Schedule.Meeting"), Qt::CaseInsensitive);
}

TGPtr<GMimeMessage> TOutlookMessage::CopyToClever() const
{
    EnsureGMime();
    if (!m_root)
        return TGPtr<GMimeMessage>(g_mime_message_new(TRUE));
    const TMsgStorage& root = *m_root;

    // Attachments, images apart; attached messages become message parts.
    std::vector<TMimeFile> attachments;
    std::vector<TMimeFile> images;
    int embeddedCount = 0;
    for (const TMsgStorage& attach : root.Children("__attach_version1.0_#", 8)) {
        TMimeFile file;
        if (auto embedded = attach.EmbeddedMessage()) {
            const TOutlookMessage inner(std::move(*embedded));
            QString subject = inner.Root().String(pid::Subject).trimmed();
            if (subject.isEmpty())
                subject = QStringLiteral("Attached message %1").arg(++embeddedCount);
            file.name = subject + QStringLiteral(".msg");
            file.message = inner.CopyToClever();
            attachments.push_back(std::move(file));
            continue;
        }
        QString name = attach.String(pid::AttachLongFilename);
        if (name.isEmpty())
            name = attach.String(pid::AttachFilename);
        if (name.isEmpty())
            name = attach.String(pid::DisplayName);
        file.name = DecodeAttachName(name);
        file.data = attach.Binary(pid::AttachDataBin);
        file.contentType = attach.String(pid::AttachMimeTag).trimmed().toLower();
        if (!file.contentType.contains(QLatin1Char('/')))
            file.contentType.clear();
        file.contentId = attach.String(pid::AttachContentId).trimmed();
        (IsImageName(file.name) ? images : attachments).push_back(std::move(file));
    }

    // Never without a body part.
    QString text = m_body.Text;
    if (text.isEmpty() && m_body.HTML.isEmpty())
        text = QStringLiteral(" ");
    TGPtr<GMimeMessage> message = BuildMimeMessage(text, m_body.HTML, std::move(attachments), std::move(images));
    GMimeObject* object = GMIME_OBJECT(message.get());

    // The transport headers, less those that describe the body we built.
    const QString headers = root.String(pid::TransportHeaders);
    if (!headers.trimmed().isEmpty()) {
        const TGPtr<GMimeMessage> parsed = ParseMimeMessage(headers.toUtf8() + "\r\n\r\n");
        GMimeHeaderList* list = parsed ? g_mime_object_get_header_list(GMIME_OBJECT(parsed.get())) : nullptr;
        const int count = list ? g_mime_header_list_get_count(list) : 0;
        for (int i = 0; i < count; ++i) {
            GMimeHeader* header = g_mime_header_list_get_header_at(list, i);
            const char* name = g_mime_header_get_name(header);
            if (!name || g_ascii_strncasecmp(name, "Content-", 8) == 0 || g_ascii_strcasecmp(name, "MIME-Version") == 0)
                continue;
            g_mime_object_append_header(object, name, g_mime_header_get_value(header), "UTF-8");
        }
    }
    g_mime_message_set_subject(message.get(), root.String(pid::Subject).toUtf8().constData(), "UTF-8");

    // From: the name, with the address when the message holds one.
    QString senderName = root.String(pid::SenderName);
    if (senderName.isEmpty())
        senderName = root.String(pid::SentRepresentingName);
    QString senderAddress = root.String(pid::SenderSmtpAddress);
    if (senderAddress.isEmpty() && root.String(pid::SenderAddrType).compare(QLatin1String("SMTP"), Qt::CaseInsensitive) == 0)
        senderAddress = root.String(pid::SenderEmail);
    if (senderAddress.isEmpty())
        senderAddress = root.String(pid::SentRepresentingSmtpAddress);
    if (senderAddress.isEmpty()
        && root.String(pid::SentRepresentingAddrType).compare(QLatin1String("SMTP"), Qt::CaseInsensitive) == 0)
        senderAddress = root.String(pid::SentRepresentingEmail);
    if (senderAddress.isEmpty())
        senderAddress = root.String(pid::SenderEmail);
    if (!senderName.isEmpty() || !senderAddress.isEmpty()) {
        InternetAddressList* from = g_mime_message_get_from(message.get());
        internet_address_list_clear(from);
        InternetAddress* mailbox = internet_address_mailbox_new(
            senderName.toUtf8().constData(), senderAddress.toUtf8().constData());
        internet_address_list_add(from, mailbox);
        g_object_unref(mailbox);
    }

    // Recipients by type, from the recipient table.
    const std::vector<TMsgStorage> recipients = root.Children("__recip_version1.0_#", 8);
    if (!recipients.empty()) {
        for (GMimeAddressType type : {GMIME_ADDRESS_TYPE_TO, GMIME_ADDRESS_TYPE_CC, GMIME_ADDRESS_TYPE_BCC})
            internet_address_list_clear(g_mime_message_get_addresses(message.get(), type));
    }
    for (const TMsgStorage& recipient : recipients) {
        GMimeAddressType type;
        switch (recipient.Int32(pid::RecipientType).value_or(1) & 0x0F) {
        case 2: type = GMIME_ADDRESS_TYPE_CC; break;
        case 3: type = GMIME_ADDRESS_TYPE_BCC; break;
        default: type = GMIME_ADDRESS_TYPE_TO;
        }
        QString address = recipient.String(pid::SmtpAddress);
        if (address.isEmpty())
            address = recipient.String(pid::EmailAddress);
        g_mime_message_add_mailbox(message.get(), type, recipient.String(pid::DisplayName).toUtf8().constData(),
            address.toUtf8().constData());
    }

    uint64_t date = root.FileTime(pid::ClientSubmitTime);
    if (date == 0)
        date = root.FileTime(pid::DeliveryTime);
    if (GDateTime* when = ToGDateTime(date)) {
        g_mime_message_set_date(message.get(), when);
        g_date_time_unref(when);
    }
    return message;
}

// --- meetings -------------------------------------------------------------------

TMailOutlookMeeting::TMailOutlookMeeting(const TOutlookMessage& message)
    : TCleverMailMessage(message.CopyToClever(), message.Body().RTF)
{
    const TMsgStorage& root = message.Root();
    m_start = core::FiletimeToLocal(root.FileTime(pid::AppointmentStart));
    m_end = core::FiletimeToLocal(root.FileTime(pid::AppointmentEnd));
    m_location = root.String(pid::Location);
}

// --- contacts -------------------------------------------------------------------

QVariant TOutlookContact::Value(int field) const
{
    const TMsgStorage& root = m_message->Root();
    switch (field) {
    case cfNotes: {
        const QString notes = m_message->Body().Text;
        return notes.isEmpty() ? QVariant() : QVariant(notes);
    }
    case cfPicture: {
        const QByteArray picture = ContactPicture();
        return picture.isEmpty() ? QVariant() : QVariant(picture);
    }
    case cfBirthday: {
        const TDateTime date = core::FiletimeToLocal(root.FileTime(ContactFieldTag(cfBirthday)));
        return date > 0 ? QVariant(core::DateTimeToQDateTime(date)) : QVariant();
    }
    default: {
        const QString value = root.String(ContactFieldTag(field));
        return value.isEmpty() ? QVariant() : QVariant(value);
    }
    }
}

QVariant TOutlookContact::Anniversary() const
{
    constexpr uint32_t WeddingAnniversary = 0x3A41; // PidTagWeddingAnniversary, PT_SYSTIME
    const TDateTime date = core::FiletimeToLocal(m_message->Root().FileTime(WeddingAnniversary));
    return date > 0 ? QVariant(core::DateTimeToQDateTime(date)) : QVariant();
}

QVariant TOutlookContact::Gender() const
{
    constexpr uint32_t Gender = 0x3A4D; // PidTagGender, PT_SHORT: 0 unspecified, 1 female, 2 male
    switch (m_message->Root().Int32(Gender).value_or(0)) {
    case 1: return QStringLiteral("F");
    case 2: return QStringLiteral("M");
    default: return {};
    }
}

QByteArray TOutlookContact::ContactPicture() const
{
    for (const TMsgStorage& attach : m_message->Root().Children("__attach_version1.0_#", 8)) {
        QString name = attach.String(pid::AttachLongFilename);
        if (name.isEmpty())
            name = attach.String(pid::AttachFilename);
        if (name.compare(QLatin1String("ContactPicture.jpg"), Qt::CaseInsensitive) == 0)
            return attach.Binary(pid::AttachDataBin);
    }
    return {};
}

QString TMailOutlookContact::Subject() const
{
    const QString subject = m_message->Root().String(pid::Subject);
    return subject.isEmpty() ? m_message->Root().String(pid::DisplayName) : subject;
}

QString TMailOutlookContact::Body(TMailBodyType kind) const
{
    switch (kind) {
    case mbtText: return m_message->Body().Text;
    case mbtHTML: return m_message->Body().HTML;
    default: return QString::fromLatin1(m_message->Body().RTF);
    }
}

TDateTime TMailOutlookContact::Date(TMailDateType kind) const
{
    static constexpr uint16_t Tags[] = {pid::ClientSubmitTime, pid::DeliveryTime, pid::CreationTime, pid::LastModificationTime};
    return core::FiletimeToLocal(m_message->Root().FileTime(Tags[kind]));
}

QVariant TMailOutlookContact::GetField(int field) const
{
    if (field == mcfAnniversary)
        return m_contact.Anniversary();
    if (field == mcfGender)
        return m_contact.Gender();
    return ContactMessageField(field, [this](int stored) { return m_contact.Value(stored); });
}

} // namespace tessaly::mail
