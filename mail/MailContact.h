#pragma once

// Contacts: the contact fields of a data file's or an .msg file's contact,
// and the field numbers a message-level contact offers.

#include <QString>
#include <QVariant>
#include <cstdint>
#include <functional>

namespace tessaly::mail {

// Contact fields as stored with a contact item, by number.
enum TContactField {
    cfDisplayName, cfSubject, cfGeneration, cfGivenName, cfInitials, cfSurname, cfPostalAddress, cfCompanyName,
    cfJobTitle, cfDepartment, cfOfficeLocation, cfCallbackPhone, cfPrimaryPhone, cfHomePhone, cfBusinessPhone,
    cfBusiness2Phone, cfMobilePhone, cfBusinessFax, cfCountry, cfLocality, cfDisplayNamePrefix, cfEmail1,
    cfEmail2, cfEmail3, cfInstantMessaging, cfBusinessAddress, cfBirthday, cfWebPage, cfNotes, cfPicture,
    cfCount
};

// The MAPI property of a stored field (0x8000 and up are named properties
// of the address set); 0 for the notes and the picture.
uint32_t ContactFieldTag(int field);

// Field numbers of a contact seen as a message (GetField).
enum TMailContactField {
    mcfFullName = 0, mcfCompany = 1, mcfJobTitle = 2, mcfSubject = 3, mcfEMails = 4, mcfFileAs = 5,
    mcfWebPage = 6, mcfInstantMessaging = 7, mcfBusinessFax = 8, mcfBusinessPhone = 9, mcfHomePhone = 10,
    mcfMobilePhone = 11, mcfBusinessAddress = 12, mcfNotes = 13, mcfBody = 14, mcfDepartment = 15,
    mcfOffice = 16, mcfTitle = 21, mcfBirthday = 24, mcfSurname = 27, mcfPostalAddress = 28, mcfPicture = 29,
    // Offered by contacts whose source has them, with no stored field behind
    // them: the wedding anniversary (a QDateTime, as the birthday) and the
    // gender as RFC 6350's sex letter ("M", "F", "O", "N" or "U").
    mcfAnniversary = 30, mcfGender = 31,
};

// The stored field behind a message-level field; -1 for none (and for
// mcfEMails, which is composed).
int ContactFieldOfMessageField(int field);

// The three e-mail addresses joined with "," and no empty entries.
QString ComposeEMails(const QString& first, const QString& second, const QString& third);

// A contact, whatever its source. Field values are strings, a QDateTime for
// the birthday and the bytes of the picture; invalid when empty.
class IMailContact {
public:
    virtual ~IMailContact() = default;
    virtual QVariant GetField(int field) const = 0;
};

// GetField over stored fields: the mapping above, and the composed e-mails.
QVariant ContactMessageField(int field, const std::function<QVariant(int)>& storedField);

} // namespace tessaly::mail
