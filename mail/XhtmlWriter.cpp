#include "mail/XhtmlWriter.h"

#include "core/HtmlText.h"
#include "mail/HtmlTokenizer.h"

#include <QStringList>
#include <algorithm>

namespace tessaly::mail {

namespace {

bool IsVoidElement(const QString& name)
{
    static const QLatin1String Names[] = {QLatin1String("area"), QLatin1String("base"), QLatin1String("br"), QLatin1String("col"),
        QLatin1String("embed"), QLatin1String("hr"), QLatin1String("img"), QLatin1String("input"), QLatin1String("link"),
        QLatin1String("meta"), QLatin1String("param"), QLatin1String("source"), QLatin1String("track"), QLatin1String("wbr"),
        QLatin1String("basefont"), QLatin1String("bgsound"), QLatin1String("frame"), QLatin1String("keygen")};
    return std::any_of(std::begin(Names), std::end(Names), [&](QLatin1String n) { return name == n; });
}

// A name both XML and HTML take: ASCII letters first, then letters, digits,
// "-", "_" and "."; no prefix.
bool IsPlainName(const QString& name)
{
    if (name.isEmpty())
        return false;
    for (qsizetype i = 0; i < name.size(); ++i) {
        const char16_t c = name[i].unicode();
        const bool letter = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
        const bool other = (c >= u'0' && c <= u'9') || c == u'-' || c == u'_' || c == u'.';
        if (!letter && (i == 0 || !other))
            return false;
    }
    return true;
}

// Text without the characters XML 1.0 leaves out: controls other than tab,
// line feed and carriage return, U+FFFE, U+FFFF and unpaired surrogates.
QString XmlCharacters(const QString& text)
{
    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        const char16_t u = c.unicode();
        if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            out += c;
            out += text[++i];
            continue;
        }
        if ((u < 0x20 && u != u'\t' && u != u'\n' && u != u'\r') || u == 0xFFFE || u == 0xFFFF || c.isSurrogate())
            continue;
        out += c;
    }
    return out;
}

QString Escaped(const QString& text, bool attribute)
{
    QString out;
    out.reserve(text.size() + 16);
    for (const QChar c : XmlCharacters(text)) {
        switch (c.unicode()) {
        case u'&': out += QLatin1String("&amp;"); break;
        case u'<': out += QLatin1String("&lt;"); break;
        case u'>': out += QLatin1String("&gt;"); break;
        case u'"':
            if (attribute) {
                out += QLatin1String("&quot;");
                break;
            }
            out += c;
            break;
        default: out += c;
        }
    }
    return out;
}

// Elements a new one of these names closes when open, as a browser does,
// without looking past the elements that bound them.
bool ClosesOpen(const QString& starting, const QString& open)
{
    if (starting == QLatin1String("li"))
        return open == QLatin1String("li");
    if (starting == QLatin1String("dt") || starting == QLatin1String("dd"))
        return open == QLatin1String("dt") || open == QLatin1String("dd");
    if (starting == QLatin1String("tr"))
        return open == QLatin1String("tr") || open == QLatin1String("td") || open == QLatin1String("th");
    if (starting == QLatin1String("td") || starting == QLatin1String("th"))
        return open == QLatin1String("td") || open == QLatin1String("th");
    if (starting == QLatin1String("option"))
        return open == QLatin1String("option");
    if (starting == QLatin1String("p") || starting == QLatin1String("div") || starting == QLatin1String("table")
        || starting == QLatin1String("ul") || starting == QLatin1String("ol") || starting == QLatin1String("h1")
        || starting == QLatin1String("h2") || starting == QLatin1String("h3") || starting == QLatin1String("blockquote")
        || starting == QLatin1String("pre"))
        return open == QLatin1String("p");
    return false;
}

bool BoundsClosing(const QString& name)
{
    return name == QLatin1String("table") || name == QLatin1String("ul") || name == QLatin1String("ol")
        || name == QLatin1String("dl") || name == QLatin1String("select") || name == QLatin1String("body")
        || name == QLatin1String("td") || name == QLatin1String("th") || name == QLatin1String("div")
        || name == QLatin1String("blockquote");
}

} // namespace

QString HtmlToXhtml(const QString& html)
{
    QString out = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE html>\n"
                                 "<html xmlns=\"http://www.w3.org/1999/xhtml\">");
    QStringList open; // elements open below the root, innermost last
    const auto close = [&](qsizetype downTo) {
        while (open.size() > downTo)
            out += QStringLiteral("</") + open.takeLast() + QLatin1Char('>');
    };
    // The document is a head and then a body, as a browser builds it: the
    // first content outside the head begins the body when the page has no
    // body tag of its own.
    bool headSeen = false, bodySeen = false;
    const auto writeAttributes = [&](const THtmlToken& tag) {
        for (const THtmlAttribute& attribute : tag.Attributes) {
            if (!IsPlainName(attribute.Name) || attribute.Name == QLatin1String("xmlns"))
                continue;
            const QString value = attribute.HasValue ? core::HtmlDecode(attribute.Value, true) : attribute.Name;
            out += QLatin1Char(' ') + attribute.Name + QStringLiteral("=\"") + Escaped(value, true) + QLatin1Char('"');
        }
    };
    const auto enterBody = [&](const THtmlToken* bodyTag) {
        if (bodySeen)
            return;
        if (const qsizetype head = open.indexOf(QLatin1String("head")); head >= 0)
            close(head);
        if (!headSeen)
            out += QStringLiteral("<head></head>");
        headSeen = bodySeen = true;
        out += QStringLiteral("<body");
        if (bodyTag)
            writeAttributes(*bodyTag);
        out += QLatin1Char('>');
        open = QStringList{QStringLiteral("body")};
    };
    const auto enterHead = [&] {
        if (headSeen || bodySeen)
            return;
        headSeen = true;
        out += QStringLiteral("<head>");
        open << QStringLiteral("head");
    };
    static const QLatin1String HeadElements[] = {QLatin1String("title"), QLatin1String("meta"), QLatin1String("style"),
        QLatin1String("link"), QLatin1String("base")};
    THtmlTokenizer tokenizer(html);
    THtmlToken token;
    while (tokenizer.Next(token)) {
        const QString source = html.mid(token.Start, token.End - token.Start);
        switch (token.Kind) {
        case EHtmlToken::Text:
            if (!bodySeen && source.trimmed().isEmpty() && !open.contains(QLatin1String("title")))
                break; // blanks between the parts of the head
            if (!open.contains(QLatin1String("head")))
                enterBody(nullptr);
            out += Escaped(core::HtmlDecode(source), false);
            break;
        case EHtmlToken::RawText:
            if (!open.contains(QLatin1String("head")))
                enterBody(nullptr);
            if (token.Name == QLatin1String("style")) {
                // Read as CSS by a browser and as character data by XML.
                QString css = XmlCharacters(source);
                css.replace(QLatin1String("]]>"), QLatin1String("]]]]><![CDATA[>"));
                out += QStringLiteral("/*<![CDATA[*/") + css + QStringLiteral("/*]]>*/");
            } else if (token.Name == QLatin1String("title") || token.Name == QLatin1String("textarea")) {
                out += Escaped(core::HtmlDecode(source), false);
            } else if (token.Name != QLatin1String("script")) {
                out += Escaped(source, false);
            }
            break;
        case EHtmlToken::StartTag: {
            if (token.Name == QLatin1String("html") || !IsPlainName(token.Name) || token.Name == QLatin1String("script"))
                break;
            if (token.Name == QLatin1String("body")) {
                enterBody(&token);
                break;
            }
            if (token.Name == QLatin1String("head")) {
                enterHead();
                break;
            }
            // Head elements go into the head until it ends, everything else
            // into the body.
            if (std::any_of(std::begin(HeadElements), std::end(HeadElements), [&](QLatin1String n) { return token.Name == n; })
                && !headSeen)
                enterHead();
            if (!open.contains(QLatin1String("head")))
                enterBody(nullptr);
            while (!open.isEmpty() && ClosesOpen(token.Name, open.last()))
                close(open.size() - 1);
            out += QLatin1Char('<') + token.Name;
            writeAttributes(token);
            if (IsVoidElement(token.Name)) {
                out += QStringLiteral(" />");
                break;
            }
            if (token.SelfClosing && !THtmlTokenizer::IsRawTextElement(token.Name)) {
                out += QStringLiteral("></") + token.Name + QLatin1Char('>');
                break;
            }
            out += QLatin1Char('>');
            open << token.Name;
            break;
        }
        case EHtmlToken::EndTag: {
            // The root, the head and the body are closed at the end.
            if (token.Name == QLatin1String("html") || token.Name == QLatin1String("body"))
                break;
            if (token.Name == QLatin1String("head")) {
                if (const qsizetype head = open.indexOf(QLatin1String("head")); head >= 0)
                    close(head);
                break;
            }
            // Closes its element and the ones left open inside it; without
            // an open element of its name it is dropped.
            for (qsizetype i = open.size() - 1; i >= 0; --i) {
                if (open[i] == token.Name) {
                    close(i);
                    break;
                }
                // An inline or paragraph end tag does not reach out of a
                // cell, a list or a block; a structural one does.
                if (BoundsClosing(open[i]) && !BoundsClosing(token.Name) && token.Name != QLatin1String("tr")
                    && token.Name != QLatin1String("tbody") && token.Name != QLatin1String("thead")
                    && token.Name != QLatin1String("tfoot") && token.Name != QLatin1String("head"))
                    break;
            }
            break;
        }
        case EHtmlToken::Comment:
        case EHtmlToken::Unfinished:
            break;
        }
    }
    enterBody(nullptr);
    close(0);
    out += QStringLiteral("</html>\n");
    return out;
}

} // namespace tessaly::mail
