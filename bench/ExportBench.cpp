// Exporting every message of a data file to EML files with the command
// line of the product (its real durability: staged files, one sync of the
// destination at the end), against readpst -e (one .eml per message) and
// pffexport -m items on the same file in the same run. Every tool runs as a
// process of its own: wall time (median of RUNS), messages per second and
// peak memory (the largest of the runs). Also the peak memory of
// tessaly-inspect --json --messages over the same file.
//
// With --sizes the data files are made first by make-pst (kept in --data
// for the next run).

#include "BenchUtil.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

using namespace tessaly;
using bench::Median;

namespace {

struct TRun {
    double ms = 0;
    long peakKiB = 0;
    int exitCode = -1;
    QByteArray out;
};

// Runs program with args, standard output into a file read back (or thrown
// away with the standard error); its wall time and its peak resident memory.
TRun Measure(const QString& program, const QStringList& args, bool keepOut = true)
{
    TRun run;
    QTemporaryDir scratch;
    const QByteArray outPath = scratch.filePath(QStringLiteral("out")).toLocal8Bit();
    std::vector<QByteArray> storage{program.toLocal8Bit()};
    for (const QString& arg : args)
        storage.push_back(arg.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& arg : storage)
        argv.push_back(arg.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, keepOut ? outPath.constData() : "/dev/null", O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    QElapsedTimer timer;
    timer.start();
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        return run;
    int status = 0;
    rusage usage {};
    wait4(pid, &status, 0, &usage);
    run.ms = timer.nsecsElapsed() / 1e6;
    run.peakKiB = usage.ru_maxrss;
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    QFile out(QString::fromLocal8Bit(outPath));
    if (out.open(QIODevice::ReadOnly))
        run.out = out.readAll();
    return run;
}

struct TTool {
    QString name;
    QString program; // empty when not installed
    std::function<QStringList(const QString& file, const QString& out)> args;
    bool keepOut = true;
    size_t paired = 0; // the tessaly run of the same format, for "ours/theirs"
};

struct TResult {
    std::vector<double> ms;
    long peakKiB = 0;
    int failures = 0;
    QByteArray lastOut;
};

// One run of a tool into a fresh folder below scratchRoot; the folder is
// removed and the disk synced before the next run, so that every tool
// starts from the same state of the file system.
void RunOnce(const TTool& tool, const QString& file, const QString& scratchRoot, TResult& result)
{
    {
        QTemporaryDir target(QDir(scratchRoot).filePath(QStringLiteral("bench-export-XXXXXX")));
        const TRun run = Measure(tool.program, tool.args(file, target.path()), tool.keepOut);
        result.ms.push_back(run.ms);
        result.peakKiB = std::max(result.peakKiB, run.peakKiB);
        result.failures += run.exitCode != 0;
        result.lastOut = run.out;
    }
    sync();
}

// The file read once, untimed, so that no tool pays for a cold cache.
void Warm(const QString& file)
{
    QFile in(file);
    if (!in.open(QIODevice::ReadOnly))
        return;
    while (!in.read(1 << 20).isEmpty()) {
    }
}

QString Sibling(const QString& relative)
{
    return QDir(QCoreApplication::applicationDirPath()).absoluteFilePath(relative);
}

int Usage()
{
    std::fprintf(stderr,
        "Usage: bench-export [--runs N] [--jobs N] [--formats F,F,...] [--sizes N,N,...] [--data DIR] [--scratch DIR]\n"
        "                    [--no-pffexport] [FILE...]\n"
        "  --formats tessaly's formats besides EML (msg, txt, mbox); mbox is compared with readpst's default (mbox)\n"
        "  --sizes   make data files of that many messages with make-pst (50 folders, 0-1 attachment each)\n"
        "  --data    where the made files are kept (default /tmp/tessaly-bench)\n"
        "  --scratch where the outputs go while they are measured (default the system's temporary folder)\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    int runs = 3;
    QString jobs;
    QString data = QStringLiteral("/tmp/tessaly-bench");
    QString scratch = QDir::tempPath();
    bool pffexport = true;
    QStringList formats;
    QList<qint64> sizes;
    QStringList files;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& arg = args[i];
        const bool hasValue = i + 1 < args.size();
        if (arg == QLatin1String("--runs") && hasValue)
            runs = std::max(1, args[++i].toInt());
        else if (arg == QLatin1String("--jobs") && hasValue)
            jobs = args[++i];
        else if (arg == QLatin1String("--data") && hasValue)
            data = args[++i];
        else if (arg == QLatin1String("--scratch") && hasValue)
            scratch = args[++i];
        else if (arg == QLatin1String("--formats") && hasValue)
            formats = args[++i].split(QLatin1Char(','), Qt::SkipEmptyParts);
        else if (arg == QLatin1String("--no-pffexport"))
            pffexport = false;
        else if (arg == QLatin1String("--sizes") && hasValue) {
            for (const QString& size : args[++i].split(QLatin1Char(','), Qt::SkipEmptyParts))
                sizes << size.toLongLong();
        } else if (arg.startsWith(QLatin1String("--")))
            return Usage();
        else
            files << arg;
    }
    if (files.isEmpty() && sizes.isEmpty())
        return Usage();

    // The data files of the sizes asked for, made once.
    const QString makePst = Sibling(QStringLiteral("../make-pst"));
    for (const qint64 size : sizes) {
        QDir().mkpath(data);
        const QString file = QDir(data).filePath(QStringLiteral("m%1.pst").arg(size));
        if (!QFileInfo::exists(file)) {
            std::fprintf(stderr, "making %s\n", qUtf8Printable(file));
            const TRun made = Measure(makePst, {file, QStringLiteral("--quiet"), QStringLiteral("--messages"),
                QString::number(size), QStringLiteral("--folders"), QStringLiteral("50"), QStringLiteral("--attach-count"),
                QStringLiteral("1"), QStringLiteral("--seed"), QStringLiteral("42")});
            if (made.exitCode != 0) {
                std::fprintf(stderr, "make-pst failed for %lld messages\n", static_cast<long long>(size));
                return 1;
            }
        }
        files << file;
    }

    const QString tessaly = Sibling(QStringLiteral("../app/tessaly"));
    const QString inspect = Sibling(QStringLiteral("../app/tessaly-inspect"));
    std::vector<TTool> tools;
    tools.push_back({QStringLiteral("tessaly (EML)"), tessaly, [jobs](const QString& file, const QString& out) {
                         QStringList a{QStringLiteral("Outlook"), QStringLiteral("-pst"), file, QStringLiteral("-dest"), out,
                             QStringLiteral("-KeepFolders")};
                         if (!jobs.isEmpty())
                             a << QStringLiteral("-jobs") << jobs;
                         return a;
                     }});
    tools.push_back({QStringLiteral("readpst -e"), QStandardPaths::findExecutable(QStringLiteral("readpst")),
        [](const QString& file, const QString& out) {
            return QStringList{QStringLiteral("-q"), QStringLiteral("-e"), QStringLiteral("-o"), out, file};
        }});
    // Tessaly's other formats, each against readpst where it writes the same.
    for (const QString& format : formats) {
        tools.push_back({QStringLiteral("tessaly (%1)").arg(format.toUpper()), tessaly, [jobs, format](const QString& file, const QString& out) {
                             QStringList a{QStringLiteral("Outlook"), QStringLiteral("-pst"), file, QStringLiteral("-dest"), out,
                                 QStringLiteral("-format"), format};
                             if (format != QLatin1String("mbox"))
                                 a << QStringLiteral("-KeepFolders");
                             if (!jobs.isEmpty())
                                 a << QStringLiteral("-jobs") << jobs;
                             return a;
                         }});
        tools.back().paired = tools.size() - 1;
        if (format == QLatin1String("mbox")) {
            tools.push_back({QStringLiteral("readpst (mbox)"), QStandardPaths::findExecutable(QStringLiteral("readpst")),
                [](const QString& file, const QString& out) {
                    return QStringList{QStringLiteral("-q"), QStringLiteral("-o"), out, file};
                }});
            tools.back().paired = tools.size() - 2;
        }
    }
    if (pffexport)
        tools.push_back({QStringLiteral("pffexport -m items"), QStandardPaths::findExecutable(QStringLiteral("pffexport")),
            [](const QString& file, const QString& out) {
                return QStringList{QStringLiteral("-q"), QStringLiteral("-m"), QStringLiteral("items"), QStringLiteral("-t"),
                    out + QStringLiteral("/out"), file};
            }});
    const TTool json{QStringLiteral("tessaly-inspect --json --messages"), inspect, [](const QString& file, const QString&) {
                         return QStringList{QStringLiteral("--json"), QStringLiteral("--messages"), file};
                     }, false};

    for (const QString& file : files) {
        Warm(file);
        // The tools take turns, run after run, so that none meets a file
        // system busier than the others do.
        std::vector<TResult> results(tools.size());
        for (int run = 0; run < runs; ++run)
            for (size_t i = 0; i < tools.size(); ++i)
                if (!tools[i].program.isEmpty())
                    RunOnce(tools[i], file, scratch, results[i]);
        TResult inspected;
        RunOnce(json, file, scratch, inspected);

        // "N messages: W written, ..." from our own summary.
        static const QRegularExpression Summary(QStringLiteral("^(\\d+) messages: (\\d+) written"));
        const auto match = Summary.match(QString::fromUtf8(results[0].lastOut));
        const double messages = match.hasMatch() ? match.captured(1).toDouble() : 0;
        std::printf("%s: %.0f messages (%s written), %d runs, -jobs %s\n", qUtf8Printable(file), messages,
            match.hasMatch() ? qUtf8Printable(match.captured(2)) : "?", runs, jobs.isEmpty() ? "default" : qUtf8Printable(jobs));
        std::printf("%-34s %10s %12s %12s %12s\n", "tool", "s", "messages/s", "ours/theirs", "peak MiB");
        for (size_t i = 0; i < tools.size(); ++i) {
            const double ours = results[tools[i].paired].ms.empty() ? 0 : Median(results[tools[i].paired].ms);
            if (results[i].ms.empty()) {
                std::printf("%-34s %10s\n", qUtf8Printable(tools[i].name), "n/a");
                continue;
            }
            const double ms = Median(results[i].ms);
            std::printf("%-34s %10.2f %12.0f %12.2f %12.1f%s\n", qUtf8Printable(tools[i].name), ms / 1000,
                messages / (ms / 1000), ours / ms, results[i].peakKiB / 1024.0,
                results[i].failures ? "  (exit status not 0)" : "");
        }
        std::printf("%-34s %10.2f %12s %12s %12.1f%s\n\n", qUtf8Printable(json.name), Median(inspected.ms) / 1000, "", "",
            inspected.peakKiB / 1024.0, inspected.failures ? "  (exit status not 0)" : "");
        std::fflush(stdout);
    }
    return 0;
}
