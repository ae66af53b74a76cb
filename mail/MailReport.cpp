#include "mail/MailReport.h"

#include "core/Exceptions.h"

#include "mail/FileMailMsg.h"
#include "mail/MailContact.h"
#include "mail/MailMsgHTML.h"
#include "mail/MailMsgObj.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>

namespace tessaly::mail {

namespace {

constexpr int MaxEmbeddingDepth = 8;

QJsonValue IsoDate(TDateTime date)
{
    if (date <= 0)
        return QJsonValue::Null;
    return core::DateTimeToQDateTime(date).toUTC().toString(Qt::ISODate);
}


QJsonArray Attachments(const IMailMessage& message, int depth)
{
    QJsonArray list;
    const auto attaches = message.Attaches();
    if (!attaches)
        return list;
    for (const auto& attach : *attaches) {
        if (!attach)
            continue;
        const auto content = attach->Content();
        QJsonObject entry{{QStringLiteral("name"), attach->FileName()},
            {QStringLiteral("content"), content ? content->size() : 0},
            {QStringLiteral("contentType"), attach->ContentType()}, {QStringLiteral("contentId"), attach->ContentID()},
            {QStringLiteral("contentLocation"), attach->ContentLocation()},
            {QStringLiteral("disposition"), attach->ContentDisposition()}};
        if (const auto sized = std::dynamic_pointer_cast<IMailAttach2>(attach))
            entry[QStringLiteral("size")] = sized->Size();
        if (depth < MaxEmbeddingDepth) {
            if (const auto embedded = attach->AsMailMessage())
                entry[QStringLiteral("message")] = MessageReport(*embedded, depth + 1);
        }
        list.append(entry);
    }
    return list;
}

} // namespace

QJsonObject MessageReport(const IMailMessage& message, int depth)
{
    if (const auto* contact = dynamic_cast<const IMailContact*>(&message)) {
        QJsonArray fields;
        for (int field = 0; field < 30; ++field) {
            const QVariant value = contact->GetField(field);
            if (!value.isValid())
                fields.append(QJsonValue::Null);
            else if (value.typeId() == QMetaType::QByteArray)
                fields.append(qint64(value.toByteArray().size()));
            else if (value.typeId() == QMetaType::QDateTime)
                fields.append(value.toDateTime().toString(Qt::ISODate));
            else
                fields.append(value.toString());
        }
        return QJsonObject{{QStringLiteral("class"), "contact"}, {QStringLiteral("subject"), message.Subject()},
            {QStringLiteral("fields"), fields}};
    }
    const auto sender = message.Sender();
    const auto* meeting = dynamic_cast<const IMailMeeting*>(&message);
    QJsonObject report{
        {QStringLiteral("class"), meeting ? "meeting" : "mail"},
        {QStringLiteral("subject"), message.Subject()},
        {QStringLiteral("sender"), sender ? sender->Caption() : QString()},
        {QStringLiteral("senderIP"), message.SenderIP()},
        {QStringLiteral("to"), JoinCaptions(message.Recipients(mrtTo))},
        {QStringLiteral("cc"), JoinCaptions(message.Recipients(mrtCC))},
        {QStringLiteral("bcc"), JoinCaptions(message.Recipients(mrtBCC))},
        {QStringLiteral("dates"),
            QJsonObject{{QStringLiteral("submit"), IsoDate(message.Date(mdClientSubmit))},
                {QStringLiteral("delivery"), IsoDate(message.Date(mdDelivery))},
                {QStringLiteral("creation"), IsoDate(message.Date(mdCreation))},
                {QStringLiteral("modification"), IsoDate(message.Date(mdModification))}}},
        {QStringLiteral("headers"), qint64(message.Headers().size())},
        {QStringLiteral("attachments"), Attachments(message, depth)},
        {QStringLiteral("bodies"),
            QJsonObject{{QStringLiteral("text"), qint64(message.Body(mbtText).size())},
                {QStringLiteral("html"), qint64(message.Body(mbtHTML).size())},
                {QStringLiteral("rtf"), qint64(message.Body(mbtRTF).size())}}},
    };
    if (meeting) {
        report[QStringLiteral("start")] = IsoDate(meeting->AppoitmentStart());
        report[QStringLiteral("end")] = IsoDate(meeting->AppoitmentEnd());
        report[QStringLiteral("location")] = meeting->Location();
    }
    return report;
}

QJsonObject ReportMessageFile(const QString& fileName)
{
    if (!QFileInfo(fileName).isFile())
        throw core::ETessalyError(QCoreApplication::translate("MailReport", "File not found: %1").arg(fileName));
    TFileMailMsgRequest request(fileName);
    const auto message = request.Message();
    QJsonObject report{{QStringLiteral("file"), fileName}, {QStringLiteral("format"), QStringLiteral("message")}};
    report[QStringLiteral("message")] = message ? MessageReport(*message) : QJsonObject();
    return report;
}

} // namespace tessaly::mail
