#include "tasks/MailPSTTask.h"

#include "core/Exceptions.h"
#include "mail/MailContact.h"
#include "mail/MsgModel.h"
#include "pst/PSTMessage.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace tessaly::tasks {

using namespace pstfile;

namespace {

// Records resolved to SMTP keep their Exchange type, so that readers show
// them as the source did (by name).
QString StoredAddrType(const QString& addrType)
{
    return addrType == QLatin1String("EXR") ? QStringLiteral("EX") : addrType;
}

// Such records hold the SMTP address as their address.
QString StoredSmtpAddress(const QString& addrType, const QString& email, const QString& smtp)
{
    return smtp.isEmpty() && addrType == QLatin1String("EXR") ? email : smtp;
}

// The generic model with what data-file items add: their own message class,
// sender and recipients from their address records with the stored address
// types, and every contact field. The writer sets the read and
// has-attachment flags itself.
class TPSTModelBuilder : public mail::TMsgModelBuilder {
public:
    TPSTModelBuilder()
        : TMsgModelBuilder({.mailRecipientsOnly = false, .displayLists = false, .messageId = false,
              .messageFlags = false, .normalizedAttachments = false})
    {
    }

protected:
    QString MessageClass(const mail::IMailMessage& message) const override
    {
        if (const auto* source = dynamic_cast<const pst::adapter::TPSTMailMessage*>(&message))
            if (const QString own = source->Item()->MessageClass(); !own.isEmpty())
                return own;
        return TMsgModelBuilder::MessageClass(message);
    }

    // Addresses resolved from Exchange keep their type, as records do.
    std::pair<QString, QString> StoredAddress(mail::TMailAddressType type, const QString& address) const override
    {
        return {type == mail::matSMTP ? QStringLiteral("SMTP") : QStringLiteral("EX"),
            type == mail::matEXResolved ? address : QString()};
    }

    void AddSender(TPSTMessage& out, const mail::IMailMessage& message) const override
    {
        const auto* source = dynamic_cast<const pst::adapter::TPSTMailMessage*>(&message);
        if (!source)
            return TMsgModelBuilder::AddSender(out, message);
        QReadLocker lock(&pst::RecordLock());
        const pst::TPSTSender& s = source->Item()->Sender();
        out.SetSender(s.Name, StoredAddrType(s.AddrType), s.EMail, StoredSmtpAddress(s.AddrType, s.EMail, s.SmtpAddress));
    }

    void AddRecipients(TPSTMessage& out, const mail::IMailMessage& message) const override
    {
        const auto* source = dynamic_cast<const pst::adapter::TPSTMailMessage*>(&message);
        if (!source)
            return TMsgModelBuilder::AddRecipients(out, message);
        const pst::TPSTMailItem& item = *source->Item();
        QReadLocker lock(&pst::RecordLock());
        for (int list = 0; list < 5; ++list) {
            const pst::TRecipientList& records = item.Recipients(list);
            for (int i = 0; i < records.Count(); ++i) {
                const pst::TMailRecipient& r = records.GetItem(i);
                TPSTRecipient& written = out.AddRecipient(list, r.DisplayName, StoredAddrType(r.AddrType), r.EMail,
                    StoredSmtpAddress(r.AddrType, r.EMail, r.SmtpAddress));
                written.SetString(pid::RecipientDisplayName, r.RecipientDisplayName);
            }
        }
    }

    void AddContact(TPSTMessage& out, const mail::IMailMessage& message, const mail::IMailContact& contact) const override
    {
        const auto* item = dynamic_cast<const pst::adapter::TPSTContactMessage*>(&message);
        if (!item)
            return TMsgModelBuilder::AddContact(out, message, contact);
        out.SetString(pid::MessageClass, QStringLiteral("IPM.Contact"));
        for (int field = 0; field < mail::cfCount; ++field)
            SetContactField(out, field, item->Item()->Field(field));
    }
};

} // namespace

std::shared_ptr<TPSTMessage> ToPSTMessage(const mail::IMailMessage& message, int depth)
{
    return TPSTModelBuilder().Build(message, depth);
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
        AddLog(0, QCoreApplication::translate("TMailPSTTask", "Nothing written: %1 is not to be replaced").arg(Properties().Destination));
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
        CombinedLost(path, result, error, count);
        return result;
    }
    AddLog(1, QCoreApplication::translate("TMailPSTTask", "%1 messages written to %2").arg(count).arg(path));
    return trOK;
}

} // namespace tessaly::tasks
