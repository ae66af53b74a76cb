#include "core/CrashReporter.h"
#include "core/Exceptions.h"
#include "core/Version.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

using namespace tessaly::core;

namespace {

class EUserError : public ETessalyError {
public:
    using ETessalyError::ETessalyError;
};

class EDerivedUserError : public EUserError {
public:
    using EUserError::EUserError;
};

struct Shown {
    QString title;
    QString text;
};

QString ReadAll(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

class CrashReporterTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto& reporter = TCrashReporter::Instance();
        reporter.Reset();
        reporter.SetLogFileName(m_dir.filePath(QStringLiteral("logs/crash.log")));
        reporter.SetShow([this](const QString& title, const QString& text) { m_shown.push_back({title, text}); });
    }
    void TearDown() override
    {
        auto& reporter = TCrashReporter::Instance();
        reporter.Reset();
        reporter.SetShow(nullptr);
        reporter.SetLogFileName(QString());
    }
    QString LogFile() const { return TCrashReporter::Instance().LogFileName(); }

    QTemporaryDir m_dir;
    std::vector<Shown> m_shown;
};

} // namespace

TEST_F(CrashReporterTest, LogsTimeVersionAndMessageAndShowsOnce)
{
    auto& reporter = TCrashReporter::Instance();
    reporter.Report(std::runtime_error("disk on fire"), QStringLiteral("event loop"));
    reporter.Report(std::runtime_error("disk on fire"), QStringLiteral("event loop"));
    reporter.Report(std::logic_error("another"), QStringLiteral("main"));

    const QString log = ReadAll(LogFile());
    EXPECT_EQ(log.count(QStringLiteral("Message: disk on fire\n")), 2) << log.toStdString();
    EXPECT_TRUE(log.contains(QStringLiteral("Tessaly %1").arg(QLatin1String(ProductVersion))));
    EXPECT_TRUE(log.contains(QStringLiteral("Where: event loop\nException: std::runtime_error\n")));
    EXPECT_TRUE(log.contains(QStringLiteral("Where: main\nException: std::logic_error\nMessage: another\n")));
    EXPECT_TRUE(log.contains(QRegularExpression(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d"))));

    ASSERT_EQ(m_shown.size(), 2u);
    EXPECT_TRUE(m_shown[0].text.contains(QStringLiteral("disk on fire")));
    EXPECT_TRUE(m_shown[0].text.contains(LogFile()));
    EXPECT_TRUE(m_shown[1].text.contains(QStringLiteral("another")));
}

TEST_F(CrashReporterTest, IgnoredClassesAreShownButNotLogged)
{
    auto& reporter = TCrashReporter::Instance();
    reporter.Ignore<EUserError>();
    EXPECT_TRUE(reporter.IsIgnored(EDerivedUserError(QStringLiteral("x"))));
    EXPECT_FALSE(reporter.IsIgnored(ETessalyError(QStringLiteral("x"))));

    reporter.Report(EDerivedUserError(QStringLiteral("Outlook is running. Please, close Outlook")), QStringLiteral("event loop"));
    EXPECT_FALSE(QFile::exists(LogFile()));
    ASSERT_EQ(m_shown.size(), 1u);
    EXPECT_EQ(m_shown[0].title, QStringLiteral("Tessaly"));
    EXPECT_EQ(m_shown[0].text, QStringLiteral("Outlook is running. Please, close Outlook"));

    reporter.Report(ETessalyError(QStringLiteral("not ignored")), QStringLiteral("main"));
    EXPECT_TRUE(ReadAll(LogFile()).contains(QStringLiteral("Message: not ignored")));
}

TEST_F(CrashReporterTest, UnwritableLogIsSaidInTheMessage)
{
    auto& reporter = TCrashReporter::Instance();
    reporter.SetLogFileName(QStringLiteral("/proc/no/such/dir/crash.log"));
    reporter.ReportUnknown(QStringLiteral("main"));
    ASSERT_EQ(m_shown.size(), 1u);
    EXPECT_TRUE(m_shown[0].text.contains(QStringLiteral("could not be written"))) << m_shown[0].text.toStdString();
}

TEST_F(CrashReporterTest, TerminateHandlerRecordsBeforeAborting)
{
    // Forked, so the child writes to the log file this test reads.
    GTEST_FLAG_SET(death_test_style, "fast");
    const QString log = LogFile();
    EXPECT_DEATH(
        {
            TCrashReporter::Instance().SetLogFileName(log);
            TCrashReporter::Instance().SetShow(nullptr); // to the standard error stream
            TCrashReporter::Instance().InstallTerminateHandler();
            std::thread([] { throw std::runtime_error("escaped everything"); }).join();
        },
        "escaped everything");
    EXPECT_TRUE(ReadAll(log).contains(QStringLiteral("Where: terminate\nException: std::runtime_error\nMessage: escaped everything")));
}
