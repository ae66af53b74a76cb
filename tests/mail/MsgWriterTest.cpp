#include "mail/CleverMail.h"
#include "mail/FileMailMsg.h"
#include "mail/MsgWriter.h"
#include "mail/OutlookMessage.h"

#include "MailTestObjects.h"
#include "MsgReaderModule.h"
#include "TestUtil.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <gtest/gtest.h>

// Readable failures.
inline void PrintTo(const QString& text, std::ostream* out) { *out << '"' << text.toStdString() << '"'; }

using namespace tessaly::mail;
using tessaly::test::MsgReaderModule;
using tessaly::test::TestData;
using tessaly::test::TTestAttachList;
using tessaly::test::TTestMessage;

namespace {

// An attachment built at test time: data, or an attached message.
class TDataAttach : public IMailAttach {
public:
    TDataAttach(QString name, QByteArray data, QString type = {}, QString id = {})
        : m_name(std::move(name)), m_data(std::move(data)), m_type(std::move(type)), m_id(std::move(id))
    {
    }
    explicit TDataAttach(QString name, std::shared_ptr<IMailMessage> message)
        : m_name(std::move(name)), m_message(std::move(message))
    {
    }
    QString FileName() const override { return m_name; }
    std::unique_ptr<QIODevice> Content() const override
    {
        auto buffer = std::make_unique<QBuffer>();
        buffer->setData(m_data);
        buffer->open(QIODevice::ReadOnly);
        return buffer;
    }
    QString ContentID() const override { return m_id; }
    QString ContentType() const override { return m_type; }
    QString ContentDisposition() const override { return {}; }
    QString ContentLocation() const override { return {}; }
    std::shared_ptr<IMailMessage> AsMailMessage() const override { return m_message; }

private:
    QString m_name;
    QByteArray m_data;
    QString m_type, m_id;
    std::shared_ptr<IMailMessage> m_message;
};

std::shared_ptr<IMailMessage> ReadMsg(const QByteArray& bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    TFileMailMsgRequest request(buffer);
    return request.Message();
}

QString Captions(const std::shared_ptr<IMailRecipientList>& list)
{
    const auto captions = std::dynamic_pointer_cast<IMailRecipientList2>(list);
    return captions ? captions->Caption(0) : QString();
}

QString Lines(QString text)
{
    return text.replace(QLatin1String("\r\n"), QLatin1String("\n")).trimmed();
}

// What a reader shows of a message, attached messages included, as lines
// that two readings must agree on.
QStringList Fields(const IMailMessage& message, int depth = 0)
{
    const QString indent(depth * 2, QLatin1Char(' '));
    const auto sender = message.Sender();
    QStringList fields{
        indent + QStringLiteral("subject: ") + message.Subject(),
        indent + QStringLiteral("from: ") + (sender ? sender->Caption() : QString()),
        indent + QStringLiteral("to: ") + Captions(message.Recipients(mrtTo)),
        indent + QStringLiteral("cc: ") + Captions(message.Recipients(mrtCC)),
        indent + QStringLiteral("bcc: ") + Captions(message.Recipients(mrtBCC)),
        indent + QStringLiteral("date: ")
            + QString::number(tessaly::core::DateTimeToQDateTime(message.Date(mdClientSubmit)).toSecsSinceEpoch()),
        indent + QStringLiteral("text: ") + Lines(message.Body(mbtText)),
        indent + QStringLiteral("html: ") + Lines(message.Body(mbtHTML)),
    };
    if (const auto attaches = message.Attaches()) {
        QStringList parts;
        for (const auto& attach : *attaches) {
            if (const auto inner = attach->AsMailMessage()) {
                parts << indent + QStringLiteral("message:") << Fields(*inner, depth + 1);
                continue;
            }
            const auto content = attach->Content();
            parts << indent + QStringLiteral("attach: %1 %2").arg(attach->FileName()).arg(content ? content->size() : -1);
        }
        fields << parts;
    }
    return fields;
}

std::shared_ptr<TTestMessage> Message(const QString& subject)
{
    auto message = std::make_shared<TTestMessage>();
    message->subject = subject;
    message->sender = std::make_shared<TMailRecipient>(QStringLiteral("Ann Example"), QStringLiteral("ann@example.org"));
    message->recipients[mrtTo] = tessaly::test::Recipients({{QStringLiteral("Bob"), QStringLiteral("bob@example.org")}});
    message->dates[mdClientSubmit] = tessaly::core::QDateTimeToDateTime(QDateTime(QDate(2024, 3, 5), QTime(9, 30), QTimeZone::utc()));
    message->text = QStringLiteral("Hello Bob");
    return message;
}

// Messages built at test time, each with what a writer could get wrong.
std::vector<std::pair<const char*, std::shared_ptr<IMailMessage>>> BuiltMessages()
{
    std::vector<std::pair<const char*, std::shared_ptr<IMailMessage>>> cases;

    auto unicode = Message(QStringLiteral("\u65e5\u672c\u8a9e \u00c5ngstr\u00f6m \U0001F600 \u0422\u0435\u0441\u0442"));
    unicode->sender = std::make_shared<TMailRecipient>(QStringLiteral("\u0160\u00e1r\u00f6n \u674e"), QStringLiteral("sharon@example.org"));
    unicode->html = QStringLiteral("<html><body><p>\u65e5\u672c\u8a9e &amp; \u00e9t\u00e9 \U0001F600</p></body></html>");
    unicode->text = QStringLiteral("\u65e5\u672c\u8a9e \u00e9t\u00e9");
    cases.emplace_back("unicode subject, names and bodies", unicode);

    auto many = Message(QStringLiteral("many recipients"));
    auto to = std::make_shared<TMailRecipientArray>();
    auto cc = std::make_shared<TMailRecipientArray>();
    for (int i = 0; i < 40; ++i)
        (i % 3 ? to : cc)->Add(std::make_shared<TMailRecipient>(QStringLiteral("Person %1").arg(i), QStringLiteral("p%1@example.org").arg(i)));
    many->recipients[mrtTo] = to;
    many->recipients[mrtCC] = cc;
    many->recipients[mrtBCC] = tessaly::test::Recipients({{QString(), QStringLiteral("hidden@example.org")}});
    cases.emplace_back("many recipients of three kinds", many);

    auto empty = Message(QString());
    empty->text.clear();
    empty->sender = nullptr;
    empty->recipients.clear();
    empty->dates.clear();
    cases.emplace_back("empty message", empty);

    auto attached = Message(QStringLiteral("attachments"));
    QByteArray big(300 * 1024, '\0');
    for (qsizetype i = 0; i < big.size(); ++i)
        big[i] = char(i * 7 + i / 251);
    attached->attaches = std::make_shared<TTestAttachList>(std::vector<std::shared_ptr<IMailAttach>>{
        std::make_shared<TDataAttach>(QStringLiteral("report.pdf"), QByteArray("%PDF-1.4 small"), QStringLiteral("application/pdf")),
        std::make_shared<TDataAttach>(QStringLiteral("large.bin"), big),
        std::make_shared<TDataAttach>(QStringLiteral("empty.txt"), QByteArray()),
        std::make_shared<TDataAttach>(QStringLiteral("\u5831\u544a\u66f8 \u00fc.docx"), QByteArray("docx")),
    });
    cases.emplace_back("attachments small, large, empty, unicode", attached);

    auto deepest = Message(QStringLiteral("level two"));
    deepest->attaches = std::make_shared<TTestAttachList>(std::vector<std::shared_ptr<IMailAttach>>{
        std::make_shared<TDataAttach>(QStringLiteral("deep.txt"), QByteArray("at the bottom"))});
    auto middle = Message(QStringLiteral("level one"));
    middle->recipients[mrtCC] = tessaly::test::Recipients({{QStringLiteral("Carol"), QStringLiteral("carol@example.org")}});
    middle->attaches = std::make_shared<TTestAttachList>(std::vector<std::shared_ptr<IMailAttach>>{
        std::make_shared<TDataAttach>(QStringLiteral("level two.msg"), deepest)});
    auto top = Message(QStringLiteral("level zero"));
    top->attaches = std::make_shared<TTestAttachList>(std::vector<std::shared_ptr<IMailAttach>>{
        std::make_shared<TDataAttach>(QStringLiteral("a.txt"), QByteArray("first")),
        std::make_shared<TDataAttach>(QStringLiteral("level one.msg"), middle)});
    cases.emplace_back("attached message two levels deep", top);
    return cases;
}

} // namespace

TEST(MsgWriter, BuiltMessagesReadBackAsWritten)
{
    for (const auto& [name, message] : BuiltMessages()) {
        SCOPED_TRACE(name);
        const QByteArray bytes = TMsgWriter(*message).SaveToBytes();
        ASSERT_TRUE(TOutlookMessage::HasCompoundSignature(bytes));
        const auto read = ReadMsg(bytes);
        ASSERT_TRUE(read);
        EXPECT_EQ(Fields(*read), Fields(*message));
    }
}

TEST(MsgWriter, SampleFilesReadBackAsRead)
{
    const char* files[] = {"msg/attachmentFiles.msg", "msg/sent.msg", "msg/nonUnicodeCP932.msg", "msg/msgInMsgInMsg.msg",
        "msg/htmlLink.msg", "msg/unicode1.msg", "msg/Hello +CJK.msg", "msg/attachAndInline.msg",
        "eml/attachment_emails__attachment_message_rfc822.eml", "eml/attachment_emails__attachment_pdf_non_ascii.eml",
        "eml/multi_charset__japanese_iso_2022.eml", "eml/multi_charset__ks_c_5601-1987.eml",
        "eml/multipart_report_emails__multi_address_bounce2.eml", "eml/rfc6532__utf8_headers.eml",
        "eml/error_emails__encoding_madness.eml", "eml/plain_emails__basic_email.eml"};
    for (const char* file : files) {
        SCOPED_TRACE(file);
        TFileMailMsgRequest request(TestData(QLatin1String(file)));
        const auto source = request.Message();
        const QByteArray bytes = TMsgWriter(*source).SaveToBytes();
        const auto read = ReadMsg(bytes);
        ASSERT_TRUE(read);
        EXPECT_EQ(Fields(*read), Fields(*source));
    }
}

TEST(MsgWriter, StorageLayout)
{
    const auto all = BuiltMessages();
    const auto& top = all.back().second;
    const QByteArray bytes = TMsgWriter(*top).SaveToBytes();
    TOutlookMessage reader;
    ASSERT_TRUE(reader.LoadFromBytes(bytes));
    ASSERT_TRUE(reader.HasMessage());
    const TMsgStorage& root = reader.Root();
    namespace pid = tessaly::pstfile::pid;
    EXPECT_EQ(reader.MessageClass(), QStringLiteral("IPM.Note"));
    EXPECT_EQ(root.String(pid::SenderSmtpAddress), QStringLiteral("ann@example.org"));
    EXPECT_EQ(root.String(pid::SenderAddrType), QStringLiteral("SMTP"));
    EXPECT_EQ(root.String(pid::DisplayTo), QStringLiteral("Bob"));
    EXPECT_EQ(root.FileTime(pid::ClientSubmitTime),
        tessaly::core::QDateTimeToFiletime(QDateTime(QDate(2024, 3, 5), QTime(9, 30), QTimeZone::utc())));
    const auto recipients = root.Children("__recip_version1.0_#", 8);
    ASSERT_EQ(recipients.size(), 1u);
    EXPECT_EQ(recipients[0].Int32(pid::RecipientType), 1u);
    EXPECT_EQ(recipients[0].String(pid::SmtpAddress), QStringLiteral("bob@example.org"));
    const auto attachments = root.Children("__attach_version1.0_#", 8);
    ASSERT_EQ(attachments.size(), 2u);
    EXPECT_EQ(attachments[0].Int32(pid::AttachMethod), 1u);
    EXPECT_EQ(attachments[0].String(pid::AttachFilename), QStringLiteral("A.TXT"));
    EXPECT_EQ(attachments[0].Binary(pid::AttachDataBin), QByteArray("first"));
    EXPECT_EQ(attachments[1].Int32(pid::AttachMethod), 5u);
    const auto level1 = attachments[1].EmbeddedMessage();
    ASSERT_TRUE(level1);
    EXPECT_EQ(level1->String(pid::Subject), QStringLiteral("level one"));
    const auto level2 = level1->Children("__attach_version1.0_#", 8).at(0).EmbeddedMessage();
    ASSERT_TRUE(level2);
    EXPECT_EQ(level2->String(pid::Subject), QStringLiteral("level two"));
    EXPECT_EQ(level2->Children("__attach_version1.0_#", 8).at(0).Binary(pid::AttachDataBin), QByteArray("at the bottom"));
}

TEST(MsgWriter, ContactFieldsAsNamedProperties)
{
    // Most contact fields are named properties of the address set.
    TFileMailMsgRequest contactFile(TestData(QStringLiteral("msg/contact-unicode.msg")));
    const auto contact = contactFile.Message();
    const QByteArray bytes = TMsgWriter(*contact).SaveToBytes();
    const auto read = ReadMsg(bytes);
    const auto* before = dynamic_cast<const IMailContact*>(contact.get());
    const auto* after = dynamic_cast<const IMailContact*>(read.get());
    ASSERT_TRUE(before && after);
    int compared = 0;
    for (int field : {mcfFullName, mcfCompany, mcfJobTitle, mcfEMails, mcfBusinessPhone, mcfMobilePhone,
             mcfBusinessAddress, mcfWebPage, mcfBirthday, mcfSurname}) {
        SCOPED_TRACE(field);
        EXPECT_EQ(after->GetField(field), before->GetField(field));
        compared += before->GetField(field).isValid();
    }
    EXPECT_GE(compared, 3); // the sample holds these fields
}

TEST(MsgWriter, HtmlKeepsItsCharset)
{
    const struct {
        const char* name;
        QString html, headers;
        QByteArray stored;
        bool namesUtf8;
        QString readBack; // a character the charset lacks comes back as its reference
    } cases[] = {
        {"no charset: UTF-8", QStringLiteral("<p>\u00e9</p>"), {}, "<p>\xc3\xa9</p>", true, QStringLiteral("<p>\u00e9</p>")},
        {"declared windows-1252", QStringLiteral("<meta charset=\"windows-1252\"><p>\u00e9 \u65e5</p>"), {},
            "<meta charset=\"windows-1252\"><p>\xe9 &#26085;</p>", false,
            QStringLiteral("<meta charset=\"windows-1252\"><p>\u00e9 &#26085;</p>")},
        {"charset of the headers", QStringLiteral("<p>\u00e9</p>"),
            QStringLiteral("Content-Type: text/html; charset=iso-8859-1"), "<p>\xe9</p>", false,
            QStringLiteral("<p>\u00e9</p>")},
    };
    namespace pid = tessaly::pstfile::pid;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto message = Message(QStringLiteral("html"));
        message->html = c.html;
        message->headers = c.headers;
        TOutlookMessage reader;
        ASSERT_TRUE(reader.LoadFromBytes(TMsgWriter(*message).SaveToBytes()));
        EXPECT_EQ(reader.Root().Binary(pid::Html), c.stored);
        EXPECT_EQ(reader.Root().Int32(pid::InternetCodepage).has_value(), c.namesUtf8);
        EXPECT_EQ(reader.Body().HTML, c.readBack);
    }
}

TEST(MsgWriter, RtfBodyAndMessageId)
{
    auto message = std::make_shared<TTestMessage>();
    message->subject = QStringLiteral("rtf");
    message->headers = QStringLiteral("Subject: rtf\r\nMessage-ID:\r\n <abc.123@example.org>\r\nX-Other: 1\r\n");
    TFileMailMsgRequest source(TestData(QStringLiteral("msg/htmlLink.msg")));
    const auto withRtf = source.Message();
    const QByteArray rtf = withRtf->Body(mbtRTF).toLatin1();
    ASSERT_TRUE(rtf.startsWith("{\\rtf1"));
    TOutlookMessage reader;
    ASSERT_TRUE(reader.LoadFromBytes(TMsgWriter(*withRtf).SaveToBytes()));
    EXPECT_EQ(reader.Body().RTF, rtf);
    ASSERT_TRUE(reader.LoadFromBytes(TMsgWriter(*message).SaveToBytes()));
    EXPECT_EQ(reader.Root().String(tessaly::pstfile::pid::InternetMessageId), QStringLiteral("<abc.123@example.org>"));
}

TEST(MsgWriter, AttachedMessagesDeeperThanTheBoundAreNotFollowed)
{
    std::shared_ptr<IMailMessage> inner = Message(QStringLiteral("level 20"));
    for (int level = 19; level >= 0; --level) {
        auto outer = Message(QStringLiteral("level %1").arg(level));
        outer->attaches = std::make_shared<TTestAttachList>(
            std::vector<std::shared_ptr<IMailAttach>>{std::make_shared<TDataAttach>(QStringLiteral("inner.msg"), inner)});
        inner = outer;
    }
    auto read = ReadMsg(TMsgWriter(*inner).SaveToBytes());
    int levels = 0;
    std::shared_ptr<IMailAttach> last;
    while (read && read->Attaches() && read->Attaches()->Count() == 1) {
        last = read->Attaches()->GetAttach(0);
        read = last->AsMailMessage();
        levels += read != nullptr;
    }
    EXPECT_EQ(levels, MaxMsgEmbeddingDepth);
    // Below the bound the attachment is still there, by its name.
    ASSERT_TRUE(last);
    EXPECT_EQ(last->FileName(), QStringLiteral("inner.msg"));
}

TEST(MsgWriter, ShortNames)
{
    const struct {
        QString name, expected;
    } cases[] = {
        {QStringLiteral("a.txt"), QStringLiteral("A.TXT")},
        {QStringLiteral("report 2024.pdf"), QStringLiteral("REPORT~1.PDF")},
        {QStringLiteral("archive.tar.gz"), QStringLiteral("ARCHIV~1.GZ")},
        {QStringLiteral("page.html"), QStringLiteral("PAGE~1.HTM")},
        {QStringLiteral("\u65e5\u672c.doc"), QStringLiteral("ATTACH.DOC")},
        {QStringLiteral("../../x"), QStringLiteral("X")},
        {QStringLiteral("C:\\dir\\file.name.txt"), QStringLiteral("FILENA~1.TXT")},
        {QString(), QStringLiteral("ATTACH")},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ShortAttachName(c.name), c.expected) << c.name.toStdString();
}

TEST(MsgWriter, FilesAreWrittenWholeOrNotAtAll)
{
    QTemporaryDir dir;
    const auto message = Message(QStringLiteral("file"));
    const QString path = dir.filePath(QStringLiteral("out.msg"));
    QString error;
    ASSERT_TRUE(TMsgWriter(*message).SaveToFile(path, false, &error)) << error.toStdString();
    TFileMailMsgRequest request(path);
    EXPECT_EQ(request.Message()->Subject(), QStringLiteral("file"));
    // A taken name is not replaced unless asked.
    const qint64 size = QFileInfo(path).size();
    EXPECT_FALSE(TMsgWriter(*Message(QStringLiteral("second"))).SaveToFile(path, false, &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(QFileInfo(path).size(), size);
    EXPECT_TRUE(TMsgWriter(*Message(QStringLiteral("second"))).SaveToFile(path, true, &error));
    EXPECT_EQ(TFileMailMsgRequest(path).Message()->Subject(), QStringLiteral("second"));
    // A folder that does not exist: an error and nothing written.
    const QString missing = dir.filePath(QStringLiteral("no/such/folder/out.msg"));
    error.clear();
    EXPECT_FALSE(TMsgWriter(*message).SaveToFile(missing, false, &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(missing));
}

TEST(MsgWriter, HostileAttachmentNamesAreStoredAsGiven)
{
    const QStringList names{QStringLiteral("../../etc/passwd"), QStringLiteral("C:\\Windows\\evil.exe"),
        QStringLiteral("con.txt"), QStringLiteral("a%2Fb%00c.txt"), QStringLiteral("with\nline\tbreak.txt"),
        QString(QLatin1Char('n')).repeated(400) + QStringLiteral(".txt")};
    auto message = Message(QStringLiteral("hostile names"));
    std::vector<std::shared_ptr<IMailAttach>> attaches;
    for (const QString& name : names)
        attaches.push_back(std::make_shared<TDataAttach>(name, name.toUtf8()));
    message->attaches = std::make_shared<TTestAttachList>(attaches);
    const QByteArray bytes = TMsgWriter(*message).SaveToBytes();
    TOutlookMessage reader;
    ASSERT_TRUE(reader.LoadFromBytes(bytes));
    const auto stored = reader.Root().Children("__attach_version1.0_#", 8);
    ASSERT_EQ(stored.size(), size_t(names.size()));
    namespace pid = tessaly::pstfile::pid;
    static const QRegularExpression ShortName(QStringLiteral("^[A-Z0-9_~-]{1,8}(\\.[A-Z0-9_-]{1,3})?$"));
    for (qsizetype i = 0; i < names.size(); ++i) {
        SCOPED_TRACE(names[i].toStdString());
        EXPECT_EQ(stored[size_t(i)].String(pid::AttachLongFilename), names[i]);
        EXPECT_TRUE(ShortName.match(stored[size_t(i)].String(pid::AttachFilename)).hasMatch());
        EXPECT_EQ(stored[size_t(i)].Binary(pid::AttachDataBin), names[i].toUtf8());
    }
    // The reader makes of them what it makes of any name; none is lost.
    const auto read = ReadMsg(bytes);
    EXPECT_EQ(read->Attaches()->Count(), names.size());
}

// --- an independent reader ----------------------------------------------------------

namespace {

// What msgreader reads of each file, as JSON. Attachment sizes are those of
// the data streams' directory entries: msgreader gives only the first
// 64-byte block of a small stream's content (of Outlook's own files too).
const char* ReadScript = R"(
const fs = require('fs');
const MsgReader = require(process.argv[2]).default;
const out = [];
for (const file of process.argv.slice(3)) {
  const data = fs.readFileSync(file);
  const reader = new MsgReader(data.buffer.slice(data.byteOffset, data.byteOffset + data.length));
  const info = reader.getFileData();
  out.push({
    error: info.error || '',
    subject: info.subject || '', senderName: info.senderName || '', senderEmail: info.senderEmail || '',
    body: info.body || '',
    recipients: (info.recipients || []).map(r => (r.name || '') + ' <' + (r.email || '') + '>'),
    attachments: (info.attachments || []).map((a, i) => a.innerMsgContent ? 'message'
      : (a.fileName || '') + ' ' + (a.fileNameShort || '') + ' ' + (a.contentLength || 0)),
  });
}
process.stdout.write(JSON.stringify(out));
)";

} // namespace

TEST(MsgWriter, MsgReaderReadsWhatWasWritten)
{
    QString skip;
    const QString module = MsgReaderModule(skip);
    if (module.isEmpty()) {
        if (!skip.isEmpty())
            GTEST_SKIP() << skip.toStdString();
        return;
    }
    QTemporaryDir dir;
    std::vector<std::shared_ptr<IMailMessage>> messages;
    for (const auto& [name, message] : BuiltMessages())
        messages.push_back(message);
    for (const char* file : {"msg/attachmentFiles.msg", "eml/attachment_emails__attachment_pdf_non_ascii.eml",
             "eml/multi_charset__japanese_iso_2022.eml"})
        messages.push_back(TFileMailMsgRequest(TestData(QLatin1String(file))).Message());
    QStringList arguments{dir.filePath(QStringLiteral("read.js")), module};
    QFile script(arguments[0]);
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write(ReadScript);
    script.close();
    for (size_t i = 0; i < messages.size(); ++i) {
        arguments << dir.filePath(QStringLiteral("%1.msg").arg(i));
        QString error;
        ASSERT_TRUE(TMsgWriter(*messages[i]).SaveToFile(arguments.last(), false, &error)) << error.toStdString();
    }
    QProcess node;
    node.start(QStringLiteral("node"), arguments);
    ASSERT_TRUE(node.waitForFinished(60000));
    ASSERT_EQ(node.exitCode(), 0) << node.readAllStandardError().toStdString();
    const QJsonArray read = QJsonDocument::fromJson(node.readAllStandardOutput()).array();
    ASSERT_EQ(read.size(), qsizetype(messages.size()));
    for (size_t i = 0; i < messages.size(); ++i) {
        const IMailMessage& m = *messages[i];
        const QJsonObject r = read[qsizetype(i)].toObject();
        SCOPED_TRACE(m.Subject().toStdString());
        EXPECT_EQ(r[QLatin1String("error")].toString(), QString());
        EXPECT_EQ(r[QLatin1String("subject")].toString(), m.Subject());
        const auto sender = m.Sender();
        EXPECT_EQ(r[QLatin1String("senderEmail")].toString(), sender ? sender->EMail() : QString());
        if (sender && !sender->Name().isEmpty()) {
            EXPECT_EQ(r[QLatin1String("senderName")].toString(), sender->Name());
        }
        EXPECT_EQ(Lines(r[QLatin1String("body")].toString()), Lines(m.Body(mbtText)));
        QStringList recipients;
        for (const auto kind : {mrtTo, mrtCC, mrtBCC})
            if (const auto list = m.Recipients(kind))
                for (const auto& p : *list)
                    recipients << (p->Name().isEmpty() ? p->EMail() : p->Name()) + QStringLiteral(" <") + p->EMail()
                            + QLatin1Char('>');
        QStringList readRecipients;
        for (const auto& value : r[QLatin1String("recipients")].toArray())
            readRecipients << value.toString();
        EXPECT_EQ(readRecipients, recipients);
        QStringList attachments;
        if (const auto list = m.Attaches())
            for (const auto& a : *list) {
                if (a->AsMailMessage()) {
                    attachments << QStringLiteral("message");
                    continue;
                }
                const QByteArray data = a->Content()->readAll();
                attachments << QStringLiteral("%1 %2 %3").arg(a->FileName(), ShortAttachName(a->FileName())).arg(data.size());
            }
        QStringList readAttachments;
        for (const auto& value : r[QLatin1String("attachments")].toArray())
            readAttachments << value.toString();
        attachments.sort();
        readAttachments.sort();
        EXPECT_EQ(readAttachments, attachments);
    }
}
