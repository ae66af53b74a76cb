#include "tasks/CustomTask.h"

#include "core/Exceptions.h"
#include "mail/OutlookMessage.h"
#include "platform/StagedFile.h"
#include "tasks/MailTemplate.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

namespace tessaly::tasks {

TCustomTask::TCustomTask(TCustomProperties& properties) : m_customProperties(properties)
{
    if (!properties.LogFileName.isEmpty() && properties.LogMode == lmOverwrite)
        QFile::remove(properties.LogFileName);
}

TCustomTask::~TCustomTask() = default;

void TCustomTask::AddEntry(TTaskEntry entry)
{
    entry.Index = int(m_entries.size());
    m_entries.push_back(std::move(entry));
}

int TCustomTask::Run()
{
    StartRun();
    const int total = int(m_entries.size());
    for (int i = 0; i < total; ++i) {
        if (m_cancel)
            break;
        TTaskEntry& entry = m_entries[size_t(i)];
        if (OnProgress)
            OnProgress({i, total, {}});
        int result = trError;
        try {
            result = ProcessEntry(entry);
        } catch (const mail::EInvalidMailFormat& e) {
            entry.Error = e.Message();
            entry.InvalidSource = true;
        } catch (const core::ETessalyError& e) {
            entry.Error = e.Message();
        } catch (const std::exception& e) {
            entry.Error = QString::fromUtf8(e.what());
        }
        entry.Result = result;
        switch (result) {
        case trOK:
            ++m_written;
            break;
        case trSkipped:
            ++m_filtered;
            break;
        case trExists:
            ++m_existing;
            break;
        case trCancelled:
            m_cancel = true;
            break;
        default:
            ++m_failed;
            AddLog(0, QStringLiteral("Error converting message #%1 (%2): %3")
                          .arg(i + 1)
                          .arg(entry.Source, entry.Error.isEmpty() ? QStringLiteral("no message") : entry.Error));
            break;
        }
        entry.Mail.reset(); // the messages of a large run are not kept
        if (OnProgress)
            OnProgress({i + 1, total, {}});
    }
    FinishRun();
    // Durable once, at the end, rather than one sync per file.
    if (!m_writtenFolders.isEmpty() && !platform::SyncFolders(m_writtenFolders.values()))
        AddLog(0, QStringLiteral("Can not flush the written files to disk"));
    return m_failed;
}

QString TCustomTask::RenamedPath(const QString& path)
{
    const QFileInfo info(path);
    const QString base = info.completeBaseName();
    const QString extension = info.suffix().isEmpty() ? QString() : QLatin1Char('.') + info.suffix();
    for (int n = 1;; ++n) {
        const QString suffix = QStringLiteral(" (%1)").arg(n) + extension;
        const QString candidate = info.dir().filePath(LimitNameBytes(base, MaxNameBytes - Utf8Length(suffix)) + suffix);
        if (!QFileInfo::exists(candidate))
            return candidate;
    }
}

void TCustomTask::RecountAsFailed(int count)
{
    count = std::min(count, m_written);
    m_written -= count;
    m_failed += count;
}

bool TCustomTask::PrepareFolder(const QString& folder)
{
    if (m_preparedFolders.contains(folder))
        return true;
    if (!QDir().mkpath(folder))
        return false;
    m_preparedFolders.insert(folder);
    platform::TStagedFile::RemoveStale(folder);
    return true;
}

int TCustomTask::CommitOutput(platform::TStagedFile& file, QString& path, QString& error)
{
    const bool replace = !m_overwrite.isEmpty() && m_overwrite == path;
    const TCheckFileMode mode = m_modeForAll ? m_allMode : m_customProperties.CheckFileMode;
    // Taken meanwhile by another writer: skipped when names taken are
    // skipped, otherwise the next free name.
    const auto next = [mode](const QString& taken) { return mode == cfmSkip ? QString() : RenamedPath(taken); };
    switch (file.Commit(path, next, replace)) {
    case platform::lrLinked:
        m_writtenFolders.insert(QFileInfo(path).path());
        return trOK;
    case platform::lrTaken:
        return trExists;
    default:
        error = file.ErrorString();
        return trError;
    }
}

int TCustomTask::CheckDestination(QString& path)
{
    m_overwrite.clear();
    if (!QFileInfo::exists(path))
        return trOK;
    TCheckFileMode mode = m_customProperties.CheckFileMode;
    if (mode == cfmAsk) {
        if (m_modeForAll) {
            mode = m_allMode;
        } else if (AskFileMode) {
            bool forAll = false;
            mode = AskFileMode(path, forAll);
            if (forAll) {
                m_modeForAll = true;
                m_allMode = mode;
            }
        } else {
            mode = cfmRename;
        }
    }
    switch (mode) {
    case cfmOverwrite:
        m_overwrite = path;
        return trOK;
    case cfmSkip:
        return trExists;
    case cfmCancel:
        return trCancelled;
    default:
        path = RenamedPath(path);
        return trOK;
    }
}

void TCustomTask::AddLog(int kind, const QString& text)
{
    if (kind == 1 && !LogsDetail())
        return;
    m_log << text;
    if (m_customProperties.LogFileName.isEmpty())
        return;
    QFile file(m_customProperties.LogFileName);
    if (file.open(QIODevice::WriteOnly | QIODevice::Append)) {
        QByteArray line = text.toUtf8();
        line += "\r\n";
        file.write(line);
    }
}

} // namespace tessaly::tasks
