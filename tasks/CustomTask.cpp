#include "tasks/CustomTask.h"

#include "core/Exceptions.h"
#include "mail/OutlookMessage.h"
#include "platform/StagedFile.h"
#include "tasks/MailTemplate.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <QThread>

#include <condition_variable>
#include <deque>
#include <thread>

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

int TCustomTask::Workers() const
{
    return m_workers > 0 ? m_workers : std::max(1, QThread::idealThreadCount());
}

int TCustomTask::Guarded(TTaskEntry& entry, const std::function<int()>& step)
{
    try {
        return step();
    } catch (const mail::EInvalidMailFormat& e) {
        entry.Error = e.Message();
        entry.InvalidSource = true;
    } catch (const core::ETessalyError& e) {
        entry.Error = e.Message();
    } catch (const std::exception& e) {
        entry.Error = QString::fromUtf8(e.what());
    }
    return trError;
}

void TCustomTask::Account(TTaskEntry& entry, TTaskJob* job, int result)
{
    result = Guarded(entry, [&] { return FinishEntry(entry, job, result); });
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
        AddLog(0, QCoreApplication::translate("TCustomTask", "Error converting message #%1 (%2): %3")
                      .arg(entry.Index + 1)
                      .arg(entry.Source, entry.Error.isEmpty() ? QCoreApplication::translate("TCustomTask", "no message") : entry.Error));
        break;
    }
    entry.Mail.reset(); // the messages of a large run are not kept
    if (OnProgress)
        OnProgress({entry.Index + 1, int(m_entries.size()), {}});
}

// The entries between their preparation and their count, in entry order,
// and the workers that run their jobs; without workers each job runs at
// once on the running thread.
class TCustomTask::TPipeline {
public:
    struct TSlot {
        TTaskEntry* Entry = nullptr;
        std::unique_ptr<TTaskJob> Job;
        int Result = trError;
        bool Done = false;
    };

    TPipeline(TCustomTask& task, int workers) : m_task(task)
    {
        for (int i = 0; i < workers; ++i)
            m_threads.emplace_back([this] { Work(); });
    }

    ~TPipeline()
    {
        {
            std::lock_guard lock(m_lock);
            m_stop = true;
        }
        m_wake.notify_all();
        for (std::thread& thread : m_threads)
            thread.join();
    }

    size_t Size() const { return m_slots.size(); }

    // Queued for a worker when it has a job to run, else finished as it is.
    void Add(TTaskEntry& entry, std::unique_ptr<TTaskJob> job, int result)
    {
        auto slot = std::make_unique<TSlot>();
        slot->Entry = &entry;
        slot->Result = result;
        if (m_threads.empty() && result == trOK && job) {
            slot->Result = Guarded(entry, [&] { return job->Execute(); });
            slot->Job = std::move(job);
            slot->Done = true;
            m_slots.push_back(std::move(slot));
            return;
        }
        std::lock_guard lock(m_lock);
        if (result == trOK && job) {
            slot->Job = std::move(job);
            m_queue.push_back(slot.get());
            m_wake.notify_one();
        } else {
            slot->Done = true;
        }
        m_slots.push_back(std::move(slot));
    }

    // Counts the first entries whose work is done; with wait, at least one.
    void FinishFront(bool wait)
    {
        while (!m_slots.empty()) {
            TSlot& slot = *m_slots.front();
            {
                std::unique_lock lock(m_lock);
                if (!slot.Done && !wait)
                    return;
                m_done.wait(lock, [&] { return slot.Done; });
            }
            m_task.Account(*slot.Entry, slot.Job.get(), slot.Result);
            m_slots.pop_front();
            wait = false;
        }
    }

    void FinishAll()
    {
        while (!m_slots.empty())
            FinishFront(true);
    }

private:
    void Work()
    {
        for (;;) {
            TSlot* slot = nullptr;
            {
                std::unique_lock lock(m_lock);
                m_wake.wait(lock, [&] { return m_stop || !m_queue.empty(); });
                if (m_queue.empty())
                    return;
                slot = m_queue.front();
                m_queue.pop_front();
            }
            const int result = Guarded(*slot->Entry, [&] { return slot->Job->Execute(); });
            {
                std::lock_guard lock(m_lock);
                slot->Result = result;
                slot->Done = true;
            }
            m_done.notify_all();
        }
    }

    TCustomTask& m_task;
    std::deque<std::unique_ptr<TSlot>> m_slots;
    std::mutex m_lock;
    std::condition_variable m_wake, m_done;
    std::deque<TSlot*> m_queue;
    bool m_stop = false;
    std::vector<std::thread> m_threads;
};

void TCustomTask::WaitForWorkers()
{
    if (m_pipeline)
        m_pipeline->FinishAll();
}

int TCustomTask::Run()
{
    StartRun();
    // One worker is the running thread itself. A few entries ahead of the
    // workers, no more: the messages of a large run are not all held at once.
    const int workers = RunsInParallel() ? Workers() : 1;
    const size_t ahead = size_t(workers) * 3;
    TPipeline pipeline(*this, workers > 1 ? workers : 0);
    m_pipeline = &pipeline;
    const int total = int(m_entries.size());
    for (int i = 0; i < total && !m_cancel; ++i) {
        pipeline.FinishFront(false);
        if (pipeline.Size() >= ahead)
            pipeline.FinishFront(true);
        if (m_cancel)
            break;
        TTaskEntry& entry = m_entries[size_t(i)];
        if (OnProgress)
            OnProgress({i, total, {}});
        std::unique_ptr<TTaskJob> job;
        const int result = Guarded(entry, [&] { return PrepareEntry(entry, job); });
        if (result == trCancelled)
            m_cancel = true;
        pipeline.Add(entry, std::move(job), result);
    }
    pipeline.FinishAll();
    m_pipeline = nullptr;
    FinishRun();
    // Durable once, at the end, rather than one sync per file.
    if (!m_writtenFolders.isEmpty() && !platform::SyncFolders(m_writtenFolders.values()))
        AddLog(0, QCoreApplication::translate("TCustomTask", "Can not flush the written files to disk"));
    return m_failed;
}

bool TCustomTask::Exists(const QString& path) const
{
    return m_reserved.contains(path) || QFileInfo::exists(path);
}

QString TCustomTask::RenamedPath(const QString& path, const std::function<bool(const QString&)>& taken)
{
    const QFileInfo info(path);
    const QString base = info.completeBaseName();
    const QString extension = info.suffix().isEmpty() ? QString() : QLatin1Char('.') + info.suffix();
    for (int n = 1;; ++n) {
        const QString suffix = QStringLiteral(" (%1)").arg(n) + extension;
        const QString candidate = info.dir().filePath(LimitNameBytes(base, MaxNameBytes - Utf8Length(suffix)) + suffix);
        if (!QFileInfo::exists(candidate) && !(taken && taken(candidate)))
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

int TCustomTask::CommitOutput(platform::TStagedFile& file, QString& path, QString& error, bool replace)
{
    const TCheckFileMode mode = m_modeForAll ? m_allMode : m_customProperties.CheckFileMode;
    // Taken meanwhile by another writer: skipped when names taken are
    // skipped, otherwise the next free name.
    const auto next = [mode](const QString& taken) { return mode == cfmSkip ? QString() : RenamedPath(taken); };
    switch (file.Commit(path, next, replace)) {
    case platform::lrLinked: {
        std::lock_guard lock(m_writtenLock);
        m_writtenFolders.insert(QFileInfo(path).path());
        return trOK;
    }
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
    if (!Exists(path))
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
        // The next name free on disk and among the names not yet written.
        path = RenamedPath(path, [this](const QString& name) { return m_reserved.contains(name); });
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
