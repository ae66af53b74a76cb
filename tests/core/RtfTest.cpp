#include "core/Rtf.h"

#include "TestUtil.h"

#include <QFile>
#include <gtest/gtest.h>

using namespace tessaly::core;
using tessaly::test::TestData;

namespace {

QByteArray ReadAll(const QString& name)
{
    QFile file(TestData(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

uint32_t RawSizeOf(const QByteArray& compressed)
{
    const auto* p = reinterpret_cast<const uchar*>(compressed.constData()) + 4;
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

QByteArray Header(uint32_t compSize, uint32_t rawSize, const char* type, uint32_t crc)
{
    QByteArray h;
    for (uint32_t v : {compSize, rawSize})
        for (int i = 0; i < 4; ++i)
            h += char((v >> (8 * i)) & 0xFF);
    h += QByteArray(type, 4);
    for (int i = 0; i < 4; ++i)
        h += char((crc >> (8 * i)) & 0xFF);
    return h;
}

const char* const Fixtures[] = {"rtf/htmlLink-compressed.bin", "rtf/unicode1-compressed.bin",
    "rtf/nonUnicodeCP932-compressed.bin", "rtf/Hello__CJK-compressed.bin", "rtf/test1-compressed.bin"};

} // namespace

TEST(Rtf, DecompressesRealBodies)
{
    for (const char* name : Fixtures) {
        const QByteArray compressed = ReadAll(QLatin1String(name));
        ASSERT_FALSE(compressed.isEmpty()) << name;
        const QByteArray rtf = DecompressRtf(compressed);
        EXPECT_EQ(uint32_t(rtf.size()), RawSizeOf(compressed)) << name;
        EXPECT_TRUE(rtf.startsWith("{\\rtf1")) << name;
        EXPECT_TRUE(rtf.trimmed().endsWith('}')) << name;
    }
}

TEST(Rtf, DamagedCompressedData)
{
    const QByteArray good = ReadAll(QStringLiteral("rtf/test1-compressed.bin"));
    QByteArray flipped = good;
    flipped[40] = char(flipped[40] ^ 0x10);
    EXPECT_THROW(DecompressRtf(flipped), ERtfError); // CRC
    EXPECT_THROW(DecompressRtf(good.left(10)), ERtfError);
    EXPECT_THROW(DecompressRtf(good.left(good.size() - 8)), ERtfError); // shorter than it says
    QByteArray unknownType = good;
    unknownType.replace(8, 4, "ABCD");
    EXPECT_THROW(DecompressRtf(unknownType), ERtfError);
    QByteArray huge = good;
    huge.replace(4, 4, QByteArray("\xff\xff\xff\x7f", 4));
    EXPECT_THROW(DecompressRtf(huge), ERtfError);
}

TEST(Rtf, StoredFormAndHandMadeStream)
{
    const QByteArray raw = "{\\rtf1 plain}";
    EXPECT_EQ(DecompressRtf(Header(12 + raw.size(), raw.size(), "MELA", 0) + raw), raw);

    // Literals only: a control byte of zeros, then the end marker pointing
    // at the write position (207 + 2 literals = 209 = 0xD1, length bits 0).
    const QByteArray contents = QByteArray("\x04", 1) + "{}" + QByteArray("\x0d\x10", 2);
    uint32_t crc = 0;
    for (char c : contents) {
        crc ^= uchar(c);
        for (int k = 0; k < 8; ++k)
            crc = (crc & 1) ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
    }
    EXPECT_EQ(DecompressRtf(Header(12 + contents.size(), 2, "LZFu", crc) + contents), "{}");
}

TEST(Rtf, RecognisesEncapsulatedHtml)
{
    EXPECT_TRUE(IsHtmlEncapsulatedRtf("{\\rtf1\\ansi\\ansicpg1252\\fromhtml1 \\deff0{\\fonttbl{\\f0 Arial;}}}"));
    EXPECT_FALSE(IsHtmlEncapsulatedRtf("{\\rtf1\\ansi\\fromtext \\deff0 hello}"));
    EXPECT_FALSE(IsHtmlEncapsulatedRtf("{\\rtf1\\ansi hello \\fromhtml1}")); // not in the header
    EXPECT_FALSE(IsHtmlEncapsulatedRtf("{\\rtf1\\ansi\\fromhtml0 }"));
    EXPECT_FALSE(IsHtmlEncapsulatedRtf("not rtf"));
    EXPECT_FALSE(RtfToHtml("{\\rtf1\\ansi\\fromtext hello}").has_value());
}

TEST(Rtf, HandMadeEncapsulatedHtml)
{
    const QByteArray rtf =
        "{\\rtf1\\ansi\\ansicpg1251\\fromhtml1 \\deff0{\\fonttbl{\\f0\\fswiss Arial;}{\\f1\\fnil\\fcharset128 MS Gothic;}}\r\n"
        "{\\colortbl\\red0\\green0\\blue0;}\r\n"
        "{\\*\\htmltag19 <html>}{\\*\\htmltag34 <head>}{\\*\\htmltag41 </head>}{\\*\\htmltag50 <body>}\r\n"
        "{\\*\\htmltag64}\\htmlrtf {\\htmlrtf0 {\\*\\htmltag84 <p>}\\htmlrtf \\par \\htmlrtf0 "
        "Hello\\tab \\'cf\\'f0\\'e8 \\u8364?\\uc2\\u8217xx{\\f1 \\'82\\'a0} a\\{b\\}c\\\\ \\lquote q\\rquote\\~!"
        "{\\*\\htmltag92 </p>}\\htmlrtf }\\htmlrtf0 \r\n"
        "{\\*\\htmltag244 <!-- \\'cf -->}{\\*\\mhtmltag84 <img src=\"cid:x\">}{\\*\\htmltag84 <img src=\"a.png\">}"
        "\\par {\\*\\htmltag58 </body>}{\\*\\htmltag27 </html>}}";
    const auto html = RtfToHtml(rtf);
    ASSERT_TRUE(html.has_value());
    EXPECT_EQ(*html,
        QStringLiteral("<html><head></head><body><p>Hello\t\u041f\u0440\u0438 \u20ac\u2019\u3042 a{b}c\\ "
                       "\u2018q\u2019\u00a0!</p><!-- \u041f --><img src=\"a.png\">\r\n</body></html>"));
}

TEST(Rtf, RealEncapsulatedHtml)
{
    const auto link = RtfToHtml(DecompressRtf(ReadAll(QStringLiteral("rtf/htmlLink-compressed.bin"))));
    ASSERT_TRUE(link.has_value());
    EXPECT_TRUE(link->startsWith(QStringLiteral("<html")));
    EXPECT_TRUE(link->contains(QStringLiteral("<a href=\"https://google.com/\">https://google.com/</a>")));
    EXPECT_TRUE(link->contains(QStringLiteral("<a href=\"mailto:test@example.com\">mailto:test@example.com</a>")));
    EXPECT_TRUE(link->trimmed().endsWith(QStringLiteral("</html>")));
    EXPECT_FALSE(link->contains(QStringLiteral("\\htmlrtf")));

    // Text between tags in a font of another code page.
    const auto cjk = RtfToHtml(DecompressRtf(ReadAll(QStringLiteral("rtf/Hello__CJK-compressed.bin"))));
    ASSERT_TRUE(cjk.has_value());
    EXPECT_TRUE(cjk->contains(QStringLiteral("\u4f60\u597d"))) << cjk->toStdString();
    EXPECT_TRUE(cjk->contains(QStringLiteral("font-family:\"\uff2d\uff33 \u30b4\u30b7\u30c3\u30af\"")));

    // test1 is plain RTF.
    EXPECT_FALSE(RtfToHtml(DecompressRtf(ReadAll(QStringLiteral("rtf/test1-compressed.bin")))).has_value());
}
