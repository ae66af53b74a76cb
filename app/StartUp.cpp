#include "app/StartUp.h"

#include "app/ProjectData.h"
#include "core/AppConfig.h"
#include "core/CommandLine.h"
#include "core/CrashReporter.h"
#include "core/HtmlText.h"
#include "platform/Process.h"
#include "platform/Terminal.h"
#include "core/SettingsStore.h"
#include "core/Version.h"
#include "pst/PSTReport.h"
#include "tasks/CommandLineExport.h"
#include "tasks/MailProperties.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <cstdio>

namespace tessaly::app {

using core::TCommandLine;

namespace {

QStringList Arguments(int argc, char** argv)
{
    QStringList args;
    for (int i = 1; i < argc; ++i)
        args << QString::fromLocal8Bit(argv[i]);
    return args;
}

// On a terminal (or with no display) the page is printed as plain text,
// otherwise shown in a window.
int ShowCommandLineError(int argc, char** argv, int code, const QString& detail, const TWindowHooks& hooks)
{
    const QString page = TCommandLine::Global().ErrorPage(code, detail);
    if (page.isEmpty())
        return code;
    if (platform::IsTerminal(stderr) || !platform::CanShowWindows()) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(core::HtmlToPlainText(page)));
        return code;
    }
    return hooks.ShowErrorPage(argc, argv, code, page);
}

// The files a run names: the values of "pst" and the bare file arguments.
QStringList DataFiles(const TCommandLine& commandLine)
{
    QStringList files;
    if (commandLine.HasKey(QStringLiteral("pst")))
        files << commandLine.Values(QStringLiteral("pst"));
    else
        files << commandLine.Sources();
    return files;
}

// Until the viewer's window stands, a run prints the folder trees.
int PrintFolderTrees(const QStringList& files)
{
    int result = core::crOK;
    for (const auto& file : files) {
        try {
            std::printf("%s", qUtf8Printable(pst::ReportText(pst::ReportFile(file, {}))));
        } catch (const core::ETessalyError& e) {
            std::fprintf(stderr, "%s\n", qUtf8Printable(e.Message()));
            result = core::crInvalidSource;
        }
    }
    return result;
}

int Run(int argc, char** argv, const TWindowHooks& hooks)
{
    auto& commandLine = TCommandLine::Global();
    DefineCommandLineKeys(commandLine);
    // The project data modules, HTML first: the one created last names the
    // product and serves as the program's project data.
    core::RegisterReportBuilder(std::make_shared<pst::TPSTReportBuilder>());
    THTMLProjectData htmlData;
    TPSTViewerProjectData projectData(commandLine, core::TSettingsStore::Global());
    if (const QString failure = CheckStartUpInvariants(); !failure.isEmpty()) {
        std::fprintf(stderr, "Assertion failed: %s\n", qUtf8Printable(failure));
        return core::crInternal;
    }
    projectData.DataModuleCreate();
    try {
        commandLine.Parse(Arguments(argc, argv));
    } catch (const core::ECommandLineError& e) {
        return ShowCommandLineError(argc, argv, e.Code(), e.Detail(), hooks);
    }
    if (commandLine.VersionRequested()) {
        std::printf("%s %s\n", core::ProductName, core::ProductVersion);
        return core::crOK;
    }
    if (commandLine.HelpRequested()) {
        std::printf("%s", qUtf8Printable(commandLine.HelpText()));
        return core::crOK;
    }
    if (commandLine.WantsMainWindow()) {
        if (!platform::CanShowWindows()) {
            std::fprintf(stderr, "%s\n", qUtf8Printable(QCoreApplication::translate("StartUp",
                "tessaly: no display to show the window on (set DISPLAY or WAYLAND_DISPLAY)")));
            return core::crNothing;
        }
        const int result = hooks.RunWindow(argc, argv, projectData);
        projectData.DataModuleDestroy();
        return result;
    }
    if (tasks::ExportPrintsPages(commandLine))
        return hooks.RunPrintingExport(argc, argv, projectData);
    if (tasks::IsExportRun(commandLine))
        return tasks::RunCommandLineExport(commandLine, projectData);
    const QStringList files = DataFiles(commandLine);
    if (files.isEmpty()) {
        std::printf("%s", qUtf8Printable(commandLine.HelpText()));
        return core::crNothing;
    }
    return PrintFolderTrees(files);
}

// The window program in place of this one; returns only when it could not
// be started.
int StartWindowProgram(char** argv)
{
    const QString folder = platform::ProgramFolder();
    const QString name = QStringLiteral(TESSALY_WINDOW_PROGRAM);
    // Beside this program in a build, in the package's private folder once
    // installed.
    QString program;
    for (const QString& candidate : {folder + QLatin1Char('/') + name, folder + QStringLiteral("/../lib/tessaly/") + name}) {
        if (!folder.isEmpty() && QFileInfo(candidate).isExecutable()) {
            program = candidate;
            break;
        }
    }
    if (program.isEmpty()) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(QCoreApplication::translate("StartUp",
            "tessaly: the window program %1 is missing beside %2; reinstall Tessaly").arg(name, folder)));
        return core::crNothing;
    }
    const QString failure = platform::ReplaceProcess(program, argv);
    std::fprintf(stderr, "%s\n",
        qUtf8Printable(QCoreApplication::translate("StartUp", "tessaly: cannot start %1: %2").arg(program, failure)));
    return core::crNothing;
}

} // namespace

TWindowHooks WindowProgramHooks()
{
    return {[](int, char** argv, TPSTViewerProjectData&) { return StartWindowProgram(argv); },
        [](int, char** argv, int, const QString&) { return StartWindowProgram(argv); },
        [](int, char** argv, TPSTViewerProjectData&) { return StartWindowProgram(argv); }};
}

void SetApplicationIdentity()
{
    QCoreApplication::setOrganizationName(QStringLiteral("Halvorne"));
    QCoreApplication::setApplicationName(QLatin1String(core::ProductName));
    QCoreApplication::setApplicationVersion(QLatin1String(core::ProductVersion));
}

void DefineCommandLineKeys(TCommandLine& commandLine)
{
    commandLine.DefineKeys(core::TAppConfig::BuiltIn());
    for (const auto& key : tasks::TMailProperties::CommandKeys())
        commandLine.DefineKey(key);
    for (const auto& key : tasks::ExportCommandKeys())
        commandLine.DefineKey(key);
}

int RunTessaly(int argc, char** argv, const TWindowHooks& hooks)
{
    SetApplicationIdentity();
    auto& reporter = core::TCrashReporter::Instance();
    reporter.InstallTerminateHandler();
    try {
        return Run(argc, argv, hooks);
    } catch (const std::exception& e) {
        reporter.Report(e, QStringLiteral("main"));
    } catch (...) {
        reporter.ReportUnknown(QStringLiteral("main"));
    }
    return core::crException;
}

} // namespace tessaly::app
