#include "tasks/MailPSTTask.h"

#include "core/Charset.h"
#include "core/DateTime.h"
#include "core/Exceptions.h"
#include "core/HtmlText.h"
#include "core/Rtf.h"
#include "mail/MailContact.h"
#include "pst/PSTMessage.h"

#include <QDir>
#include <QFileInfo>

namespace tessaly::tasks {

using namespace pstfile;

namespace {

constexpr int MaxEmbeddingDepth = 8;

// Records resolved to SMTP keep their Exchange type, so that readers show
// them as the source did (by name).
QString StoredAddrType(const QString& addrType)
{
    return addrType == QLatin1String("EXR") ? QStringLiteral("EX") : addrType;
}

QString AddrTypeOf(mail::TMailAddressType type)
{
    return type == mail::matSMTP ? QStringLiteral("SMTP") : QStringLiteral("EX");
}

void SetDate(TPSTPropertyBag& bag, uint16_t id, mail::TDateTime date)
{
    if (date > 0)
        bag.SetTime(id, core::DateTimeToQDateTime(date).toUTC());
}

void SetContactField(TPSTMessage& out, int field, const QVariant& value)
{
    if (!value.isValid())
        return;
    const uint32_t id = mail::ContactFieldTag(field);
    if (field == mail::cfBirthday) {
        const QDateTime date = value.toDateTime();
        if (date.isValid())
            out.SetNamedTime(PSETID_Address(), id, date.toUTC());
    } else if (field == mail::cfNotes) {
        out.SetString(pid::Body, value.toString());
    } else if (field == mail::cfPicture) {
        if (!value.toByteArray().isEmpty())
            out.AddAttachment(QStringLiteral("ContactPicture.jpg"), value.toByteArray(), QStringLiteral("image/jpeg"));
    } else if (id >= 0x8000) {
        out.SetNamedString(PSETID_Address(), id, value.toString());
    } else if (id) {
        out.SetString(uint16_t(id), value.toString());
    }
}

void AddContact(TPSTMessage& out, const mail::IMailMessage& message, const mail::IMailContact& contact)
{
    out.SetString(pid::MessageClass, QStringLiteral("IPM.Contact"));
    if (const auto* item = dynamic_cast<const pst::adapter::TPSTContactMessage*>(&message)) {
        for (int field = 0; field < mail::cfCount; ++field)
            SetContactField(out, field, item->Item()->Field(field));
        return;
    }
    for (int field = 0; field < 30; ++field)
        if (const int stored = mail::ContactFieldOfMessageField(field); stored >= 0)
            SetContactField(out, stored, contact.GetField(field));
}

void AddRecipients(TPSTMessage& out, const mail::IMailMessage& message)
{
    if (const auto* source = dynamic_cast<const pst::adapter::TPSTMailMessage*>(&message)) {
        const pst::TPSTMailItem& item = *source->Item();
        QReadLocker lock(&pst::RecordLock());
        for (int list = 0; list < 5; ++list) {
            const pst::TRecipientList& records = item.Recipients(list);
            for (int i = 0; i < records.Count(); ++i) {
                const pst::TMailRecipient& r = records.GetItem(i);
                TPSTRecipient& written = out.AddRecipient(list, r.DisplayName, StoredAddrType(r.AddrType), r.EMail,
                    r.SmtpAddress.isEmpty() && r.AddrType == QLatin1String("EXR") ? r.EMail : r.SmtpAddress);
                written.SetString(pid::RecipientDisplayName, r.RecipientDisplayName);
            }
        }
        return;
    }
    if (const auto* prepare = dynamic_cast<const mail::IMailPreparePreview*>(&message))
        prepare->ResolveRecipients();
    for (int kind = mail::mrtOriginator; kind <= mail::mrtUnknown; ++kind) {
        const auto list = message.Recipients(mail::TMailRecipientType(kind));
        if (!list)
            continue;
        for (const auto& r : *list) {
            if (!r)
                continue;
            const QString name = r->Name().isEmpty() ? r->EMail() : r->Name();
            out.AddRecipient(kind, name, AddrTypeOf(r->EMailType()), r->EMail(),
                r->EMailType() == mail::matEXResolved ? r->EMail() : QString());
        }
    }
}

void AddSender(TPSTMessage& out, const mail::IMailMessage& message)
{
    if (const auto* source = dynamic_cast<const pst::adapter::TPSTMailMessage*>(&message)) {
        QReadLocker lock(&pst::RecordLock());
        const pst::TPSTSender& s = source->Item()->Sender();
        out.SetSender(s.Name, StoredAddrType(s.AddrType), s.EMail,
            s.SmtpAddress.isEmpty() && s.AddrType == QLatin1String("EXR") ? s.EMail : s.SmtpAddress);
        return;
    }
    if (const auto sender = message.Sender())
        out.SetSender(sender->Name(), AddrTypeOf(sender->EMailType()), sender->EMail());
}

void AddBodies(TPSTMessage& out, const mail::IMailMessage& message)
{
    const QByteArray rtf = message.Body(mail::mbtRTF).toLatin1();
    const QString html = message.Body(mail::mbtHTML);
    // HTML that readers derive from the RTF body is not stored twice.
    bool derived = false;
    if (!html.isEmpty() && core::IsHtmlEncapsulatedRtf(rtf))
        derived = core::RtfToHtml(rtf) == html;
    // In the charset the page declares (references only for what it cannot
    // hold), else in UTF-8, the code page the written message names.
    const QByteArray bytes = derived ? QByteArray() : core::EncodeHtml(html, message.Headers());
    out.SetBodies(message.Body(mail::mbtText), bytes, rtf);
}

void AddAttachments(TPSTMessage& out, const mail::IMailMessage& message, int depth)
{
    const auto attaches = message.Attaches();
    if (!attaches)
        return;
    for (const auto& attach : *attaches) {
        if (!attach)
            continue;
        TPSTAttachment* written = nullptr;
        const auto inner = attach->AsMailMessage();
        if (inner && depth < MaxEmbeddingDepth) {
            auto embedded = ToPSTMessage(*inner, depth + 1);
            embedded->SetString(pid::DisplayName, attach->FileName());
            written = &out.AddEmbedded(std::move(embedded));
        } else {
            QByteArray data;
            if (const auto content = attach->Content())
                data = content->readAll();
            written = &out.AddAttachment(attach->FileName(), data, attach->ContentType());
        }
        written->SetString(pid::AttachContentId, attach->ContentID());
        written->SetString(pid::AttachContentLocation, attach->ContentLocation());
        if (const auto* sized = dynamic_cast<const mail::IMailAttach2*>(attach.get()); sized && sized->Size() > 0)
            written->SetLong(pid::AttachSize, sized->Size());
    }
}

} // namespace

std::shared_ptr<TPSTMessage> ToPSTMessage(const mail::IMailMessage& message, int depth)
{
    auto out = std::make_shared<TPSTMessage>();
    if (const auto* contact = dynamic_cast<const mail::IMailContact*>(&message)) {
        AddContact(*out, message, *contact);
        return out;
    }
    const auto* meeting = dynamic_cast<const mail::IMailMeeting*>(&message);
    QString messageClass = meeting ? QStringLiteral("IPM.Appointment") : QStringLiteral("IPM.Note");
    if (const auto* source = dynamic_cast<const pst::adapter::TPSTMailMessage*>(&message))
        if (const QString own = source->Item()->MessageClass(); !own.isEmpty())
            messageClass = own;
    out->SetString(pid::MessageClass, messageClass);
    out->SetString(pid::Subject, message.Subject());
    out->SetString(pid::ConversationTopic, message.Subject());
    AddSender(*out, message);
    AddRecipients(*out, message);
    AddBodies(*out, message);
    SetDate(*out, pid::ClientSubmitTime, message.Date(mail::mdClientSubmit));
    SetDate(*out, pid::DeliveryTime, message.Date(mail::mdDelivery));
    SetDate(*out, pid::CreationTime, message.Date(mail::mdCreation));
    SetDate(*out, pid::LastModificationTime, message.Date(mail::mdModification));
    out->SetString(pid::TransportHeaders, message.Headers());
    if (meeting) {
        if (meeting->AppoitmentStart() > 0)
            out->SetNamedTime(PSETID_Appointment(), pid::AppointmentStart, core::DateTimeToQDateTime(meeting->AppoitmentStart()).toUTC());
        if (meeting->AppoitmentEnd() > 0)
            out->SetNamedTime(PSETID_Appointment(), pid::AppointmentEnd, core::DateTimeToQDateTime(meeting->AppoitmentEnd()).toUTC());
        out->SetNamedString(PSETID_Appointment(), pid::Location, meeting->Location());
    }
    AddAttachments(*out, message, depth);
    return out;
}

TMailPSTTask::TMailPSTTask(TMailProperties& properties) : TMailTask(properties) {}

TMailPSTTask::TContext::TContext(const QString& destination)
    : File(std::make_unique<platform::TStagedFile>(destination, false, true))
{
    if (File->IsOpen())
        Writer = std::make_unique<TPSTWriter>(File->TemporaryPath(), QStringLiteral("Personal Folders"));
}

void TMailPSTTask::StartRun()
{
    TMailTask::StartRun();
    // One file takes every message: its destination is checked once.
    QString output = Properties().Destination;
    if (CheckDestination(output) != trOK || !PrepareFolder(QFileInfo(output).path())) {
        AddLog(0, QStringLiteral("Nothing written: %1 is not to be replaced").arg(Properties().Destination));
        Cancel();
        return;
    }
    m_output = output;
    Properties().Destination = output; // renamed when the file was there
    StartCombine(output);
}

std::unique_ptr<TMailContext> TMailPSTTask::CreateContext()
{
    // Written beside the destination and linked in when complete, so that a
    // failed run leaves what was there before.
    return std::make_unique<TContext>(m_output);
}

uint32_t TMailPSTTask::TargetFolder(TPSTWriter& writer, const mail::IMailMessage& message, const QString& messageClass,
    const TTaskEntry* entry)
{
    const bool contact = dynamic_cast<const mail::IMailContact*>(&message) != nullptr;
    const QString kindClass = contact ? QStringLiteral("IPF.Contact")
        : messageClass.startsWith(QLatin1String("IPM.Appointment"), Qt::CaseInsensitive) ? QStringLiteral("IPF.Appointment")
                                                                                       : QStringLiteral("IPF.Note");
    auto folderOf = [&](uint32_t parent, const QString& name, const QString& containerClass) {
        const uint32_t found = writer.FindFolder(parent, name);
        return found ? found : writer.AddFolder(parent, name, containerClass);
    };
    const uint32_t top = writer.SpecialFolder(psfTopOfStore);
    QStringList names;
    if (Properties().KeepFolderStructure && entry)
        names = entry->Folders.mid(std::max(0, Properties().KeepFolderLevel));
    if (names.isEmpty()) {
        if (kindClass == QLatin1String("IPF.Note"))
            return writer.SpecialFolder(psfInbox);
        return folderOf(top, contact ? QStringLiteral("Contacts") : QStringLiteral("Calendar"), kindClass);
    }
    // The top of the source's folders stands for the top of ours.
    uint32_t parent = top;
    if (names.first().startsWith(QLatin1String("Top of "), Qt::CaseInsensitive)) {
        writer.RenameFolder(top, names.takeFirst());
        if (names.isEmpty())
            return top;
    }
    for (qsizetype i = 0; i < names.size(); ++i) {
        const bool leaf = i + 1 == names.size();
        parent = folderOf(parent, names[i],
            !leaf ? QStringLiteral("IPF.Note") : entry->InStore ? entry->FolderClass : kindClass);
    }
    return parent;
}

int TMailPSTTask::ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString&)
{
    auto& data = static_cast<TContext&>(context);
    if (!data.Writer) {
        if (TTaskEntry* entry = context.Entry)
            entry->Error = data.File->ErrorString();
        return trError;
    }
    const auto stored = ToPSTMessage(message);
    data.Writer->AddMessage(TargetFolder(*data.Writer, message, stored->String(pid::MessageClass), context.Entry), *stored);
    return trOK;
}

int TMailPSTTask::Commit(TMailContext& context, QString& path)
{
    auto& data = static_cast<TContext&>(context);
    const int count = data.Writer ? data.Writer->MessageCount() : 0;
    if (count == 0)
        return trSkipped;
    QString error;
    int result = trError;
    try {
        data.Writer->Finish();
        result = CommitOutput(*data.File, path, error, context.Replace);
    } catch (const core::ETessalyError& e) {
        error = e.Message();
    }
    if (result != trOK) {
        // Every message counted as written is lost with the file.
        AddLog(0, QStringLiteral("Nothing written to %1: %2")
                      .arg(path, result == trExists ? QStringLiteral("another file took its name") : error));
        RecountAsFailed(count);
        return result;
    }
    AddLog(1, QStringLiteral("%1 messages written to %2").arg(count).arg(path));
    return trOK;
}

} // namespace tessaly::tasks
