#include "mail/MailContact.h"

#include <QStringList>
#include <array>
#include <utility>

namespace tessaly::mail {

uint32_t ContactFieldTag(int field)
{
    static constexpr std::array<uint32_t, cfCount> Tags = {0x3001, 0x0037, 0x3A05, 0x3A06, 0x3A0A, 0x3A11, 0x3A15,
        0x3A16, 0x3A17, 0x3A18, 0x3A19, 0x3A02, 0x3A1A, 0x3A09, 0x3A08, 0x3A1B, 0x3A1C, 0x3A24, 0x3A26, 0x3A27, 0x3A45,
        0x8083, 0x8093, 0x80A3, 0x8062, 0x801B, 0x80DE, 0x802B, 0, 0};
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
