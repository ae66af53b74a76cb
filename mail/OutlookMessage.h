#pragma once

// Outlook .msg files ([MS-OXMSG]: an OLE compound file of property streams).

#include "mail/CleverMail.h"
#include "mail/MailContact.h"
#include "mail/MailMsgHTML.h"

#include <QHash>
#include <QIODevice>
#include <QUuid>
#include <map>
#include <memory>
#include <optional>

typedef struct _GsfInfile GsfInfile;
typedef struct _GsfInput GsfInput;

namespace tessaly::mail {

class EInvalidMailFormat : public core::ETessalyError {
public:
    using ETessalyError::ETessalyError;
};

// Numbered named properties of a file: property set and number -> property
// id (0x8000 and up).
using TMsgNameMap = std::map<std::pair<QUuid, uint32_t>, uint16_t>;

// One storage of a .msg file with its properties: the message, a
// recipient, an attachment or an attached message.
class TMsgStorage {
public:
    TMsgStorage(GsfInfile* storage, int headerSize, int codePage, std::shared_ptr<const TMsgNameMap> names);
    ~TMsgStorage();
    TMsgStorage(TMsgStorage&&) noexcept;
    TMsgStorage(const TMsgStorage&) = delete;

    // Tags are property ids; 0x8000 and up are looked up as named: by set
    // and number for those of pid, by number alone for others.
    bool Has(uint32_t tag) const;
    std::optional<uint32_t> Int32(uint32_t tag) const;
    uint64_t FileTime(uint32_t tag) const;
    // A string property in either form: Unicode, or 8-bit in the code page.
    QString String(uint32_t tag) const;
    QByteArray Binary(uint32_t tag) const;

    // Sub-storages whose names start with the prefix, in name order.
    std::vector<TMsgStorage> Children(const char* prefix, int headerSize) const;
    // The attached message of an attachment storage, if it holds one.
    std::optional<TMsgStorage> EmbeddedMessage() const;

    int CodePage() const { return m_codePage; }
    void SetCodePage(int codePage) { m_codePage = codePage; }
    const std::shared_ptr<const TMsgNameMap>& Names() const { return m_names; }

private:
    std::optional<uint16_t> Resolve(uint32_t tag) const;
    QByteArray Stream(const QString& name) const;

    GsfInfile* m_storage; // one reference, ours
    std::shared_ptr<const TMsgNameMap> m_names;
    int m_codePage;
    QHash<uint16_t, std::pair<uint16_t, QByteArray>> m_fixed; // id -> type, 8-byte value
};

struct TOutlookMessageBody {
    QString Text;
    QString HTML;
    QByteArray RTF;
};

class TOutlookMessage {
public:
    TOutlookMessage();
    ~TOutlookMessage();

    bool LoadFromFile(const QString& fileName);
    bool LoadFromStream(QIODevice& stream);
    bool LoadFromBytes(const QByteArray& data);
    bool IsLoaded() const { return m_root != nullptr; }
    // The compound file holds a message: its property stream is there.
    bool HasMessage() const;
    // Entries of a message are there, though its property stream may not
    // be readable.
    bool HasMessageEntries() const;
    // A compound file cut short: not whole sectors, or its directory is
    // beyond the end.
    static bool LooksTruncated(const QByteArray& data);
    // Starts with the signature of an OLE compound file.
    static bool HasCompoundSignature(const QByteArray& data);

    static bool IsStorage(const QString& fileName);
    // Leaves the stream's position where it was.
    static bool IsStorage(QIODevice& stream);
    static bool IsStorage(const QByteArray& data);

    // The message class, trimmed, is exactly "IPM.Contact".
    bool IsContact() const;
    // An appointment, or a meeting request or response.
    bool IsMeeting() const;
    QString MessageClass() const;
    const TOutlookMessageBody& Body() const { return m_body; }
    const TMsgStorage& Root() const { return *m_root; }

    // The message as MIME: bodies, attachments (images apart), headers,
    // subject, sender, recipients and date.
    TGPtr<GMimeMessage> CopyToClever() const;

private:
    explicit TOutlookMessage(TMsgStorage embedded);
    void ReadBodies();

    QByteArray m_data; // the file's bytes, which GSF reads in place
    GsfInput* m_input = nullptr;
    GsfInfile* m_file = nullptr;
    std::unique_ptr<TMsgStorage> m_root;
    TOutlookMessageBody m_body;
};

// The contact fields of an .msg contact.
class TOutlookContact {
public:
    explicit TOutlookContact(std::shared_ptr<const TOutlookMessage> message) : m_message(std::move(message)) {}
    // A stored field (TContactField).
    QVariant Value(int field) const;
    // The wedding anniversary and the gender (mcfAnniversary, mcfGender).
    QVariant Anniversary() const;
    QVariant Gender() const;
    // The bytes of the attachment "ContactPicture.jpg", empty when none.
    QByteArray ContactPicture() const;

private:
    std::shared_ptr<const TOutlookMessage> m_message;
};

// A contact seen as a message: its subject and the contact fields.
class TMailOutlookContact : public IMailMessage, public IMailContact {
public:
    explicit TMailOutlookContact(std::shared_ptr<const TOutlookMessage> message)
        : m_message(message), m_contact(std::move(message))
    {
    }
    std::shared_ptr<IMailRecipient> Sender() const override { return nullptr; }
    QString SenderIP() const override { return {}; }
    QString Subject() const override;
    std::shared_ptr<IMailRecipientList> Recipients(TMailRecipientType) const override { return nullptr; }
    QString Body(TMailBodyType kind) const override;
    TDateTime Date(TMailDateType kind) const override;
    QString Headers() const override { return {}; }
    std::shared_ptr<IMailAttachList> Attaches() const override { return nullptr; }
    QVariant GetField(int field) const override;

private:
    std::shared_ptr<const TOutlookMessage> m_message;
    TOutlookContact m_contact;
};

// An appointment or a meeting message: the message, and when and where.
class TMailOutlookMeeting : public TCleverMailMessage, public IMailMeeting {
public:
    explicit TMailOutlookMeeting(const TOutlookMessage& message);
    TDateTime AppoitmentStart() const override { return m_start; }
    TDateTime AppoitmentEnd() const override { return m_end; }
    QString Location() const override { return m_location; }

private:
    TDateTime m_start = 0, m_end = 0;
    QString m_location;
};

} // namespace tessaly::mail
