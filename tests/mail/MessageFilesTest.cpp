#include "mail/CleverMail.h"
#include "core/DateTime.h"
#include "mail/FileMailMsg.h"
#include "mail/OutlookMessage.h"
#include "mail/VCard.h"

#include "MsgBuilder.h"
#include "TestUtil.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTimeZone>
#include <gtest/gtest.h>
#include <map>

using namespace tessaly::mail;
using tessaly::test::TestData;

namespace {

std::shared_ptr<IMailMessage> Open(const QString& relative)
{
    TFileMailMsgRequest request(TestData(relative));
    return request.Message();
}

QString Utc(TDateTime date)
{
    return date > 0 ? tessaly::core::DateTimeToQDateTime(date).toUTC().toString(Qt::ISODate) : QString();
}

QString Captions(const std::shared_ptr<IMailRecipientList>& list)
{
    if (!list)
        return QStringLiteral("(none)");
    return std::dynamic_pointer_cast<IMailRecipientList2>(list)->Caption(0);
}

QStringList AttachNames(const IMailMessage& message)
{
    QStringList names;
    if (const auto attaches = message.Attaches())
        for (const auto& attach : *attaches)
            names << QStringLiteral("%1:%2").arg(attach->FileName()).arg(attach->Content()->size());
    return names;
}

QString WriteFile(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(bytes);
    return path;
}

QByteArray ReadAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

TEST(MessageFiles, EveryFixtureOpens)
{
    int opened = 0;
    for (const char* folder : {"msg", "eml"}) {
        for (const QString& name : QDir(TestData(QLatin1String(folder))).entryList(QDir::Files)) {
            const auto message = Open(QLatin1String(folder) + QLatin1Char('/') + name);
            ASSERT_TRUE(message) << name.toStdString();
            (void)message->Subject();
            (void)message->Body(mbtText);
            (void)message->Body(mbtHTML);
            ++opened;
        }
    }
    EXPECT_EQ(opened, 24 + 52);
}

TEST(MessageFiles, InternetMessages)
{
    const struct {
        const char* file;
        QString subject, sender, to, submit;
        QStringList attachments;
    } cases[] = {
        {"eml/rfc2822__example01.eml", "Saying Hello", "John Doe <jdoe@machine.example>", "Mary Smith <mary@example.net>",
            "1997-11-21T15:55:06Z", {}},
        {"eml/attachment_emails__attachment_pdf.eml", QStringLiteral("Another PDF with \U0001F389 Unicode chars in it \U0001F37F"),
            "Test Tester <xxxx@xxxx.com>", "xxxx@xxxx.com,xxxx@xxxx.com", "2005-05-10T17:26:39Z", {"broken.pdf:1026"}},
        {"eml/attachment_emails__attachment_nonascii_filename.eml", "testing", "foo@example.com", "blah@example.com",
            "2005-06-06T20:21:22Z", {QStringLiteral("ci\u00eble.txt:11")}},
        {"eml/attachment_emails__attachment_with_base64_encoded_name.eml", "Fwd: Signed email causes file attachments",
            "xxxxxxxxx xxxxxxx <xxxxxxxxx.xxxxxxx@gmail.com>", "xxxxx xxxx <xxxxx@xxxxxxxxx.com>", "2005-05-08T19:09:11Z",
            {"This is a test.pdf:399"}},
        {"eml/multi_charset__japanese_attachment.eml", "testing", "Mikel Lindsaar <raasdnil@gmail.com>",
            "Mikel Lindsaar <raasdnil@gmail.com>", "2009-10-16T12:39:34Z", {QStringLiteral("\u3066\u3059\u3068.txt:33")}},
        {"eml/multi_charset__japanese_iso_2022.eml", QStringLiteral("\u307e\u307f\u3080\u3081\u3082"),
            "Mikel Lindsaar <raasdnil@gmail.com>", QStringLiteral("\u307f\u3051\u308b <raasdnil@gmail.com>"), "", {}},
        {"eml/rfc6532__utf8_headers.eml", QStringLiteral("S\u00e4ying Hello"), QStringLiteral("J\u00f6hn Doe <jd\u00f6e@m\u00e4chine.example>"),
            QStringLiteral("M\u00e4ry Smith <m\u00e4ry@ex\u00e4mple.net>"), "", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const auto message = Open(QLatin1String(c.file));
        ASSERT_TRUE(message);
        EXPECT_EQ(message->Subject(), c.subject);
        EXPECT_EQ(message->Sender()->Caption(), c.sender);
        EXPECT_EQ(message->Sender()->EMailType(), matSMTP);
        EXPECT_EQ(Captions(message->Recipients(mrtTo)), c.to);
        if (!c.submit.isEmpty()) {
            EXPECT_EQ(Utc(message->Date(mdClientSubmit)), c.submit);
        }
        EXPECT_EQ(message->Date(mdDelivery), 0.0);
        EXPECT_EQ(message->Recipients(mrtOriginator), nullptr);
        EXPECT_EQ(AttachNames(*message), c.attachments);
    }
}

TEST(MessageFiles, BodiesAndCharsets)
{
    const auto korean = Open(QStringLiteral("eml/multi_charset__ks_c_5601-1987.eml"));
    EXPECT_EQ(korean->Body(mbtText).trimmed(), QStringLiteral("\uc2a4\ud2f0\ud574")) << korean->Body(mbtText).toStdString();
    const auto basic = Open(QStringLiteral("eml/plain_emails__basic_email.eml"));
    const TMailStringList* lines = std::dynamic_pointer_cast<IMailMessage4>(basic)->BodyStrings(mbtText);
    ASSERT_NE(lines, nullptr);
    EXPECT_GT(lines->Count(), 0);
    EXPECT_EQ(std::dynamic_pointer_cast<IMailMessage4>(basic)->BodyStrings(mbtRTF), nullptr);
    EXPECT_TRUE(basic->Headers().contains(QStringLiteral("Subject: Testing 123")));
}

TEST(MessageFiles, AttachedInternetMessage)
{
    const auto message = Open(QStringLiteral("eml/attachment_emails__attachment_message_rfc822.eml"));
    const auto attach = message->Attaches()->GetAttach(0);
    EXPECT_EQ(attach->FileName(), QStringLiteral("ForwardedMessage.eml"));
    EXPECT_EQ(attach->ContentType(), QStringLiteral("message/rfc822"));
    const auto inner = attach->AsMailMessage();
    ASSERT_TRUE(inner);
    EXPECT_EQ(inner->Subject(), QStringLiteral("Another PDF"));
    EXPECT_EQ(AttachNames(*inner), QStringList{QStringLiteral("broken.pdf:1026")});
}

TEST(MessageFiles, FirstOfTwoSubjectsIsTheSubject)
{
    auto parsed = ParseMimeMessage("Subject: the first\r\nFrom: Ann <a@x.org>\r\nDate: Mon, 1 Jan 2024 10:00:00 +0000\r\n"
                                   "Subject: =?UTF-8?Q?the_second_=C3=A9?=\r\nFrom: Bob <b@y.org>\r\n"
                                   "Date: Tue, 2 Jan 2024 10:00:00 +0000\r\n\r\nbody\r\n");
    ASSERT_TRUE(parsed);
    const TCleverMailMessage twice(std::move(parsed));
    EXPECT_EQ(twice.Subject(), QStringLiteral("the first"));
    ASSERT_TRUE(twice.Sender());
    EXPECT_EQ(twice.Sender()->EMail(), QStringLiteral("a@x.org"));
    EXPECT_EQ(twice.Sender()->Name(), QStringLiteral("Ann"));
    auto once = ParseMimeMessage("Date: Mon, 1 Jan 2024 10:00:00 +0000\r\n\r\nbody\r\n");
    ASSERT_TRUE(once);
    EXPECT_NE(twice.Date(mdClientSubmit), 0);
    EXPECT_EQ(twice.Date(mdClientSubmit), TCleverMailMessage(std::move(once)).Date(mdClientSubmit));
    // One encoded Subject: decoded.
    parsed = ParseMimeMessage("Subject: =?UTF-8?Q?caf=C3=A9?=\r\n\r\nbody\r\n");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(TCleverMailMessage(std::move(parsed)).Subject(), QStringLiteral("café"));
}

// An .msg whose only date and sender are in its transport headers, the date
// one no program can read (as in the spam samples with bad dates written
// out as .msg): GMime's empty placeholder fields of a new message are not
// taken for the first of two; the sender is the header's, the date none.
TEST(MessageFiles, OutlookMessageWithOnlyTransportHeaderDateAndSender)
{
    for (const char* date : {"Pn, 29 paX 2007 21:13:00 +0100", "", "Mon, 1 Jan 2024 10:00:00 +0000"}) {
        SCOPED_TRACE(date);
        tessaly::test::TMsgContent content;
        content.strings[0x001A] = QStringLiteral("IPM.Note");
        content.strings[0x0037] = QStringLiteral("Bad date");
        content.strings[0x007D] = QStringLiteral("Date: %1\r\nFrom: Ann <a@x.org>\r\nX-Mailer: test\r\n").arg(QLatin1String(date));
        QTemporaryDir dir;
        const auto message = TFileMailMsgRequest(WriteFile(dir, QStringLiteral("m.msg"), tessaly::test::BuildMsg(content))).Message();
        ASSERT_TRUE(message);
        EXPECT_EQ(message->Subject(), QStringLiteral("Bad date"));
        EXPECT_EQ(Utc(message->Date(mdClientSubmit)), QLatin1String(date).startsWith(QLatin1String("Mon")) ? QStringLiteral("2024-01-01T10:00:00Z") : QString());
        ASSERT_TRUE(message->Sender());
        EXPECT_EQ(message->Sender()->EMail(), QStringLiteral("a@x.org"));
    }
}

TEST(MessageFiles, EncodedWordsOfHeaders)
{
    struct TCase {
        QByteArray raw;
        QString text;
    };
    const TCase cases[] = {
        // Long subjects split into base64 words, the first ending in padding.
        {"=?UTF-8?B?TXlTdXJ2ZXkuY29tOg==?= =?UTF-8?B?ICBZb3UgaGF2ZSBhIHN1cnZleSB3YWl0aW5nISA5MTEyMzEwNQ==?=",
            QStringLiteral("MySurvey.com:  You have a survey waiting! 91123105")},
        // Q words, folded; the blanks between them dropped, "_" a space.
        {"=?iso-8859-1?Q?Caf=E9_au?=\r\n =?iso-8859-1?Q?_lait?=", QStringLiteral("Café au lait")},
        // One UTF-8 character split across two words.
        {"=?UTF-8?B?5pel?= =?UTF-8?B?5pys?=", QStringLiteral("日本")},
        {"=?UTF-8?Q?=E6=97?= =?UTF-8?Q?=A5?=", QStringLiteral("日")},
        // Several charsets in one header, and text around the words.
        {"Re: =?koi8-r?B?8NLJ?= and =?iso-8859-2?Q?=B1?= ok", QStringLiteral("Re: При and ą ok")},
        // Padding too short, or missing.
        {"=?NONE?B?VEVTVA=?=", QStringLiteral("TEST")},
        {"=?UTF-8?B?VEVTVA?=", QStringLiteral("TEST")},
        // A language tag (RFC 2231) in the charset.
        {"=?UTF-8*en?Q?Hi?=", QStringLiteral("Hi")},
        // Malformed words stay as they stand.
        {"=?UTF-8?B?***?= plain", QStringLiteral("=?UTF-8?B?***?= plain")},
        {"=?UTF-8?X?abc?=", QStringLiteral("=?UTF-8?X?abc?=")},
        // Raw UTF-8 and Latin-1 bytes outside words.
        {"Gr\xC3\xBC\xC3\x9F", QStringLiteral("Grüß")},
        {"Gr\xFC\xDF", QStringLiteral("Grüß")},
        // An unknown charset: its bytes as UTF-8 or Latin-1.
        {"=?x-unknown?Q?abc?=", QStringLiteral("abc")},
    };
    for (const TCase& c : cases)
        EXPECT_EQ(DecodeHeaderText(c.raw), c.text) << c.raw.toStdString();

    auto parsed = ParseMimeMessage("Subject: =?UTF-8?B?TXlTdXJ2ZXkuY29tOg==?=\r\n =?UTF-8?B?ICBZb3U=?=\r\n\r\nbody\r\n");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(TCleverMailMessage(std::move(parsed)).Subject(), QStringLiteral("MySurvey.com:  You"));
}

// Display names and attachment names go through GMime's parsers, which lose
// the words after a padded base64 word: the fields are mended first.
TEST(MessageFiles, EncodedWordsOfNamesAndFileNames)
{
    const QByteArray mime =
        "From: =?UTF-8?B?TXlTdXJ2ZXkuY29tOg==?= =?UTF-8?B?IFN1cnZleXM=?= <s@example.com>\r\n"
        "To: =?iso-8859-1?Q?Andr=E9?=\r\n =?iso-8859-1?Q?_M=FCller?= <a@example.com>, \"=?UTF-8?B?5pel?= =?UTF-8?B?5pys?=\" <j@example.com>\r\n"
        "Cc: plain <p@example.com>\r\n"
        "Cc: =?UTF-8?B?VEVTVA=?= <t@example.com>, =?UTF-8?X?bad?= <b@example.com>\r\n"
        "Subject: names\r\n"
        "MIME-Version: 1.0\r\n"
        "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n"
        "--b\r\nContent-Type: text/plain\r\n\r\nbody\r\n"
        "--b\r\nContent-Type: application/octet-stream\r\n"
        "Content-Disposition: attachment; filename=\"=?UTF-8?B?UmVwb3J0IDIwMjQ=?= =?UTF-8?B?IOaXpeacrC5wZGY=?=\"\r\n"
        "Content-Transfer-Encoding: base64\r\n\r\nQUJD\r\n"
        "--b\r\nContent-Type: application/octet-stream; name=\"=?koi8-r?B?8NLJ?= =?koi8-r?B?18XU?=.txt\"\r\n"
        "Content-Transfer-Encoding: base64\r\n\r\nQUJD\r\n"
        "--b\r\nContent-Type: application/octet-stream\r\n"
        "Content-Disposition: attachment; filename*0*=UTF-8''%E6%97%A5; filename*1*=%E6%9C%AC.txt\r\n"
        "Content-Transfer-Encoding: base64\r\n\r\nQUJD\r\n"
        "--b--\r\n";
    auto parsed = ParseMimeMessage(mime);
    ASSERT_TRUE(parsed);
    const TCleverMailMessage message(std::move(parsed));
    ASSERT_TRUE(message.Sender());
    EXPECT_EQ(message.Sender()->Name(), QStringLiteral("MySurvey.com: Surveys"));
    EXPECT_EQ(message.Sender()->EMail(), QStringLiteral("s@example.com"));
    const auto names = [](const std::shared_ptr<IMailRecipientList>& list) {
        QStringList out;
        for (int i = 0; list && i < list->Count(); ++i)
            out << list->GetRecipient(i)->Name() + QLatin1Char('|') + list->GetRecipient(i)->EMail();
        return out;
    };
    EXPECT_EQ(names(message.Recipients(mrtTo)),
        QStringList({QStringLiteral("André Müller|a@example.com"), QStringLiteral("日本|j@example.com")}));
    // Both Cc fields, the malformed word left as it stands.
    EXPECT_EQ(names(message.Recipients(mrtCC)), QStringList({QStringLiteral("plain|p@example.com"),
                                                    QStringLiteral("TEST|t@example.com"),
                                                    QStringLiteral("=?UTF-8?X?bad?=|b@example.com")}));
    EXPECT_EQ(AttachNames(message), QStringList({QStringLiteral("Report 2024 日本.pdf:3"),
                                        QStringLiteral("Привет.txt:3"), QStringLiteral("日本.txt:3")}));

    // What GMime reads whole already comes through unchanged.
    EXPECT_EQ(MendEncodedWords("plain <p@example.com>"), QByteArray("plain <p@example.com>"));
    EXPECT_EQ(DecodeHeaderText(MendEncodedWords("a =?UTF-8?B?5pel?=\r\n =?UTF-8?B?5pys?= b")), QStringLiteral("a 日本 b"));
}

TEST(MessageFiles, SenderIPFromHeaders)
{
    const struct {
        QString headers;
        QString ip;
    } cases[] = {
        {"X-Originating-IP: [203.0.113.9]\r\nReceived: from a (a [198.51.100.1])\r\n", "203.0.113.9"},
        {"Received: from relay (relay [198.51.100.7])\r\n\tby mx\r\nReceived: from pc (pc [10.0.0.5])\r\n\tby relay\r\n"
         "Received: from first (first [203.0.113.77])\r\n\tby pc\r\n",
            "203.0.113.77"},
        {"Received: from pc (pc [192.168.1.2])\r\n", "192.168.1.2"},
        {"Received: by mx with SMTP id 1\r\n", ""},
        {"", ""},
        // IPv6 in its short form; unique-local, link-local and loopback
        // addresses count as private, a bracketed non-address is skipped.
        {"X-Originating-IP: [2001:DB8:0:0:0:0:0:1]\r\n", "2001:db8::1"},
        {"Received: from a (a [IPv6:2001:db8::5])\r\nReceived: from b (b [fd12::1])\r\n", "2001:db8::5"},
        {"Received: from a (a [fe80::1])\r\nReceived: from b (b [127.0.0.1])\r\n", "127.0.0.1"},
        {"Received: from a (a [172.20.1.1])\r\nReceived: from b (b [172.32.0.1])\r\n", "172.32.0.1"},
        {"Received: from a (a [999.1.1.1])\r\n\tby [198.51.100.3]\r\n", "198.51.100.3"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(TCleverMailMessage::SenderIPFromHeaders(c.headers), c.ip) << c.headers.toStdString();
}

TEST(MessageFiles, OutlookMessages)
{
    const struct {
        const char* file;
        QString subject, sender, to, submit;
        QStringList attachments;
    } cases[] = {
        {"msg/attachmentFiles.msg", "attachmentFiles", "hmailuser <hmailuser@hmailserver.test>",
            "hmailuser@hmailserver.test", "2023-11-01T00:48:31Z", {"jpg.jpg:726", "png.png:134", "tif.tif:664"}},
        {"msg/sent.msg", "Sent time", "xmailuser <xmailuser@xmailserver.test>",
            "'xmailuser@xmailserver.test' <xmailuser@xmailserver.test>", "2021-02-15T08:19:04Z", {}},
        {"msg/nonUnicodeCP932.msg", QStringLiteral("\u65e5\u672c\u8a9e Non Unicode \u30bf\u30a4\u30c8\u30eb"), "",
            "xmailuser2@xmailserver.test", "", {}},
        {"msg/voteYes.msg", QStringLiteral("\u306f\u3044: 3 vote items: \u306f\u3044;\u3044\u3044\u3048;\u305f\u3076\u3093"),
            "xmailuser <xmailuser@xmailserver.test>", "'xmailuser' <xmailuser@xmailserver.test>", "2021-07-29T10:57:47Z", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const auto message = Open(QLatin1String(c.file));
        ASSERT_TRUE(message);
        EXPECT_EQ(message->Subject(), c.subject);
        const auto sender = message->Sender();
        EXPECT_EQ(sender ? sender->Caption() : QString(), c.sender);
        EXPECT_EQ(Captions(message->Recipients(mrtTo)), c.to);
        if (!c.submit.isEmpty()) {
            EXPECT_EQ(Utc(message->Date(mdClientSubmit)), c.submit);
        }
        EXPECT_EQ(AttachNames(*message), c.attachments);
    }
    // No bodies at all: one blank, so that there is a body part.
    EXPECT_EQ(Open(QStringLiteral("msg/voteYes.msg"))->Body(mbtText), QStringLiteral(" "));
    // HTML recovered from the RTF body, the RTF kept as it is.
    const auto link = Open(QStringLiteral("msg/htmlLink.msg"));
    EXPECT_TRUE(link->Body(mbtHTML).contains(QStringLiteral("<a href=\"https://google.com/\">")));
    EXPECT_TRUE(link->Body(mbtRTF).startsWith(QStringLiteral("{\\rtf1")));
    // Images apart from attachments, and referred to from the HTML.
    const auto inlined = Open(QStringLiteral("msg/attachAndInline.msg"));
    EXPECT_EQ(inlined->Attaches()->Count(), 2);
}

TEST(MessageFiles, MessagesInsideMessages)
{
    auto message = Open(QStringLiteral("msg/msgInMsgInMsg.msg"));
    QStringList subjects;
    while (message) {
        subjects << message->Subject();
        std::shared_ptr<IMailMessage> inner;
        for (const auto& attach : *message->Attaches())
            if (const auto embedded = attach->AsMailMessage()) {
                EXPECT_TRUE(attach->FileName().endsWith(QStringLiteral(".msg")));
                inner = embedded;
            }
        message = inner;
    }
    EXPECT_EQ(subjects, (QStringList{QStringLiteral("I have sub attachments!"), QStringLiteral("I have attachments!"),
                            QStringLiteral("Microsoft Outlook \u30c6\u30b9\u30c8 \u30e1\u30c3\u30bb\u30fc\u30b8")}));
}

// Appointments and meeting messages say when and where: the sample as
// olefile reads its named properties (start 13:00, end 13:30 UTC, an empty
// location), and built files of each class.
TEST(MessageFiles, MeetingsOpenAsMeetings)
{
    const auto sample = std::dynamic_pointer_cast<IMailMeeting>(Open(QStringLiteral("msg/Appointment sample EST.msg")));
    ASSERT_TRUE(sample);
    EXPECT_EQ(Utc(sample->AppoitmentStart()), QStringLiteral("2022-12-04T13:00:00Z"));
    EXPECT_EQ(Utc(sample->AppoitmentEnd()), QStringLiteral("2022-12-04T13:30:00Z"));
    EXPECT_EQ(sample->Location(), QString());

    using tessaly::test::BuildMsg;
    const QUuid appointment(0x00062002, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46);
    // 2025-05-06 09:00 UTC as a FILETIME.
    const uint64_t start = tessaly::core::QDateTimeToFiletime(QDateTime(QDate(2025, 5, 6), QTime(9, 0), Qt::UTC));
    const struct {
        const char* messageClass;
        bool meeting;
    } cases[] = {{"IPM.Appointment", true}, {"IPM.Schedule.Meeting.Request", true},
        {"IPM.Schedule.Meeting.Resp.Pos", true}, {"ipm.appointment.Occurrence", true}, {"IPM.Note", false},
        {"IPM.Contact", false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.messageClass);
        tessaly::test::TMsgContent content;
        content.strings[0x001A] = QLatin1String(c.messageClass);
        content.strings[0x0037] = QStringLiteral("Planning");
        content.named = {{appointment, 0x820D, {}, start}, {appointment, 0x820E, {}, start + 36000000000ULL},
            {appointment, 0x8208, QStringLiteral("Room 7"), 0}};
        QTemporaryDir dir;
        const auto message = TFileMailMsgRequest(WriteFile(dir, QStringLiteral("m.msg"), BuildMsg(content))).Message();
        ASSERT_TRUE(message);
        const auto meeting = std::dynamic_pointer_cast<IMailMeeting>(message);
        ASSERT_EQ(meeting != nullptr, c.meeting);
        if (!meeting)
            continue;
        EXPECT_EQ(message->Subject(), QStringLiteral("Planning"));
        EXPECT_EQ(Utc(meeting->AppoitmentStart()), QStringLiteral("2025-05-06T09:00:00Z"));
        EXPECT_EQ(Utc(meeting->AppoitmentEnd()), QStringLiteral("2025-05-06T10:00:00Z"));
        EXPECT_EQ(meeting->Location(), QStringLiteral("Room 7"));
    }
}

// A named property is the one of its set: another set's property of the
// same number, listed first in the name-to-id map, is not taken for it, and
// is all there is when the set's own is missing.
TEST(MessageFiles, NamedPropertiesAreFoundByTheirSet)
{
    using tessaly::test::BuildMsg;
    const QUuid appointment(0x00062002, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46);
    const QUuid address(0x00062004, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46);
    const QUuid other(0x11112222, 0x3333, 0x4444, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC);
    const uint64_t early = 125911584000000000ULL; // 2000-01-01
    const uint64_t late = 133909956000000000ULL;  // 2025-05-06 09:00 UTC
    tessaly::test::TMsgContent content;
    content.strings[0x001A] = QStringLiteral("IPM.Appointment");
    content.named = {{other, 0x820D, {}, early}, {other, 0x8208, QStringLiteral("not the location"), 0},
        {other, 0x802B, QStringLiteral("not the web page"), 0}, {appointment, 0x820D, {}, late},
        {appointment, 0x8208, QStringLiteral("Room 7"), 0}, {address, 0x80DE, {}, early}};
    TOutlookMessage reader;
    ASSERT_TRUE(reader.LoadFromBytes(BuildMsg(content)));
    EXPECT_EQ(reader.Root().FileTime(0x820D), late);
    EXPECT_EQ(reader.Root().String(0x8208), QStringLiteral("Room 7"));
    EXPECT_EQ(reader.Root().String(0x802B), QString()); // the web page is of the address set
    EXPECT_FALSE(reader.Root().Has(0x802B));
    EXPECT_EQ(reader.Root().FileTime(0x80DE), early);
    EXPECT_EQ(reader.Root().FileTime(0x820E), 0u);
}

TEST(MessageFiles, ContactsOpenAsContacts)
{
    const auto plain = Open(QStringLiteral("msg/contact-plain.msg"));
    const auto contact = std::dynamic_pointer_cast<IMailContact>(plain);
    ASSERT_TRUE(contact);
    EXPECT_EQ(contact->GetField(mcfFullName).toString(), QStringLiteral("(full name) A completely bogus contact"));
    EXPECT_EQ(contact->GetField(mcfJobTitle).toString(), QStringLiteral("(job title) Manager, bogus division"));
    EXPECT_EQ(contact->GetField(mcfEMails).toString(), QStringLiteral("email@emailland.com"));
    EXPECT_EQ(contact->GetField(mcfMobilePhone).toString(), QStringLiteral("(mobile) 0404 123 456"));
    EXPECT_FALSE(contact->GetField(17).isValid()); // a number without a field

    const auto unicode = std::dynamic_pointer_cast<IMailContact>(Open(QStringLiteral("msg/contactUnicode.msg")));
    ASSERT_TRUE(unicode);
    EXPECT_EQ(unicode->GetField(mcfSubject).toString(), QStringLiteral("\u30b3\u30e0 \u30c9\u30c3\u30c8 \u30a4\u30b0\u30b6\u30f3\u30d7\u30eb \u6bbf"));
    EXPECT_EQ(unicode->GetField(mcfCompany).toString(), QStringLiteral("My work company"));
    EXPECT_EQ(unicode->GetField(mcfBirthday).toDateTime().date(), QDate(2000, 1, 1));
    EXPECT_TRUE(std::dynamic_pointer_cast<IMailContact>(Open(QStringLiteral("msg/contact-unicode.msg"))));
    EXPECT_TRUE(std::dynamic_pointer_cast<IMailContact>(Open(QStringLiteral("msg/Swetlana Novikova.msg"))));
    EXPECT_FALSE(std::dynamic_pointer_cast<IMailContact>(Open(QStringLiteral("msg/sent.msg"))));
}

// The gender and wedding anniversary of a contact ([MS-OXPROPS] PidTagGender,
// PidTagWeddingAnniversary): 1 is female, 2 male, 0 and others unknown.
TEST(MessageFiles, ContactGenderAndAnniversary)
{
    QTemporaryDir dir;
    const uint64_t noonJune15 =
        uint64_t(QDateTime(QDate(2010, 6, 15), QTime(12, 0), QTimeZone::utc()).toSecsSinceEpoch() + 11644473600LL) * 10000000ULL;
    const std::pair<uint64_t, QString> genders[] = {
        {1, QStringLiteral("F")}, {2, QStringLiteral("M")}, {0, QString()}, {9, QString()}};
    for (const auto& [gender, letter] : genders) {
        tessaly::test::TMsgContent content;
        content.strings = {{0x001A, QStringLiteral("IPM.Contact")}, {0x3001, QStringLiteral("Ann Lee")}};
        content.fixed = {{0x3A4D0002, gender}, {0x3A410040, noonJune15}};
        const QString path = WriteFile(dir, QStringLiteral("c%1.msg").arg(gender), BuildMsg(content));
        const auto contact = std::dynamic_pointer_cast<IMailContact>(TFileMailMsgRequest(path).Message());
        ASSERT_TRUE(contact);
        EXPECT_EQ(contact->GetField(mcfGender).toString(), letter) << gender;
        EXPECT_EQ(contact->GetField(mcfGender).isValid(), !letter.isEmpty()) << gender;
        EXPECT_EQ(contact->GetField(mcfAnniversary).toDateTime().date(), QDate(2010, 6, 15));
    }
    // Without them, nothing.
    const auto plain = std::dynamic_pointer_cast<IMailContact>(Open(QStringLiteral("msg/contact-plain.msg")));
    ASSERT_TRUE(plain);
    EXPECT_FALSE(plain->GetField(mcfGender).isValid());
    EXPECT_FALSE(plain->GetField(mcfAnniversary).isValid());
}

TEST(MessageFiles, FormatDecision)
{
    QTemporaryDir dir;
    const QByteArray mime = ReadAll(TestData(QStringLiteral("eml/rfc2822__example01.eml")));
    // A .msg that is really an internet message opens as one.
    TFileMailMsgRequest fake(WriteFile(dir, QStringLiteral("fake.msg"), mime));
    EXPECT_EQ(fake.Message()->Subject(), QStringLiteral("Saying Hello"));
    EXPECT_TRUE(fake.AttachesLoaded());
    // The same bytes as .txt are refused, as .mim and .emlx they open.
    const QString txt = WriteFile(dir, QStringLiteral("note.txt"), mime);
    TFileMailMsgRequest refused(txt);
    try {
        refused.Message();
        FAIL() << "a .txt file was taken";
    } catch (const EInvalidMailFormat& e) {
        EXPECT_EQ(e.Message(), QStringLiteral("Can not determine format of file ") + txt);
    }
    TFileMailMsgRequest mim(WriteFile(dir, QStringLiteral("note.MIM"), mime));
    EXPECT_EQ(mim.Message()->Subject(), QStringLiteral("Saying Hello"));
    TFileMailMsgRequest emlx(WriteFile(dir, QStringLiteral("note.emlx"), QByteArray::number(mime.size()) + "\n" + mime + "<?xml plist?>"));
    EXPECT_EQ(emlx.Message()->Subject(), QStringLiteral("Saying Hello"));
    EXPECT_FALSE(emlx.Message()->Body(mbtText).contains(QStringLiteral("plist")));
    // A compound file is an .msg whatever its name.
    TFileMailMsgRequest renamed(WriteFile(dir, QStringLiteral("mail.dat"), ReadAll(TestData(QStringLiteral("msg/sent.msg")))));
    EXPECT_EQ(renamed.Message()->Subject(), QStringLiteral("Sent time"));
    // Streams: compound or internet message.
    QFile msgStream(TestData(QStringLiteral("msg/sent.msg")));
    ASSERT_TRUE(msgStream.open(QIODevice::ReadOnly));
    EXPECT_TRUE(TOutlookMessage::IsStorage(msgStream));
    EXPECT_EQ(msgStream.pos(), 0);
    TFileMailMsgRequest fromStream(msgStream);
    EXPECT_EQ(fromStream.Message()->Subject(), QStringLiteral("Sent time"));
    TFileMailMsgRequest missing(dir.filePath(QStringLiteral("none.eml")));
    EXPECT_THROW(missing.Message(), EFileReadError);
}

TEST(MessageFiles, BuiltMessagesEdgeCases)
{
    QTemporaryDir dir;
    using tessaly::test::BuildMsg;
    using tessaly::test::TMsgContent;

    // The class is compared trimmed, and as a whole.
    TMsgContent contact;
    contact.strings[0x001A] = QStringLiteral("  IPM.Contact ");
    contact.strings[0x3001] = QStringLiteral("Ann Example");
    TOutlookMessage reader;
    ASSERT_TRUE(reader.LoadFromBytes(BuildMsg(contact)));
    EXPECT_TRUE(reader.IsContact());
    contact.strings[0x001A] = QStringLiteral("IPM.Contact.Special");
    ASSERT_TRUE(reader.LoadFromBytes(BuildMsg(contact)));
    EXPECT_FALSE(reader.IsContact());

    // Encoded-word and percent-encoded names; images by extension.
    TMsgContent mail;
    mail.strings[0x001A] = QStringLiteral("IPM.Note");
    mail.strings[0x0037] = QStringLiteral("Files");
    mail.attachments = {{QStringLiteral("=?UTF-8?B?w6TDtsO8LnBkZg==?="), "pdf"}, {QStringLiteral("Photo.JPG"), "jpg"},
        {QStringLiteral("plan%20B.pdf"), "plan"}};
    const auto message = TFileMailMsgRequest(WriteFile(dir, QStringLiteral("files.msg"), BuildMsg(mail))).Message();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->Subject(), QStringLiteral("Files"));
    EXPECT_EQ(message->Body(mbtText), QStringLiteral(" "));
    QStringList names;
    QStringList dispositions;
    for (const auto& attach : *message->Attaches()) {
        names << attach->FileName();
        dispositions << attach->ContentDisposition();
    }
    // Images come before the attachments, inline.
    EXPECT_EQ(names, (QStringList{QStringLiteral("Photo.JPG"), QStringLiteral("\u00e4\u00f6\u00fc.pdf"), QStringLiteral("plan B.pdf")}));
    EXPECT_EQ(dispositions, (QStringList{QStringLiteral("inline"), QStringLiteral("attachment"), QStringLiteral("attachment")}));
}

// A built message reads back as it was given: the text after a NUL, the
// controls U+0080 to U+009F (ISO-8859-1 is read as windows-1252, so the
// text must not be labelled so), and each attachment's data whatever type it
// claims; a Content-ID stays on its own line.
TEST(MessageFiles, BuiltMimeMessageReadsBack)
{
    const QString text = QStringLiteral("before") + QChar(0) + QStringLiteral("after \u0086\u0099 \u00e9");
    const char* const types[] = {"multipart/mixed", "message/rfc822", "bad type/x y", "text/plain", ""};
    std::vector<TMimeFile> files;
    for (size_t i = 0; i < std::size(types); ++i) {
        TMimeFile file;
        file.name = QStringLiteral("f%1.bin").arg(i);
        file.data = "data " + QByteArray::number(qulonglong(i)) + "\r\n--boundary\r\n";
        file.contentType = QLatin1String(types[i]);
        files.push_back(std::move(file));
    }
    files[0].contentId = QStringLiteral("id\r\nX-Injected: 1");
    const auto mime = BuildMimeMessage(text, {}, std::move(files), {});
    char* written = g_mime_object_to_string(GMIME_OBJECT(mime.get()), nullptr);
    const QByteArray bytes(written);
    g_free(written);
    EXPECT_FALSE(bytes.contains("\nX-Injected")) << bytes.toStdString();

    const auto copy = ParseEMLMessage(bytes);
    EXPECT_EQ(copy->Body(mbtText), text);
    const auto attaches = copy->Attaches();
    ASSERT_EQ(attaches->Count(), int(std::size(types))) << bytes.toStdString();
    for (int i = 0; i < attaches->Count(); ++i) {
        const auto content = attaches->GetAttach(i)->Content();
        ASSERT_NE(content, nullptr) << i;
        EXPECT_EQ(content->readAll(), "data " + QByteArray::number(i) + "\r\n--boundary\r\n") << i;
    }

    // A picture whose name is only a NUL still has a name, so that it is not
    // taken for the text of a message with an HTML body alone.
    TMimeFile picture;
    picture.name = QString(QChar(0));
    picture.contentType = QStringLiteral("text/plain");
    picture.contentId = QStringLiteral("pic");
    picture.data = "not the body";
    std::vector<TMimeFile> pictures;
    pictures.push_back(std::move(picture));
    const auto html = BuildMimeMessage({}, QStringLiteral("<img src=\"cid:pic\">"), {}, std::move(pictures));
    char* htmlWritten = g_mime_object_to_string(GMIME_OBJECT(html.get()), nullptr);
    const auto htmlCopy = ParseEMLMessage(QByteArray(htmlWritten));
    g_free(htmlWritten);
    EXPECT_EQ(htmlCopy->Body(mbtText), QString());
    ASSERT_EQ(htmlCopy->Attaches()->Count(), 1);
    EXPECT_EQ(htmlCopy->Attaches()->GetAttach(0)->Content()->readAll(), QByteArray("not the body"));
}

TEST(MessageFiles, VCards)
{
    const QByteArray card = "BEGIN:VCARD\r\nVERSION:2.1\r\nN:Lee;Ann;;Dr.;\r\nFN:Dr. Ann Lee\r\n"
                            "ORG:Example Ltd;Research\r\nTITLE:Chemist\r\nTEL;WORK;VOICE:+1 555 0100\r\n"
                            "TEL;CELL:+1 555 0199\r\nEMAIL;INTERNET:ann@example.com\r\nEMAIL:lee@example.org\r\n"
                            "NOTE;ENCODING=QUOTED-PRINTABLE;CHARSET=UTF-8:Caf=C3=A9 on Mon=\r\ndays\r\n"
                            "ADR;WORK:;;1 Main St;Springfield;;12345;USA\r\nBDAY:1980-04-05\r\n"
                            "URL:https://example.com\r\nEND:VCARD\r\n";
    TVCardContact contact(card);
    EXPECT_EQ(contact.Subject(), QStringLiteral("Dr. Ann Lee"));
    EXPECT_EQ(contact.GetField(mcfCompany).toString(), QStringLiteral("Example Ltd"));
    EXPECT_EQ(contact.GetField(mcfDepartment).toString(), QStringLiteral("Research"));
    EXPECT_EQ(contact.GetField(mcfJobTitle).toString(), QStringLiteral("Chemist"));
    EXPECT_EQ(contact.GetField(mcfBusinessPhone).toString(), QStringLiteral("+1 555 0100"));
    EXPECT_EQ(contact.GetField(mcfMobilePhone).toString(), QStringLiteral("+1 555 0199"));
    EXPECT_EQ(contact.GetField(mcfEMails).toString(), QStringLiteral("ann@example.com,lee@example.org"));
    EXPECT_EQ(contact.GetField(mcfNotes).toString(), QStringLiteral("Caf\u00e9 on Mondays"));
    EXPECT_EQ(contact.GetField(mcfBusinessAddress).toString(), QStringLiteral("1 Main St\n12345 Springfield\nUSA"));
    EXPECT_EQ(contact.GetField(mcfBirthday).toDateTime().date(), QDate(1980, 4, 5));
    EXPECT_EQ(contact.GetField(mcfSurname).toString(), QStringLiteral("Lee"));
    EXPECT_EQ(contact.GetField(mcfTitle).toString(), QStringLiteral("Dr."));
    EXPECT_FALSE(TVCardContact("no card here").GetField(mcfFullName).isValid());

    QTemporaryDir dir;
    const auto fromFile = TFileMailMsgRequest(WriteFile(dir, QStringLiteral("ann.vcf"), card)).Message();
    EXPECT_TRUE(std::dynamic_pointer_cast<IMailContact>(fromFile));
}

TEST(MessageFiles, ContactFieldTable)
{
    // Every message field maps as the table says, and e-mails are composed.
    const std::pair<int, int> pairs[] = {{0, 0}, {1, 7}, {2, 8}, {3, 1}, {5, 0}, {8, 17}, {9, 14}, {11, 16}, {15, 9},
        {16, 10}, {21, 20}, {27, 5}, {28, 6}, {7, 24}, {12, 25}, {24, 26}, {6, 27}, {10, 13}, {13, 28}, {14, 28}, {29, 29}};
    for (const auto& [message, stored] : pairs)
        EXPECT_EQ(ContactFieldOfMessageField(message), stored) << message;
    for (int unmapped : {4, 17, 18, 19, 20, 22, 23, 25, 26, 30, -1})
        EXPECT_EQ(ContactFieldOfMessageField(unmapped), -1) << unmapped;
    EXPECT_EQ(ComposeEMails("a@x", "", "c@x"), QStringLiteral("a@x,c@x"));
    EXPECT_EQ(ComposeEMails("", "b@x", ""), QStringLiteral("b@x"));
    EXPECT_EQ(ComposeEMails("", "", ""), QString());
}

namespace {

QByteArray Written(GMimeObject* object, GMimeNewLineFormat format)
{
    GMimeFormatOptions* options = g_mime_format_options_new();
    g_mime_format_options_set_newline_format(options, format);
    TGPtr<GMimeStream> stream(g_mime_stream_mem_new());
    g_mime_object_write_to_stream(object, options, stream.get());
    g_mime_format_options_free(options);
    return StreamBytes(stream.get());
}

} // namespace

// Attachments are encoded by us as the message is written, past GMime's
// encoder and newline filter, and must come out as GMime's encoder writes
// them (its output computed here on its own): the written files do not
// change, whichever line ends they have.
TEST(MessageFiles, AttachmentBase64AsGMimeWritesIt)
{
    EnsureGMime();
    QByteArray data;
    for (int i = 0; i < 200000; ++i)
        data += char((i * 7919 + i / 13) & 0xFF);
    // Line ends, the end of an encoded block (1,024 lines of 57 bytes) and
    // the sizes around them.
    for (const int size : {0, 1, 2, 3, 4, 56, 57, 58, 59, 113, 114, 115, 171, 1000, 58367, 58368, 58369, 200000}) {
        SCOPED_TRACE(size);
        const QByteArray chunk = data.left(size);
        std::vector<TMimeFile> files(1);
        files[0].name = QStringLiteral("a.bin");
        files[0].data = chunk;
        const auto message = BuildMimeMessage(QStringLiteral("text"), {}, std::move(files), {});
        const QByteArray dos = Written(GMIME_OBJECT(message.get()), GMIME_NEWLINE_FORMAT_DOS);
        QByteArray unix = Written(GMIME_OBJECT(message.get()), GMIME_NEWLINE_FORMAT_UNIX);
        // GMime's encoder on its own, for what the part must hold.
        QByteArray expected(GMIME_BASE64_ENCODE_LEN(size_t(size)) + 8, '\0');
        int state = 0;
        guint32 save = 0;
        const size_t n = g_mime_encoding_base64_encode_close(reinterpret_cast<const unsigned char*>(chunk.constData()),
            size_t(size), reinterpret_cast<unsigned char*>(expected.data()), &state, &save);
        expected.truncate(qsizetype(n));
        EXPECT_TRUE(unix.contains("\n\n" + expected)) << unix.toStdString();
        EXPECT_EQ(dos, unix.replace("\n", "\r\n"));
        // Read back, the data is whole.
        const TCleverMailMessage back(ParseMimeMessage(dos));
        const auto attaches = back.Attaches();
        ASSERT_TRUE(attaches && attaches->Count() == 1);
        EXPECT_EQ(attaches->GetAttach(0)->Content()->readAll(), chunk);
    }
}

// A message of several parts, attachments among them, comes out byte for
// byte as GMime writes it, every line ended by CRLF.
TEST(MessageFiles, EncodedAttachmentsWrittenAsGMimeWouldWriteThem)
{
    EnsureGMime();
    QByteArray data;
    for (int i = 0; i < 5000; ++i)
        data += char((i * 31 + i / 7) & 0xFF);
    std::vector<TMimeFile> files(3);
    files[0].name = QStringLiteral("a.bin");
    files[0].data = data;
    files[1].name = QStringLiteral("empty.txt");
    files[2].name = QStringLiteral("b.pdf");
    files[2].data = data.left(57 * 3); // whole lines only
    std::vector<TMimeFile> images(1);
    images[0].name = QStringLiteral("p.png");
    images[0].data = data.left(100);
    images[0].contentId = QStringLiteral("p1");
    const auto message = BuildMimeMessage(QStringLiteral("line one\nline two\r\n"),
        QStringLiteral("<p>x<img src=\"cid:p1\"></p>"), std::move(files), std::move(images));
    const QByteArray dos = Written(GMIME_OBJECT(message.get()), GMIME_NEWLINE_FORMAT_DOS);
    QByteArray unix = Written(GMIME_OBJECT(message.get()), GMIME_NEWLINE_FORMAT_UNIX);
    EXPECT_FALSE(unix.contains('\r'));
    EXPECT_EQ(dos, unix.replace("\n", "\r\n"));
    EXPECT_EQ(dos.count("\n"), dos.count("\r\n"));
    // Written twice, the same: the parts' data is not used up.
    EXPECT_EQ(Written(GMIME_OBJECT(message.get()), GMIME_NEWLINE_FORMAT_DOS), dos);
    const TCleverMailMessage back(ParseMimeMessage(dos));
    const auto attaches = back.Attaches();
    ASSERT_TRUE(attaches);
    std::map<QString, QByteArray> read;
    for (int i = 0; i < attaches->Count(); ++i)
        read[attaches->GetAttach(i)->FileName()] = attaches->GetAttach(i)->Content()->readAll();
    const std::map<QString, QByteArray> expected{{QStringLiteral("a.bin"), data},
        {QStringLiteral("empty.txt"), QByteArray()}, {QStringLiteral("b.pdf"), data.left(57 * 3)},
        {QStringLiteral("p.png"), data.left(100)}};
    EXPECT_EQ(read, expected);
}
