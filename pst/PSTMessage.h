#pragma once

// Items of a data file behind the message interfaces, and the resolution of
// Exchange addresses into SMTP addresses.

#include "mail/MailContact.h"
#include "mail/MailMsgHTML.h"
#include "mail/MailMsgObj.h"
#include "pst/PSTFolder.h"

#include <QReadWriteLock>

namespace tessaly::pst {

// Guards the EMail and AddrType of recipient and sender records, which the
// resolution rewrites while views read them.
QReadWriteLock& RecordLock();

// Address types of a record: "SMTP", "EXR" once resolved, else Exchange.
mail::TMailAddressType AddressType(const QString& addrType);

// A sender or recipient record, held with the item it belongs to.
struct TRecordRef {
    std::shared_ptr<const TPSTMailItem> item;
    QString* caption = nullptr;
    QString* name = nullptr;
    QString* email = nullptr;
    QString* addrType = nullptr;
    QString smtp; // the file's own SMTP address of the record

    static TRecordRef Sender(std::shared_ptr<const TPSTMailItem> item);
    static TRecordRef Recipient(std::shared_ptr<const TPSTMailItem> item, int list, int index);
    bool NeedsResolving() const;
    // Sets the SMTP address and marks the record resolved, in one step.
    void Resolved(const QString& smtp) const;
};

// Resolves at once through the process-wide address book; a record of type
// SMTP or already resolved is left alone.
void ResolveNow(const TRecordRef& record);

namespace adapter {

class TPSTMailRecipient : public mail::IMailRecipient {
public:
    TPSTMailRecipient(TRecordRef record, bool defer);
    QString Caption() const override;
    QString Name() const override;
    QString EMail() const override;
    mail::TMailAddressType EMailType() const override;
    const TRecordRef& Record() const { return m_record; }

private:
    TRecordRef m_record;
};

class TPSTMailRecipientList : public mail::TCustomMailRecipientList {
public:
    TPSTMailRecipientList(std::shared_ptr<const TPSTMailItem> item, int list, bool defer);
    int Count() const override;
    std::shared_ptr<mail::IMailRecipient> GetRecipient(int index) const override;

private:
    std::shared_ptr<const TPSTMailItem> m_item;
    int m_list;
    bool m_defer;
};

class TPSTMailAttach : public mail::IMailAttach, public mail::IMailAttach2 {
public:
    TPSTMailAttach(std::shared_ptr<const TPSTDetailItem> owner, std::shared_ptr<TPSTAttachItem> attach);
    // The content read for this adapter goes with it.
    ~TPSTMailAttach() override;
    QString FileName() const override;
    std::unique_ptr<QIODevice> Content() const override;
    QString ContentID() const override;
    QString ContentType() const override;
    QString ContentDisposition() const override { return {}; }
    QString ContentLocation() const override;
    std::shared_ptr<mail::IMailMessage> AsMailMessage() const override;
    qint32 Size() const override;

private:
    std::shared_ptr<const TPSTDetailItem> m_owner;
    std::shared_ptr<TPSTAttachItem> m_attach;
};

class TPSTMailAttachList : public mail::TCustomMailAttachList {
public:
    explicit TPSTMailAttachList(const std::shared_ptr<const TPSTDetailItem>& item);
    int Count() const override { return int(m_items.size()); }
    std::shared_ptr<mail::IMailAttach> GetAttach(int index) const override;

private:
    std::vector<std::shared_ptr<TPSTMailAttach>> m_items;
};

class TPSTMailMessage : public mail::IMailMessage, public mail::IMailMessage3, public mail::IMailPreparePreview {
public:
    TPSTMailMessage(std::shared_ptr<const TPSTMailItem> item, bool defer);

    std::shared_ptr<mail::IMailRecipient> Sender() const override;
    QString SenderIP() const override { return {}; }
    QString Subject() const override { return m_item->Subject(); }
    // With the defer flag, null until the item's recipients have been read.
    std::shared_ptr<mail::IMailRecipientList> Recipients(mail::TMailRecipientType kind) const override;
    QString Body(mail::TMailBodyType kind) const override;
    mail::TDateTime Date(mail::TMailDateType kind) const override;
    QString Headers() const override { return m_item->Headers(); }
    std::shared_ptr<mail::IMailAttachList> Attaches() const override;
    QString UID() const override { return QString::number(m_item->ID()); }

    void ResolveRecipients() const override { m_item->FillRecipients(); }
    // The data file the item's folder belongs to; empty for attached messages.
    QString PSTFileName() const;
    const std::shared_ptr<const TPSTMailItem>& Item() const { return m_item; }

private:
    std::shared_ptr<const TPSTMailItem> m_item;
    bool m_defer;
    mutable std::shared_ptr<TPSTMailAttachList> m_attaches;
};

class TPSTMeetingMessage : public TPSTMailMessage, public mail::IMailMeeting {
public:
    TPSTMeetingMessage(std::shared_ptr<const TPSTMeetingItem> item, bool defer)
        : TPSTMailMessage(item, defer), m_meeting(std::move(item))
    {
    }
    mail::TDateTime AppoitmentStart() const override { return m_meeting->AppoitmentStart(); }
    mail::TDateTime AppoitmentEnd() const override { return m_meeting->AppoitmentEnd(); }
    QString Location() const override { return m_meeting->Location(); }

private:
    std::shared_ptr<const TPSTMeetingItem> m_meeting;
};

class TPSTContactMessage : public mail::IMailMessage, public mail::IMailMessage3, public mail::IMailContact {
public:
    explicit TPSTContactMessage(std::shared_ptr<const TPSTContactItem> item) : m_item(std::move(item)) {}
    std::shared_ptr<mail::IMailRecipient> Sender() const override { return nullptr; }
    QString SenderIP() const override { return {}; }
    QString Subject() const override { return {}; }
    std::shared_ptr<mail::IMailRecipientList> Recipients(mail::TMailRecipientType) const override { return nullptr; }
    QString Body(mail::TMailBodyType) const override { return {}; }
    mail::TDateTime Date(mail::TMailDateType) const override { return 0; }
    QString Headers() const override { return {}; }
    std::shared_ptr<mail::IMailAttachList> Attaches() const override { return nullptr; }
    QString UID() const override { return QString::number(m_item->ID()); }
    QVariant GetField(int field) const override;
    const std::shared_ptr<const TPSTContactItem>& Item() const { return m_item; }

private:
    std::shared_ptr<const TPSTContactItem> m_item;
};

// Wraps an item by its class: contact, meeting or mail.
std::shared_ptr<mail::IMailMessage> WrapItem(const std::shared_ptr<TPSTDetailItem>& item, bool defer);

// The messages of a folder. The folder must outlive the list.
class TPSTMailMessageList : public mail::TCustomMailMessageList {
public:
    explicit TPSTMailMessageList(TPSTFolder* folder) : m_folder(folder) {}
    int Count() const override { return m_folder->ItemCount(); }
    std::shared_ptr<mail::IMailMessage> GetMail(int index) const override;

private:
    TPSTFolder* m_folder;
};

// A folder of a data file as a mail folder. The folder must outlive it.
class TPSTMailFolder : public mail::IMailFolder {
public:
    explicit TPSTMailFolder(pst::TPSTFolder* folder) : m_folder(folder) {}
    std::shared_ptr<mail::IMailFolder> GetFolder(int index) const override;
    int Count() const override { return m_folder->FolderCount(); }
    QString Caption() const override { return m_folder->Name(); }
    std::shared_ptr<mail::IMailMessageList> Messages() const override;
    // The object-model folder (a pst::TPSTFolder*).
    std::any MessageData() const override { return m_folder; }

private:
    pst::TPSTFolder* m_folder;
    mutable std::shared_ptr<TPSTMailMessageList> m_messages;
};

} // namespace adapter

// Keeps an item for the time of a task and makes it read everything, its
// Exchange addresses resolved, so that it needs the file no more.
class TPSTItemHelper {
public:
    explicit TPSTItemHelper(std::shared_ptr<TPSTDetailItem> item) : m_item(std::move(item)) {}
    void ResolveFields() const;
    const std::shared_ptr<TPSTDetailItem>& Item() const { return m_item; }

private:
    std::shared_ptr<TPSTDetailItem> m_item;
};

} // namespace tessaly::pst
