#pragma once

// One export run over messages: for each, obtain it, filter it, name and
// check its output, convert it through the writer's context, commit it and
// save its attachments beside it. Writers derive and supply the context,
// the conversion and the commit.

#include "tasks/CustomTask.h"
#include "tasks/ResumeManifest.h"

#include <QHash>
#include <QMap>
#include <QMutex>
#include <QSet>
#include <functional>
#include <map>

namespace tessaly::tasks {

// Raised for a programming error that must stop the run.
class EAssertion : public core::ETessalyError {
public:
    using ETessalyError::ETessalyError;
};

// The attachment file names issued in this process. Names compare without
// regard to case, so that the files stay apart on every file system.
class TAttachFileNames {
public:
    explicit TAttachFileNames(QChar separator) : m_separator(separator) {}
    // The process-wide register; created by the first holder with its
    // separator ("~", or "-" for SharePoint names), gone with the last.
    static std::shared_ptr<TAttachFileNames> Acquire(bool sharepoint);
    QChar Separator() const { return m_separator; }
    // The path itself when free, else the base name shortened by the
    // length of "~k" followed by "~k"; files already on disk count as taken,
    // and those taken says are.
    QString GetUnique(const QString& path, const std::function<bool(const QString&)>& taken = {});

private:
    bool Taken(const QString& path, const std::function<bool(const QString&)>& taken) const;
    QChar m_separator;
    QSet<QString> m_names;
    mutable QMutex m_lock;
};

// The files written for the attachments of a task's outputs.
class TMailAttachFiles {
public:
    void Add(const QString& file) { m_files << file; }
    QString GetFile(int index) const { return m_files.value(index); }
    int Count() const { return int(m_files.size()); }
    void Clear() { m_files.clear(); }

private:
    QStringList m_files;
};

class TMailTask;

// Links each running task to its attachment files and combine list.
class TMailContextManager {
public:
    static TMailContextManager& Instance();
    void Register(TMailTask* task);
    void Unregister(TMailTask* task);
    TMailAttachFiles* AttachFiles(const TMailTask* task);
    TMailCombineList* CombineList(const TMailTask* task);
    int Count() const;

private:
    struct TTaskData {
        TMailAttachFiles Files;
        TMailCombineList Combine;
    };
    mutable QMutex m_lock;
    QHash<const TMailTask*, std::shared_ptr<TTaskData>> m_tasks;
};

// The state of one output file of a writer.
class TMailContext {
public:
    virtual ~TMailContext() = default;
    TTaskEntry* Entry = nullptr; // the entry being converted into it
    bool Replace = false;        // the user chose to replace the file there
    bool Combined = false;       // many messages go into it
    // The files the message's attachments are saved to beside it, in the
    // order of its attachments; empty when they are not saved.
    QStringList AttachTargets;
};

class TMailJob;

// The document writer's format number of an output format; EAssertion for
// a format it does not write.
int ConvertTypeToOutputFormat(TMailConvertType type, const TAttachOptions& attach);

// The date of a log entry: empty for no date, " UTC" appended with utc.
QString LogDateText(mail::TDateTime date, bool utc);
// The detailed log entry of one converted message.
QString DetailLogEntry(const mail::IMailMessage& message, int number, const QString& destination, bool attached,
    bool utc);

class TMailTask : public TCustomTask {
public:
    explicit TMailTask(TMailProperties& properties);
    ~TMailTask() override;

    TMailProperties& Properties() { return m_properties; }
    const TMailProperties& Properties() const { return m_properties; }
    const std::shared_ptr<TAttachFileNames>& AttachFileNames() const { return m_fileNames; }
    // The running number of the next output.
    int RunningNumber() const { return m_number; }

    // Names the source of an error: a message inside a store is written to a
    // new "mail???.eml" in the user's private temporary folder (mode 0700,
    // the file 0600), and that file is named.
    QString GetExceptionSource(const TTaskEntry& entry);

    // The record of completed outputs this run keeps (and, resuming, reads):
    // messages it holds as complete are counted, not converted again.
    void SetManifest(std::shared_ptr<TResumeManifest> manifest) { m_manifest = std::move(manifest); }
    int Resumed() const { return m_resumed; }

    // The format an item is written in: the run's, or, for a contact (a
    // calendar folder's meeting or appointment) in a run of a mail format
    // that cannot hold one, vCard (iCalendar), unless the options keep every
    // item in the run's format.
    TMailConvertType ItemFormat(const TTaskEntry& entry, const mail::IMailMessage& message) const;
    // Items written in a format of their kind instead of the run's, by format.
    const QMap<TMailConvertType, int>& WrittenByKind() const { return m_byKind; }

    // Begins a combined output; EndCombine commits every combined output
    // begun and reports whether all were committed.
    void StartCombine(const QString& path);
    bool EndCombine();

protected:
    virtual std::unique_ptr<TMailContext> CreateContext() = 0;
    // 0 on success.
    virtual int ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString& path) = 0;
    // Writes the output to path through CommitOutput; path holds the name
    // the file got (another when the name was taken meanwhile). Called from
    // workers when the writer runs in parallel.
    virtual int Commit(TMailContext& context, QString& path) = 0;
    int PrepareEntry(TTaskEntry& entry, std::unique_ptr<TTaskJob>& job) override;
    int FinishEntry(TTaskEntry& entry, TTaskJob* job, int result) override;
    // Messages convert at once into outputs of their own, not into one,
    // unless the writer converts each apart before adding it.
    bool RunsInParallel() const override { return (!m_properties.CombineFiles && m_combined.empty()) || ConvertsApart(); }
    // A writer that combines messages in run order may convert each one
    // apart (on a worker) into a part that is then added to the combined
    // output, in order, on the run's thread.
    virtual bool ConvertsApart() const { return false; }
    virtual QByteArray ConvertPart(const mail::IMailMessage&) { return {}; }
    // Adds a part to the combined output at path; 0 on success, else the
    // reason in entry.
    virtual int AppendPart(TMailContext&, const QByteArray&, const QString&, TTaskEntry&) { return trError; }
    void StartRun() override;
    void FinishRun() override;
    // The folder outputs go below: the destination, or the folder of the
    // file it names.
    QString DestinationFolder() const;
    // The folder of an entry's output; ownFile: a file of its own although
    // the run's format combines.
    QString OutputFolder(const TTaskEntry& entry, bool ownFile = false) const;
    // Writes bytes to path through CommitOutput; the reason of a failure
    // goes to the context's entry.
    int WriteOutput(TMailContext& context, QString& path, const QByteArray& bytes);
    // A combined output of that many messages that could not be linked in
    // (result, error): the messages counted as written are lost with it and
    // count as failed; the log says why.
    void CombinedLost(const QString& path, int result, const QString& error, int messages);
    // The combined output an entry goes into, given the path its own output
    // would have: that path, unless the writer combines otherwise.
    virtual QString CombinedOutput(const TTaskEntry& entry, const QString& path) const;

private:
    friend class TMailJob;
    // The files of the attachments saved beside the output, named in entry
    // order.
    void NameAttachments(TMailJob& job, const mail::IMailMessage& message);
    // Converts and commits the message, saves its attachments (a worker).
    int Execute(TMailJob& job);

    TMailProperties& m_properties;
    std::shared_ptr<TAttachFileNames> m_fileNames;
    // The combined outputs begun, by path, committed in path order.
    std::map<QString, std::unique_ptr<TMailContext>> m_combined;
    QHash<QString, QString> m_combinedNames; // the path asked for, the path begun
    int m_number = 1;
    int m_lastNumber = 0;
    QMap<TMailConvertType, int> m_byKind;
    std::shared_ptr<TResumeManifest> m_manifest;
    int m_resumed = 0;
};

} // namespace tessaly::tasks
