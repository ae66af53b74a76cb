#pragma once

// vCard files (.vcf, versions 2.1, 3.0 and 4.0) read as contacts.

#include "mail/MailContact.h"
#include "mail/MailMsgIntf.h"

#include <QByteArray>
#include <array>

namespace tessaly::mail {

class TVCardContact : public IMailMessage, public IMailContact {
public:
    // The first card in the data; a file without one gives an empty contact.
    explicit TVCardContact(const QByteArray& data);

    // A stored field (TContactField).
    QVariant Value(int field) const { return field >= 0 && field < cfCount ? m_fields[size_t(field)] : QVariant(); }

    std::shared_ptr<IMailRecipient> Sender() const override { return nullptr; }
    QString SenderIP() const override { return {}; }
    QString Subject() const override { return Value(cfDisplayName).toString(); }
    std::shared_ptr<IMailRecipientList> Recipients(TMailRecipientType) const override { return nullptr; }
    QString Body(TMailBodyType kind) const override { return kind == mbtText ? Value(cfNotes).toString() : QString(); }
    TDateTime Date(TMailDateType) const override { return 0; }
    QString Headers() const override { return {}; }
    std::shared_ptr<IMailAttachList> Attaches() const override { return nullptr; }
    QVariant GetField(int field) const override;

private:
    std::array<QVariant, cfCount> m_fields;
    QVariant m_anniversary, m_gender; // mcfAnniversary, mcfGender
};

// Content lines as vCards and iCalendar write them: a text value with
// backslash, comma, semicolon and line ends escaped and other control
// characters but the tab left out; a line folded at 75 bytes (between
// characters) and ended by CRLF.
QString ContentLineText(QString value);
QByteArray FoldedContentLine(const QString& line);

// A contact as a vCard: name, organisation, e-mail addresses, phones,
// addresses, birthday, web page, notes and the picture; values escaped,
// lines folded at 75 bytes, CRLF line ends, UTF-8. Version 4 writes vCard
// 4.0 (RFC 6350: KIND, lower-case types, global numbers as tel: URIs, the
// picture as a data: URI, basic dates, anniversary and gender); any other
// version writes vCard 3.0 (RFC 2426).
QByteArray ContactToVCard(const IMailContact& contact, int version = 3);

} // namespace tessaly::mail
