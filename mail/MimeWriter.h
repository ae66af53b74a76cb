#pragma once

// The MIME writer: a message of the mail interface as an internet message
// (RFC 5322, MIME), built through GMime. The export's EML writer and the
// dump of a message that failed to export both write through it.

#include "mail/MailMsgIntf.h"
#include "mail/MimeHandle.h"

#include <QIODevice>
#include <QStringList>
#include <memory>
#include <string>
#include <unordered_map>

namespace tessaly::mail {

// Names for attachments without one: "Attach 1", "Attach 2"... with the
// extension of the content type. One generator serves one written file.
class TAttachNameGenerator {
public:
    QString GenerateAttachName(const IMailAttach& attach);
    void Clear() { m_counter = 0; }

private:
    int m_counter = 0;
};

// Whether an HTML body refers to an attachment (by content id or content
// location). The body is read once per message by the caller.
bool IsHTMLNeedImage(const QString& html, const IMailAttach& attach);

// One attachment as the MIME builder asks for it.
class TAttachInfo {
public:
    explicit TAttachInfo(std::shared_ptr<IMailAttach> attach) : m_attach(std::move(attach)) {}
    QByteArray Data() const;
    const std::shared_ptr<IMailAttach>& Attach() const { return m_attach; }

private:
    std::shared_ptr<IMailAttach> m_attach;
};

// One message as an internet message: text and HTML bodies in UTF-8, the
// pictures the HTML refers to beside it in multipart/related, attachments,
// attached messages as message/rfc822 (eight levels deep at most), the
// sender, recipients, date, subject and the identifying fields of the source.
class TMimeMessage {
public:
    // Nameless attachments are named by names (attached messages continue
    // its count).
    TMimeMessage(const IMailMessage& message, TAttachNameGenerator& names, int depth = 0);
    ~TMimeMessage();
    TMimeMessage(const TMimeMessage&) = delete;
    TMimeMessage& operator=(const TMimeMessage&) = delete;

    // Lines with CR LF ends; false when not every byte was written.
    bool SaveToStream(QIODevice& stream) const;
    // With lf, lines end in LF alone (as in mbox files).
    QByteArray SaveToBytes(bool lf = false) const;
    // The data of an attachment by its part name; empty for an unknown name.
    QByteArray AttachData(const QString& partName) const;
    const QStringList& PartNames() const { return m_partNames; }
    // Whether the HTML body's pictures went into a multipart/related part.
    bool HasRelated() const { return m_related; }
    GMimeMessage* Mime() const { return m_mime.get(); }
    // Hands the MIME message over (for an attached message).
    TGPtr<GMimeMessage> TakeMime() { return std::move(m_mime); }

private:
    TGPtr<GMimeMessage> m_mime;
    QStringList m_partNames;
    std::unordered_map<std::string, std::unique_ptr<TAttachInfo>> m_attaches;
    bool m_related = false;
};

} // namespace tessaly::mail
