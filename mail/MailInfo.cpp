#include "mail/MailInfo.h"

#include "mail/MailMsgObj.h"

#include <QStringList>

namespace tessaly::mail {

TDateTime TMailMsgInfo::DateOf(TMailInfo field) const
{
    return Message->Date(TMailDateType(field - mifDateClientSubmit));
}

std::shared_ptr<IMailAttachList> TMailMsgInfo::NonEmptyAttaches() const
{
    auto attaches = Message->Attaches();
    return attaches && attaches->Count() > 0 ? attaches : nullptr;
}

QVariant TMailMsgInfo::Value(TMailInfo field) const
{
    if (!Message)
        return {};
    switch (field) {
    case mifSender: {
        const auto sender = Message->Sender();
        return sender ? QVariant(sender->Caption()) : QVariant();
    }
    case mifSubject: return Message->Subject();
    case mifRecipientTo: return JoinCaptions(Message->Recipients(mrtTo));
    case mifRecipientCC: return JoinCaptions(Message->Recipients(mrtCC));
    case mifRecipientBCC: return JoinCaptions(Message->Recipients(mrtBCC));
    case mifDateClientSubmit:
    case mifDateDelivery:
    case mifDateCreation:
    case mifDateModification: {
        const TDateTime date = DateOf(field);
        return date > 0 ? core::DateTimeToQDateTime(date) : QDateTime();
    }
    case mifAttaches: return NonEmptyAttaches() != nullptr;
    case mifPriority: return 0;
    case mifHeaders: return Message->Headers();
    case mifBody: return Message->Body(mbtText);
    }
    return {};
}

QString TMailMsgInfo::Str(TMailInfo field) const
{
    if (!Message)
        return {};
    switch (field) {
    case mifDateClientSubmit:
    case mifDateDelivery:
    case mifDateCreation:
    case mifDateModification: return core::FormatDateTime(DateOf(field));
    case mifAttaches: {
        const auto attaches = NonEmptyAttaches();
        if (!attaches)
            return {};
        if (!InDetail)
            return QStringLiteral("W");
        QStringList names;
        for (const auto& attach : *attaches)
            names << (attach ? attach->FileName() : QString());
        return names.join(QLatin1Char(','));
    }
    case mifPriority: return {};
    default: return Value(field).toString();
    }
}

} // namespace tessaly::mail
