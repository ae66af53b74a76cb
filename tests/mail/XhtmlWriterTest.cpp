// Pages as XHTML: whatever the HTML, the result is well-formed XML in the
// XHTML namespace (read with Qt's XML reader, which owes nothing to our
// tokenizer), with a head and a body, and the text a browser shows.

#include "mail/XhtmlWriter.h"

#include <QXmlStreamReader>
#include <gtest/gtest.h>

using tessaly::mail::HtmlToXhtml;

namespace {

struct TRead {
    bool wellFormed = false;
    QString error;
    QStringList rootChildren; // element names below the root
    QString bodyText;         // character data inside the body
    QStringList elements;     // every element name, in order
    QString style;            // character data of style elements
};

TRead Read(const QString& xhtml)
{
    TRead read;
    QXmlStreamReader xml(xhtml);
    int depth = 0, inBody = 0, inStyle = 0;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement()) {
            ++depth;
            EXPECT_EQ(xml.namespaceUri().toString(), QStringLiteral("http://www.w3.org/1999/xhtml")) << xml.name().toString().toStdString();
            read.elements << xml.name().toString();
            if (depth == 2)
                read.rootChildren << xml.name().toString();
            inBody += xml.name() == QLatin1String("body");
            inStyle += xml.name() == QLatin1String("style");
        } else if (xml.isEndElement()) {
            --depth;
            inBody -= xml.name() == QLatin1String("body");
            inStyle -= xml.name() == QLatin1String("style");
        } else if (xml.isCharacters()) {
            if (inStyle)
                read.style += xml.text();
            else if (inBody)
                read.bodyText += xml.text();
        }
    }
    read.wellFormed = !xml.hasError();
    read.error = xml.errorString();
    return read;
}

} // namespace

// Markup a browser forgives: unclosed and stray tags, bare attributes,
// prefixed names, a second body, references and characters XML refuses.
TEST(XhtmlWriter, BrokenMarkupBecomesWellFormed)
{
    const struct {
        const char* html;
        const char* text; // the body's text
    } cases[] = {
        {"<p>one<p>two<br>three", "onetwothree"},
        {"<table><tr><td>a<td>b<tr><td>c</table>after", "abcafter"},
        {"<ul><li>x<li>y</ul></p></div></span>z", "xyz"},
        {"<b><i>bold italic</b> plain</i>", "bold italic plain"},
        {"<input disabled value=a&amp;b><o:p>office</o:p><v:shape id=x>s</v:shape>", "offices"},
        {"<p class=\"a\" class=b onclick=x style='c:\"d\"'>q</p>", "q"},
        {"&nbsp;&lt;&gt;&amp;&quot;&#x41;&#66;&unknownname; &copy", "\u00a0<>&\"AB&unknownname; \u00a9"},
        {"bad \x01 char \xef\xbf\xbf end", "bad  char  end"},
        {"<body class=x>in<body id=y>again</body>out</html>tail", "inagainouttail"},
        {"<head><title>T &amp; t</title></head><p>body</p><style>p{}</style>", "body"},
        {"<div><!-- a comment -- with dashes --><!DOCTYPE x>kept</div>", "kept"},
        {"<script>alert(1)</script><p>safe</p>", "safe"},
        {"<a href=\"x?a=1&b=2\">link", "link"},
        {"text only", "text only"},
        {"", ""},
        {"<p", ""},
    };
    for (const auto& c : cases) {
        const QString html = QString::fromUtf8(c.html);
        SCOPED_TRACE(c.html);
        const QString xhtml = HtmlToXhtml(html);
        const TRead read = Read(xhtml);
        ASSERT_TRUE(read.wellFormed) << read.error.toStdString() << "\n" << xhtml.toStdString();
        EXPECT_EQ(read.rootChildren, (QStringList{QStringLiteral("head"), QStringLiteral("body")})) << xhtml.toStdString();
        EXPECT_EQ(read.bodyText, QString::fromUtf8(c.text)) << xhtml.toStdString();
        EXPECT_FALSE(read.elements.contains(QStringLiteral("script")));
        EXPECT_TRUE(xhtml.startsWith(QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>")));
    }
}

// Surrogates without their other half are no characters XML takes; pairs
// stay.
TEST(XhtmlWriter, LoneSurrogatesLeftOut)
{
    const QString html = QStringLiteral("a") + QChar(0xD800) + QStringLiteral("b") + QChar(0xDC00) + QStringLiteral("c\U0001F600d");
    const TRead read = Read(HtmlToXhtml(html));
    ASSERT_TRUE(read.wellFormed) << read.error.toStdString();
    EXPECT_EQ(read.bodyText, QStringLiteral("abc\U0001F600d"));
}

// Void elements close themselves; attribute values come back as written
// (references decoded once); a style sheet keeps its ">" and even "]]>"
// for both readers.
TEST(XhtmlWriter, ElementsAttributesAndStyles)
{
    const QString xhtml = HtmlToXhtml(QStringLiteral(
        "<html><head><meta charset=utf-8><style>a > b { content: \"]]>\" }</style></head>"
        "<body><img src=\"p.png?a=1&amp;b=2\" alt='say \"hi\"'><hr><p title=&lt;x&gt;>t</p></body></html>"));
    EXPECT_TRUE(xhtml.contains(QStringLiteral("<meta charset=\"utf-8\" />")));
    EXPECT_TRUE(xhtml.contains(QStringLiteral("<img src=\"p.png?a=1&amp;b=2\" alt=\"say &quot;hi&quot;\" />")));
    EXPECT_TRUE(xhtml.contains(QStringLiteral("<hr />")));
    EXPECT_TRUE(xhtml.contains(QStringLiteral("<p title=\"&lt;x&gt;\">t</p>")));
    const TRead read = Read(xhtml);
    ASSERT_TRUE(read.wellFormed) << read.error.toStdString();
    EXPECT_EQ(read.style, QStringLiteral("/**/a > b { content: \"]]>\" }/**/"));
    EXPECT_EQ(read.elements, (QStringList{QStringLiteral("html"), QStringLiteral("head"), QStringLiteral("meta"), QStringLiteral("style"),
                                 QStringLiteral("body"), QStringLiteral("img"), QStringLiteral("hr"), QStringLiteral("p")}));
}
