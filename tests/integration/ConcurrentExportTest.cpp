// Two exports into one folder at the same moment: every file of both runs
// is there, and nothing either run wrote is replaced.

#include "TestUtil.h"
#include "integration/RunUtil.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <fcntl.h>
#include <unistd.h>

using tessaly::test::TestData;

namespace {

const QString Program = QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly");

// Starts the runs together and waits for all of them.
std::vector<TRun> RunTogether(const std::vector<QStringList>& argsOfRuns)
{
    std::vector<std::unique_ptr<QProcess>> processes;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        env.remove(QLatin1String(name));
    for (const QStringList& args : argsOfRuns) {
        processes.push_back(std::make_unique<QProcess>());
        processes.back()->setProcessEnvironment(env);
        processes.back()->start(Program, args);
    }
    std::vector<TRun> runs;
    for (auto& process : processes) {
        EXPECT_TRUE(process->waitForFinished(300000));
        runs.push_back({process->exitStatus() == QProcess::NormalExit ? process->exitCode() : -1,
            QString::fromUtf8(process->readAllStandardOutput()), QString::fromUtf8(process->readAllStandardError())});
    }
    return runs;
}

// Every file below dir: its path relative to dir and its size.
std::map<QString, qint64> Files(const QString& dir)
{
    std::map<QString, qint64> files;
    for (QDirIterator it(dir, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext();) {
        it.next();
        // The record an export keeps for -resume is no output.
        if (it.fileName() != QLatin1String(".tessaly.manifest"))
            files[QDir(dir).relativeFilePath(it.filePath())] = it.fileInfo().size();
    }
    return files;
}

} // namespace

TEST(ConcurrentExport, TwoEmlRunsIntoOneFolderKeepEveryFile)
{
    const QStringList args{QStringLiteral("Outlook"), QStringLiteral("-pst"), TestData(QStringLiteral("pst/enron.pst")),
        QStringLiteral("-format"), QStringLiteral("eml"), QStringLiteral("-AttachSave"), QStringLiteral("-dest")};
    // One run alone gives the files to expect, twice over.
    QTemporaryDir alone;
    const TRun single = RunProcess(Program, args + QStringList{alone.path()});
    ASSERT_EQ(single.exitCode, 0) << single.err.toStdString();
    const auto expected = Files(alone.path());
    ASSERT_GT(expected.size(), 71u); // the messages and their attachments
    qint64 expectedBytes = 0;
    for (const auto& [name, size] : expected)
        expectedBytes += size;

    for (int trial = 0; trial < 4; ++trial) {
        QTemporaryDir out;
        const auto runs = RunTogether({args + QStringList{out.path()}, args + QStringList{out.path()}});
        for (const TRun& run : runs) {
            EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
            EXPECT_TRUE(run.out.startsWith(QStringLiteral("71 messages: 71 written"))) << run.out.toStdString();
        }
        const auto files = Files(out.path());
        EXPECT_EQ(files.size(), 2 * expected.size()) << "trial " << trial;
        qint64 bytes = 0;
        for (const auto& [name, size] : files) {
            EXPECT_FALSE(name.contains(QLatin1String(".tessaly-"))) << "a temporary was left: " << name.toStdString();
            EXPECT_GT(size, 0) << name.toStdString();
            bytes += size;
        }
        // Message files carry a random boundary of the same length, so the
        // bytes of both runs add up exactly.
        EXPECT_EQ(bytes, 2 * expectedBytes) << "trial " << trial;
    }
}

TEST(ConcurrentExport, TwoDataFileRunsToOneNameGiveTwoFiles)
{
    for (int trial = 0; trial < 3; ++trial) {
        QTemporaryDir out;
        const QString file = out.filePath(QStringLiteral("archive.pst"));
        const QStringList args{QStringLiteral("Outlook"), QStringLiteral("-pst"), TestData(QStringLiteral("pst/enron.pst")),
            QStringLiteral("-dest"), file, QStringLiteral("-format"), QStringLiteral("pst")};
        const auto runs = RunTogether({args, args});
        for (const TRun& run : runs) {
            EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
            EXPECT_TRUE(run.out.startsWith(QStringLiteral("71 messages: 71 written"))) << run.out.toStdString();
        }
        const auto files = Files(out.path());
        ASSERT_EQ(files.size(), 2u) << "trial " << trial;
        for (const QString& name : {QStringLiteral("archive.pst"), QStringLiteral("archive (1).pst")}) {
            ASSERT_TRUE(files.count(name)) << name.toStdString();
            const TRun inspect = RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly-inspect"),
                {QStringLiteral("--json"), out.filePath(name)});
            EXPECT_EQ(inspect.exitCode, 0) << inspect.err.toStdString();
            // Every message in the inbox of the file written.
            EXPECT_TRUE(inspect.out.contains(QStringLiteral("\"items\": 71"))) << inspect.out.left(600).toStdString();
        }
    }
}

TEST(ConcurrentExport, TemporariesOfACrashedRunAreRemovedButALivingRunsStay)
{
    QTemporaryDir out;
    const QString stale = out.filePath(QStringLiteral(".tessaly-00c0ffee.part"));
    const QString living = out.filePath(QStringLiteral(".tessaly-0000beef.part"));
    for (const QString& path : {stale, living}) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("left over");
    }
    // The second is held the way a running export holds its temporaries.
    const int held = open(QFile::encodeName(living).constData(), O_RDONLY);
    ASSERT_GE(held, 0);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    const TRun run = RunProcess(Program, {TestData(QStringLiteral("eml/attachment_emails__attachment_pdf.eml")),
        QStringLiteral("-dest"), out.path()});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_FALSE(QFile::exists(stale));
    EXPECT_TRUE(QFile::exists(living));
    close(held);
}
