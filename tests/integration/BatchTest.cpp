// The batch recipe: every data file below a folder exported by GNU parallel,
// one job per file, each with its own folder, report and log, and one
// summary over the reports; and the Slurm array job's script, run as one
// task of an array would run it.

#include "RunUtil.h"
#include "TestUtil.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QThread>
#include <QProcess>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <map>




namespace {

QJsonObject ReadJson(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

// The items of a data file as tessaly-inspect counts them, folder by folder.
int ItemsOf(const QString& file)
{
    const TRun run = RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly-inspect"), {QStringLiteral("--json"), file});
    std::function<int(const QJsonObject&)> count = [&](const QJsonObject& folder) {
        int items = folder[QLatin1String("items")].toInt();
        for (const auto& child : folder[QLatin1String("folders")].toArray())
            items += count(child.toObject());
        return items;
    };
    return count(QJsonDocument::fromJson(run.out.toUtf8()).object()[QLatin1String("root")].toObject());
}

TRun RunScript(const QString& script, const QStringList& args, const QProcessEnvironment& env)
{
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(TESSALY_SOURCE_DIR "/scripts/") + script, args);
    process.waitForFinished(600000);
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
}

} // namespace

TEST(Batch, GnuParallelRecipeOverTwentyDataFiles)
{
    QTemporaryDir dir;
    const QString source = dir.filePath(QStringLiteral("archive"));
    // 20 files made here, some in a folder below, two of one name.
    std::map<QString, int> expected; // relative path -> items
    for (int i = 1; i <= 20; ++i) {
        const QString relative = i > 16 ? QStringLiteral("old/m%1.pst").arg(i) : QStringLiteral("m%1.pst").arg(i);
        const QString file = QDir(source).filePath(relative);
        QDir().mkpath(QFileInfo(file).path());
        const TRun made = RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/make-pst"),
            {QStringLiteral("--quiet"), QStringLiteral("--messages"), QString::number(5 + i), QStringLiteral("--folders"), QStringLiteral("2"),
                QStringLiteral("--attach-count"), QStringLiteral("1"), QStringLiteral("--seed"), QString::number(i), file});
        ASSERT_EQ(made.exitCode, 0) << made.err.toStdString();
        expected[relative] = ItemsOf(file);
        ASSERT_GT(expected[relative], 0);
    }
    QFile::copy(QDir(source).filePath(QStringLiteral("m1.pst")), QDir(source).filePath(QStringLiteral("old/m1.pst")));
    expected[QStringLiteral("old/m1.pst")] = expected[QStringLiteral("m1.pst")];

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TESSALY"), QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly"));
    const QString out = dir.filePath(QStringLiteral("out"));
    const TRun run = RunScript(QStringLiteral("batch-export"), {QStringLiteral("-j"), QStringLiteral("2"), source, out}, env);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(QStringLiteral("21 data files"))) << run.err.toStdString();

    // Every job's report: its source, exit status 0, counts equal to the
    // source's items, the files written in its own folder.
    int total = 0;
    for (const auto& [relative, items] : expected) {
        SCOPED_TRACE(relative.toStdString());
        const QString name = relative.left(relative.size() - 4) + QStringLiteral("-pst");
        const QJsonObject report = ReadJson(QDir(out).filePath(name + QStringLiteral(".report.json")));
        ASSERT_FALSE(report.isEmpty());
        EXPECT_EQ(report[QLatin1String("exitCode")].toInt(), 0);
        EXPECT_EQ(report[QLatin1String("sources")].toArray().first().toString(), QDir(source).filePath(relative));
        const QJsonObject counts = report[QLatin1String("counts")].toObject();
        EXPECT_EQ(counts[QLatin1String("entries")].toInt(), items);
        EXPECT_EQ(counts[QLatin1String("written")].toInt(), items);
        int files = 0;
        // Mail as .eml, contacts as .vcf, the calendar as .ics.
        const QStringList outputs = {QStringLiteral("*.eml"), QStringLiteral("*.vcf"), QStringLiteral("*.ics")};
        for (QDirIterator it(QDir(out).filePath(name), outputs, QDir::Files, QDirIterator::Subdirectories); it.hasNext(); it.next())
            ++files;
        EXPECT_EQ(files, items);
        EXPECT_TRUE(QFileInfo::exists(QDir(out).filePath(name + QStringLiteral(".log"))));
        total += items;
    }
    // The summary over all reports.
    const QJsonObject summary = ReadJson(QDir(out).filePath(QStringLiteral("summary.json")));
    EXPECT_EQ(summary[QLatin1String("jobs")].toInt(), 21);
    EXPECT_EQ(summary[QLatin1String("failedJobs")].toInt(), 0);
    EXPECT_EQ(summary[QLatin1String("totals")].toObject()[QLatin1String("written")].toInt(), total);
    EXPECT_EQ(summary[QLatin1String("totals")].toObject()[QLatin1String("entries")].toInt(), total);

    // A damaged file among them: its job fails, the others are written, the
    // summary and the exit status say so.
    QFile damaged(QDir(source).filePath(QStringLiteral("broken.pst")));
    ASSERT_TRUE(damaged.open(QIODevice::WriteOnly));
    damaged.write(QByteArray(4096, 'x'));
    damaged.close();
    const QString again = dir.filePath(QStringLiteral("again"));
    const TRun second = RunScript(QStringLiteral("batch-export"), {source, again}, env);
    EXPECT_EQ(second.exitCode, 1);
    const QJsonObject secondSummary = ReadJson(QDir(again).filePath(QStringLiteral("summary.json")));
    EXPECT_EQ(secondSummary[QLatin1String("jobs")].toInt(), 22);
    EXPECT_EQ(secondSummary[QLatin1String("failedJobs")].toInt(), 1);
    EXPECT_EQ(secondSummary[QLatin1String("totals")].toObject()[QLatin1String("written")].toInt(), total);
}

// The Slurm array job's script: syntax, and one array task run here as
// Slurm would run it (the file of its line, into a folder of its own).
TEST(Batch, SlurmArrayTaskExportsTheFileOfItsLine)
{
    const TRun syntax = RunProcess(QStringLiteral("bash"), {QStringLiteral("-n"), QStringLiteral(TESSALY_SOURCE_DIR "/scripts/batch-export.sbatch")});
    EXPECT_EQ(syntax.exitCode, 0) << syntax.err.toStdString();
    QTemporaryDir dir;
    const QString list = dir.filePath(QStringLiteral("files.txt"));
    QFile listFile(list);
    ASSERT_TRUE(listFile.open(QIODevice::WriteOnly));
    listFile.write((tessaly::test::TestData(QStringLiteral("pst/sample1.pst")) + QLatin1Char('\n')
                       + tessaly::test::TestData(QStringLiteral("pst/enron.pst")) + QLatin1Char('\n'))
                       .toUtf8());
    listFile.close();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TESSALY"), QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly"));
    env.insert(QStringLiteral("SLURM_ARRAY_TASK_ID"), QStringLiteral("1"));
    env.insert(QStringLiteral("SLURM_CPUS_PER_TASK"), QStringLiteral("2"));
    const QString out = dir.filePath(QStringLiteral("results"));
    const TRun task = RunScript(QStringLiteral("batch-export.sbatch"), {list, out, QStringLiteral("-format"), QStringLiteral("mbox")}, env);
    ASSERT_EQ(task.exitCode, 0) << task.err.toStdString();
    const QJsonObject report = ReadJson(QDir(out).filePath(QStringLiteral("000001-enron.report.json")));
    EXPECT_EQ(report[QLatin1String("counts")].toObject()[QLatin1String("written")].toInt(), 71);
    EXPECT_EQ(report[QLatin1String("format")].toString(), QStringLiteral("mbox"));
    EXPECT_TRUE(QFileInfo(QDir(out).filePath(QStringLiteral("000001-enron/EMails.mbox"))).isFile());
    // Without the array's number it refuses.
    env.remove(QStringLiteral("SLURM_ARRAY_TASK_ID"));
    EXPECT_NE(RunScript(QStringLiteral("batch-export.sbatch"), {list, out}, env).exitCode, 0);
}

// A run killed in the middle (SIGKILL) and finished with -resume gives the
// files (names and sizes: only MIME boundaries differ between runs) and the
// report of a run that was never stopped, and does not write again what
// the killed run completed.
TEST(Batch, ResumeAfterAKillGivesTheUninterruptedRun)
{
    QTemporaryDir dir;
    const QString source = dir.filePath(QStringLiteral("big.pst"));
    const TRun made = RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/make-pst"),
        {QStringLiteral("--quiet"), QStringLiteral("--messages"), QStringLiteral("1500"), QStringLiteral("--folders"), QStringLiteral("4"),
            QStringLiteral("--attach-count"), QStringLiteral("1"), QStringLiteral("--seed"), QStringLiteral("3"), source});
    ASSERT_EQ(made.exitCode, 0) << made.err.toStdString();
    const QString program = QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly");
    const auto args = [&](const QString& name) {
        return QStringList{QStringLiteral("-pst"), source, QStringLiteral("-dest"), dir.filePath(name), QStringLiteral("-KeepFolders"),
            QStringLiteral("-report"), dir.filePath(name + QStringLiteral(".json"))};
    };
    const TRun whole = RunProcess(program, args(QStringLiteral("whole")));
    ASSERT_EQ(whole.exitCode, 0) << whole.err.toStdString();

    const auto files = [&](const QString& name) {
        QStringList list;
        const QDir root(dir.filePath(name));
        for (QDirIterator it(root.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext();) {
            const QString path = it.next();
            if (!path.endsWith(QStringLiteral(".tessaly.manifest")))
                list << root.relativeFilePath(path) + QLatin1Char(' ') + QString::number(QFileInfo(path).size());
        }
        list.sort();
        return list;
    };
    const QStringList expected = files(QStringLiteral("whole"));
    ASSERT_GT(expected.size(), 1000);

    // Killed once a third of the files are there.
    QProcess killed;
    killed.start(program, args(QStringLiteral("resumed")));
    ASSERT_TRUE(killed.waitForStarted());
    QElapsedTimer waited;
    waited.start();
    while (files(QStringLiteral("resumed")).size() < expected.size() / 3 && waited.elapsed() < 60000 && killed.state() == QProcess::Running)
        QThread::msleep(5);
    ASSERT_EQ(killed.state(), QProcess::Running) << "the run ended before it could be killed";
    killed.kill(); // SIGKILL
    killed.waitForFinished();
    const int before = int(files(QStringLiteral("resumed")).size());
    ASSERT_LT(before, expected.size());

    const TRun resumed = RunProcess(program, args(QStringLiteral("resumed")) << QStringLiteral("-resume"));
    ASSERT_EQ(resumed.exitCode, 0) << resumed.err.toStdString();
    static const QRegularExpression Complete(QStringLiteral("(\\d+) messages were complete from the run before"));
    const auto complete = Complete.match(resumed.err);
    ASSERT_TRUE(complete.hasMatch()) << resumed.err.toStdString();
    EXPECT_GE(complete.captured(1).toInt(), before - 2); // at most the files in flight when killed
    EXPECT_EQ(files(QStringLiteral("resumed")), expected);
    EXPECT_EQ(resumed.out, QString(whole.out).replace(QStringLiteral("whole"), QStringLiteral("resumed")));

    const QJsonObject a = ReadJson(dir.filePath(QStringLiteral("whole.json")));
    const QJsonObject b = ReadJson(dir.filePath(QStringLiteral("resumed.json")));
    EXPECT_EQ(a[QLatin1String("counts")], b[QLatin1String("counts")]);
    EXPECT_EQ(a[QLatin1String("failures")], b[QLatin1String("failures")]);
    EXPECT_EQ(a[QLatin1String("perFolder")].toArray().size(), b[QLatin1String("perFolder")].toArray().size());
    for (qsizetype i = 0; i < a[QLatin1String("perFolder")].toArray().size(); ++i) {
        QJsonObject x = a[QLatin1String("perFolder")].toArray()[i].toObject(), y = b[QLatin1String("perFolder")].toArray()[i].toObject();
        EXPECT_EQ(x[QLatin1String("written")], y[QLatin1String("written")]);
        EXPECT_EQ(x[QLatin1String("folder")], y[QLatin1String("folder")]);
    }

    // -resume with a format that writes one file is refused.
    const TRun single = RunProcess(program, {QStringLiteral("-pst"), source, QStringLiteral("-dest"), dir.filePath(QStringLiteral("one")),
                                                QStringLiteral("-format"), QStringLiteral("mbox"), QStringLiteral("-resume")});
    EXPECT_EQ(single.exitCode, 2);
}

// One run over several data files (-pst given more than once, and a list
// file): each file's outputs in a folder of its own named after it ("~2"
// for a name met again), the report's counts per source equal to the
// source's items. A file that cannot be read fails the run, not the others.
TEST(Batch, OneRunOverSeveralDataFiles)
{
    QTemporaryDir dir;
    QStringList files;
    std::map<QString, int> items; // absolute path -> items
    for (const QString& relative : {QStringLiteral("a/box.pst"), QStringLiteral("b/box.pst"), QStringLiteral("c.pst"), QStringLiteral("d.pst")}) {
        const QString file = dir.filePath(relative);
        QDir().mkpath(QFileInfo(file).path());
        const TRun made = RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/make-pst"),
            {QStringLiteral("--quiet"), QStringLiteral("--messages"), QString::number(7 + 3 * int(files.size())), QStringLiteral("--folders"),
                QStringLiteral("2"), QStringLiteral("--seed"), QString::number(files.size() + 1), file});
        ASSERT_EQ(made.exitCode, 0) << made.err.toStdString();
        files << file;
        items[file] = ItemsOf(file);
        ASSERT_GT(items[file], 0);
    }
    // Two by -pst, two by a list (relative to it, with a comment and a blank).
    QFile list(dir.filePath(QStringLiteral("list.txt")));
    ASSERT_TRUE(list.open(QIODevice::WriteOnly));
    list.write("# the rest\nc.pst\n\nd.pst\n");
    list.close();
    const QString out = dir.filePath(QStringLiteral("out")), report = dir.filePath(QStringLiteral("report.json"));
    const TRun run = RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly"),
        {QStringLiteral("-pst"), files[0], QStringLiteral("-pst"), files[1], QStringLiteral("-list"), list.fileName(), QStringLiteral("-dest"), out,
            QStringLiteral("-jobs"), QStringLiteral("2"), QStringLiteral("-report"), report});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QJsonObject json = ReadJson(report);
    QStringList sources;
    for (const auto& source : json[QLatin1String("sources")].toArray())
        sources << source.toString();
    EXPECT_EQ(sources, files);
    int total = 0;
    for (const auto& [file, count] : items)
        total += count;
    EXPECT_EQ(json[QLatin1String("counts")].toObject()[QLatin1String("written")].toInt(), total);
    const QJsonArray perSource = json[QLatin1String("perSource")].toArray();
    ASSERT_EQ(perSource.size(), 4);
    for (const auto& value : perSource) {
        const QJsonObject source = value.toObject();
        EXPECT_EQ(source[QLatin1String("written")].toInt(), items[source[QLatin1String("source")].toString()]);
    }
    // The outputs of each file (mail, vCards, iCalendar files; no
    // attachments) below its own folder.
    const QStringList groups = {QStringLiteral("box"), QStringLiteral("box~2"), QStringLiteral("c"), QStringLiteral("d")};
    EXPECT_EQ(QDir(out).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name), groups);
    for (qsizetype i = 0; i < groups.size(); ++i) {
        int outputs = 0;
        QDirIterator it(QDir(out).filePath(groups[i]), QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            it.next();
            ++outputs;
        }
        EXPECT_EQ(outputs, items[files[i]]) << groups[i].toStdString();
    }

    // A list that is not there: nothing starts, no destination is made.
    const QString none = dir.filePath(QStringLiteral("none"));
    const TRun noList = RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly"),
        {QStringLiteral("-list"), dir.filePath(QStringLiteral("missing.txt")), QStringLiteral("-dest"), none});
    EXPECT_EQ(noList.exitCode, 7);
    EXPECT_TRUE(noList.err.contains(QStringLiteral("Can not read the list"))) << noList.err.toStdString();
    EXPECT_FALSE(QFileInfo::exists(none));

    // A missing file among them: the others are written, the run fails.
    const QString missing = dir.filePath(QStringLiteral("gone.pst"));
    const TRun partial = RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly"),
        {QStringLiteral("-pst"), files[2], QStringLiteral("-pst"), missing, QStringLiteral("-dest"), dir.filePath(QStringLiteral("out2"))});
    EXPECT_NE(partial.exitCode, 0);
    EXPECT_TRUE(partial.err.contains(missing)) << partial.err.toStdString();
    EXPECT_TRUE(partial.out.contains(QStringLiteral("%1 written").arg(items[files[2]]))) << partial.out.toStdString();
}
