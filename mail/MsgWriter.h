#pragma once

// The MSG writer: a message as an Outlook .msg file ([MS-OXMSG]), an OLE
// compound file built through libgsf from the property model the data-file
// writer also stores (mail/MsgModel.h).

#include "core/Exceptions.h"
#include "mail/MailMsgIntf.h"
#include "mail/MsgModel.h"
#include "pstfile/PSTWriter.h"

#include <QByteArray>
#include <QString>
#include <memory>

namespace tessaly::mail {

class EMsgWriteError : public core::ETessalyError {
public:
    using ETessalyError::ETessalyError;
};

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
