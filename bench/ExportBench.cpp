// Exporting every message of a data file to EML files, against readpst -e
// (one .eml per message, libpst) and pffexport -m items (libpff's own
// export) on the same file in the same run. Messages per second, median of
// RUNS, process start included for the other tools; and how soon our first
// message is on disk (opening the file included).

#include "BenchUtil.h"
#include "core/SettingsStore.h"
#include "tasks/MailEMLTask.h"
#include "tasks/MailExportSource.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>
#include <cstdio>
#include <vector>

using namespace tessaly;

using bench::Median;
using bench::TimeTool;

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "Usage: bench-export FILE [RUNS]\n");
        return 2;
    }
    const QString file = QString::fromLocal8Bit(argv[1]);
    const int runs = argc > 2 ? std::max(1, atoi(argv[2])) : 5;
    QTemporaryDir settings;
    core::TSettingsStore::SetGlobal(std::make_unique<core::TSettingsStore>(settings.filePath(QStringLiteral("s.ini"))));

    std::vector<double> ours, first;
    int messages = 0, written = 0;
    for (int i = 0; i < runs; ++i) {
        QTemporaryDir target;
        QElapsedTimer timer;
        timer.start();
        // Watches the destination for the first message written.
        std::atomic<bool> done{false};
        std::atomic<qint64> firstNs{-1};
        std::thread watch([&] {
            const std::filesystem::path root = target.path().toStdString();
            while (!done && firstNs < 0) {
                std::error_code error;
                for (const auto& entry : std::filesystem::recursive_directory_iterator(root, error))
                    if (entry.path().extension() == ".eml") {
                        firstNs = timer.nsecsElapsed();
                        break;
                    }
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
        tasks::TMailProperties properties;
        properties.SetConvertType(tasks::mctEML);
        properties.Destination = target.path();
        properties.KeepFolderStructure = true;
        tasks::TMailEMLTask task(properties);
        auto pst = std::make_shared<pst::TPSTFile>(file);
        if (!pst->RootFolder()) {
            done = true;
            watch.join();
            std::fprintf(stderr, "Can not load outlook data file - %s\n", qUtf8Printable(file));
            return 1;
        }
        tasks::AddFolderEntries(task, pst, pst->RootFolder(), {}, true);
        task.Run();
        ours.push_back(timer.nsecsElapsed() / 1e6);
        done = true;
        watch.join();
        first.push_back(firstNs / 1e6);
        messages = int(task.Entries().size());
        written = task.Written();
    }
    const auto readpst = TimeTool(QStringLiteral("readpst"), [](const QString& out) {
        return QStringList{QStringLiteral("-q"), QStringLiteral("-e"), QStringLiteral("-o"), out};
    }, file, runs);
    const auto pffexport = TimeTool(QStringLiteral("pffexport"), [](const QString& out) {
        return QStringList{QStringLiteral("-q"), QStringLiteral("-m"), QStringLiteral("items"), QStringLiteral("-t"), out + QStringLiteral("/out")};
    }, file, runs);

    const double us = Median(ours);
    std::printf("%s: %d messages (%d written), median of %d runs\n", qUtf8Printable(file), messages, written, runs);
    std::printf("%-28s %12s %14s %10s\n", "tool", "ms", "messages/s", "ours/theirs");
    std::printf("%-28s %12.1f %14.0f %10s\n", "tessaly (EML)", us, messages / (us / 1000), "1.00");
    std::printf("%-28s %12.1f\n", "tessaly: first message (ms)", Median(first));
    for (const auto& [name, times] : {std::pair{"readpst -e", readpst}, {"pffexport -m items", pffexport}}) {
        if (times.empty()) {
            std::printf("%-28s %12s %14s %10s\n", name, "n/a", "n/a", "n/a");
            continue;
        }
        const double them = Median(times);
        std::printf("%-28s %12.1f %14.0f %10.2f\n", name, them, messages / (them / 1000), us / them);
    }
    return 0;
}
