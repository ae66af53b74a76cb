#pragma once

// An internet message (a parsed MIME message) behind the message interfaces.

#include "mail/MailMsgObj.h"
#include "mail/MailStringList.h"
#include "mail/MimeHandle.h"

#include <optional>
#include <vector>

namespace tessaly::mail {

class TCleverMailRecipient : public TMailRecipient {
public:
    using TMailRecipient::TMailRecipient;
};

class TCleverMailRecipientList : public TMailRecipientArray {
public:
    // The mailboxes of an address list; groups give their members.
    explicit TCleverMailRecipientList(InternetAddressList* list);
};

class TCleverMailAttach : public IMailAttach, public IMailAttach2 {
public:
    TCleverMailAttach(TGPtr<GMimeObject> part, int index);

    QString FileName() const override;
    std::unique_ptr<QIODevice> Content() const override;
    QString ContentID() const override;
    QString ContentType() const override;
    QString ContentDisposition() const override;
    QString ContentLocation() const override;
    std::shared_ptr<IMailMessage> AsMailMessage() const override;
    qint32 Size() const override;

    const QByteArray& Data() const;

private:
    TGPtr<GMimeObject> m_part;
    int m_index;
    mutable std::optional<QString> m_fileName;
    mutable std::optional<QByteArray> m_data;
};

class TCleverMailAttachList : public TCustomMailAttachList {
public:
    explicit TCleverMailAttachList(std::vector<std::shared_ptr<TCleverMailAttach>> items) : m_items(std::move(items)) {}
    int Count() const override { return int(m_items.size()); }
    std::shared_ptr<IMailAttach> GetAttach(int index) const override;

private:
    std::vector<std::shared_ptr<TCleverMailAttach>> m_items;
};

class TCleverMailMessage : public IMailMessage, public IMailMessage4 {
public:
    // Takes the message; rtf is the RTF body of a message that came from a
    // .msg file.
    explicit TCleverMailMessage(TGPtr<GMimeMessage> message, QByteArray rtf = {});

    std::shared_ptr<IMailRecipient> Sender() const override;
    QString SenderIP() const override;
    QString Subject() const override;
    std::shared_ptr<IMailRecipientList> Recipients(TMailRecipientType kind) const override;
    QString Body(TMailBodyType kind) const override;
    TDateTime Date(TMailDateType kind) const override;
    QString Headers() const override;
    std::shared_ptr<IMailAttachList> Attaches() const override;
    const TMailStringList* BodyStrings(TMailBodyType kind) const override;

    GMimeMessage* Mime() const { return m_message.get(); }
    // The IP address the message was first sent from, from its headers.
    static QString SenderIPFromHeaders(const QString& headers);

private:
    struct TBodyPart {
        TGPtr<GMimeObject> part;
        mutable std::optional<QString> text;
        mutable std::optional<TMailStringList> lines;
    };
    void Collect(GMimeObject* object);
    const TBodyPart* BodyPart(TMailBodyType kind) const;

    TGPtr<GMimeMessage> m_message;
    QByteArray m_rtf;
    TBodyPart m_text;
    TBodyPart m_html;
    std::vector<std::shared_ptr<TCleverMailAttach>> m_attachParts;
    mutable std::shared_ptr<TCleverMailAttachList> m_attaches;
};

// A message parsed from the bytes of an internet message (.eml and kin).
// Never null: unparseable input gives an empty message.
std::shared_ptr<TCleverMailMessage> ParseEMLMessage(const QByteArray& data);

// The file extension commonly used for a MIME type ("pdf" for
// application/pdf); empty when none is known.
QString ExtensionForContentType(const QString& contentType);

// A header field's raw value as text (RFC 2047): folding undone, encoded
// words in B or Q decoded in their charsets, the white space between two
// adjacent encoded words dropped and their bytes joined (a character may be
// split across them), a malformed word left as it stands, and bytes outside
// encoded words taken as UTF-8, or as Latin-1 where they are not UTF-8.
QString DecodeHeaderText(const QByteArray& raw);

// The raw value of a header field with each run of adjacent encoded words
// decoded as above and written again as one UTF-8 word, so that GMime's own
// parsers (addresses, parameters) read it whole.
QByteArray MendEncodedWords(const QByteArray& raw);

// Builds a MIME message: a text part, an HTML part with the images beside it
// (multipart/related), and the attachments. Parts come in the order given.
struct TMimeFile {
    QString name;
    QByteArray data;
    QString contentType;         // derived from the name when empty
    QString contentId;           // for parts the HTML refers to by cid:
    TGPtr<GMimeMessage> message; // an attached message instead of data
};
TGPtr<GMimeMessage> BuildMimeMessage(const QString& text, const QString& html, std::vector<TMimeFile> attachments,
    std::vector<TMimeFile> images);

} // namespace tessaly::mail
