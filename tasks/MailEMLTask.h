#pragma once

// The EML writer: one internet message (RFC 5322, MIME) per output file,
// built through GMime.

#include "mail/MimeHandle.h"
#include "tasks/MailTask.h"

#include <QIODevice>
#include <memory>
#include <vector>

namespace tessaly::tasks {

class TMailTask;

// One attachment as the MIME builder asks for it.
class TAttachInfo {
public:
    explicit TAttachInfo(std::shared_ptr<mail::IMailAttach> attach) : m_attach(std::move(attach)) {}
    QByteArray Data() const;
    const std::shared_ptr<mail::IMailAttach>& Attach() const { return m_attach; }

private:
    std::shared_ptr<mail::IMailAttach> m_attach;
};

// The summary of one message as an internet message.
class TMailInfo {
public:
    TMailInfo(TMailTask& task, const mail::IMailMessage& message, int depth = 0);
    ~TMailInfo();

    // Lines with CR LF ends.
    void SaveToStream(QIODevice& stream) const;
    QByteArray SaveToBytes() const;
    // The data of an attachment by its part name; empty for an unknown name.
    QByteArray AttachData(const QString& partName) const;
    const QStringList& PartNames() const { return m_partNames; }
    // Whether the HTML body's pictures went into a multipart/related part.
    bool HasRelated() const { return m_related; }
    GMimeMessage* Mime() const { return m_mime.get(); }
    // Hands the MIME message over (for an attached message).
    mail::TGPtr<GMimeMessage> TakeMime() { return std::move(m_mime); }

private:
    mail::TGPtr<GMimeMessage> m_mime;
    QStringList m_partNames;
    std::unordered_map<std::string, std::unique_ptr<TAttachInfo>> m_attaches;
    bool m_related = false;
};

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
