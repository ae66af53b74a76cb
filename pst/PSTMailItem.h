#pragma once

#include "core/DateTime.h"
#include "mail/MailContact.h"
#include "pst/PSTItem.h"

#include <QByteArray>
#include <QIODevice>
#include <QVariant>
#include <array>
#include <optional>
#include <vector>

namespace tessaly::pst {

class TPSTFolder;
class TPSTAttachMailItem;
class TPSTDetailItem;

// One recipient as the file holds it.
struct TMailRecipient {
    QString DisplayName;
    QString RecipientDisplayName;
    QString AddrType;
    QString EMail;
    uint32_t Type = 0; // 0 originator, 1 To, 2 Cc, 3 Bcc, other values as found
    QString SmtpAddress; // the file's own SMTP address of the recipient, if any
};

class TRecipientList {
public:
    int Count() const { return int(m_items.size()); }
    const TMailRecipient& GetItem(int index) const { return m_items.at(size_t(index)); }
    TMailRecipient& Record(int index) { return m_items.at(size_t(index)); }
    void Add(TMailRecipient recipient) { m_items.push_back(std::move(recipient)); }
    // The display names (the addresses) each followed by ",", stopping after
    // the first one that makes the text longer than maxChars; the last
    // character is then removed.
    QString Caption(int maxChars) const;
    QString EMails(int maxChars) const;

private:
    QString Join(int maxChars, QString TMailRecipient::*field) const;
    std::vector<TMailRecipient> m_items;
};

// Indexes of the five recipient lists.
enum TRecipientListIndex { rlOriginator = 0, rlTo = 1, rlCC = 2, rlBCC = 3, rlOther = 4 };

struct TPSTSender {
    QString Caption;
    QString Name;
    QString AddrType;
    QString EMail;
    QString SmtpAddress; // the file's own SMTP address of the sender, if any
};

struct TMailBody {
    QString Text;
    QString HTML;
    QByteArray RTF; // decompressed RTF
};

// Indexes of the date record.
enum TPSTDateKind { pdSubmit = 0, pdDelivery = 1, pdCreation = 2, pdModification = 3 };

// An attachment of an item.
class TPSTAttachItem : public TPSTItem {
public:
    TPSTAttachItem(TPSTFileContextPtr file, std::unique_ptr<pstfile::TAttachment> attachment, int index);
    ~TPSTAttachItem() override;

    int Index() const { return m_index; }
    QString FileName() const;
    // The data, open for reading at position 0; empty for an attached message.
    std::unique_ptr<QIODevice> Content() const;
    const QByteArray& ContentBytes() const;
    QString ContentID() const;
    QString ContentType() const;
    QString ContentLocation() const;
    // The size the file records for the attachment (entry 0x0E20).
    qint32 Size() const;
    // Drops the content read so far; it is read again when asked.
    void Clear() const;
    // The attached message, or null.
    std::shared_ptr<TPSTAttachMailItem> AsMailItem() const { return m_mail; }

private:
    struct TFields {
        QString fileName, contentID, contentType, contentLocation;
        qint32 size = 0;
    };
    const TFields& Fields() const;

    std::unique_ptr<pstfile::TAttachment> m_attachment;
    int m_index;
    std::shared_ptr<TPSTAttachMailItem> m_mail;
    mutable std::optional<QByteArray> m_content;
    mutable std::optional<TFields> m_fields;
};

class TAttachList {
public:
    explicit TAttachList(const TPSTDetailItem& owner) : m_owner(owner) {}
    int Count() const;
    std::shared_ptr<TPSTAttachItem> GetAttach(int index) const;

private:
    const TPSTDetailItem& m_owner;
    mutable int m_count = -1;
    mutable std::vector<std::shared_ptr<TPSTAttachItem>> m_items;
    mutable bool m_fetched = false;
};

// An item of a folder: a message, meeting or contact. Items a folder hands
// out live while somebody holds them, or while the folder is in cached mode.
class TPSTDetailItem : public TPSTItem, public std::enable_shared_from_this<TPSTDetailItem> {
public:
    TPSTDetailItem(TPSTFolder* owner, int index, TPSTFileContextPtr file, std::unique_ptr<pstfile::TMessage> message);
    ~TPSTDetailItem() override;

    // The folder the item came from; null for an attached message, or once
    // the folder is gone.
    TPSTFolder* Owner() const { return m_owner; }
    int Index() const { return m_index; }
    bool HasAttachments() const;
    TAttachList& Attaches() const;
    // The item's type from its message class (15 for a meeting request or
    // response, see ItemTypeOfClass).
    int ItemType() const;
    const pstfile::TMessage& Message() const { return *m_message; }
    // The size the file records for the whole message (entry 0x0E08); 0
    // when it holds none.
    qint64 MessageSize() const;

private:
    friend class TPSTFolder;
    std::unique_ptr<pstfile::TMessage> m_message;
    TPSTFolder* m_owner;
    int m_index;
    mutable std::optional<bool> m_hasAttachments;
    mutable std::unique_ptr<TAttachList> m_attaches;
};

class TPSTMailItem : public TPSTDetailItem {
public:
    using TPSTDetailItem::TPSTDetailItem;

    QString Subject() const;
    QString Headers() const;
    // Local date-time, 0 when the message does not hold it.
    core::TDateTime Date(TPSTDateKind kind) const;
    const TPSTSender& Sender() const;
    const TRecipientList& Recipients(int list) const;
    const TMailBody& Body() const;
    // The message class (entry 0x001A), "IPM.Note" and the like.
    QString MessageClass() const;

    bool RecipientsResolved() const { return m_recipients.has_value(); }
    // The records themselves, for the resolution of Exchange addresses,
    // which rewrites EMail and AddrType in place (under RecordLock()).
    TPSTSender& SenderRecord() const;
    TRecipientList& RecipientRecords(int list) const;
    void FillRecipients() const;
    // Reads everything but the bodies and attachment contents, so that the
    // item can be shown without further file access.
    void ResolveFields() const;

private:
    mutable std::optional<QString> m_subject;
    mutable std::optional<QString> m_headers;
    mutable std::optional<std::array<core::TDateTime, 4>> m_dates;
    mutable std::optional<TPSTSender> m_sender;
    mutable std::optional<std::array<TRecipientList, 5>> m_recipients;
    mutable std::optional<TMailBody> m_body;
};

class TPSTMeetingItem : public TPSTMailItem {
public:
    using TPSTMailItem::TPSTMailItem;
    core::TDateTime AppoitmentStart() const;
    core::TDateTime AppoitmentEnd() const;
    QString Location() const;

private:
    struct TMeeting {
        core::TDateTime start = 0, end = 0;
        QString location;
    };
    const TMeeting& Meeting() const;
    mutable std::optional<TMeeting> m_meeting;
};

// A message stored inside an attachment; owned by that attachment.
class TPSTAttachMailItem : public TPSTMailItem {
public:
    TPSTAttachMailItem(TPSTFileContextPtr file, std::unique_ptr<pstfile::TMessage> message)
        : TPSTMailItem(nullptr, -1, std::move(file), std::move(message))
    {
    }
};

class TPSTContactItem : public TPSTDetailItem {
public:
    using TPSTDetailItem::TPSTDetailItem;
    // A stored field (mail::TContactField): strings for the text fields, a
    // QDateTime for the birthday, the text of the notes and the bytes of the
    // picture; an invalid QVariant when absent.
    QVariant Field(int kind) const;

private:
    QVariant ReadField(int kind) const;
    mutable std::array<std::optional<QVariant>, mail::cfCount> m_fields;
};

// The file name of an attachment: for an attached message its display name
// or else its subject, otherwise the long or else the short file name; when
// all are empty, "attach " and the attachment's position.
QString AttachFileName(bool isMessage, const QString& displayName, const QString& subject, const QString& longName,
    const QString& shortName, int index);

// The type of an item of that message class: 15 for meeting requests and
// responses, 2 appointments, 8 contacts, 11 mail, 0 for other classes.
int ItemTypeOfClass(const QString& messageClass);
QString ReadPlainTextBody(const pstfile::TProperties& props);

} // namespace tessaly::pst
