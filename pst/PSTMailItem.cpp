#include "pst/PSTMailItem.h"

#include "core/Charset.h"
#include "core/Rtf.h"
#include "platform/AddressBook.h"
#include "pst/PSTFolder.h"
#include "pst/PSTProperty.h"
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

// A body's bytes as stored, without trailing NULs.
QByteArray ReadBody(const pstfile::TProperties& props, uint32_t tag)
{
    QByteArray data = ReadBinary(props, tag);
    while (!data.isEmpty() && data.back() == '\0')
        data.chop(1);
    return data;
}

} // namespace

QString ReadPlainTextBody(const pstfile::TProperties& props)
{
    return props.String(pid::Body).value_or(QString());
}

int ItemTypeOfClass(const QString& messageClass)
{
    if (messageClass.startsWith(QLatin1String("IPM.Schedule.Meeting"), Qt::CaseInsensitive))
        return 15;
    if (messageClass.startsWith(QLatin1String("IPM.Appointment"), Qt::CaseInsensitive))
        return 2;
    if (messageClass.startsWith(QLatin1String("IPM.Contact"), Qt::CaseInsensitive))
        return 8;
    if (messageClass.startsWith(QLatin1String("IPM.Note"), Qt::CaseInsensitive))
        return 11;
    return 0;
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

TPSTAttachItem::TPSTAttachItem(TPSTFileContextPtr file, std::unique_ptr<pstfile::TAttachment> attachment, int index)
    : TPSTItem(std::move(file), attachment->Nid(), attachment->Properties()), m_attachment(std::move(attachment)),
      m_index(index)
{
    if (auto embedded = m_attachment->Embedded(); embedded && embedded->Properties().IsValid())
        m_mail = std::make_shared<TPSTAttachMailItem>(FileContext(), std::move(embedded));
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
            true, ReadString(Props(), pid::DisplayName, ShortStringChars), m_mail->Subject(), {}, {}, m_index);
    else
        fields.fileName = AttachFileName(false, {}, {}, ReadString(Props(), pid::AttachLongFilename, ShortStringChars),
            ReadString(Props(), pid::AttachFilename, ShortStringChars), m_index);
    fields.contentID = ReadUtf8(Props(), pid::AttachContentId, Utf8Bytes);
    fields.contentType = ReadUtf8(Props(), pid::AttachMimeTag, Utf8Bytes);
    fields.contentLocation = ReadUtf8(Props(), pid::AttachContentLocation, Utf8Bytes);
    fields.size = qint32(ReadUInt32(Props(), pid::AttachSize).value_or(0));
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
    // Only data held by value; an attached message has none.
    const auto data = Props().FindRaw(pid::AttachDataBin);
    if (m_mail || !data || data->type != pstfile::ptBinary)
        return *m_content;
    const qint64 size = m_attachment->DataSize();
    if (size <= 0 || size > std::numeric_limits<qsizetype>::max() / 2)
        return *m_content;
    QByteArray& bytes = *m_content;
    bytes.resize(qsizetype(size));
    qint64 done = 0;
    while (done < size) {
        const qint64 want = std::min<qint64>(ContentChunk, size - done);
        const qint64 got = m_attachment->ReadData(done, bytes.data() + done, want);
        if (got <= 0)
            break;
        done += got;
        if (got < want)
            break;
    }
    // What could not be read stays zero-filled at the reported size.
    return bytes;
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
    if (m_count < 0)
        m_count = int(m_owner.Message().AttachmentCount());
    return m_count;
}

std::shared_ptr<TPSTAttachItem> TAttachList::GetAttach(int index) const
{
    if (!m_fetched) {
        m_fetched = true;
        const int count = Count();
        m_items.resize(size_t(count));
        for (int i = 0; i < count; ++i)
            if (auto attachment = m_owner.Message().OpenAttachment(size_t(i)))
                m_items[size_t(i)] = std::make_shared<TPSTAttachItem>(m_owner.FileContext(), std::move(attachment), i);
    }
    if (index < 0 || index >= int(m_items.size()))
        return nullptr;
    return m_items[size_t(index)];
}

// --- TPSTDetailItem ---------------------------------------------------------

TPSTDetailItem::TPSTDetailItem(
    TPSTFolder* owner, int index, TPSTFileContextPtr file, std::unique_ptr<pstfile::TMessage> message)
    : TPSTItem(std::move(file), message->Nid(), message->Properties()), m_message(std::move(message)), m_owner(owner),
      m_index(index)
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
    return ItemTypeOfClass(ReadString(Props(), pid::MessageClass, ShortStringChars));
}

qint64 TPSTDetailItem::MessageSize() const
{
    std::lock_guard lock(FileContext()->Lock);
    return qint64(ReadUInt32(Props(), pid::MessageSize).value_or(0));
}

// --- TPSTMailItem -------------------------------------------------------------

QString TPSTMailItem::Subject() const
{
    if (!m_subject)
        m_subject = TrimControl(ReadString(Props(), pid::Subject, ShortStringChars));
    return *m_subject;
}

QString TPSTMailItem::MessageClass() const
{
    return ReadString(Props(), pid::MessageClass, ShortStringChars);
}

QString TPSTMailItem::Headers() const
{
    if (!m_headers)
        m_headers = ReadUtf8(Props(), pid::TransportHeaders, Utf8Bytes);
    return *m_headers;
}

core::TDateTime TPSTMailItem::Date(TPSTDateKind kind) const
{
    if (!m_dates) {
        std::array<core::TDateTime, 4> dates {};
        for (size_t i = 0; i < dates.size(); ++i)
            dates[i] = ReadLocalDate(Props(), DateTags[i]);
        m_dates = dates;
    }
    return (*m_dates)[size_t(kind)];
}

const TPSTSender& TPSTMailItem::Sender() const
{
    if (!m_sender) {
        TPSTSender sender;
        sender.Name = ReadUtf8(Props(), pid::SenderName, SenderBytes);
        sender.AddrType = ReadString(Props(), pid::SenderAddrType, ShortStringChars);
        sender.EMail = ReadUtf8(Props(), pid::SenderEmail, SenderBytes);
        sender.SmtpAddress = ReadString(Props(), pid::SenderSmtpAddress, ShortStringChars);
        // What the file knows of Exchange addresses feeds the address book.
        auto& book = platform::DataFileAddressBook();
        book.AddSmtp(sender.EMail, sender.SmtpAddress);
        book.AddSmtp(ReadString(Props(), pid::SentRepresentingEmail, ShortStringChars),
            ReadString(Props(), pid::SentRepresentingSmtpAddress, ShortStringChars));
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
    for (const pstfile::TProperties& row : Message().Recipients()) {
        const auto type = ReadUInt32(row, pid::RecipientType);
        if (!type)
            continue;
        TMailRecipient recipient;
        recipient.Type = *type;
        recipient.DisplayName = ReadString(row, pid::DisplayName, ShortStringChars);
        recipient.RecipientDisplayName = ReadString(row, pid::RecipientDisplayName, ShortStringChars);
        recipient.AddrType = ReadString(row, pid::AddrType, ShortStringChars);
        recipient.EMail = ReadString(row, pid::EmailAddress, ShortStringChars);
        recipient.SmtpAddress = ReadString(row, pid::SmtpAddress, ShortStringChars);
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
    body.Text = ReadPlainTextBody(Props());
    body.HTML = core::DecodeHtml(ReadBody(Props(), pid::Html), Headers(), int(ReadUInt32(Props(), pid::InternetCodepage).value_or(0)));
    const QByteArray rtf = ReadBinary(Props(), pid::RtfCompressed);
    body.RTF = rtf.isEmpty() ? QByteArray() : core::DecompressRtf(rtf);
    while (!body.RTF.isEmpty() && body.RTF.back() == '\0')
        body.RTF.chop(1);
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
        m_meeting = TMeeting{ReadLocalDate(Props(), pid::AppointmentStart), ReadLocalDate(Props(), pid::AppointmentEnd),
            ReadString(Props(), pid::Location, ShortStringChars)};
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
        const core::TDateTime date = ReadLocalDate(Props(), mail::ContactFieldTag(mail::cfBirthday));
        return date > 0 ? QVariant(core::DateTimeToQDateTime(date)) : QVariant();
    }
    if (kind == mail::cfNotes) {
        const QString notes = ReadPlainTextBody(Props());
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
    const QString value = ReadString(Props(), mail::ContactFieldTag(kind), ShortStringChars);
    return value.isEmpty() ? QVariant() : QVariant(value);
}

} // namespace tessaly::pst
