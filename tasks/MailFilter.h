#pragma once

#include "mail/MailInfo.h"
#include "mail/MailMsgIntf.h"

#include <QString>

namespace tessaly::tasks {

enum TMailFilterAttachments { mfaAll, mfaInclude, mfaExclude };

// Decides which messages an export converts. Text criteria match when the
// message's text contains them, upper-cased with the user's locale rules.
class TMailFilter {
public:
    QString Sender;
    QString Recipient;
    QString Subject;
    QString Body;
    TMailFilterAttachments Attachments = mfaAll;
    bool Enabled = false;

    // A disabled filter lets every message pass.
    bool Allow(const mail::IMailMessage& message) const;
    // The same test on the values of a list row.
    bool AcceptRecord(const mail::TMailMsgInfo& record) const;

    // The whole filter as "sender=..,rcpt=..,subject=..,body=..,attach=..";
    // empty when disabled.
    QString Cmd() const;
    void SetCmd(const QString& value);

private:
    static bool Contains(const QString& text, const QString& criterion);
};

} // namespace tessaly::tasks
