#pragma once

// Checks of written vCards that owe nothing to our reader: a strict line
// checker of vCard 4.0 (RFC 6350) and what Python's vobject reads of a card;
// and the comparison of a contact with what came back of its card.

#include "mail/MailContact.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QStringList>
#include <gtest/gtest.h>

namespace tessaly::test {

namespace vcard_detail {

// Whole UTF-8 sequences only: each one decodes and encodes back the same.
inline bool IsUtf8(const QByteArray& bytes)
{
    for (qsizetype i = 0; i < bytes.size();) {
        const uchar c = uchar(bytes[i]);
        const int more = c < 0x80 ? 0 : (c & 0xE0) == 0xC0 ? 1 : (c & 0xF0) == 0xE0 ? 2 : (c & 0xF8) == 0xF0 ? 3 : -1;
        if (more < 0 || i + more >= bytes.size())
            return false;
        const QByteArray sequence = bytes.mid(i, more + 1);
        if (QString::fromUtf8(sequence).toUtf8() != sequence)
            return false;
        i += more + 1;
    }
    return true;
}

// Backslash escapes of a text value: only \\ \, \; \n \N; and, for a single
// text (not a list or a structure), no bare "," or ";".
inline QString TextProblem(const QString& value, bool single)
{
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] == QLatin1Char('\\')) {
            if (i + 1 >= value.size() || !QStringLiteral("\\,;nN").contains(value[i + 1]))
                return QStringLiteral("bad escape");
            ++i;
        } else if (single && (value[i] == QLatin1Char(',') || value[i] == QLatin1Char(';'))) {
            return QStringLiteral("bare ") + value[i];
        }
    }
    return {};
}

// A data: URI in base64 (RFC 2397), checked a character at a time: a
// picture's URI runs to megabytes, past what a regular expression takes.
inline bool IsBase64DataUri(const QString& value)
{
    static const QRegularExpression Head(QStringLiteral("^data:[a-z]+/[a-z0-9.+-]+;base64$"));
    const qsizetype comma = value.indexOf(QLatin1Char(','));
    if (comma < 0 || !Head.match(value.left(comma)).hasMatch())
        return false;
    const qsizetype size = value.size() - comma - 1;
    if (size % 4 != 0)
        return false;
    for (qsizetype i = comma + 1; i < value.size(); ++i) {
        const QChar c = value[i];
        const bool letter = (c >= QLatin1Char('A') && c <= QLatin1Char('Z')) || (c >= QLatin1Char('a') && c <= QLatin1Char('z'))
            || (c >= QLatin1Char('0') && c <= QLatin1Char('9')) || c == QLatin1Char('+') || c == QLatin1Char('/');
        if (!letter && !(c == QLatin1Char('=') && i >= value.size() - 2 && (i == value.size() - 1 || value[i + 1] == QLatin1Char('='))))
            return false;
    }
    return true;
}

// A URI (RFC 3986): a scheme, ":" and only the characters a URI holds.
inline bool IsUri(const QString& value)
{
    static const QRegularExpression Scheme(QStringLiteral("^[A-Za-z][A-Za-z0-9+.-]*:"));
    static const QString Others = QStringLiteral("-._~:/?#[]@!$&'()*+,;=%");
    if (!Scheme.match(value).hasMatch())
        return false;
    for (const QChar c : value)
        if (c.unicode() > 0x7E || (!c.isLetterOrNumber() && !Others.contains(c)))
            return false;
    return true;
}

inline int Components(const QString& value)
{
    int count = 1;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] == QLatin1Char('\\'))
            ++i;
        else if (value[i] == QLatin1Char(';'))
            ++count;
    }
    return count;
}

} // namespace vcard_detail

// What is wrong with one vCard 4.0 as RFC 6350 has it, one entry per fault:
// the physical lines (CRLF ends and no other CR or LF, at most 75 octets,
// UTF-8 whole on each line, folds begin with one blank); BEGIN, VERSION:4.0
// right after it, END last, an FN; names and parameters by the ABNF of 3.3
// and the registered ones of 5 and 6 (no CHARSET or ENCODING; TYPE values in
// lower case, as we write them); and values by their types: text escapes,
// N and ADR components, dates, tel: and data: URIs, GENDER, KIND.
inline QStringList VCard4Problems(const QByteArray& card)
{
    using namespace vcard_detail;
    QStringList problems;
    if (!card.endsWith("\r\n"))
        problems << QStringLiteral("no CRLF at the end");
    QList<QByteArray> physical = card.split('\n');
    if (!physical.isEmpty() && physical.last().isEmpty())
        physical.removeLast();
    QList<QByteArray> lines;
    for (qsizetype n = 0; n < physical.size(); ++n) {
        QByteArray line = physical[n];
        const QString where = QStringLiteral("line %1: ").arg(n + 1);
        if (!line.endsWith('\r'))
            problems << where + QStringLiteral("LF without CR");
        else
            line.chop(1);
        if (line.contains('\r'))
            problems << where + QStringLiteral("CR without LF");
        if (line.size() > 75)
            problems << where + QStringLiteral("%1 octets").arg(line.size());
        if (!IsUtf8(line))
            problems << where + QStringLiteral("not whole UTF-8");
        if (line.startsWith(' ') || line.startsWith('\t')) {
            if (lines.isEmpty())
                problems << where + QStringLiteral("a fold with nothing before it");
            else
                lines.last() += line.mid(1);
        } else {
            lines << line;
        }
    }
    if (lines.size() < 3 || lines.first() != "BEGIN:VCARD" || lines[1] != "VERSION:4.0" || lines.last() != "END:VCARD")
        problems << QStringLiteral("not BEGIN:VCARD, VERSION:4.0, ..., END:VCARD");

    static const QSet<QString> Properties = {"BEGIN", "END", "VERSION", "SOURCE", "KIND", "XML", "FN", "N",
        "NICKNAME", "PHOTO", "BDAY", "ANNIVERSARY", "GENDER", "ADR", "TEL", "EMAIL", "IMPP", "LANG", "TZ", "GEO",
        "TITLE", "ROLE", "LOGO", "ORG", "MEMBER", "RELATED", "CATEGORIES", "NOTE", "PRODID", "REV", "SOUND", "UID",
        "CLIENTPIDMAP", "URL", "KEY", "FBURL", "CALADRURI", "CALURI"};
    static const QSet<QString> Parameters = {"LANGUAGE", "VALUE", "PREF", "ALTID", "PID", "TYPE", "MEDIATYPE",
        "CALSCALE", "SORT-AS", "GEO", "TZ", "LABEL"};
    static const QSet<QString> ValueTypes = {"text", "uri", "date", "time", "date-time", "date-and-or-time",
        "timestamp", "boolean", "integer", "float", "utc-offset", "language-tag"};
    static const QSet<QString> TelTypes = {"text", "voice", "fax", "cell", "video", "pager", "textphone", "work", "home"};
    static const QRegularExpression Token(QStringLiteral("^[A-Za-z0-9-]+$"));
    static const QRegularExpression Date(QStringLiteral(R"(^(\d{8}|\d{4}-\d{2}|\d{4}|--\d{4}|--\d{2}|---\d{2})(T.+)?$)"));
    static const QRegularExpression Tel(QStringLiteral(R"(^tel:\+[0-9().-]*[0-9][0-9().-]*(;[A-Za-z0-9-]+(=[A-Za-z0-9%!$&'()*+.:@\[\]_~-]+)?)*$)"));
    int names = 0;
    for (const QByteArray& bytes : lines) {
        const QString line = QString::fromUtf8(bytes);
        const QString where = QString::fromUtf8(bytes.left(30)) + QStringLiteral(": ");
        // [group "."] name *(";" param) ":" value
        qsizetype i = 0;
        const auto take = [&](const QString& stops) {
            const qsizetype from = i;
            while (i < line.size() && !stops.contains(line[i]))
                ++i;
            return line.mid(from, i - from);
        };
        QString name = take(QStringLiteral(";:"));
        if (const qsizetype dot = name.indexOf(QLatin1Char('.')); dot >= 0) {
            if (!Token.match(name.left(dot)).hasMatch())
                problems << where + QStringLiteral("bad group");
            name = name.mid(dot + 1);
        }
        name = name.toUpper();
        if (!Token.match(name).hasMatch() || (!Properties.contains(name) && !name.startsWith(QLatin1String("X-"))))
            problems << where + QStringLiteral("property name \"%1\"").arg(name);
        QMap<QString, QStringList> params;
        while (i < line.size() && line[i] == QLatin1Char(';')) {
            ++i;
            const QString key = take(QStringLiteral("=;:")).toUpper();
            if (!Token.match(key).hasMatch() || (!Parameters.contains(key) && !key.startsWith(QLatin1String("X-"))))
                problems << where + QStringLiteral("parameter \"%1\"").arg(key);
            if (i >= line.size() || line[i] != QLatin1Char('=')) {
                problems << where + QStringLiteral("parameter without \"=\"");
                continue;
            }
            do { // param-value *("," param-value)
                ++i;
                QString value;
                if (i < line.size() && line[i] == QLatin1Char('"')) {
                    ++i;
                    value = take(QStringLiteral("\""));
                    if (i >= line.size())
                        problems << where + QStringLiteral("unclosed quote");
                    ++i;
                } else {
                    value = take(QStringLiteral(",;:\""));
                    if (i < line.size() && line[i] == QLatin1Char('"'))
                        problems << where + QStringLiteral("quote inside a parameter value");
                }
                for (const QChar c : value)
                    if (c.unicode() < 0x20 && c != QLatin1Char('\t'))
                        problems << where + QStringLiteral("control character in a parameter");
                params[key] << value;
            } while (i < line.size() && line[i] == QLatin1Char(','));
        }
        if (i >= line.size() || line[i] != QLatin1Char(':')) {
            problems << where + QStringLiteral("no \":\" after the parameters");
            continue;
        }
        const QString value = line.mid(i + 1);
        for (const QChar c : value)
            if ((c.unicode() < 0x20 && c != QLatin1Char('\t')) || c.unicode() == 0x7F)
                problems << where + QStringLiteral("control character in the value");
        if (params.contains(QStringLiteral("ENCODING")) || params.contains(QStringLiteral("CHARSET")))
            problems << where + QStringLiteral("a vCard 3.0 parameter");
        for (const QString& type : params.value(QStringLiteral("VALUE")))
            if (!ValueTypes.contains(type.toLower()) && !type.startsWith(QLatin1String("x-"), Qt::CaseInsensitive))
                problems << where + QStringLiteral("VALUE=%1").arg(type);
        for (const QString& type : params.value(QStringLiteral("TYPE"))) {
            if (type != type.toLower())
                problems << where + QStringLiteral("TYPE=%1 not in lower case").arg(type);
            if (name == QLatin1String("TEL") && !TelTypes.contains(type) && !type.startsWith(QLatin1String("x-")))
                problems << where + QStringLiteral("TEL TYPE=%1").arg(type);
            if (QStringList{"ADR", "EMAIL", "URL", "ORG", "TITLE", "NOTE"}.contains(name) && type != QLatin1String("work")
                && type != QLatin1String("home"))
                problems << where + QStringLiteral("%1 TYPE=%2").arg(name, type);
        }
        for (const QString& pref : params.value(QStringLiteral("PREF")))
            if (const int p = pref.toInt(); p < 1 || p > 100)
                problems << where + QStringLiteral("PREF=%1").arg(pref);
        const bool uri = params.value(QStringLiteral("VALUE")).contains(QStringLiteral("uri"), Qt::CaseInsensitive);
        QString fault;
        if (name == QLatin1String("FN"))
            ++names;
        if (QStringList{"FN", "TITLE", "NOTE", "EMAIL"}.contains(name) || (name == QLatin1String("TEL") && !uri))
            fault = TextProblem(value, true);
        else if (name == QLatin1String("N") || name == QLatin1String("ADR") || name == QLatin1String("ORG"))
            fault = TextProblem(value, false);
        if (name == QLatin1String("N") && Components(value) != 5)
            fault = QStringLiteral("%1 components").arg(Components(value));
        if (name == QLatin1String("ADR") && Components(value) != 7)
            fault = QStringLiteral("%1 components").arg(Components(value));
        if (name == QLatin1String("BDAY") || name == QLatin1String("ANNIVERSARY")) {
            if (!Date.match(value).hasMatch()
                || (value.size() == 8 && !QDate::fromString(value, QStringLiteral("yyyyMMdd")).isValid()))
                fault = QStringLiteral("not a date");
        }
        if (name == QLatin1String("TEL") && uri && !Tel.match(value).hasMatch())
            fault = QStringLiteral("not a global tel: URI");
        if ((name == QLatin1String("PHOTO") || name == QLatin1String("URL")) && !IsUri(value))
            fault = QStringLiteral("not a URI");
        if (name == QLatin1String("PHOTO") && value.startsWith(QLatin1String("data:")) && !IsBase64DataUri(value))
            fault = QStringLiteral("not a base64 data: URI");
        if (name == QLatin1String("GENDER") && !QRegularExpression(QStringLiteral("^[MFONU]?(;.*)?$")).match(value).hasMatch())
            fault = QStringLiteral("not a sex letter");
        if (name == QLatin1String("KIND") && !QStringList{"individual", "group", "org", "location"}.contains(value.toLower()))
            fault = QStringLiteral("unknown kind");
        if (!fault.isEmpty())
            problems << where + fault;
    }
    if (names == 0)
        problems << QStringLiteral("no FN");
    return problems;
}

// The system's Python with python3-vobject, or a reason to skip.
inline QString VobjectMissing()
{
    QProcess probe;
    probe.start(QStringLiteral("/usr/bin/python3"), {QStringLiteral("-c"), QStringLiteral("import vobject")});
    if (!probe.waitForFinished(30000) || probe.exitCode() != 0)
        return QStringLiteral("python3-vobject is not installed (scripts/install-deps installs it)");
    return {};
}

// What vobject reads of each file, one object per file: version, fn, n
// (family, given, prefix), org, title, emails, tels (types, VALUE, value),
// adrs (types, street), bday, anniversary, gender, url, note, and the SHA-256
// of the picture in the PHOTO data: URI. vobject reads 4.0 by its vCard 3.0
// rules, which cut a data: URI at its comma: the picture is taken from its
// content lines as they are.
inline QJsonArray ReadByVobject(const QStringList& files)
{
    QProcess process;
    process.start(QStringLiteral("/usr/bin/python3"), QStringList{QStringLiteral("-c"), QStringLiteral(R"(
import base64, hashlib, io, json, sys, vobject
def joined(v):
    return v if isinstance(v, str) else ','.join(v)
out = []
for path in sys.argv[1:]:
    text = open(path, encoding='utf-8', newline='').read()
    card = vobject.readOne(text)
    lines = (vobject.base.parseLine(l) for l, _ in vobject.base.getLogicalLines(io.StringIO(text), allowQP=False))
    photos = [value for name, params, value, group in lines if name.upper() == 'PHOTO']
    def first(name):
        items = card.contents.get(name, [])
        return items[0].value if items else ''
    n = first('n')
    out.append({
        'version': first('version'), 'fn': first('fn'),
        'n': [joined(n.family), joined(n.given), joined(n.prefix)] if n else [],
        'org': first('org') or [], 'title': first('title'),
        'emails': [e.value for e in card.contents.get('email', [])],
        'tels': [[','.join(t.params.get('TYPE', [])), ','.join(t.params.get('VALUE', [])), t.value]
                 for t in card.contents.get('tel', [])],
        'adrs': [[','.join(a.params.get('TYPE', [])), joined(a.value.street)] for a in card.contents.get('adr', [])],
        'bday': first('bday'), 'anniversary': first('anniversary'), 'gender': first('gender'),
        'url': first('url'), 'note': first('note'),
        'photo': hashlib.sha256(base64.b64decode(photos[0].split(',', 1)[1])).hexdigest() if photos else '',
    })
print(json.dumps(out))
)")} + files);
    if (!process.waitForFinished(120000) || process.exitCode() != 0) {
        ADD_FAILURE() << "vobject: " << process.readAllStandardError().toStdString();
        return {};
    }
    return QJsonDocument::fromJson(process.readAllStandardOutput()).array();
}

namespace vcard_detail {

inline QString Text(const mail::IMailContact& contact, int field)
{
    return contact.GetField(field).toString().trimmed().remove(QLatin1Char('\r'));
}

// The phone number as written: the same text, or, where it became a tel:
// URI, the same "+" and digits.
inline bool SamePhone(const QString& source, const QString& back)
{
    const auto digits = [](QString text) { return text.remove(QRegularExpression(QStringLiteral("[^+0-9]"))); };
    return back == source || (source.startsWith(QLatin1Char('+')) && digits(back) == digits(source));
}

inline QString FullName(const mail::IMailContact& contact)
{
    for (const int field : {mail::mcfFullName, mail::mcfFileAs, mail::mcfSubject})
        if (const QString name = Text(contact, field); !name.isEmpty())
            return name;
    return {};
}

// A web page is a URI in a card: one without a scheme gets "http://".
inline QString WebPage(const mail::IMailContact& contact)
{
    const QString page = Text(contact, mail::mcfWebPage);
    return page.isEmpty() || page.contains(QLatin1Char(':')) ? page : QStringLiteral("http://") + page;
}

} // namespace vcard_detail

// The fields a vCard holds are those of the contact it was written from.
inline void ExpectSameContact(const mail::IMailContact& source, const mail::IMailContact& back, const std::string& what)
{
    using namespace vcard_detail;
    SCOPED_TRACE(what);
    EXPECT_EQ(Text(back, mail::mcfFullName), FullName(source));
    for (const int field : {mail::mcfSurname, mail::mcfTitle, mail::mcfCompany, mail::mcfDepartment, mail::mcfJobTitle,
             mail::mcfBusinessAddress, mail::mcfPostalAddress, mail::mcfNotes, mail::mcfGender})
        EXPECT_EQ(Text(back, field), Text(source, field)) << "field " << field;
    EXPECT_EQ(Text(back, mail::mcfWebPage), WebPage(source));
    EXPECT_EQ(Text(back, mail::mcfEMails), Text(source, mail::mcfEMails).remove(QLatin1Char(' ')));
    for (const int field : {mail::mcfBusinessPhone, mail::mcfHomePhone, mail::mcfMobilePhone, mail::mcfBusinessFax})
        EXPECT_TRUE(SamePhone(Text(source, field), Text(back, field)))
            << "field " << field << ": " << Text(source, field).toStdString() << " -> " << Text(back, field).toStdString();
    for (const int field : {mail::mcfBirthday, mail::mcfAnniversary})
        EXPECT_EQ(back.GetField(field).toDateTime().date(), source.GetField(field).toDateTime().date()) << "field " << field;
    EXPECT_EQ(back.GetField(mail::mcfPicture).toByteArray(), source.GetField(mail::mcfPicture).toByteArray());
}

// What vobject read of a 4.0 card is the contact it was written from.
inline void ExpectVobjectSees(const QJsonObject& read, const mail::IMailContact& source, const std::string& what)
{
    using namespace vcard_detail;
    SCOPED_TRACE(what);
    const auto text = [&](const char* key) { return read[QLatin1String(key)].toString().trimmed(); };
    EXPECT_EQ(text("version"), QStringLiteral("4.0"));
    EXPECT_EQ(text("fn"), FullName(source));
    EXPECT_EQ(read[QLatin1String("n")].toArray().at(0).toString(), Text(source, mail::mcfSurname));
    EXPECT_EQ(read[QLatin1String("n")].toArray().at(2).toString(), Text(source, mail::mcfTitle));
    if (const QString company = Text(source, mail::mcfCompany); !company.isEmpty()) {
        EXPECT_EQ(read[QLatin1String("org")].toArray().at(0).toString(), company);
    }
    EXPECT_EQ(text("title"), Text(source, mail::mcfJobTitle));
    QStringList emails;
    for (const auto& email : read[QLatin1String("emails")].toArray())
        emails << email.toString();
    EXPECT_EQ(emails.join(QLatin1Char(',')), Text(source, mail::mcfEMails).remove(QLatin1Char(' ')));
    QMap<QString, QString> phones;
    for (const auto& tel : read[QLatin1String("tels")].toArray()) {
        const QJsonArray t = tel.toArray();
        QString number = t.at(2).toString();
        if (t.at(1).toString() == QLatin1String("uri"))
            number.remove(QRegularExpression(QStringLiteral("^tel:")));
        phones[t.at(0).toString()] = number;
    }
    static constexpr std::pair<int, const char*> Phones[] = {{mail::mcfBusinessPhone, "work,voice"},
        {mail::mcfHomePhone, "home,voice"}, {mail::mcfMobilePhone, "cell"}, {mail::mcfBusinessFax, "work,fax"}};
    for (const auto& [field, types] : Phones)
        EXPECT_TRUE(SamePhone(Text(source, field), phones.value(QLatin1String(types)))) << types;
    QMap<QString, QString> addresses;
    for (const auto& adr : read[QLatin1String("adrs")].toArray())
        addresses[adr.toArray().at(0).toString()] = adr.toArray().at(1).toString().trimmed();
    EXPECT_EQ(addresses.value(QStringLiteral("work")), Text(source, mail::mcfBusinessAddress));
    EXPECT_EQ(addresses.value(QStringLiteral("home")), Text(source, mail::mcfPostalAddress));
    EXPECT_EQ(text("bday"), source.GetField(mail::mcfBirthday).toDateTime().date().toString(QStringLiteral("yyyyMMdd")));
    EXPECT_EQ(text("anniversary"), source.GetField(mail::mcfAnniversary).toDateTime().date().toString(QStringLiteral("yyyyMMdd")));
    EXPECT_EQ(text("gender"), Text(source, mail::mcfGender));
    EXPECT_EQ(text("url"), WebPage(source));
    EXPECT_EQ(text("note"), Text(source, mail::mcfNotes));
    const QByteArray picture = source.GetField(mail::mcfPicture).toByteArray();
    EXPECT_EQ(text("photo"),
        picture.isEmpty() ? QString() : QString::fromLatin1(QCryptographicHash::hash(picture, QCryptographicHash::Sha256).toHex()));
}

} // namespace tessaly::test
