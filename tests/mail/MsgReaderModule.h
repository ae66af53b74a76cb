#pragma once

// The npm package msgreader, a reader of .msg files that owes nothing to ours.

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QTemporaryDir>
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

// What msgreader reads of each .msg file, by path: {"subject": ...}, or
// {"error": ...} for a file it cannot read. Empty with the reason in `skip`
// when the module cannot be had.
inline QJsonObject MsgReaderSubjects(const QStringList& files, QString& skip)
{
    const QString module = MsgReaderModule(skip);
    if (module.isEmpty() || files.isEmpty())
        return {};
    QTemporaryDir dir;
    QFile script(dir.filePath(QStringLiteral("subjects.js")));
    EXPECT_TRUE(script.open(QIODevice::WriteOnly));
    script.write(R"(
const fs = require('fs');
const MsgReader = require(process.argv[2]).default;
const out = {};
for (const file of process.argv.slice(3)) {
  const data = fs.readFileSync(file);
  const info = new MsgReader(data.buffer.slice(data.byteOffset, data.byteOffset + data.length)).getFileData();
  out[file] = info.error ? {error: String(info.error)} : {subject: info.subject || ''};
}
process.stdout.write(JSON.stringify(out));
)");
    script.close();
    QProcess node;
    node.start(QStringLiteral("node"), QStringList{script.fileName(), module} + files);
    EXPECT_TRUE(node.waitForFinished(120000));
    EXPECT_EQ(node.exitCode(), 0) << node.readAllStandardError().toStdString();
    return QJsonDocument::fromJson(node.readAllStandardOutput()).object();
}

} // namespace tessaly::test
