#include "mail/MailContact.h"

#include "pstfile/PropTags.h"

#include <QStringList>
#include <array>
#include <utility>

namespace tessaly::mail {

uint32_t ContactFieldTag(int field)
{
    namespace pid = pstfile::pid;
    static constexpr std::array<uint32_t, cfCount> Tags = {pid::DisplayName, pid::Subject, pid::Generation,
        pid::GivenName, pid::Initials, pid::Surname, pid::PostalAddress, pid::CompanyName, pid::Title,
        pid::DepartmentName, pid::OfficeLocation, pid::CallbackTelephone, pid::PrimaryTelephone, pid::HomeTelephone,
        pid::BusinessTelephone, pid::Business2Telephone, pid::MobileTelephone, pid::BusinessFax, pid::Country,
        pid::Locality, pid::DisplayNamePrefix, pid::Email1Address, pid::Email2Address, pid::Email3Address,
        pid::InstantMessagingAddress, pid::WorkAddress, pid::Birthday, pid::WebPage, 0, 0};
    return field >= 0 && field < cfCount ? Tags[size_t(field)] : 0;
}

int ContactFieldOfMessageField(int field)
{
    // Message field -> stored field; the first pair that matches counts.
    static constexpr std::pair<int, int> Pairs[] = {{0, 0}, {1, 7}, {2, 8}, {3, 1}, {5, 0}, {8, 17}, {9, 14},
        {11, 16}, {15, 9}, {16, 10}, {21, 20}, {27, 5}, {28, 6}, {7, 24}, {12, 25}, {24, 26}, {6, 27}, {10, 13},
        {13, 28}, {14, 28}, {29, 29}};
    for (const auto& [message, stored] : Pairs)
        if (message == field)
            return stored;
    return -1;
}

QString ComposeEMails(const QString& first, const QString& second, const QString& third)
{
    QString text = first;
    for (const QString& more : {second, third})
        if (!more.isEmpty())
            text += QLatin1Char(',') + more;
    if (text.startsWith(QLatin1Char(',')))
        text.remove(0, 1);
    return text;
}

QVariant ContactMessageField(int field, const std::function<QVariant(int)>& storedField)
{
    if (field == mcfEMails) {
        const QString emails = ComposeEMails(storedField(cfEmail1).toString(), storedField(cfEmail2).toString(),
            storedField(cfEmail3).toString());
        return emails.isEmpty() ? QVariant() : QVariant(emails);
    }
    const int stored = ContactFieldOfMessageField(field);
    return stored >= 0 ? storedField(stored) : QVariant();
}

} // namespace tessaly::mail
