#pragma once

// The MSG writer: a message as an Outlook .msg file ([MS-OXMSG]), an OLE
// compound file built through libgsf. The message is first put into the
// property model the data-file writer also stores (pstfile::TPSTMessage):
// property bags for the message, its recipients and attachments, attached
// messages as nested models, named properties by set and LID.

#include "core/Exceptions.h"
#include "mail/MailMsgIntf.h"
#include "pstfile/PSTWriter.h"

#include <QByteArray>
#include <QString>
#include <memory>

namespace tessaly::mail {

class EMsgWriteError : public core::ETessalyError {
public:
    using ETessalyError::ETessalyError;
};

// Attached messages deeper than this are written as plain attachments of
// what their source gives as data.
constexpr int MaxMsgEmbeddingDepth = 8;

// A message of the message interfaces as the property model: class,
// subject, sender, recipients (To, CC, BCC) and the display lists, dates,
// transport headers and message id, the bodies (HTML in its page's charset,
// RTF compressed), attachments and attached messages, meeting and contact
// fields. Attachments without a name are named "Attach N".
std::shared_ptr<pstfile::TPSTMessage> ToMsgModel(const IMailMessage& message, int depth = 0);

// An 8.3 name for an attachment ("REPORT~1.PDF"): letters and digits of the
// long name, upper case.
QString ShortAttachName(const QString& longName);

class TMsgWriter {
public:
    explicit TMsgWriter(std::shared_ptr<const pstfile::TPSTMessage> model);
    explicit TMsgWriter(const IMailMessage& message);

    // The .msg file's bytes. Throws EMsgWriteError when the compound file
    // cannot be built (a value too large for it).
    QByteArray SaveToBytes() const;
    // Written beside `fileName` and linked in when complete; with `replace`
    // a file of that name is replaced, otherwise a taken name fails. False
    // with the reason in `error` when nothing was written.
    bool SaveToFile(const QString& fileName, bool replace, QString* error = nullptr, bool privateToUser = false) const;

private:
    std::shared_ptr<const pstfile::TPSTMessage> m_model;
};

} // namespace tessaly::mail
