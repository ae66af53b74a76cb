#include "app/StartUp.h"
#include "app/WindowStart.h"
#include "app/TessalyApplication.h"
#include "core/CommandLine.h"
#include "core/CrashReporter.h"

#include <QCoreApplication>
#include <QEvent>
#include <QMessageBox>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <stdexcept>

using namespace tessaly;

namespace {

class TThrowingObject : public QObject {
protected:
    bool event(QEvent* e) override
    {
        if (e->type() == QEvent::User)
            throw std::runtime_error("handler failed");
        return QObject::event(e);
    }
};

} // namespace

TEST(StartUp, ErrorPageShownAsRichText)
{
    core::TCommandLine commandLine;
    app::DefineCommandLineKeys(commandLine);
    commandLine.Parse({QStringLiteral("-pst"), QStringLiteral("/a.pst")});
    const QString page = commandLine.ErrorPage(core::crInvalidSource);
    const auto box = app::CreateErrorPageBox(page);
    EXPECT_EQ(box->textFormat(), Qt::RichText);
    QString shown = page;
    shown.replace(QStringLiteral("color=clRed"), QStringLiteral("color=red"));
    EXPECT_EQ(box->text(), shown);
    EXPECT_EQ(box->icon(), QMessageBox::Critical);
    EXPECT_EQ(box->windowTitle(), QStringLiteral("Tessaly"));
}

TEST(StartUp, ExceptionInEventHandlerGoesToCrashReporter)
{
    QTemporaryDir dir;
    auto& reporter = core::TCrashReporter::Instance();
    reporter.Reset();
    reporter.SetLogFileName(dir.filePath(QStringLiteral("crash.log")));
    QStringList shown;
    reporter.SetShow([&](const QString&, const QString& text) { shown << text; });

    TThrowingObject object;
    QCoreApplication::postEvent(&object, new QEvent(QEvent::User));
    QCoreApplication::processEvents();

    // The program goes on: the next event is delivered as usual.
    QCoreApplication::postEvent(&object, new QEvent(QEvent::User));
    QCoreApplication::processEvents();

    ASSERT_EQ(shown.size(), 1); // the same failure is shown once
    EXPECT_TRUE(shown[0].contains(QStringLiteral("handler failed")));
    EXPECT_TRUE(QFile::exists(dir.filePath(QStringLiteral("crash.log"))));
    reporter.SetShow(nullptr);
    reporter.SetLogFileName(QString());
    reporter.Reset();
}

TEST(StartUp, WindowsCarryTheIconAndTheDesktopFileName)
{
    app::SetDesktopIdentity();
    EXPECT_EQ(QGuiApplication::desktopFileName(), QStringLiteral("tessaly"));
    const QIcon icon = QGuiApplication::windowIcon();
    ASSERT_FALSE(icon.isNull());
    EXPECT_FALSE(icon.pixmap(48, 48).isNull());
}

TEST(StartUp, CrashLogLivesInTheApplicationDataFolder)
{
    app::SetApplicationIdentity();
    EXPECT_TRUE(core::TCrashReporter::Instance().LogFileName().endsWith(QStringLiteral("/Halvorne/Tessaly/crash.log")))
        << core::TCrashReporter::Instance().LogFileName().toStdString();
}
