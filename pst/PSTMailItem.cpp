#include "pst/PSTMailItem.h"

#include "core/Charset.h"
#include "core/Rtf.h"
#include "platform/AddressBook.h"
#include "pst/PSTFolder.h"
#include "pst/PffProperty.h"
#include "pstfile/PropTags.h"

#include <QBuffer>

namespace tessaly::pst {

namespace {

namespace pid = pstfile::pid;
constexpr std::array<uint32_t, 4> DateTags = {pid::ClientSubmitTime, pid::DeliveryTime, pid::CreationTime,
    pid::LastModificationTime};
constexpr int AttachTypeData = 'd';
constexpr int AttachTypeItem = 'i';
constexpr qint64 ContentChunk = 8192;
constexpr qsizetype SenderBytes = 1023;

QString TrimControl(const QString& text)
{
    qsizetype start = 0;
    qsizetype end = text.size();
    while (start < end && text[start].unicode() <= ' ')
        ++start;
    while (end > start && text[end - 1].unicode() <= ' ')
        --end;
    return text.mid(start, end - start);
}

// A body as libpff gives it: size, then the bytes with a terminating zero.
template <class SizeFn, class ReadFn>
QByteArray ReadBody(libpff_item_t* item, SizeFn sizeFn, ReadFn readFn)
{
    size_t size = 0;
    if (!item || sizeFn(item, &size, nullptr) != 1 || size == 0)
        return {};
    QByteArray data(qsizetype(size) + 1, '\0');
    if (readFn(item, reinterpret_cast<uint8_t*>(data.data()), size_t(data.size()), nullptr) != 1)
        return {};
    data.truncate(qsizetype(size));
    while (!data.isEmpty() && data.back() == '\0')
        data.chop(1);
    return data;
}

} // namespace

QString ReadPlainTextBody(libpff_item_t* item)
{
    return QString::fromUtf8(ReadBody(item, libpff_message_get_plain_text_body_size, libpff_message_get_plain_text_body));
}

// --- TRecipientList ------------------------------------------------------

QString TRecipientList::Join(int maxChars, QString TMailRecipient::*field) const
{
    QString text;
    for (const auto& recipient : m_items) {
        text += recipient.*field + QLatin1Char(',');
        if (text.size() > maxChars)
            break;
    }
    text.chop(1);
    return text;
}

QString TRecipientList::Caption(int maxChars) const
{
    return Join(maxChars, &TMailRecipient::DisplayName);
}

QString TRecipientList::EMails(int maxChars) const
{
    return Join(maxChars, &TMailRecipient::EMail);
}

// --- TPSTAttachItem and TAttachList -----------------------------------------

TPSTAttachItem::TPSTAttachItem(TPSTFileContextPtr file, TPffItemHandle item, int index)
    : TPSTItem(std::move(file), std::move(item)), m_index(index)
{
    int type = 0;
    if (libpff_attachment_get_type(Handle(), &type, nullptr) == 1 && type == AttachTypeItem) {
        TPffItemHandle embedded;
        if (libpff_attachment_get_item(Handle(), embedded.Out(), nullptr) == 1 && embedded)
            m_mail = std::make_shared<TPSTAttachMailItem>(FileContext(), std::move(embedded));
    }
}

TPSTAttachItem::~TPSTAttachItem() = default;

QString AttachFileName(bool isMessage, const QString& displayName, const QString& subject, const QString& longName,
    const QString& shortName, int index)
{
    QString name;
    if (isMessage)
        name = !displayName.isEmpty() ? displayName : subject;
    else
        name = !longName.isEmpty() ? longName : shortName;
    return name.isEmpty() ? QStringLiteral("attach %1").arg(index) : name;
}

const TPSTAttachItem::TFields& TPSTAttachItem::Fields() const
{
    if (m_fields)
        return *m_fields;
    TFields fields;
    if (m_mail)
        fields.fileName = AttachFileName(
            true, ReadString(Handle(), 0, pid::DisplayName, ShortStringChars), m_mail->Subject(), {}, {}, m_index);
    else
        fields.fileName = AttachFileName(false, {}, {}, ReadString(Handle(), 0, pid::AttachLongFilename, ShortStringChars),
            ReadString(Handle(), 0, pid::AttachFilename, ShortStringChars), m_index);
    fields.contentID = ReadUtf8(Handle(), 0, pid::AttachContentId, Utf8Bytes);
    fields.contentType = ReadUtf8(Handle(), 0, pid::AttachMimeTag, Utf8Bytes);
    fields.contentLocation = ReadUtf8(Handle(), 0, pid::AttachContentLocation, Utf8Bytes);
    fields.size = qint32(ReadUInt32(Handle(), 0, pid::AttachSize).value_or(0));
    m_fields = std::move(fields);
    return *m_fields;
}

QString TPSTAttachItem::FileName() const
{
    return Fields().fileName;
}

const QByteArray& TPSTAttachItem::ContentBytes() const
{
    if (m_content)
        return *m_content;
    m_content.emplace();
    int type = 0;
    size64_t size = 0;
    if (m_mail || libpff_attachment_get_type(Handle(), &type, nullptr) != 1 || type != AttachTypeData
        || libpff_attachment_get_data_size(Handle(), &size, nullptr) != 1 || size == 0
        || size > size64_t(std::numeric_limits<qsizetype>::max() / 2))
        return *m_content;
    if (libpff_attachment_data_seek_offset(Handle(), 0, SEEK_SET, nullptr) != 0)
        return *m_content;
    QByteArray& data = *m_content;
    data.resize(qsizetype(size));
    qint64 done = 0;
    while (done < qint64(size)) {
        const qint64 want = std::min<qint64>(ContentChunk, qint64(size) - done);
        const ssize_t got = libpff_attachment_data_read_buffer(
            Handle(), reinterpret_cast<uint8_t*>(data.data()) + done, size_t(want), nullptr);
        if (got <= 0)
            break;
        done += got;
        if (got < want)
            break;
    }
    // What could not be read stays zero-filled at the reported size.
    return data;
}

std::unique_ptr<QIODevice> TPSTAttachItem::Content() const
{
    auto buffer = std::make_unique<QBuffer>();
    buffer->setData(ContentBytes());
    buffer->open(QIODevice::ReadOnly);
    return buffer;
}

void TPSTAttachItem::Clear() const
{
    m_content.reset();
}

QString TPSTAttachItem::ContentID() const
{
    return Fields().contentID;
}

QString TPSTAttachItem::ContentType() const
{
    return Fields().contentType;
}

QString TPSTAttachItem::ContentLocation() const
{
    return Fields().contentLocation;
}

qint32 TPSTAttachItem::Size() const
{
    return Fields().size;
}

int TAttachList::Count() const
{
    if (m_count < 0) {
        int count = 0;
        if (libpff_message_get_number_of_attachments(m_owner.Handle(), &count, nullptr) != 1 || count < 0)
            count = 0;
        m_count = count;
    }
    return m_count;
}

std::shared_ptr<TPSTAttachItem> TAttachList::GetAttach(int index) const
{
    if (!m_fetched) {
        m_fetched = true;
        const int count = Count();
        m_items.resize(size_t(count));
        for (int i = 0; i < count; ++i) {
            TPffItemHandle attachment;
            if (libpff_message_get_attachment(m_owner.Handle(), i, attachment.Out(), nullptr) == 1 && attachment)
                m_items[size_t(i)] = std::make_shared<TPSTAttachItem>(m_owner.FileContext(), std::move(attachment), i);
        }
    }
    if (index < 0 || index >= int(m_items.size()))
        return nullptr;
    return m_items[size_t(index)];
}

// --- TPSTDetailItem ---------------------------------------------------------

TPSTDetailItem::TPSTDetailItem(TPSTFolder* owner, int index, TPSTFileContextPtr file, TPffItemHandle item)
    : TPSTItem(std::move(file), std::move(item)), m_owner(owner), m_index(index)
{
}

TPSTDetailItem::~TPSTDetailItem() = default;

bool TPSTDetailItem::HasAttachments() const
{
    if (!m_hasAttachments)
        m_hasAttachments = Attaches().Count() > 0;
    return *m_hasAttachments;
}

TAttachList& TPSTDetailItem::Attaches() const
{
    if (!m_attaches)
        m_attaches = std::make_unique<TAttachList>(*this);
    return *m_attaches;
}

int TPSTDetailItem::ItemType() const
{
    uint8_t type = 0;
    if (libpff_item_get_type(Handle(), &type, nullptr) != 1)
        return -1;
    return type;
}

qint64 TPSTDetailItem::MessageSize() const
{
    std::lock_guard lock(FileContext()->Lock);
    return qint64(ReadUInt32(Handle(), 0, pid::MessageSize).value_or(0));
}

// --- TPSTMailItem -------------------------------------------------------------

QString TPSTMailItem::Subject() const
{
    if (!m_subject)
        m_subject = TrimControl(ReadString(Handle(), 0, pid::Subject, ShortStringChars));
    return *m_subject;
}

QString TPSTMailItem::MessageClass() const
{
    return ReadString(Handle(), 0, pid::MessageClass, ShortStringChars);
}

QString TPSTMailItem::Headers() const
{
    if (!m_headers)
        m_headers = ReadUtf8(Handle(), 0, pid::TransportHeaders, Utf8Bytes);
    return *m_headers;
}

core::TDateTime TPSTMailItem::Date(TPSTDateKind kind) const
{
    if (!m_dates) {
        std::array<core::TDateTime, 4> dates {};
        for (size_t i = 0; i < dates.size(); ++i)
            dates[i] = ReadLocalDate(Handle(), 0, DateTags[i]);
        m_dates = dates;
    }
    return (*m_dates)[size_t(kind)];
}

const TPSTSender& TPSTMailItem::Sender() const
{
    if (!m_sender) {
        TPSTSender sender;
        sender.Name = ReadUtf8(Handle(), 0, pid::SenderName, SenderBytes);
        sender.AddrType = ReadString(Handle(), 0, pid::SenderAddrType, ShortStringChars);
        sender.EMail = ReadUtf8(Handle(), 0, pid::SenderEmail, SenderBytes);
        sender.SmtpAddress = ReadString(Handle(), 0, pid::SenderSmtpAddress, ShortStringChars);
        // What the file knows of Exchange addresses feeds the address book.
        auto& book = platform::DataFileAddressBook();
        book.AddSmtp(sender.EMail, sender.SmtpAddress);
        book.AddSmtp(ReadString(Handle(), 0, pid::SentRepresentingEmail, ShortStringChars),
            ReadString(Handle(), 0, pid::SentRepresentingSmtpAddress, ShortStringChars));
        sender.Caption = sender.Name;
        // Only an internet address is worth showing; an Exchange sender is
        // shown by name until resolved.
        if (sender.AddrType == QLatin1String("SMTP") && !sender.EMail.isEmpty()) {
            if (sender.Caption.isEmpty())
                sender.Caption = sender.EMail;
            else
                sender.Caption += QStringLiteral(" <%1>").arg(sender.EMail);
        }
        m_sender = sender;
    }
    return *m_sender;
}

void TPSTMailItem::FillRecipients() const
{
    if (m_recipients)
        return;
    m_recipients.emplace();
    TPffItemHandle recipients;
    if (libpff_message_get_recipients(Handle(), recipients.Out(), nullptr) != 1 || !recipients)
        return;
    int sets = 0;
    if (libpff_item_get_number_of_record_sets(recipients.Get(), &sets, nullptr) != 1)
        return;
    for (int set = 0; set < sets; ++set) {
        const auto type = ReadUInt32(recipients.Get(), set, pid::RecipientType);
        if (!type)
            continue;
        TMailRecipient recipient;
        recipient.Type = *type;
        recipient.DisplayName = ReadString(recipients.Get(), set, pid::DisplayName, ShortStringChars);
        recipient.RecipientDisplayName = ReadString(recipients.Get(), set, pid::RecipientDisplayName, ShortStringChars);
        recipient.AddrType = ReadString(recipients.Get(), set, pid::AddrType, ShortStringChars);
        recipient.EMail = ReadString(recipients.Get(), set, pid::EmailAddress, ShortStringChars);
        recipient.SmtpAddress = ReadString(recipients.Get(), set, pid::SmtpAddress, ShortStringChars);
        if (recipient.AddrType != QLatin1String("SMTP"))
            platform::DataFileAddressBook().AddSmtp(recipient.EMail, recipient.SmtpAddress);
        const size_t list = *type <= 3 ? size_t(*type) : size_t(rlOther);
        (*m_recipients)[list].Add(std::move(recipient));
    }
}

TPSTSender& TPSTMailItem::SenderRecord() const
{
    (void)Sender();
    return *m_sender;
}

TRecipientList& TPSTMailItem::RecipientRecords(int list) const
{
    FillRecipients();
    return (*m_recipients)[size_t(std::clamp(list, 0, 4))];
}

const TRecipientList& TPSTMailItem::Recipients(int list) const
{
    FillRecipients();
    return (*m_recipients)[size_t(std::clamp(list, 0, 4))];
}

const TMailBody& TPSTMailItem::Body() const
{
    if (m_body)
        return *m_body;
    TMailBody body;
    body.Text = ReadPlainTextBody(Handle());
    const QByteArray html = ReadBody(Handle(), libpff_message_get_html_body_size, libpff_message_get_html_body);
    body.HTML = core::DecodeHtml(html, Headers());
    body.RTF = ReadBody(Handle(), libpff_message_get_rtf_body_size, libpff_message_get_rtf_body);
    if (body.HTML.isEmpty() && !body.RTF.isEmpty()) {
        if (auto fromRtf = core::RtfToHtml(body.RTF))
            body.HTML = *fromRtf;
    }
    m_body = std::move(body);
    return *m_body;
}

void TPSTMailItem::ResolveFields() const
{
    (void)HasAttachments();
    (void)Sender();
    FillRecipients();
    (void)Date(pdSubmit);
}

// --- TPSTMeetingItem ----------------------------------------------------------

const TPSTMeetingItem::TMeeting& TPSTMeetingItem::Meeting() const
{
    if (!m_meeting)
        m_meeting = TMeeting{ReadLocalDate(Handle(), 0, pid::AppointmentStart), ReadLocalDate(Handle(), 0, pid::AppointmentEnd),
            ReadString(Handle(), 0, pid::Location, ShortStringChars)};
    return *m_meeting;
}

core::TDateTime TPSTMeetingItem::AppoitmentStart() const
{
    return Meeting().start;
}

core::TDateTime TPSTMeetingItem::AppoitmentEnd() const
{
    return Meeting().end;
}

QString TPSTMeetingItem::Location() const
{
    return Meeting().location;
}

// --- TPSTContactItem ----------------------------------------------------------

QVariant TPSTContactItem::Field(int kind) const
{
    if (kind < 0 || kind >= mail::cfCount)
        return {};
    auto& field = m_fields[size_t(kind)];
    if (!field)
        field = ReadField(kind);
    return *field;
}

QVariant TPSTContactItem::ReadField(int kind) const
{
    if (kind == mail::cfBirthday) {
        const core::TDateTime date = ReadLocalDate(Handle(), 0, mail::ContactFieldTag(mail::cfBirthday));
        return date > 0 ? QVariant(core::DateTimeToQDateTime(date)) : QVariant();
    }
    if (kind == mail::cfNotes) {
        const QString notes = ReadPlainTextBody(Handle());
        return notes.isEmpty() ? QVariant() : QVariant(notes);
    }
    if (kind == mail::cfPicture) {
        const TAttachList& attaches = Attaches();
        for (int i = 0; i < attaches.Count(); ++i) {
            const auto attach = attaches.GetAttach(i);
            if (attach && attach->FileName().compare(QLatin1String("ContactPicture.jpg"), Qt::CaseInsensitive) == 0)
                return attach->ContentBytes();
        }
        return {};
    }
    const QString value = ReadString(Handle(), 0, mail::ContactFieldTag(kind), ShortStringChars);
    return value.isEmpty() ? QVariant() : QVariant(value);
}

} // namespace tessaly::pst
