// vCard 4.0 beside 3.0: what the writer puts out for each field, checked by
// a strict line checker of RFC 6350 and read back by our reader and by
// Python's vobject; cards of other writers through our reader; hostile
// values, an empty contact and a huge picture.

#include "mail/FileMailMsg.h"
#include "mail/VCard.h"

#include "MsgBuilder.h"
#include "VCardCheck.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTimeZone>
#include <gtest/gtest.h>
#include <map>

using namespace tessaly::mail;
using tessaly::test::ExpectSameContact;
using tessaly::test::VCard4Problems;

namespace {

// A contact in memory, field by field.
class TContact : public IMailContact {
public:
    QVariant GetField(int field) const override
    {
        const auto it = fields.find(field);
        return it == fields.end() ? QVariant() : it->second;
    }
    std::map<int, QVariant> fields;
};

QByteArray Jpeg(qsizetype size)
{
    QByteArray bytes(size, '\0');
    QRandomGenerator random(7);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char(random.bounded(256));
    bytes[0] = char(0xFF);
    bytes[1] = char(0xD8);
    return bytes;
}

TContact FullContact()
{
    TContact c;
    c.fields = {{mcfFullName, QStringLiteral("Dr. Ann Lee")}, {mcfSurname, QStringLiteral("Lee")},
        {mcfTitle, QStringLiteral("Dr.")}, {mcfCompany, QStringLiteral("Example Ltd")},
        {mcfDepartment, QStringLiteral("Research")}, {mcfJobTitle, QStringLiteral("Chemist")},
        {mcfEMails, QStringLiteral("ann@example.com,lee@example.org")}, {mcfBusinessPhone, QStringLiteral("+1 555 0100")},
        {mcfHomePhone, QStringLiteral("0171 555 0101")}, {mcfMobilePhone, QStringLiteral("+44 (20) 7946 0958")},
        {mcfBusinessFax, QStringLiteral("+1 555 0102")}, {mcfBusinessAddress, QStringLiteral("1 Main St\r\nSpringfield")},
        {mcfPostalAddress, QStringLiteral("2 Side Rd")}, {mcfBirthday, QDateTime(QDate(1980, 4, 5), QTime(0, 0))},
        {mcfAnniversary, QDateTime(QDate(2005, 6, 7), QTime(0, 0))}, {mcfGender, QStringLiteral("F")},
        {mcfWebPage, QStringLiteral("https://example.com/")}, {mcfNotes, QStringLiteral("Met at the fair.\r\nLikes tea.")},
        {mcfPicture, Jpeg(600)}};
    return c;
}

QStringList Lines(const QByteArray& card)
{
    return QString::fromUtf8(card).split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
}

} // namespace

// Every field in its 4.0 form; the checker finds nothing wrong, our reader
// gives every field back.
TEST(VCard4, WritesEachFieldInItsForm)
{
    const TContact contact = FullContact();
    const QByteArray card = ContactToVCard(contact, 4);
    EXPECT_TRUE(card.startsWith("BEGIN:VCARD\r\nVERSION:4.0\r\nKIND:individual\r\n")) << card.toStdString();
    EXPECT_TRUE(card.endsWith("\r\nEND:VCARD\r\n"));
    const QStringList lines = Lines(card);
    for (const char* line : {"FN:Dr. Ann Lee", "N:Lee;Ann;;Dr.;", "ORG:Example Ltd;Research", "TITLE:Chemist",
             "EMAIL:ann@example.com", "EMAIL:lee@example.org", "TEL;VALUE=uri;TYPE=work,voice:tel:+1-555-0100",
             "TEL;TYPE=home,voice:0171 555 0101", "TEL;VALUE=uri;TYPE=cell:tel:+44(20)7946-0958",
             "TEL;VALUE=uri;TYPE=work,fax:tel:+1-555-0102", "ADR;TYPE=work:;;1 Main St\\nSpringfield;;;;",
             "ADR;TYPE=home:;;2 Side Rd;;;;", "BDAY:19800405", "ANNIVERSARY:20050607", "GENDER:F",
             "URL:https://example.com/", "NOTE:Met at the fair.\\nLikes tea."})
        EXPECT_TRUE(lines.contains(QLatin1String(line))) << line << "\n" << card.toStdString();
    const QString unfolded = QString::fromLatin1(card).remove(QStringLiteral("\r\n "));
    EXPECT_TRUE(unfolded.contains(QStringLiteral("\r\nPHOTO:data:image/jpeg;base64,")
        + QString::fromLatin1(contact.GetField(mcfPicture).toByteArray().toBase64()) + QStringLiteral("\r\n")));
    for (const char* gone : {"CHARSET", "ENCODING", "INTERNET", "WORK", "VOICE"})
        EXPECT_FALSE(card.contains(gone)) << gone;
    EXPECT_EQ(VCard4Problems(card), QStringList());
    ExpectSameContact(contact, TVCardContact(card), "4.0");

    // The default, and any version but 4, is 3.0 as before.
    const QByteArray three = ContactToVCard(contact);
    EXPECT_EQ(ContactToVCard(contact, 7), three);
    EXPECT_TRUE(three.startsWith("BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Dr. Ann Lee\r\nN:Lee;Ann;;Dr.;\r\n")) << three.toStdString();
    const QStringList threeLines = Lines(three);
    for (const char* line : {"EMAIL;TYPE=INTERNET:ann@example.com", "TEL;TYPE=WORK,VOICE:+1 555 0100",
             "TEL;TYPE=CELL:+44 (20) 7946 0958", "ADR;TYPE=WORK:;;1 Main St\\nSpringfield;;;;", "BDAY:1980-04-05"})
        EXPECT_TRUE(threeLines.contains(QLatin1String(line))) << line;
    EXPECT_TRUE(three.contains("\r\nPHOTO;ENCODING=b;TYPE=JPEG:"));
    for (const char* only4 : {"KIND", "GENDER", "ANNIVERSARY", "data:", "VALUE=uri"})
        EXPECT_FALSE(three.contains(only4)) << only4;
    const TVCardContact back(three);
    EXPECT_EQ(back.GetField(mcfBusinessPhone).toString(), QStringLiteral("+1 555 0100"));
    EXPECT_EQ(back.GetField(mcfPicture).toByteArray(), contact.GetField(mcfPicture).toByteArray());
    EXPECT_FALSE(back.GetField(mcfGender).isValid());
}

// A global number becomes a tel: URI (blanks between digits as "-"); a
// local number, letters, an extension or no digit at all stay text. Our
// reader gives the URI's number back.
TEST(VCard4, PhoneNumbersAsTelUrisWhereTheNumberAllows)
{
    struct {
        const char* number;
        const char* uri; // null: written as text
    } const cases[] = {
        {"+1 555 0100", "tel:+1-555-0100"},
        {"+44 (20) 7946 0958", "tel:+44(20)7946-0958"},
        {"+49-30-1234.5678", "tel:+49-30-1234.5678"},
        {"+81 6\u00a00001  0002", "tel:+81-6-0001-0002"},
        {"06-0001-0002", nullptr},
        {"(mobile) 0404 123 456", nullptr},
        {"+1 800 FLOWERS", nullptr},
        {"+1 555 0100 ext. 12", nullptr},
        {"+", nullptr},
        {"+ ( ) -", nullptr},
        {"+\uff11\uff12\uff13", nullptr}, // full-width digits
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.number);
        TContact contact;
        contact.fields = {{mcfFullName, QStringLiteral("P")}, {mcfMobilePhone, QString::fromUtf8(c.number)}};
        const QByteArray card = ContactToVCard(contact, 4);
        EXPECT_EQ(VCard4Problems(card), QStringList());
        const QString expected = c.uri ? QStringLiteral("TEL;VALUE=uri;TYPE=cell:") + QLatin1String(c.uri)
                                       : QStringLiteral("TEL;TYPE=cell:") + QString::fromUtf8(c.number).trimmed();
        EXPECT_TRUE(Lines(card).contains(expected)) << card.toStdString();
        EXPECT_EQ(TVCardContact(card).GetField(mcfMobilePhone).toString(),
            c.uri ? QString::fromLatin1(c.uri).mid(4) : QString::fromUtf8(c.number).trimmed());
    }
}

namespace {

// Values that break careless writers: the characters vCard escapes, line
// ends, characters outside the BMP where a fold falls, controls, a lone
// surrogate; an empty contact; a huge picture.
std::vector<std::pair<std::string, TContact>> HostileContacts()
{
    std::vector<std::pair<std::string, TContact>> contacts;
    TContact escapes;
    escapes.fields = {{mcfFullName, QStringLiteral("Ann; the \\ \"Boss\",\nof Smith\\,; Jr")},
        {mcfSurname, QStringLiteral("of Smith\\,; Jr")}, {mcfTitle, QStringLiteral("Dr.;")},
        {mcfCompany, QStringLiteral("A;B,C\\D")}, {mcfDepartment, QStringLiteral("x\r\ny")},
        {mcfJobTitle, QStringLiteral("Boss, big; \\n not a line end")}, {mcfEMails, QStringLiteral("a;b@x.org")},
        {mcfHomePhone, QStringLiteral("555;0100,1")}, {mcfBusinessAddress, QStringLiteral("Flat 1; 2\r\nMain St, 3\\4")},
        {mcfNotes, QStringLiteral("\\n; ,\r\n\r\nend\\")}};
    contacts.emplace_back("escapes", escapes);

    // 4-byte characters: every fold of a long line lands inside one unless
    // the writer cuts between characters.
    QString wide;
    for (int i = 0; i < 45; ++i)
        wide += QStringLiteral("\U0001F600\U00020BB7");
    TContact nonBmp;
    nonBmp.fields = {{mcfFullName, QStringLiteral("x") + wide}, {mcfSurname, wide.left(40)},
        {mcfNotes, QStringLiteral("ab") + wide}, {mcfBusinessAddress, QStringLiteral("\U0001D11E street ") + wide},
        {mcfCompany, QString(40, QChar(0x00e9)) + wide}};
    contacts.emplace_back("non-BMP", nonBmp);

    TContact empty;
    contacts.emplace_back("empty", empty);

    TContact huge;
    huge.fields = {{mcfFullName, QStringLiteral("Big Picture")}, {mcfPicture, Jpeg(8 * 1024 * 1024)}};
    contacts.emplace_back("huge picture", huge);
    return contacts;
}

} // namespace

// Hostile values: lines the checker passes, every field back from our reader.
TEST(VCard4, HostileValuesReadBack)
{
    for (const auto& [what, contact] : HostileContacts()) {
        const QByteArray card = ContactToVCard(contact, 4);
        EXPECT_EQ(VCard4Problems(card), QStringList()) << what;
        ExpectSameContact(contact, TVCardContact(card), what);
    }

    // Controls are left out, a lone surrogate becomes "?"; the lines stay
    // whole.
    TContact controls;
    controls.fields = {{mcfFullName, QStringLiteral("A\x01" "B\x1b\x7f\tC") + QChar(0xD800) + QStringLiteral("D")},
        {mcfNotes, QStringLiteral("bell\x07, form feed\x0c, NUL") + QChar(0)}, {mcfWebPage, QStringLiteral("example.com/a b\r\nc\u00e9")}};
    const QByteArray card = ContactToVCard(controls, 4);
    EXPECT_EQ(VCard4Problems(card), QStringList()) << card.toStdString();
    const TVCardContact back(card);
    EXPECT_EQ(back.GetField(mcfFullName).toString(), QStringLiteral("AB\tC?D"));
    EXPECT_EQ(back.GetField(mcfNotes).toString(), QStringLiteral("bell, form feed, NUL"));
    EXPECT_EQ(back.GetField(mcfWebPage).toString(), QStringLiteral("http://example.com/a%20b%0D%0Ac%C3%A9"));

    // The empty contact: nothing but the lines a card must have.
    const QByteArray empty = ContactToVCard(TContact(), 4);
    EXPECT_EQ(empty, QByteArray("BEGIN:VCARD\r\nVERSION:4.0\r\nKIND:individual\r\nFN:\r\nN:;;;;\r\nEND:VCARD\r\n"));
    const TVCardContact none(empty);
    for (int field = 0; field <= mcfGender; ++field)
        EXPECT_FALSE(none.GetField(field).isValid()) << field;
}

// What vobject reads of the hostile cards is what was written.
TEST(VCard4, HostileValuesReadByVobject)
{
    if (const QString missing = tessaly::test::VobjectMissing(); !missing.isEmpty())
        GTEST_SKIP() << missing.toStdString();
    QTemporaryDir dir;
    const auto contacts = HostileContacts();
    QStringList files;
    for (size_t i = 0; i < contacts.size(); ++i) {
        files << dir.filePath(QStringLiteral("%1.vcf").arg(i));
        QFile file(files.last());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(ContactToVCard(contacts[i].second, 4));
    }
    const QJsonArray read = tessaly::test::ReadByVobject(files);
    ASSERT_EQ(read.size(), qsizetype(contacts.size()));
    for (size_t i = 0; i < contacts.size(); ++i)
        tessaly::test::ExpectVobjectSees(read[qsizetype(i)].toObject(), contacts[i].second, contacts[i].first);
}

// Cards as other programs write 4.0: quoted parameters holding ";" and ":",
// groups, lists in types, URIs with extensions, a date without a year, a
// date with a time, a gender with its identity, pictures as data: URIs in
// base64, percent-encoded and escaped.
TEST(VCard4, ReadsCardsOfOtherWriters)
{
    const QByteArray png = QByteArray("\x89PNG\r\n\x1a\n", 8) + QByteArray(40, '\x05');
    const TVCardContact card("BEGIN:VCARD\r\nVERSION:4.0\r\nFN:Simon Perreault\r\n"
                             "N:Perreault;Simon;;;ing. jr,M.Sc.\r\nBDAY:--0203\r\nANNIVERSARY:20090808T1430-0500\r\n"
                             "GENDER:m;man\r\nLANG;PREF=1:fr\r\nEMAIL;TYPE=work:simon.perreault@viagenie.ca\r\n"
                             "TEL;VALUE=uri;TYPE=\"work,voice\";PREF=1:tel:+1-418-656-9254;ext=102\r\n"
                             "TEL;VALUE=uri;TYPE=\"work,cell,voice,video,text\":tel:+1-418-262-6501\r\n"
                             "ADR;TYPE=work;LABEL=\"Suite D2-630: 2875 boul. Laurier; Quebec\\, QC\":;;2875 boul. Laurier\\, \r\n"
                             " suite D2-630;Quebec;QC;G1V 2M2;Canada\r\n"
                             "item1.URL;TYPE=work:http://www.viagenie.ca/\r\n"
                             "PHOTO;MEDIATYPE=image/png:data:image/png;base64," + png.toBase64() + "\r\n"
                             "END:VCARD\r\n");
    EXPECT_EQ(card.Subject(), QStringLiteral("Simon Perreault"));
    EXPECT_EQ(card.GetField(mcfSurname).toString(), QStringLiteral("Perreault"));
    EXPECT_FALSE(card.GetField(mcfBirthday).isValid()); // no year
    EXPECT_EQ(card.GetField(mcfAnniversary).toDateTime().date(), QDate(2009, 8, 8));
    EXPECT_EQ(card.GetField(mcfGender).toString(), QStringLiteral("M"));
    EXPECT_EQ(card.GetField(mcfEMails).toString(), QStringLiteral("simon.perreault@viagenie.ca"));
    EXPECT_EQ(card.GetField(mcfBusinessPhone).toString(), QStringLiteral("+1-418-656-9254 x102"));
    EXPECT_EQ(card.GetField(mcfMobilePhone).toString(), QStringLiteral("+1-418-262-6501"));
    EXPECT_EQ(card.GetField(mcfBusinessAddress).toString(), QStringLiteral("2875 boul. Laurier, suite D2-630\nG1V 2M2 Quebec QC\nCanada"));
    EXPECT_EQ(card.GetField(mcfWebPage).toString(), QStringLiteral("http://www.viagenie.ca/"));
    EXPECT_EQ(card.GetField(mcfPicture).toByteArray(), png);
    // A tel: URI in capitals, percent-encoded.
    EXPECT_EQ(TVCardContact("BEGIN:VCARD\r\nVERSION:4.0\r\nFN:P\r\nTEL;VALUE=uri;TYPE=home:TEL:+1%20555\r\nEND:VCARD\r\n")
                  .GetField(mcfHomePhone).toString(),
        QStringLiteral("+1 555"));

    const TVCardContact percent("BEGIN:VCARD\r\nVERSION:4.0\r\nFN:P\r\nPHOTO:data:image/gif,GIF89a%01%FF\r\nEND:VCARD\r\n");
    EXPECT_EQ(percent.GetField(mcfPicture).toByteArray(), QByteArray("GIF89a\x01\xFF"));
    const TVCardContact escaped("BEGIN:VCARD\r\nVERSION:4.0\r\nFN:P\r\nPHOTO:data:image/png\\;base64\\," + png.toBase64() + "\r\nEND:VCARD\r\n");
    EXPECT_EQ(escaped.GetField(mcfPicture).toByteArray(), png);
    const TVCardContact link("BEGIN:VCARD\r\nVERSION:4.0\r\nFN:P\r\nPHOTO:http://example.com/p.jpg\r\nGENDER:;it\r\nEND:VCARD\r\n");
    EXPECT_FALSE(link.GetField(mcfPicture).isValid());
    EXPECT_FALSE(link.GetField(mcfGender).isValid());
    // A quote that never closes: the line is still split at its first ":".
    EXPECT_EQ(TVCardContact("BEGIN:VCARD\r\nFN;X-A=\"open:Ann\r\nEND:VCARD\r\n").Subject(), QStringLiteral("Ann"));
}

// The gender and wedding anniversary of an Outlook contact reach the 4.0
// card, and only that.
TEST(VCard4, GenderAndAnniversaryOfAMsgContact)
{
    QTemporaryDir dir;
    const uint64_t noonJune15 =
        uint64_t(QDateTime(QDate(2010, 6, 15), QTime(12, 0), QTimeZone::utc()).toSecsSinceEpoch() + 11644473600LL) * 10000000ULL;
    const std::pair<uint64_t, QString> genders[] = {{2, QStringLiteral("M")}, {0, QString()}};
    for (const auto& [gender, letter] : genders) {
        SCOPED_TRACE(gender);
        tessaly::test::TMsgContent content;
        content.strings = {{0x001A, QStringLiteral("IPM.Contact")}, {0x3001, QStringLiteral("Ann Lee")}};
        content.fixed = {{0x3A4D0002, gender}, {0x3A410040, noonJune15}};
        const QString path = dir.filePath(QStringLiteral("c%1.msg").arg(gender));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(tessaly::test::BuildMsg(content));
        file.close();
        const auto contact = std::dynamic_pointer_cast<IMailContact>(TFileMailMsgRequest(path).Message());
        ASSERT_TRUE(contact);
        const QByteArray card = ContactToVCard(*contact, 4);
        EXPECT_EQ(VCard4Problems(card), QStringList());
        EXPECT_TRUE(card.contains("\r\nANNIVERSARY:20100615\r\n")) << card.toStdString();
        EXPECT_EQ(card.contains("\r\nGENDER:" + letter.toLatin1() + "\r\n"), !letter.isEmpty()) << card.toStdString();
        EXPECT_EQ(card.contains("GENDER"), !letter.isEmpty());
        EXPECT_FALSE(ContactToVCard(*contact, 3).contains("ANNIVERSARY"));
        ExpectSameContact(*contact, TVCardContact(card), "msg");
    }
}

// The checker itself finds each fault it is there for.
TEST(VCard4, CheckerFindsFaults)
{
    const QByteArray head = "BEGIN:VCARD\r\nVERSION:4.0\r\nFN:A\r\n";
    const QByteArray tail = "END:VCARD\r\n";
    struct {
        const char* what;
        QByteArray lines;
        const char* problem;
    } const cases[] = {
        {"76 octets", "NOTE:" + QByteArray(71, 'x') + "\r\n", "76 octets"},
        {"bare LF", "NOTE:x\n", "LF without CR"},
        {"fold inside a character", "NOTE:" + QByteArray(69, 'x') + "\xc3\r\n \xa9\r\n", "not whole UTF-8"},
        {"upper-case type", "TEL;TYPE=CELL:1\r\n", "not in lower case"},
        {"unknown tel type", "TEL;TYPE=internet:1\r\n", "TEL TYPE=internet"},
        {"3.0 photo", "PHOTO;ENCODING=b:AAAA\r\n", "vCard 3.0 parameter"},
        {"charset", "EMAIL;CHARSET=UTF-8:a@b\r\n", "vCard 3.0 parameter"},
        {"short N", "N:a;b\r\n", "2 components"},
        {"short ADR", "ADR:;;a;;\r\n", "5 components"},
        {"3.0 date", "BDAY:1980-04-05\r\n", "not a date"},
        {"no such day", "ANNIVERSARY:19800231\r\n", "not a date"},
        {"number as uri", "TEL;VALUE=uri:+1 555\r\n", "not a global tel: URI"},
        {"local tel uri", "TEL;VALUE=uri:tel:555-0100\r\n", "not a global tel: URI"},
        {"short base64", "PHOTO:data:image/png;base64,abc\r\n", "not a base64 data: URI"},
        {"blank in url", "URL:http://a b\r\n", "not a URI"},
        {"bare comma", "FN:a,b\r\n", "bare ,"},
        {"bad escape", "NOTE:a\\x\r\n", "bad escape"},
        {"bad name", "X Y:z\r\n", "property name"},
        {"unknown name", "NAME:z\r\n", "property name \"NAME\""},
        {"parameter without value", "FN;TYPE:x\r\n", "without \"=\""},
        {"quote in value", "FN;X-A=a\"b:x\r\n", "quote inside"},
        {"control", "NOTE:a\x01" "b\r\n", "control character"},
        {"sex", "GENDER:male\r\n", "not a sex letter"},
    };
    EXPECT_EQ(VCard4Problems(head + tail), QStringList());
    for (const auto& c : cases) {
        const QStringList problems = VCard4Problems(head + c.lines + tail);
        EXPECT_TRUE(problems.join(QLatin1Char('|')).contains(QLatin1String(c.problem)))
            << c.what << ": " << problems.join(QLatin1Char('|')).toStdString();
    }
    EXPECT_FALSE(VCard4Problems("BEGIN:VCARD\r\nVERSION:3.0\r\nFN:A\r\nEND:VCARD\r\n").isEmpty());
    EXPECT_FALSE(VCard4Problems("BEGIN:VCARD\r\nVERSION:4.0\r\nEND:VCARD\r\n").isEmpty()); // no FN
    EXPECT_FALSE(VCard4Problems(head + tail.chopped(2)).isEmpty());
    EXPECT_TRUE(VCard4Problems(" " + head + tail).join(QLatin1Char('|')).contains(QLatin1String("a fold with nothing before it")));
}
