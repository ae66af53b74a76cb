#include "TasksTestUtil.h"
#include "TestUtil.h"
#include "mail/CleverMail.h"
#include "mail/FileMailMsg.h"
#include "mail/MailTestObjects.h"
#include "pst/PSTFile.h"
#include "tasks/MailEMLTask.h"
#include "tasks/MailExportSource.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <atomic>

using namespace tessaly;
using namespace tessaly::tasks;
using namespace tessaly::test;

namespace {

class TTypedAttach : public TTestAttach {
public:
    TTypedAttach(QString name, QString type, QString id = {}) : TTestAttach(std::move(name)), m_type(std::move(type)), m_id(std::move(id)) {}
    QString ContentType() const override { return m_type; }
    QString ContentID() const override { return m_id; }

private:
    QString m_type, m_id;
};

std::shared_ptr<TTestMessage> Message(const QString& subject, std::vector<std::shared_ptr<mail::IMailAttach>> attaches = {})
{
    return TestMail(subject, QStringLiteral("Hello"), std::move(attaches));
}

void AddMessage(TCustomTask& task, std::shared_ptr<mail::IMailMessage> message)
{
    TTaskEntry entry;
    entry.Source = QStringLiteral("memory");
    entry.Mail = std::move(message);
    task.AddEntry(std::move(entry));
}

QStringList FilesIn(const QString& dir)
{
    QStringList files;
    for (QDirIterator it(dir, QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
        files << QDir(dir).relativeFilePath(it.next());
    files.sort();
    return files;
}

QString Normalized(QString text)
{
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    text.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    QStringList lines = text.split(QLatin1Char('\n'));
    for (QString& line : lines)
        line = line.trimmed();
    return lines.join(QLatin1Char('\n')).trimmed();
}

QStringList RecipientNames(const mail::IMailMessage& message, mail::TMailRecipientType kind)
{
    QStringList names;
    const auto list = message.Recipients(kind);
    for (int i = 0; list && i < list->Count(); ++i) {
        const auto recipient = list->GetRecipient(i);
        // A recipient without name and address has nothing to write.
        if (!recipient->Name().trimmed().isEmpty() || !recipient->EMail().trimmed().isEmpty())
            names << recipient->Name().trimmed();
    }
    return names;
}

struct TAttachSummary {
    QString name;
    qint64 size;
    bool operator==(const TAttachSummary&) const = default;
    bool operator<(const TAttachSummary& other) const { return std::tie(name, size) < std::tie(other.name, other.size); }
};

std::vector<TAttachSummary> Attachments(const mail::IMailMessage& message)
{
    std::vector<TAttachSummary> list;
    const auto attaches = message.Attaches();
    for (int i = 0; attaches && i < attaches->Count(); ++i) {
        const auto attach = attaches->GetAttach(i);
        if (attach->AsMailMessage()) {
            list.push_back({QStringLiteral("message"), 0}); // sizes of attached messages differ by format
            continue;
        }
        const auto content = attach->Content();
        list.push_back({attach->FileName(), content ? content->size() : 0});
    }
    // Pictures of the HTML body stand with it, before the other parts.
    std::sort(list.begin(), list.end());
    return list;
}

class ExportTest : public TOptionsTest {
protected:
    void Setup(TMailProperties& properties)
    {
        properties.SetConvertType(mctEML);
        properties.Destination = m_out.path();
        properties.OneFormat = true; // contacts and calendar items as .eml too
    }
    QTemporaryDir m_out;
};

} // namespace

TEST_F(ExportTest, EverySampleRoundTrips)
{
    QStringList sources;
    for (const QString& dir : {QStringLiteral("pst"), QStringLiteral("msg"), QStringLiteral("eml")})
        for (const QString& name : QDir(TestData(dir)).entryList(QDir::Files, QDir::Name))
            sources << TestData(dir + QLatin1Char('/') + name);
    int messages = 0;
    for (const QString& source : sources) {
        QTemporaryDir out;
        TMailProperties properties;
        Setup(properties);
        properties.Destination = out.path();
        properties.KeepFolderStructure = true;
        TMailEMLTask task(properties);
        if (source.endsWith(QLatin1String(".pst")) || source.endsWith(QLatin1String(".ost"))) {
            auto file = std::make_shared<pst::TPSTFile>(source);
            ASSERT_NE(file->RootFolder(), nullptr) << source.toStdString();
            AddFolderEntries(task, file, file->RootFolder(), {}, true);
        } else {
            AddMessageFileEntry(task, source);
        }
        task.Run();
        const int total = int(task.Entries().size());
        messages += total;
        EXPECT_EQ(task.Written() + task.Filtered() + task.Failed(), total) << source.toStdString();
        EXPECT_EQ(task.Failed(), 0) << source.toStdString();
        EXPECT_EQ(int(FilesIn(out.path()).size()), task.Written()) << source.toStdString();

        for (auto& entry : task.Entries()) {
            if (entry.Output.isEmpty())
                continue;
            const auto original = entry.Load();
            mail::TFileMailMsgRequest request(entry.Output);
            const auto copy = request.Message();
            ASSERT_NE(copy, nullptr) << entry.Output.toStdString();
            const std::string where = entry.Output.toStdString();
            EXPECT_EQ(copy->Subject(), original->Subject().trimmed()) << where;
            const auto sender = original->Sender();
            if (sender && !sender->Name().isEmpty()) {
                EXPECT_EQ(copy->Sender() ? copy->Sender()->Name() : QString(), sender->Name().trimmed()) << where;
            }
            if (sender && sender->EMail().contains(QLatin1Char('@'))) {
                EXPECT_EQ(copy->Sender() ? copy->Sender()->EMail().remove(QLatin1Char('"')) : QString(), sender->EMail().trimmed()) << where;
            }
            for (auto kind : {mail::mrtTo, mail::mrtCC, mail::mrtBCC})
                EXPECT_EQ(RecipientNames(*copy, kind).size(), RecipientNames(*original, kind).size()) << where << " kind " << kind;
            EXPECT_EQ(Attachments(*copy), Attachments(*original)) << where;
            EXPECT_EQ(Normalized(copy->Body(mail::mbtText)), Normalized(original->Body(mail::mbtText))) << where;
        }
    }
    EXPECT_GT(messages, 300);
}

TEST_F(ExportTest, FilteredMessageMakesNoFileAndNoCheck)
{
    TMailProperties properties;
        Setup(properties);
    properties.CheckFileMode = cfmAsk;
    properties.Filter.Enabled = true;
    properties.Filter.Subject = QStringLiteral("keep");
    TMailEMLTask task(properties);
    AddMessage(task, Message(QStringLiteral("keep this")));
    AddMessage(task, Message(QStringLiteral("drop that")));
    // Both outputs exist already: only the message that passes is checked.
    for (int i = 0; i < 2; ++i)
        QFile(QDir(m_out.path()).filePath(properties.GetFileNameByTemplate(*task.Entries()[size_t(i)].Mail, i)))
            .open(QIODevice::WriteOnly);
    QStringList asked;
    task.AskFileMode = [&](const QString& path, bool&) {
        asked << QFileInfo(path).fileName();
        return cfmOverwrite;
    };
    task.Run();
    ASSERT_EQ(asked.size(), 1);
    EXPECT_TRUE(asked.front().contains(QStringLiteral("keep this")));
    EXPECT_EQ(task.Entries()[1].Result, trSkipped);
    EXPECT_EQ(task.Written(), 1);
    EXPECT_EQ(task.Filtered(), 1);
    EXPECT_GT(QFileInfo(QDir(m_out.path()).filePath(asked.front())).size(), 0); // overwritten
}

TEST_F(ExportTest, DestinationCheckModes)
{
    for (const auto& [mode, expected] : {std::pair{cfmOverwrite, trOK}, {cfmSkip, trExists}, {cfmCancel, trCancelled}, {cfmRename, trOK}}) {
        QTemporaryDir dir;
        TMailProperties properties;
        Setup(properties);
        properties.CheckFileMode = mode;
        TMailEMLTask task(properties);
        QString path = QDir(dir.path()).filePath(QStringLiteral("a.eml"));
        QFile(path).open(QIODevice::WriteOnly);
        const QString before = path;
        EXPECT_EQ(task.CheckDestination(path), expected) << mode;
        EXPECT_EQ(path, mode == cfmRename ? QDir(dir.path()).filePath(QStringLiteral("a (1).eml")) : before);
    }
}

TEST(AttachFileNames, SecondNameShortensTheBase)
{
    QTemporaryDir dir;
    TAttachFileNames names(QLatin1Char('~'));
    const QString a = QDir(dir.path()).filePath(QStringLiteral("a.pdf"));
    EXPECT_EQ(names.GetUnique(a), a);
    EXPECT_EQ(names.GetUnique(a), QDir(dir.path()).filePath(QStringLiteral("~1.pdf")));
    EXPECT_EQ(names.GetUnique(a), QDir(dir.path()).filePath(QStringLiteral("~2.pdf")));
    const QString report = QDir(dir.path()).filePath(QStringLiteral("report.pdf"));
    EXPECT_EQ(names.GetUnique(report), report);
    EXPECT_EQ(names.GetUnique(QDir(dir.path()).filePath(QStringLiteral("REPORT.pdf"))), QDir(dir.path()).filePath(QStringLiteral("REPO~1.pdf")));
    TAttachFileNames sharepoint(QLatin1Char('-'));
    sharepoint.GetUnique(a);
    EXPECT_EQ(sharepoint.GetUnique(a), QDir(dir.path()).filePath(QStringLiteral("-1.pdf")));
    // A file on disk counts as taken.
    QFile(QDir(dir.path()).filePath(QStringLiteral("b.txt"))).open(QIODevice::WriteOnly);
    TAttachFileNames fresh(QLatin1Char('~'));
    EXPECT_EQ(fresh.GetUnique(QDir(dir.path()).filePath(QStringLiteral("b.txt"))), QDir(dir.path()).filePath(QStringLiteral("~1.txt")));
}

TEST_F(ExportTest, AttachmentsSavedBesideTheOutput)
{
    TMailProperties properties;
        Setup(properties);
    properties.Attach.Include(aotSave);
    properties.FileNameOptions.Exclude(fnoSharepointCompatible);
    TMailEMLTask task(properties);
    EXPECT_EQ(task.AttachFileNames()->Separator(), QLatin1Char('~'));
    AddMessage(task, Message(QStringLiteral("one"), {std::make_shared<TTestAttach>(QStringLiteral("a.pdf")),
                                                  std::make_shared<TTypedAttach>(QString(), QStringLiteral("image/png"))}));
    AddMessage(task, Message(QStringLiteral("two"), {std::make_shared<TTestAttach>(QStringLiteral("a.pdf")),
                                                  std::make_shared<TTypedAttach>(QString(), QStringLiteral("text/plain"))}));
    task.Run();
    EXPECT_EQ(task.Written(), 2);
    const QStringList files = FilesIn(m_out.path());
    EXPECT_TRUE(files.contains(QStringLiteral("a.pdf")));
    EXPECT_TRUE(files.contains(QStringLiteral("~1.pdf")));
    // The generator starts again for every message: both are "Attach 1".
    EXPECT_TRUE(files.contains(QStringLiteral("Attach 1.png")));
    EXPECT_TRUE(files.contains(QStringLiteral("Attach 1.txt")));
    EXPECT_EQ(TMailContextManager::Instance().AttachFiles(&task)->Count(), 4);
}

TEST(MailTask, OutputFormatOfDocumentWriters)
{
    EXPECT_EQ(ConvertTypeToOutputFormat(mctHTML, {}), 0);
    EXPECT_EQ(ConvertTypeToOutputFormat(mctXPS, {}), 1);
    EXPECT_EQ(ConvertTypeToOutputFormat(mctDOC, {}), 3);
    EXPECT_EQ(ConvertTypeToOutputFormat(mctDOC, {aotConvertDocuments}), 4);
    EXPECT_EQ(ConvertTypeToOutputFormat(mctDOC, {aotConvertDocuments, aotSeparateDocuments}), 3);
    EXPECT_EQ(ConvertTypeToOutputFormat(mctJPEG, {}), 7);
    EXPECT_THROW(ConvertTypeToOutputFormat(mctEML, {}), EAssertion);
}

TEST_F(ExportTest, EmptyContextCommitsNothing)
{
    TMailProperties properties;
        Setup(properties);
    TMailEMLTask task(properties);
    const auto context = task.CreateContext();
    QString path = QDir(m_out.path()).filePath(QStringLiteral("x.eml"));
    EXPECT_EQ(task.Commit(*context, path), trSkipped);
    EXPECT_FALSE(QFileInfo::exists(path));
}

TEST_F(ExportTest, InlineImagesGoIntoMultipartRelated)
{
    TMailProperties properties;
        Setup(properties);
    TMailEMLTask task(properties);
    auto message = Message(QStringLiteral("pictures"),
        {std::make_shared<TTypedAttach>(QStringLiteral("logo.png"), QStringLiteral("image/png"), QStringLiteral("<logo@x>")),
            std::make_shared<TTypedAttach>(QStringLiteral("a.pdf"), QStringLiteral("application/pdf"))});
    message->text.clear();
    message->html = QStringLiteral("<p>Hi <img src=\"cid:logo@x\"></p>");
    mail::TAttachNameGenerator names;
    mail::TMimeMessage info(*message, names);
    EXPECT_TRUE(info.HasRelated());
    const QByteArray bytes = info.SaveToBytes();
    EXPECT_TRUE(bytes.contains("multipart/related"));
    EXPECT_TRUE(bytes.contains("Content-Id: <logo@x>") || bytes.contains("Content-ID: <logo@x>"));
    EXPECT_FALSE(bytes.contains("\n") && bytes.contains("\r\r"));
    // Lines end in CR LF.
    EXPECT_EQ(bytes.count("\n"), bytes.count("\r\n"));

    // Without a reference the picture is a plain attachment.
    message->html = QStringLiteral("<p>Hi</p>");
    mail::TMimeMessage plain(*message, names);
    EXPECT_FALSE(plain.HasRelated());
}

namespace {

// An attachment whose folder is gone by the time it is saved: its content
// is read once for the message, then again to be saved beside it.
class TFolderRemovingAttach : public TTestAttach {
public:
    TFolderRemovingAttach(QString name, QString folder) : TTestAttach(std::move(name)), m_folder(std::move(folder)) {}
    std::unique_ptr<QIODevice> Content() const override
    {
        if (++m_reads == 2)
            QDir(m_folder).removeRecursively();
        return TTestAttach::Content();
    }

private:
    QString m_folder;
    mutable std::atomic<int> m_reads {0};
};

} // namespace

TEST_F(ExportTest, AnAttachmentThatCanNotBeSavedFailsItsMessage)
{
    TMailProperties properties;
    Setup(properties);
    properties.Attach.Include(aotSave);
    properties.KeepFolderStructure = true;
    TMailEMLTask task(properties);
    TTaskEntry entry;
    entry.Source = QStringLiteral("memory");
    entry.Folders = {QStringLiteral("Inbox")};
    entry.Mail = Message(QStringLiteral("lost"),
        {std::make_shared<TFolderRemovingAttach>(QStringLiteral("a.pdf"), QDir(m_out.path()).filePath(QStringLiteral("Inbox")))});
    task.AddEntry(std::move(entry));
    AddMessage(task, Message(QStringLiteral("fine"), {std::make_shared<TTestAttach>(QStringLiteral("b.pdf"))}));
    EXPECT_EQ(task.Run(), 1);
    EXPECT_EQ(task.Written(), 1);
    EXPECT_EQ(task.Failed(), 1);
    const QString log = task.Log().join(QLatin1Char('\n'));
    EXPECT_TRUE(log.contains(QStringLiteral("Can not convert \"a.pdf\""))) << log.toStdString();
    EXPECT_TRUE(log.contains(QStringLiteral("Error converting message #1"))) << log.toStdString();
    EXPECT_TRUE(task.Entries()[0].Error.contains(QStringLiteral("a.pdf"))) << task.Entries()[0].Error.toStdString();
    EXPECT_TRUE(QFile::exists(QDir(m_out.path()).filePath(QStringLiteral("b.pdf"))));
}

TEST_F(ExportTest, WrittenStraightIntoAFileAsIntoMemory)
{
    auto message = Message(QStringLiteral("streamed"),
        {std::make_shared<TTypedAttach>(QStringLiteral("logo.png"), QStringLiteral("image/png"), QStringLiteral("<logo@x>")),
            std::make_shared<TTestAttach>(QStringLiteral("a.pdf"))});
    message->html = QStringLiteral("<p>Hi <img src=\"cid:logo@x\"></p>");
    mail::TAttachNameGenerator names;
    const mail::TMimeMessage info(*message, names);
    const QByteArray bytes = info.SaveToBytes();
    ASSERT_FALSE(bytes.isEmpty());
    QFile file(QDir(m_out.path()).filePath(QStringLiteral("m.eml")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("X"); // what the file held before stays in front
    EXPECT_TRUE(info.SaveToStream(file));
    file.close();
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "X" + bytes);
    // A device that takes nothing is a failure, not a short file.
    QFile full(QStringLiteral("/dev/full"));
    if (full.open(QIODevice::WriteOnly)) {
        EXPECT_FALSE(info.SaveToStream(full));
    }
}

TEST_F(ExportTest, PartsComeFromTheirOwnAttachmentByName)
{
    TMailProperties properties;
        Setup(properties);
    TMailEMLTask task(properties);
    // TTestAttach's content is its own name: each part gets its own data.
    auto message = Message(QStringLiteral("same names"), {std::make_shared<TTestAttach>(QStringLiteral("a.pdf")),
                                                             std::make_shared<TTestAttach>(QStringLiteral("a.pdf")),
                                                             std::make_shared<TTestAttach>(QStringLiteral("b.txt"))});
    mail::TAttachNameGenerator names;
    mail::TMimeMessage info(*message, names);
    EXPECT_EQ(info.PartNames(), (QStringList{QStringLiteral("a.pdf"), QStringLiteral("a (2).pdf"), QStringLiteral("b.txt")}));
    EXPECT_EQ(info.AttachData(QStringLiteral("b.txt")), QByteArray("b.txt"));
    EXPECT_EQ(info.AttachData(QStringLiteral("a (2).pdf")), QByteArray("a.pdf"));
    EXPECT_TRUE(info.AttachData(QStringLiteral("none")).isEmpty());
}

TEST_F(ExportTest, CombinedRunWritesTheFirstMessage)
{
    TMailProperties properties;
        Setup(properties);
    properties.CombineFiles = true;
    TMailEMLTask task(properties);
    AddMessage(task, Message(QStringLiteral("first")));
    AddMessage(task, Message(QStringLiteral("second")));
    task.Run();
    const QStringList files = FilesIn(m_out.path());
    ASSERT_EQ(files.size(), 1);
    mail::TFileMailMsgRequest request(QDir(m_out.path()).filePath(files.front()));
    EXPECT_EQ(request.Message()->Subject(), QStringLiteral("first"));
}

TEST_F(ExportTest, DetailedLogAndDates)
{
    EXPECT_EQ(LogDateText(0, false), QString());
    EXPECT_TRUE(LogDateText(45000.5, true).endsWith(QStringLiteral(" UTC")));
    const auto message = Message(QStringLiteral("Status"), {std::make_shared<TTestAttach>(QStringLiteral("a.pdf"))});
    const QString entry = DetailLogEntry(*message, 3, QStringLiteral("/out/x.eml"), false, false);
    EXPECT_EQ(entry, QStringLiteral("Convert message #3 to /out/x.eml: \r\n\tSubject: Status\r\n\tSender: Ann <ann@x.org>\r\n\tDate: ")
                         + LogDateText(45000.5, false) + QStringLiteral("\r\n\tAttachments: \r\n\t\ta.pdf"));
    EXPECT_TRUE(DetailLogEntry(*message, 1, QStringLiteral("d"), true, false).startsWith(QStringLiteral("Convert attached message #1")));

    TMailProperties properties;
        Setup(properties);
    properties.LogVerbosity = lvDetail;
    properties.LogFileName = QDir(m_out.path()).filePath(QStringLiteral("log.txt"));
    TMailEMLTask task(properties);
    AddMessage(task, message);
    task.Run();
    QFile log(properties.LogFileName);
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    EXPECT_TRUE(log.readAll().startsWith("Convert message #1 to "));
}

TEST_F(ExportTest, ErrorSourceOfAStoreMessageIsATemporaryEml)
{
    TMailProperties properties;
        Setup(properties);
    TMailEMLTask task(properties);
    TTaskEntry entry;
    entry.Source = QStringLiteral("/data/x.pst");
    entry.InStore = true;
    entry.Mail = Message(QStringLiteral("broken one"));
    const QString source = task.GetExceptionSource(entry);
    EXPECT_TRUE(QFileInfo(source).fileName().startsWith(QStringLiteral("mail")));
    EXPECT_TRUE(source.endsWith(QStringLiteral(".eml")));
    // Anybody's mail: only this user may read the dump and its folder.
    const auto groupAndOthers = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther
        | QFile::WriteOther | QFile::ExeOther;
    EXPECT_FALSE(QFileInfo(source).permissions() & groupAndOthers);
    EXPECT_FALSE(QFileInfo(QFileInfo(source).path()).permissions() & groupAndOthers);
    EXPECT_NE(QFileInfo(source).path(), QDir::tempPath());
    mail::TFileMailMsgRequest request(source);
    EXPECT_EQ(request.Message()->Subject(), QStringLiteral("broken one"));
    QFile::remove(source);
    entry.InStore = false;
    EXPECT_EQ(task.GetExceptionSource(entry), QStringLiteral("/data/x.pst"));
}

TEST_F(ExportTest, SourceFileStaysUnchanged)
{
    const QString copy = m_dir.filePath(QStringLiteral("enron.pst"));
    ASSERT_TRUE(QFile::copy(TestData(QStringLiteral("pst/enron.pst")), copy));
    const auto hash = [&] {
        QFile file(copy);
        file.open(QIODevice::ReadOnly);
        return QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256);
    };
    const QByteArray before = hash();
    const QDateTime modified = QFileInfo(copy).lastModified();
    {
        TMailProperties properties;
        Setup(properties);
        properties.Attach.Include(aotSave);
        properties.KeepFolderStructure = true;
        properties.CopyDateStamps = true;
        TMailEMLTask task(properties);
        auto file = std::make_shared<pst::TPSTFile>(copy);
        AddFolderEntries(task, file, file->RootFolder(), {}, true);
        task.Run();
        EXPECT_EQ(task.Written(), 71);
    }
    EXPECT_EQ(hash(), before);
    EXPECT_EQ(QFileInfo(copy).lastModified(), modified);
}

TEST_F(ExportTest, CancelStopsAtOnceAndLeavesWholeFiles)
{
    TMailProperties properties;
        Setup(properties);
    properties.Attach.Include(aotSave);
    TMailEMLTask task(properties);
    auto file = std::make_shared<pst::TPSTFile>(TestData(QStringLiteral("pst/pstextractortest@outlook.com.ost")));
    AddFolderEntries(task, file, file->RootFolder(), {}, true);
    QElapsedTimer sinceCancel;
    task.OnProgress = [&](const TTaskProgress& progress) {
        if (progress.Done == 20 && !task.Cancelled()) {
            task.Cancel();
            sinceCancel.start();
        }
    };
    task.Run();
    EXPECT_TRUE(task.Cancelled());
    EXPECT_LT(sinceCancel.elapsed(), 1000);
    EXPECT_LE(task.Written(), 21);
    EXPECT_LT(task.Written(), int(task.Entries().size()));
    int messages = 0;
    for (const QString& name : FilesIn(m_out.path())) {
        EXPECT_FALSE(name.contains(QStringLiteral(".eml."))) << name.toStdString(); // no temporary file left
        if (!name.endsWith(QLatin1String(".eml")))
            continue;
        ++messages;
        mail::TFileMailMsgRequest request(QDir(m_out.path()).filePath(name));
        EXPECT_NE(request.Message(), nullptr);
    }
    EXPECT_EQ(messages, task.Written());
}

TEST_F(ExportTest, HeaderDataOfTheSourceIsKept)
{
    TMailProperties properties;
    Setup(properties);
    TMailEMLTask task(properties);
    auto message = Message(QStringLiteral("Grüße aus Köln, 🎉 and a subject long enough to need several encoded words"));
    message->headers = QStringLiteral("Received: from x\r\nMessage-ID: <abc@example.org>\r\nReferences: <a@x>\r\n <b@x>\r\nX-Priority: 1\r\n");
    mail::TAttachNameGenerator names;
    const QByteArray bytes = mail::TMimeMessage(*message, names).SaveToBytes();
    EXPECT_TRUE(bytes.contains("Message-Id: <abc@example.org>")) << bytes.toStdString();
    EXPECT_TRUE(bytes.contains("References: <a@x> <b@x>")) << bytes.toStdString();
    EXPECT_TRUE(bytes.contains("X-Priority: 1"));
    EXPECT_FALSE(bytes.contains("Received:"));
    // The subject comes back whole through GMime.
    const auto copy = ParseEMLMessage(bytes);
    EXPECT_EQ(copy->Subject(), message->subject);
    EXPECT_EQ(copy->Sender()->EMail(), QStringLiteral("ann@x.org"));
}
