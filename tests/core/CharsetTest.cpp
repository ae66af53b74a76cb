#include "core/Charset.h"

#include <gtest/gtest.h>

using namespace tessaly::core;

TEST(Charset, NamedCharsets)
{
    const struct {
        const char* charset;
        QByteArray bytes;
        QString text;
    } cases[] = {
        {"windows-1252", "caf\xe9 \x80", QStringLiteral("caf\u00e9 \u20ac")},
        {"cp1252", "\x93quoted\x94", QStringLiteral("\u201cquoted\u201d")},
        {"iso-8859-1", "\x80", QStringLiteral("\u20ac")}, // taken as windows-1252, as mail programs mean it
        {"\"UTF-8\"", "\xe6\x97\xa5", QStringLiteral("\u65e5")},
        {" utf8 ", "\xc3\xa9", QStringLiteral("\u00e9")},
        {"ks_c_5601-1987", "\xc7\xd1\xb1\xdb", QStringLiteral("\ud55c\uae00")},
        {"ISO-2022-JP", "\x1b$B$3$s\x1b(B", QStringLiteral("\u3053\u3093")},
        {"Shift_JIS", "\x82\xa0", QStringLiteral("\u3042")},
        {"koi8-r", "\xf0\xd2\xc9", QStringLiteral("\u041f\u0440\u0438")},
        {"gb2312", "\xc4\xe3\xba\xc3", QStringLiteral("\u4f60\u597d")},
        {"big5", "\xa7\x41", QStringLiteral("\u4f60")},
        {"unicode", QByteArray("A\0B\0", 4), QStringLiteral("AB")},
    };
    for (const auto& c : cases)
        EXPECT_EQ(DecodeCharset(c.bytes, QLatin1String(c.charset)), c.text) << c.charset;
}

TEST(Charset, UnknownCharsetKeepsBytesAndBadInputIsReplaced)
{
    EXPECT_EQ(DecodeCharset("caf\xe9", QStringLiteral("x-no-such-charset")), QStringLiteral("caf\u00e9"));
    EXPECT_EQ(DecodeCharset("caf\xe9", QString()), QStringLiteral("caf\u00e9"));
    EXPECT_FALSE(IsKnownCharset(QStringLiteral("x-no-such-charset")));
    EXPECT_TRUE(IsKnownCharset(QStringLiteral("windows-1251")));
    EXPECT_EQ(DecodeCharset("a\xff" "b", QStringLiteral("utf-8")), QStringLiteral("a\ufffdb"));
    EXPECT_EQ(DecodeCharset("\xe6\x97", QStringLiteral("utf-8")), QStringLiteral("\ufffd")); // cut short
    EXPECT_EQ(DecodeCharset({}, QStringLiteral("utf-8")), QString());
    // Large input that grows when decoded (1 byte -> 1 character, 64 KiB).
    const QByteArray big(65536, '\xe9');
    EXPECT_EQ(DecodeCharset(big, QStringLiteral("windows-1252")).size(), 65536);
}

TEST(Charset, CodePages)
{
    const struct {
        int codePage;
        QString charset;
        QByteArray bytes;
        QString text;
    } cases[] = {
        {1252, "windows-1252", "\x80", QStringLiteral("\u20ac")},
        {1251, "windows-1251", "\xcf", QStringLiteral("\u041f")},
        {65001, "UTF-8", "\xc3\xa9", QStringLiteral("\u00e9")},
        {932, "windows-932", "\x82\xa0", QStringLiteral("\u3042")},
        {936, "windows-936", "\xc4\xe3", QStringLiteral("\u4f60")},
        {949, "windows-949", "\xc7\xd1", QStringLiteral("\ud55c")},
        {50220, "ISO-2022-JP", "\x1b$B$3\x1b(B", QStringLiteral("\u3053")},
        {28592, "ISO-8859-2", "\xb1", QStringLiteral("\u0105")},
        {1200, "UTF-16LE", QByteArray("\xe9\0", 2), QStringLiteral("\u00e9")},
        {437, "windows-437", "\x82", QStringLiteral("\u00e9")},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CodePageCharset(c.codePage), c.charset) << c.codePage;
        EXPECT_EQ(DecodeCodePage(c.bytes, c.codePage), c.text) << c.codePage;
    }
    EXPECT_EQ(CodePageCharset(0), QString());
    EXPECT_EQ(DecodeCodePage("\xe9", 0), QStringLiteral("\u00e9")); // no code page: bytes as they are
}

TEST(Charset, Detection)
{
    const QByteArray japanese = QString::fromUtf8("日本語のテキストです。これは検出のためのサンプル文章です。").toUtf8();
    EXPECT_EQ(DetectCharset(japanese, false), QStringLiteral("UTF-8"));
    const QByteArray sjis = QByteArray("\x93\xfa\x96\x7b\x8c\xea\x82\xcc\x83\x65\x83\x4c\x83\x58\x83\x67\x82\xc5\x82"
                                       "\xb7\x81\x42\x82\xb1\x82\xea\x82\xcd\x8c\x9f\x8f\x6f\x82\xcc\x82\xbd\x82\xdf"
                                       "\x82\xcc\x83\x54\x83\x93\x83\x76\x83\x8b\x95\xb6\x8f\xcd\x82\xc5\x82\xb7\x81\x42");
    EXPECT_EQ(DetectCharset(sjis, false), QStringLiteral("Shift_JIS"));
    // With the HTML flag the markup does not count.
    const QByteArray html = "<html><head><title>x</title></head><body>" + japanese + "</body></html>";
    EXPECT_EQ(DetectCharset(html, true), QStringLiteral("UTF-8"));
    EXPECT_EQ(DetectCharset({}, true), QString());
    EXPECT_TRUE(IsValidUtf8(japanese));
    EXPECT_FALSE(IsValidUtf8(sjis));
}

TEST(Charset, HtmlBodies)
{
    const QByteArray cyrillic = QByteArray("<html><head><meta http-equiv=\"Content-Type\" content=\"text/html; "
                                           "charset=windows-1251\"></head><body>\xcf\xf0\xe8\xe2\xe5\xf2</body></html>");
    EXPECT_TRUE(DecodeHtml(cyrillic, {}).contains(QStringLiteral("<body>\u041f\u0440\u0438\u0432\u0435\u0442</body>")));

    const QByteArray quoted = "<meta charset=\"koi8-r\"><p>\xf0\xd2\xc9</p>";
    EXPECT_TRUE(DecodeHtml(quoted, {}).contains(QStringLiteral("<p>\u041f\u0440\u0438</p>")));

    // No charset in the HTML: the transport headers name it, before the
    // item's code page.
    const QByteArray latin = "<p>caf\xe9</p>";
    const QString headers = QStringLiteral("Received: x\r\nContent-Type: text/html; charset=\"iso-8859-1\"\r\n");
    EXPECT_EQ(DecodeHtml(latin, headers, 65001), QStringLiteral("<p>caf\u00e9</p>"));

    // Neither: the item's code page, else UTF-8 is recognised.
    const QByteArray utf8 = "<p>\xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x98\x80</p>";
    EXPECT_EQ(DecodeHtml(utf8, {}), QStringLiteral("<p>\u65e5\u672c \U0001F600</p>"));
    EXPECT_EQ(DecodeHtml(latin, {}, 1252), QStringLiteral("<p>caf\u00e9</p>"));
    EXPECT_EQ(DecodeHtml("<p>\x82\xa0</p>", {}, 932), QStringLiteral("<p>\u3042</p>"));
    EXPECT_EQ(DecodeHtml(utf8, {}, 99999), DecodeHtml(utf8, {})); // an unknown code page is no help

    // An unknown charset takes the bytes as they are.
    EXPECT_EQ(DecodeHtml("<meta charset=x-nonsense>\xe9", {}), QStringLiteral("<meta charset=x-nonsense>\u00e9"));
    EXPECT_EQ(DecodeHtml({}, headers), QString());
}

// What a writer stores reads back as the same text: in the declared
// charset, references only for what it cannot hold; else the headers'
// charset; else UTF-8.
TEST(Charset, HtmlBodiesWrittenReadBackTheSame)
{
    const struct {
        QString html, headers;
        QByteArray bytes;
        int codePage;
    } cases[] = {
        {QStringLiteral("<meta charset=windows-1251><p>\u041f\u0438 \u00e9</p>"), {},
            "<meta charset=windows-1251><p>\xcf\xe8 &#233;</p>", 0},
        {QStringLiteral("<p>caf\u00e9 \u65e5</p>"), QStringLiteral("Content-Type: text/html; charset=iso-8859-1\r\n"),
            "<p>caf\xe9 &#26085;</p>", 0},
        {QStringLiteral("<p>\u65e5 \U0001F600</p>"), {}, "<p>\xe6\x97\xa5 \xf0\x9f\x98\x80</p>", 65001},
        {QStringLiteral("<meta charset=x-nonsense><p>\u00e9\u65e5</p>"), {}, "<meta charset=x-nonsense><p>\xe9&#26085;</p>", 0},
        {QStringLiteral("<p>plain</p>"), {}, "<p>plain</p>", 65001},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.html.toStdString());
        const QByteArray bytes = EncodeHtml(c.html, c.headers);
        EXPECT_EQ(bytes, c.bytes);
        QString expected = c.html;
        expected.replace(QStringLiteral("\u65e5"), c.bytes.contains("&#26085;") ? QStringLiteral("&#26085;") : QStringLiteral("\u65e5"));
        expected.replace(QStringLiteral(" \u00e9<"), c.bytes.contains("&#233;") ? QStringLiteral(" &#233;<") : QStringLiteral(" \u00e9<"));
        EXPECT_EQ(DecodeHtml(bytes, c.headers, c.codePage), expected);
    }
    EXPECT_TRUE(EncodeHtml({}, {}).isEmpty());
}
