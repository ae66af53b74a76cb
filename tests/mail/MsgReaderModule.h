#pragma once

// The npm package msgreader, a reader of .msg files that owes nothing to ours.

#include <QFileInfo>
#include <QProcess>
#include <QString>
#include <gtest/gtest.h>

namespace tessaly::test {

// The npm package msgreader, installed once into the build folder. Empty
// with the reason in `skip` when npm cannot reach its registry.
inline QString MsgReaderModule(QString& skip)
{
    const QString prefix = QStringLiteral(TESSALY_BINARY_DIR "/tests/node");
    const QString module = prefix + QStringLiteral("/node_modules/msgreader");
    if (QFileInfo::exists(module + QStringLiteral("/package.json")))
        return module;
    QProcess npm;
    npm.start(QStringLiteral("npm"), {QStringLiteral("install"), QStringLiteral("--prefix"), prefix,
                                         QStringLiteral("--no-audit"), QStringLiteral("--no-fund"), QStringLiteral("msgreader")});
    if (!npm.waitForFinished(180000) || npm.exitCode() != 0) {
        const QString output = QString::fromLocal8Bit(npm.readAllStandardError() + npm.readAllStandardOutput());
        if (output.contains(QLatin1String("ENOTFOUND")) || output.contains(QLatin1String("EAI_AGAIN"))
            || output.contains(QLatin1String("ETIMEDOUT")) || output.contains(QLatin1String("ECONNREFUSED"))
            || output.contains(QLatin1String("network"), Qt::CaseInsensitive)) {
            skip = QStringLiteral("npm cannot reach its registry to install msgreader: ") + output.left(300);
            return {};
        }
        ADD_FAILURE() << "npm install msgreader failed: " << output.toStdString();
        return {};
    }
    return module;
}

} // namespace tessaly::test
