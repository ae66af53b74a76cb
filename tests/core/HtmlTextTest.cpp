#include "core/HtmlText.h"

#include <gtest/gtest.h>

using namespace tessaly::core;

TEST(HtmlText, EncodeAndStrip)
{
    EXPECT_EQ(HtmlEncode(QStringLiteral("a<b>&\"c\"")), QStringLiteral("a&lt;b&gt;&amp;\"c\""));
    const struct {
        QString html;
        QString text;
    } cases[] = {
        {"plain", "plain"},
        {"<b>bold</b><br>next", "bold\nnext"},
        {"<P>para<BR/>x", "\npara\nx"},
        {"&nbsp;&lt;&gt;&amp;&quot;&unknown;", " <>&\"&unknown;"},
        {"a<hr>b", "a----------------------------------------\nb"},
        {"broken <tag", "broken <tag"},
        {"<font color=clRed>red</font>", "red"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(HtmlToPlainText(c.html), c.text) << c.html.toStdString();
}

TEST(HtmlText, DecodeAsABrowserDoes)
{
    const struct {
        QString html;
        bool attribute;
        QString text;
    } cases[] = {
        {"&#106;&#x61;&#X76;&#97script&colon;", false, "javascript:"},
        {"java&Tab;script&NewLine;&lpar;1&rpar;", false, "java\tscript\n(1)"},
        {"&lt;&LT;&gt;&amp;&AMP;&quot;&apos;&nbsp;&euro;", false, "<<>&&\"'\u00A0\u20AC"},
        {"&#0;&#xD800;&#x110000;&#99999999999;", false, "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"&#x1F375;", false, "\U0001F375"},
        // Unknown names, and "&" before nothing known, stay.
        {"&hearts; &; &#; &#x; & x &unknown", false, "&hearts; &; &#; &#x; & x &unknown"},
        // Legacy names without their semicolon: in text always, in an
        // attribute not before a letter, digit or "=".
        {"&amp &ltb &copy=", false, "& <b \u00A9="},
        {"?a=1&amp=2&copy3&lt b", true, "?a=1&amp=2&copy3< b"},
        {"&amp;copy=1", true, "&copy=1"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(HtmlDecode(c.html, c.attribute), c.text) << c.html.toStdString();
}
