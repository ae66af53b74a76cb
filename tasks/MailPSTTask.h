#pragma once

// The data file writer: every message of a run goes into one new personal
// folders file, below the source's folder names when the structure is kept.

#include "platform/StagedFile.h"
#include "pstfile/PSTWriter.h"
#include "tasks/MailTask.h"

namespace tessaly::tasks {

// A message of any source as the data file writer stores it. Items of a
// data file give their message class, address records and every contact
// field; other sources what the message interfaces offer.
std::shared_ptr<pstfile::TPSTMessage> ToPSTMessage(const mail::IMailMessage& message, int depth = 0);

class TMailPSTTask : public TMailTask {
public:
    explicit TMailPSTTask(TMailProperties& properties);

    class TContext : public TMailContext {
    public:
        explicit TContext(const QString& destination);
        // The temporary beside the destination that the writer fills.
        std::unique_ptr<platform::TStagedFile> File;
        std::unique_ptr<pstfile::TPSTWriter> Writer;
    };

    std::unique_ptr<TMailContext> CreateContext() override;
    int ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString& path) override;
    // 2 and no file when nothing was converted; else the data file is
    // linked in at path (the run's destination, checked once at its start),
    // replacing a file there only when the user chose to overwrite it.
    int Commit(TMailContext& context, QString& path) override;

protected:
    void StartRun() override;
    // Every message goes into the one data file.
    QString CombinedOutput(const TTaskEntry&, const QString&) const override { return m_output; }

private:
    uint32_t TargetFolder(pstfile::TPSTWriter& writer, const mail::IMailMessage& message, const QString& messageClass,
        const TTaskEntry* entry);
    QString m_output;
};

} // namespace tessaly::tasks
