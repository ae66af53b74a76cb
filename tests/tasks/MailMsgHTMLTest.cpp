#include "mail/FileMailMsg.h"
#include "mail/MailMsgHTML.h"
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
