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
