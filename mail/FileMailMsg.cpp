#include "mail/FileMailMsg.h"

#include "mail/CleverMail.h"
#include "mail/MailStringList.h"
#include "mail/OutlookMessage.h"
#include "mail/VCard.h"

#include <QFile>
#include <QFileInfo>

namespace tessaly::mail {

namespace {

// An .emlx file starts with the byte count of the message on a line of its own.
QByteArray StripEmlxLength(const QByteArray& data)
{
    const qsizetype end = data.indexOf('\n');
    if (end <= 0 || end > 20)
        return data;
    bool ok = false;
    const qint64 length = data.left(end).trimmed().toLongLong(&ok);
    if (!ok || length < 0)
        return data;
    return data.mid(end + 1, length);
}

std::shared_ptr<IMailMessage> FromOutlook(const QByteArray& data)
{
    auto reader = std::make_shared<TOutlookMessage>();
    if (!reader->LoadFromBytes(data))
        return nullptr;
    if (reader->IsContact())
        return std::make_shared<TMailOutlookContact>(reader);
    return std::make_shared<TCleverMailMessage>(reader->CopyToClever(), reader->Body().RTF);
}

} // namespace

TFileMailMsgRequest::TFileMailMsgRequest(const QString& fileName) : m_fileName(fileName) {}

TFileMailMsgRequest::TFileMailMsgRequest(QIODevice& stream) : m_stream(&stream) {}

std::shared_ptr<IMailMessage> TFileMailMsgRequest::FromBytes(const QByteArray& data, const QString& extension)
{
    if (TOutlookMessage::IsStorage(data)) {
        if (auto message = FromOutlook(data))
            return message;
    }
    if (m_stream)
        return ParseEMLMessage(data);
    if (extension == QLatin1String("emlx"))
        return ParseEMLMessage(StripEmlxLength(data));
    if (extension == QLatin1String("eml") || extension == QLatin1String("msg") || extension == QLatin1String("mim"))
        return ParseEMLMessage(data);
    if (extension == QLatin1String("vcf"))
        return std::make_shared<TVCardContact>(data);
    throw EInvalidMailFormat(QStringLiteral("Can not determine format of file ") + m_fileName);
}

std::shared_ptr<IMailMessage> TFileMailMsgRequest::Message()
{
    if (m_message)
        return m_message;
    if (m_stream) {
        m_message = FromBytes(m_stream->readAll(), QString());
        return m_message;
    }
    QFile file(m_fileName);
    if (!file.open(QIODevice::ReadOnly))
        throw EFileReadError(QStringLiteral("Can not read file %1: %2").arg(m_fileName, file.errorString()));
    m_message = FromBytes(file.readAll(), QFileInfo(m_fileName).suffix().toLower());
    return m_message;
}

} // namespace tessaly::mail
