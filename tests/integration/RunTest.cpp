// The two programs as a user runs them.

#include "TestUtil.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <gtest/gtest.h>

using tessaly::test::TestData;

namespace {

struct TRun {
    int exitCode = -1;
    QString out;
    QString err;
};

TRun RunProgram(const QString& program, const QStringList& args, const QString& workingDir = {})
{
    QProcess process;
    // No display and no terminal: errors are printed, never shown in a window.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        env.remove(QLatin1String(name));
    process.setProcessEnvironment(env);
    if (!workingDir.isEmpty())
        process.setWorkingDirectory(workingDir);
    process.start(QStringLiteral(TESSALY_BINARY_DIR "/app/") + program, args);
    EXPECT_TRUE(process.waitForFinished(60000)) << program.toStdString();
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
        QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
}

} // namespace

TEST(Inspect, JsonOfOneAndOfSeveralFiles)
{
    const TRun one = RunProgram(QStringLiteral("tessaly-inspect"), {QStringLiteral("--json"), TestData(QStringLiteral("pst/sample2.pst"))});
    ASSERT_EQ(one.exitCode, 0) << one.err.toStdString();
    const QJsonObject tree = QJsonDocument::fromJson(one.out.toUtf8()).object();
    EXPECT_EQ(tree[QStringLiteral("format")].toString(), QStringLiteral("PST"));
    EXPECT_EQ(tree[QStringLiteral("bits")].toInt(), 32);
    EXPECT_FALSE(tree[QStringLiteral("root")][QStringLiteral("folders")].toArray().isEmpty());

    const TRun two = RunProgram(QStringLiteral("tessaly-inspect"),
        {QStringLiteral("--json"), TestData(QStringLiteral("pst/sample1.pst")), TestData(QStringLiteral("pst/test_unicode.pst"))});
    ASSERT_EQ(two.exitCode, 0) << two.err.toStdString();
    EXPECT_EQ(QJsonDocument::fromJson(two.out.toUtf8()).array().size(), 2);
}

TEST(Inspect, MissingFileAndBadOption)
{
    const TRun missing = RunProgram(QStringLiteral("tessaly-inspect"), {QStringLiteral("/no/such.pst")});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.err.contains(QStringLiteral("/no/such.pst")));
    EXPECT_EQ(RunProgram(QStringLiteral("tessaly-inspect"), {QStringLiteral("--bogus")}).exitCode, 2);
}

TEST(Tessaly, UnknownKeyPrintsTheErrorPageAsText)
{
    const TRun run = RunProgram(QStringLiteral("tessaly"), {QStringLiteral("-bogus"), QStringLiteral("x")});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.startsWith(
        QStringLiteral("Error:\n  Error in command line\n  unknown key -bogus\n \nCommand line: \n  -bogus x\n \n"
                       "----------------------------------------\n\nKeys:\n  -pst FILE  Outlook data file to view\n")))
        << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(QStringLiteral("\n  -ExternalCSS FILE  Style sheet for HTML output\n")));
}

TEST(Tessaly, HelpAndRelativePstKey)
{
    const TRun help = RunProgram(QStringLiteral("tessaly"), {QStringLiteral("--help")});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(help.out.contains(QRegularExpression(QStringLiteral("\n  -pst FILE +Outlook data file to view\n"))));
    EXPECT_TRUE(help.out.contains(QRegularExpression(QStringLiteral("\n  -AttachSave +Save attachments beside the output\n"))));

    // A lone "pst" key asks for the window; without a display the program
    // says so instead of failing somewhere in the toolkit.
    const TRun run = RunProgram(QStringLiteral("tessaly"), {QStringLiteral("-pst"), QStringLiteral("sample1.pst")}, TestData(QStringLiteral("pst")));
    EXPECT_EQ(run.exitCode, 1) << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(QStringLiteral("no display"))) << run.err.toStdString();
}
