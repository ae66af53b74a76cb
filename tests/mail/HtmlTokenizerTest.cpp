#include "mail/HtmlTokenizer.h"

#include <QStringList>
#include <gtest/gtest.h>

using namespace tessaly::mail;

namespace {

// The tokens in short: T"text", <name a=v b>, </name>, C (comment), R"raw",
// U (unfinished), with " /" before ">" for a self-closing tag.
QString Tokens(const QString& html)
{
    QStringList out;
    THtmlTokenizer tokenizer(html);
    THtmlToken token;
    qsizetype at = 0;
    while (tokenizer.Next(token)) {
        EXPECT_EQ(token.Start, at) << html.toStdString(); // the tokens cover the input
        at = token.End;
        const QString source = html.mid(token.Start, token.End - token.Start);
        switch (token.Kind) {
        case EHtmlToken::Text: out << QStringLiteral("T\"%1\"").arg(source); break;
        case EHtmlToken::Comment: out << QStringLiteral("C"); break;
        case EHtmlToken::RawText: out << QStringLiteral("R\"%1\"").arg(source); break;
        case EHtmlToken::Unfinished: out << QStringLiteral("U"); break;
        case EHtmlToken::EndTag: out << QStringLiteral("</%1>").arg(token.Name); break;
        case EHtmlToken::StartTag: {
            QString tag = QLatin1Char('<') + token.Name;
            for (const auto& a : token.Attributes)
                tag += QLatin1Char(' ') + a.Name + (a.HasValue ? QLatin1Char('=') + a.Value : QString());
            out << tag + (token.SelfClosing ? QStringLiteral(" />") : QStringLiteral(">"));
        }
        }
    }
    EXPECT_EQ(at, html.size()) << html.toStdString();
    return out.join(QLatin1Char(' '));
}

} // namespace

TEST(HtmlTokenizer, ReadsMarkupAsABrowserDoes)
{
    const struct {
        const char* html;
        const char* tokens;
    } cases[] = {
        {"a<b>c</b>", "T\"a\" <b> T\"c\" </b>"},
        {"<A HREF='x y' Title=\"q'\" data-x=1 checked>", "<a href=x y title=q' data-x=1 checked>"},
        {"<a href = x\ttitle=\"\">", "<a href=x title=>"},
        {"<a href=x href=y>", "<a href=x>"},
        {"<a \"b=1 'c'=2 =d>", "<a \"b=1 'c'=2 =d>"},
        {"<a\"b=1>", "<a\"b=1>"},
        {"<a href=\"x\"title=y>", "<a href=x title=y>"},
        {"<br/><p / x=1 />", "<br /> <p x=1 />"},
        {"<p x=a/>", "<p x=a/>"},
        {"</p x=1>", "</p>"},
        {"1 < 2 <3 <", "T\"1 < 2 <3 <\""},
        {"a</", "T\"a</\""},
        {"<!-- a --> <!--> <!---> <!-- a --!> b", "C T\" \" C T\" \" C T\" \" C T\" b\""},
        {"<!DOCTYPE html><?xml x?></3><!x>", "C C C C"},
        {"</>x", "C T\"x\""},
        {"<!-- open", "C"},
        {"<style>a</b></STYLE >x", "<style> R\"a</b>\" </style> T\"x\""},
        {"<style></stylex></style/>", "<style> R\"</stylex>\" </style>"},
        {"<script><!--</script>-->", "<script> R\"<!--\" </script> T\"-->\""},
        {"<title><b>&amp;</title>", "<title> R\"<b>&amp;\" </title>"},
        {"<textarea></textarea>x", "<textarea> </textarea> T\"x\""},
        {"<plaintext></plaintext><b>", "<plaintext> R\"</plaintext><b>\""},
        {"<style>open", "<style> R\"open\""},
        {"<a href=\"x", "U"},
        {"<a href=x", "U"},
        {"<a ", "U"},
        {"x<a", "T\"x\" U"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Tokens(QString::fromUtf8(c.html)), QString::fromUtf8(c.tokens)) << c.html;
}
