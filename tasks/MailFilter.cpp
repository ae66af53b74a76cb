#include "tasks/MailFilter.h"

#include <QLocale>
#include <QStringList>

namespace tessaly::tasks {

namespace {

const char* AttachmentsWord(TMailFilterAttachments value)
{
    switch (value) {
    case mfaInclude: return "include";
    case mfaExclude: return "exclude";
    default: return "all";
    }
}

} // namespace

bool TMailFilter::Contains(const QString& text, const QString& criterion)
{
    const QLocale locale;
    return locale.toUpper(text).contains(locale.toUpper(criterion));
}

bool TMailFilter::Allow(const mail::IMailMessage& message) const
{
    if (!Enabled)
        return true;
    if (!Sender.isEmpty()) {
        const auto sender = message.Sender();
        if (!Contains(sender ? sender->Caption() : QString(), Sender))
            return false;
    }
    if (!Recipient.isEmpty()) {
        bool found = false;
        for (auto kind : {mail::mrtTo, mail::mrtCC, mail::mrtBCC}) {
            const auto list = message.Recipients(kind);
            if (!list)
                continue;
            for (const auto& recipient : *list) {
                if (recipient && Contains(recipient->Caption(), Recipient)) {
                    found = true;
                    break;
                }
            }
            if (found)
                break;
        }
        if (!found)
            return false;
    }
    if (!Subject.isEmpty() && !Contains(message.Subject(), Subject))
        return false;
    // The plain-text body first, then the HTML one.
    if (!Body.isEmpty() && !Contains(message.Body(mail::mbtText), Body) && !Contains(message.Body(mail::mbtHTML), Body))
        return false;
    if (Attachments != mfaAll) {
        const auto attaches = message.Attaches();
        const bool has = attaches && attaches->Count() > 0;
        if (has != (Attachments == mfaInclude))
            return false;
    }
    return true;
}

bool TMailFilter::AcceptRecord(const mail::TMailMsgInfo& record) const
{
    if (!Enabled)
        return true;
    if (!Sender.isEmpty() && !Contains(record.Str(mail::mifSender), Sender))
        return false;
    if (!Recipient.isEmpty()) {
        const QString recipients = record.Str(mail::mifRecipientTo) + QLatin1Char('\n') + record.Str(mail::mifRecipientCC)
            + QLatin1Char('\n') + record.Str(mail::mifRecipientBCC);
        if (!Contains(recipients, Recipient))
            return false;
    }
    if (!Subject.isEmpty() && !Contains(record.Str(mail::mifSubject), Subject))
        return false;
    if (!Body.isEmpty() && !Contains(record.Str(mail::mifBody), Body))
        return false;
    if (Attachments != mfaAll && record.Value(mail::mifAttaches).toBool() != (Attachments == mfaInclude))
        return false;
    return true;
}

QString TMailFilter::Cmd() const
{
    if (!Enabled)
        return {};
    QStringList parts;
    const std::pair<const char*, const QString*> texts[] = {
        {"sender", &Sender}, {"rcpt", &Recipient}, {"subject", &Subject}, {"body", &Body}};
    for (const auto& [key, value] : texts)
        if (!value->isEmpty())
            parts << QLatin1String(key) + QLatin1Char('=') + *value;
    if (Attachments != mfaAll)
        parts << QStringLiteral("attach=") + QLatin1String(AttachmentsWord(Attachments));
    return parts.join(QLatin1Char(','));
}

void TMailFilter::SetCmd(const QString& value)
{
    const QString text = value.trimmed();
    Enabled = !text.isEmpty();
    if (text.isEmpty())
        return;
    for (const QString& piece : text.split(QLatin1Char(','))) {
        const qsizetype eq = piece.indexOf(QLatin1Char('='));
        if (eq < 0)
            continue;
        const QString key = piece.left(eq).trimmed().toLower();
        const QString val = piece.mid(eq + 1);
        if (key == QLatin1String("sender"))
            Sender = val;
        else if (key == QLatin1String("rcpt"))
            Recipient = val;
        else if (key == QLatin1String("subject"))
            Subject = val;
        else if (key == QLatin1String("body"))
            Body = val;
        else if (key == QLatin1String("attach")) {
            for (auto option : {mfaAll, mfaInclude, mfaExclude})
                if (val.trimmed().compare(QLatin1String(AttachmentsWord(option)), Qt::CaseInsensitive) == 0)
                    Attachments = option;
        }
    }
}

} // namespace tessaly::tasks
