#include "tasks/MailTask.h"

#include "core/DateTime.h"
#include "mail/CleverMail.h"
#include "mail/MailContact.h"
#include "platform/FileSystem.h"
#include "platform/StagedFile.h"
#include "tasks/MailEMLTask.h"

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

QString TAttachNameGenerator::GenerateAttachName(const mail::IMailAttach& attach)
{
    ++m_counter;
    const QString extension = mail::ExtensionForContentType(attach.ContentType());
    return QStringLiteral("Attach %1").arg(m_counter) + (extension.isEmpty() ? QString() : QLatin1Char('.') + extension);
}

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

bool TAttachFileNames::Taken(const QString& path) const
{
    return m_names.contains(path.toLower()) || QFileInfo::exists(path);
}

QString TAttachFileNames::GetUnique(const QString& path)
{
    QMutexLocker locker(&m_lock);
    QString chosen = path;
    if (Taken(path)) {
        const QFileInfo info(path);
        const QString folder = info.path();
        const QString name = info.fileName();
        const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
        const QString base = dot > 0 ? name.left(dot) : name;
        const QString extension = dot > 0 ? name.mid(dot) : QString();
        for (int k = 1;; ++k) {
            const QString suffix = m_separator + QString::number(k);
            const QString candidate = QDir(folder).filePath(base.left(std::max<qsizetype>(0, base.size() - suffix.size())) + suffix + extension);
            if (!Taken(candidate)) {
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
        AddLog(0, QStringLiteral("Originals are never deleted: Tessaly opens every file read only."));
    if (m_properties.Attach.Has(aotUnpack))
        AddLog(1, QStringLiteral("Archives are saved as they are, not unpacked."));
}

void TMailTask::FinishRun()
{
    EndCombine();
    if (m_lastNumber > 0)
        m_properties.SetLastProcessedNumber(m_lastNumber);
}

void TMailTask::StartCombine(const QString& path)
{
    if (m_combined)
        return;
    m_combined = CreateContext();
    m_combinedPath = path;
}

bool TMailTask::EndCombine()
{
    if (!m_combined)
        return false;
    const bool committed = Commit(*m_combined, m_combinedPath) == trOK;
    if (committed)
        Properties().Destination = m_combinedPath; // the name the file got
    m_combined.reset();
    m_combinedPath.clear();
    return committed;
}

QString TMailTask::OutputFolder(const TTaskEntry& entry) const
{
    QString folder = m_properties.Destination;
    if (m_properties.KeepFolderStructure) {
        // Source folders below the level kept, each a safe name.
        for (qsizetype i = std::max(0, m_properties.KeepFolderLevel); i < entry.Folders.size(); ++i) {
            const QString name = SafeAttachName(entry.Folders[i], QStringLiteral("folder"));
            folder = QDir(folder).filePath(name);
        }
    }
    return folder;
}

bool IsHTMLNeedImage(const QString& html, const mail::IMailAttach& attach)
{
    QString id = attach.ContentID().trimmed();
    if (id.startsWith(QLatin1Char('<')) && id.endsWith(QLatin1Char('>')))
        id = id.mid(1, id.size() - 2);
    if (!id.isEmpty() && html.contains(QStringLiteral("cid:") + id, Qt::CaseInsensitive))
        return true;
    const QString location = attach.ContentLocation();
    return !location.isEmpty() && html.contains(location, Qt::CaseInsensitive);
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
        file.write(TMailInfo(*this, *entry.Mail).SaveToBytes());
        return file.fileName();
    }
    return entry.Source;
}

int TMailTask::ProcessEntry(TTaskEntry& entry)
{
    // 1-2: the message, asked for when the entry has none yet.
    m_attachNames.Clear();
    if (!entry.Mail && entry.Load)
        entry.Mail = entry.Load();
    if (!entry.Mail) {
        entry.Error = QStringLiteral("The message could not be read");
        return trError;
    }
    const mail::IMailMessage& message = *entry.Mail;
    if (OnProgress)
        OnProgress({entry.Index, int(Entries().size()), message.Subject()});

    // 4: the filter.
    if (!m_properties.Filter.Allow(message))
        return trSkipped;

    // 5-6: the output path and its check.
    QString fileName = m_properties.GetFileNameByTemplate(message, entry.Index);
    if (fileName.isEmpty())
        fileName = QStringLiteral("message %1.%2").arg(m_number).arg(m_properties.Extension());
    const QString folder = OutputFolder(entry);
    QString path = QDir(folder).filePath(fileName);
    if (m_properties.ConvertType() != mctPST && !m_combined) {
        const int check = CheckDestination(path);
        if (check != trOK)
            return check;
    }

    // 7-8: the folder, the context. A data file takes every message into
    // itself: no folders are made beside it.
    if (m_properties.ConvertType() != mctPST && !PrepareFolder(QFileInfo(path).path())) {
        entry.Error = QStringLiteral("Can not create the folder %1").arg(QFileInfo(path).path());
        return trError;
    }
    if (m_properties.CombineFiles && !m_combined)
        StartCombine(path);
    std::unique_ptr<TMailContext> own;
    TMailContext* context = m_combined.get();
    if (!context) {
        own = CreateContext();
        context = own.get();
    } else if (TMailCombineList* list = TMailContextManager::Instance().CombineList(this)) {
        list->Add(path);
    }

    // 9-11: convert, commit, post-process.
    m_current = &entry;
    int result = ConvertMail(*context, message, path);
    if (result == trOK && own) {
        result = Commit(*context, path);
        if (result == trOK) {
            entry.Output = path;
            PostProcess(path, message);
        }
    }
    m_current = nullptr;
    if (TMailCombineList* list = TMailContextManager::Instance().CombineList(this))
        list->Remove(path);
    if (result == trOK) {
        if (LogsDetail()) // not built for a log that leaves it out
            AddLog(1, DetailLogEntry(message, m_number, path, false, m_properties.Fields.Has(mitDateUTC)));
        m_lastNumber = m_number;
        ++m_number;
    } else if (result != trSkipped && entry.Error.isEmpty()) {
        entry.Error = QStringLiteral("see %1").arg(GetExceptionSource(entry));
    }
    return result;
}

void TMailTask::PostProcess(const QString& path, const mail::IMailMessage& message)
{
    if (m_properties.Attach.Has(aotSave)) {
        m_attachNames.Clear(); // the names the message's parts got
        const auto attaches = message.Attaches();
        TMailAttachFiles* files = TMailContextManager::Instance().AttachFiles(this);
        const QString folder = QFileInfo(path).path();
        const QString mailFileName = QFileInfo(path).fileName();
        for (int i = 0; attaches && i < attaches->Count(); ++i) {
            const auto attach = attaches->GetAttach(i);
            if (!attach)
                continue;
            QString name = m_properties.AttachNameTemplate().isEmpty()
                ? attach->FileName()
                : m_properties.GetAttachNameByTemplate(*attach, mailFileName, i);
            if (name.trimmed().isEmpty())
                name = m_attachNames.GenerateAttachName(*attach);
            name = SafeAttachName(name);
            if (attach->AsMailMessage() && QFileInfo(name).suffix().isEmpty())
                name += QStringLiteral(".eml");
            QString target = m_fileNames->GetUnique(QDir(folder).filePath(name));
            QByteArray data;
            if (const auto inner = attach->AsMailMessage()) {
                data = TMailInfo(*this, *inner).SaveToBytes();
            } else if (const auto content = attach->Content()) {
                data = content->readAll();
            }
            // Linked in when complete, under the next "~N" name when another
            // writer took the name meanwhile.
            platform::TStagedFile file(target);
            const auto next = [this](const QString& taken) { return m_fileNames->GetUnique(taken); };
            if (!file.IsOpen() || file.Device().write(data) != data.size()
                || file.Commit(target, next) != platform::lrLinked) {
                AddLog(0, QStringLiteral("Can not convert \"%1\"").arg(attach->FileName()));
                continue;
            }
            if (files)
                files->Add(target);
        }
    }
    if (m_properties.CopyDateStamps) {
        mail::TDateTime date = message.Date(mail::mdClientSubmit);
        if (date == 0)
            date = message.Date(mail::mdDelivery);
        const QDateTime stamp = core::DateTimeToQDateTime(date);
        if (date != 0 && stamp.isValid()) {
            QFile file(path);
            if (file.open(QIODevice::ReadWrite))
                file.setFileTime(stamp, QFileDevice::FileModificationTime);
        }
    }
}

} // namespace tessaly::tasks
