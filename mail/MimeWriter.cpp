#include "mail/MimeWriter.h"

#include "core/DateTime.h"
#include "mail/CleverMail.h"

#include <QBuffer>
#include <QFileDevice>
#include <QHash>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <cstring>

#ifdef Q_OS_WIN
#include <io.h>
#else
#include <unistd.h>
#endif

namespace {

// The descriptor calls under their names on each system (functions, not
// macros: QIODevice has members called write and close too).
int DuplicateFd(int fd)
{
#ifdef Q_OS_WIN
    return _dup(fd);
#else
    return dup(fd);
#endif
}

long long WriteFd(int fd, const char* data, unsigned size)
{
#ifdef Q_OS_WIN
    return _write(fd, data, size);
#else
    return write(fd, data, size);
#endif
}

void CloseFd(int fd)
{
#ifdef Q_OS_WIN
    _close(fd);
#else
    close(fd);
#endif
}

} // namespace

// A GMime output stream over a file descriptor with a large buffer: GMime's
// own buffer stream writes in blocks of 4 KiB, a system call for every 4 KiB
// of a message; this one writes 256 KiB at a time. Output only; it owns the
// descriptor and closes it when it is freed.
extern "C" {

struct TessalyFileSink {
    GMimeStream parent;
    int fd;
    char* buffer;
    size_t used;
    gboolean failed;
};

struct TessalyFileSinkClass {
    GMimeStreamClass parent_class;
};

G_DEFINE_TYPE(TessalyFileSink, tessaly_file_sink, GMIME_TYPE_STREAM)

} // extern "C"

namespace {

constexpr size_t SinkBufferSize = 256 * 1024;

bool SinkWriteOut(TessalyFileSink* sink, const char* data, size_t size)
{
    while (size > 0 && !sink->failed) {
        const auto written = WriteFd(sink->fd, data, static_cast<unsigned>(std::min<size_t>(size, 1u << 30)));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            sink->failed = TRUE;
            break;
        }
        data += written;
        size -= size_t(written);
    }
    return !sink->failed;
}

bool SinkFlush(TessalyFileSink* sink)
{
    const bool ok = SinkWriteOut(sink, sink->buffer, sink->used);
    sink->used = 0;
    return ok;
}

ssize_t SinkWrite(GMimeStream* stream, const char* data, size_t size)
{
    auto* sink = reinterpret_cast<TessalyFileSink*>(stream);
    if (sink->failed)
        return -1;
    if (sink->used + size > SinkBufferSize && !SinkFlush(sink))
        return -1;
    if (size >= SinkBufferSize) {
        if (!SinkWriteOut(sink, data, size))
            return -1;
    } else {
        memcpy(sink->buffer + sink->used, data, size);
        sink->used += size;
    }
    stream->position += gint64(size);
    return ssize_t(size);
}

int SinkFlushStream(GMimeStream* stream)
{
    return SinkFlush(reinterpret_cast<TessalyFileSink*>(stream)) ? 0 : -1;
}

int SinkClose(GMimeStream* stream)
{
    auto* sink = reinterpret_cast<TessalyFileSink*>(stream);
    const bool ok = SinkFlush(sink);
    if (sink->fd >= 0)
        CloseFd(sink->fd);
    sink->fd = -1;
    return ok ? 0 : -1;
}

gboolean SinkEos(GMimeStream* stream)
{
    return reinterpret_cast<TessalyFileSink*>(stream)->failed;
}

void SinkFinalize(GObject* object)
{
    auto* sink = reinterpret_cast<TessalyFileSink*>(object);
    SinkClose(GMIME_STREAM(object));
    g_free(sink->buffer);
    G_OBJECT_CLASS(tessaly_file_sink_parent_class)->finalize(object);
}

} // namespace

extern "C" {

static void tessaly_file_sink_class_init(TessalyFileSinkClass* klass)
{
    G_OBJECT_CLASS(klass)->finalize = SinkFinalize;
    GMimeStreamClass* streamClass = GMIME_STREAM_CLASS(klass);
    streamClass->write = SinkWrite;
    streamClass->flush = SinkFlushStream;
    streamClass->close = SinkClose;
    streamClass->eos = SinkEos;
}

static void tessaly_file_sink_init(TessalyFileSink* sink)
{
    sink->fd = -1;
    sink->buffer = static_cast<char*>(g_malloc(SinkBufferSize));
    sink->used = 0;
    sink->failed = FALSE;
}

} // extern "C"

namespace tessaly::mail {

namespace {

// Header fields of the source that the written message keeps.
const char* const KeptHeaders[] = {"Message-ID", "In-Reply-To", "References", "Importance", "X-Priority"};

// The value of a header field, unfolded; one pass over the header block
// finds every kept field.
QHash<QString, QString> KeptHeaderValues(const QString& headers)
{
    QHash<QString, QString> values;
    if (headers.isEmpty())
        return values;
    static const QRegularExpression Field(
        QStringLiteral("(?:^|\\n)(Message-ID|In-Reply-To|References|Importance|X-Priority):[ \\t]*([^\\r\\n]*(?:\\r?\\n[ \\t][^\\r\\n]*)*)"),
        QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression Fold(QStringLiteral("\\r?\\n[ \\t]+"));
    for (auto it = Field.globalMatch(headers); it.hasNext();) {
        const auto match = it.next();
        const QString name = match.captured(1).toLower();
        if (!values.contains(name))
            values.insert(name, match.captured(2).replace(Fold, QStringLiteral(" ")).trimmed());
    }
    return values;
}

// An address as an RFC 5322 addr-spec: an internet address as it is, one
// with blanks or specials before its "@" with that part quoted (Notes
// addresses, "Carl Carter/NA/Enron@Enron"). An address without "@" (an
// Exchange one that did not resolve) is kept as the quoted local part of
// the reserved domain "address.invalid" (RFC 2606), so that the mailbox
// stays one that every reader takes.
QByteArray AddrSpec(const QString& address)
{
    // Control characters have no place in an address, quoted or not: a CR
    // or LF would end the header line.
    QString clean = address;
    for (QChar& c : clean)
        if (c.unicode() < 0x20 || c.unicode() == 0x7F)
            c = QLatin1Char(' ');
    clean = clean.trimmed();
    // Quoting that came with the address ("'a@b.org'", "<a@b.org>").
    while (clean.size() >= 2
        && ((clean.front() == QLatin1Char('\'') && clean.back() == QLatin1Char('\''))
            || (clean.front() == QLatin1Char('"') && clean.back() == QLatin1Char('"'))
            || (clean.front() == QLatin1Char('<') && clean.back() == QLatin1Char('>'))))
        clean = clean.mid(1, clean.size() - 2).trimmed();
    if (clean.isEmpty())
        return {};

    // Internet addresses, UTF-8 ones (RFC 6532) included.
    static const QRegularExpression Plain(QStringLiteral("^[^\\s@<>()\\[\\],;:\"]+@[^\\s@<>()\\[\\],;:\"']+$"));
    if (Plain.match(clean).hasMatch())
        return clean.toUtf8();
    static const QRegularExpression Domain(QStringLiteral("^[^\\s@<>()\\[\\],;:\"']+$"));
    const qsizetype at = clean.lastIndexOf(QLatin1Char('@'));
    QString local = clean;
    QString domain = QStringLiteral("address.invalid");
    if (at > 0 && Domain.match(clean.mid(at + 1)).hasMatch()) {
        local = clean.left(at);
        domain = clean.mid(at + 1);
    }
    local.replace(QLatin1Char('\\'), QStringLiteral("\\\\")).replace(QLatin1Char('"'), QStringLiteral("\\\""));
    return (QLatin1Char('"') + local + QStringLiteral("\"@") + domain).toUtf8();
}

void AddMailbox(GMimeMessage* mime, GMimeAddressType type, const IMailRecipient& recipient)
{
    QString name = recipient.Name().trimmed();
    // A recipient known by name only keeps the name as its address.
    const QByteArray address = AddrSpec(recipient.EMail().trimmed().isEmpty() ? name : recipient.EMail());
    if (address.isEmpty())
        return;
    const QByteArray utf8 = name.toUtf8();
    g_mime_message_add_mailbox(mime, type, utf8.constData(), address.constData());
}

void AddMailboxes(GMimeMessage* mime, GMimeAddressType type, const std::shared_ptr<IMailRecipientList>& list)
{
    for (int i = 0; list && i < list->Count(); ++i)
        if (const auto recipient = list->GetRecipient(i))
            AddMailbox(mime, type, *recipient);
}

// RFC 2047 encoded words for a header text, in the "Q" encoding: GMime
// 3.2 drops every word that follows a base64 word ending in padding, so its
// own base64 words do not come back whole.
QByteArray EncodeHeaderText(const QString& text)
{
    bool plain = !text.contains(QStringLiteral("=?"));
    for (const QChar c : text)
        plain = plain && c.unicode() >= 0x20 && c.unicode() < 0x7F;
    if (plain)
        return text.toUtf8();
    const QByteArray utf8 = text.toUtf8();
    QList<QByteArray> words;
    QByteArray word;
    for (qsizetype i = 0; i < utf8.size();) {
        // One character at a time, so that no word splits one.
        qsizetype length = 1;
        while (i + length < utf8.size() && (uchar(utf8[i + length]) & 0xC0) == 0x80)
            ++length;
        QByteArray encoded;
        for (qsizetype k = i; k < i + length; ++k) {
            const uchar c = uchar(utf8[k]);
            if (c == ' ')
                encoded += '_';
            else if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '!' || c == '*'
                || c == '+' || c == '-' || c == '/')
                encoded += char(c);
            else
                encoded += '=' + QByteArray::number(c, 16).toUpper().rightJustified(2, '0');
        }
        if (word.size() + encoded.size() > 60) {
            words << "=?UTF-8?Q?" + word + "?=";
            word.clear();
        }
        word += encoded;
        i += length;
    }
    if (!word.isEmpty())
        words << "=?UTF-8?Q?" + word + "?=";
    return words.join(' ');
}

bool ContainsRelated(GMimeObject* object)
{
    if (!GMIME_IS_MULTIPART(object))
        return false;
    GMimeContentType* type = g_mime_object_get_content_type(object);
    if (type && g_mime_content_type_is_type(type, "multipart", "related"))
        return true;
    GMimeMultipart* multipart = GMIME_MULTIPART(object);
    for (int i = 0; i < g_mime_multipart_get_count(multipart); ++i)
        if (ContainsRelated(g_mime_multipart_get_part(multipart, i)))
            return true;
    return false;
}

} // namespace

QByteArray TAttachInfo::Data() const
{
    const auto content = m_attach ? m_attach->Content() : nullptr;
    // A buffer's bytes are shared rather than copied: attachments can be
    // large, and their copy would be touched for nothing.
    if (auto* buffer = qobject_cast<QBuffer*>(content.get()); buffer && buffer->pos() == 0)
        return buffer->data();
    return content ? content->readAll() : QByteArray();
}

TMimeMessage::TMimeMessage(const IMailMessage& message, TAttachNameGenerator& names, int depth)
{
    // The attachments by part name; equal names are kept apart.
    std::vector<TMimeFile> files, images;
    const QString html = message.Body(mbtHTML);
    const auto attaches = message.Attaches();
    QSet<QString> used;
    for (int i = 0; attaches && i < attaches->Count(); ++i) {
        const auto attach = attaches->GetAttach(i);
        if (!attach)
            continue;
        QString name = attach->FileName().trimmed();
        if (name.isEmpty())
            name = names.GenerateAttachName(*attach);
        QString part = name;
        for (int n = 2; used.contains(part.toLower()); ++n) {
            const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
            part = dot > 0 ? QStringLiteral("%1 (%2)%3").arg(name.left(dot)).arg(n).arg(name.mid(dot))
                           : QStringLiteral("%1 (%2)").arg(name).arg(n);
        }
        used.insert(part.toLower());
        m_partNames << part;
        m_attaches.emplace(part.toStdString(), std::make_unique<TAttachInfo>(attach));

        TMimeFile file;
        file.name = name;
        file.contentType = attach->ContentType();
        QString id = attach->ContentID().trimmed();
        if (id.startsWith(QLatin1Char('<')) && id.endsWith(QLatin1Char('>')))
            id = id.mid(1, id.size() - 2);
        file.contentId = id;
        const auto inner = attach->AsMailMessage();
        if (inner && depth < 8) {
            TMimeMessage innerInfo(*inner, names, depth + 1);
            file.message = innerInfo.TakeMime();
        } else {
            file.data = AttachData(part); // through the table, by part name
        }
        const bool inlineImage = !file.message && IsHTMLNeedImage(html, *attach);
        (inlineImage ? images : files).push_back(std::move(file));
    }

    // UTF-8 text parts in quoted-printable or base64, MIME.
    m_mime = BuildMimeMessage(message.Body(mbtText), html, std::move(files),
        std::move(images));
    // The pictures the HTML refers to stand with it in multipart/related.
    m_related = ContainsRelated(g_mime_message_get_mime_part(m_mime.get()));

    // Header data of the source.
    GMimeObject* object = GMIME_OBJECT(m_mime.get());
    const QHash<QString, QString> kept = KeptHeaderValues(message.Headers());
    for (const char* name : KeptHeaders) {
        const QString value = kept.value(QString::fromLatin1(name).toLower());
        if (value.isEmpty())
            continue;
        if (qstrcmp(name, "Message-ID") == 0) {
            QString id = value;
            id.remove(QLatin1Char('<')).remove(QLatin1Char('>'));
            g_mime_message_set_message_id(m_mime.get(), id.toUtf8().constData());
        } else {
            g_mime_object_set_header(object, name, value.toUtf8().constData(), "utf-8");
        }
    }

    // Subject, sender, recipients, date.
    g_mime_object_set_header(object, "Subject", EncodeHeaderText(message.Subject()).constData(), nullptr);
    if (const auto sender = message.Sender())
        AddMailbox(m_mime.get(), GMIME_ADDRESS_TYPE_FROM, *sender);
    AddMailboxes(m_mime.get(), GMIME_ADDRESS_TYPE_TO, message.Recipients(mrtTo));
    AddMailboxes(m_mime.get(), GMIME_ADDRESS_TYPE_CC, message.Recipients(mrtCC));
    AddMailboxes(m_mime.get(), GMIME_ADDRESS_TYPE_BCC, message.Recipients(mrtBCC));
    TDateTime date = message.Date(mdClientSubmit);
    if (date == 0)
        date = message.Date(mdDelivery);
    const QDateTime when = core::DateTimeToQDateTime(date);
    if (date != 0 && when.isValid()) {
        // GLib looks the local zone up anew for every date; it is read once.
        static GTimeZone* const local = g_time_zone_new_local();
        GDateTime* utc = g_date_time_new_from_unix_utc(when.toSecsSinceEpoch());
        GDateTime* value = utc ? g_date_time_to_timezone(utc, local) : nullptr;
        if (utc)
            g_date_time_unref(utc);
        if (value) {
            g_mime_message_set_date(m_mime.get(), value);
            g_date_time_unref(value);
        }
    }
}

TMimeMessage::~TMimeMessage() = default;

QByteArray TMimeMessage::AttachData(const QString& partName) const
{
    const auto found = m_attaches.find(partName.toStdString());
    return found == m_attaches.end() ? QByteArray() : found->second->Data();
}

namespace {

GMimeFormatOptions* CrLfOptions(bool lf = false)
{
    GMimeFormatOptions* options = g_mime_format_options_new();
    g_mime_format_options_set_newline_format(options, lf ? GMIME_NEWLINE_FORMAT_UNIX : GMIME_NEWLINE_FORMAT_DOS);
    return options;
}

} // namespace

QByteArray TMimeMessage::SaveToBytes(bool lf) const
{
    if (!m_mime)
        return {};
    GMimeFormatOptions* options = CrLfOptions(lf);
    TGPtr<GMimeStream> stream(g_mime_stream_mem_new());
    g_mime_object_write_to_stream(GMIME_OBJECT(m_mime.get()), options, stream.get());
    g_mime_format_options_free(options);
    // Headers are encoded words and bodies quoted-printable or base64, so
    // the bytes are ASCII whatever the system's code page.
    return StreamBytes(stream.get());
}

bool TMimeMessage::SaveToStream(QIODevice& stream) const
{
    if (!m_mime)
        return false;
    auto* file = qobject_cast<QFileDevice*>(&stream);
    const int fd = file && file->handle() >= 0 && file->flush() ? DuplicateFd(file->handle()) : -1;
    if (fd < 0) {
        const QByteArray bytes = SaveToBytes();
        return stream.write(bytes) == bytes.size();
    }
    // A file is written straight through a buffer: the message is never
    // whole in memory, however large its attachments. The sink writes where
    // the file stands and, unlike GMime's file stream, neither seeks before
    // every write nor syncs the file when flushed.
    auto* sink = static_cast<TessalyFileSink*>(g_object_new(tessaly_file_sink_get_type(), nullptr));
    sink->fd = fd; // closes the duplicate
    TGPtr<GMimeStream> buffered(GMIME_STREAM(sink));
    GMimeFormatOptions* options = CrLfOptions();
    const gint64 written = g_mime_object_write_to_stream(GMIME_OBJECT(m_mime.get()), options, buffered.get());
    g_mime_format_options_free(options);
    return written >= 0 && g_mime_stream_close(buffered.get()) == 0;
}

QString TAttachNameGenerator::GenerateAttachName(const IMailAttach& attach)
{
    ++m_counter;
    const QString extension = ExtensionForContentType(attach.ContentType());
    return QStringLiteral("Attach %1").arg(m_counter) + (extension.isEmpty() ? QString() : QLatin1Char('.') + extension);
}

bool IsHTMLNeedImage(const QString& html, const IMailAttach& attach)
{
    QString id = attach.ContentID().trimmed();
    if (id.startsWith(QLatin1Char('<')) && id.endsWith(QLatin1Char('>')))
        id = id.mid(1, id.size() - 2);
    if (!id.isEmpty() && html.contains(QStringLiteral("cid:") + id, Qt::CaseInsensitive))
        return true;
    const QString location = attach.ContentLocation();
    return !location.isEmpty() && html.contains(location, Qt::CaseInsensitive);
}

} // namespace tessaly::mail
