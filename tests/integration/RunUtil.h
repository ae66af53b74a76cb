#pragma once

// Running a program as a user would: no display, its output collected.

#include <QProcess>
#include <QString>
#include <QStringList>
#include <gtest/gtest.h>

struct TRun {
    int exitCode = -1;
    QString out;
    QString err;
};

inline TRun RunProcess(const QString& program, const QStringList& args, const QString& workingDir = {})
{
    QProcess process;
    // No display and no terminal: errors are printed, never shown in a window.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        env.remove(QLatin1String(name));
    process.setProcessEnvironment(env);
    if (!workingDir.isEmpty())
        process.setWorkingDirectory(workingDir);
    process.start(program, args);
    EXPECT_TRUE(process.waitForFinished(300000)) << program.toStdString();
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
        QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
}
