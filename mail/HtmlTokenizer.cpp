#include "mail/HtmlTokenizer.h"

#include <QSet>

namespace tessaly::mail {

namespace {

bool IsSpace(QChar c)
{
    const char16_t u = c.unicode();
    return u == u' ' || u == u'\t' || u == u'\n' || u == u'\r' || u == u'\f';
}

bool IsAsciiLetter(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z');
}

QChar AsciiLower(QChar c)
{
    const char16_t u = c.unicode();
    return u >= u'A' && u <= u'Z' ? QChar(u + 32) : c;
}

QString AsciiLower(QStringView text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text)
        out += AsciiLower(c);
    return out;
}

} // namespace

const THtmlAttribute* THtmlToken::Attribute(QLatin1String name) const
{
    for (const auto& a : Attributes)
        if (a.Name == name)
            return &a;
    return nullptr;
}

bool THtmlTokenizer::IsRawTextElement(const QString& name)
{
    static const QLatin1String Names[] = {QLatin1String("script"), QLatin1String("style"), QLatin1String("xmp"),
        QLatin1String("iframe"), QLatin1String("noembed"), QLatin1String("noframes"), QLatin1String("textarea"),
        QLatin1String("title"), QLatin1String("plaintext")};
    for (const auto& n : Names)
        if (name == n)
            return true;
    return false;
}

bool THtmlTokenizer::Next(THtmlToken& token)
{
    const qsizetype size = m_html.size();
    for (;;) {
        token = THtmlToken();
        token.Start = m_pos;
        if (m_pos >= size)
            return false;
        if (!m_rawElement.isEmpty()) {
            ReadRawText(token);
            if (token.End > token.Start)
                return true;
            continue;
        }
        break;
    }
    // Markup starts at "<" before a letter, "!", "?" or "/" and something.
    const auto startsMarkup = [&](qsizetype at) {
        if (at + 1 >= size || m_html[at] != QLatin1Char('<'))
            return false;
        const QChar n = m_html[at + 1];
        return IsAsciiLetter(n) || n == QLatin1Char('!') || n == QLatin1Char('?')
            || (n == QLatin1Char('/') && at + 2 < size);
    };
    if (startsMarkup(m_pos)) {
        const QChar n = m_html[m_pos + 1];
        if (IsAsciiLetter(n) || (n == QLatin1Char('/') && IsAsciiLetter(m_html[m_pos + 2]))) {
            ReadTag(token);
            return true;
        }
        ReadComment(token);
        return true;
    }
    qsizetype end = m_pos + 1;
    for (;;) {
        end = m_html.indexOf(QLatin1Char('<'), end);
        if (end < 0) {
            end = size;
            break;
        }
        if (startsMarkup(end))
            break;
        ++end;
    }
    token.Kind = EHtmlToken::Text;
    token.End = m_pos = end;
    return true;
}

bool THtmlTokenizer::ReadTag(THtmlToken& token)
{
    const qsizetype size = m_html.size();
    const bool endTag = m_html[m_pos + 1] == QLatin1Char('/');
    qsizetype i = m_pos + (endTag ? 2 : 1);
    const auto unfinished = [&] {
        token.Kind = EHtmlToken::Unfinished;
        token.Attributes.clear();
        token.End = m_pos = size;
        return false;
    };
    const qsizetype nameStart = i;
    while (i < size && !IsSpace(m_html[i]) && m_html[i] != QLatin1Char('/') && m_html[i] != QLatin1Char('>'))
        ++i;
    token.Name = AsciiLower(QStringView(m_html).mid(nameStart, i - nameStart));
    const auto skipSpaces = [&] {
        while (i < size && IsSpace(m_html[i]))
            ++i;
    };
    QSet<QString> seen;
    for (;;) {
        skipSpaces();
        if (i >= size)
            return unfinished();
        const QChar c = m_html[i];
        if (c == QLatin1Char('>')) {
            ++i;
            break;
        }
        if (c == QLatin1Char('/')) {
            if (i + 1 < size && m_html[i + 1] == QLatin1Char('>')) {
                token.SelfClosing = true;
                i += 2;
                break;
            }
            ++i;
            continue;
        }
        // An attribute's name: its first character may even be "=".
        const qsizetype attrStart = i++;
        while (i < size && !IsSpace(m_html[i]) && m_html[i] != QLatin1Char('/') && m_html[i] != QLatin1Char('>')
            && m_html[i] != QLatin1Char('='))
            ++i;
        THtmlAttribute attribute;
        attribute.Name = AsciiLower(QStringView(m_html).mid(attrStart, i - attrStart));
        skipSpaces();
        if (i >= size)
            return unfinished();
        if (m_html[i] == QLatin1Char('=')) {
            ++i;
            skipSpaces();
            if (i >= size)
                return unfinished();
            attribute.HasValue = true;
            const QChar quote = m_html[i];
            if (quote == QLatin1Char('"') || quote == QLatin1Char('\'')) {
                const qsizetype close = m_html.indexOf(quote, i + 1);
                if (close < 0)
                    return unfinished();
                attribute.Value = m_html.mid(i + 1, close - i - 1);
                i = close + 1;
            } else if (quote != QLatin1Char('>')) {
                const qsizetype valueStart = i;
                while (i < size && !IsSpace(m_html[i]) && m_html[i] != QLatin1Char('>'))
                    ++i;
                if (i >= size)
                    return unfinished();
                attribute.Value = m_html.mid(valueStart, i - valueStart);
            }
        }
        if (!endTag && !seen.contains(attribute.Name)) {
            seen.insert(attribute.Name);
            token.Attributes.push_back(std::move(attribute));
        }
    }
    token.Kind = endTag ? EHtmlToken::EndTag : EHtmlToken::StartTag;
    token.End = m_pos = i;
    if (!endTag && IsRawTextElement(token.Name))
        m_rawElement = token.Name;
    return true;
}

void THtmlTokenizer::ReadComment(THtmlToken& token)
{
    const qsizetype size = m_html.size();
    const qsizetype i = m_pos;
    qsizetype end = size;
    if (QStringView(m_html).mid(i).startsWith(QLatin1String("<!--"))) {
        const qsizetype j = i + 4;
        if (j < size && m_html[j] == QLatin1Char('>')) {
            end = j + 1;
        } else if (QStringView(m_html).mid(j).startsWith(QLatin1String("->"))) {
            end = j + 2;
        } else {
            // Ends at "-->" or "--!>".
            for (qsizetype k = m_html.indexOf(QLatin1String("--"), j); k >= 0; k = m_html.indexOf(QLatin1String("--"), k + 1)) {
                if (k + 2 < size && m_html[k + 2] == QLatin1Char('>')) {
                    end = k + 3;
                    break;
                }
                if (k + 3 < size && m_html[k + 2] == QLatin1Char('!') && m_html[k + 3] == QLatin1Char('>')) {
                    end = k + 4;
                    break;
                }
            }
        }
    } else {
        // <!DOCTYPE ...>, <?...>, </ followed by no letter: to the next ">".
        const qsizetype gt = m_html.indexOf(QLatin1Char('>'), i + 2);
        end = gt < 0 ? size : gt + 1;
    }
    token.Kind = EHtmlToken::Comment;
    token.End = m_pos = end;
}

void THtmlTokenizer::ReadRawText(THtmlToken& token)
{
    const qsizetype size = m_html.size();
    token.Kind = EHtmlToken::RawText;
    token.Name = m_rawElement;
    m_rawElement.clear();
    qsizetype end = size;
    if (token.Name != QLatin1String("plaintext")) {
        // Up to "</name" followed by a blank, "/" or ">".
        const QString close = QStringLiteral("</") + token.Name;
        for (qsizetype k = m_html.indexOf(close, m_pos, Qt::CaseInsensitive); k >= 0;
             k = m_html.indexOf(close, k + 2, Qt::CaseInsensitive)) {
            const qsizetype after = k + close.size();
            if (after < size && (IsSpace(m_html[after]) || m_html[after] == QLatin1Char('/') || m_html[after] == QLatin1Char('>'))) {
                end = k;
                break;
            }
        }
    }
    token.End = m_pos = end;
}

} // namespace tessaly::mail
