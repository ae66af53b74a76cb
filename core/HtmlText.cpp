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
        out += QStringLiteral("&#%1;").arg(uint(code));
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
