#include "tasks/CustomTask.h"

#include "core/Exceptions.h"

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
    return m_failed;
}

QString TCustomTask::RenamedPath(const QString& path)
{
    const QFileInfo info(path);
    const QString base = info.completeBaseName();
    const QString extension = info.suffix().isEmpty() ? QString() : QLatin1Char('.') + info.suffix();
    for (int n = 1;; ++n) {
        const QString candidate = info.dir().filePath(QStringLiteral("%1 (%2)%3").arg(base).arg(n).arg(extension));
        if (!QFileInfo::exists(candidate))
            return candidate;
    }
}

int TCustomTask::CheckDestination(QString& path)
{
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
    if (kind == 1 && m_customProperties.LogVerbosity != lvDetail)
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
