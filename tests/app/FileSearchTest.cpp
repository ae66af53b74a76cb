#include "app/FileSearch.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace tessaly::app;

namespace {

void Touch(const QString& path)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly);
}

// A tree of more than 20,000 files and folders with a few data files among
// them, a link loop, a dangling link and (for users other than root) an
// unreadable folder. Returns the data files that are to be found.
QStringList MakeTree(const QString& root)
{
    QStringList expected;
    QDir dir(root);
    for (int a = 0; a < 40; ++a) {
        const QString level1 = QStringLiteral("dept%1").arg(a);
        dir.mkpath(level1);
        for (int b = 0; b < 25; ++b) {
            const QString level2 = level1 + QStringLiteral("/team%1").arg(b);
            dir.mkpath(level2);
            for (int c = 0; c < 20; ++c)
                Touch(dir.filePath(level2 + QStringLiteral("/note%1.txt").arg(c)));
        }
    }
    const QStringList dataFiles = {QStringLiteral("dept3/team4/Archive.PST"), QStringLiteral("dept7/team0/mail.ost"),
        QStringLiteral("dept39/team24/Old Mail.Pst"), QStringLiteral("dept0/backup.OST")};
    for (const QString& name : dataFiles) {
        Touch(dir.filePath(name));
        expected << QDir(dir.filePath(name)).absolutePath();
    }
    // Look-alikes that are not data files.
    Touch(dir.filePath(QStringLiteral("dept1/pst")));
    Touch(dir.filePath(QStringLiteral("dept1/ost.txt")));
    Touch(dir.filePath(QStringLiteral("dept1/archive.pst.bak")));
    Touch(dir.filePath(QStringLiteral("dept1/.pst")));
    // A link back up the tree, a dangling link, a folder nobody but root reads.
    QFile::link(dir.filePath(QStringLiteral("dept2")), dir.filePath(QStringLiteral("dept2/team1/up")));
    QFile::link(dir.filePath(QStringLiteral("nowhere")), dir.filePath(QStringLiteral("dept2/dangling")));
    dir.mkpath(QStringLiteral("locked"));
    Touch(dir.filePath(QStringLiteral("locked/secret.pst")));
    if (geteuid() == 0)
        expected << dir.filePath(QStringLiteral("locked/secret.pst")); // root reads it all the same
    else
        QFile::setPermissions(dir.filePath(QStringLiteral("locked")), QFileDevice::Permissions());
    expected.sort();
    return expected;
}

struct TRun {
    QStringList found;
    int progress = 0;
    qint64 msecs = 0;
};

TRun RunSearch(TVirtualFileSearch& search)
{
    TRun run;
    bool complete = false;
    QObject::connect(&search, &TVirtualFileSearch::Found, [&](const QStringList& files) { run.found << files; });
    QObject::connect(&search, &TVirtualFileSearch::Progress, [&](const QString&) { ++run.progress; });
    QObject::connect(&search, &TVirtualFileSearch::Complete, [&] { complete = true; });
    QElapsedTimer timer;
    timer.start();
    search.Start();
    const QDeadlineTimer deadline(60000);
    while (!complete && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    run.msecs = timer.elapsed();
    QCoreApplication::processEvents(); // progress still queued
    run.found.sort();
    return run;
}

} // namespace

TEST(FileSearch, FindsExactlyTheDataFiles)
{
    QTemporaryDir dir;
    const QStringList expected = MakeTree(dir.path());
    TVirtualFileSearch search;
    search.Roots = {dir.path()};
    const TRun run = RunSearch(search);
    EXPECT_EQ(run.found, expected);
    EXPECT_TRUE(search.Finished());
    EXPECT_GT(search.FilesVisited(), 20000);
    // At most one progress message per 100 ms (plus the first).
    EXPECT_LE(run.progress, run.msecs / 100 + 1) << run.progress << " in " << run.msecs << " ms";
    QFile::setPermissions(dir.filePath(QStringLiteral("locked")), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

TEST(FileSearch, NothingToSearchCompletesAtOnce)
{
    TVirtualFileSearch search;
    search.Roots = {};
    const TRun run = RunSearch(search);
    EXPECT_TRUE(run.found.isEmpty());
    EXPECT_LT(run.msecs, 1000);
    search.Roots = {QStringLiteral("/no/such/folder")};
    EXPECT_TRUE(RunSearch(search).found.isEmpty());
}

TEST(FileSearch, StopEndsARunningSearch)
{
    // A large tree that is there already.
    TVirtualFileSearch search;
    search.Roots = {QStringLiteral("/usr"), QStringLiteral("/var"), QStringLiteral("/etc")};
    search.Start();
    EXPECT_TRUE(search.Running());
    QElapsedTimer timer;
    timer.start();
    search.Stop();
    EXPECT_LT(timer.elapsed(), 1000) << timer.elapsed(); // the walk looks at the stop flag at every entry
    EXPECT_FALSE(search.Running());
    EXPECT_TRUE(search.Finished());
}

TEST(FileSearch, FilterByExtension)
{
    const TFileFilter filter(QStringLiteral("pst;ost"));
    for (const char* name : {"a.pst", "B.PST", "c.Ost", "x.y.pst"})
        EXPECT_TRUE(filter.Accept(QLatin1String(name))) << name;
    for (const char* name : {"pst", ".pst", "a.pst.bak", "a.pstx", "a.txt", ""})
        EXPECT_FALSE(filter.Accept(QLatin1String(name))) << name;
}
