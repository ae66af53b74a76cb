#include "mail/VCard.h"

#include "core/Charset.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QStringList>
#include <QUrl>

namespace tessaly::mail {

namespace {

struct TProperty {
    QString name;             // upper case, group prefix removed
    QStringList types;        // TYPE values, upper case
    QString value;            // decoded, escapes not yet undone
};

QByteArray Unquoted(QByteArray value)
{
    value = value.trimmed();
    if (value.size() >= 2 && value.startsWith('"') && value.endsWith('"'))
        value = value.mid(1, value.size() - 2);
    return value;
}

QByteArray DecodeQuotedPrintable(const QByteArray& text)
{
    QByteArray out;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] == '=' && i + 2 < text.size()) {
            bool ok = false;
            const int value = text.mid(i + 1, 2).toInt(&ok, 16);
            if (ok) {
                out += char(value);
                i += 2;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

// Unfolds the lines of the first card: a line starting with a blank goes on
// the one before; quoted-printable values go on after a trailing "=".
QList<QByteArray> CardLines(const QByteArray& data)
{
    QList<QByteArray> lines;
    bool inCard = false;
    for (QByteArray line : data.split('\n')) {
        if (line.endsWith('\r'))
            line.chop(1);
        if (!inCard) {
            if (line.trimmed().compare("BEGIN:VCARD", Qt::CaseInsensitive) == 0)
                inCard = true;
            continue;
        }
        if (line.trimmed().compare("END:VCARD", Qt::CaseInsensitive) == 0)
            break;
        if (!lines.isEmpty() && (line.startsWith(' ') || line.startsWith('\t'))) {
            lines.last() += line.mid(1);
            continue;
        }
        if (!lines.isEmpty() && lines.last().endsWith('=') && lines.last().toUpper().contains("QUOTED-PRINTABLE")) {
            lines.last().chop(1);
            lines.last() += line;
            continue;
        }
        lines.append(line);
    }
    return lines;
}

// The name and parameters end at the first ":" outside double quotes (a
// quoted parameter value, as vCard 4.0 writes them, may hold ";" and ":");
// a line whose quotes never close is split at its first ":".
QList<QByteArray> LineHead(const QByteArray& line, qsizetype& colon)
{
    QList<QByteArray> head(1);
    bool quoted = false;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (c == '"') {
            quoted = !quoted;
        } else if (!quoted && c == ';') {
            head.append(QByteArray());
            continue;
        } else if (!quoted && c == ':') {
            colon = i;
            return head;
        }
        head.last() += c;
    }
    colon = line.indexOf(':');
    return colon < 0 ? QList<QByteArray>() : line.left(colon).split(';');
}

TProperty ParseLine(const QByteArray& line)
{
    TProperty property;
    qsizetype colon = -1;
    const QList<QByteArray> head = LineHead(line, colon);
    if (colon < 0)
        return property;
    QByteArray name = head.first().trimmed().toUpper();
    if (const qsizetype dot = name.lastIndexOf('.'); dot >= 0)
        name = name.mid(dot + 1); // item1.EMAIL
    property.name = QString::fromLatin1(name);
    QString charset = QStringLiteral("UTF-8");
    bool quotedPrintable = false;
    for (qsizetype i = 1; i < head.size(); ++i) {
        const QByteArray parameter = head[i].trimmed();
        const qsizetype eq = parameter.indexOf('=');
        const QByteArray key = (eq < 0 ? QByteArray("TYPE") : parameter.left(eq)).trimmed().toUpper();
        const QByteArray value = Unquoted(eq < 0 ? parameter : parameter.mid(eq + 1));
        if (key == "TYPE") {
            for (const QByteArray& type : value.split(','))
                property.types << QString::fromLatin1(type).remove(QLatin1Char('"')).trimmed().toUpper();
        } else if (key == "CHARSET") {
            charset = QString::fromLatin1(value);
        } else if (key == "ENCODING" && value.toUpper() == "QUOTED-PRINTABLE") {
            quotedPrintable = true;
        } else if (key == "ENCODING" && (value.toUpper() == "B" || value.toUpper() == "BASE64")) {
            property.types << QStringLiteral("BASE64");
        }
        if (value.toUpper() == "QUOTED-PRINTABLE")
            quotedPrintable = true;
    }
    QByteArray raw = line.mid(colon + 1);
    if (quotedPrintable)
        raw = DecodeQuotedPrintable(raw);
    property.value = core::DecodeCharset(raw, charset);
    return property;
}

QString Unescape(const QString& value)
{
    QString out;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] == QLatin1Char('\\') && i + 1 < value.size()) {
            const QChar next = value[++i];
            out += (next == QLatin1Char('n') || next == QLatin1Char('N')) ? QChar(QLatin1Char('\n')) : next;
        } else {
            out += value[i];
        }
    }
    return out.trimmed();
}

// Components separated by unescaped ";".
QStringList Components(const QString& value)
{
    QStringList parts;
    QString current;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] == QLatin1Char('\\') && i + 1 < value.size()) {
            current += value[i];
            current += value[++i];
        } else if (value[i] == QLatin1Char(';')) {
            parts << Unescape(current);
            current.clear();
        } else {
            current += value[i];
        }
    }
    parts << Unescape(current);
    return parts;
}

QString JoinNonEmpty(const QStringList& parts, const QString& separator)
{
    QStringList kept;
    for (const QString& part : parts)
        if (!part.isEmpty())
            kept << part;
    return kept.join(separator);
}

// A tel: URI (RFC 3966) as the number it names, an extension after " x";
// any other text as it stands.
QString PhoneNumber(const QString& value)
{
    if (!value.startsWith(QLatin1String("tel:"), Qt::CaseInsensitive))
        return value;
    QStringList parts = value.mid(4).split(QLatin1Char(';'));
    QString number = QUrl::fromPercentEncoding(parts.takeFirst().toUtf8());
    for (const QString& parameter : parts)
        if (parameter.startsWith(QLatin1String("ext="), Qt::CaseInsensitive))
            number += QStringLiteral(" x") + QUrl::fromPercentEncoding(parameter.mid(4).toUtf8());
    return number;
}

// BDAY and ANNIVERSARY: 1980-04-05 or 19800405, either with a time after
// it; a date without its year ("--0405") or free text is no date.
QDateTime CardDate(const QString& text)
{
    QDate date = QDate::fromString(text.left(10), Qt::ISODate);
    if (!date.isValid())
        date = QDate::fromString(text.left(8), QStringLiteral("yyyyMMdd"));
    return date.isValid() ? QDateTime(date, QTime(0, 0)) : QDateTime();
}

// PHOTO: a data: URI (base64 or percent-encoded), or base64 (ENCODING=b in
// 3.0, BASE64 in 2.1); nothing for a link to a picture elsewhere.
QByteArray CardPicture(const TProperty& p)
{
    const QString value = Unescape(p.value); // some writers escape the URI's ";" and ","
    if (value.startsWith(QLatin1String("data:"), Qt::CaseInsensitive)) {
        const qsizetype comma = value.indexOf(QLatin1Char(','));
        if (comma < 0)
            return {};
        const QByteArray payload = value.mid(comma + 1).toUtf8();
        return value.left(comma).endsWith(QLatin1String(";base64"), Qt::CaseInsensitive)
            ? QByteArray::fromBase64(payload)
            : QByteArray::fromPercentEncoding(payload);
    }
    if (p.types.contains(QLatin1String("BASE64")) || p.types.contains(QLatin1String("B")))
        return QByteArray::fromBase64(value.toLatin1());
    return {};
}

} // namespace

TVCardContact::TVCardContact(const QByteArray& data)
{
    auto set = [this](int field, const QString& value) {
        if (!value.isEmpty() && !m_fields[size_t(field)].isValid())
            m_fields[size_t(field)] = value;
    };
    int emails = 0;
    for (const QByteArray& line : CardLines(data)) {
        const TProperty p = ParseLine(line);
        const auto has = [&p](const char* type) { return p.types.contains(QLatin1String(type)); };
        if (p.name == QLatin1String("FN")) {
            set(cfDisplayName, Unescape(p.value));
        } else if (p.name == QLatin1String("N")) {
            const QStringList n = Components(p.value); // family; given; additional; prefix; suffix
            set(cfSurname, n.value(0));
            set(cfGivenName, n.value(1));
            set(cfDisplayNamePrefix, n.value(3));
            set(cfGeneration, n.value(4));
        } else if (p.name == QLatin1String("ORG")) {
            const QStringList org = Components(p.value);
            set(cfCompanyName, org.value(0));
            set(cfDepartment, org.value(1));
        } else if (p.name == QLatin1String("TITLE")) {
            set(cfJobTitle, Unescape(p.value));
        } else if (p.name == QLatin1String("EMAIL")) {
            if (emails < 3)
                set(cfEmail1 + emails++, Unescape(p.value));
        } else if (p.name == QLatin1String("TEL")) {
            const QString number = PhoneNumber(Unescape(p.value));
            if (has("FAX"))
                set(cfBusinessFax, number);
            else if (has("CELL"))
                set(cfMobilePhone, number);
            else if (has("HOME"))
                set(cfHomePhone, number);
            else if (has("WORK"))
                set(cfBusinessPhone, number);
            else
                set(cfPrimaryPhone, number);
        } else if (p.name == QLatin1String("ADR")) {
            const QStringList adr = Components(p.value); // pobox; ext; street; locality; region; code; country
            const QString address = JoinNonEmpty(
                {adr.value(2), JoinNonEmpty({adr.value(5), adr.value(3), adr.value(4)}, QStringLiteral(" ")), adr.value(6)},
                QStringLiteral("\n"));
            set(has("WORK") ? cfBusinessAddress : cfPostalAddress, address);
            set(cfLocality, adr.value(3));
            set(cfCountry, adr.value(6));
        } else if (p.name == QLatin1String("URL")) {
            set(cfWebPage, Unescape(p.value));
        } else if (p.name == QLatin1String("NOTE")) {
            set(cfNotes, Unescape(p.value));
        } else if (p.name == QLatin1String("IMPP") || p.name == QLatin1String("X-MS-IMADDRESS")) {
            set(cfInstantMessaging, Unescape(p.value));
        } else if (p.name == QLatin1String("BDAY")) {
            if (const QDateTime date = CardDate(Unescape(p.value)); date.isValid() && !m_fields[cfBirthday].isValid())
                m_fields[cfBirthday] = date;
        } else if (p.name == QLatin1String("ANNIVERSARY")) {
            if (const QDateTime date = CardDate(Unescape(p.value)); date.isValid() && !m_anniversary.isValid())
                m_anniversary = date;
        } else if (p.name == QLatin1String("GENDER")) {
            const QString sex = Components(p.value).value(0).toUpper(); // sex;identity
            if (sex.size() == 1 && QStringLiteral("MFONU").contains(sex) && !m_gender.isValid())
                m_gender = sex;
        } else if (p.name == QLatin1String("PHOTO") && !m_fields[cfPicture].isValid()) {
            if (const QByteArray picture = CardPicture(p); !picture.isEmpty())
                m_fields[cfPicture] = picture;
        }
    }
    if (!m_fields[cfDisplayName].isValid()) {
        const QString name = JoinNonEmpty({Value(cfGivenName).toString(), Value(cfSurname).toString()}, QStringLiteral(" "));
        set(cfDisplayName, name);
    }
}

QVariant TVCardContact::GetField(int field) const
{
    if (field == mcfAnniversary)
        return m_anniversary;
    if (field == mcfGender)
        return m_gender;
    return ContactMessageField(field, [this](int stored) { return Value(stored); });
}

QString ContentLineText(QString value)
{
    value.replace(QStringLiteral("\r\n"), QStringLiteral("\n")).replace(QLatin1Char('\r'), QLatin1Char('\n'));
    QString out;
    for (const QChar c : value) {
        if (c == QLatin1Char('\\') || c == QLatin1Char(',') || c == QLatin1Char(';'))
            out += QLatin1Char('\\');
        if (c == QLatin1Char('\n'))
            out += QStringLiteral("\\n");
        else if ((c.unicode() >= 0x20 && c.unicode() != 0x7F) || c == QLatin1Char('\t'))
            out += c; // other controls have no place in a content line
    }
    return out;
}

QByteArray FoldedContentLine(const QString& line)
{
    const QByteArray utf8 = line.toUtf8();
    QByteArray out;
    qsizetype start = 0, width = 75;
    while (utf8.size() - start > width) {
        qsizetype cut = start + width;
        while (cut > start && (uchar(utf8[cut]) & 0xC0) == 0x80) // not inside a character
            --cut;
        out += utf8.mid(start, cut - start) + "\r\n ";
        start = cut;
        width = 74; // the leading space counts
    }
    return out + utf8.mid(start) + "\r\n";
}

namespace {

// A number as a tel: URI (RFC 3966) when it is a global one: "+", then ASCII
// digits with blanks, "-", ".", "(" or ")" among them; a blank between two
// digits becomes "-", other blanks go. Empty for any other number: a local
// number would need a phone-context the contact does not hold.
QString TelUri(const QString& number)
{
    if (!number.startsWith(QLatin1Char('+')))
        return {};
    QString uri = QStringLiteral("tel:+");
    bool digits = false, blank = false;
    for (qsizetype i = 1; i < number.size(); ++i) {
        const QChar c = number[i];
        if (c.isSpace()) {
            blank = true;
            continue;
        }
        const bool digit = c >= QLatin1Char('0') && c <= QLatin1Char('9');
        if (!digit && !QStringLiteral("-.()").contains(c))
            return {};
        if (blank && digit && uri.back().isDigit())
            uri += QLatin1Char('-');
        blank = false;
        uri += c;
        digits = digits || digit;
    }
    return digits ? uri : QString();
}

// The web page as a URI (URL): "http://" before a page without a scheme
// ("www.example.com"); what a URI cannot hold (line ends and other controls,
// blanks, quotes, non-ASCII) percent-encoded as UTF-8, the rest as it is.
QString WebPageUri(QString page)
{
    static const QRegularExpression Scheme(QStringLiteral("^[A-Za-z][A-Za-z0-9+.-]*:"));
    if (!page.isEmpty() && !Scheme.match(page).hasMatch())
        page.prepend(QStringLiteral("http://"));
    return QString::fromLatin1(page.toUtf8().toPercentEncoding("!#$%&'()*+,/:;=?@[]"));
}

// The picture's image type by its first bytes; empty when not known.
QLatin1String PictureType(const QByteArray& bytes)
{
    if (bytes.startsWith("\xFF\xD8"))
        return QLatin1String("jpeg");
    if (bytes.startsWith("\x89PNG"))
        return QLatin1String("png");
    if (bytes.startsWith("GIF8"))
        return QLatin1String("gif");
    return QLatin1String();
}

} // namespace

QByteArray ContactToVCard(const IMailContact& contact, int version)
{
    const bool v4 = version == 4;
    const auto text = [&](int field) { return contact.GetField(field).toString().trimmed(); };
    QByteArray card = v4 ? "BEGIN:VCARD\r\nVERSION:4.0\r\nKIND:individual\r\n" : "BEGIN:VCARD\r\nVERSION:3.0\r\n";
    const auto add = [&](const QString& name, const QString& value) {
        if (!value.isEmpty())
            card += FoldedContentLine(name + QLatin1Char(':') + value);
    };
    // TYPE values: upper case in 3.0, lower case in 4.0.
    const auto typeParameter = [v4](const char* types) {
        const QString list = QLatin1String(types);
        return QStringLiteral(";TYPE=") + (v4 ? list.toLower() : list);
    };
    QString full = text(mcfFullName);
    const QString surname = text(mcfSurname), prefix = text(mcfTitle);
    if (full.isEmpty())
        full = text(mcfFileAs);
    if (full.isEmpty())
        full = text(mcfSubject);
    // N is surname;given;additional;prefix;suffix: the given names are what
    // the full name holds besides the prefix and the surname.
    QString given = full;
    if (!prefix.isEmpty() && given.startsWith(prefix))
        given = given.mid(prefix.size()).trimmed();
    if (!surname.isEmpty() && given.endsWith(surname))
        given = given.left(given.size() - surname.size()).trimmed();
    else
        given.clear();
    card += FoldedContentLine(QStringLiteral("FN:") + ContentLineText(full));
    card += FoldedContentLine(QStringLiteral("N:%1;%2;;%3;")
                                  .arg(ContentLineText(surname), ContentLineText(given), ContentLineText(prefix)));
    if (const QString company = text(mcfCompany), department = text(mcfDepartment); !company.isEmpty() || !department.isEmpty())
        add(QStringLiteral("ORG"), ContentLineText(company) + (department.isEmpty() ? QString() : QLatin1Char(';') + ContentLineText(department)));
    add(QStringLiteral("TITLE"), ContentLineText(text(mcfJobTitle)));
    for (const QString& email : text(mcfEMails).split(QLatin1Char(','), Qt::SkipEmptyParts))
        add(v4 ? QStringLiteral("EMAIL") : QStringLiteral("EMAIL;TYPE=INTERNET"), ContentLineText(email.trimmed()));
    static constexpr std::pair<int, const char*> Phones[] = {{mcfBusinessPhone, "WORK,VOICE"},
        {mcfHomePhone, "HOME,VOICE"}, {mcfMobilePhone, "CELL"}, {mcfBusinessFax, "WORK,FAX"}};
    for (const auto& [field, types] : Phones) {
        const QString number = text(field);
        if (const QString uri = v4 ? TelUri(number) : QString(); !uri.isEmpty())
            add(QStringLiteral("TEL;VALUE=uri") + typeParameter(types), uri);
        else
            add(QStringLiteral("TEL") + typeParameter(types), ContentLineText(number));
    }
    // Addresses as stored: one text; it goes in the street part.
    if (const QString business = text(mcfBusinessAddress); !business.isEmpty())
        add(QStringLiteral("ADR") + typeParameter("WORK"), QStringLiteral(";;%1;;;;").arg(ContentLineText(business)));
    if (const QString postal = text(mcfPostalAddress); !postal.isEmpty())
        add(QStringLiteral("ADR") + typeParameter("HOME"), QStringLiteral(";;%1;;;;").arg(ContentLineText(postal)));
    const auto date = [v4](const QVariant& value) {
        const QDate day = value.toDateTime().date();
        if (!day.isValid() || day.year() < 1 || day.year() > 9999) // four digits of year
            return QString();
        return v4 ? day.toString(QStringLiteral("yyyyMMdd")) : day.toString(Qt::ISODate);
    };
    add(QStringLiteral("BDAY"), date(contact.GetField(mcfBirthday)));
    if (v4) {
        add(QStringLiteral("ANNIVERSARY"), date(contact.GetField(mcfAnniversary)));
        if (const QString sex = text(mcfGender).toUpper(); sex.size() == 1 && QStringLiteral("MFONU").contains(sex))
            add(QStringLiteral("GENDER"), sex);
    }
    add(QStringLiteral("URL"), WebPageUri(text(mcfWebPage)));
    add(QStringLiteral("NOTE"), ContentLineText(contact.GetField(mcfNotes).toString()));
    const QVariant picture = contact.GetField(mcfPicture);
    if (picture.typeId() == QMetaType::QByteArray && !picture.toByteArray().isEmpty()) {
        const QByteArray bytes = picture.toByteArray();
        const QLatin1String type = PictureType(bytes);
        if (v4)
            add(QStringLiteral("PHOTO"), QStringLiteral("data:%1;base64,")
                    .arg(type.isEmpty() ? QStringLiteral("application/octet-stream") : QStringLiteral("image/") + type)
                + QString::fromLatin1(bytes.toBase64()));
        else
            add(QStringLiteral("PHOTO;ENCODING=b") + (type.isEmpty() ? QString() : QStringLiteral(";TYPE=") + QString(type).toUpper()),
                QString::fromLatin1(bytes.toBase64()));
    }
    card += "END:VCARD\r\n";
    return card;
}

} // namespace tessaly::mail
