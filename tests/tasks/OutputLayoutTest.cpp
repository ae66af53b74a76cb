// Where the outputs of a run go: contacts and calendar items in files of
// their kind when the run's format cannot hold them, an mbox file per source
// folder, one PDF for a whole run.

#include "TasksTestUtil.h"
#include "TestUtil.h"
#include "mail/FileMailMsg.h"
#include "mail/HtmlTokenizer.h"
#include "mail/MailContact.h"
#include "mail/MailMsgHTML.h"
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

class OutputLayoutTest : public TOptionsTest {};

// Every file below a folder, relative to it, sorted.
QStringList FilesBelow(const QString& folder)
{
    QStringList files;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << QDir(folder).relativeFilePath(it.next());
    files.sort();
    return files;
}

QStringList WithSuffix(const QStringList& files, const QString& suffix)
{
    QStringList out;
    for (const QString& file : files)
        if (file.endsWith(suffix))
            out << file;
    return out;
}

class TTestMeeting : public test::TTestMessage, public mail::IMailMeeting {
public:
    mail::TDateTime AppoitmentStart() const override { return 45000.5; }
    mail::TDateTime AppoitmentEnd() const override { return 45000.625; }
    QString Location() const override { return QStringLiteral("Room 1"); }
};

class TTestContact : public test::TTestMessage, public mail::IMailContact {
public:
    QVariant GetField(int field) const override { return field == mail::mcfFullName ? QVariant(fullName) : QVariant(); }
    QString fullName;
};

void AddMessage(TCustomTask& task, std::shared_ptr<mail::IMailMessage> message)
{
    TTaskEntry entry;
    entry.Source = QStringLiteral("memory");
    entry.Mail = std::move(message);
    task.AddEntry(std::move(entry));
}

} // namespace

// A calendar item goes to iCalendar only from a calendar folder: a meeting
// request among the mail stays mail. Formats that hold every kind keep it.
TEST_F(OutputLayoutTest, ItemFormatByKindFolderAndOptions)
{
    TTestMeeting meeting;
    meeting.subject = QStringLiteral("Review");
    TTaskEntry inCalendar, inInbox;
    inCalendar.InStore = inInbox.InStore = true;
    inCalendar.FolderClass = QStringLiteral("IPF.Appointment");
    inInbox.FolderClass = QStringLiteral("IPF.Note");
    const auto mail = TestMail(QStringLiteral("plain"));

    for (const TMailConvertType type : {mctEML, mctMBox, mctHTML, mctXHTML, mctPDF, mctTXT}) {
        SCOPED_TRACE(int(type));
        TMailProperties properties;
        properties.SetConvertType(type);
        TMailHTMLTask task(properties); // any writer: the choice is the run's
        EXPECT_EQ(task.ItemFormat(inCalendar, meeting), mctICal);
        EXPECT_EQ(task.ItemFormat(inInbox, meeting), type);
        EXPECT_EQ(task.ItemFormat(inCalendar, *mail), type);
        properties.OneFormat = true;
        EXPECT_EQ(task.ItemFormat(inCalendar, meeting), type);
    }
    for (const TMailConvertType type : {mctMSG, mctPST, mctVCard, mctICal}) {
        TMailProperties properties;
        properties.SetConvertType(type);
        TMailHTMLTask task(properties);
        EXPECT_EQ(task.ItemFormat(inCalendar, meeting), type) << int(type);
    }
}

// An EML run over the OST and contact files: mail as .eml, contacts as
// .vcf our reader reads back as contacts, the calendar as .ics; every output
// counted once. With OneFormat every item is an .eml.
TEST_F(OutputLayoutTest, ContactsAndCalendarGoToTheirFormats)
{
    const QStringList contacts = {TestData(QStringLiteral("msg/contact-plain.msg")), TestData(QStringLiteral("msg/contact-unicode.msg"))};
    for (const bool oneFormat : {false, true}) {
        SCOPED_TRACE(oneFormat);
        QTemporaryDir out;
        TMailProperties properties;
        properties.SetConvertType(mctEML);
        properties.Destination = out.path();
        properties.OneFormat = oneFormat;
        properties.VCardVersion = 4;
        auto task = CreateMailTask(properties);
        auto file = std::make_shared<pst::TPSTFile>(TestData(QStringLiteral("pst/pstextractortest@outlook.com.ost")));
        ASSERT_NE(file->RootFolder(), nullptr);
        AddFolderEntries(*task, file, file->RootFolder(), {}, true);
        int calendarItems = 0;
        for (const TTaskEntry& entry : task->Entries())
            calendarItems += entry.FolderClass.startsWith(QLatin1String("IPF.Appointment"));
        ASSERT_GT(calendarItems, 0);
        for (const QString& contact : contacts)
            AddMessageFileEntry(*task, contact);
        task->Run();
        const int total = int(task->Entries().size());
        EXPECT_EQ(task->Written(), total);
        EXPECT_EQ(task->Failed(), 0);
        const QStringList files = FilesBelow(out.path());
        const QStringList vcards = WithSuffix(files, QStringLiteral(".vcf")), calendars = WithSuffix(files, QStringLiteral(".ics"));
        EXPECT_EQ(int(files.size()), total);
        if (oneFormat) {
            EXPECT_TRUE(vcards.isEmpty());
            EXPECT_TRUE(calendars.isEmpty());
            EXPECT_TRUE(task->WrittenByKind().isEmpty());
            continue;
        }
        EXPECT_EQ(int(vcards.size()), int(contacts.size()));
        EXPECT_EQ(int(calendars.size()), calendarItems);
        EXPECT_EQ(task->WrittenByKind().value(mctVCard), int(contacts.size()));
        EXPECT_EQ(task->WrittenByKind().value(mctICal), calendarItems);
        EXPECT_EQ(int(WithSuffix(files, QStringLiteral(".eml")).size()), total - int(contacts.size()) - calendarItems);
        for (const QString& vcard : vcards) {
            const auto read = mail::TFileMailMsgRequest(QDir(out.path()).filePath(vcard)).Message();
            EXPECT_NE(dynamic_cast<const mail::IMailContact*>(read.get()), nullptr) << vcard.toStdString();
            QFile card(QDir(out.path()).filePath(vcard));
            ASSERT_TRUE(card.open(QIODevice::ReadOnly));
            EXPECT_TRUE(card.readAll().startsWith("BEGIN:VCARD\r\nVERSION:4.0\r\n")) << vcard.toStdString(); // the version asked for
        }
        for (const QString& calendar : calendars) {
            QFile ics(QDir(out.path()).filePath(calendar));
            ASSERT_TRUE(ics.open(QIODevice::ReadOnly));
            EXPECT_TRUE(ics.readAll().startsWith("BEGIN:VCALENDAR")) << calendar.toStdString();
        }
        EXPECT_TRUE(task->Log().join(QLatin1Char('\n')).contains(QStringLiteral("%1 calendar items written as iCalendar files").arg(calendarItems)));
        EXPECT_TRUE(task->Log().join(QLatin1Char('\n')).contains(QStringLiteral("2 contacts written as vCard files")));
    }
}

// Keeping the folders, an mbox run writes a file per source folder, placed
// as the folder is; Python's mailbox module reads as many messages from each
// as the folder holds. Without, one file takes them all.
TEST_F(OutputLayoutTest, MBoxPerSourceFolder)
{
    const QString python = QStandardPaths::findExecutable(QStringLiteral("python3"));
    ASSERT_FALSE(python.isEmpty());
    QTemporaryDir out;
    TMailProperties properties;
    properties.SetConvertType(mctMBox);
    properties.KeepFolderStructure = true;
    properties.Destination = out.path() + QLatin1Char('/');
    properties.InitDestination({}, {});
    auto task = CreateMailTask(properties);
    auto file = std::make_shared<pst::TPSTFile>(TestData(QStringLiteral("pst/enron.pst")));
    ASSERT_NE(file->RootFolder(), nullptr);
    AddFolderEntries(*task, file, file->RootFolder(), {}, true);
    std::map<QString, int> expected; // file below out, messages
    for (const TTaskEntry& entry : task->Entries()) {
        ASSERT_FALSE(entry.Folders.isEmpty());
        const QStringList parents = entry.Folders.mid(0, entry.Folders.size() - 1);
        ++expected[(parents.isEmpty() ? QString() : parents.join(QLatin1Char('/')) + QLatin1Char('/')) + entry.Folders.last() + QStringLiteral(".mbox")];
    }
    ASSERT_GT(expected.size(), size_t(2));
    task->Run();
    EXPECT_EQ(task->Failed(), 0);
    EXPECT_EQ(task->Written(), int(task->Entries().size()));
    const QStringList files = FilesBelow(out.path());
    ASSERT_EQ(size_t(files.size()), expected.size()) << files.join(QLatin1Char('|')).toStdString();
    EXPECT_EQ(QDir(properties.Destination).absolutePath(), QDir(out.path()).absolutePath());
    QProcess process;
    process.setWorkingDirectory(out.path());
    process.start(python, QStringList{QStringLiteral("-c"),
                              QStringLiteral("import json, mailbox, sys\n"
                                             "print(json.dumps({p: len(mailbox.mbox(p, create=False)) for p in sys.argv[1:]}))\n")}
            + files);
    ASSERT_TRUE(process.waitForFinished(60000));
    ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    const QJsonObject counts = QJsonDocument::fromJson(process.readAllStandardOutput()).object();
    for (const auto& [name, messages] : expected)
        EXPECT_EQ(counts.value(name).toInt(-1), messages) << name.toStdString();
}

namespace {

// Stands in for the window program's printer: keeps each page it is given
// and answers with bytes of its own, or with an error.
struct TFakePrinter {
    QStringList pages;
    bool fail = false;
    TFakePrinter()
    {
        SetPagePrinter([this](const QString& html, const TPaperProperties&, QString* error) {
            pages << html;
            if (fail) {
                *error = QStringLiteral("the printer broke");
                return QByteArray();
            }
            return QByteArray("%PDF-fake ") + QByteArray::number(pages.size());
        });
    }
    ~TFakePrinter() { SetPagePrinter({}); }
};

} // namespace

// Combining, a PDF run prints one page holding every message, in order,
// each in a section of its own, and writes one file; when the printing
// fails nothing is written and every message counts as failed.
TEST_F(OutputLayoutTest, CombinedPdfPrintsTheRunOnce)
{
    for (const bool fail : {false, true}) {
        SCOPED_TRACE(fail);
        TFakePrinter printer;
        printer.fail = fail;
        QTemporaryDir out;
        TMailProperties properties;
        properties.SetConvertType(mctPDF);
        properties.CombineFiles = true;
        properties.UseFileNameTemplate = false;
        properties.Destination = out.path();
        auto task = CreateMailTask(properties);
        const QStringList subjects = {QStringLiteral("first <one>"), QStringLiteral("second"), QStringLiteral("third")};
        for (const QString& subject : subjects)
            AddMessage(*task, TestMail(subject, QStringLiteral("body of ") + subject));
        task->Run();
        ASSERT_EQ(printer.pages.size(), 1);
        const QString& page = printer.pages.front();
        qsizetype at = 0;
        for (const QString& subject : subjects) {
            const QString body = (QStringLiteral("body of ") + subject).toHtmlEscaped();
            const qsizetype found = page.indexOf(body, at);
            EXPECT_GT(found, at) << subject.toStdString();
            EXPECT_EQ(page.count(body), 1) << subject.toStdString();
            at = std::max(at, found);
        }
        // One document: one html, head and body element; a section per message.
        int html = 0, head = 0, body = 0, sections = 0;
        mail::THtmlTokenizer tokenizer(page);
        mail::THtmlToken token;
        while (tokenizer.Next(token))
            if (token.Kind == mail::EHtmlToken::StartTag) {
                html += token.Name == QLatin1String("html");
                head += token.Name == QLatin1String("head");
                body += token.Name == QLatin1String("body");
                sections += token.Name == QLatin1String("section");
            }
        EXPECT_EQ(html, 1);
        EXPECT_LE(head, 1);
        EXPECT_EQ(body, 1);
        EXPECT_EQ(sections, 3);
        EXPECT_TRUE(page.contains(QStringLiteral("Content-Security-Policy")));
        const QString pdf = QDir(out.path()).filePath(QStringLiteral("EMails.pdf"));
        if (fail) {
            EXPECT_EQ(task->Written(), 0);
            EXPECT_EQ(task->Failed(), 3);
            EXPECT_TRUE(FilesBelow(out.path()).isEmpty());
            EXPECT_TRUE(task->Log().join(QLatin1Char('\n')).contains(QStringLiteral("the printer broke")));
        } else {
            EXPECT_EQ(task->Written(), 3);
            EXPECT_EQ(FilesBelow(out.path()), QStringList{QStringLiteral("EMails.pdf")});
            QFile file(pdf);
            ASSERT_TRUE(file.open(QIODevice::ReadOnly));
            EXPECT_EQ(file.readAll(), QByteArray("%PDF-fake 1"));
        }
    }
}

// The pages of messages with styles of their own: each later page's style
// travels with its section, the first page's head leads the document.
TEST(CombinedHtmlPage, StylesTravelWithTheirPages)
{
    const QString first = QStringLiteral("<html><head><meta http-equiv=\"Content-Security-Policy\" content=\"x\"><style>p{color:red}</style></head>"
                                         "<body class=\"a\"><p>one</p></body></html>");
    const QString second = QStringLiteral("<html><head><style>p{color:blue}</style></head><body><p>two</p></body></html>");
    const QString broken = QStringLiteral("<p>three, no head nor body");
    const QString page = CombinedHtmlPage({first, second, broken});
    EXPECT_TRUE(page.startsWith(QStringLiteral("<html><head><meta http-equiv=\"Content-Security-Policy\"")));
    EXPECT_EQ(page.count(QStringLiteral("p{color:red}")), 1);
    EXPECT_EQ(page.count(QStringLiteral("p{color:blue}")), 1);
    EXPECT_LT(page.indexOf(QStringLiteral("<p>one</p>")), page.indexOf(QStringLiteral("p{color:blue}")));
    EXPECT_LT(page.indexOf(QStringLiteral("p{color:blue}")), page.indexOf(QStringLiteral("<p>two</p>")));
    EXPECT_LT(page.indexOf(QStringLiteral("<p>two</p>")), page.indexOf(QStringLiteral("<p>three, no head nor body")));
    EXPECT_EQ(page.count(QStringLiteral("<body")), 1);
    EXPECT_EQ(page.count(QStringLiteral("</body>")), 1);
    EXPECT_EQ(page.count(QStringLiteral("<section class=\"message\">")), 3);
    EXPECT_TRUE(page.contains(QStringLiteral("break-before:page")));
}

// Pictures beside the page: each picture in "NAME_files", the page pointing
// at it and carrying no data URL; a picture that is also a saved attachment
// is shown from that file, and the attachment list links the saved files.
// The XHTML writer does the same.
TEST_F(OutputLayoutTest, PicturesBesideThePageAndAttachmentsLinked)
{
    for (const TMailConvertType type : {mctHTML, mctXHTML}) {
        for (const bool save : {false, true}) {
            SCOPED_TRACE(QStringLiteral("%1 save %2").arg(int(type)).arg(save).toStdString());
            QTemporaryDir out;
            TMailProperties properties;
            properties.SetConvertType(type);
            properties.Destination = out.path();
            properties.PicturesBeside = true;
            properties.Attach.Set(aotSave, save);
            properties.SetFileNameTemplate(QStringLiteral("[subject]"));
            auto task = CreateMailTask(properties);
            AddMessage(*task, TestMail(QStringLiteral("pictures"), QStringLiteral("see"),
                                  {std::make_shared<test::TTestAttach>(QStringLiteral("a b.png")),
                                      std::make_shared<test::TTestAttach>(QStringLiteral("A B.png")),
                                      std::make_shared<test::TTestAttach>(QStringLiteral("notes.txt"))}));
            task->Run();
            ASSERT_EQ(task->Failed(), 0) << task->Entries().front().Error.toStdString();
            QStringList expected = {QStringLiteral("pictures.html")};
            if (save)
                expected << QStringLiteral("a b.png") << QStringLiteral("A~1.png") << QStringLiteral("notes.txt");
            else
                expected << QStringLiteral("pictures_files/a b.png") << QStringLiteral("pictures_files/A B~2.png");
            expected.sort();
            ASSERT_EQ(FilesBelow(out.path()), expected);
            QFile file(QDir(out.path()).filePath(QStringLiteral("pictures.html")));
            ASSERT_TRUE(file.open(QIODevice::ReadOnly));
            const QString page = QString::fromUtf8(file.readAll());
            EXPECT_FALSE(page.contains(QStringLiteral("data:image")));
            if (save) {
                EXPECT_TRUE(page.contains(QStringLiteral("src=\"a%20b.png\"")));
                EXPECT_TRUE(page.contains(QStringLiteral("src=\"A~1.png\"")));
                EXPECT_TRUE(page.contains(QStringLiteral("href=\"notes.txt\"")));
            } else {
                EXPECT_TRUE(page.contains(QStringLiteral("src=\"pictures_files/a%20b.png\"")));
                EXPECT_TRUE(page.contains(QStringLiteral("src=\"pictures_files/A%20B~2.png\"")));
                EXPECT_FALSE(page.contains(QStringLiteral("href=\"notes.txt\"")));
                QFile picture(QDir(out.path()).filePath(QStringLiteral("pictures_files/A B~2.png")));
                ASSERT_TRUE(picture.open(QIODevice::ReadOnly));
                EXPECT_EQ(picture.readAll(), QByteArray("A B.png")); // the test attachment's content is its name
            }
            if (type == mctXHTML)
                EXPECT_TRUE(page.startsWith(QStringLiteral("<?xml")));
        }
    }
}

// Beside an mbox file, where no template names files, a contact is named
// by its subject or else by its name, a calendar item by its subject.
TEST_F(OutputLayoutTest, KindsBesideAnMBoxFileNamedByWhatTheyHold)
{
    QTemporaryDir out;
    TMailProperties properties;
    properties.SetConvertType(mctMBox);
    properties.Destination = QDir(out.path()).filePath(QStringLiteral("run.mbox"));
    auto task = CreateMailTask(properties);
    for (const auto& [subject, name] : {std::pair{QString(), QStringLiteral("Ann Lee")}, std::pair{QStringLiteral("Bob"), QStringLiteral("Robert")}}) {
        auto contact = std::make_shared<TTestContact>();
        contact->subject = subject;
        contact->fullName = name;
        AddMessage(*task, contact);
    }
    AddMessage(*task, TestMail(QStringLiteral("mail")));
    task->Run();
    EXPECT_EQ(task->Written(), 3);
    EXPECT_EQ(FilesBelow(out.path()), (QStringList{QStringLiteral("Ann Lee.vcf"), QStringLiteral("Bob.vcf"), QStringLiteral("run.mbox")}));
}
