#pragma once

// The generic conversion task: walks its source entries, reports progress,
// can be cancelled from another thread, counts the results and keeps the
// log; the destination check asks, overwrites, renames, skips or cancels.
//
// Each entry is prepared in turn on the thread that runs the task (read,
// filtered, named, checked), its conversion may then run on one of a pool
// of workers, and its result is counted and logged in entry order again:
// names, counts and the log come out as in a run with one worker.

#include "mail/MailMsgIntf.h"
#include "tasks/MailProperties.h"

#include <QSet>
#include <QStringList>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace tessaly::platform {
class TStagedFile;
}

namespace tessaly::tasks {

// Results of one entry.
enum TTaskResult {
    trOK = 0,
    trError = 1,
    trSkipped = 2,    // skipped by the filter
    trExists = 3,     // the destination existed and was skipped
    trCancelled = 4,
};

// One source message of a run.
struct TTaskEntry {
    QString Source;        // the file the message belongs to
    bool InStore = false;  // a message inside a data file, not a file of its own
    QStringList Folders;   // folder names from the top of its source
    QString Group;         // the sub-folder of the destination for its source, in a run of several
    QString FolderClass;   // the container class of its folder, when known
    int Index = 0;         // position in the run, from 0
    std::function<std::shared_ptr<mail::IMailMessage>()> Load;
    std::shared_ptr<mail::IMailMessage> Mail;
    int Result = -1;
    QString Output;        // the file written
    QString Error;
    bool InvalidSource = false; // the source is no message or a damaged one
};

// The part of an entry's work that may run on a worker thread.
class TTaskJob {
public:
    virtual ~TTaskJob() = default;
    // The entry's result (trOK, trError...).
    virtual int Execute() = 0;
};

struct TTaskProgress {
    int Done = 0;
    int Total = 0;
    QString Current; // subject of the message being converted
};

class TCustomTask {
public:
    explicit TCustomTask(TCustomProperties& properties);
    virtual ~TCustomTask();
    TCustomTask(const TCustomTask&) = delete;
    TCustomTask& operator=(const TCustomTask&) = delete;

    void AddEntry(TTaskEntry entry);
    std::vector<TTaskEntry>& Entries() { return m_entries; }

    // Converts every entry; the number of entries that failed.
    int Run();
    // Safe from any thread; the run stops before its next entry.
    void Cancel() { m_cancel = true; }
    bool Cancelled() const { return m_cancel; }

    // Workers that convert entries at once; 0 (the default) for as many as
    // the machine has cores, 1 for every entry in turn on the running thread.
    void SetWorkers(int count) { m_workers = count; }
    int Workers() const;

    int Written() const { return m_written; }
    int Filtered() const { return m_filtered; }
    int Failed() const { return m_failed; }
    int Existing() const { return m_existing; }

    // Called before and after each entry (from the thread that runs).
    std::function<void(const TTaskProgress&)> OnProgress;
    // The user's answer for an existing destination when the mode is "ask"
    // (forAll: the same answer for the rest of the run); without it an
    // existing file is renamed, never replaced.
    std::function<TCheckFileMode(const QString& path, bool& forAll)> AskFileMode;
    // Messages for the user (a message that cannot be converted, say).
    std::function<void(const QString&)> ShowMessage;

    // Destination check of one output path: 0 to go on (path may have been
    // renamed), trExists to skip, trCancelled to stop the run.
    int CheckDestination(QString& path);
    // A free name beside path: "name (1).ext", "name (2).ext"... (one not
    // on disk, nor taken when that is given).
    static QString RenamedPath(const QString& path, const std::function<bool(const QString&)>& taken = {});
    // Whether the last check chose to replace the existing file at path.
    bool Replaces(const QString& path) const { return !m_overwrite.isEmpty() && m_overwrite == path; }

    // Outputs named but not yet written: they count as existing files for
    // the names of later entries (running thread only).
    void Reserve(const QString& path) { m_reserved.insert(path); }
    void Release(const QString& path) { m_reserved.remove(path); }
    bool Reserved(const QString& path) const { return m_reserved.contains(path); }
    // On disk, or reserved.
    bool Exists(const QString& path) const;

    // Before writing into a folder: it is made when missing, and the
    // temporaries a crashed run left there are removed (once per folder and
    // run). False when it cannot be made.
    bool PrepareFolder(const QString& folder);
    // Links a finished output in under path, or under the next free name
    // when another file took it meanwhile; only a file the user chose to
    // overwrite is replaced. trOK (path holds the name given), trExists when
    // such names are skipped, trError with the reason in error.
    // Safe from workers.
    int CommitOutput(platform::TStagedFile& file, QString& path, QString& error, bool replace);

    // The log: kind 0 error, 1 detail (kept only when the log is detailed).
    void AddLog(int kind, const QString& text);
    bool LogsDetail() const { return m_customProperties.LogVerbosity == lvDetail; }
    const QStringList& Log() const { return m_log; }

protected:
    // Entries counted as written whose output was lost after all (a combined
    // file that could not be committed) are counted as failed.
    void RecountAsFailed(int count);
    // On the running thread, in entry order: the entry's result, and the
    // job that finishes it when that result is trOK.
    virtual int PrepareEntry(TTaskEntry& entry, std::unique_ptr<TTaskJob>& job) = 0;
    // On the running thread, in entry order, after the job ran: the result
    // to count.
    virtual int FinishEntry(TTaskEntry& entry, TTaskJob* job, int result)
    {
        (void)entry;
        (void)job;
        return result;
    }
    // Whether jobs of different entries may run at once (not when every
    // entry goes into one output).
    virtual bool RunsInParallel() const { return false; }
    // Within PrepareEntry: waits until the entries before it are finished and
    // counted.
    void WaitForWorkers();
    virtual void StartRun() {}
    virtual void FinishRun() {}
    TCustomProperties& m_customProperties;

private:
    class TPipeline;
    // A step of an entry with its errors caught: trError and the reason in
    // the entry when it throws.
    static int Guarded(TTaskEntry& entry, const std::function<int()>& step);
    // Counts and logs the result of an entry whose job ran.
    void Account(TTaskEntry& entry, TTaskJob* job, int result);

    std::vector<TTaskEntry> m_entries;
    int m_workers = 0;
    TPipeline* m_pipeline = nullptr;
    std::atomic<bool> m_cancel {false};
    int m_written = 0, m_filtered = 0, m_failed = 0, m_existing = 0;
    bool m_modeForAll = false;
    TCheckFileMode m_allMode = cfmAsk;
    QString m_overwrite; // the existing file the user chose to overwrite
    QSet<QString> m_preparedFolders;
    QSet<QString> m_reserved;
    std::mutex m_writtenLock;
    QSet<QString> m_writtenFolders; // synced once at the end of the run
    QStringList m_log;
};

} // namespace tessaly::tasks
