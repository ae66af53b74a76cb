// The writers of the other formats, piece by piece: .msg files of every
// sample back through our reader, mbox entries, text, vCards and iCalendar
// files. Every format over every sample, read by readers that owe nothing
// to ours, is the round-trip test's.

#include "TasksTestUtil.h"
#include "TestUtil.h"
#include "mail/VCardCheck.h"
#include "mail/FileMailMsg.h"
#include "mail/ICalendar.h"
#include "mail/VCard.h"
#include "core/DateTime.h"
#include "pst/PSTFile.h"
#include "tasks/MailExportSource.h"
#include "tasks/MailOtherTasks.h"

#include <QDir>
#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <gtest/gtest.h>

using namespace tessaly;
using namespace tessaly::tasks;
using tessaly::test::TestData;
using tessaly::test::TestMail;
using tessaly::test::TOptionsTest;

namespace {

QStringList Sources()
{
    QStringList sources;
    for (const QString& dir : {QStringLiteral("pst"), QStringLiteral("msg"), QStringLiteral("eml")})
        for (const QString& name : QDir(TestData(dir)).entryList(QDir::Files, QDir::Name))
            sources << TestData(dir + QLatin1Char('/') + name);
    return sources;
}

void AddSource(TMailTask& task, const QString& source)
{
    if (source.endsWith(QLatin1String(".pst")) || source.endsWith(QLatin1String(".ost"))) {
        auto file = std::make_shared<pst::TPSTFile>(source);
        ASSERT_NE(file->RootFolder(), nullptr) << source.toStdString();
        AddFolderEntries(task, file, file->RootFolder(), {}, true);
    } else {
        AddMessageFileEntry(task, source);
    }
}

QString Spaced(const QString& text)
{
    return text.simplified();
}

class OtherFormatsTest : public TOptionsTest {};

} // namespace

// Every sample through the .msg writer and back through our reader: the
// counts add up, nothing fails, subjects and attachment counts agree.
TEST_F(OtherFormatsTest, MsgFilesOfEverySampleReadBack)
{
    int messages = 0;
    for (const QString& source : Sources()) {
        SCOPED_TRACE(source.toStdString());
        QTemporaryDir out;
        TMailProperties properties;
        properties.SetConvertType(mctMSG);
        EXPECT_EQ(properties.Extension(), QStringLiteral("msg"));
        properties.Destination = out.path();
        auto task = CreateMailTask(properties);
        ASSERT_TRUE(task);
        AddSource(*task, source);
        task->Run();
        const int total = int(task->Entries().size());
        messages += total;
        EXPECT_EQ(task->Written() + task->Filtered() + task->Failed(), total);
        EXPECT_EQ(task->Failed(), 0);
        for (auto& entry : task->Entries()) {
            if (entry.Output.isEmpty())
                continue;
            EXPECT_TRUE(entry.Output.endsWith(QLatin1String(".msg")));
            const auto original = entry.Load();
            const auto copy = mail::TFileMailMsgRequest(entry.Output).Message();
            ASSERT_NE(copy, nullptr) << entry.Output.toStdString();
            EXPECT_EQ(Spaced(copy->Subject()), Spaced(original->Subject())) << entry.Output.toStdString();
            const auto attaches = [](const mail::IMailMessage& m) { return m.Attaches() ? m.Attaches()->Count() : 0; };
            EXPECT_EQ(attaches(*copy), attaches(*original)) << entry.Output.toStdString();
        }
    }
    EXPECT_GT(messages, 300);
}

// mboxrd: a line of the message that begins with "From " (after any ">")
// gets one more ">"; other lines stay as they are; LF line ends; the entry
// starts with a "From " line and ends with a blank line.
TEST(MBoxEntry, FromLinesQuotedAndEntryFramed)
{
    auto message = TestMail(QStringLiteral("Quoting"),
        QStringLiteral("From here\r\n>From there\r\n>>From far\r\nFromage\r\nfrom lower\r\n From spaced\r\nend"));
    const QByteArray entry = MBoxEntry(*message);
    EXPECT_TRUE(entry.startsWith("From ann@x.org ")) << entry.left(60).toStdString();
    const QByteArray first = entry.left(entry.indexOf('\n'));
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^From ann@x\\.org [A-Z][a-z]{2} [A-Z][a-z]{2} +\\d{1,2} \\d\\d:\\d\\d:\\d\\d \\d{4}$"))
                    .match(QString::fromLatin1(first))
                    .hasMatch())
        << first.toStdString();
    EXPECT_FALSE(entry.contains('\r'));
    EXPECT_TRUE(entry.endsWith("\n\n"));
    const QByteArray body = entry.mid(entry.indexOf("\n\n") + 2);
    // The body is quoted-printable or plain: find the lines as written.
    for (const char* line : {"\n>From here\n", "\n>>From there\n", "\n>>>From far\n", "\nFromage\n", "\nfrom lower\n", "\n From spaced\n"})
        EXPECT_TRUE(entry.contains(line)) << line << "\n" << entry.toStdString();
    EXPECT_EQ(entry.count("\nFrom "), 0); // no line but the first begins "From "

    // A sender address that is no plain ASCII word keeps the line ASCII.
    message->sender = std::make_shared<mail::TMailRecipient>(QStringLiteral("J\u00fcrg"), QStringLiteral("j\u00fcrg@x.org"));
    EXPECT_TRUE(MBoxEntry(*message).startsWith("From MAILER-DAEMON "));
    message->sender = std::make_shared<mail::TMailRecipient>(QStringLiteral("Ann"), QStringLiteral("ann smith@x.org"));
    EXPECT_TRUE(MBoxEntry(*message).startsWith("From MAILER-DAEMON "));
}

// The text file: header lines, a blank line, the text body; the text made
// from the HTML body when there is no text body or when asked.
TEST(MessageText, HeaderLinesAndBody)
{
    auto message = TestMail(QStringLiteral("Plans \u00e9t\u00e9"), QStringLiteral("Line one\r\nLine two"));
    message->recipients[mail::mrtCC] = test::Recipients({{QStringLiteral("Cy"), QStringLiteral("cy@x.org")}});
    message->html = QStringLiteral("<p>From <b>HTML</b></p>");
    const QString text = QString::fromUtf8(MessageText(*message, false));
    EXPECT_TRUE(text.startsWith(QStringLiteral("From: Ann <ann@x.org>\nTo: Bob <bob@x.org>\nCc: Cy <cy@x.org>\nDate: ")))
        << text.toStdString();
    EXPECT_TRUE(text.contains(QStringLiteral("\nSubject: Plans \u00e9t\u00e9\n\nLine one\nLine two\n"))) << text.toStdString();
    EXPECT_FALSE(text.contains(QLatin1Char('\r')));
    const QString fromHtml = QString::fromUtf8(MessageText(*message, true));
    EXPECT_TRUE(fromHtml.contains(QStringLiteral("From HTML"))) << fromHtml.toStdString();
    EXPECT_FALSE(fromHtml.contains(QStringLiteral("Line one")));
    message->text.clear();
    EXPECT_TRUE(QString::fromUtf8(MessageText(*message, false)).contains(QStringLiteral("From HTML")));
}

// The writer of each format; formats without one give none.
TEST(CreateMailTask, WriterOfEachFormat)
{
    const struct {
        TMailConvertType type;
        bool has;
    } cases[] = {{mctEML, true}, {mctMSG, true}, {mctTXT, true}, {mctMBox, true}, {mctPST, true}, {mctHTML, true}, {mctVCard, true}, {mctICal, true}, {mctPDF, true}, {mctDOC, false}};
    for (const auto& c : cases) {
        TMailProperties properties;
        properties.SetConvertType(c.type);
        EXPECT_EQ(CreateMailTask(properties) != nullptr, c.has) << c.type;
    }
}

// Every contact of the samples as a vCard 4.0: lines that the strict
// checker passes, and every field back from our reader and from Python's
// vobject.
TEST_F(OtherFormatsTest, VCard4OfEverySampleContactReadBack)
{
    QTemporaryDir out;
    TMailProperties properties;
    properties.SetConvertType(mctVCard);
    properties.Destination = out.path();
    auto task = CreateMailTask(properties);
    ASSERT_TRUE(task);
    for (const QString& source : Sources())
        AddSource(*task, source);
    task->Run();
    std::vector<std::shared_ptr<mail::IMailMessage>> contacts;
    QStringList files;
    QDir(out.path()).mkdir(QStringLiteral("4.0"));
    for (auto& entry : task->Entries()) {
        if (entry.Result != trOK) // the export's own choice of contacts
            continue;
        contacts.push_back(entry.Load());
        const auto* contact = dynamic_cast<const mail::IMailContact*>(contacts.back().get());
        ASSERT_NE(contact, nullptr) << entry.Source.toStdString();
        const QByteArray card = mail::ContactToVCard(*contact, 4);
        EXPECT_EQ(test::VCard4Problems(card), QStringList()) << entry.Source.toStdString();
        test::ExpectSameContact(*contact, mail::TVCardContact(card), entry.Source.toStdString());
        files << QDir(out.path()).filePath(QStringLiteral("4.0/%1.vcf").arg(files.size()));
        QFile file(files.last());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(card);
    }
    EXPECT_EQ(contacts.size(), 4u); // contact-plain, contact-unicode, contactUnicode, Swetlana Novikova
    if (const QString missing = test::VobjectMissing(); !missing.isEmpty())
        GTEST_SKIP() << missing.toStdString();
    const QJsonArray read = test::ReadByVobject(files);
    ASSERT_EQ(read.size(), files.size());
    for (qsizetype i = 0; i < files.size(); ++i)
        test::ExpectVobjectSees(read[i].toObject(), dynamic_cast<const mail::IMailContact&>(*contacts[size_t(i)]),
            files[i].toStdString());
}

// Values with the characters vCard escapes, a long line folded between
// characters, the picture: all read back as they were.
TEST(ContactToVCard, EscapesFoldsAndKeepsThePicture)
{
    class TContact : public mail::IMailContact {
    public:
        QVariant GetField(int field) const override
        {
            switch (field) {
            case mail::mcfFullName: return QStringLiteral("Ann; the \\ \"Boss\", Smith");
            case mail::mcfSurname: return QStringLiteral("Smith");
            case mail::mcfNotes: return QStringLiteral("Line one\r\nLine two, with comma; and semicolon ") + QString(40, QChar(0x00e9));
            case mail::mcfEMails: return QStringLiteral("ann@x.org,ann@y.org");
            case mail::mcfPicture: return QByteArray("\x89PNG\r\n\x1a\n") + QByteArray(300, '\x07');
            default: return {};
            }
        }
    } contact;
    const QByteArray card = mail::ContactToVCard(contact);
    EXPECT_TRUE(card.startsWith("BEGIN:VCARD\r\nVERSION:3.0\r\n"));
    EXPECT_TRUE(card.endsWith("END:VCARD\r\n"));
    for (const QByteArray& line : card.split('\n'))
        EXPECT_LE(line.size(), 76) << line.toStdString(); // 75 and the CR
    EXPECT_TRUE(card.contains("FN:Ann\\; the \\\\ \"Boss\"\\, Smith\r\n")) << card.toStdString();
    const mail::TVCardContact back(card);
    EXPECT_EQ(back.Subject(), contact.GetField(mail::mcfFullName).toString());
    EXPECT_EQ(back.GetField(mail::mcfNotes).toString().remove(QLatin1Char('\r')),
        contact.GetField(mail::mcfNotes).toString().remove(QLatin1Char('\r')));
    EXPECT_EQ(back.GetField(mail::mcfPicture).toByteArray(), contact.GetField(mail::mcfPicture).toByteArray());
    EXPECT_EQ(back.GetField(mail::mcfEMails).toString().remove(QLatin1Char(' ')), QStringLiteral("ann@x.org,ann@y.org"));
}

namespace {

// A meeting in memory: organizer, required and optional attendees, a room.
class TTestMeeting : public test::TTestMessage, public mail::IMailMeeting {
public:
    mail::TDateTime AppoitmentStart() const override { return start; }
    mail::TDateTime AppoitmentEnd() const override { return end; }
    QString Location() const override { return location; }
    mail::TDateTime start = 0, end = 0;
    QString location;
};

// What Python's icalendar reads of each file: summary, location, start and
// end in UTC, and the attendees with their roles.
QJsonArray ReadICalendars(const QStringList& files)
{
    QProcess process;
    process.start(QStringLiteral("/usr/bin/python3"), QStringList{QStringLiteral("-c"), QStringLiteral(R"(
import json, sys, icalendar, datetime
out = []
for path in sys.argv[1:]:
    cal = icalendar.Calendar.from_ical(open(path, 'rb').read())
    for ev in cal.walk('VEVENT'):
        def utc(name):
            if name not in ev: return ''
            return ev.decoded(name).astimezone(datetime.timezone.utc).strftime('%Y-%m-%dT%H:%M:%SZ')
        attendees = ev.get('attendee', [])
        if not isinstance(attendees, list): attendees = [attendees]
        out.append({'summary': str(ev.get('summary', '')), 'location': str(ev.get('location', '')),
                    'start': utc('dtstart'), 'end': utc('dtend'), 'organizer': str(ev.get('organizer', '')),
                    'attendees': [str(a) + ' ' + str(a.params.get('ROLE', '')) for a in attendees]})
print(json.dumps(out))
)")} + files);
    if (!process.waitForFinished(60000) || process.exitCode() != 0) {
        ADD_FAILURE() << process.readAllStandardError().toStdString();
        return {};
    }
    return QJsonDocument::fromJson(process.readAllStandardOutput()).array();
}

bool HasICalendar()
{
    QProcess probe;
    probe.start(QStringLiteral("/usr/bin/python3"), {QStringLiteral("-c"), QStringLiteral("import icalendar")});
    return probe.waitForFinished(30000) && probe.exitCode() == 0;
}

} // namespace

// A meeting with its organizer, attendees of each kind and a location with
// the characters iCalendar escapes.
TEST(MeetingToICalendar, AttendeesRolesAndEscapedTexts)
{
    if (!HasICalendar())
        GTEST_SKIP() << "python3-icalendar is not installed (scripts/install-deps installs it)";
    TTestMeeting meeting;
    meeting.subject = QStringLiteral("Quarterly planning, part 2; \u00e9t\u00e9");
    meeting.sender = std::make_shared<mail::TMailRecipient>(QStringLiteral("Olga Organizer"), QStringLiteral("olga@x.org"));
    meeting.recipients[mail::mrtTo] = test::Recipients({{QStringLiteral("Rita"), QStringLiteral("rita@x.org")},
        {QStringLiteral("Ravi"), QStringLiteral("ravi@x.org")}});
    meeting.recipients[mail::mrtCC] = test::Recipients({{QStringLiteral("Otto"), QStringLiteral("otto@x.org")}});
    meeting.recipients[mail::mrtBCC] = test::Recipients({{QStringLiteral("Room 7"), QStringLiteral("room7@x.org")}});
    meeting.text = QStringLiteral("Agenda:\r\n1. Figures\r\n2. Plans ") + QString(60, QLatin1Char('x'));
    meeting.location = QStringLiteral("Room 7, east wing; floor 2 \\ annex");
    meeting.start = core::QDateTimeToDateTime(QDateTime(QDate(2025, 5, 6), QTime(9, 0), QTimeZone::utc()).toLocalTime());
    meeting.end = core::QDateTimeToDateTime(QDateTime(QDate(2025, 5, 6), QTime(10, 30), QTimeZone::utc()).toLocalTime());
    const QByteArray ics = mail::MeetingToICalendar(meeting, meeting);
    for (const QByteArray& line : ics.split('\n'))
        EXPECT_LE(line.size(), 76) << line.toStdString();
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("m.ics"));
    QFile out(file);
    ASSERT_TRUE(out.open(QIODevice::WriteOnly));
    out.write(ics);
    out.close();
    const QJsonArray read = ReadICalendars({file});
    ASSERT_EQ(read.size(), 1);
    const QJsonObject event = read[0].toObject();
    EXPECT_EQ(event[QLatin1String("summary")].toString(), meeting.subject);
    EXPECT_EQ(event[QLatin1String("location")].toString(), meeting.location);
    EXPECT_EQ(event[QLatin1String("start")].toString(), QStringLiteral("2025-05-06T09:00:00Z"));
    EXPECT_EQ(event[QLatin1String("end")].toString(), QStringLiteral("2025-05-06T10:30:00Z"));
    EXPECT_EQ(event[QLatin1String("organizer")].toString(), QStringLiteral("mailto:olga@x.org"));
    QStringList attendees;
    for (const auto& a : event[QLatin1String("attendees")].toArray())
        attendees << a.toString();
    EXPECT_EQ(attendees, (QStringList{QStringLiteral("mailto:rita@x.org REQ-PARTICIPANT"), QStringLiteral("mailto:ravi@x.org REQ-PARTICIPANT"),
                             QStringLiteral("mailto:otto@x.org OPT-PARTICIPANT"), QStringLiteral("mailto:room7@x.org NON-PARTICIPANT")}));
}
