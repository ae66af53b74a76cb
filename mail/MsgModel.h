#pragma once

// A message of the message interfaces as the property model both writers
// store (pstfile::TPSTMessage): property bags for the message, its
// recipients and attachments, attached messages as nested models, named
// properties by set and LID. The .msg writer takes the model as it is built
// here; the data-file writer keeps a few fields of its own and knows more of
// the items of data files.

#include "mail/MailMsgIntf.h"
#include "pstfile/PSTWriter.h"

#include <QString>
#include <QVariant>
#include <memory>
#include <utility>

namespace tessaly::mail {

class IMailContact;

// Attached messages deeper than this are written as plain attachments of
// what their source gives as data.
constexpr int MaxMsgEmbeddingDepth = 8;

// Builds the model: class, subject, sender, recipients, dates, transport
// headers, the bodies (HTML in its page's charset, the code page named only
// for UTF-8; RTF compressed), attachments and attached messages, meeting
// and contact fields. A writer that knows more of some sources overrides a
// step and falls back on this one for the rest.
class TMsgModelBuilder {
public:
    struct TOptions {
        // Recipients To, Cc and Bcc only; off, originator and unknown ones too.
        bool mailRecipientsOnly = true;
        // Display To, Cc and Bcc: the names of each kind joined with "; ".
        bool displayLists = true;
        // The first Message-ID of the transport headers.
        bool messageId = true;
        // The read and has-attachment flags and the rendering positions,
        // which the data-file writer sets itself.
        bool messageFlags = true;
        // Attachments without a name named "Attach N", an 8.3 name beside
        // the long one, the MIME type in lower case and the size of the data;
        // off, names, types and sizes as the source gives them.
        bool normalizedAttachments = true;
    };

    TMsgModelBuilder() = default;
    explicit TMsgModelBuilder(const TOptions& options) : m_options(options) {}
    virtual ~TMsgModelBuilder() = default;

    // Attached messages are built by the same builder, one level deeper.
    std::shared_ptr<pstfile::TPSTMessage> Build(const IMailMessage& message, int depth = 0) const;

    // One stored contact field (TContactField) with its value as
    // IMailContact::GetField gives it; invalid values are left out.
    static void SetContactField(pstfile::TPSTMessage& out, int field, const QVariant& value);

protected:
    // "IPM.Appointment" for meetings, else "IPM.Note".
    virtual QString MessageClass(const IMailMessage& message) const;
    virtual void AddSender(pstfile::TPSTMessage& out, const IMailMessage& message) const;
    virtual void AddRecipients(pstfile::TPSTMessage& out, const IMailMessage& message) const;
    // Subject, class "IPM.Contact" and the message-level fields, the
    // e-mail addresses each in its own field.
    virtual void AddContact(pstfile::TPSTMessage& out, const IMailMessage& message, const IMailContact& contact) const;
    // The address type and SMTP address stored beside an address: a
    // resolved Exchange address is an SMTP address now.
    virtual std::pair<QString, QString> StoredAddress(TMailAddressType type, const QString& address) const;

private:
    void AddBodies(pstfile::TPSTMessage& out, const IMailMessage& message) const;
    void AddAttachments(pstfile::TPSTMessage& out, const IMailMessage& message, int depth) const;

    TOptions m_options;
};

// The model as the .msg writer stores it.
std::shared_ptr<pstfile::TPSTMessage> ToMsgModel(const IMailMessage& message, int depth = 0);

// An 8.3 name for an attachment ("REPORT~1.PDF"): letters and digits of the
// long name, upper case.
QString ShortAttachName(const QString& longName);

} // namespace tessaly::mail
