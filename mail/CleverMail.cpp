#include "mail/CleverMail.h"

#include "core/Charset.h"

#include <QBuffer>
#include <QHash>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <algorithm>
#include <array>
#include <cstring>
#include <cctype>

namespace tessaly::mail {

namespace {

QString FromUtf8OrLatin1(const char* text)
{
    if (!text)
        return {};
    const QByteArray bytes(text);
    return core::IsValidUtf8(bytes) ? QString::fromUtf8(bytes) : QString::fromLatin1(bytes);
}

QString MimeTypeOf(GMimeObject* object)
{
    GMimeContentType* type = object ? g_mime_object_get_content_type(object) : nullptr;
    if (!type)
        return {};
    char* mime = g_mime_content_type_get_mime_type(type);
    const QString result = QString::fromLatin1(mime).toLower();
    g_free(mime);
    return result;
}

// The decoded data of a part; an attached message as its MIME text.
QByteArray PartData(GMimeObject* object)
{
    TGPtr<GMimeStream> stream(g_mime_stream_mem_new());
    if (GMIME_IS_MESSAGE_PART(object)) {
        if (GMimeMessage* message = g_mime_message_part_get_message(GMIME_MESSAGE_PART(object)))
            g_mime_object_write_to_stream(GMIME_OBJECT(message), nullptr, stream.get());
    } else if (GMIME_IS_PART(object)) {
        if (GMimeDataWrapper* content = g_mime_part_get_content(GMIME_PART(object)))
            g_mime_data_wrapper_write_to_stream(content, stream.get());
    }
    return StreamBytes(stream.get());
}

// Text of a text part in its declared charset; without one, UTF-8 when it
// fits and Windows-1252 otherwise.
QString PartText(GMimeObject* object)
{
    const QByteArray data = PartData(object);
    const QString charset = QString::fromLatin1(g_mime_object_get_content_type_parameter(object, "charset"));
    if (!charset.isEmpty())
        return core::DecodeCharset(data, charset);
    return core::IsValidUtf8(data) ? QString::fromUtf8(data) : core::DecodeCharset(data, QStringLiteral("windows-1252"));
}

bool IsAttachmentDisposition(GMimeObject* object)
{
    const char* disposition = g_mime_object_get_disposition(object);
    return disposition && g_ascii_strcasecmp(disposition, "attachment") == 0;
}

// The value of a parameter of a part's Content-Disposition or Content-Type
// field, re-parsed from the field as it stands when it holds encoded words
// (GMime loses the words after a padded base64 word); null otherwise.
QString MendedParameter(GMimeObject* object, const char* field, const char* parameter)
{
    GMimeHeaderList* headers = g_mime_object_get_header_list(object);
    GMimeHeader* header = headers ? g_mime_header_list_get_header(headers, field) : nullptr;
    const char* raw = header ? g_mime_header_get_raw_value(header) : nullptr;
    if (!raw || !strstr(raw, "=?"))
        return {};
    const QByteArray mended = MendEncodedWords(QByteArray(raw));
    const char* value = nullptr;
    QString result;
    if (g_ascii_strcasecmp(field, "Content-Disposition") == 0) {
        GMimeContentDisposition* disposition = g_mime_content_disposition_parse(nullptr, mended.constData());
        value = disposition ? g_mime_content_disposition_get_parameter(disposition, parameter) : nullptr;
        result = FromUtf8OrLatin1(value);
        if (disposition)
            g_object_unref(disposition);
    } else {
        GMimeContentType* type = g_mime_content_type_parse(nullptr, mended.constData());
        value = type ? g_mime_content_type_get_parameter(type, parameter) : nullptr;
        result = FromUtf8OrLatin1(value);
        if (type)
            g_object_unref(type);
    }
    return result;
}

QString RawFileName(GMimeObject* object)
{
    for (const auto& [field, parameter] : {std::pair{"Content-Disposition", "filename"}, std::pair{"Content-Type", "name"}})
        if (const QString mended = MendedParameter(object, field, parameter); !mended.isEmpty())
            return mended;
    const char* name = nullptr;
    if (GMIME_IS_PART(object))
        name = g_mime_part_get_filename(GMIME_PART(object));
    if (!name)
        name = g_mime_object_get_content_disposition_parameter(object, "filename");
    if (!name)
        name = g_mime_object_get_content_type_parameter(object, "name");
    return FromUtf8OrLatin1(name);
}

// An IP address in its usual text form ("198.51.100.7", "2001:db8::1"),
// from any text form the address takes; empty when the text is none.
// privateAddress says whether it belongs to a private or local network.
QString NormalIpAddress(const QString& text, bool& privateAddress)
{
    TGPtr<GInetAddress> address(g_inet_address_new_from_string(text.toLatin1().constData()));
    if (!address)
        return {};
    static const char* const Unique = "fc00::/7"; // IPv6 unique local addresses
    TGPtr<GInetAddressMask> unique(g_inet_address_mask_new_from_string(Unique, nullptr));
    // Site-local: 10/8, 172.16/12 and 192.168/16 for IPv4.
    privateAddress = g_inet_address_get_is_site_local(address.get()) || g_inet_address_get_is_loopback(address.get())
        || g_inet_address_get_is_link_local(address.get()) || (unique && g_inet_address_mask_matches(unique.get(), address.get()));
    gchar* normal = g_inet_address_to_string(address.get());
    const QString result = QString::fromLatin1(normal);
    g_free(normal);
    return result;
}

TDateTime ToDateTime(GDateTime* date)
{
    if (!date)
        return 0;
    const QDateTime utc = QDateTime::fromSecsSinceEpoch(g_date_time_to_unix(date), Qt::UTC);
    return core::QDateTimeToDateTime(utc.toLocalTime());
}

// The first of the header fields named name when the message has more than
// one: mail programs show the first, GMime keeps the last. Null otherwise.
// A message GMime made (rather than parsed) holds empty placeholders of the
// common fields, without a value until one is set: they are no fields.
GMimeHeader* FirstOfSeveral(GMimeMessage* message, const char* name)
{
    GMimeHeaderList* headers = g_mime_object_get_header_list(GMIME_OBJECT(message));
    GMimeHeader* first = nullptr;
    int count = 0;
    for (int i = 0; headers && i < g_mime_header_list_get_count(headers); ++i) {
        GMimeHeader* header = g_mime_header_list_get_header_at(headers, i);
        if (g_ascii_strcasecmp(g_mime_header_get_name(header), name) == 0 && g_mime_header_get_value(header)
            && count++ == 0)
            first = header;
    }
    return count > 1 ? first : nullptr;
}

// True when a header field named name holds encoded words.
bool HasEncodedWords(GMimeMessage* message, const char* name)
{
    GMimeHeaderList* headers = g_mime_object_get_header_list(GMIME_OBJECT(message));
    for (int i = 0; headers && i < g_mime_header_list_get_count(headers); ++i) {
        GMimeHeader* header = g_mime_header_list_get_header_at(headers, i);
        const char* raw = g_mime_header_get_raw_value(header);
        if (g_ascii_strcasecmp(g_mime_header_get_name(header), name) == 0 && raw && strstr(raw, "=?"))
            return true;
    }
    return false;
}

} // namespace

QString DecodeHeaderText(const QByteArray& raw)
{
    // Unfolded: a line break before white space is dropped.
    static const QRegularExpression Fold(QStringLiteral("\\r?\\n(?=[ \\t])"));
    const QString text = QString::fromLatin1(raw).remove(Fold); // one character per byte
    static const QRegularExpression Word(QStringLiteral("=\\?([^?\\s]+)\\?([BbQq])\\?([^?\\s]*)\\?="));
    const auto plain = [](const QString& bytes) { return FromUtf8OrLatin1(bytes.toLatin1().constData()); };
    QString out;
    QByteArray pending;        // bytes of adjacent words of one charset
    QString pendingCharset;
    const auto flush = [&] {
        if (pending.isEmpty())
            return;
        out += core::IsKnownCharset(pendingCharset) ? core::DecodeCharset(pending, pendingCharset)
                                                    : plain(QString::fromLatin1(pending));
        pending.clear();
    };
    qsizetype position = 0;
    bool afterWord = false;
    for (auto it = Word.globalMatch(text); it.hasNext();) {
        const auto match = it.next();
        const QString between = text.mid(position, match.capturedStart() - position);
        position = match.capturedEnd();
        QString charset = match.captured(1);
        charset.truncate(charset.indexOf(QLatin1Char('*')) >= 0 ? charset.indexOf(QLatin1Char('*')) : charset.size());
        const QByteArray payload = match.captured(3).toLatin1();
        QByteArray bytes;
        bool ok = true;
        if (match.captured(2).compare(QLatin1String("B"), Qt::CaseInsensitive) == 0) {
            // Padding is taken as it comes, too short or missing.
            QByteArray unpadded = payload;
            while (unpadded.endsWith('='))
                unpadded.chop(1);
            auto decoded = QByteArray::fromBase64Encoding(unpadded, QByteArray::AbortOnBase64DecodingErrors);
            ok = bool(decoded);
            bytes = *decoded;
        } else {
            for (qsizetype i = 0; i < payload.size(); ++i) {
                if (payload[i] == '_') {
                    bytes += ' ';
                } else if (payload[i] == '=' && i + 2 < payload.size() && isxdigit(uchar(payload[i + 1]))
                    && isxdigit(uchar(payload[i + 2]))) {
                    bytes += QByteArray::fromHex(payload.mid(i + 1, 2));
                    i += 2;
                } else {
                    bytes += payload[i];
                }
            }
        }
        // White space between two encoded words is not part of the text.
        if (!(afterWord && between.trimmed().isEmpty())) {
            flush();
            out += plain(between);
        }
        if (!ok) { // a malformed word stays as it stands
            flush();
            out += match.captured(0);
            afterWord = false;
            continue;
        }
        if (charset.compare(pendingCharset, Qt::CaseInsensitive) != 0)
            flush();
        pendingCharset = charset;
        pending += bytes;
        afterWord = true;
    }
    flush();
    out += plain(text.mid(position));
    return out;
}

QByteArray MendEncodedWords(const QByteArray& raw)
{
    if (!raw.contains("=?"))
        return raw;
    // A run: encoded words with nothing but white space (folds too) between.
    static const QRegularExpression Run(QStringLiteral(
        "=\\?[^?\\s]+\\?[BbQq]\\?[^?\\s]*\\?=(?:[ \\t]*(?:\\r?\\n)?[ \\t]*=\\?[^?\\s]+\\?[BbQq]\\?[^?\\s]*\\?=)*"));
    const QString text = QString::fromLatin1(raw);
    QByteArray out;
    qsizetype position = 0;
    for (auto it = Run.globalMatch(text); it.hasNext();) {
        const auto match = it.next();
        out += text.mid(position, match.capturedStart() - position).toLatin1();
        position = match.capturedEnd();
        const QByteArray decoded = DecodeHeaderText(match.captured(0).toLatin1()).toUtf8();
        out += "=?UTF-8?B?" + decoded.toBase64() + "?=";
    }
    out += text.mid(position).toLatin1();
    return out;
}

// --- recipients -----------------------------------------------------------

TCleverMailRecipientList::TCleverMailRecipientList(InternetAddressList* list)
{
    if (!list)
        return;
    const int count = internet_address_list_length(list);
    for (int i = 0; i < count; ++i) {
        InternetAddress* address = internet_address_list_get_address(list, i);
        if (INTERNET_ADDRESS_IS_GROUP(address)) {
            const TCleverMailRecipientList members(internet_address_group_get_members(INTERNET_ADDRESS_GROUP(address)));
            for (int m = 0; m < members.Count(); ++m)
                Add(members.GetRecipient(m));
        } else if (INTERNET_ADDRESS_IS_MAILBOX(address)) {
            Add(std::make_shared<TCleverMailRecipient>(FromUtf8OrLatin1(internet_address_get_name(address)),
                FromUtf8OrLatin1(internet_address_mailbox_get_addr(INTERNET_ADDRESS_MAILBOX(address)))));
        }
    }
}

// --- attachments ----------------------------------------------------------

QString ExtensionForContentType(const QString& contentType)
{
    static const QHash<QString, QString> Extensions = {
        {"image/jpeg", "jpg"}, {"image/jpg", "jpg"}, {"image/pjpeg", "jpg"}, {"image/png", "png"},
        {"image/gif", "gif"}, {"image/bmp", "bmp"}, {"image/tiff", "tif"}, {"image/x-icon", "ico"},
        {"image/svg+xml", "svg"}, {"image/webp", "webp"}, {"application/pdf", "pdf"}, {"text/plain", "txt"},
        {"text/html", "htm"}, {"text/csv", "csv"}, {"text/xml", "xml"}, {"application/xml", "xml"},
        {"text/calendar", "ics"}, {"text/vcard", "vcf"}, {"text/x-vcard", "vcf"}, {"text/rtf", "rtf"},
        {"application/rtf", "rtf"}, {"message/rfc822", "eml"}, {"application/zip", "zip"},
        {"application/x-zip-compressed", "zip"}, {"application/gzip", "gz"}, {"application/x-7z-compressed", "7z"},
        {"application/msword", "doc"}, {"application/vnd.ms-excel", "xls"}, {"application/vnd.ms-powerpoint", "ppt"},
        {"application/vnd.openxmlformats-officedocument.wordprocessingml.document", "docx"},
        {"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet", "xlsx"},
        {"application/vnd.openxmlformats-officedocument.presentationml.presentation", "pptx"},
        {"application/vnd.ms-outlook", "msg"}, {"application/json", "json"}, {"audio/mpeg", "mp3"},
        {"audio/wav", "wav"}, {"video/mp4", "mp4"}, {"application/octet-stream", "bin"},
        {"message/delivery-status", "txt"}, {"text/rfc822-headers", "txt"},
    };
    return Extensions.value(contentType.trimmed().toLower());
}

TCleverMailAttach::TCleverMailAttach(TGPtr<GMimeObject> part, int index) : m_part(std::move(part)), m_index(index) {}

QString TCleverMailAttach::FileName() const
{
    if (m_fileName)
        return *m_fileName;
    QString name = RawFileName(m_part.get());
    name = name.mid(std::max(name.lastIndexOf(QLatin1Char('/')), name.lastIndexOf(QLatin1Char('\\'))) + 1).trimmed();
    if (name.isEmpty() && GMIME_IS_MESSAGE_PART(m_part.get())) {
        if (GMimeMessage* message = g_mime_message_part_get_message(GMIME_MESSAGE_PART(m_part.get())))
            name = FromUtf8OrLatin1(g_mime_message_get_subject(message)).trimmed();
    }
    if (name.isEmpty())
        name = QStringLiteral("attach %1").arg(m_index);
    if (!name.contains(QLatin1Char('.'))) {
        const QString extension = ExtensionForContentType(MimeTypeOf(m_part.get()));
        if (!extension.isEmpty())
            name += QLatin1Char('.') + extension;
    }
    m_fileName = name;
    return name;
}

const QByteArray& TCleverMailAttach::Data() const
{
    if (!m_data)
        m_data = PartData(m_part.get());
    return *m_data;
}

std::unique_ptr<QIODevice> TCleverMailAttach::Content() const
{
    auto buffer = std::make_unique<QBuffer>();
    buffer->setData(Data());
    buffer->open(QIODevice::ReadOnly);
    return buffer;
}

QString TCleverMailAttach::ContentID() const
{
    return FromUtf8OrLatin1(g_mime_object_get_content_id(m_part.get()));
}

QString TCleverMailAttach::ContentType() const
{
    return MimeTypeOf(m_part.get());
}

QString TCleverMailAttach::ContentDisposition() const
{
    return FromUtf8OrLatin1(g_mime_object_get_disposition(m_part.get()));
}

QString TCleverMailAttach::ContentLocation() const
{
    return FromUtf8OrLatin1(g_mime_object_get_header(m_part.get(), "Content-Location")).trimmed();
}

std::shared_ptr<IMailMessage> TCleverMailAttach::AsMailMessage() const
{
    if (!GMIME_IS_MESSAGE_PART(m_part.get()))
        return nullptr;
    GMimeMessage* message = g_mime_message_part_get_message(GMIME_MESSAGE_PART(m_part.get()));
    if (!message)
        return nullptr;
    return std::make_shared<TCleverMailMessage>(RefObject(message));
}

qint32 TCleverMailAttach::Size() const
{
    return qint32(std::min<qsizetype>(Data().size(), std::numeric_limits<qint32>::max()));
}

std::shared_ptr<IMailAttach> TCleverMailAttachList::GetAttach(int index) const
{
    if (index < 0 || index >= Count())
        return nullptr;
    return m_items[size_t(index)];
}

// --- the message ------------------------------------------------------------

TCleverMailMessage::TCleverMailMessage(TGPtr<GMimeMessage> message, QByteArray rtf)
    : m_message(std::move(message)), m_rtf(std::move(rtf))
{
    EnsureGMime();
    if (m_message)
        Collect(g_mime_message_get_mime_part(m_message.get()));
}

// The first plain and the first HTML part that are not attachments are the
// bodies; every other leaf and every attached message is an attachment.
void TCleverMailMessage::Collect(GMimeObject* object)
{
    if (!object)
        return;
    if (GMIME_IS_MULTIPART(object)) {
        GMimeMultipart* multipart = GMIME_MULTIPART(object);
        const int count = g_mime_multipart_get_count(multipart);
        for (int i = 0; i < count; ++i)
            Collect(g_mime_multipart_get_part(multipart, i));
        return;
    }
    if (GMIME_IS_PART(object) && !IsAttachmentDisposition(object)) {
        const QString type = MimeTypeOf(object);
        const bool named = !RawFileName(object).isEmpty();
        if (type == QLatin1String("text/plain") && !m_text.part && !named) {
            m_text.part = RefObject(object);
            return;
        }
        if (type == QLatin1String("text/html") && !m_html.part && !named) {
            m_html.part = RefObject(object);
            return;
        }
    }
    m_attachParts.push_back(std::make_shared<TCleverMailAttach>(RefObject(object), int(m_attachParts.size())));
}

const TCleverMailMessage::TBodyPart* TCleverMailMessage::BodyPart(TMailBodyType kind) const
{
    switch (kind) {
    case mbtText: return m_text.part ? &m_text : nullptr;
    case mbtHTML: return m_html.part ? &m_html : nullptr;
    default: return nullptr;
    }
}

std::shared_ptr<IMailRecipient> TCleverMailMessage::Sender() const
{
    if (!m_message)
        return nullptr;
    GMimeHeader* first = FirstOfSeveral(m_message.get(), "From");
    if (!first && HasEncodedWords(m_message.get(), "From"))
        first = g_mime_header_list_get_header(g_mime_object_get_header_list(GMIME_OBJECT(m_message.get())), "From");
    if (first) {
        const QByteArray mended = MendEncodedWords(QByteArray(g_mime_header_get_raw_value(first)));
        InternetAddressList* parsed = internet_address_list_parse(nullptr, mended.constData());
        const TCleverMailRecipientList from(parsed);
        if (parsed)
            g_object_unref(parsed);
        return from.Count() > 0 ? from.GetRecipient(0) : nullptr;
    }
    const TCleverMailRecipientList from(g_mime_message_get_from(m_message.get()));
    return from.Count() > 0 ? from.GetRecipient(0) : nullptr;
}

QString TCleverMailMessage::SenderIPFromHeaders(const QString& headers)
{
    static const QRegularExpression Originating(QStringLiteral("^X-Originating-IP:\\s*\\[?([0-9a-fA-F:.]+)\\]?"),
        QRegularExpression::MultilineOption | QRegularExpression::CaseInsensitiveOption);
    bool privateAddress = false;
    if (const auto match = Originating.match(headers); match.hasMatch()) {
        const QString address = NormalIpAddress(match.captured(1), privateAddress);
        if (!address.isEmpty())
            return address;
    }
    // Received headers stand newest first; the last one with an address is
    // the first hop, and a public address beats a private one.
    static const QRegularExpression Received(QStringLiteral("^Received:(.*(?:\\r?\\n[ \\t].*)*)"),
        QRegularExpression::MultilineOption | QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression Bracketed(QStringLiteral("\\[(?:IPv6:)?([0-9a-fA-F:.]+)\\]"));
    QString firstHop;
    QString firstPublicHop;
    for (auto it = Received.globalMatch(headers); it.hasNext();) {
        const QString header = it.next().captured(1);
        for (auto ip = Bracketed.globalMatch(header); ip.hasNext();) {
            const QString address = NormalIpAddress(ip.next().captured(1), privateAddress);
            if (address.isEmpty())
                continue;
            firstHop = address;
            if (!privateAddress)
                firstPublicHop = firstHop;
            break;
        }
    }
    return firstPublicHop.isEmpty() ? firstHop : firstPublicHop;
}

QString TCleverMailMessage::SenderIP() const
{
    return SenderIPFromHeaders(Headers());
}

QString TCleverMailMessage::Subject() const
{
    if (!m_message)
        return {};
    // Decoded here: GMime drops every encoded word that follows a base64
    // word ending in padding, which mail programs write for long subjects.
    // The first of several Subject fields, as mail programs show it.
    GMimeHeaderList* headers = g_mime_object_get_header_list(GMIME_OBJECT(m_message.get()));
    if (GMimeHeader* subject = headers ? g_mime_header_list_get_header(headers, "Subject") : nullptr)
        return DecodeHeaderText(g_mime_header_get_raw_value(subject)).trimmed();
    return FromUtf8OrLatin1(g_mime_message_get_subject(m_message.get()));
}

std::shared_ptr<IMailRecipientList> TCleverMailMessage::Recipients(TMailRecipientType kind) const
{
    if (!m_message)
        return nullptr;
    GMimeAddressType type;
    switch (kind) {
    case mrtTo: type = GMIME_ADDRESS_TYPE_TO; break;
    case mrtCC: type = GMIME_ADDRESS_TYPE_CC; break;
    case mrtBCC: type = GMIME_ADDRESS_TYPE_BCC; break;
    default: return nullptr;
    }
    const char* const names[] = {"To", "Cc", "Bcc"};
    const char* name = names[kind == mrtTo ? 0 : kind == mrtCC ? 1 : 2];
    if (!HasEncodedWords(m_message.get(), name))
        return std::make_shared<TCleverMailRecipientList>(g_mime_message_get_addresses(m_message.get(), type));
    // Every field of that name, as GMime joins them, with its words mended.
    InternetAddressList* all = internet_address_list_new();
    GMimeHeaderList* headers = g_mime_object_get_header_list(GMIME_OBJECT(m_message.get()));
    for (int i = 0; i < g_mime_header_list_get_count(headers); ++i) {
        GMimeHeader* header = g_mime_header_list_get_header_at(headers, i);
        if (g_ascii_strcasecmp(g_mime_header_get_name(header), name) != 0)
            continue;
        const QByteArray mended = MendEncodedWords(QByteArray(g_mime_header_get_raw_value(header)));
        if (InternetAddressList* parsed = internet_address_list_parse(nullptr, mended.constData())) {
            internet_address_list_append(all, parsed);
            g_object_unref(parsed);
        }
    }
    auto list = std::make_shared<TCleverMailRecipientList>(all);
    g_object_unref(all);
    return list;
}

QString TCleverMailMessage::Body(TMailBodyType kind) const
{
    if (kind == mbtRTF)
        return QString::fromLatin1(m_rtf);
    const TBodyPart* body = BodyPart(kind);
    if (!body)
        return {};
    if (!body->text)
        body->text = PartText(body->part.get());
    return *body->text;
}

const TMailStringList* TCleverMailMessage::BodyStrings(TMailBodyType kind) const
{
    const TBodyPart* body = BodyPart(kind);
    if (!body)
        return nullptr;
    if (!body->lines) {
        QBuffer buffer;
        buffer.setData(PartData(body->part.get()));
        buffer.open(QIODevice::ReadOnly);
        body->lines.emplace();
        body->lines->LoadFromStream(buffer);
    }
    return &*body->lines;
}

TDateTime TCleverMailMessage::Date(TMailDateType kind) const
{
    if (kind != mdClientSubmit || !m_message)
        return 0;
    if (GMimeHeader* first = FirstOfSeveral(m_message.get(), "Date")) {
        GDateTime* date = g_mime_utils_header_decode_date(g_mime_header_get_value(first));
        const TDateTime value = ToDateTime(date);
        if (date)
            g_date_time_unref(date);
        return value;
    }
    return ToDateTime(g_mime_message_get_date(m_message.get()));
}

QString TCleverMailMessage::Headers() const
{
    if (!m_message)
        return {};
    char* headers = g_mime_object_get_headers(GMIME_OBJECT(m_message.get()), nullptr);
    const QString text = FromUtf8OrLatin1(headers);
    g_free(headers);
    return text;
}

std::shared_ptr<IMailAttachList> TCleverMailMessage::Attaches() const
{
    if (!m_attaches)
        m_attaches = std::make_shared<TCleverMailAttachList>(m_attachParts);
    return m_attaches;
}

std::shared_ptr<TCleverMailMessage> ParseEMLMessage(const QByteArray& data)
{
    return std::make_shared<TCleverMailMessage>(ParseMimeMessage(data));
}

// --- building ---------------------------------------------------------------

namespace {

// The whole text in UTF-8 (US-ASCII when it is that), without a CR alone.
// Not through
// g_mime_text_part_set_text: it ends the text at its first NUL, and labels
// text of Latin-1 characters ISO-8859-1, which readers (ours too) take for
// windows-1252, so that U+0080 to U+009F would come back as other letters.
GMimeObject* TextPart(const char* subtype, const QString& text)
{
    GMimeTextPart* part = g_mime_text_part_new_with_subtype(subtype);
    // A CR alone is no line break in MIME text and would go out as it is:
    // it becomes CR LF.
    static const QRegularExpression LoneCR(QStringLiteral("\r(?!\n)"));
    QString lines = text;
    lines.replace(LoneCR, QStringLiteral("\r\n"));
    const QByteArray utf8 = lines.toUtf8();
    TGPtr<GMimeStream> stream(g_mime_stream_mem_new_with_buffer(utf8.constData(), size_t(utf8.size())));
    TGPtr<GMimeDataWrapper> content(g_mime_data_wrapper_new_with_stream(stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
    g_mime_part_set_content(GMIME_PART(part), content.get());
    const bool ascii = std::all_of(utf8.begin(), utf8.end(), [](char c) { return uchar(c) < 0x80; });
    g_mime_text_part_set_charset(part, ascii ? "us-ascii" : "utf-8");
    g_mime_part_set_content_encoding(
        GMIME_PART(part), g_mime_part_get_best_content_encoding(GMIME_PART(part), GMIME_ENCODING_CONSTRAINT_7BIT));
    return GMIME_OBJECT(part);
}

// A token of RFC 2045 (a media type or subtype).
bool IsMimeToken(const QByteArray& text)
{
    static const QByteArray Specials = "()<>@,;:\\\"/[]?=";
    return !text.isEmpty() && std::all_of(text.begin(), text.end(), [](char c) {
        return uchar(c) > 0x20 && uchar(c) < 0x7F && !Specials.contains(c);
    });
}

// A Content-ID's text without blanks, control characters or angle
// brackets, so that it stays one header line; UTF-8 stays, as in addresses.
QByteArray ContentIdText(const QString& id)
{
    QByteArray out;
    for (const char c : id.toUtf8())
        if (uchar(c) > 0x20 && uchar(c) != 0x7F && c != '<' && c != '>')
            out += c;
    return out;
}

QString ContentTypeForName(const QString& name)
{
    const QString extension = name.mid(name.lastIndexOf(QLatin1Char('.')) + 1).toLower();
    static const QHash<QString, QString> Types = {
        {"jpg", "image/jpeg"}, {"jpeg", "image/jpeg"}, {"gif", "image/gif"}, {"png", "image/png"},
        {"bmp", "image/bmp"}, {"ico", "image/x-icon"}, {"tif", "image/tiff"}, {"tiff", "image/tiff"},
        {"pdf", "application/pdf"}, {"txt", "text/plain"}, {"htm", "text/html"}, {"html", "text/html"},
        {"ics", "text/calendar"}, {"vcf", "text/vcard"}, {"eml", "message/rfc822"}, {"zip", "application/zip"},
        {"doc", "application/msword"}, {"xls", "application/vnd.ms-excel"},
        {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
        {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
        {"msg", "application/vnd.ms-outlook"},
    };
    return name.contains(QLatin1Char('.')) ? Types.value(extension, QStringLiteral("application/octet-stream"))
                                           : QStringLiteral("application/octet-stream");
}

// Every part of a file has a name: GMime takes names as C strings, so NULs
// go, and a nameless inline text part would be read as the message's body.
QByteArray PartFileName(const QString& name, const QString& contentType)
{
    QByteArray utf8 = name.toUtf8();
    utf8.replace('\0', QByteArray());
    // A control character (a CR, say) would break the header line.
    for (char& c : utf8)
        if (uchar(c) < 0x20 || uchar(c) == 0x7F)
            c = '_';
    if (!utf8.trimmed().isEmpty())
        return utf8;
    const QString extension = ExtensionForContentType(contentType);
    return extension.isEmpty() ? QByteArray("attachment") : "attachment." + extension.toUtf8();
}

} // namespace

} // namespace tessaly::mail

namespace {

// Base64 as GMime's encoder writes it in a part: lines of 76 characters
// (57 bytes), each ended by a line feed, or by CRLF as the part is
// written. Encodes `size` bytes into `out`, which holds (size + 56) / 57
// lines; returns the characters written. Two characters per look-up.
size_t Base64LinesInto(const uchar* in, size_t size, char* out, bool crlf)
{
    static const char Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    static const auto Pairs = [] {
        std::array<char, 2 * 4096> pairs{};
        for (int i = 0; i < 4096; ++i) {
            pairs[size_t(2 * i)] = Alphabet[i >> 6];
            pairs[size_t(2 * i + 1)] = Alphabet[i & 63];
        }
        return pairs;
    }();
    char* const start = out;
    for (size_t line = 0; line < size; line += 57) {
        const size_t end = std::min(size, line + 57);
        size_t i = line;
        for (; i + 3 <= end; i += 3) {
            const uint32_t v = uint32_t(in[i]) << 16 | uint32_t(in[i + 1]) << 8 | in[i + 2];
            memcpy(out, &Pairs[size_t(v >> 12) * 2], 2);
            memcpy(out + 2, &Pairs[size_t(v & 4095) * 2], 2);
            out += 4;
        }
        if (i < end) { // one or two bytes left: the last line
            const uint32_t v = uint32_t(in[i]) << 16 | (i + 1 < end ? uint32_t(in[i + 1]) << 8 : 0);
            out[0] = Alphabet[v >> 18];
            out[1] = Alphabet[(v >> 12) & 63];
            out[2] = i + 1 < end ? Alphabet[(v >> 6) & 63] : '=';
            out[3] = '=';
            out += 4;
        }
        if (crlf)
            *out++ = '\r';
        *out++ = '\n';
    }
    return size_t(out - start);
}

} // namespace

extern "C" {

// A read-only GMime stream over the bytes of a QByteArray, shared rather
// than copied (GMime's memory stream copies what it is given).
struct TessalyBytesStream {
    GMimeStream parent;
    QByteArray* bytes;
};

struct TessalyBytesStreamClass {
    GMimeStreamClass parent_class;
};

G_DEFINE_TYPE(TessalyBytesStream, tessaly_bytes_stream, GMIME_TYPE_STREAM)

static gint64 tessaly_bytes_stream_end(GMimeStream* stream)
{
    const auto size = gint64(reinterpret_cast<TessalyBytesStream*>(stream)->bytes->size());
    return stream->bound_end != -1 ? std::min(stream->bound_end, size) : size;
}

static GMimeStream* tessaly_bytes_stream_new(const QByteArray& bytes, gint64 start, gint64 end)
{
    auto* stream = static_cast<TessalyBytesStream*>(g_object_new(tessaly_bytes_stream_get_type(), nullptr));
    stream->bytes = new QByteArray(bytes);
    g_mime_stream_construct(GMIME_STREAM(stream), start, end);
    return GMIME_STREAM(stream);
}

static ssize_t tessaly_bytes_stream_read(GMimeStream* stream, char* buffer, size_t length)
{
    const gint64 n = std::min(tessaly_bytes_stream_end(stream) - stream->position, gint64(length));
    if (n < 0) {
        errno = EINVAL;
        return -1;
    }
    memcpy(buffer, reinterpret_cast<TessalyBytesStream*>(stream)->bytes->constData() + stream->position, size_t(n));
    stream->position += n;
    return ssize_t(n);
}

static ssize_t tessaly_bytes_stream_write(GMimeStream*, const char*, size_t)
{
    errno = EBADF;
    return -1;
}

static int tessaly_bytes_stream_nothing(GMimeStream*)
{
    return 0;
}

static gboolean tessaly_bytes_stream_eos(GMimeStream* stream)
{
    return stream->position >= tessaly_bytes_stream_end(stream);
}

static gint64 tessaly_bytes_stream_seek(GMimeStream* stream, gint64 offset, GMimeSeekWhence whence)
{
    const gint64 end = tessaly_bytes_stream_end(stream);
    const gint64 to = whence == GMIME_STREAM_SEEK_SET ? offset
        : whence == GMIME_STREAM_SEEK_CUR            ? stream->position + offset
                                                     : end + offset;
    if (to < stream->bound_start || to > end) {
        errno = EINVAL;
        return -1;
    }
    return stream->position = to;
}

static gint64 tessaly_bytes_stream_tell(GMimeStream* stream)
{
    return stream->position;
}

static gint64 tessaly_bytes_stream_length(GMimeStream* stream)
{
    return tessaly_bytes_stream_end(stream) - stream->bound_start;
}

static GMimeStream* tessaly_bytes_stream_substream(GMimeStream* stream, gint64 start, gint64 end)
{
    return tessaly_bytes_stream_new(*reinterpret_cast<TessalyBytesStream*>(stream)->bytes, start, end);
}

static void tessaly_bytes_stream_finalize(GObject* object)
{
    delete reinterpret_cast<TessalyBytesStream*>(object)->bytes;
    G_OBJECT_CLASS(tessaly_bytes_stream_parent_class)->finalize(object);
}

static void tessaly_bytes_stream_class_init(TessalyBytesStreamClass* klass)
{
    G_OBJECT_CLASS(klass)->finalize = tessaly_bytes_stream_finalize;
    GMimeStreamClass* stream = GMIME_STREAM_CLASS(klass);
    stream->read = tessaly_bytes_stream_read;
    stream->write = tessaly_bytes_stream_write;
    stream->flush = tessaly_bytes_stream_nothing;
    stream->close = tessaly_bytes_stream_nothing;
    stream->eos = tessaly_bytes_stream_eos;
    stream->reset = tessaly_bytes_stream_nothing;
    stream->seek = tessaly_bytes_stream_seek;
    stream->tell = tessaly_bytes_stream_tell;
    stream->length = tessaly_bytes_stream_length;
    stream->substream = tessaly_bytes_stream_substream;
}

static void tessaly_bytes_stream_init(TessalyBytesStream* stream)
{
    stream->bytes = nullptr;
}

// A base64 part whose data is encoded as it is written. GMime encodes a
// part through a filter and then passes it through another that makes line
// ends CRLF one byte at a time, a tenth of an export's time when attachments
// are large, and the encoded copy of the data it would otherwise keep is as
// large again. This part writes its headers and then its data, encoded a
// block at a time with the line ends asked for; a part whose content is
// not raw data for base64 is left to GMime.
struct TessalyEncodedPart {
    GMimePart parent;
    QByteArray* data; // the raw bytes, base64-encoded when written
};

struct TessalyEncodedPartClass {
    GMimePartClass parent_class;
};

G_DEFINE_TYPE(TessalyEncodedPart, tessaly_encoded_part, GMIME_TYPE_PART)

static ssize_t tessaly_encoded_part_write(GMimeObject* object, GMimeFormatOptions* options, gboolean contentOnly,
    GMimeStream* stream)
{
    auto* part = reinterpret_cast<TessalyEncodedPart*>(object);
    GMimeDataWrapper* content = part->parent.content;
    const auto parentWrite = GMIME_OBJECT_CLASS(tessaly_encoded_part_parent_class)->write_to_stream;
    if (!part->data || !content || part->parent.encoding != GMIME_CONTENT_ENCODING_BASE64
        || g_mime_data_wrapper_get_encoding(content) != GMIME_CONTENT_ENCODING_DEFAULT)
        return parentWrite(object, options, contentOnly, stream);
    ssize_t total = 0;
    if (!contentOnly) {
        const ssize_t headers = g_mime_header_list_write_to_stream(object->headers, options, stream);
        if (headers == -1 || g_mime_stream_write_string(stream, g_mime_format_options_get_newline(options)) == -1)
            return -1;
        total += headers + ssize_t(strlen(g_mime_format_options_get_newline(options)));
    }
    const bool crlf = g_mime_format_options_get_newline_format(options) == GMIME_NEWLINE_FORMAT_DOS;
    constexpr size_t Lines = 1024; // 57 KiB of data, 78 KiB encoded, at a time
    std::vector<char> block(Lines * 78);
    const auto* in = reinterpret_cast<const uchar*>(part->data->constData());
    const size_t size = size_t(part->data->size());
    for (size_t at = 0; at < size; at += Lines * 57) {
        const size_t n = Base64LinesInto(in + at, std::min(size - at, Lines * 57), block.data(), crlf);
        if (g_mime_stream_write(stream, block.data(), n) != ssize_t(n))
            return -1;
        total += ssize_t(n);
    }
    return total;
}

static void tessaly_encoded_part_finalize(GObject* object)
{
    delete reinterpret_cast<TessalyEncodedPart*>(object)->data;
    G_OBJECT_CLASS(tessaly_encoded_part_parent_class)->finalize(object);
}

static void tessaly_encoded_part_class_init(TessalyEncodedPartClass* klass)
{
    G_OBJECT_CLASS(klass)->finalize = tessaly_encoded_part_finalize;
    GMIME_OBJECT_CLASS(klass)->write_to_stream = tessaly_encoded_part_write;
}

static void tessaly_encoded_part_init(TessalyEncodedPart* part)
{
    part->data = nullptr;
}

} // extern "C"

namespace tessaly::mail {

namespace {

GMimeObject* FilePart(TMimeFile& file, const char* disposition)
{
    const QByteArray name = PartFileName(file.name, file.message ? QStringLiteral("message/rfc822") : file.contentType);
    if (file.message) {
        GMimeMessagePart* part = g_mime_message_part_new_with_message("rfc822", file.message.get());
        g_mime_object_set_disposition(GMIME_OBJECT(part), disposition);
        g_mime_object_set_content_disposition_parameter(GMIME_OBJECT(part), "filename", name.constData());
        return GMIME_OBJECT(part);
    }
    const QString type = file.contentType.trimmed().isEmpty() ? ContentTypeForName(file.name) : file.contentType;
    QByteArray mediaType = type.section(QLatin1Char('/'), 0, 0).trimmed().toLatin1();
    QByteArray subType = type.section(QLatin1Char('/'), 1).section(QLatin1Char(';'), 0, 0).trimmed().toLatin1();
    // The data goes in base64 as one part: a type that is not a pair of
    // tokens, or one that readers open as parts of their own (multipart,
    // message), would not give the data back.
    if (!IsMimeToken(mediaType) || !IsMimeToken(subType) || mediaType.compare("multipart", Qt::CaseInsensitive) == 0
        || mediaType.compare("message", Qt::CaseInsensitive) == 0) {
        mediaType = "application";
        subType = "octet-stream";
    }
    auto* encoded = static_cast<TessalyEncodedPart*>(g_object_new(tessaly_encoded_part_get_type(), nullptr));
    GMimePart* part = &encoded->parent;
    TGPtr<GMimeContentType> partType(g_mime_content_type_new(mediaType.constData(), subType.constData()));
    g_mime_object_set_content_type(GMIME_OBJECT(part), partType.get());
    // The data is shared with the source, not copied, and encoded only as
    // the part is written.
    encoded->data = new QByteArray(file.data);
    TGPtr<GMimeStream> stream(tessaly_bytes_stream_new(file.data, 0, -1));
    TGPtr<GMimeDataWrapper> content(g_mime_data_wrapper_new_with_stream(stream.get(), GMIME_CONTENT_ENCODING_DEFAULT));
    g_mime_part_set_content(part, content.get());
    g_mime_part_set_content_encoding(part, GMIME_CONTENT_ENCODING_BASE64);
    g_mime_object_set_disposition(GMIME_OBJECT(part), disposition);
    g_mime_part_set_filename(part, name.constData());
    if (const QByteArray id = ContentIdText(file.contentId); !id.isEmpty())
        g_mime_object_set_content_id(GMIME_OBJECT(part), id.constData());
    return GMIME_OBJECT(part);
}

// Wraps parts in a multipart of the subtype; one part stays as it is.
GMimeObject* Combine(const char* subtype, std::vector<GMimeObject*> parts)
{
    if (parts.size() == 1)
        return parts.front();
    // Made by hand: GMime's constructor reads /dev/urandom for a boundary.
    auto* multipart = GMIME_MULTIPART(g_object_new(GMIME_TYPE_MULTIPART, nullptr));
    GMimeContentType* type = g_mime_content_type_new("multipart", subtype);
    g_mime_object_set_content_type(GMIME_OBJECT(multipart), type);
    g_object_unref(type);
    quint32 random[5];
    QRandomGenerator::global()->fillRange(random);
    const QByteArray bytes(reinterpret_cast<const char*>(random), 18);
    g_mime_multipart_set_boundary(multipart, ("=-" + bytes.toBase64()).constData());
    for (GMimeObject* part : parts) {
        g_mime_multipart_add(multipart, part);
        g_object_unref(part);
    }
    return GMIME_OBJECT(multipart);
}

} // namespace

TGPtr<GMimeMessage> BuildMimeMessage(const QString& text, const QString& html, std::vector<TMimeFile> attachments,
    std::vector<TMimeFile> images)
{
    EnsureGMime();
    TGPtr<GMimeMessage> message(g_mime_message_new(TRUE));
    std::vector<GMimeObject*> alternatives;
    if (!text.isEmpty() || html.isEmpty())
        alternatives.push_back(TextPart("plain", text));
    if (!html.isEmpty()) {
        std::vector<GMimeObject*> related {TextPart("html", core::HtmlWithCharset(html, QStringLiteral("utf-8")))};
        for (auto& image : images)
            related.push_back(FilePart(image, "inline"));
        images.clear();
        alternatives.push_back(Combine("related", std::move(related)));
    }
    std::vector<GMimeObject*> mixed {Combine("alternative", std::move(alternatives))};
    for (auto& image : images) // without HTML, images are plain attachments
        mixed.push_back(FilePart(image, "inline"));
    for (auto& attachment : attachments)
        mixed.push_back(FilePart(attachment, "attachment"));
    GMimeObject* body = Combine("mixed", std::move(mixed));
    g_mime_message_set_mime_part(message.get(), body);
    g_object_unref(body);
    return message;
}

} // namespace tessaly::mail
