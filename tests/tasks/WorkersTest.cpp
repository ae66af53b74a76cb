// An export run by several workers writes what a run by one writes: the
// same names, the same bytes (but for the MIME boundaries, which are random
// in every run), the same counts and the same log.

#include "TasksTestUtil.h"
#include "TestUtil.h"
#include "mail/MailTestObjects.h"
#include "pst/PSTFile.h"
#include "tasks/MailEMLTask.h"
#include "tasks/MailOtherTasks.h"
#include "tasks/MailExportSource.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <map>

using namespace tessaly;
using namespace tessaly::tasks;
using namespace tessaly::test;

namespace {

// Every file below dir by its relative path, with its bytes; boundaries
// are replaced by their order of appearance in the file, the time an
// iCalendar file was made (DTSTAMP) by a mark.
std::map<QString, QByteArray> Tree(const QString& dir)
{
    static const QRegularExpression Boundary(QStringLiteral("boundary=\"([^\"]+)\""));
    static const QRegularExpression Stamp(QStringLiteral("\r\nDTSTAMP:[0-9TZ]+\r\n"));
    std::map<QString, QByteArray> files;
    for (QDirIterator it(dir, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext();) {
        it.next();
        QFile file(it.filePath());
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        QByteArray bytes = file.readAll();
        const QString text = QString::fromLatin1(bytes);
        int n = 0;
        for (auto match = Boundary.globalMatch(text); match.hasNext();)
            bytes.replace(match.next().captured(1).toLatin1(), "boundary-" + QByteArray::number(++n));
        if (it.fileName().endsWith(QLatin1String(".ics")))
            bytes = QString::fromUtf8(bytes).replace(Stamp, QStringLiteral("\r\nDTSTAMP:made\r\n")).toUtf8();
        files[QDir(dir).relativeFilePath(it.filePath())] = bytes;
    }
    return files;
}

struct TOutcome {
    std::map<QString, QByteArray> files;
    QStringList log;
    QStringList outputs; // the file each entry got, relative
    int written = 0, filtered = 0, failed = 0, existing = 0;
};

class WorkersTest : public TOptionsTest {
protected:
    // Runs the entries that add gives into a new folder with the workers.
    TOutcome Export(int workers, const std::function<void(TMailTask&)>& add,
        const std::function<void(TMailProperties&)>& options = {})
    {
        auto out = std::make_unique<QTemporaryDir>();
        TMailProperties properties;
        properties.SetConvertType(mctEML);
        properties.Destination = out->path();
        properties.KeepFolderStructure = true;
        properties.Attach.Include(aotSave);
        properties.LogVerbosity = lvDetail;
        properties.CheckFileMode = cfmRename;
        if (options)
            options(properties);
        auto writer = CreateMailTask(properties);
        TMailTask& task = *writer;
        task.SetWorkers(workers);
        add(task);
        task.Run();
        TOutcome outcome;
        outcome.files = Tree(out->path());
        // The paths in the log are made relative to the destination.
        for (QString line : task.Log())
            outcome.log << line.replace(out->path(), QStringLiteral("DEST"));
        for (const TTaskEntry& entry : task.Entries())
            outcome.outputs << QDir(out->path()).relativeFilePath(entry.Output);
        outcome.written = task.Written();
        outcome.filtered = task.Filtered();
        outcome.failed = task.Failed();
        outcome.existing = task.Existing();
        m_outs.push_back(std::move(out));
        return outcome;
    }

    void ExpectSame(const TOutcome& one, const TOutcome& many)
    {
        EXPECT_EQ(one.written, many.written);
        EXPECT_EQ(one.filtered, many.filtered);
        EXPECT_EQ(one.failed, many.failed);
        EXPECT_EQ(one.existing, many.existing);
        EXPECT_EQ(one.outputs, many.outputs);
        EXPECT_EQ(one.log, many.log);
        ASSERT_EQ(one.files.size(), many.files.size());
        for (auto a = one.files.begin(), b = many.files.begin(); a != one.files.end(); ++a, ++b) {
            ASSERT_EQ(a->first, b->first);
            EXPECT_TRUE(a->second == b->second) << a->first.toStdString();
        }
    }

    std::vector<std::unique_ptr<QTemporaryDir>> m_outs;
};

void Add(TMailTask& task, std::shared_ptr<mail::IMailMessage> message)
{
    TTaskEntry entry;
    entry.Source = QStringLiteral("memory");
    if (message)
        entry.Mail = std::move(message);
    else
        entry.Load = [] { return std::shared_ptr<mail::IMailMessage>(); }; // a message that can not be read
    task.AddEntry(std::move(entry));
}

} // namespace

TEST_F(WorkersTest, EverySampleDataFileComesOutTheSame)
{
    const QStringList names = QDir(TestData(QStringLiteral("pst"))).entryList(QDir::Files, QDir::Name);
    ASSERT_FALSE(names.isEmpty());
    for (const QString& name : names) {
        SCOPED_TRACE(name.toStdString());
        const auto add = [&](TMailTask& task) {
            auto file = std::make_shared<pst::TPSTFile>(TestData(QStringLiteral("pst/") + name));
            if (file->RootFolder())
                AddFolderEntries(task, file, file->RootFolder(), {}, true);
        };
        const TOutcome one = Export(1, add);
        const TOutcome many = Export(4, add);
        ExpectSame(one, many);
    }
}

// mbox files, one per source folder: each message converted on a worker,
// the file in run order all the same.
TEST_F(WorkersTest, MBoxFilesComeOutTheSame)
{
    const auto add = [&](TMailTask& task) {
        auto file = std::make_shared<pst::TPSTFile>(TestData(QStringLiteral("pst/enron.pst")));
        ASSERT_NE(file->RootFolder(), nullptr);
        AddFolderEntries(task, file, file->RootFolder(), {}, true);
    };
    const auto mbox = [](TMailProperties& properties) {
        properties.SetConvertType(mctMBox);
        properties.Destination += QStringLiteral("/EMails.mbox");
    };
    const TOutcome one = Export(1, add, mbox);
    const TOutcome many = Export(4, add, mbox);
    EXPECT_GT(one.files.size(), size_t(2));
    EXPECT_EQ(one.written, 71);
    ExpectSame(one, many);
}

TEST_F(WorkersTest, MessageFilesComeOutTheSame)
{
    const auto add = [](TMailTask& task) {
        for (const QString& dir : {QStringLiteral("msg"), QStringLiteral("eml")})
            for (const QString& name : QDir(TestData(dir)).entryList(QDir::Files, QDir::Name))
                AddMessageFileEntry(task, TestData(dir + QLatin1Char('/') + name));
    };
    const TOutcome one = Export(1, add);
    ASSERT_GT(one.written, 20);
    ExpectSame(one, Export(3, add));
}

TEST_F(WorkersTest, EqualNamesAreNumberedInEntryOrder)
{
    // Forty messages of one subject, each with an attachment of one name,
    // and messages that can not be read among them.
    const auto add = [](TMailTask& task) {
        for (int i = 0; i < 40; ++i) {
            Add(task, i % 9 == 4 ? nullptr
                                 : TestMail(QStringLiteral("same"), QStringLiteral("body %1").arg(i),
                                       {std::make_shared<TTestAttach>(QStringLiteral("a.pdf"))}));
        }
    };
    const auto options = [](TMailProperties& properties) { properties.SetFileNameTemplate(QStringLiteral("[subject]")); };
    const TOutcome one = Export(1, add, options);
    EXPECT_EQ(one.written, 36);
    EXPECT_EQ(one.failed, 4);
    EXPECT_EQ(one.outputs[2], QStringLiteral("same (2).eml"));
    EXPECT_TRUE(one.files.count(QStringLiteral("~35.pdf"))); // "a" shortened by the length of "~35"
    for (int workers : {2, 8})
        ExpectSame(one, Export(workers, add, options));
}

TEST_F(WorkersTest, ReplacingAnOutputStillBeingWrittenWaitsForIt)
{
    // Every message replaces the one before: the last one's body remains.
    const auto add = [](TMailTask& task) {
        for (int i = 0; i < 30; ++i)
            Add(task, TestMail(QStringLiteral("same"), QStringLiteral("body %1").arg(i)));
    };
    const auto options = [](TMailProperties& properties) {
        properties.SetFileNameTemplate(QStringLiteral("[subject]"));
        properties.CheckFileMode = cfmOverwrite;
        properties.Attach.Exclude(aotSave);
    };
    const TOutcome one = Export(1, add, options);
    ASSERT_EQ(one.files.size(), 1u);
    EXPECT_TRUE(one.files.begin()->second.contains("body 29"));
    ExpectSame(one, Export(4, add, options));
}

TEST_F(WorkersTest, NumberedFallbackNamesCountOnlyWrittenMessages)
{
    // Without a subject the template gives no name: "message N", N counting
    // the messages written so far.
    const auto add = [](TMailTask& task) {
        for (int i = 0; i < 12; ++i)
            Add(task, i % 4 == 1 ? nullptr : TestMail(QString(), QStringLiteral("body %1").arg(i)));
    };
    const auto options = [](TMailProperties& properties) { properties.SetFileNameTemplate(QStringLiteral("[subject]")); };
    const TOutcome one = Export(1, add, options);
    EXPECT_EQ(one.written, 9);
    EXPECT_TRUE(one.files.count(QStringLiteral("message 9.eml"))) << one.outputs.join(QLatin1Char(',')).toStdString();
    ExpectSame(one, Export(4, add, options));
}
