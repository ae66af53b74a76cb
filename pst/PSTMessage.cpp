#include "pst/PSTMessage.h"

#include "core/Exceptions.h"
#include "mail/FileMailMsg.h"
#include "pst/PSTFile.h"
#include "platform/AddressBook.h"

#include <QFileInfo>

namespace tessaly::pst {

QReadWriteLock& RecordLock()
{
    static QReadWriteLock lock;
    return lock;
}

mail::TMailAddressType AddressType(const QString& addrType)
{
    if (addrType == QLatin1String("SMTP"))
        return mail::matSMTP;
    if (addrType == QLatin1String("EXR"))
        return mail::matEXResolved;
    return mail::matEX;
}

namespace {

TRecordRef MakeRecord(std::shared_ptr<const TPSTMailItem> item, QString& caption, QString& name, QString& email,
    QString& addrType, const QString& smtp)
{
    TRecordRef ref;
    ref.item = std::move(item);
    ref.caption = &caption;
    ref.name = &name;
    ref.email = &email;
    ref.addrType = &addrType;
    ref.smtp = smtp;
    return ref;
}

} // namespace

TRecordRef TRecordRef::Sender(std::shared_ptr<const TPSTMailItem> item)
{
    TPSTSender& s = item->SenderRecord();
    return MakeRecord(std::move(item), s.Caption, s.Name, s.EMail, s.AddrType, s.SmtpAddress);
}

TRecordRef TRecordRef::Recipient(std::shared_ptr<const TPSTMailItem> item, int list, int index)
{
    TMailRecipient& r = item->RecipientRecords(list).Record(index);
    return MakeRecord(std::move(item), r.DisplayName, r.RecipientDisplayName, r.EMail, r.AddrType, r.SmtpAddress);
}

bool TRecordRef::NeedsResolving() const
{
    QReadLocker locker(&RecordLock());
    return *addrType != QLatin1String("SMTP") && *addrType != QLatin1String("EXR") && !email->isEmpty();
}

void TRecordRef::Resolved(const QString& smtp) const
{
    QWriteLocker locker(&RecordLock());
    *email = smtp;
    *addrType = QStringLiteral("EXR");
}

void ResolveNow(const TRecordRef& record)
{
    if (!record.NeedsResolving())
        return;
    QString exchange;
    {
        QReadLocker locker(&RecordLock());
        exchange = *record.email;
    }
    if (const auto smtp = platform::ProcessAddressBook()->FindSMTP(exchange))
        record.Resolved(*smtp);
}

namespace adapter {

// --- recipients -----------------------------------------------------------

TPSTMailRecipient::TPSTMailRecipient(TRecordRef record, bool defer) : m_record(std::move(record))
{
    if (!defer)
        ResolveNow(m_record);
}

QString TPSTMailRecipient::Caption() const
{
    return *m_record.caption;
}

QString TPSTMailRecipient::Name() const
{
    return *m_record.name;
}

QString TPSTMailRecipient::EMail() const
{
    QReadLocker locker(&RecordLock());
    return *m_record.email;
}

mail::TMailAddressType TPSTMailRecipient::EMailType() const
{
    QReadLocker locker(&RecordLock());
    return AddressType(*m_record.addrType);
}

TPSTMailRecipientList::TPSTMailRecipientList(std::shared_ptr<const TPSTMailItem> item, int list, bool defer)
    : m_item(std::move(item)), m_list(list), m_defer(defer)
{
}

int TPSTMailRecipientList::Count() const
{
    return m_item->Recipients(m_list).Count();
}

std::shared_ptr<mail::IMailRecipient> TPSTMailRecipientList::GetRecipient(int index) const
{
    if (index < 0 || index >= Count())
        return nullptr;
    return std::make_shared<TPSTMailRecipient>(TRecordRef::Recipient(m_item, m_list, index), m_defer);
}

// --- attachments ----------------------------------------------------------

TPSTMailAttach::TPSTMailAttach(std::shared_ptr<const TPSTDetailItem> owner, std::shared_ptr<TPSTAttachItem> attach)
    : m_owner(std::move(owner)), m_attach(std::move(attach))
{
}

TPSTMailAttach::~TPSTMailAttach()
{
    m_attach->Clear();
}

QString TPSTMailAttach::FileName() const
{
    return m_attach->FileName();
}

std::unique_ptr<QIODevice> TPSTMailAttach::Content() const
{
    return m_attach->Content();
}

QString TPSTMailAttach::ContentID() const
{
    return m_attach->ContentID();
}

QString TPSTMailAttach::ContentType() const
{
    return m_attach->ContentType();
}

QString TPSTMailAttach::ContentLocation() const
{
    return m_attach->ContentLocation();
}

qint32 TPSTMailAttach::Size() const
{
    return m_attach->Size();
}

std::shared_ptr<mail::IMailMessage> TPSTMailAttach::AsMailMessage() const
{
    if (const auto embedded = m_attach->AsMailItem())
        return std::make_shared<TPSTMailMessage>(embedded, false);
    const QString extension = QFileInfo(m_attach->FileName()).suffix().toLower();
    if (extension != QLatin1String("msg") && extension != QLatin1String("eml"))
        return nullptr;
    // A mail file attached as a plain file.
    const auto content = m_attach->Content();
    try {
        mail::TFileMailMsgRequest request(*content);
        return request.Message();
    } catch (const core::ETessalyError&) {
        return nullptr;
    }
}

TPSTMailAttachList::TPSTMailAttachList(const std::shared_ptr<const TPSTDetailItem>& item)
{
    const TAttachList& attaches = item->Attaches();
    for (int i = 0; i < attaches.Count(); ++i)
        if (auto attach = attaches.GetAttach(i))
            m_items.push_back(std::make_shared<TPSTMailAttach>(item, std::move(attach)));
}

std::shared_ptr<mail::IMailAttach> TPSTMailAttachList::GetAttach(int index) const
{
    if (index < 0 || index >= Count())
        return nullptr;
    return m_items[size_t(index)];
}

// --- messages -------------------------------------------------------------

TPSTMailMessage::TPSTMailMessage(std::shared_ptr<const TPSTMailItem> item, bool defer)
    : m_item(std::move(item)), m_defer(defer)
{
}

std::shared_ptr<mail::IMailRecipient> TPSTMailMessage::Sender() const
{
    return std::make_shared<TPSTMailRecipient>(TRecordRef::Sender(m_item), m_defer);
}

std::shared_ptr<mail::IMailRecipientList> TPSTMailMessage::Recipients(mail::TMailRecipientType kind) const
{
    if (m_defer && !m_item->RecipientsResolved())
        return nullptr;
    int list = rlOther;
    switch (kind) {
    case mail::mrtOriginator: list = rlOriginator; break;
    case mail::mrtTo: list = rlTo; break;
    case mail::mrtCC: list = rlCC; break;
    case mail::mrtBCC: list = rlBCC; break;
    case mail::mrtUnknown: list = rlOther; break;
    }
    return std::make_shared<TPSTMailRecipientList>(m_item, list, m_defer);
}

QString TPSTMailMessage::Body(mail::TMailBodyType kind) const
{
    const TMailBody& body = m_item->Body();
    switch (kind) {
    case mail::mbtText: return body.Text;
    case mail::mbtHTML: return body.HTML;
    case mail::mbtRTF: return QString::fromLatin1(body.RTF);
    }
    return {};
}

mail::TDateTime TPSTMailMessage::Date(mail::TMailDateType kind) const
{
    return m_item->Date(TPSTDateKind(kind)); // the same four dates in the same order
}

std::shared_ptr<mail::IMailAttachList> TPSTMailMessage::Attaches() const
{
    if (!m_attaches)
        m_attaches = std::make_shared<TPSTMailAttachList>(m_item);
    return m_attaches;
}

QString TPSTMailMessage::PSTFileName() const
{
    const TPSTFolder* folder = m_item->Owner();
    return folder && folder->Store() ? folder->Store()->File().FileName() : QString();
}

QVariant TPSTContactMessage::GetField(int field) const
{
    return mail::ContactMessageField(field, [this](int stored) { return m_item->Field(stored); });
}

std::shared_ptr<mail::IMailMessage> WrapItem(const std::shared_ptr<TPSTDetailItem>& item, bool defer)
{
    if (auto contact = std::dynamic_pointer_cast<const TPSTContactItem>(item))
        return std::make_shared<TPSTContactMessage>(std::move(contact));
    if (auto meeting = std::dynamic_pointer_cast<const TPSTMeetingItem>(item))
        return std::make_shared<TPSTMeetingMessage>(std::move(meeting), defer);
    if (auto mail = std::dynamic_pointer_cast<const TPSTMailItem>(item))
        return std::make_shared<TPSTMailMessage>(std::move(mail), defer);
    return nullptr;
}

std::shared_ptr<mail::IMailMessage> TPSTMailMessageList::GetMail(int index) const
{
    return WrapItem(m_folder->GetItem(index), false);
}

std::shared_ptr<mail::IMailFolder> TPSTMailFolder::GetFolder(int index) const
{
    m_folder->FolderCount();
    TPSTFolder* sub = m_folder->GetFolder(index);
    return sub ? std::make_shared<TPSTMailFolder>(sub) : nullptr;
}

std::shared_ptr<mail::IMailMessageList> TPSTMailFolder::Messages() const
{
    if (!m_messages)
        m_messages = std::make_shared<TPSTMailMessageList>(m_folder);
    return m_messages;
}

} // namespace adapter

void TPSTItemHelper::ResolveFields() const
{
    const auto mail = std::dynamic_pointer_cast<const TPSTMailItem>(m_item);
    if (!mail)
        return;
    mail->ResolveFields();
    ResolveNow(TRecordRef::Sender(mail));
    for (int list = rlOriginator; list <= rlOther; ++list)
        for (int i = 0; i < mail->Recipients(list).Count(); ++i)
            ResolveNow(TRecordRef::Recipient(mail, list, i));
}

} // namespace tessaly::pst
