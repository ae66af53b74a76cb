#include "tasks/MailTask.h"

#include "core/DateTime.h"
#include "mail/CleverMail.h"
#include "mail/MailMsgHTML.h"
#include "mail/MailContact.h"
#include "platform/FileSystem.h"
#include "platform/StagedFile.h"
#include "mail/ICalendar.h"
#include "mail/MimeWriter.h"
#include "mail/VCard.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>
#include <QRandomGenerator>
#include <QTimeZone>

namespace tessaly::tasks {

namespace {

const QString CRLF = QStringLiteral("\r\n");

} // namespace

// --- names of attachments ----------------------------------------------------------

std::shared_ptr<TAttachFileNames> TAttachFileNames::Acquire(bool sharepoint)
{
    static QMutex lock;
    static std::weak_ptr<TAttachFileNames> shared;
    QMutexLocker locker(&lock);
    auto names = shared.lock();
    if (!names) {
        names = std::make_shared<TAttachFileNames>(sharepoint ? QLatin1Char('-') : QLatin1Char('~'));
        shared = names;
    }
    return names;
}

bool TAttachFileNames::Taken(const QString& path, const std::function<bool(const QString&)>& taken) const
{
    return m_names.contains(path.toLower()) || QFileInfo::exists(path) || (taken && taken(path));
}

QString TAttachFileNames::GetUnique(const QString& path, const std::function<bool(const QString&)>& taken)
{
    QMutexLocker locker(&m_lock);
    QString chosen = path;
    if (Taken(path, taken)) {
        const QFileInfo info(path);
        const QString folder = info.path();
        const QString name = info.fileName();
        const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
        const QString base = dot > 0 ? name.left(dot) : name;
        const QString extension = dot > 0 ? name.mid(dot) : QString();
        for (int k = 1;; ++k) {
            const QString suffix = m_separator + QString::number(k);
            const QString candidate = QDir(folder).filePath(base.left(std::max<qsizetype>(0, base.size() - suffix.size())) + suffix + extension);
            if (!Taken(candidate, taken)) {
                chosen = candidate;
                break;
            }
        }
    }
    m_names.insert(chosen.toLower());
    return chosen;
}

// --- context manager -----------------------------------------------------------------

TMailContextManager& TMailContextManager::Instance()
{
    static TMailContextManager manager;
    return manager;
}

void TMailContextManager::Register(TMailTask* task)
{
    QMutexLocker locker(&m_lock);
    m_tasks.insert(task, std::make_shared<TTaskData>());
}

void TMailContextManager::Unregister(TMailTask* task)
{
    QMutexLocker locker(&m_lock);
    m_tasks.remove(task);
}

TMailAttachFiles* TMailContextManager::AttachFiles(const TMailTask* task)
{
    QMutexLocker locker(&m_lock);
    const auto data = m_tasks.value(task);
    return data ? &data->Files : nullptr;
}

TMailCombineList* TMailContextManager::CombineList(const TMailTask* task)
{
    QMutexLocker locker(&m_lock);
    const auto data = m_tasks.value(task);
    return data ? &data->Combine : nullptr;
}

int TMailContextManager::Count() const
{
    QMutexLocker locker(&m_lock);
    return int(m_tasks.size());
}

// --- free helpers ----------------------------------------------------------------------

int ConvertTypeToOutputFormat(TMailConvertType type, const TAttachOptions& attach)
{
    switch (type) {
    case mctHTML:
        return 0;
    case mctPDF:
    case mctXPS:
        return 1;
    case mctTXT:
        return 2;
    case mctDOC:
        return attach.Has(aotConvertDocuments) && !attach.Has(aotSeparateDocuments) ? 4 : 3;
    case mctRTF:
        return 4;
    case mctXLS:
        return 5;
    case mctTIFF:
        return 6;
    case mctJPEG:
        return 7;
    default:
        throw EAssertion(QStringLiteral("Assertion failed: no document format for output type %1").arg(int(type)));
    }
}

QString LogDateText(mail::TDateTime date, bool utc)
{
    if (date == 0)
        return {};
    QDateTime value = core::DateTimeToQDateTime(date);
    if (!value.isValid())
        return {};
    const QLocale locale;
    if (utc) {
        value.setTimeZone(QTimeZone::systemTimeZone());
        return locale.toString(value.toUTC(), QLocale::ShortFormat) + QStringLiteral(" UTC");
    }
    return locale.toString(value, QLocale::ShortFormat);
}

QString DetailLogEntry(const mail::IMailMessage& message, int number, const QString& destination, bool attached,
    bool utc)
{
    QString text = QStringLiteral("Convert ") + (attached ? QStringLiteral("attached ") : QString())
        + QStringLiteral("message #") + QString::number(number) + QStringLiteral(" to ") + destination
        + QStringLiteral(": ") + CRLF + QLatin1Char('\t');
    if (const auto contact = dynamic_cast<const mail::IMailContact*>(&message)) {
        text += QStringLiteral("contact\t") + contact->GetField(mail::mcfFullName).toString();
    } else {
        const auto sender = message.Sender();
        mail::TDateTime date = message.Date(mail::mdClientSubmit);
        if (date == 0)
            date = message.Date(mail::mdDelivery);
        text += QStringLiteral("Subject: ") + message.Subject() + CRLF + QLatin1Char('\t') + QStringLiteral("Sender: ")
            + (sender ? sender->Caption() : QString()) + CRLF + QLatin1Char('\t') + QStringLiteral("Date: ")
            + LogDateText(date, utc);
    }
    text += CRLF + QLatin1Char('\t');
    const auto attaches = message.Attaches();
    if (attaches && attaches->Count() > 0) {
        text += QStringLiteral("Attachments: ");
        for (int i = 0; i < attaches->Count(); ++i)
            if (const auto attach = attaches->GetAttach(i))
                text += CRLF + QStringLiteral("\t\t") + attach->FileName();
    }
    return text;
}

// --- TMailTask ---------------------------------------------------------------------------

TMailTask::TMailTask(TMailProperties& properties) : TCustomTask(properties), m_properties(properties)
{
    TMailContextManager::Instance().Register(this);
    m_fileNames = TAttachFileNames::Acquire(properties.FileNameOptions.Has(fnoSharepointCompatible));
}

TMailTask::~TMailTask()
{
    TMailContextManager::Instance().Unregister(this);
}

void TMailTask::StartRun()
{
    m_number = m_properties.RunningNumber(0);
    m_properties.Title().CommentLeft.replace(QStringLiteral("[n]"), QString::number(m_number));
    if (m_properties.DeleteOriginals)
        AddLog(0, QCoreApplication::translate("TMailTask", "Originals are never deleted: Tessaly opens every file read only."));
    if (m_properties.Attach.Has(aotUnpack))
        AddLog(1, QCoreApplication::translate("TMailTask", "Archives are saved as they are, not unpacked."));
}

void TMailTask::FinishRun()
{
    EndCombine();
    if (m_byKind.value(mctVCard) > 0)
        AddLog(0, QCoreApplication::translate("TMailTask", "%1 contacts written as vCard files (-OneFormat keeps them in the chosen format)")
                      .arg(m_byKind.value(mctVCard)));
    if (m_byKind.value(mctICal) > 0)
        AddLog(0, QCoreApplication::translate("TMailTask", "%1 calendar items written as iCalendar files (-OneFormat keeps them in the chosen format)")
                      .arg(m_byKind.value(mctICal)));
    if (m_lastNumber > 0)
        m_properties.SetLastProcessedNumber(m_lastNumber);
}

void TMailTask::StartCombine(const QString& path)
{
    auto& context = m_combined[path];
    if (context)
        return;
    context = CreateContext();
    context->Replace = Replaces(path);
    context->Combined = true;
}

bool TMailTask::EndCombine()
{
    if (m_combined.empty())
        return false;
    bool committed = true;
    const bool one = m_combined.size() == 1;
    for (auto& [path, context] : m_combined) {
        QString name = path;
        const int result = Commit(*context, name);
        committed = committed && result == trOK;
        if (one && result == trOK)
            Properties().Destination = name; // the name the file got
    }
    // Outputs by source folder: the destination is the folder that holds them.
    if (!one)
        Properties().Destination = QFileInfo(Properties().Destination).path();
    m_combined.clear();
    m_combinedNames.clear();
    return committed;
}

QString TMailTask::CombinedOutput(const TTaskEntry&, const QString& path) const
{
    // One output for the run, named after its first message.
    return m_combinedNames.isEmpty() ? path : *m_combinedNames.keyBegin();
}

TMailConvertType TMailTask::ItemFormat(const TTaskEntry& entry, const mail::IMailMessage& message) const
{
    const TMailConvertType type = m_properties.ConvertType();
    // The data file and .msg files hold every kind of item.
    const bool mailFormat = type == mctEML || type == mctMBox || type == mctHTML || type == mctXHTML || type == mctPDF
        || type == mctTXT;
    if (!mailFormat || m_properties.OneFormat)
        return type;
    if (dynamic_cast<const mail::IMailContact*>(&message))
        return mctVCard;
    // Meeting requests and answers in mail folders stay mail.
    if (dynamic_cast<const mail::IMailMeeting*>(&message) && entry.FolderClass.startsWith(QLatin1String("IPF.Appointment"), Qt::CaseInsensitive))
        return mctICal;
    return type;
}

QString TMailTask::DestinationFolder() const
{
    const QString& destination = m_properties.Destination;
    // An mbox run, or a combined output, may name its file.
    const bool namesFile = m_properties.ConvertType() == mctMBox
        || (m_properties.CombineFiles && destination.endsWith(QLatin1Char('.') + m_properties.Extension(), Qt::CaseInsensitive)
            && !QFileInfo(destination).isDir());
    return namesFile ? QFileInfo(destination).path() : destination;
}

QString TMailTask::OutputFolder(const TTaskEntry& entry, bool ownFile) const
{
    QString folder = DestinationFolder();
    if (!entry.Group.isEmpty())
        folder = QDir(folder).filePath(entry.Group);
    // An mbox run keeps the source's folders in the names of its files.
    if (m_properties.ConvertType() == mctMBox && !ownFile)
        return folder;
    if (m_properties.KeepFolderStructure) {
        // Source folders below the level kept, each a safe name.
        for (qsizetype i = std::max(0, m_properties.KeepFolderLevel); i < entry.Folders.size(); ++i) {
            const QString name = SafeAttachName(entry.Folders[i], QStringLiteral("folder"));
            folder = QDir(folder).filePath(name);
        }
    }
    return folder;
}

int TMailTask::WriteOutput(TMailContext& context, QString& path, const QByteArray& bytes)
{
    platform::TStagedFile file(path);
    QString error = file.ErrorString();
    int result = trError;
    if (file.IsOpen()) {
        if (file.Device().write(bytes) == bytes.size())
            result = CommitOutput(file, path, error, context.Replace);
        else
            error = QStringLiteral("Can not write %1: %2").arg(path, file.Device().errorString());
    }
    if (result == trError && context.Entry)
        context.Entry->Error = error;
    return result;
}

void TMailTask::CombinedLost(const QString& path, int result, const QString& error, int messages)
{
    AddLog(0, QCoreApplication::translate("TMailTask", "Nothing written to %1: %2")
                  .arg(path, result == trExists ? QCoreApplication::translate("TMailTask", "another file took its name") : error));
    RecountAsFailed(messages);
}

QString TMailTask::GetExceptionSource(const TTaskEntry& entry)
{
    if (!entry.InStore || !entry.Mail)
        return entry.Source;
    // "mail???.eml": the first free name from a random start, in a folder
    // only this user can read: the message may be anybody's mail.
    const QString folder = platform::PrivateTempFolder(QStringLiteral("tessaly"));
    if (folder.isEmpty())
        return entry.Source;
    const int start = QRandomGenerator::global()->bounded(1000);
    for (int n = 0; n < 1000; ++n) {
        QFile file(QDir(folder).filePath(QStringLiteral("mail%1.eml").arg((start + n) % 1000, 3, 10, QLatin1Char('0'))));
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly, QFileDevice::ReadOwner | QFileDevice::WriteOwner))
            continue;
        mail::TAttachNameGenerator names;
        file.write(mail::TMimeMessage(*entry.Mail, names).SaveToBytes());
        return file.fileName();
    }
    return entry.Source;
}

// An attachment saved beside its message's output.
struct TAttachOutput {
    std::shared_ptr<mail::IMailAttach> Attach;
    std::shared_ptr<mail::IMailMessage> Inner; // an attached message, read once
    QString Target;
    bool Written = false;
};

// The conversion of one message into its output, and the saving of its
// attachments beside it: what may run on a worker.
class TMailJob : public TTaskJob {
public:
    TMailJob(TMailTask& task, TTaskEntry& entry) : Task(task), Entry(entry) {}
    int Execute() override { return Task.Execute(*this); }

    TMailTask& Task;
    TTaskEntry& Entry;
    TMailContext* Context = nullptr;
    std::unique_ptr<TMailContext> Own; // none when the output is combined
    QString Path;
    std::vector<TAttachOutput> Attachments;
    QStringList Reserved; // names held for the outputs until they are written
    QStringList Errors;   // for the log, in entry order
    bool Resumed = false; // completed by the run before: counted, not written
    TMailConvertType Format = mctEML; // the item's format
    QByteArray Part;      // converted apart, to be added to the combined output
    bool Apart = false;
};

int TMailTask::PrepareEntry(TTaskEntry& entry, std::unique_ptr<TTaskJob>& job)
{
    // The message, asked for when the entry has none yet.
    if (!entry.Mail && entry.Load)
        entry.Mail = entry.Load();
    if (!entry.Mail) {
        entry.Error = QCoreApplication::translate("TMailTask", "The message could not be read");
        return trError;
    }
    const mail::IMailMessage& message = *entry.Mail;
    if (OnProgress)
        OnProgress({entry.Index, int(Entries().size()), message.Subject()});

    if (!m_properties.Filter.Allow(message))
        return trSkipped;

    // The output path and its check.
    const TMailConvertType format = ItemFormat(entry, message);
    const bool ownKind = format == m_properties.ConvertType();
    QString fileName;
    if (ownKind || m_properties.UseFileNameTemplate) {
        fileName = m_properties.GetFileNameByTemplate(message, entry.Index);
    } else {
        // Beside a file of the run: by the item's subject, a contact by its
        // name.
        QString name = message.Subject().trimmed();
        if (const auto* contact = dynamic_cast<const mail::IMailContact*>(&message); contact && name.isEmpty())
            name = contact->GetField(mail::mcfFullName).toString().trimmed();
        fileName = SafeAttachName(name, QString());
    }
    if (!ownKind && !fileName.isEmpty()) {
        // The name the template gives, with the extension of its format.
        const QString extension = QLatin1Char('.') + m_properties.Extension();
        if (fileName.endsWith(extension, Qt::CaseInsensitive))
            fileName.chop(extension.size());
        fileName += QLatin1Char('.') + ConvertTypeExtension(format);
    }
    if (fileName.isEmpty()) {
        WaitForWorkers(); // numbered by the messages written before it
        fileName = QStringLiteral("message %1.%2").arg(m_number).arg(ConvertTypeExtension(format));
    }
    const QString folder = OutputFolder(entry, !ownKind);
    QString path = QDir(folder).filePath(fileName);
    // Completed by a run before this one (-resume): counted as written, with
    // the number it had.
    const bool combines = ownKind && (m_properties.CombineFiles || !m_combined.empty());
    if (m_manifest && !combines && m_properties.ConvertType() != mctPST
        && m_manifest->Done(TResumeManifest::Key(entry), path)) {
        auto done = std::make_unique<TMailJob>(*this, entry);
        done->Path = path;
        done->Resumed = true;
        ++m_resumed;
        job = std::move(done);
        return trOK;
    }
    bool replace = false;
    if (m_properties.ConvertType() != mctPST && !combines) {
        int check = CheckDestination(path);
        if (check == trOK && Replaces(path) && Reserved(path)) {
            // It replaces the output of a message still being written: that
            // is written first.
            WaitForWorkers();
            check = CheckDestination(path);
        }
        if (check != trOK)
            return check;
        replace = Replaces(path);
    }

    // The folder, the context. A data file takes every message into
    // itself: no folders are made beside it.
    TMailContext* combined = nullptr;
    if (combines) {
        // The combined output this entry goes into, begun (its name checked,
        // its folder made) with the first entry that goes there.
        const QString asked = CombinedOutput(entry, path);
        path = m_combinedNames.value(asked);
        if (path.isEmpty()) {
            path = asked;
            if (m_properties.ConvertType() != mctPST) {
                if (const int check = CheckDestination(path); check != trOK)
                    return check;
                if (!PrepareFolder(QFileInfo(path).path())) {
                    entry.Error = QCoreApplication::translate("TMailTask", "Can not create the folder %1").arg(QFileInfo(path).path());
                    return trError;
                }
            }
            StartCombine(path);
            m_combinedNames.insert(asked, path); // later entries ask by the name it had
        }
        combined = m_combined[path].get();
    } else if (m_properties.ConvertType() != mctPST && !PrepareFolder(QFileInfo(path).path())) {
        entry.Error = QCoreApplication::translate("TMailTask", "Can not create the folder %1").arg(QFileInfo(path).path());
        return trError;
    }
    auto mailJob = std::make_unique<TMailJob>(*this, entry);
    mailJob->Path = path;
    mailJob->Format = format;
    mailJob->Context = combined;
    if (!mailJob->Context) {
        mailJob->Own = ownKind ? CreateContext() : std::make_unique<TMailContext>();
        mailJob->Context = mailJob->Own.get();
        mailJob->Context->Replace = replace;
        // Later messages see the name as taken until it is written.
        Reserve(path);
        mailJob->Reserved << path;
        NameAttachments(*mailJob, message);
        for (const TAttachOutput& output : mailJob->Attachments)
            mailJob->Context->AttachTargets << output.Target;
    } else if (TMailCombineList* list = TMailContextManager::Instance().CombineList(this)) {
        list->Add(path);
    }
    mailJob->Context->Entry = &entry;
    job = std::move(mailJob);
    return trOK;
}

void TMailTask::NameAttachments(TMailJob& job, const mail::IMailMessage& message)
{
    if (!m_properties.Attach.Has(aotSave))
        return;
    mail::TAttachNameGenerator generated; // the names the message's parts got
    const auto attaches = message.Attaches();
    const QString folder = QFileInfo(job.Path).path();
    const QString mailFileName = QFileInfo(job.Path).fileName();
    const auto reserved = [this](const QString& path) { return Reserved(path); };
    for (int i = 0; attaches && i < attaches->Count(); ++i) {
        const auto attach = attaches->GetAttach(i);
        if (!attach)
            continue;
        QString name = m_properties.AttachNameTemplate().isEmpty()
            ? attach->FileName()
            : m_properties.GetAttachNameByTemplate(*attach, mailFileName, i);
        if (name.trimmed().isEmpty())
            name = generated.GenerateAttachName(*attach);
        name = SafeAttachName(name);
        auto inner = attach->AsMailMessage();
        if (inner && QFileInfo(name).suffix().isEmpty())
            name += QStringLiteral(".eml");
        const QString target = m_fileNames->GetUnique(QDir(folder).filePath(name), reserved);
        Reserve(target);
        job.Reserved << target;
        job.Attachments.push_back({attach, std::move(inner), target});
    }
}

int TMailTask::Execute(TMailJob& job)
{
    if (job.Resumed) {
        job.Entry.Output = job.Path;
        return trOK;
    }
    const mail::IMailMessage& message = *job.Entry.Mail;
    const bool ownKind = job.Format == m_properties.ConvertType();
    QByteArray itemBytes; // an item written in the format of its kind
    int result = trOK;
    if (ownKind && !job.Own && ConvertsApart()) {
        job.Part = ConvertPart(message);
        job.Apart = true;
        return trOK;
    }
    if (ownKind) {
        result = ConvertMail(*job.Context, message, job.Path);
    } else if (job.Format == mctVCard) {
        itemBytes = mail::ContactToVCard(dynamic_cast<const mail::IMailContact&>(message), m_properties.VCardVersion);
    } else {
        itemBytes = mail::MeetingToICalendar(message, dynamic_cast<const mail::IMailMeeting&>(message));
    }
    if (result != trOK || !job.Own)
        return result;
    const QString key = m_manifest ? TResumeManifest::Key(job.Entry) : QString();
    if (m_manifest)
        m_manifest->Begin(key, job.Path);
    result = ownKind ? Commit(*job.Context, job.Path) : WriteOutput(*job.Context, job.Path, itemBytes);
    if (result != trOK)
        return result;
    job.Entry.Output = job.Path;
    job.Own.reset(); // the converted message is not kept

    // The attachments beside it. One that could not be saved makes the
    // message count as failed (its own file stays).
    bool attachmentsSaved = true;
    for (TAttachOutput& output : job.Attachments) {
        QByteArray data;
        if (output.Inner) {
            mail::TAttachNameGenerator names; // a file of its own
            data = mail::TMimeMessage(*output.Inner, names).SaveToBytes();
        } else if (const auto content = output.Attach->Content()) {
            data = content->readAll();
        }
        // Linked in when complete, under the next "~N" name when another
        // writer took the name meanwhile.
        platform::TStagedFile file(output.Target);
        const auto next = [this](const QString& taken) { return m_fileNames->GetUnique(taken); };
        if (!file.IsOpen() || file.Device().write(data) != data.size()
            || file.Commit(output.Target, next) != platform::lrLinked) {
            job.Errors << QCoreApplication::translate("TMailTask", "Can not convert \"%1\"").arg(output.Attach->FileName());
            if (attachmentsSaved)
                job.Entry.Error = QCoreApplication::translate("TMailTask", "Can not save the attachment %1: %2")
                                      .arg(QDir::toNativeSeparators(output.Target), file.ErrorString());
            attachmentsSaved = false;
            continue;
        }
        output.Written = true;
    }
    if (m_manifest && attachmentsSaved)
        m_manifest->Finish(key, job.Path);
    if (m_properties.CopyDateStamps) {
        mail::TDateTime date = message.Date(mail::mdClientSubmit);
        if (date == 0)
            date = message.Date(mail::mdDelivery);
        const QDateTime stamp = core::DateTimeToQDateTime(date);
        if (date != 0 && stamp.isValid()) {
            QFile file(job.Path);
            if (file.open(QIODevice::ReadWrite))
                file.setFileTime(stamp, QFileDevice::FileModificationTime);
        }
    }
    return attachmentsSaved ? trOK : trError;
}

int TMailTask::FinishEntry(TTaskEntry& entry, TTaskJob* job, int result)
{
    auto* mailJob = static_cast<TMailJob*>(job);
    if (!mailJob)
        return result;
    if (result == trOK && mailJob->Apart) {
        result = AppendPart(*mailJob->Context, mailJob->Part, mailJob->Path, entry);
        mailJob->Part.clear();
    }
    for (const QString& path : mailJob->Reserved)
        Release(path);
    if (!mailJob->Own)
        if (TMailCombineList* list = TMailContextManager::Instance().CombineList(this))
            list->Remove(mailJob->Path);
    for (const QString& error : mailJob->Errors)
        AddLog(0, error);
    if (TMailAttachFiles* files = TMailContextManager::Instance().AttachFiles(this))
        for (const TAttachOutput& output : mailJob->Attachments)
            if (output.Written)
                files->Add(output.Target);
    if (result == trOK && mailJob->Format != m_properties.ConvertType())
        ++m_byKind[mailJob->Format];
    if (result == trOK) {
        if (LogsDetail()) // not built for a log that leaves it out
            AddLog(1, DetailLogEntry(*entry.Mail, m_number, mailJob->Path, false, m_properties.Fields.Has(mitDateUTC)));
        m_lastNumber = m_number;
        ++m_number;
    } else if (result != trSkipped && entry.Error.isEmpty()) {
        entry.Error = QStringLiteral("see %1").arg(GetExceptionSource(entry));
    }
    return result;
}

} // namespace tessaly::tasks
