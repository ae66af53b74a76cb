// The EML writer on messages built from the input: subject, sender and
// recipients (internet addresses and anything else), text and HTML bodies,
// header lines of the source, dates, attachments of any name and type,
// pictures the HTML refers to, attached messages. The written message must
// be lines ending in CR LF that GMime parses, with no header field that the
// writer did not set; read back through our own reader it must give the
// subject, the text and every attachment's data. A difference aborts.

#include "core/SettingsStore.h"
#include "fuzz_input.h"
#include "mail/CleverMail.h"
#include "mail/MailMsgObj.h"
#include "tasks/MailEMLTask.h"
#include "tasks/MailProperties.h"

#include <QBuffer>
#include <QDir>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace {

using namespace tessaly;
using namespace tessaly::mail;

void Check(bool ok, const char* what, const QByteArray& written = {})
{
    if (!ok) {
        std::fprintf(stderr, "written message: %s\n%.4000s\n", what, written.constData());
        std::abort();
    }
}

class TFuzzAttach : public IMailAttach {
public:
    QString name, type, id, location;
    QByteArray data;
    std::shared_ptr<IMailMessage> message;

    QString FileName() const override { return name; }
    std::unique_ptr<QIODevice> Content() const override
    {
        if (message)
            return nullptr;
        auto buffer = std::make_unique<QBuffer>();
        buffer->setData(data);
        buffer->open(QIODevice::ReadOnly);
        return buffer;
    }
    QString ContentID() const override { return id; }
    QString ContentType() const override { return type; }
    QString ContentDisposition() const override { return {}; }
    QString ContentLocation() const override { return location; }
    std::shared_ptr<IMailMessage> AsMailMessage() const override { return message; }
};

class TFuzzAttachList : public TCustomMailAttachList {
public:
    std::vector<std::shared_ptr<TFuzzAttach>> items;
    int Count() const override { return int(items.size()); }
    std::shared_ptr<IMailAttach> GetAttach(int index) const override { return items.at(size_t(index)); }
};

class TFuzzMessage : public IMailMessage, public IMailMessage3 {
public:
    std::shared_ptr<IMailRecipient> sender;
    QString subject, headers, text, html;
    std::map<TMailRecipientType, std::shared_ptr<TMailRecipientArray>> recipients;
    std::map<TMailDateType, TDateTime> dates;
    std::shared_ptr<TFuzzAttachList> attaches = std::make_shared<TFuzzAttachList>();

    std::shared_ptr<IMailRecipient> Sender() const override { return sender; }
    QString SenderIP() const override { return {}; }
    QString Subject() const override { return subject; }
    std::shared_ptr<IMailRecipientList> Recipients(TMailRecipientType kind) const override
    {
        const auto it = recipients.find(kind);
        return it == recipients.end() ? nullptr : it->second;
    }
    QString Body(TMailBodyType kind) const override { return kind == mbtText ? text : kind == mbtHTML ? html : QString(); }
    TDateTime Date(TMailDateType kind) const override
    {
        const auto it = dates.find(kind);
        return it == dates.end() ? 0 : it->second;
    }
    QString Headers() const override { return headers; }
    std::shared_ptr<IMailAttachList> Attaches() const override { return attaches; }
    QString UID() const override { return QStringLiteral("1"); }
};

// An internet address of plain letters, or any text.
QString Address(TFuzzInput& in)
{
    if (in.Bool())
        return in.Text(60);
    static const char Letters[] = "abcdefghijklmnopqrstuvwxyz0123456789._-";
    QString local, domain;
    for (int i = 0, n = 1 + in.Pick(12); i < n; ++i)
        local += QLatin1Char(Letters[in.Pick(int(sizeof Letters) - 1)]);
    for (int i = 0, n = 1 + in.Pick(12); i < n; ++i)
        domain += QLatin1Char(Letters[in.Pick(26)]);
    return local + QLatin1Char('@') + domain + QStringLiteral(".org");
}

std::shared_ptr<TFuzzMessage> Message(TFuzzInput& in, int depth)
{
    auto m = std::make_shared<TFuzzMessage>();
    m->subject = in.Text(120);
    if (in.Bool())
        m->sender = std::make_shared<TMailRecipient>(in.Text(40), Address(in));
    for (auto kind : {mrtTo, mrtCC, mrtBCC}) {
        const int count = in.Pick(4);
        if (count == 0)
            continue;
        auto list = std::make_shared<TMailRecipientArray>();
        for (int i = 0; i < count; ++i)
            list->Add(std::make_shared<TMailRecipient>(in.Text(40), Address(in)));
        m->recipients[kind] = list;
    }
    m->text = in.Text(in.Pick(8) == 0 ? 4000 : 300);
    m->html = in.Text(300);
    static const char* const Fields[] = {"Message-ID", "In-Reply-To", "References", "Importance", "X-Priority",
        "Received", "Subject"};
    for (int i = 0, n = in.Pick(4); i < n; ++i)
        m->headers += QLatin1String(Fields[in.Pick(int(std::size(Fields)))]) + QStringLiteral(": ") + in.Text(60)
            + (in.Bool() ? QStringLiteral("\r\n") : QStringLiteral("\n"));
    if (in.Bool())
        m->dates[mdClientSubmit] = TDateTime(int32_t(in.Long())) / 4096.0;
    if (in.Bool())
        m->dates[mdDelivery] = TDateTime(in.Word()) + in.Word() / 65536.0;

    static const char* const Types[] = {"", "image/png", "application/pdf", "text/plain", "message/rfc822",
        "multipart/mixed", "text/html; charset=utf-8", "application/octet-stream"};
    for (int i = 0, n = in.Pick(5); i < n; ++i) {
        auto a = std::make_shared<TFuzzAttach>();
        a->name = in.Text(60);
        const int type = in.Pick(int(std::size(Types)) + 1);
        a->type = type < int(std::size(Types)) ? QLatin1String(Types[type]) : in.Text(40);
        if (in.Bool()) {
            a->id = in.Text(30);
            // A picture the HTML shows.
            if (in.Bool())
                m->html += QStringLiteral("<img src=\"cid:%1\">").arg(a->id.trimmed());
        }
        if (in.Pick(4) == 0)
            a->location = in.Text(30);
        if (depth < 2 && in.Pick(5) == 0)
            a->message = Message(in, depth + 1);
        else
            a->data = in.Pick(4) == 0 ? in.Blob(20000) : in.Bytes(100);
        m->attaches->items.push_back(a);
    }
    return m;
}

// Lines trimmed, one kind of line end.
QString Normalized(QString text)
{
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    text.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    QStringList lines = text.split(QLatin1Char('\n'));
    for (QString& line : lines)
        line = line.trimmed();
    return lines.join(QLatin1Char('\n')).trimmed();
}

// A text for the log: non-ASCII and control characters as \uXXXX.
QByteArray Escaped(const QString& text)
{
    QByteArray out;
    for (QChar c : text)
        out += c.unicode() >= 0x20 && c.unicode() < 0x7F ? QByteArray(1, char(c.unicode()))
                                                          : "\\u" + QByteArray::number(c.unicode(), 16).rightJustified(4, '0');
    return out;
}

// Whether UTF-8 carries the text unchanged (no lone surrogates).
bool Representable(const QString& text) { return QString::fromUtf8(text.toUtf8()) == text; }

bool Printable(const QString& text)
{
    return Representable(text)
        && std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() >= 0x20 && c.unicode() != 0x7F; });
}

std::vector<QByteArray> AttachmentData(const IMailMessage& message, int* messages)
{
    std::vector<QByteArray> list;
    const auto attaches = message.Attaches();
    for (int i = 0; attaches && i < attaches->Count(); ++i) {
        const auto attach = attaches->GetAttach(i);
        if (attach->AsMailMessage()) {
            ++*messages;
            continue;
        }
        const auto content = attach->Content();
        list.push_back(content ? content->readAll() : QByteArray());
    }
    std::sort(list.begin(), list.end());
    return list;
}

void Setup()
{
    static QTemporaryDir dir;
    core::TSettingsStore::SetGlobal(std::make_unique<core::TSettingsStore>(dir.filePath(QStringLiteral("fuzz.ini"))));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool ready = (Setup(), true);
    (void)ready;
    TFuzzInput in(data, size);
    const auto message = Message(in, 0);

    mail::TAttachNameGenerator names;
    const mail::TMimeMessage info(*message, names);
    const QByteArray bytes = info.SaveToBytes();

    Check(!bytes.isEmpty(), "nothing written");
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        if (bytes[i] == '\n')
            Check(i > 0 && bytes[i - 1] == '\r', "a line that does not end in CR LF", bytes);
        if (bytes[i] == '\r')
            Check(i + 1 < bytes.size() && bytes[i + 1] == '\n', "a CR alone", bytes);
    }
    const auto parsed = ParseMimeMessage(bytes);
    Check(parsed != nullptr, "GMime finds no message", bytes);
    // Only the fields the writer sets, each once: no text of the source
    // starts a field of its own.
    static const QStringList Fields = {"from", "to", "cc", "bcc", "subject", "date", "message-id", "in-reply-to",
        "references", "importance", "x-priority", "mime-version", "content-type", "content-transfer-encoding"};
    QStringList seen;
    GMimeHeaderList* headers = g_mime_object_get_header_list(GMIME_OBJECT(parsed.get()));
    for (int i = 0; i < g_mime_header_list_get_count(headers); ++i) {
        const QString name = QString::fromUtf8(g_mime_header_get_name(g_mime_header_list_get_header_at(headers, i))).toLower();
        Check(Fields.contains(name) && !seen.contains(name), "a header field the writer does not set", bytes);
        seen << name;
    }

    // Every part keeps the data of its own attachment.
    const QStringList parts = info.PartNames();
    Check(parts.size() == message->attaches->Count(), "part names");
    for (int i = 0; i < parts.size(); ++i) {
        const auto content = message->attaches->items[size_t(i)]->Content();
        Check(info.AttachData(parts[i]) == (content ? content->readAll() : QByteArray()), "data by part name");
    }

    // Read back through our own reader.
    const auto copy = ParseEMLMessage(bytes);
    if (Printable(message->subject))
        Check(copy->Subject().simplified() == message->subject.simplified(), "subject", bytes);
    if (!message->text.trimmed().isEmpty() && Representable(message->text)) {
        const QString text = Normalized(copy->Body(mbtText));
        if (text != Normalized(message->text))
            std::fprintf(stderr, "given: %s\nread:  %s\n", Escaped(Normalized(message->text)).constData(),
                Escaped(text).constData());
        Check(text == Normalized(message->text), "text body", bytes);
    }
    int messagesWritten = 0, messagesRead = 0;
    const auto written = AttachmentData(*message, &messagesWritten);
    const auto read = AttachmentData(*copy, &messagesRead);
    Check(messagesRead == messagesWritten, "attached messages", bytes);
    if (read != written)
        for (const auto& [side, list] : {std::pair{"given", &written}, std::pair{"read", &read}})
            for (const QByteArray& data : *list)
                std::fprintf(stderr, "%s: %lld bytes %s\n", side, qlonglong(data.size()), data.left(16).toHex().constData());
    Check(read == written, "attachment data", bytes);
    return 0;
}
