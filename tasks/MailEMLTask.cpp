#include "tasks/MailEMLTask.h"

#include "core/DateTime.h"
#include "mail/CleverMail.h"

#include <QBuffer>
#include <QRegularExpression>
#include <QSaveFile>

namespace tessaly::tasks {

namespace {

// Header fields of the source that the written message keeps.
const char* const KeptHeaders[] = {"Message-ID", "In-Reply-To", "References", "Reply-To", "Importance", "X-Priority"};

QString HeaderValue(const QString& headers, const char* name)
{
    const QRegularExpression field(QStringLiteral("(?:^|\\n)%1:[ \\t]*([^\\r\\n]*(?:\\r?\\n[ \\t][^\\r\\n]*)*)")
                                       .arg(QRegularExpression::escape(QLatin1String(name))),
        QRegularExpression::CaseInsensitiveOption);
    QString value = field.match(headers).captured(1);
    value.replace(QRegularExpression(QStringLiteral("\\r?\\n[ \\t]+")), QStringLiteral(" "));
    return value.trimmed();
}

void AddMailboxes(GMimeMessage* mime, GMimeAddressType type, const std::shared_ptr<mail::IMailRecipientList>& list)
{
    for (int i = 0; list && i < list->Count(); ++i) {
        const auto recipient = list->GetRecipient(i);
        if (!recipient)
            continue;
        const QByteArray name = recipient->Name().toUtf8();
        const QByteArray address = recipient->EMail().toUtf8();
        g_mime_message_add_mailbox(mime, type, name.constData(), address.constData());
    }
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
    return content ? content->readAll() : QByteArray();
}

TMailInfo::TMailInfo(TMailTask& task, const mail::IMailMessage& message, int depth) : m_task(task)
{
    // 3: the attachments by part name; equal names are kept apart.
    std::vector<mail::TMimeFile> files, images;
    const auto attaches = message.Attaches();
    QSet<QString> used;
    for (int i = 0; attaches && i < attaches->Count(); ++i) {
        const auto attach = attaches->GetAttach(i);
        if (!attach)
            continue;
        QString name = attach->FileName().trimmed();
        if (name.isEmpty())
            name = task.AttachNames().GenerateAttachName(*attach);
        QString part = name;
        for (int n = 2; used.contains(part.toLower()); ++n) {
            const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
            part = dot > 0 ? QStringLiteral("%1 (%2)%3").arg(name.left(dot)).arg(n).arg(name.mid(dot))
                           : QStringLiteral("%1 (%2)").arg(name).arg(n);
        }
        used.insert(part.toLower());
        m_partNames << part;
        m_attaches.emplace(part.toStdString(), std::make_unique<TAttachInfo>(task, attach));

        mail::TMimeFile file;
        file.name = name;
        file.contentType = attach->ContentType();
        QString id = attach->ContentID().trimmed();
        if (id.startsWith(QLatin1Char('<')) && id.endsWith(QLatin1Char('>')))
            id = id.mid(1, id.size() - 2);
        file.contentId = id;
        const auto inner = attach->AsMailMessage();
        if (inner && depth < 8) {
            TMailInfo innerInfo(task, *inner, depth + 1);
            file.message = innerInfo.TakeMime();
        } else {
            file.data = AttachData(part); // through the table, by part name
        }
        const bool inlineImage = !file.message && task.IsHTMLNeedImage(message, *attach);
        (inlineImage ? images : files).push_back(std::move(file));
    }

    // 1, 2, 4: UTF-8 text parts in quoted-printable or base64, MIME.
    m_mime = mail::BuildMimeMessage(message.Body(mail::mbtText), message.Body(mail::mbtHTML), std::move(files),
        std::move(images));
    // 5: the pictures the HTML refers to stand with it in multipart/related.
    m_related = ContainsRelated(g_mime_message_get_mime_part(m_mime.get()));

    // 6: header data of the source.
    GMimeObject* object = GMIME_OBJECT(m_mime.get());
    const QString headers = message.Headers();
    for (const char* name : KeptHeaders) {
        const QString value = HeaderValue(headers, name);
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

    // 7: subject, sender, recipients, date.
    g_mime_message_set_subject(m_mime.get(), message.Subject().toUtf8().constData(), "utf-8");
    if (const auto sender = message.Sender()) {
        const QByteArray name = sender->Name().toUtf8();
        const QByteArray address = sender->EMail().toUtf8();
        g_mime_message_add_mailbox(m_mime.get(), GMIME_ADDRESS_TYPE_FROM, name.constData(), address.constData());
    }
    AddMailboxes(m_mime.get(), GMIME_ADDRESS_TYPE_TO, message.Recipients(mail::mrtTo));
    AddMailboxes(m_mime.get(), GMIME_ADDRESS_TYPE_CC, message.Recipients(mail::mrtCC));
    AddMailboxes(m_mime.get(), GMIME_ADDRESS_TYPE_BCC, message.Recipients(mail::mrtBCC));
    mail::TDateTime date = message.Date(mail::mdClientSubmit);
    if (date == 0)
        date = message.Date(mail::mdDelivery);
    const QDateTime when = core::DateTimeToQDateTime(date);
    if (date != 0 && when.isValid()) {
        GDateTime* value = g_date_time_new_from_unix_local(when.toSecsSinceEpoch());
        if (value) {
            g_mime_message_set_date(m_mime.get(), value);
            g_date_time_unref(value);
        }
    }
}

TMailInfo::~TMailInfo() = default;

QByteArray TMailInfo::AttachData(const QString& partName) const
{
    const auto found = m_attaches.find(partName.toStdString());
    return found == m_attaches.end() ? QByteArray() : found->second->Data();
}

QByteArray TMailInfo::SaveToBytes() const
{
    if (!m_mime)
        return {};
    GMimeFormatOptions* options = g_mime_format_options_new();
    g_mime_format_options_set_newline_format(options, GMIME_NEWLINE_FORMAT_DOS);
    mail::TGPtr<GMimeStream> stream(g_mime_stream_mem_new());
    g_mime_object_write_to_stream(GMIME_OBJECT(m_mime.get()), options, stream.get());
    g_mime_format_options_free(options);
    // Headers are encoded words and bodies quoted-printable or base64, so
    // the bytes are ASCII whatever the system's code page.
    return mail::StreamBytes(stream.get());
}

void TMailInfo::SaveToStream(QIODevice& stream) const
{
    const QByteArray bytes = SaveToBytes();
    if (auto* buffer = qobject_cast<QBuffer*>(&stream))
        buffer->buffer().reserve(bytes.count('\n') * 80);
    stream.write(bytes);
}

// --- the writer -----------------------------------------------------------------------

TMailEMLTask::TMailEMLTask(TMailProperties& properties) : TMailTask(properties) {}

std::unique_ptr<TMailContext> TMailEMLTask::CreateContext()
{
    return std::make_unique<TContext>();
}

int TMailEMLTask::ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString&)
{
    static_cast<TContext&>(context).Items.push_back(std::make_unique<TMailInfo>(*this, message));
    return trOK;
}

int TMailEMLTask::Commit(TMailContext& context, const QString& path)
{
    auto& items = static_cast<TContext&>(context).Items;
    if (items.empty())
        return trSkipped;
    // Written beside the target and renamed over it at the end: a cancelled
    // or failed run leaves no half-written file.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return trError;
    items.front()->SaveToStream(file);
    return file.commit() ? trOK : trError;
}

} // namespace tessaly::tasks
