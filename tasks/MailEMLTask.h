#pragma once

// The EML writer: one internet message (RFC 5322, MIME) per output file,
// built by the MIME writer.

#include "mail/MimeWriter.h"
#include "tasks/MailTask.h"

#include <memory>
#include <vector>

namespace tessaly::tasks {

// The summary of one message as an internet message, built by the MIME
// writer; the writer's context holds one per message.
using TMailInfo = mail::TMimeMessage;

class TMailEMLTask : public TMailTask {
public:
    explicit TMailEMLTask(TMailProperties& properties);

    class TContext : public TMailContext {
    public:
        std::vector<std::unique_ptr<TMailInfo>> Items;
    };

    std::unique_ptr<TMailContext> CreateContext() override;
    int ConvertMail(TMailContext& context, const mail::IMailMessage& message, const QString& path) override;
    // 2 and no file when nothing was converted; else the first message of
    // the context replaces the file.
    int Commit(TMailContext& context, QString& path) override;
};

} // namespace tessaly::tasks
