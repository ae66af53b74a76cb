#include "mail/MsgModel.h"

#include "core/Charset.h"
#include "core/DateTime.h"
#include "core/Rtf.h"
#include "mail/MailContact.h"
#include "mail/MailMsgHTML.h"
#include "mail/MimeWriter.h"

#include <QRegularExpression>

#include <algorithm>

namespace tessaly::mail {

using namespace pstfile;

namespace {

void SetDate(TPSTPropertyBag& bag, uint16_t id, TDateTime date)
{
    if (date > 0)
        bag.SetTime(id, core::DateTimeToQDateTime(date).toUTC());
}

// The first Message-ID field of a header block, folding undone.
QString HeaderMessageId(const QString& headers)
{
    static const QRegularExpression Field(
        QStringLiteral("^Message-ID[ \\t]*:[ \\t]*((?:.*)(?:\\r?\\n[ \\t].*)*)"),
        QRegularExpression::CaseInsensitiveOption | QRegularExpression::MultilineOption);
    const auto match = Field.match(headers);
    if (!match.hasMatch())
        return {};
    return match.captured(1).simplified().remove(QLatin1Char(' '));
}

} // namespace

std::shared_ptr<TPSTMessage> TMsgModelBuilder::Build(const IMailMessage& message, int depth) const
{
    auto out = std::make_shared<TPSTMessage>();
    if (const auto* contact = dynamic_cast<const IMailContact*>(&message)) {
        AddContact(*out, message, *contact);
        return out;
    }
    out->SetString(pid::MessageClass, MessageClass(message));
    out->SetString(pid::Subject, message.Subject());
    out->SetString(pid::ConversationTopic, message.Subject());
    if (m_options.messageFlags)
        out->SetLong(pid::MessageFlags, 1); // read
    AddSender(*out, message);
    AddRecipients(*out, message);
    AddBodies(*out, message);
    SetDate(*out, pid::ClientSubmitTime, message.Date(mdClientSubmit));
    SetDate(*out, pid::DeliveryTime, message.Date(mdDelivery));
    SetDate(*out, pid::CreationTime, message.Date(mdCreation));
    SetDate(*out, pid::LastModificationTime, message.Date(mdModification));
    const QString headers = message.Headers();
    out->SetString(pid::TransportHeaders, headers);
    if (m_options.messageId)
        out->SetString(pid::InternetMessageId, HeaderMessageId(headers));
    if (const auto* meeting = dynamic_cast<const IMailMeeting*>(&message)) {
        if (meeting->AppoitmentStart() > 0)
            out->SetNamedTime(PSETID_Appointment(), pid::AppointmentStart,
                core::DateTimeToQDateTime(meeting->AppoitmentStart()).toUTC());
        if (meeting->AppoitmentEnd() > 0)
            out->SetNamedTime(PSETID_Appointment(), pid::AppointmentEnd,
                core::DateTimeToQDateTime(meeting->AppoitmentEnd()).toUTC());
        out->SetNamedString(PSETID_Appointment(), pid::Location, meeting->Location());
    }
    AddAttachments(*out, message, depth);
    return out;
}

QString TMsgModelBuilder::MessageClass(const IMailMessage& message) const
{
    return dynamic_cast<const IMailMeeting*>(&message) ? QStringLiteral("IPM.Appointment") : QStringLiteral("IPM.Note");
}

std::pair<QString, QString> TMsgModelBuilder::StoredAddress(TMailAddressType type, const QString& address) const
{
    if (type == matEX)
        return {QStringLiteral("EX"), {}};
    return {QStringLiteral("SMTP"), address};
}

void TMsgModelBuilder::AddSender(TPSTMessage& out, const IMailMessage& message) const
{
    const auto sender = message.Sender();
    if (!sender)
        return;
    const QString address = sender->EMail();
    const auto [addrType, smtp] = StoredAddress(sender->EMailType(), address);
    out.SetSender(sender->Name().isEmpty() ? address : sender->Name(), addrType, address, smtp);
}

void TMsgModelBuilder::AddRecipients(TPSTMessage& out, const IMailMessage& message) const
{
    if (const auto* prepare = dynamic_cast<const IMailPreparePreview*>(&message))
        prepare->ResolveRecipients();
    QStringList names[mrtUnknown + 1];
    for (int kind = mrtOriginator; kind <= mrtUnknown; ++kind) {
        if (m_options.mailRecipientsOnly && (kind == mrtOriginator || kind == mrtUnknown))
            continue;
        const auto list = message.Recipients(TMailRecipientType(kind));
        if (!list)
            continue;
        for (const auto& r : *list) {
            if (!r)
                continue;
            const QString address = r->EMail();
            const QString name = r->Name().isEmpty() ? address : r->Name();
            const auto [addrType, smtp] = StoredAddress(r->EMailType(), address);
            // [MS-OXOMSG]: MAPI_ORIG 0, MAPI_TO 1, MAPI_CC 2, MAPI_BCC 3, in the order of TMailRecipientType.
            out.AddRecipient(kind, name, addrType, address, smtp);
            names[kind] << name;
        }
    }
    if (m_options.displayLists) {
        out.SetString(pid::DisplayTo, names[mrtTo].join(QStringLiteral("; ")));
        out.SetString(pid::DisplayCc, names[mrtCC].join(QStringLiteral("; ")));
        out.SetString(pid::DisplayBcc, names[mrtBCC].join(QStringLiteral("; ")));
    }
}

void TMsgModelBuilder::AddBodies(TPSTMessage& out, const IMailMessage& message) const
{
    out.SetString(pid::Body, message.Body(mbtText));
    const QByteArray rtf = message.Body(mbtRTF).toLatin1();
    const QString html = message.Body(mbtHTML);
    // HTML that readers derive from the RTF body is not stored twice.
    const bool derived = !html.isEmpty() && core::IsHtmlEncapsulatedRtf(rtf) && core::RtfToHtml(rtf) == html;
    if (!html.isEmpty() && !derived) {
        const QString headers = message.Headers();
        out.SetBinary(pid::Html, core::EncodeHtml(html, headers));
        // The code page is named only where neither the page nor the
        // headers name the charset.
        if (core::HtmlEncodingCharset(html, headers).compare(QLatin1String("UTF-8"), Qt::CaseInsensitive) == 0)
            out.SetLong(pid::InternetCodepage, 65001);
    }
    if (!rtf.isEmpty()) {
        out.SetBinary(pid::RtfCompressed, CompressRtf(rtf));
        out.SetBool(pid::RtfInSync, true);
    }
}

void TMsgModelBuilder::SetContactField(TPSTMessage& out, int field, const QVariant& value)
{
    if (!value.isValid())
        return;
    const uint32_t id = ContactFieldTag(field);
    if (field == cfBirthday) {
        out.SetNamedTime(PSETID_Address(), id, value.toDateTime().toUTC());
    } else if (field == cfNotes) {
        out.SetString(pid::Body, value.toString());
    } else if (field == cfPicture) {
        if (!value.toByteArray().isEmpty())
            out.AddAttachment(QStringLiteral("ContactPicture.jpg"), value.toByteArray(), QStringLiteral("image/jpeg"));
    } else if (id >= 0x8000) {
        out.SetNamedString(PSETID_Address(), id, value.toString());
    } else if (id) {
        out.SetString(uint16_t(id), value.toString());
    }
}

void TMsgModelBuilder::AddContact(TPSTMessage& out, const IMailMessage& message, const IMailContact& contact) const
{
    out.SetString(pid::Subject, message.Subject());
    out.SetString(pid::MessageClass, QStringLiteral("IPM.Contact"));
    for (int field = 0; field <= mcfPicture; ++field)
        if (const int stored = ContactFieldOfMessageField(field); stored >= 0)
            SetContactField(out, stored, contact.GetField(field));
    // The addresses come joined; each goes back to its own field.
    const QStringList emails = contact.GetField(mcfEMails).toString().split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (qsizetype i = 0; i < std::min<qsizetype>(emails.size(), 3); ++i)
        SetContactField(out, cfEmail1 + int(i), emails[i].trimmed());
    if (out.String(pid::Subject).isEmpty())
        out.SetString(pid::Subject, out.String(pid::DisplayName));
}

void TMsgModelBuilder::AddAttachments(TPSTMessage& out, const IMailMessage& message, int depth) const
{
    const auto attaches = message.Attaches();
    if (!attaches)
        return;
    TAttachNameGenerator names;
    for (const auto& attach : *attaches) {
        if (!attach)
            continue;
        TPSTAttachment* written = nullptr;
        QString name = attach->FileName();
        const auto inner = attach->AsMailMessage();
        if (inner && depth < MaxMsgEmbeddingDepth) {
            written = &out.AddEmbedded(Build(*inner, depth + 1));
            written->SetString(pid::DisplayName, name.isEmpty() ? inner->Subject() : name);
        } else {
            QByteArray data;
            if (const auto content = attach->Content())
                data = content->readAll();
            if (m_options.normalizedAttachments) {
                if (name.trimmed().isEmpty())
                    name = names.GenerateAttachName(*attach);
                written = &out.AddAttachment(name, data, attach->ContentType().trimmed().toLower());
                written->SetString(pid::AttachFilename, ShortAttachName(name));
                written->SetLong(pid::AttachSize, int32_t(std::min<qsizetype>(data.size(), INT32_MAX)));
            } else {
                written = &out.AddAttachment(name, data, attach->ContentType());
            }
        }
        written->SetString(pid::AttachContentId, attach->ContentID());
        written->SetString(pid::AttachContentLocation, attach->ContentLocation());
        if (m_options.messageFlags)
            written->SetLong(pid::RenderingPosition, -1);
        if (!m_options.normalizedAttachments)
            if (const auto* sized = dynamic_cast<const IMailAttach2*>(attach.get()); sized && sized->Size() > 0)
                written->SetLong(pid::AttachSize, sized->Size());
    }
    if (m_options.messageFlags)
        out.SetBool(pid::HasAttach, !out.attachments.empty());
}

std::shared_ptr<TPSTMessage> ToMsgModel(const IMailMessage& message, int depth)
{
    return TMsgModelBuilder().Build(message, depth);
}

QString ShortAttachName(const QString& longName)
{
    const auto clean = [](QStringView part, int max) {
        QString kept;
        for (const QChar c : part)
            if (c.unicode() < 0x80 && (c.isLetterOrNumber() || c == QLatin1Char('_') || c == QLatin1Char('-')))
                kept += c.toUpper();
        return std::pair{kept.left(max), kept.size() > max};
    };
    // The last part of a path; any folders are no part of the name.
    const QStringView name = QStringView(longName).mid(
        std::max(longName.lastIndexOf(QLatin1Char('/')), longName.lastIndexOf(QLatin1Char('\\'))) + 1);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    auto [base, cut] = clean(dot > 0 ? name.left(dot) : name, 8);
    const auto [extension, extensionCut] = clean(dot > 0 ? name.mid(dot + 1) : QStringView(), 3);
    if (base.isEmpty())
        base = QStringLiteral("ATTACH");
    if (cut || extensionCut || dot != name.indexOf(QLatin1Char('.')))
        base = base.left(6) + QStringLiteral("~1");
    return extension.isEmpty() ? base : base + QLatin1Char('.') + extension;
}

} // namespace tessaly::mail
