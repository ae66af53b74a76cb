#pragma once

// What the benchmarks share: the median of runs, and the time of another
// tool run on the same file (process start included).

#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <QTemporaryDir>
#include <algorithm>
#include <functional>
#include <vector>

namespace tessaly::bench {

inline double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// Milliseconds of each of RUNS runs of tool with args(a fresh output
// folder) followed by file; empty when the tool is not installed.
inline std::vector<double> TimeTool(const QString& tool, const std::function<QStringList(const QString&)>& args,
    const QString& file, int runs)
{
    std::vector<double> times;
    const QString program = QStandardPaths::findExecutable(tool);
    if (program.isEmpty())
        return times;
    for (int i = 0; i < runs; ++i) {
        QTemporaryDir target;
        QProcess process;
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        QElapsedTimer timer;
        timer.start();
        process.start(program, args(target.path()) << file);
        process.waitForFinished(-1);
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    return times;
}

} // namespace tessaly::bench
