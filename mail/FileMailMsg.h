#pragma once

// The entry point for single message files: decides the format and yields
// the message.

#include "mail/MailMsgIntf.h"

#include <QIODevice>
#include <QString>

namespace tessaly::mail {

class TFileMailMsgRequest {
public:
    explicit TFileMailMsgRequest(const QString& fileName);
    // Reads the stream from its current position when the message is asked for.
    explicit TFileMailMsgRequest(QIODevice& stream);

    // Produced on first request. A compound file is read as .msg (a contact
    // as a contact); otherwise .eml, .msg, .emlx and .mim are internet
    // messages and .vcf a vCard. Throws EInvalidMailFormat "Can not determine
    // format of file " + name for any other file, "damaged message file" for
    // a compound file that cannot be read, "not a message file" for an empty
    // file, a compound file without a message and a message file that holds
    // no header fields; EFileReadError when the file cannot be read.
    std::shared_ptr<IMailMessage> Message();
    bool AttachesLoaded() const { return m_message != nullptr; }

private:
    std::shared_ptr<IMailMessage> FromBytes(const QByteArray& data, const QString& extension);

    QString m_fileName;
    QIODevice* m_stream = nullptr;
    std::shared_ptr<IMailMessage> m_message;
};

} // namespace tessaly::mail
