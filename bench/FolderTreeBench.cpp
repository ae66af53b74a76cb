// Time to open a data file and read its folder tree, against pffinfo -a on
// the same file. Prints the median of several runs for each.

#include "core/Exceptions.h"
#include "pst/PffFolderTree.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "Usage: bench-folder-tree FILE [RUNS]\n");
        return 2;
    }
    const QString file = QString::fromLocal8Bit(argv[1]);
    const int runs = argc > 2 ? std::max(1, atoi(argv[2])) : 5;

    std::vector<double> ours, theirs;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        try {
            (void)tessaly::pst::TPffFolderTree::Read(file);
        } catch (const tessaly::core::ETessalyError& e) {
            std::fprintf(stderr, "%s\n", qUtf8Printable(e.Message()));
            return 1;
        }
        ours.push_back(timer.nsecsElapsed() / 1e6);
    }

    const QString pffinfo = QStandardPaths::findExecutable(QStringLiteral("pffinfo"));
    if (!pffinfo.isEmpty()) {
        for (int i = 0; i < runs; ++i) {
            QProcess process;
            QElapsedTimer timer;
            timer.start();
            process.start(pffinfo, {QStringLiteral("-a"), file});
            process.waitForFinished(-1);
            theirs.push_back(timer.nsecsElapsed() / 1e6);
        }
    }

    std::printf("%-28s %12s %12s %8s\n", "measure", "tessaly ms", "pffinfo ms", "ratio");
    if (theirs.empty())
        std::printf("%-28s %12.2f %12s %8s\n", "open + folder tree", Median(ours), "n/a", "n/a");
    else
        std::printf("%-28s %12.2f %12.2f %8.2f\n", "open + folder tree", Median(ours), Median(theirs),
            Median(ours) / Median(theirs));
    return 0;
}
