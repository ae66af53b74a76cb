#include "core/HtmlText.h"

namespace tessaly::core {

QString HtmlEncode(const QString& text)
{
    QString result;
    result.reserve(text.size());
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '&': result += QLatin1String("&amp;"); break;
        case '<': result += QLatin1String("&lt;"); break;
        case '>': result += QLatin1String("&gt;"); break;
        default: result += c;
        }
    }
    return result;
}

QString HtmlCharacterReferences(const QString& text, char32_t from, bool markup)
{
    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (markup) {
            switch (c.unicode()) {
            case '<': out += QLatin1String("&lt;"); continue;
            case '>': out += QLatin1String("&gt;"); continue;
            case '&': out += QLatin1String("&amp;"); continue;
            case '"': out += QLatin1String("&quot;"); continue;
            default: break;
            }
        }
        char32_t code = c.unicode();
        if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate())
            code = QChar::surrogateToUcs4(c, text[i + 1]);
        if (code < from) {
            out += c;
            continue;
        }
        if (code > 0xFFFF)
            ++i;
        // Written digit by digit: this runs for every character of a body.
        char digits[12];
        int n = 0;
        do
            digits[n++] = char('0' + code % 10);
        while ((code /= 10) != 0);
        out += QLatin1String("&#");
        while (n > 0)
            out += QLatin1Char(digits[--n]);
        out += QLatin1Char(';');
    }
    return out;
}

namespace {

struct TNamedReference {
    const char* name;
    char16_t ch;
};

// Every name that stands for an ASCII character, so that no scheme or
// keyword can be spelt with a reference this table misses.
const TNamedReference NamedReferences[] = {
    {"Tab", u'\t'}, {"NewLine", u'\n'}, {"excl", u'!'}, {"quot", u'"'}, {"QUOT", u'"'}, {"num", u'#'},
    {"dollar", u'$'}, {"percnt", u'%'}, {"amp", u'&'}, {"AMP", u'&'}, {"apos", u'\''}, {"lpar", u'('},
    {"rpar", u')'}, {"ast", u'*'}, {"midast", u'*'}, {"plus", u'+'}, {"comma", u','}, {"period", u'.'},
    {"sol", u'/'}, {"colon", u':'}, {"semi", u';'}, {"lt", u'<'}, {"LT", u'<'}, {"equals", u'='},
    {"gt", u'>'}, {"GT", u'>'}, {"quest", u'?'}, {"commat", u'@'}, {"lsqb", u'['}, {"lbrack", u'['},
    {"bsol", u'\\'}, {"rsqb", u']'}, {"rbrack", u']'}, {"Hat", u'^'}, {"lowbar", u'_'}, {"UnderBar", u'_'},
    {"grave", u'`'}, {"DiacriticalGrave", u'`'}, {"lcub", u'{'}, {"lbrace", u'{'}, {"verbar", u'|'},
    {"vert", u'|'}, {"VerticalLine", u'|'}, {"rcub", u'}'}, {"rbrace", u'}'},
    {"nbsp", u'\u00A0'}, {"NonBreakingSpace", u'\u00A0'}, {"copy", u'\u00A9'}, {"COPY", u'\u00A9'},
    {"reg", u'\u00AE'}, {"REG", u'\u00AE'}, {"shy", u'\u00AD'}, {"laquo", u'\u00AB'}, {"raquo", u'\u00BB'},
    {"middot", u'\u00B7'}, {"deg", u'\u00B0'}, {"pound", u'\u00A3'}, {"euro", u'\u20AC'},
    {"ndash", u'\u2013'}, {"mdash", u'\u2014'}, {"lsquo", u'\u2018'}, {"rsquo", u'\u2019'},
    {"ldquo", u'\u201C'}, {"rdquo", u'\u201D'}, {"bull", u'\u2022'}, {"hellip", u'\u2026'},
    {"trade", u'\u2122'},
};

// The names a browser also takes without their semicolon.
const char* const LegacyNames[] = {"amp", "AMP", "lt", "LT", "gt", "GT", "quot", "QUOT", "nbsp", "copy", "COPY", "reg", "REG"};

bool IsAsciiAlnum(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9');
}

template <typename TName>
const TNamedReference* FindReference(TName name)
{
    for (const auto& r : NamedReferences)
        if (name == QLatin1String(r.name))
            return &r;
    return nullptr;
}

int HexDigit(QChar c)
{
    const char16_t u = c.unicode();
    if (u >= u'0' && u <= u'9')
        return u - u'0';
    if (u >= u'a' && u <= u'f')
        return u - u'a' + 10;
    if (u >= u'A' && u <= u'F')
        return u - u'A' + 10;
    return -1;
}

// A numeric reference from `i` (at "&#"); the index after it, or -1.
qsizetype DecodeNumeric(const QString& text, qsizetype i, QString& out)
{
    qsizetype j = i + 2;
    const bool hex = j < text.size() && (text[j] == QLatin1Char('x') || text[j] == QLatin1Char('X'));
    if (hex)
        ++j;
    const qsizetype digits = j;
    char32_t value = 0;
    for (; j < text.size(); ++j) {
        const int d = hex ? HexDigit(text[j]) : (text[j].isDigit() && text[j].unicode() < 128 ? text[j].unicode() - u'0' : -1);
        if (d < 0)
            break;
        if (value <= 0x10FFFF)
            value = value * (hex ? 16 : 10) + char32_t(d);
    }
    if (j == digits)
        return -1;
    if (j < text.size() && text[j] == QLatin1Char(';'))
        ++j;
    if (value == 0 || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        value = 0xFFFD;
    out += QString::fromUcs4(&value, 1);
    return j;
}

} // namespace

QString HtmlDecode(const QString& text, bool attribute)
{
    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size();) {
        if (text[i] != QLatin1Char('&')) {
            out += text[i++];
            continue;
        }
        if (i + 1 < text.size() && text[i + 1] == QLatin1Char('#')) {
            const qsizetype next = DecodeNumeric(text, i, out);
            if (next > 0) {
                i = next;
                continue;
            }
            out += text[i++];
            continue;
        }
        qsizetype end = i + 1;
        while (end < text.size() && IsAsciiAlnum(text[end]) && end - i <= 32)
            ++end;
        const QStringView name = QStringView(text).mid(i + 1, end - i - 1);
        if (end < text.size() && text[end] == QLatin1Char(';')) {
            if (const auto* r = FindReference(name)) {
                out += QChar(r->ch);
                i = end + 1;
                continue;
            }
        }
        // Without a semicolon: the longest legacy name the run starts with.
        qsizetype matched = 0;
        const TNamedReference* found = nullptr;
        for (const char* legacy : LegacyNames) {
            const QLatin1String l(legacy);
            if (l.size() > matched && name.startsWith(l)) {
                matched = l.size();
                found = FindReference(l);
            }
        }
        const qsizetype after = i + 1 + matched;
        const bool kept = attribute && after < text.size()
            && (IsAsciiAlnum(text[after]) || text[after] == QLatin1Char('='));
        if (found && !kept) {
            out += QChar(found->ch);
            i = after;
            continue;
        }
        out += text[i++];
    }
    return out;
}

namespace {

QString TagName(const QString& tag)
{
    QString name;
    for (const QChar c : tag) {
        if (c.isLetterOrNumber())
            name += c.toLower();
        else if (!name.isEmpty() || c != QLatin1Char('/'))
            break;
    }
    return name;
}

} // namespace

QString HtmlToPlainText(const QString& html)
{
    QString text;
    text.reserve(html.size());
    for (qsizetype i = 0; i < html.size(); ++i) {
        const QChar c = html[i];
        if (c == QLatin1Char('<')) {
            const qsizetype end = html.indexOf(QLatin1Char('>'), i + 1);
            if (end < 0) {
                text += html.mid(i);
                break;
            }
            const QString name = TagName(html.mid(i + 1, end - i - 1));
            if (name == QLatin1String("br") || name == QLatin1String("p"))
                text += QLatin1Char('\n');
            else if (name == QLatin1String("hr"))
                text += QLatin1String("----------------------------------------\n");
            i = end;
        } else if (c == QLatin1Char('&')) {
            static const struct { const char* entity; char16_t ch; } Entities[] = {
                {"&nbsp;", u' '}, {"&amp;", u'&'}, {"&lt;", u'<'}, {"&gt;", u'>'}, {"&quot;", u'"'},
            };
            bool decoded = false;
            for (const auto& e : Entities) {
                const QLatin1String entity(e.entity);
                if (html.mid(i, entity.size()).compare(entity, Qt::CaseInsensitive) == 0) {
                    text += QChar(e.ch);
                    i += entity.size() - 1;
                    decoded = true;
                    break;
                }
            }
            if (!decoded)
                text += c;
        } else {
            text += c;
        }
    }
    return text;
}

} // namespace tessaly::core
