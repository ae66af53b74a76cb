#include "tasks/MailTemplate.h"

#include <QRegularExpression>

#include <QFileInfo>
#include <QLocale>
#include <QTextBoundaryFinder>

namespace tessaly::tasks {

int TTemplateMacro::Number() const
{
    bool ok = false;
    const int value = Parameter.trimmed().toInt(&ok);
    return ok ? value : 0;
}

QString TTemplateMacro::Literal() const
{
    return QLatin1Char('[') + Name + (HasParameter ? QLatin1Char('=') + Parameter : QString()) + QLatin1Char(']');
}

TMailTemplate::TMailTemplate(const QString& text) : m_text(text)
{
    QString literal;
    qsizetype i = 0;
    while (i < text.size()) {
        const QChar c = text[i];
        const qsizetype close = c == QLatin1Char('[') ? text.indexOf(QLatin1Char(']'), i + 1) : -1;
        if (close < 0) {
            literal += c;
            ++i;
            continue;
        }
        const QString body = text.mid(i + 1, close - i - 1);
        TTemplateMacro macro;
        const qsizetype colon = body.indexOf(QLatin1Char(':'));
        macro.Name = (colon < 0 ? body : body.left(colon)).trimmed().toLower();
        if (colon >= 0) {
            macro.Parameter = body.mid(colon + 1);
            macro.HasParameter = true;
        }
        m_pieces.push_back({literal, macro});
        literal.clear();
        i = close + 1;
    }
    if (!literal.isEmpty())
        m_pieces.push_back({literal, std::nullopt});
}

QString TMailTemplate::Expand(const std::function<std::optional<QString>(const TTemplateMacro&)>& resolve) const
{
    QString out;
    for (const auto& piece : m_pieces) {
        out += piece.literal;
        if (!piece.macro)
            continue;
        if (const auto value = resolve(*piece.macro))
            out += *value;
        else
            out += QLatin1Char('[') + piece.macro->Name
                + (piece.macro->HasParameter ? QLatin1Char(':') + piece.macro->Parameter : QString()) + QLatin1Char(']');
    }
    return out;
}

QString TextMacro(const QString& value, const TTemplateMacro& macro)
{
    const int keep = macro.Number();
    return keep >= 1 ? value.left(keep) : value;
}

QString NumberMacro(qint64 value, const TTemplateMacro& macro)
{
    const int width = std::clamp(macro.Number(), 0, 64);
    QString text = QString::number(value);
    return text.size() < width ? QString(width - text.size(), QLatin1Char('0')) + text : text;
}

namespace {

// Delphi's date pattern letters in Qt's: "m" after "h" means minutes, "n"
// always does; months are "M" in Qt.
QString QtDatePattern(const QString& pattern)
{
    QString out;
    bool afterHour = false;
    for (qsizetype i = 0; i < pattern.size(); ++i) {
        const QChar c = pattern[i];
        const QChar lower = c.toLower();
        if (c == QLatin1Char('"') || c == QLatin1Char('\'')) { // quoted text stays
            const qsizetype end = pattern.indexOf(c, i + 1);
            const QString quoted = pattern.mid(i + 1, (end < 0 ? pattern.size() : end) - i - 1);
            out += QLatin1Char('\'') + quoted + QLatin1Char('\'');
            i = end < 0 ? pattern.size() : end;
            continue;
        }
        if (pattern.mid(i, 5).compare(QLatin1String("am/pm"), Qt::CaseInsensitive) == 0) {
            out += QLatin1String("AP");
            i += 4;
            continue;
        }
        if (lower == QLatin1Char('m')) {
            out += afterHour ? QLatin1Char('m') : QLatin1Char('M');
        } else if (lower == QLatin1Char('n')) {
            out += QLatin1Char('m');
        } else if (lower == QLatin1Char('y') || lower == QLatin1Char('d') || lower == QLatin1Char('h')
            || lower == QLatin1Char('s') || lower == QLatin1Char('z')) {
            out += lower;
        } else if (c.isLetter()) {
            out += QLatin1Char('\'') + c + QLatin1Char('\''); // any other letter is literal
        } else {
            out += c;
        }
        if (lower == QLatin1Char('h'))
            afterHour = true;
        else if (lower != QLatin1Char('m') && c.isLetter())
            afterHour = false;
    }
    return out;
}

} // namespace

QString DateMacro(const QDateTime& value, const TTemplateMacro& macro)
{
    if (!value.isValid())
        return {};
    if (macro.Parameter.trimmed().isEmpty())
        return QLocale().toString(value.date(), QLocale::ShortFormat);
    return value.toString(QtDatePattern(macro.Parameter));
}

QString CleanFileName(const QString& name, int flags)
{
    static const QString Normal = QStringLiteral("\"*/:<>?\\|");
    static const QString Sharepoint = QStringLiteral("\"#%&*+/:<>?\\{|}~");
    const QString& forbidden = (flags & fncSharepoint) ? Sharepoint : Normal;
    QString out = name.trimmed();
    for (QChar& c : out)
        if (c.unicode() < 32 || forbidden.contains(c))
            c = QLatin1Char('_');
    out.remove(QChar(0x200E));
    while (out.endsWith(QLatin1String("...")))
        out.chop(3);
    if (flags & fncLength) {
        const qsizetype limit = (flags & fncSharepoint) ? 123 : 255;
        if (!(flags & fncSharepoint)) {
            out = FitFileName(out);
        } else if (out.size() > limit) {
            // The name without its extension is cut; the extension stays.
            const qsizetype dot = out.lastIndexOf(QLatin1Char('.'));
            const QString extension = dot > 0 ? out.mid(dot) : QString();
            out = (dot > 0 ? out.left(dot) : out).left(limit) + extension;
        }
    }
    return out;
}

namespace {

// Windows drops trailing dots and blanks; leading dots would hide the file.
// Until none is left at either end: taking off one may bare another.
QString TrimDotsAndBlanks(QString text)
{
    for (QString before; text != before;) {
        before = text;
        text = text.trimmed();
        while (text.endsWith(QLatin1Char('.')))
            text.chop(1);
        while (text.startsWith(QLatin1Char('.')))
            text.remove(0, 1);
    }
    return text;
}

} // namespace

QString SafeAttachName(const QString& name, const QString& fallback)
{
    QString out = name;
    out.truncate(out.indexOf(QChar(0)) >= 0 ? out.indexOf(QChar(0)) : out.size());
    // Only what follows the last separator of any system.
    const qsizetype slash = std::max(out.lastIndexOf(QLatin1Char('/')), out.lastIndexOf(QLatin1Char('\\')));
    out = out.mid(slash + 1);
    out = TrimDotsAndBlanks(CleanFileName(out, 0));
    // A cut may leave a dot or a blank at the end, or nothing at all; a
    // byte is kept for the mark of a device name.
    out = TrimDotsAndBlanks(FitFileName(out, 199));
    if (out.isEmpty())
        out = fallback;
    static const QRegularExpression Device(QStringLiteral("^(CON|PRN|AUX|NUL|COM[0-9]|LPT[0-9])(\\..*)?$"),
        QRegularExpression::CaseInsensitiveOption);
    if (Device.match(out).hasMatch())
        out.prepend(QLatin1Char('_'));
    return out;
}

int Utf8Length(QStringView text)
{
    int bytes = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c < 0x80)
            bytes += 1;
        else if (c < 0x800)
            bytes += 2;
        else if (QChar::isHighSurrogate(c) && i + 1 < text.size() && QChar::isLowSurrogate(text[i + 1].unicode())) {
            bytes += 4;
            ++i;
        } else
            bytes += 3; // a lone surrogate is written as U+FFFD
    }
    return bytes;
}

QString LimitNameBytes(const QString& text, int maxBytes)
{
    if (Utf8Length(text) <= maxBytes)
        return text;
    qsizetype end = 0;
    int bytes = 0;
    QTextBoundaryFinder graphemes(QTextBoundaryFinder::Grapheme, text);
    for (qsizetype next = graphemes.toNextBoundary(); next > 0; next = graphemes.toNextBoundary()) {
        bytes += Utf8Length(QStringView(text).mid(end, next - end));
        if (bytes > maxBytes)
            break;
        end = next;
    }
    return text.left(end);
}

QString FitFileName(const QString& name, int maxBytes)
{
    if (Utf8Length(name) <= maxBytes)
        return name;
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    const QString extension = dot > 0 && name.size() - dot <= 16 ? name.mid(dot) : QString();
    const QString base = extension.isEmpty() ? name : name.left(dot);
    return LimitNameBytes(base, maxBytes - Utf8Length(extension)) + extension;
}

QString ClearSubject(const QString& subject)
{
    QString text = subject;
    qsizetype position = 1;
    while (position <= 7 && position <= text.size()) {
        if (text[position - 1] == QLatin1Char(':')) {
            text.remove(0, position);
            position = 1;
            continue;
        }
        ++position;
    }
    text = text.trimmed();
    return text.isEmpty() ? subject.trimmed() : text;
}

} // namespace tessaly::tasks
