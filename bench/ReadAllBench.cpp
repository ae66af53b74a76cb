// Reading every field, body and attachment of every item of a data file,
// against pffexport exporting the items of the same file, in the same run.
// Prints the median time of each over several runs and the ratio.

#include "BenchUtil.h"
#include "core/Exceptions.h"
#include "pst/PSTReport.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

using tessaly::bench::Median;

namespace {

int CountItems(const QJsonObject& folder)
{
    int count = int(folder[QStringLiteral("messages")].toArray().size());
    for (const auto& child : folder[QStringLiteral("folders")].toArray())
        count += CountItems(child.toObject());
    return count;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "Usage: bench-read-all FILE [RUNS]\n");
        return 2;
    }
    const QString file = QString::fromLocal8Bit(argv[1]);
    const int runs = argc > 2 ? std::max(1, atoi(argv[2])) : 5;

    std::vector<double> ours, theirs;
    int items = 0;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        try {
            const QJsonObject report = tessaly::pst::ReportFile(file, tessaly::pst::TReportOptions{true});
            items = CountItems(report[QStringLiteral("root")].toObject());
        } catch (const tessaly::core::ETessalyError& e) {
            std::fprintf(stderr, "%s\n", qUtf8Printable(e.Message()));
            return 1;
        }
        ours.push_back(timer.nsecsElapsed() / 1e6);
    }

    theirs = tessaly::bench::TimeTool(QStringLiteral("pffexport"), [](const QString& out) {
        return QStringList{QStringLiteral("-q"), QStringLiteral("-m"), QStringLiteral("items"), QStringLiteral("-t"),
            out + QStringLiteral("/out")};
    }, file, runs);

    std::printf("%s: %d items, median of %d runs\n", qUtf8Printable(file), items, runs);
    std::printf("%-40s %12s %12s %8s\n", "measure", "tessaly ms", "pffexport ms", "ratio");
    if (theirs.empty())
        std::printf("%-40s %12.1f %12s %8s\n", "every field, body and attachment", Median(ours), "n/a", "n/a");
    else
        std::printf("%-40s %12.1f %12.1f %8.2f\n", "every field, body and attachment", Median(ours), Median(theirs),
            Median(ours) / Median(theirs));
    return 0;
}
