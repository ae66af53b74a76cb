#include "mail/HtmlSanitizer.h"

#include "core/HtmlText.h"
#include "mail/HtmlTokenizer.h"

#include <algorithm>
#include <vector>

namespace tessaly::mail {

namespace {

// --- references -------------------------------------------------------------

enum class EUrlUse {
    Link,          // followed only when the reader clicks it
    Fetch,         // loaded with the page
    RemotePicture, // loaded with the page, and remote pictures are wanted
};

bool IsAsciiLetter(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z');
}

bool IsAsciiDigit(QChar c)
{
    return c.unicode() >= u'0' && c.unicode() <= u'9';
}

QString AsciiLower(QStringView text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text)
        out += c.unicode() >= u'A' && c.unicode() <= u'Z' ? QChar(c.unicode() + 32) : c;
    return out;
}

// A URL's scheme, lower case, or empty for a relative reference. Blanks and
// control characters are dropped first: a browser strips them around the
// URL and drops tabs and line breaks inside it, and dropping the others too
// can only make more references look absolute.
QString SchemeOf(const QString& url, QString* compact)
{
    QString text;
    text.reserve(url.size());
    for (const QChar c : url)
        if (c.unicode() > 0x20 && c.unicode() != 0x7F)
            text += c;
    *compact = text;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == QLatin1Char(':'))
            return i > 0 && IsAsciiLetter(text[0]) ? AsciiLower(QStringView(text).left(i)) : QString();
        if (!IsAsciiLetter(c) && !IsAsciiDigit(c) && c != QLatin1Char('+') && c != QLatin1Char('-') && c != QLatin1Char('.'))
            return {};
    }
    return {};
}

// Whether a reference (character references already decoded) may stay.
bool UrlAllowed(const QString& url, EUrlUse use)
{
    QString compact;
    const QString scheme = SchemeOf(url, &compact);
    if (scheme.isEmpty()) {
        // A file beside the page; "//host" and "\\host" reach another host.
        const auto slash = [](QChar c) { return c == QLatin1Char('/') || c == QLatin1Char('\\'); };
        return !(compact.size() >= 2 && slash(compact[0]) && slash(compact[1]));
    }
    if (scheme == QLatin1String("cid"))
        return true;
    if (scheme == QLatin1String("data"))
        return use != EUrlUse::Link && compact.mid(5).startsWith(QLatin1String("image/"), Qt::CaseInsensitive);
    if (scheme == QLatin1String("http") || scheme == QLatin1String("https"))
        return use != EUrlUse::Fetch;
    if (use == EUrlUse::Link)
        return scheme == QLatin1String("ftp") || scheme == QLatin1String("mailto") || scheme == QLatin1String("tel")
            || scheme == QLatin1String("news");
    return false;
}

bool IsHtmlSpace(QChar c)
{
    const char16_t u = c.unicode();
    return u == u' ' || u == u'\t' || u == u'\n' || u == u'\r' || u == u'\f';
}

// A srcset list: "url [descriptors], url [descriptors]...". One reference
// that may not stay drops the whole list.
bool SrcsetAllowed(const QString& value, EUrlUse use)
{
    const qsizetype n = value.size();
    qsizetype i = 0;
    while (i < n) {
        while (i < n && (IsHtmlSpace(value[i]) || value[i] == QLatin1Char(',')))
            ++i;
        if (i >= n)
            break;
        const qsizetype start = i;
        while (i < n && !IsHtmlSpace(value[i]))
            ++i;
        QString url = value.mid(start, i - start);
        bool ended = false;
        while (url.endsWith(QLatin1Char(','))) {
            url.chop(1);
            ended = true;
        }
        if (!UrlAllowed(url, use))
            return false;
        if (ended)
            continue;
        // The descriptors, to a comma outside parentheses.
        int depth = 0;
        for (; i < n; ++i) {
            if (value[i] == QLatin1Char('('))
                ++depth;
            else if (value[i] == QLatin1Char(')'))
                --depth;
            else if (value[i] == QLatin1Char(',') && depth <= 0) {
                ++i;
                break;
            }
        }
    }
    return true;
}

// --- CSS ----------------------------------------------------------------------

// Reads CSS as a browser's tokenizer does (CSS Syntax Level 3) where it
// matters: comments, strings, escapes in names, url tokens, functions and
// at-rules. Output is the input with @import rules dropped and references
// that may not stay replaced.
class TCssSanitizer {
public:
    explicit TCssSanitizer(const QString& css) : m_css(css), m_n(css.size()) {}

    QString Run()
    {
        m_out.reserve(m_n);
        while (m_i < m_n)
            Step();
        while (!m_open.empty())
            Close();
        if (m_import)
            m_out.truncate(m_importStart);
        return m_out;
    }

private:
    struct TOpen {
        qsizetype outStart;
        bool urls; // strings inside are references: url("..."), image-set("..." 1x)...
        bool bad;
    };

    static bool IsNewline(QChar c) { return c == QLatin1Char('\n') || c == QLatin1Char('\r') || c == QLatin1Char('\f'); }
    static bool IsCssSpace(QChar c) { return c == QLatin1Char(' ') || c == QLatin1Char('\t') || IsNewline(c); }
    static bool IsNameStart(QChar c) { return IsAsciiLetter(c) || c == QLatin1Char('_') || c.unicode() >= 0x80; }
    static bool IsNameChar(QChar c) { return IsNameStart(c) || IsAsciiDigit(c) || c == QLatin1Char('-'); }

    bool ValidEscape(qsizetype at) const
    {
        return at + 1 < m_n && m_css[at] == QLatin1Char('\\') && !IsNewline(m_css[at + 1]);
    }

    bool NameStartsAt(qsizetype at) const
    {
        if (at >= m_n)
            return false;
        const QChar c = m_css[at];
        if (IsNameStart(c))
            return true;
        if (c == QLatin1Char('\\'))
            return ValidEscape(at);
        if (c == QLatin1Char('-') && at + 1 < m_n)
            return IsNameStart(m_css[at + 1]) || m_css[at + 1] == QLatin1Char('-') || ValidEscape(at + 1);
        return false;
    }

    // An escape at `at` (after its backslash has been checked): the
    // character it stands for; `at` moves past it.
    QString ReadEscape(qsizetype& at) const
    {
        ++at; // the backslash
        if (at >= m_n)
            return QString(QChar(0xFFFD));
        int digits = 0;
        char32_t value = 0;
        while (at < m_n && digits < 6) {
            const char16_t u = m_css[at].unicode();
            const int d = u >= u'0' && u <= u'9' ? u - u'0'
                : u >= u'a' && u <= u'f'        ? u - u'a' + 10
                : u >= u'A' && u <= u'F'        ? u - u'A' + 10
                                                : -1;
            if (d < 0)
                break;
            value = value * 16 + char32_t(d);
            ++digits;
            ++at;
        }
        if (digits == 0)
            return QString(m_css[at++]);
        if (at < m_n && IsCssSpace(m_css[at])) {
            if (m_css[at] == QLatin1Char('\r') && at + 1 < m_n && m_css[at + 1] == QLatin1Char('\n'))
                ++at;
            ++at;
        }
        if (value == 0 || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
            value = 0xFFFD;
        return QString::fromUcs4(&value, 1);
    }

    QString ReadName(qsizetype& at) const
    {
        QString name;
        while (at < m_n) {
            if (IsNameChar(m_css[at]))
                name += m_css[at++];
            else if (ValidEscape(at))
                name += ReadEscape(at);
            else
                break;
        }
        return name;
    }

    // A string from its quote at m_i; its value, m_i past it.
    QString ReadString()
    {
        const QChar quote = m_css[m_i++];
        QString value;
        while (m_i < m_n) {
            const QChar c = m_css[m_i];
            if (c == quote) {
                ++m_i;
                break;
            }
            if (IsNewline(c))
                break; // a bad string ends before the line break
            if (c == QLatin1Char('\\')) {
                if (m_i + 1 >= m_n) {
                    ++m_i;
                } else if (IsNewline(m_css[m_i + 1])) {
                    m_i += 2;
                    if (m_css[m_i - 1] == QLatin1Char('\r') && m_i < m_n && m_css[m_i] == QLatin1Char('\n'))
                        ++m_i;
                } else {
                    value += ReadEscape(m_i);
                }
                continue;
            }
            value += c;
            ++m_i;
        }
        return value;
    }

    // An unquoted url token after "url(" and its blanks; m_i past its ")".
    // False for a bad url, which a browser drops.
    bool ReadUrlToken(QString& value)
    {
        while (m_i < m_n) {
            const QChar c = m_css[m_i];
            if (c == QLatin1Char(')')) {
                ++m_i;
                return true;
            }
            if (IsCssSpace(c)) {
                while (m_i < m_n && IsCssSpace(m_css[m_i]))
                    ++m_i;
                if (m_i >= m_n || m_css[m_i] == QLatin1Char(')')) {
                    m_i = std::min(m_i + 1, m_n);
                    return true;
                }
                break;
            }
            const char16_t u = c.unicode();
            if (c == QLatin1Char('"') || c == QLatin1Char('\'') || c == QLatin1Char('(') || u <= 0x08 || u == 0x0B
                || (u >= 0x0E && u <= 0x1F) || u == 0x7F)
                break;
            if (c == QLatin1Char('\\')) {
                if (!ValidEscape(m_i))
                    break;
                value += ReadEscape(m_i);
                continue;
            }
            value += c;
            ++m_i;
        }
        // The rest of a bad url, to its ")".
        while (m_i < m_n && m_css[m_i] != QLatin1Char(')')) {
            if (ValidEscape(m_i))
                ++m_i;
            ++m_i;
        }
        m_i = std::min(m_i + 1, m_n);
        return false;
    }

    bool InsideUrls() const { return m_outerUrls >= 0; }

    void MarkBad() { m_open[size_t(m_outerUrls)].bad = true; }

    void Open(qsizetype outStart, bool urls, bool bad)
    {
        m_open.push_back({outStart, urls, bad});
        if (urls && m_outerUrls < 0)
            m_outerUrls = qsizetype(m_open.size()) - 1;
    }

    void Close()
    {
        const TOpen open = m_open.back();
        m_open.pop_back();
        if (m_outerUrls == qsizetype(m_open.size()))
            m_outerUrls = -1;
        if (open.bad) {
            m_out.truncate(open.outStart);
            m_out += QLatin1String("none");
        }
    }

    // Ends a running @import: nothing of it is written.
    void EndImport()
    {
        m_out.truncate(m_importStart);
        m_import = false;
    }

    bool AtImportLevel() const { return m_import && qsizetype(m_open.size()) == m_importDepth; }

    void Step()
    {
        const QChar c = m_css[m_i];
        const qsizetype start = m_i;
        if (c == QLatin1Char('/') && m_i + 1 < m_n && m_css[m_i + 1] == QLatin1Char('*')) {
            const qsizetype end = m_css.indexOf(QLatin1String("*/"), m_i + 2);
            m_i = end < 0 ? m_n : end + 2;
            m_out += QStringView(m_css).mid(start, m_i - start);
            return;
        }
        if (c == QLatin1Char('"') || c == QLatin1Char('\'')) {
            const QString value = ReadString();
            if (InsideUrls() && !UrlAllowed(value, EUrlUse::Fetch))
                MarkBad();
            m_out += QStringView(m_css).mid(start, m_i - start);
            return;
        }
        if (c == QLatin1Char('@') && NameStartsAt(m_i + 1)) {
            ++m_i;
            const QString name = AsciiLower(ReadName(m_i));
            if (name == QLatin1String("import") && !m_import) {
                m_import = true;
                m_importStart = m_out.size();
                m_importDepth = qsizetype(m_open.size());
                m_importBraces = 0;
            }
            m_out += QStringView(m_css).mid(start, m_i - start);
            return;
        }
        if (NameStartsAt(m_i)) {
            const QString name = AsciiLower(ReadName(m_i));
            if (m_i >= m_n || m_css[m_i] != QLatin1Char('(')) {
                m_out += QStringView(m_css).mid(start, m_i - start);
                return;
            }
            ++m_i;
            if (name == QLatin1String("url")) {
                qsizetype j = m_i;
                while (j < m_n && IsCssSpace(m_css[j]))
                    ++j;
                if (j >= m_n || (m_css[j] != QLatin1Char('"') && m_css[j] != QLatin1Char('\''))) {
                    m_i = j;
                    QString value;
                    const bool good = ReadUrlToken(value) && UrlAllowed(value, EUrlUse::Fetch);
                    if (good)
                        m_out += QStringView(m_css).mid(start, m_i - start);
                    else if (InsideUrls())
                        MarkBad();
                    else
                        m_out += QLatin1String("none");
                    return;
                }
            }
            static const QLatin1String UrlFunctions[] = {QLatin1String("url"), QLatin1String("src"),
                QLatin1String("image"), QLatin1String("image-set"), QLatin1String("-webkit-image-set"),
                QLatin1String("cross-fade"), QLatin1String("-webkit-cross-fade"), QLatin1String("expression")};
            const bool urls = std::find(std::begin(UrlFunctions), std::end(UrlFunctions), name) != std::end(UrlFunctions);
            Open(m_out.size(), urls, name == QLatin1String("expression"));
            m_out += QStringView(m_css).mid(start, m_i - start);
            return;
        }
        ++m_i;
        if (c == QLatin1Char('(')) {
            Open(m_out.size(), false, false);
            m_out += c;
            return;
        }
        if (c == QLatin1Char(')')) {
            // The function around an @import closes: so does the rule.
            if (AtImportLevel() && !m_open.empty())
                EndImport();
            m_out += c;
            if (!m_open.empty())
                Close();
            return;
        }
        if (c == QLatin1Char(';') && AtImportLevel() && m_importBraces == 0) {
            EndImport();
            return;
        }
        if (c == QLatin1Char('{') && AtImportLevel()) {
            ++m_importBraces;
        } else if (c == QLatin1Char('}') && AtImportLevel()) {
            if (m_importBraces == 0) {
                EndImport(); // the end of the block around the rule
            } else if (--m_importBraces == 0) {
                EndImport();
                return;
            }
        }
        if (c == QLatin1Char('\\') && m_i < m_n) {
            // A backslash before a line break: both stay as they are.
            m_out += c;
            m_out += m_css[m_i++];
            return;
        }
        m_out += c;
    }

    const QString& m_css;
    const qsizetype m_n;
    qsizetype m_i = 0;
    QString m_out;
    std::vector<TOpen> m_open;
    qsizetype m_outerUrls = -1;
    bool m_import = false;
    qsizetype m_importStart = 0, m_importDepth = 0, m_importBraces = 0;
};

// --- HTML ---------------------------------------------------------------------

bool IsOneOf(const QString& name, std::initializer_list<const char*> names)
{
    for (const char* n : names)
        if (name == QLatin1String(n))
            return true;
    return false;
}

// Elements dropped with what they hold (a tokenizer reads it as raw text).
bool DroppedWithContents(const QString& name)
{
    return IsOneOf(name, {"script", "iframe", "noembed", "noframes"});
}

// Elements whose tags are dropped; what they hold stays as ordinary markup.
// <svg> and <math> go so that nothing is read as foreign content, <noscript>
// so that its contents read the same with scripts on and off.
bool DroppedTag(const QString& name)
{
    return IsOneOf(name, {"frame", "frameset", "object", "embed", "applet", "param", "base", "link", "svg", "math",
                             "noscript", "portal", "fencedframe", "bgsound", "isindex", "plaintext"});
}

bool ValidTagName(const QString& name)
{
    if (name.isEmpty() || !IsAsciiLetter(name[0]))
        return false;
    for (const QChar c : name)
        if (!IsAsciiLetter(c) && !IsAsciiDigit(c) && c != QLatin1Char('-') && c != QLatin1Char('_') && c != QLatin1Char(':')
            && c != QLatin1Char('.'))
            return false;
    return true;
}

bool ValidAttributeName(const QString& name)
{
    if (name.isEmpty() || !(IsAsciiLetter(name[0]) || name[0] == QLatin1Char('_') || name[0] == QLatin1Char(':')))
        return false;
    return ValidTagName(QLatin1Char('a') + name);
}

// A value as written, ready for double quotes. The browser decodes it as it
// would have decoded the original.
QString QuotedValue(const QString& raw)
{
    QString out;
    out.reserve(raw.size());
    for (const QChar c : raw) {
        switch (c.unicode()) {
        case '"': out += QLatin1String("&quot;"); break;
        case '<': out += QLatin1String("&lt;"); break;
        case '>': out += QLatin1String("&gt;"); break;
        default: out += c;
        }
    }
    return out;
}

// A decoded value written back.
QString EncodedValue(const QString& value)
{
    QString out = core::HtmlEncode(value);
    return out.replace(QLatin1Char('"'), QLatin1String("&quot;"));
}

// Text with every "<" that opens no markup as a reference.
QString Text(QStringView text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text)
        if (c == QLatin1Char('<'))
            out += QLatin1String("&lt;");
        else
            out += c;
    return out;
}

// Raw text shown as it stands: "&" and "<" as references.
QString LiteralText(QStringView text)
{
    return core::HtmlEncode(text.toString());
}

// A style element's contents. Every "<" but that of "<!--" is escaped, so the
// contents read the same where a browser does not take them as raw text.
QString StyleContents(const QString& css)
{
    const QString clean = THtmlSanitizer::SanitizeCSS(css);
    QString out;
    out.reserve(clean.size());
    for (qsizetype i = 0; i < clean.size(); ++i) {
        if (clean[i] == QLatin1Char('<') && !QStringView(clean).mid(i).startsWith(QLatin1String("<!--")))
            out += QLatin1String("\\3c ");
        else
            out += clean[i];
    }
    return out;
}

class TPageSanitizer {
public:
    TPageSanitizer(const QString& html, const THtmlSanitizeOptions& options) : m_html(html), m_options(options) {}

    QString Run()
    {
        m_out.reserve(m_html.size() + 512);
        THtmlTokenizer tokenizer(m_html);
        THtmlToken token;
        bool policyPending = m_options.ContentSecurityPolicy;
        bool first = true;
        while (tokenizer.Next(token)) {
            const QStringView source = QStringView(m_html).mid(token.Start, token.End - token.Start);
            const bool blank = (token.Kind == EHtmlToken::Text && source.trimmed().isEmpty())
                || token.Kind == EHtmlToken::Comment || token.Kind == EHtmlToken::Unfinished;
            // The policy goes first into the head, where a browser heeds it.
            if (policyPending && !blank && !(token.Kind == EHtmlToken::StartTag && token.Name == QLatin1String("html"))) {
                if (token.Kind == EHtmlToken::StartTag && token.Name == QLatin1String("head")) {
                    StartTag(token);
                    WritePolicy();
                    policyPending = false;
                    first = false;
                    continue;
                }
                WritePolicy();
                policyPending = false;
            }
            switch (token.Kind) {
            case EHtmlToken::Text:
                m_out += Text(source);
                break;
            case EHtmlToken::Comment:
                // Only a doctype that opens the page counts; comments go.
                if (first && source.startsWith(QLatin1String("<!doctype"), Qt::CaseInsensitive))
                    m_out += QLatin1String("<!DOCTYPE html>");
                break;
            case EHtmlToken::Unfinished:
                break;
            case EHtmlToken::RawText:
                RawText(token, source);
                break;
            case EHtmlToken::StartTag:
                StartTag(token);
                break;
            case EHtmlToken::EndTag:
                EndTag(token);
                break;
            }
            if (!blank)
                first = false;
        }
        if (policyPending)
            WritePolicy();
        return m_out;
    }

private:
    void WritePolicy()
    {
        m_out += QLatin1String("<meta http-equiv=\"Content-Security-Policy\" content=\"")
            + THtmlSanitizer::ContentSecurityPolicy(m_options) + QLatin1String("\">");
    }

    void RawText(const THtmlToken& token, QStringView source)
    {
        if (DroppedWithContents(token.Name))
            return;
        if (token.Name == QLatin1String("style"))
            m_out += StyleContents(source.toString());
        else if (token.Name == QLatin1String("textarea") || token.Name == QLatin1String("title"))
            m_out += Text(source); // references mean the same here
        else
            m_out += LiteralText(source); // xmp, plaintext
    }

    static QString WrittenName(const QString& name)
    {
        return name == QLatin1String("xmp") ? QStringLiteral("pre") : name;
    }

    bool Dropped(const THtmlToken& token) const
    {
        if (!ValidTagName(token.Name) || DroppedWithContents(token.Name) || DroppedTag(token.Name))
            return true;
        if (token.Name == QLatin1String("meta")) {
            // Content-Type stays; refresh, cookies, policies and the rest go.
            const THtmlAttribute* equiv = token.Attribute(QLatin1String("http-equiv"));
            return equiv
                && core::HtmlDecode(equiv->Value, true).trimmed().compare(QLatin1String("content-type"), Qt::CaseInsensitive) != 0;
        }
        return false;
    }

    void EndTag(const THtmlToken& token)
    {
        if (!Dropped(token))
            m_out += QLatin1String("</") + WrittenName(token.Name) + QLatin1Char('>');
    }

    void StartTag(const THtmlToken& token)
    {
        if (Dropped(token))
            return;
        m_out += QLatin1Char('<') + WrittenName(token.Name);
        for (const THtmlAttribute& attribute : token.Attributes) {
            QString value;
            if (!Keep(token, attribute, value))
                continue;
            m_out += QLatin1Char(' ') + attribute.Name;
            if (attribute.HasValue)
                m_out += QLatin1String("=\"") + value + QLatin1Char('"');
        }
        m_out += token.SelfClosing ? QLatin1String(" />") : QLatin1String(">");
    }

    // Whether an attribute stays, and its value as written out.
    bool Keep(const THtmlToken& token, const THtmlAttribute& attribute, QString& value) const
    {
        const QString& name = attribute.Name;
        if (!ValidAttributeName(name) || name.startsWith(QLatin1String("on")))
            return false;
        if (IsOneOf(name, {"action", "formaction", "ping", "srcdoc", "manifest", "codebase", "classid", "archive", "profile"}))
            return false;
        const QString decoded = core::HtmlDecode(attribute.Value, true);
        const bool picture = m_options.RemotePictures && token.Name == QLatin1String("img");
        const EUrlUse fetch = picture ? EUrlUse::RemotePicture : EUrlUse::Fetch;
        // An href is a link on anchors and areas; elsewhere (<image>, VML,
        // whatever a browser may one day fetch) it counts as a fetch.
        const bool anchor = token.Name == QLatin1String("a") || token.Name == QLatin1String("area");
        if ((IsOneOf(name, {"cite", "longdesc", "usemap"}) || (anchor && name == QLatin1String("href")))
            && !UrlAllowed(decoded, EUrlUse::Link))
            return false;
        if ((IsOneOf(name, {"src", "lowsrc", "dynsrc", "background", "poster", "data", "xlink:href", "icon"})
                || (!anchor && name == QLatin1String("href")))
            && !UrlAllowed(decoded, fetch))
            return false;
        if (IsOneOf(name, {"srcset", "imagesrcset"}) && !SrcsetAllowed(decoded, fetch))
            return false;
        value = QuotedValue(attribute.Value);
        if (name == QLatin1String("style")) {
            const QString css = THtmlSanitizer::SanitizeCSS(decoded);
            if (css != decoded)
                value = EncodedValue(css);
        }
        return true;
    }

    const QString& m_html;
    const THtmlSanitizeOptions& m_options;
    QString m_out;
};

} // namespace

QString THtmlSanitizer::SanitizeCSS(const QString& css)
{
    return TCssSanitizer(css).Run();
}

QString THtmlSanitizer::ContentSecurityPolicy(const THtmlSanitizeOptions& options)
{
    // Pictures and media: the page's own folder, the message's attachments,
    // data URLs. Inline styles only; nothing else loads, no form is sent
    // and no base changes where relative references point.
    const QString pictures = QStringLiteral("'self' data: cid:") + (options.RemotePictures ? QStringLiteral(" http: https:") : QString());
    return QStringLiteral("default-src 'none'; img-src %1; media-src 'self' data: cid:; style-src 'unsafe-inline'; "
                          "form-action 'none'; base-uri 'none'")
        .arg(pictures);
}

QString THtmlSanitizer::Sanitize(const QString& html, const THtmlSanitizeOptions& options)
{
    // A NUL reads as U+FFFD in a browser; it must not vanish and join names.
    QString page = html;
    page.replace(QChar(u'\0'), QChar(0xFFFD));
    return TPageSanitizer(page, options).Run();
}

} // namespace tessaly::mail
