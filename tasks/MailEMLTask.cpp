#include "tasks/MailEMLTask.h"

#include "platform/StagedFile.h"

#include <QCoreApplication>

namespace tessaly::tasks {

// --- the writer -----------------------------------------------------------------------

TMailEMLTask::TMailEMLTask(TMailProperties& properties) : TMailTask(properties) {}

std::unique_ptr<TMailContext> TMailEMLTask::CreateContext()
{
    return std::make_unique<TContext>();
}

int TMailEMLTask::ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString&)
{
    mail::TAttachNameGenerator names; // nameless attachments from "Attach 1" on
    static_cast<TContext&>(context).Items.push_back(std::make_unique<TMailInfo>(message, names));
    return trOK;
}

int TMailEMLTask::Commit(TMailContext& context, QString& path)
{
    auto& items = static_cast<TContext&>(context).Items;
    if (items.empty())
        return trSkipped;
    // Written beside the target and linked in when complete: a cancelled or
    // failed run leaves no half-written file, and no file is replaced.
    platform::TStagedFile file(path);
    QString error = file.ErrorString();
    int result = trError;
    if (file.IsOpen()) {
        if (items.front()->SaveToStream(file.Device()))
            result = CommitOutput(file, path, error, context.Replace);
        else
            error = QCoreApplication::translate("TMailEMLTask", "Can not write %1: %2").arg(path, qt_error_string());
    }
    if (result == trError && context.Entry)
        context.Entry->Error = error;
    return result;
}

} // namespace tessaly::tasks
