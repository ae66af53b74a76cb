// Addresses in a body's text become anchors, and nothing in an address
// becomes markup of its own.

#include "mail/MailMsgHTML.h"

#include "mail/MailTestObjects.h"
#include "mail/PythonHtml.h"

#include <gtest/gtest.h>

using namespace tessaly;
using namespace tessaly::mail;
using tessaly::test::ParseWithPython;

namespace {

QString RenderBody(const IMailMessage& message)
{
    TMailHTMLOptions options;
    options.Sender = options.Recipient = options.Date = options.Subject = false;
    options.AttachInfo = options.EmbedImages = false;
    const TMessageHTMLTask task(message);
    return TMailMsgHTML::Render(message, options, task);
}

QString RenderText(const QString& text)
{
    test::TTestMessage4 message;
    message.text = text;
    return RenderBody(message);
}

QString RenderHtml(const QString& html)
{
    test::TTestMessage message;
    message.html = html;
    return RenderBody(message);
}

} // namespace

TEST(MailMsgHTMLLinks, HostileAddressesInTextGiveAnchorsWithOnlyAnHref)
{
    const QString quoted = QStringLiteral(
        "http://x/'onmouseover='alert(1)'style='position:fixed;top:0;left:0;width:100%;height:100%'");
    const struct {
        QString text;
        QString href; // the anchor's address as a browser reads it; empty: no anchor
        bool html = false; // the text is an HTML body
    } cases[] = {
        {QStringLiteral("see ") + quoted + QStringLiteral(" now"), quoted},
        {QStringLiteral("http://x/\"onmouseover=\"alert(1)\""), QStringLiteral("http://x/")},
        {QStringLiteral("http://x/<img src=y onerror=alert(1)>"), QStringLiteral("http://x/")},
        {QStringLiteral("http://x/a>b"), QStringLiteral("http://x/a")},
        {QStringLiteral("https://x/?a=1&b=2&amp;c=3"), QStringLiteral("https://x/?a=1&b=2&amp;c=3")},
        {QStringLiteral("https://x/&#39;&quot;"), QStringLiteral("https://x/&#39;&quot;")},
        {QStringLiteral("HTTPS://x/caf\u00e9/\u20ac/\U0001F375"), QStringLiteral("HTTPS://x/caf\u00e9/\u20ac/\U0001F375")},
        {QStringLiteral("javascript:alert(1)"), QString()},
        {QStringLiteral("data:text/html,<script>alert(1)</script>"), QString()},
        {QStringLiteral("x=http://x/ 'http://y/'"), QString()},
        // In an HTML body a quote may stand as it is, or as a reference.
        {QStringLiteral("see http://x/\"onmouseover=\"alert(1)\""), QStringLiteral("http://x/"), true},
        {QStringLiteral("http://x/&#34;onclick=&#x22;alert(1)&#39;"), QStringLiteral("http://x/\"onclick=\"alert(1)'"), true},
        {QStringLiteral("http://x/a>b&lt;c"), QStringLiteral("http://x/a>b"), true},
    };
    QStringList pages;
    for (const auto& c : cases)
        pages << (c.html ? RenderHtml(QStringLiteral("<p>") + c.text + QStringLiteral("</p>")) : RenderText(c.text));
    const QJsonArray parsed = ParseWithPython(pages);
    if (parsed.isEmpty())
        GTEST_SKIP() << "python3 is not installed";
    for (qsizetype i = 0; i < pages.size(); ++i) {
        const auto& c = cases[i];
        SCOPED_TRACE(c.text.toStdString());
        const QJsonObject page = parsed[i].toObject();
        const QJsonArray anchors = page[QStringLiteral("anchors")].toArray();
        // The text reads as it was written, anchor or not.
        if (!c.html) {
            EXPECT_TRUE(page[QStringLiteral("text")].toString().contains(c.text)) << pages[i].toStdString();
        }
        EXPECT_TRUE(page[QStringLiteral("scripts")].toArray().isEmpty());
        if (c.href.isEmpty()) {
            EXPECT_TRUE(anchors.isEmpty()) << pages[i].toStdString();
            continue;
        }
        ASSERT_EQ(anchors.size(), 1) << pages[i].toStdString();
        const QJsonArray attrs = anchors[0].toObject()[QStringLiteral("attrs")].toArray();
        ASSERT_EQ(attrs.size(), 1) << pages[i].toStdString();
        EXPECT_EQ(attrs[0].toArray()[0].toString(), QStringLiteral("href"));
        EXPECT_EQ(attrs[0].toArray()[1].toString(), c.href);
        EXPECT_EQ(anchors[0].toObject()[QStringLiteral("text")].toString(), c.href);
        // Every element of the page is one the rendering writes itself.
        for (const auto& element : page[QStringLiteral("elements")].toArray())
            EXPECT_TRUE(QStringList({QStringLiteral("head"), QStringLiteral("meta"), QStringLiteral("style"),
                                        QStringLiteral("div"), QStringLiteral("a"), QStringLiteral("br"), QStringLiteral("p")})
                            .contains(element.toObject()[QStringLiteral("tag")].toString()))
                << element.toObject()[QStringLiteral("tag")].toString().toStdString();
    }
}

TEST(MailMsgHTMLLinks, OnlyTheTextOfAnHtmlBodyIsLinked)
{
    const QString style = QStringLiteral("p { background: url(http://x/bg.png) } /* http://x/c */");
    const QString script = QStringLiteral("var u = 'http://x/s'; if (a<b) u = \"https://x/t\";");
    const QString body = QStringLiteral("<style>%1</style><script>%2</script>"
                                        "<p title='http://x/title'>see http://x/one, then</p>"
                                        "<a href=\"https://x/two\">https://x/two <b>http://x/three</b></a>"
                                        "<textarea>http://x/area</textarea><p>http://x/four</p>")
                             .arg(style, script);
    const QString html = RenderHtml(body);
    const QJsonArray parsed = ParseWithPython({html});
    if (parsed.isEmpty())
        GTEST_SKIP() << "python3 is not installed";
    const QJsonObject page = parsed[0].toObject();
    // The element contents are as they were, style included.
    EXPECT_EQ(page[QStringLiteral("styles")].toArray().last().toString(), style);
    EXPECT_EQ(page[QStringLiteral("scripts")].toArray(), QJsonArray({script}));
    QStringList hrefs;
    for (const auto& a : page[QStringLiteral("anchors")].toArray()) {
        const QJsonObject anchor = a.toObject();
        EXPECT_FALSE(anchor[QStringLiteral("nested")].toBool()) << html.toStdString();
        const QJsonArray attrs = anchor[QStringLiteral("attrs")].toArray();
        ASSERT_EQ(attrs.size(), 1);
        hrefs << attrs[0].toArray()[1].toString();
    }
    EXPECT_EQ(hrefs, QStringList({QStringLiteral("http://x/one,"), QStringLiteral("https://x/two"), QStringLiteral("http://x/four")}))
        << html.toStdString();
}
