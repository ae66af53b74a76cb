#include "mail/FileMailMsg.h"

#include "mail/CleverMail.h"
#include "mail/MailStringList.h"
#include "mail/OutlookMessage.h"
#include "mail/VCard.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

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

QString NamedError(const QString& name, const QString& what)
{
    return name.isEmpty() ? what : QStringLiteral("%1: %2").arg(QDir::toNativeSeparators(name), what);
}

// A compound file is an Outlook message or nothing: one that cannot be read
// is damaged, never tried as something else.
std::shared_ptr<IMailMessage> FromOutlook(const QByteArray& data, const QString& name)
{
    auto reader = std::make_shared<TOutlookMessage>();
    if (!reader->LoadFromBytes(data))
        throw EInvalidMailFormat(NamedError(name, QCoreApplication::translate("TFileMailMsgRequest", "damaged message file")));
    if (!reader->HasMessage())
        throw EInvalidMailFormat(NamedError(name,
            reader->HasMessageEntries() || TOutlookMessage::LooksTruncated(data) ? QCoreApplication::translate("TFileMailMsgRequest", "damaged message file") : QCoreApplication::translate("TFileMailMsgRequest", "not a message file")));
    if (reader->IsContact())
        return std::make_shared<TMailOutlookContact>(reader);
    if (reader->IsMeeting())
        return std::make_shared<TMailOutlookMeeting>(*reader);
    return std::make_shared<TCleverMailMessage>(reader->CopyToClever(), reader->Body().RTF);
}

// RFC 5322 text: header fields ("Name: value", blanks before the colon in
// the obsolete form) near the start and no NUL bytes. The offset of the
// first field; -1 when there is none. Some programs put a line of their own
// first ("From " of mbox, "Microsoft Mail Internet Headers Version 2.0"), so
// a few lines are looked at.
qsizetype FirstHeaderField(const QByteArray& data)
{
    const QByteArray head = data.left(4096);
    if (head.contains('\0'))
        return -1;
    static const QRegularExpression Field(QStringLiteral("^[!-9;-~]{1,76}[ \t]*:"));
    qsizetype offset = 0;
    for (int line = 0; line < 16 && offset < head.size(); ++line) {
        qsizetype end = head.indexOf('\n', offset);
        if (end < 0)
            end = head.size();
        if (Field.match(QString::fromLatin1(head.mid(offset, end - offset))).hasMatch())
            return offset;
        offset = end + 1;
    }
    return -1;
}

} // namespace

TFileMailMsgRequest::TFileMailMsgRequest(const QString& fileName) : m_fileName(fileName) {}

TFileMailMsgRequest::TFileMailMsgRequest(QIODevice& stream) : m_stream(&stream) {}

std::shared_ptr<IMailMessage> TFileMailMsgRequest::FromBytes(const QByteArray& data, const QString& extension)
{
    if (data.isEmpty())
        throw EInvalidMailFormat(NamedError(m_fileName, QCoreApplication::translate("TFileMailMsgRequest", "not a message file (the file is empty)")));
    if (TOutlookMessage::HasCompoundSignature(data))
        return FromOutlook(data, m_fileName);
    if (extension == QLatin1String("vcf") && !m_stream)
        return std::make_shared<TVCardContact>(data);
    const bool emlx = extension == QLatin1String("emlx");
    if (m_stream || emlx || extension == QLatin1String("eml") || extension == QLatin1String("msg")
        || extension == QLatin1String("mim")) {
        const QByteArray text = emlx ? StripEmlxLength(data) : data;
        const qsizetype first = FirstHeaderField(text);
        if (first < 0)
            throw EInvalidMailFormat(NamedError(m_fileName, QCoreApplication::translate("TFileMailMsgRequest", "not a message file")));
        // The mbox "From " line is the parser's to take; other lines before
        // the header fields would hide them.
        if (first > 0 && !text.startsWith("From "))
            return ParseEMLMessage(text.mid(first));
        return ParseEMLMessage(text);
    }
    throw EInvalidMailFormat(QCoreApplication::translate("TFileMailMsgRequest", "Can not determine format of file ") + m_fileName);
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
        throw EFileReadError(QCoreApplication::translate("TFileMailMsgRequest", "Can not read file %1: %2").arg(m_fileName, file.errorString()));
    m_message = FromBytes(file.readAll(), QFileInfo(m_fileName).suffix().toLower());
    return m_message;
}

} // namespace tessaly::mail
