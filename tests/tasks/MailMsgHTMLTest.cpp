#include "mail/FileMailMsg.h"
#include "mail/MailMsgHTML.h"
#include "mail/MsgWriter.h"
#include "pstfile/PSTWriter.h"
#include "pst/PSTFile.h"
#include "pst/PSTMessage.h"
#include "tasks/MailProperties.h"

#include "../mail/MailTestObjects.h"
#include "../pst/PSTTestUtil.h"
#include "TasksTestUtil.h"
#include "TestUtil.h"
#include "core/SettingsStore.h"

#include <QBuffer>
#include <QFile>
#include <QImage>
#include <QLocale>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace tessaly;
using namespace tessaly::mail;
using tessaly::test::TestData;
using tessaly::test::TTestMessage;

namespace {

// Renders as the export's defaults say, with images inline.
QString Render(const IMailMessage& message, const TMailHTMLOptions& options)
{
    const TMessageHTMLTask task(message);
    return TMailMsgHTML::Render(message, options, task);
}

TMailHTMLOptions DefaultOptions()
{
    tasks::TMailProperties properties;
    properties.SetCmdHTMLEmbedImages(true);
    return properties.HTMLOptions();
}

class HtmlTest : public test::TOptionsTest {
protected:

    // Compares with the golden file; TESSALY_UPDATE_GOLDEN=1 writes it instead.
    static void ExpectGolden(const QString& html, const QString& name)
    {
        const QString path = TestData(QStringLiteral("golden/") + name);
        if (qEnvironmentVariableIsSet("TESSALY_UPDATE_GOLDEN")) {
            QFile out(path);
            ASSERT_TRUE(out.open(QIODevice::WriteOnly));
            out.write(html.toUtf8());
            return;
        }
        QFile in(path);
        ASSERT_TRUE(in.open(QIODevice::ReadOnly)) << path.toStdString();
        EXPECT_TRUE(QString::fromUtf8(in.readAll()) == html) << name.toStdString() << " differs; got:\n"
                                                             << html.left(3000).toStdString();
    }
};

std::shared_ptr<TTestMessage> Sample()
{
    auto m = std::make_shared<TTestMessage>();
    m->subject = QStringLiteral("Tea & <biscuits> \"now\" \u20ac5 \U0001F375");
    m->sender = std::make_shared<TMailRecipient>(QStringLiteral("Ann & Co"), QStringLiteral("ann@example.com"));
    m->recipients[mrtTo] = test::Recipients({{"Bob \\\\ Jr\\x", "bob@example.com"}});
    m->recipients[mrtCC] = test::Recipients({});
    m->dates[mdClientSubmit] = core::QDateTimeToDateTime(QDateTime(QDate(2024, 3, 5), QTime(9, 30, 0)));
    m->text = QStringLiteral("Hello\r\nsee http://example.com/a?b=1 now");
    return m;
}

} // namespace

TEST_F(HtmlTest, GoldenRenderingsOfRealMessages)
{
    ExpectGolden(Render(*TFileMailMsgRequest(TestData(QStringLiteral("eml/rfc2822__example01.eml"))).Message(),
                     DefaultOptions()),
        QStringLiteral("plain-text.html"));
    ExpectGolden(Render(*TFileMailMsgRequest(TestData(QStringLiteral("msg/attachAndInline.msg"))).Message(),
                     DefaultOptions()),
        QStringLiteral("inline-images.html"));

    pst::TPSTFile enron(TestData(QStringLiteral("pst/enron.pst")));
    const auto withAttachment =
        pst::adapter::WrapItem(test::FindFolder(enron.RootFolder(), QStringLiteral("Systems"))->GetItem(1), false);
    ExpectGolden(Render(*withAttachment, DefaultOptions()), QStringLiteral("attachment-list.html"));

    pst::TPSTFile ost(TestData(QStringLiteral("pst/pstextractortest@outlook.com.ost")));
    const auto meeting =
        pst::adapter::WrapItem(test::FindFolder(ost.RootFolder(), QStringLiteral("Calendar"))->GetItem(0), false);
    ASSERT_TRUE(std::dynamic_pointer_cast<IMailMeeting>(meeting));
    ExpectGolden(Render(*meeting, DefaultOptions()), QStringLiteral("meeting.html"));
}

TEST_F(HtmlTest, EveryValueIsEncoded)
{
    const QString html = Render(*Sample(), DefaultOptions());
    EXPECT_TRUE(html.contains(
        QStringLiteral("<td>Tea &amp; &lt;biscuits&gt; &quot;now&quot; &#8364;5 &#127861;</td>")))
        << html.toStdString();
    EXPECT_TRUE(html.contains(QStringLiteral("<a href=\"mailto:ann@example.com\">Ann &amp; Co &lt;ann@example.com&gt;</a>")));
    EXPECT_EQ(TMailMsgHTML::Encode(QStringLiteral("caf\u00e9 \u0100")), QStringLiteral("caf\u00e9 &#256;"));
}

TEST_F(HtmlTest, HeaderRules)
{
    const QString html = Render(*Sample(), DefaultOptions());
    // A doubled backslash shows one; a single one disappears.
    EXPECT_TRUE(html.contains(QStringLiteral(">Bob \\ Jrx &lt;bob@example.com&gt;</a>"))) << html.toStdString();
    // Rows alternate; CC is empty and not chosen, so absent.
    EXPECT_TRUE(html.contains(QStringLiteral("<tr id=header_row_odd><td id=from_caption nowrap width=15%><b>From: </b>")));
    EXPECT_TRUE(html.contains(QStringLiteral("<tr id=header_row_even><td id=to_caption nowrap width=15%><b>To: </b>")));
    EXPECT_FALSE(html.contains(QStringLiteral("<td id=cc_caption")));
    EXPECT_TRUE(html.contains(QStringLiteral("<td>3/5/24 9:30:00 AM</td>")));

    // No To recipients: the row stands with an empty cell; empty CC is left out.
    auto lonely = Sample();
    lonely->recipients[mrtTo] = test::Recipients({});
    TMailHTMLOptions withCC = DefaultOptions();
    withCC.CC = true;
    const QString empty = Render(*lonely, withCC);
    EXPECT_TRUE(empty.contains(QStringLiteral("<b>To: </b></td><td id=empty_cell>&nbsp;</td></tr>")));
    EXPECT_FALSE(empty.contains(QStringLiteral("<td id=cc_caption")));

    // The date in UTC.
    TMailHTMLOptions utc = DefaultOptions();
    utc.DateUTC = true;
    const QDateTime local(QDate(2024, 3, 5), QTime(9, 30, 0));
    const QString expected = QLocale().toString(local.toUTC().date(), QLocale::ShortFormat) + QLatin1Char(' ')
        + QLocale().toString(local.toUTC().time(), QStringLiteral("h:mm:ss AP")) + QStringLiteral(" UTC");
    EXPECT_TRUE(Render(*Sample(), utc).contains(QStringLiteral("<td>") + expected + QStringLiteral("</td>")))
        << expected.toStdString();

    // Only the body: no header table and no rule.
    TMailHTMLOptions bodyOnly;
    bodyOnly.Sender = bodyOnly.Recipient = bodyOnly.Date = bodyOnly.Subject = false;
    const QString plain = Render(*Sample(), bodyOnly);
    EXPECT_FALSE(plain.contains(QStringLiteral("<table id=header_table")));
    EXPECT_FALSE(plain.contains(QStringLiteral("<hr>")));
    // The body and the date-UTC flag alone still write an (empty) table.
    bodyOnly.DateUTC = true;
    EXPECT_TRUE(Render(*Sample(), bodyOnly).contains(QStringLiteral("<table id=header_table>\r\n</table>\r\n<hr>")));
}

TEST_F(HtmlTest, BodyRules)
{
    auto message = Sample();
    // Bare links become anchors, quoted ones are left.
    message->html = QStringLiteral("<p>see http://example.com/x and <a href=\"https://example.org\">https://example.org</a></p>");
    const QString linked = Render(*message, DefaultOptions());
    EXPECT_TRUE(linked.contains(QStringLiteral("see <a href=\"http://example.com/x\">http://example.com/x</a> and <a href=\"https://example.org\">https://example.org</a>")))
        << linked.toStdString();

    // In text, an address ends before an encoded bracket or quote.
    auto text = Sample();
    text->text = QStringLiteral("see <http://example.com/a> or \"https://example.org\".");
    EXPECT_TRUE(Render(*text, DefaultOptions()).contains(QStringLiteral(
        "see &lt;<a href=\"http://example.com/a\">http://example.com/a</a>&gt; or &quot;<a href=\"https://example.org\">https://example.org</a>&quot;.")));

    // A cut closing tag is repaired.
    message->html = QStringLiteral("<html><body>x</body></html");
    EXPECT_TRUE(Render(*message, DefaultOptions()).contains(QStringLiteral("x</body></html>\r\n</div>")));

    // Meta tags and fonts.
    EXPECT_EQ(TMailMsgHTML::PrepareMeta(QStringLiteral(
                  "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=iso-8859-1\"><style>p{font-family:Arial,sans}"
                  " td{font: Verdana }</style>")),
        QStringLiteral("<style>p{font-family:Arial Unicode MS,sans} td{font: Arial Unicode MS }</style>"));

    // Runs of blank lines: more than 1000 collapse to one, fewer stay; a run
    // at the end always collapses.
    const auto lines = [](int blanks) {
        return QStringLiteral("a\r\n") + QStringLiteral(" \t\r\n").repeated(blanks) + QStringLiteral("b\r\n\r\n\r\n");
    };
    auto withLines = std::make_shared<test::TTestMessage4>();
    withLines->text = lines(1500);
    TMailHTMLOptions bodyOnly;
    bodyOnly.Sender = bodyOnly.Recipient = bodyOnly.Date = bodyOnly.Subject = false;
    QString html = Render(*withLines, bodyOnly);
    EXPECT_EQ(html.count(QStringLiteral("<br>")), 3) << html.right(200).toStdString();
    withLines->text = lines(500);
    html = Render(*withLines, bodyOnly);
    EXPECT_EQ(html.count(QStringLiteral("<br>")), 502);

    // Nothing but the head: the document is empty.
    auto blank = std::make_shared<TTestMessage>();
    EXPECT_EQ(Render(*blank, bodyOnly), QString());
    blank->html = QStringLiteral("<html><body><p>&nbsp;</p></body></html>");
    EXPECT_EQ(Render(*blank, bodyOnly), QString());

    // A body of pictures alone is something to show, whichever way it shows them.
    for (const QString& pictures : {QStringLiteral("<p>&nbsp;<img src=\"cid:photo@x\"></p>"),
             QStringLiteral("<table background=\"cid:bg@x\"><tr><td>&nbsp;</td></tr></table>"),
             QStringLiteral("<div style=\"background-image: url(cid:bg@x); height: 200px\"></div>")}) {
        blank->html = pictures;
        EXPECT_FALSE(Render(*blank, bodyOnly).isEmpty()) << pictures.toStdString();
    }

    // So is a header block above an empty body.
    auto headed = std::make_shared<TTestMessage>();
    headed->subject = QStringLiteral("Photo");
    headed->sender = std::make_shared<TMailRecipient>(QStringLiteral("Ann"), QStringLiteral("ann@x.org"));
    headed->html = QStringLiteral("&nbsp;");
    const QString page = Render(*headed, DefaultOptions());
    EXPECT_TRUE(page.contains(QStringLiteral("Photo"))) << page.left(500).toStdString();
}

TEST_F(HtmlTest, StyleBlock)
{
    TMailHTMLOptions options = DefaultOptions();
    options.PaperWidth = 700.4;
    QString html = Render(*Sample(), options);
    EXPECT_TRUE(html.startsWith(QStringLiteral(
        "<head>\r\n<meta http-equiv=\"Content-Type\" content=\"text/html;charset=UTF-8\" />\r\n<style type=\"text/css\">\r\n")));
    EXPECT_TRUE(html.contains(QStringLiteral("max-width: 700;")));
    EXPECT_TRUE(html.contains(QStringLiteral("#from_row, #header_row_odd { background-color: LightYellow; }")));

    QTemporaryDir dir;
    QFile css(dir.filePath(QStringLiteral("mine.css")));
    ASSERT_TRUE(css.open(QIODevice::WriteOnly));
    css.write("body { color: teal; }");
    css.close();
    options.UseExternalCSS = true;
    options.ExternalCSSFile = css.fileName();
    html = Render(*Sample(), options);
    EXPECT_TRUE(html.contains(QStringLiteral("<style type=\"text/css\">\r\nbody { color: teal; }\r\n</style>")));

    options.NoStyle = true;
    EXPECT_FALSE(Render(*Sample(), options).contains(QStringLiteral("<style")));
}

TEST_F(HtmlTest, DataUrls)
{
    EXPECT_TRUE(TMailMsgHTML::ImageDataURL(QByteArray("\x89PNG\r\n\x1a\n", 8)).startsWith(QStringLiteral("data:image/png;base64,")));
    EXPECT_TRUE(TMailMsgHTML::ImageDataURL(QByteArray("\xFF\xD8\xFF\xE0", 4)).startsWith(QStringLiteral("data:image/jpeg;base64,")));
    EXPECT_EQ(TMailMsgHTML::ImageDataURL("not an image"), QString());
    // A format without a media type of its own becomes PNG.
    QImage image(4, 2, QImage::Format_RGB32);
    image.fill(Qt::red);
    QByteArray ppm;
    QBuffer buffer(&ppm);
    buffer.open(QIODevice::WriteOnly);
    ASSERT_TRUE(image.save(&buffer, "PPM"));
    const QString url = TMailMsgHTML::ImageDataURL(ppm);
    ASSERT_TRUE(url.startsWith(QStringLiteral("data:image/png;base64,")));
    QImage back;
    EXPECT_TRUE(back.loadFromData(QByteArray::fromBase64(url.mid(22).toLatin1())));
    EXPECT_EQ(back.size(), QSize(4, 2));
}

TEST(MailMsgHTML, BodyCharsetRepair)
{
    EXPECT_EQ(DeclaredCharset(QStringLiteral("<meta http-equiv=Content-Type content=\"text/html; charset=windows-1251\">")),
        QStringLiteral("windows-1251"));
    EXPECT_EQ(DeclaredCharset(QStringLiteral("<meta name=charset content=x><p>")), QString());
    EXPECT_EQ(HeaderHtmlCharset(QStringLiteral("Content-type: text/html; charset=\"koi8-r\"\r\n")), QStringLiteral("koi8-r"));
    // Bytes that came through one per character are decoded; Unicode text
    // and unknown charsets stay as they are.
    EXPECT_EQ(ConvertBodyCharset(QStringLiteral("koi8-r"), QString::fromLatin1("\xF0\xD2\xC9")), QStringLiteral("При"));
    EXPECT_EQ(ConvertBodyCharset(QStringLiteral("koi8-r"), QStringLiteral("При")), QStringLiteral("При"));
    EXPECT_EQ(ConvertBodyCharset(QStringLiteral("x-nonsense"), QString::fromLatin1("\xF0")), QString::fromLatin1("\xF0"));

    // A message whose headers give its HTML part a charset the body does not
    // declare: the rendered body is decoded in it, but not when the body
    // declares one of its own.
    TTestMessage message;
    message.headers = QStringLiteral("Content-type: text/html; charset=\"koi8-r\"\r\n");
    message.html = QStringLiteral("<p>x</p>");
    EXPECT_EQ(RepairBodyCharset(message, QString::fromLatin1("<p>\xF0\xD2\xC9</p>")), QStringLiteral("<p>При</p>"));
    message.html = QStringLiteral("<meta charset=windows-1251><p>x</p>");
    EXPECT_EQ(RepairBodyCharset(message, QString::fromLatin1("<p>\xF0</p>")), QString::fromLatin1("<p>\xF0</p>"));
}

// --- contacts, meetings and pictures from files built here ---------------------

namespace {

// A 6 x 4 picture, kept as bytes so that its data URL never changes.
QByteArray Picture()
{
    return QByteArray::fromBase64("iVBORw0KGgoAAAANSUhEUgAAAAYAAAAECAIAAAAiZtkUAAAAP0lEQVR42g3IMQEAMAgEscqpEpQg4mZmRLyIn5mR1WbMu"
                                  "WywyRYrdthzceDEhYUH/1KgRIWEBv3qoJMuWvTQD7IrJfn7iv+mAAAAAElFTkSuQmCC");
}

// Writes the models into a new data file, each into the folder (a special
// one, or one of that name and class below the top) that goes with it.
struct TFolderItem {
    QString folder, containerClass;
    std::shared_ptr<pstfile::TPSTMessage> model;
};

QString WriteDataFile(const QTemporaryDir& dir, const std::vector<TFolderItem>& items)
{
    using namespace pstfile;
    const QString path = dir.filePath(QStringLiteral("built.pst"));
    TPSTWriter writer(path, QStringLiteral("Built"));
    for (const auto& item : items) {
        uint32_t folder = item.folder == QLatin1String("Inbox") ? writer.SpecialFolder(psfInbox)
            : item.folder == QLatin1String("Deleted Items")     ? writer.SpecialFolder(psfDeletedItems)
                                                                : writer.FindFolder(writer.SpecialFolder(psfTopOfStore), item.folder);
        if (!folder)
            folder = writer.AddFolder(writer.SpecialFolder(psfTopOfStore), item.folder, item.containerClass);
        writer.AddMessage(folder, *item.model);
    }
    writer.Finish();
    return path;
}

// The message a file built by the .msg writer holds.
std::shared_ptr<IMailMessage> ReadMsg(const QTemporaryDir& dir, const pstfile::TPSTMessage& model, const QString& name)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return nullptr;
    file.write(TMsgWriter(std::make_shared<const pstfile::TPSTMessage>(model)).SaveToBytes());
    file.close();
    return TFileMailMsgRequest(path).Message();
}

std::shared_ptr<IMailMessage> ReadVCard(const QTemporaryDir& dir, const QByteArray& card, const QString& name)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return nullptr;
    file.write(card);
    file.close();
    return TFileMailMsgRequest(path).Message();
}

std::shared_ptr<IMailMessage> ItemOf(pst::TPSTFile& file, const QString& folder, int index)
{
    pst::TPSTFolder* found = test::FindFolder(file.RootFolder(), folder);
    return found ? pst::adapter::WrapItem(found->GetItem(index), false) : nullptr;
}

// Options with no header field, as the preview renders its body.
TMailHTMLOptions PreviewOptions()
{
    TMailHTMLOptions options;
    options.Sender = options.Recipient = options.CC = options.BCC = options.Date = options.Subject = false;
    options.AttachInfo = false;
    options.EmbedImages = false;
    return options;
}

// One contact as the data-file and .msg writers store it.
std::shared_ptr<pstfile::TPSTMessage> ContactModel()
{
    using namespace pstfile;
    auto m = std::make_shared<TPSTMessage>();
    m->SetString(pid::MessageClass, QStringLiteral("IPM.Contact"));
    m->SetString(pid::DisplayName, QStringLiteral("Ann Example"));
    m->SetString(pid::CompanyName, QStringLiteral("Halvorne & Co"));
    m->SetString(pid::Title, QStringLiteral("Chief Tea Officer"));
    m->SetString(pid::DepartmentName, QStringLiteral("Research"));
    m->SetString(pid::BusinessTelephone, QStringLiteral("+41 44 555 01 01"));
    m->SetString(pid::HomeTelephone, QStringLiteral("+41 44 555 02 02"));
    m->SetString(pid::MobileTelephone, QStringLiteral("+41 79 555 03 03"));
    m->SetString(pid::BusinessFax, QStringLiteral("+41 44 555 04 04"));
    m->SetString(pid::PostalAddress, QStringLiteral("Hauptweg 7\r\n3000 Bern\r\nSwitzerland"));
    m->SetNamedString(PSETID_Address(), pid::WorkAddress, QStringLiteral("Bahnhofstrasse 1\r\n8001 Z\u00fcrich\r\nSwitzerland"));
    m->SetNamedString(PSETID_Address(), pid::Email1Address, QStringLiteral("ann@example.com"));
    m->SetNamedString(PSETID_Address(), pid::Email2Address, QStringLiteral("ann@home.example"));
    m->SetNamedString(PSETID_Address(), pid::WebPage, QStringLiteral("https://example.com/ann"));
    m->SetNamedTime(PSETID_Address(), pid::Birthday, QDateTime(QDate(1980, 5, 17), QTime(0, 0), Qt::UTC));
    m->SetString(pid::Body, QStringLiteral("Met at the fair.\r\nLikes tea."));
    m->AddAttachment(QStringLiteral("ContactPicture.jpg"), Picture(), QStringLiteral("image/jpeg"));
    return m;
}

// The same contact as a vCard.
QByteArray ContactCard()
{
    return "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Ann Example\r\nN:Example;Ann;;;\r\nORG:Halvorne & Co;Research\r\n"
           "TITLE:Chief Tea Officer\r\nEMAIL;TYPE=WORK:ann@example.com\r\nEMAIL;TYPE=HOME:ann@home.example\r\n"
           "TEL;TYPE=WORK:+41 44 555 01 01\r\nTEL;TYPE=HOME:+41 44 555 02 02\r\nTEL;TYPE=CELL:+41 79 555 03 03\r\n"
           "TEL;TYPE=FAX:+41 44 555 04 04\r\nADR;TYPE=WORK:;;Bahnhofstrasse 1;Z\xC3\xBCrich;;8001;Switzerland\r\n"
           "ADR;TYPE=HOME:;;Hauptweg 7;Bern;;3000;Switzerland\r\nBDAY:1980-05-17\r\nURL:https://example.com/ann\r\n"
           "NOTE:Met at the fair.\\nLikes tea.\r\nPHOTO;ENCODING=b;TYPE=PNG:"
        + Picture().toBase64() + "\r\nEND:VCARD\r\n";
}

} // namespace

// A contact is a card of its fields, the same from a data file, an .msg
// file and a vCard, and the same whatever header fields are chosen: no
// sender, recipient or date rows, no body apart from the notes it shows.
TEST_F(HtmlTest, ContactCardFromEveryReader)
{
    QTemporaryDir dir;
    const auto model = ContactModel();
    pst::TPSTFile file(WriteDataFile(dir, {{QStringLiteral("Contacts"), QStringLiteral("IPF.Contact"), model}}));
    const std::pair<const char*, std::shared_ptr<IMailMessage>> sources[] = {
        {"data file", ItemOf(file, QStringLiteral("Contacts"), 0)},
        {".msg", ReadMsg(dir, *model, QStringLiteral("ann.msg"))},
        {"vCard", ReadVCard(dir, ContactCard(), QStringLiteral("ann.vcf"))},
    };
    const QString expectedRows[] = {
        QStringLiteral("<b>Name: </b></td><td id=name_text>Ann Example</td><td rowspan=14 valign=top width=1><img class=contact_picture width=6 height=4 src=\"")
            + TMailMsgHTML::ImageDataURL(Picture()) + QStringLiteral("\"></td></tr>"),
        QStringLiteral("<b>Company: </b></td><td id=company_text>Halvorne &amp; Co</td></tr>"),
        QStringLiteral("<b>Job title: </b></td><td id=jobtitle_text>Chief Tea Officer</td></tr>"),
        QStringLiteral("<b>Department: </b></td><td id=department_text>Research</td></tr>"),
        QStringLiteral("<b>E-mail: </b></td><td id=email_text><a href=\"mailto:ann@example.com\">ann@example.com</a><br>"
                       "<a href=\"mailto:ann@home.example\">ann@home.example</a></td></tr>"),
        QStringLiteral("<b>Business phone: </b></td><td id=businessphone_text>+41 44 555 01 01</td></tr>"),
        QStringLiteral("<b>Home phone: </b></td><td id=homephone_text>+41 44 555 02 02</td></tr>"),
        QStringLiteral("<b>Mobile phone: </b></td><td id=mobilephone_text>+41 79 555 03 03</td></tr>"),
        QStringLiteral("<b>Business fax: </b></td><td id=businessfax_text>+41 44 555 04 04</td></tr>"),
        QStringLiteral("<b>Business address: </b></td><td id=businessaddress_text>Bahnhofstrasse 1<br>\r\n8001 Z\u00fcrich<br>\r\nSwitzerland</td></tr>"),
        QStringLiteral("<b>Address: </b></td><td id=address_text>Hauptweg 7<br>\r\n3000 Bern<br>\r\nSwitzerland</td></tr>"),
        QStringLiteral("<b>Birthday: </b></td><td id=birthday_text>5/17/80</td></tr>"),
        QStringLiteral("<b>Web page: </b></td><td id=webpage_text><a href=\"https://example.com/ann\">https://example.com/ann</a></td></tr>"),
        QStringLiteral("<b>Notes: </b></td><td id=notes_text>Met at the fair.<br>\r\nLikes tea.</td></tr>"),
    };
    QString first;
    for (const auto& [what, message] : sources) {
        SCOPED_TRACE(what);
        ASSERT_TRUE(message);
        ASSERT_TRUE(dynamic_cast<const IMailContact*>(message.get()));
        const QString html = Render(*message, DefaultOptions());
        EXPECT_TRUE(html.contains(QStringLiteral("<table id=header_table class=contact_card>"))) << html.toStdString();
        for (const QString& row : expectedRows)
            EXPECT_TRUE(html.contains(row)) << row.toStdString() << "\n" << html.toStdString();
        for (const char* absent : {"<b>From: </b>", "<b>To: </b>", "<b>Date: </b>", "<b>Subject: </b>", "<div id=msg_body>", "<hr>"})
            EXPECT_FALSE(html.contains(QLatin1String(absent))) << absent;
        EXPECT_EQ(Render(*message, PreviewOptions()).section(QStringLiteral("</head>"), 1), html.section(QStringLiteral("</head>"), 1));
        if (first.isEmpty())
            first = html;
        EXPECT_EQ(html, first);
    }
}

// Fields left empty make no rows; a picture that is no image makes none,
// and a card without any field is no page at all.
TEST_F(HtmlTest, ContactCardLeavesOutWhatIsEmpty)
{
    QTemporaryDir dir;
    const struct {
        const char* name;
        QByteArray card;
        QStringList captions;
        bool picture;
    } cases[] = {
        {"name and mobile", "BEGIN:VCARD\r\nFN:Bob\r\nTEL;TYPE=CELL:+1 555 0199\r\nEND:VCARD\r\n",
            {QStringLiteral("Name"), QStringLiteral("Mobile phone")}, false},
        {"mailing address as the business one",
            "BEGIN:VCARD\r\nFN:Bob\r\nADR;TYPE=WORK:;;1 Main St;Springfield;;12345;USA\r\nEND:VCARD\r\n",
            {QStringLiteral("Name"), QStringLiteral("Business address")}, false},
        {"a picture that is no image", "BEGIN:VCARD\r\nFN:Bob\r\nPHOTO;ENCODING=b:bm90IGFuIGltYWdl\r\nEND:VCARD\r\n",
            {QStringLiteral("Name")}, false},
        {"a picture alone", "BEGIN:VCARD\r\nPHOTO;ENCODING=b:" + Picture().toBase64() + "\r\nEND:VCARD\r\n",
            {QStringLiteral("Name")}, true},
        {"nothing", "BEGIN:VCARD\r\nVERSION:3.0\r\nEND:VCARD\r\n", {}, false},
    };
    static const QRegularExpression Caption(QStringLiteral("<b>([^<]*): </b>"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto message = ReadVCard(dir, c.card, QStringLiteral("c.vcf"));
        ASSERT_TRUE(message);
        const QString html = Render(*message, DefaultOptions());
        QStringList captions;
        for (auto it = Caption.globalMatch(html); it.hasNext();)
            captions << it.next().captured(1);
        EXPECT_EQ(captions, c.captions) << html.toStdString();
        EXPECT_EQ(html.contains(QStringLiteral("<img class=contact_picture")), c.picture);
        EXPECT_EQ(html.isEmpty(), c.captions.isEmpty());
    }
}

// Hostile values stay text: nothing of them becomes markup, and only an
// http or https web page becomes a link.
TEST_F(HtmlTest, ContactCardValuesAreText)
{
    QTemporaryDir dir;
    const QByteArray card = "BEGIN:VCARD\r\nFN:<script>alert(1)</script>\r\nORG:\"><img src=x onerror=alert(2)>\r\n"
                            "TITLE:</td></tr></table><iframe src=//evil.example>\r\n"
                            "EMAIL:\"><svg onload=alert(3)>@x.org\r\nURL:javascript:alert(4)\r\n"
                            "NOTE:<b onmouseover=alert(5)>bold</b>\r\nEND:VCARD\r\n";
    const QString html = Render(*ReadVCard(dir, card, QStringLiteral("h.vcf")), DefaultOptions());
    const QString body = html.section(QStringLiteral("</head>"), 1);
    for (const char* markup : {"<script", "<img", "<iframe", "<svg", "<b onmouseover", "javascript:alert(4)\"", "</table><"})
        EXPECT_FALSE(body.contains(QLatin1String(markup), Qt::CaseInsensitive)) << markup << "\n" << body.toStdString();
    EXPECT_TRUE(body.contains(QStringLiteral("<td id=name_text>&lt;script&gt;alert(1)&lt;/script&gt;</td>")));
    EXPECT_TRUE(body.contains(QStringLiteral("<td id=webpage_text>javascript:alert(4)</td>")));
    EXPECT_TRUE(body.contains(QStringLiteral("<a href=\"mailto:&quot;&gt;&lt;svg onload=alert(3)&gt;@x.org\">")));

    const struct {
        const char* page;
        const char* html;
    } pages[] = {
        {"www.example.com/a?b=1&c=2", "<a href=\"http://www.example.com/a?b=1&amp;c=2\">www.example.com/a?b=1&amp;c=2</a>"},
        {"http://example.com/\"onclick=\"x", "http://example.com/&quot;onclick=&quot;x"},
        {"https://example.com/a b", "https://example.com/a b"},
        {"ftp://example.com/file", "ftp://example.com/file"},
        {"data:text/html,<b>x</b>", "data:text/html,&lt;b&gt;x&lt;/b&gt;"},
        {"https://", "https://"},
    };
    for (const auto& p : pages) {
        SCOPED_TRACE(p.page);
        const QByteArray withPage = "BEGIN:VCARD\r\nFN:Web\r\nURL:" + QByteArray(p.page) + "\r\nEND:VCARD\r\n";
        const QString rendered = Render(*ReadVCard(dir, withPage, QStringLiteral("w.vcf")), DefaultOptions());
        EXPECT_TRUE(rendered.contains(QStringLiteral("<td id=webpage_text>") + QLatin1String(p.html) + QStringLiteral("</td>")))
            << rendered.section(QStringLiteral("</head>"), 1).toStdString();
    }
}

namespace {

// A meeting of the appointment set, with another set's start listed first:
// the writers give that one the number 0x820D as its id.
std::shared_ptr<pstfile::TPSTMessage> MeetingModel(const QString& messageClass)
{
    using namespace pstfile;
    const QUuid other(0x11112222, 0x3333, 0x4444, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC);
    auto m = std::make_shared<TPSTMessage>();
    m->SetString(pid::MessageClass, messageClass);
    m->SetString(pid::Subject, QStringLiteral("Planning"));
    m->SetSender(QStringLiteral("Olga Organizer"), QStringLiteral("SMTP"), QStringLiteral("olga@example.com"));
    m->AddRecipient(1, QStringLiteral("Rita Required"), QStringLiteral("SMTP"), QStringLiteral("rita@example.com"));
    m->AddRecipient(2, QStringLiteral("Otto Optional"), QStringLiteral("SMTP"), QStringLiteral("otto@example.com"));
    m->AddRecipient(3, QStringLiteral("Room 7"), QStringLiteral("SMTP"), QStringLiteral("room7@example.com"));
    m->SetNamedTime(other, pid::AppointmentStart, QDateTime(QDate(2001, 2, 3), QTime(4, 5), Qt::UTC));
    m->SetNamedTime(PSETID_Appointment(), pid::AppointmentStart, QDateTime(QDate(2025, 5, 6), QTime(9, 0), Qt::UTC));
    m->SetNamedTime(PSETID_Appointment(), pid::AppointmentEnd, QDateTime(QDate(2025, 5, 6), QTime(10, 30), Qt::UTC));
    m->SetNamedString(PSETID_Appointment(), pid::Location, QStringLiteral("Room 7 <east>"));
    m->SetBodies(QStringLiteral("Agenda"), {}, {});
    return m;
}

} // namespace

// Appointments in a calendar, meeting requests in the Inbox, an appointment
// deleted, and .msg appointments: each says who meets when and where, in
// the header table, and without header fields in rows of its own.
TEST_F(HtmlTest, MeetingsSayWhenAndWhere)
{
    QTemporaryDir dir;
    pst::TPSTFile file(WriteDataFile(dir,
        {{QStringLiteral("Calendar"), QStringLiteral("IPF.Appointment"), MeetingModel(QStringLiteral("IPM.Appointment"))},
            {QStringLiteral("Inbox"), {}, MeetingModel(QStringLiteral("IPM.Schedule.Meeting.Request"))},
            {QStringLiteral("Deleted Items"), {}, MeetingModel(QStringLiteral("IPM.Appointment"))}}));
    const std::pair<const char*, std::shared_ptr<IMailMessage>> sources[] = {
        {"calendar", ItemOf(file, QStringLiteral("Calendar"), 0)},
        {"request in the inbox", ItemOf(file, QStringLiteral("Inbox"), 0)},
        {"deleted appointment", ItemOf(file, QStringLiteral("Deleted Items"), 0)},
        {".msg appointment", ReadMsg(dir, *MeetingModel(QStringLiteral("IPM.Appointment")), QStringLiteral("a.msg"))},
        {".msg request", ReadMsg(dir, *MeetingModel(QStringLiteral("IPM.Schedule.Meeting.Request")), QStringLiteral("r.msg"))},
    };
    const QString when = QStringLiteral("<b>When: </b></td><td>5/6/25 9:00:00 AM - 5/6/25 10:30:00 AM</td></tr>");
    const QString where = QStringLiteral("<b>Location: </b></td><td>Room 7 &lt;east&gt;</td></tr>");
    for (const auto& [what, message] : sources) {
        SCOPED_TRACE(what);
        ASSERT_TRUE(message);
        ASSERT_TRUE(dynamic_cast<const IMailMeeting*>(message.get()));
        const QString header = Render(*message, DefaultOptions());
        const QString card = Render(*message, PreviewOptions());
        for (const QString& html : {header, card}) {
            EXPECT_TRUE(html.contains(when)) << html.section(QStringLiteral("</head>"), 1).toStdString();
            EXPECT_TRUE(html.contains(where));
            EXPECT_TRUE(html.contains(QStringLiteral("<b>From: </b></td><td id=from_text><a href=\"mailto:olga@example.com\">")));
            EXPECT_TRUE(html.contains(QStringLiteral("<b>Required: </b></td><td id=to_text nowrap><a href=\"mailto:rita@example.com\">")));
            EXPECT_TRUE(html.contains(QStringLiteral("<b>Optional: </b></td><td id=to_text nowrap><a href=\"mailto:otto@example.com\">")));
            EXPECT_TRUE(html.contains(QStringLiteral("<b>Resource: </b></td><td id=to_text nowrap><a href=\"mailto:room7@example.com\">")));
        }
        EXPECT_TRUE(header.contains(QStringLiteral("<b>Subject: </b></td><td>Planning</td></tr>")));
        // The preview shows the subject above: its rows leave it out.
        EXPECT_TRUE(card.contains(QStringLiteral("<table id=header_table class=meeting_card>")));
        EXPECT_FALSE(card.contains(QStringLiteral("<b>Subject: </b>")));
        EXPECT_TRUE(card.contains(QStringLiteral("Agenda")));
    }
}

// A message that is a picture and nothing else (a body of a no-break space,
// or of the picture's reference alone): the page tessaly-inspect --html
// prints, kept as golden files. The header block and the picture show.
TEST_F(HtmlTest, GoldenPictureOnlyMessages)
{
    using namespace pstfile;
    const auto model = [](const QString& subject, const QByteArray& html) {
        auto m = std::make_shared<TPSTMessage>();
        m->SetString(pid::MessageClass, QStringLiteral("IPM.Note"));
        m->SetString(pid::Subject, subject);
        m->SetSender(QStringLiteral("Ann Example"), QStringLiteral("SMTP"), QStringLiteral("ann@example.com"));
        m->AddRecipient(1, QStringLiteral("Bob Example"), QStringLiteral("SMTP"), QStringLiteral("bob@example.com"));
        m->SetTime(pid::ClientSubmitTime, QDateTime(QDate(2024, 3, 5), QTime(9, 30), Qt::UTC));
        m->SetBodies({}, html, {});
        m->AddAttachment(QStringLiteral("picture.png"), Picture(), QStringLiteral("image/png"))
            .SetString(pid::AttachContentId, QStringLiteral("picture@tessaly.test"));
        return m;
    };
    QTemporaryDir dir;
    pst::TPSTFile file(WriteDataFile(dir,
        {{QStringLiteral("Inbox"), {}, model(QStringLiteral("A picture, and a blank"), "<html><body><p>&nbsp;</p></body></html>")},
            {QStringLiteral("Inbox"), {},
                model(QStringLiteral("A picture alone"), "<html><body><img src=\"cid:picture@tessaly.test\"></body></html>")}}));
    const QString picture = QStringLiteral("src=\"") + TMailMsgHTML::ImageDataURL(Picture()) + QLatin1Char('"');
    const struct {
        const char* golden;
        int pictures; // the image table's, and the body's own
    } cases[] = {{"picture-only-nbsp.html", 1}, {"picture-only-img.html", 2}};
    pst::TPSTFolder* inbox = test::FindFolder(file.RootFolder(), QStringLiteral("Inbox"));
    ASSERT_TRUE(inbox);
    ASSERT_EQ(inbox->ItemCount(), 2);
    for (int i = 0; i < 2; ++i) {
        SCOPED_TRACE(cases[i].golden);
        const auto message = pst::adapter::WrapItem(inbox->GetItem(i), false);
        ASSERT_TRUE(message);
        const QString page = tasks::StandaloneHtmlPage(*message);
        EXPECT_TRUE(page.contains(QStringLiteral("<table id=\"header_table\">"))) << page.toStdString();
        EXPECT_TRUE(page.contains(QStringLiteral("<b>Subject: </b></td><td>") + message->Subject()));
        EXPECT_EQ(page.count(picture), cases[i].pictures) << page.toStdString();
        ExpectGolden(page, QLatin1String(cases[i].golden));
    }
}
