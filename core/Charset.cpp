#include "core/Charset.h"

#include "core/HtmlText.h"

#include <QHash>
#include <QRegularExpression>
#include <QStringDecoder>
#include <unicode/ucnv.h>
#include <unicode/ucsdet.h>

#include <memory>
#include <utility>

namespace tessaly::core {

namespace {

struct TConverterClose {
    void operator()(UConverter* c) const { ucnv_close(c); }
};
using TConverter = std::unique_ptr<UConverter, TConverterClose>;

struct TDetectorClose {
    void operator()(UCharsetDetector* d) const { ucsdet_close(d); }
};
using TDetector = std::unique_ptr<UCharsetDetector, TDetectorClose>;

// Labels that mail programs write but mean something else than ICU takes
// them for (the choices browsers make).
QByteArray IcuName(const QString& charset)
{
    static const QHash<QString, QByteArray> Overrides = {
        {QStringLiteral("unicode"), "UTF-16LE"},
        {QStringLiteral("unicodefffe"), "UTF-16BE"},
        {QStringLiteral("gb2312"), "GBK"},
        {QStringLiteral("iso-8859-1"), "windows-1252"},
        {QStringLiteral("latin1"), "windows-1252"},
        {QStringLiteral("us-ascii"), "windows-1252"},
        {QStringLiteral("ascii"), "windows-1252"},
        {QStringLiteral("ks_c_5601"), "windows-949"},
    };
    QString name = charset.trimmed();
    while (!name.isEmpty() && (name.front() == QLatin1Char('"') || name.front() == QLatin1Char('\'')))
        name.remove(0, 1);
    while (!name.isEmpty() && (name.back() == QLatin1Char('"') || name.back() == QLatin1Char('\'')))
        name.chop(1);
    const QString key = name.toLower();
    const auto it = Overrides.constFind(key);
    return it != Overrides.constEnd() ? it.value() : key.toLatin1();
}

TConverter OpenConverter(const QString& charset)
{
    const QByteArray name = IcuName(charset);
    if (name.isEmpty())
        return nullptr;
    UErrorCode error = U_ZERO_ERROR;
    TConverter converter(ucnv_open(name.constData(), &error));
    if (U_FAILURE(error))
        return nullptr;
    return converter;
}

} // namespace

bool IsKnownCharset(const QString& charset)
{
    return OpenConverter(charset) != nullptr;
}

QString DecodeCharset(const QByteArray& bytes, const QString& charset)
{
    if (bytes.isEmpty())
        return {};
    const TConverter converter = OpenConverter(charset);
    if (!converter)
        return QString::fromLatin1(bytes);
    // Malformed input is substituted with U+FFFD (ICU's default callback).
    QString text(bytes.size() + 16, Qt::Uninitialized);
    UErrorCode error = U_ZERO_ERROR;
    int32_t length = ucnv_toUChars(converter.get(), reinterpret_cast<UChar*>(text.data()), int32_t(text.size()),
        bytes.constData(), int32_t(bytes.size()), &error);
    if (error == U_BUFFER_OVERFLOW_ERROR) {
        text.resize(length + 1);
        error = U_ZERO_ERROR;
        ucnv_reset(converter.get());
        length = ucnv_toUChars(converter.get(), reinterpret_cast<UChar*>(text.data()), int32_t(text.size()),
            bytes.constData(), int32_t(bytes.size()), &error);
    }
    if (U_FAILURE(error))
        return QString::fromLatin1(bytes);
    text.truncate(length);
    return text;
}

QString CodePageCharset(int codePage)
{
    static const QHash<int, QString> Named = {
        {65001, QStringLiteral("UTF-8")},
        {65000, QStringLiteral("UTF-7")},
        {1200, QStringLiteral("UTF-16LE")},
        {1201, QStringLiteral("UTF-16BE")},
        {12000, QStringLiteral("UTF-32LE")},
        {12001, QStringLiteral("UTF-32BE")},
        {20127, QStringLiteral("US-ASCII")},
        {20866, QStringLiteral("KOI8-R")},
        {21866, QStringLiteral("KOI8-U")},
        {50220, QStringLiteral("ISO-2022-JP")},
        {50221, QStringLiteral("ISO-2022-JP")},
        {50222, QStringLiteral("ISO-2022-JP")},
        {50225, QStringLiteral("ISO-2022-KR")},
        {51932, QStringLiteral("EUC-JP")},
        {51936, QStringLiteral("GB2312")},
        {51949, QStringLiteral("EUC-KR")},
        {52936, QStringLiteral("HZ-GB-2312")},
        {54936, QStringLiteral("GB18030")},
        {10000, QStringLiteral("macintosh")},
        {932, QStringLiteral("windows-932")},
        {936, QStringLiteral("windows-936")},
        {949, QStringLiteral("windows-949")},
        {950, QStringLiteral("windows-950")},
    };
    if (codePage <= 0)
        return {};
    if (const auto it = Named.constFind(codePage); it != Named.constEnd())
        return it.value();
    if (codePage >= 28591 && codePage <= 28606)
        return QStringLiteral("ISO-8859-%1").arg(codePage - 28590);
    if (codePage >= 1250 && codePage <= 1258)
        return QStringLiteral("windows-%1").arg(codePage);
    for (const QString& form : {QStringLiteral("windows-%1"), QStringLiteral("cp%1"), QStringLiteral("ibm-%1")}) {
        const QString name = form.arg(codePage);
        if (IsKnownCharset(name))
            return name;
    }
    return QStringLiteral("cp%1").arg(codePage);
}

int LocaleCodePage(uint32_t lcid)
{
    const uint32_t language = lcid & 0x3FF;
    switch (language) {
    case 0x00: return 0;
    case 0x11: return 932;
    case 0x04: return (lcid == 0x0404 || lcid == 0x0C04 || lcid == 0x1404) ? 950 : 936;
    case 0x12: return 949;
    case 0x1E: return 874;
    case 0x2A: return 1258;
    case 0x19: case 0x22: case 0x02: case 0x23: case 0x2F: case 0x3F: return 1251;
    case 0x05: case 0x15: case 0x0E: case 0x1B: case 0x24: case 0x18: case 0x1C: return 1250;
    case 0x1A: return (lcid == 0x0C1A || lcid == 0x1C1A) ? 1251 : 1250; // Cyrillic Serbian and Bosnian
    case 0x08: return 1253;
    case 0x1F: case 0x2C: return 1254;
    case 0x0D: return 1255;
    case 0x01: case 0x29: case 0x20: return 1256;
    case 0x25: case 0x26: case 0x27: return 1257;
    default: return 1252;
    }
}

QString DecodeCodePage(const QByteArray& bytes, int codePage)
{
    return DecodeCharset(bytes, CodePageCharset(codePage));
}

QString DetectCharset(const QByteArray& bytes, bool html)
{
    if (bytes.isEmpty())
        return {};
    UErrorCode error = U_ZERO_ERROR;
    TDetector detector(ucsdet_open(&error));
    if (U_FAILURE(error))
        return {};
    ucsdet_enableInputFilter(detector.get(), html);
    ucsdet_setText(detector.get(), bytes.constData(), int32_t(bytes.size()), &error);
    const UCharsetMatch* match = ucsdet_detect(detector.get(), &error);
    if (U_FAILURE(error) || !match)
        return {};
    const char* name = ucsdet_getName(match, &error);
    return U_SUCCESS(error) && name ? QString::fromLatin1(name) : QString();
}

bool IsValidUtf8(const QByteArray& bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    (void)QString(decoder.decode(bytes));
    return !decoder.hasError();
}

namespace {

constexpr qsizetype HtmlCharsetWindow = 8096;

// Where the charset named after "charset=" near the start of an HTML text
// stands: its start and length, or a start of -1.
std::pair<qsizetype, qsizetype> DeclaredCharsetSpan(QStringView html)
{
    const QStringView head = html.left(HtmlCharsetWindow);
    const qsizetype at = head.indexOf(QLatin1String("charset="), 0, Qt::CaseInsensitive);
    if (at < 0)
        return {-1, 0};
    qsizetype pos = at + 8;
    if (pos < head.size() && head[pos] == QLatin1Char('"'))
        ++pos;
    const qsizetype start = pos;
    static const QString Delimiters = QStringLiteral("\"' ;,>/\t\r\n");
    while (pos < head.size() && !Delimiters.contains(head[pos]))
        ++pos;
    return {start, pos - start};
}

QString HtmlDeclaredCharset(QStringView html)
{
    const auto [start, length] = DeclaredCharsetSpan(html);
    return start < 0 ? QString() : html.mid(start, length).toString();
}

QString HeaderCharset(const QString& headers)
{
    static const QRegularExpression ContentType(QStringLiteral("^Content-Type: text/html;(.*?)charset=(.*?)$"),
        QRegularExpression::MultilineOption | QRegularExpression::CaseInsensitiveOption);
    const auto match = ContentType.match(headers);
    if (!match.hasMatch())
        return {};
    QString charset = match.captured(2).trimmed();
    charset.remove(QLatin1Char('"'));
    const qsizetype semicolon = charset.indexOf(QLatin1Char(';'));
    return semicolon >= 0 ? charset.left(semicolon).trimmed() : charset;
}

} // namespace

QString DecodeHtml(const QByteArray& html, const QString& headers, int codePage)
{
    if (html.isEmpty())
        return {};
    QString charset = HtmlDeclaredCharset(QString::fromLatin1(html.left(HtmlCharsetWindow)));
    if (charset.isEmpty())
        charset = HeaderCharset(headers);
    if (charset.isEmpty() && codePage > 0 && IsKnownCharset(CodePageCharset(codePage)))
        charset = CodePageCharset(codePage);
    QString text;
    if (!charset.isEmpty()) {
        text = DecodeCharset(html, charset);
    } else {
        const QString detected = DetectCharset(html, true);
        if (detected.isEmpty()) {
            text = QString::fromLatin1(html); // left as it was
        } else if (detected.compare(QLatin1String("windows-1252"), Qt::CaseInsensitive) == 0
            || detected.compare(QLatin1String("ISO-8859-1"), Qt::CaseInsensitive) == 0) {
            // A Western guess is mostly UTF-8 the detector did not see as
            // such; bytes that are not UTF-8 stay Western.
            text = IsValidUtf8(html) ? QString::fromUtf8(html) : DecodeCharset(html, detected);
        } else {
            text = DecodeCharset(html, detected);
        }
    }
    return text;
}

QString HtmlEncodingCharset(const QString& html, const QString& headers)
{
    QString charset = HtmlDeclaredCharset(html);
    if (charset.isEmpty())
        charset = HeaderCharset(headers);
    if (charset.isEmpty())
        charset = QStringLiteral("UTF-8");
    return charset;
}

QByteArray EncodeHtml(const QString& html, const QString& headers)
{
    if (html.isEmpty())
        return {};
    const QString charset = HtmlEncodingCharset(html, headers);
    const TConverter converter = OpenConverter(charset);
    if (!converter) // read back one byte to a character
        return HtmlCharacterReferences(html, 256, false).toLatin1();
    UErrorCode error = U_ZERO_ERROR;
    ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_ESCAPE, UCNV_ESCAPE_XML_DEC, nullptr, nullptr, &error);
    QByteArray bytes(html.size() * 3 + 16, Qt::Uninitialized);
    int32_t length = ucnv_fromUChars(converter.get(), bytes.data(), int32_t(bytes.size()),
        reinterpret_cast<const UChar*>(html.constData()), int32_t(html.size()), &error);
    if (error == U_BUFFER_OVERFLOW_ERROR) {
        bytes.resize(length + 1);
        error = U_ZERO_ERROR;
        ucnv_reset(converter.get());
        length = ucnv_fromUChars(converter.get(), bytes.data(), int32_t(bytes.size()),
            reinterpret_cast<const UChar*>(html.constData()), int32_t(html.size()), &error);
    }
    if (U_FAILURE(error))
        return HtmlCharacterReferences(html, 128, false).toLatin1();
    bytes.truncate(length);
    return bytes;
}

QString HtmlWithCharset(const QString& html, const QString& charset)
{
    const auto [start, length] = DeclaredCharsetSpan(html);
    if (start < 0 || QStringView(html).mid(start, length).compare(charset, Qt::CaseInsensitive) == 0)
        return html;
    QString result = html;
    result.replace(start, length, charset);
    return result;
}

} // namespace tessaly::core
