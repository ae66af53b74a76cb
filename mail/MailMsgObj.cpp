#include "mail/MailMsgObj.h"

#include <QStringList>

namespace tessaly::mail {

QString MailRecipientCaption(const QString& name, const QString& address)
{
    if (name.isEmpty() || name.compare(address, Qt::CaseInsensitive) == 0)
        return address;
    if (address.isEmpty())
        return name;
    return QStringLiteral("%1 <%2>").arg(name, address);
}

QString JoinCaptions(const std::shared_ptr<IMailRecipientList>& list)
{
    if (!list)
        return {};
    QStringList captions;
    for (const auto& recipient : *list)
        captions << (recipient ? recipient->Caption() : QString());
    return captions.join(QLatin1Char(','));
}

QString TCustomMailRecipientList::Caption(int maxLen) const
{
    QString text;
    const int count = Count();
    int index = 0;
    for (;;) {
        if (maxLen != 0 && text.size() >= maxLen)
            break;
        if (index >= count)
            break;
        const auto recipient = GetRecipient(index);
        if (recipient)
            text += recipient->Caption();
        text += QLatin1Char(',');
        ++index;
    }
    if (index >= count)
        text.chop(1);
    else
        text += QLatin1String("...");
    return text;
}

std::shared_ptr<IMailRecipient> TMailRecipientArray::GetRecipient(int index) const
{
    if (index < 0 || index >= Count())
        return nullptr;
    return m_items[size_t(index)];
}

} // namespace tessaly::mail
