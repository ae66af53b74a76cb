// Files visited per second by the data-file search, against
// find ROOT -iname '*.pst' -o -iname '*.ost' on the same tree in the same run.

#include "app/FileSearch.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <algorithm>
#include <cstdio>
#include <vector>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "Usage: bench-file-search ROOT\n");
        return 2;
    }
    const QString root = QString::fromLocal8Bit(argv[1]);

    const QStringList findArgs = {root, QStringLiteral("-iname"), QStringLiteral("*.pst"), QStringLiteral("-o"),
        QStringLiteral("-iname"), QStringLiteral("*.ost")};
    const auto runFind = [&](int& found) {
        QProcess find;
        QElapsedTimer timer;
        timer.start();
        find.start(QStringLiteral("find"), findArgs);
        find.waitForFinished(-1);
        found = int(find.readAllStandardOutput().count('\n'));
        return timer.nsecsElapsed() / 1e9;
    };
    int theirFound = 0;
    runFind(theirFound); // both then meet a warm cache

    std::vector<double> ours, theirs;
    int visited = 0;
    int found = 0;
    for (int run = 0; run < 3; ++run) {
        tessaly::app::TVirtualFileSearch search;
        search.Roots = {root};
        bool complete = false;
        found = 0;
        QObject::connect(&search, &tessaly::app::TVirtualFileSearch::Found,
            [&](const QStringList& files) { found += int(files.size()); });
        QObject::connect(&search, &tessaly::app::TVirtualFileSearch::Complete, [&] { complete = true; });
        QElapsedTimer timer;
        timer.start();
        search.Start();
        while (!complete)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
        ours.push_back(timer.nsecsElapsed() / 1e9);
        visited = search.FilesVisited();
        theirs.push_back(runFind(theirFound));
    }
    std::sort(ours.begin(), ours.end());
    std::sort(theirs.begin(), theirs.end());
    const double ourRate = visited / ours[1];
    const double theirRate = visited / theirs[1];
    std::printf("%s: %d files visited; found %d, find found %d; median of 3 runs, warm cache\n", argv[1], visited,
        found, theirFound);
    std::printf("%-32s %14s %14s %8s\n", "measure", "tessaly", "find", "ratio");
    std::printf("%-32s %14.0f %14.0f %8.2f\n", "files visited per second", ourRate, theirRate, ourRate / theirRate);
    return 0;
}
