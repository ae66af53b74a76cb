#pragma once

#include "mail/MailMsgIntf.h"

#include <QVariant>

namespace tessaly::mail {

enum TMailInfo {
    mifSender,
    mifSubject,
    mifRecipientTo,
    mifRecipientCC,
    mifRecipientBCC,
    mifDateClientSubmit,
    mifDateDelivery,
    mifDateCreation,
    mifDateModification,
    mifAttaches,
    mifPriority,
    mifHeaders,
    mifBody,
};

// A message's fields as values (for sorting and filtering) and as display
// texts (for lists and reports).
class TMailMsgInfo {
public:
    TMailMsgInfo() = default;
    explicit TMailMsgInfo(std::shared_ptr<IMailMessage> message, bool inDetail = false)
        : Message(std::move(message)), InDetail(inDetail)
    {
    }

    // Null without a message. Dates are QDateTime values (invalid for a date
    // the message does not hold), mifAttaches a bool, mifPriority always 0.
    QVariant Value(TMailInfo field) const;
    // Dates in the user's locale format, empty when not set; mifAttaches is
    // "W" (or, with InDetail, the attachments' file names); mifPriority empty.
    QString Str(TMailInfo field) const;

    std::shared_ptr<IMailMessage> Message;
    bool InDetail = false;

private:
    TDateTime DateOf(TMailInfo field) const;
    std::shared_ptr<IMailAttachList> NonEmptyAttaches() const;
};

} // namespace tessaly::mail
