#include "app/StartUp.h"

#include "app/MailInfoFrame.h"
#include "app/PSTMainForm.h"
#include "app/ProjectData.h"
#include "app/TessalyApplication.h"
#include "core/AppConfig.h"
#include "core/CommandLine.h"
#include "core/CrashReporter.h"
#include "core/HtmlText.h"
#include "platform/Terminal.h"
#include "core/SettingsStore.h"
#include "pst/PSTReport.h"
#include "tasks/CommandLineExport.h"
#include "tasks/MailProperties.h"

#include <QFileInfo>
#include <QMessageBox>
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
int ShowCommandLineError(int argc, char** argv, int code, const QString& detail)
{
    const QString page = TCommandLine::Global().ErrorPage(code, detail);
    if (page.isEmpty())
        return code;
    if (platform::IsTerminal(stderr) || !platform::CanShowWindows()) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(core::HtmlToPlainText(page)));
        return code;
    }
    TTessalyApplication application(argc, argv);
    CreateErrorPageBox(page)->exec();
    return code;
}

// The files a run names: the value of "pst" and the bare file arguments.
QStringList DataFiles(const TCommandLine& commandLine)
{
    QStringList files;
    if (commandLine.HasKey(QStringLiteral("pst")))
        files << commandLine.Value(QStringLiteral("pst"));
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

// The window: the data file named on the command line, or the files of
// the last run; message files named open in windows of their own.
int RunWindow(int argc, char** argv, TPSTViewerProjectData& projectData)
{
    const auto& commandLine = TCommandLine::Global();
    // The HTML view's sandbox refuses to start as root (a container, a
    // rescue system): it is switched off then, and the user told so.
    if (platform::RunsAsAdministrator() && !qEnvironmentVariableIsSet("QTWEBENGINE_DISABLE_SANDBOX")
        && !qEnvironmentVariable("QTWEBENGINE_CHROMIUM_FLAGS").contains(QLatin1String("--no-sandbox"))) {
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
        std::fprintf(stderr, "tessaly: running as root, so the message view runs without its sandbox\n");
    }
    RegisterPreviewSchemes();
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    TTessalyApplication application(argc, argv);
    QString dataFile = commandLine.Value(QStringLiteral("pst"));
    QStringList messageFiles;
    QStringList dataFiles;
    for (const QString& source : commandLine.Sources()) {
        if (TPSTViewerProjectData::IsMessageFile(source))
            messageFiles << source;
        else if (commandLine.HasKey(QStringLiteral("pst")))
            continue; // the folder that a selection's command line names
        else
            dataFiles << source;
    }
    if (dataFile.isEmpty())
        dataFile = dataFiles.join(QLatin1Char('\n'));
    TPSTMainForm form(projectData, core::TSettingsStore::Global(), dataFile);
    form.LoadSettings();
    form.show();
    for (const QString& file : messageFiles)
        form.OpenMessageFile(file);
    return application.exec();
}

int Run(int argc, char** argv)
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
        return ShowCommandLineError(argc, argv, e.Code(), e.Detail());
    }
    if (commandLine.HelpRequested()) {
        std::printf("%s", qUtf8Printable(commandLine.HelpText()));
        return core::crOK;
    }
    if (commandLine.WantsMainWindow()) {
        if (!platform::CanShowWindows()) {
            std::fprintf(stderr, "tessaly: no display to show the window on (set DISPLAY or WAYLAND_DISPLAY)\n");
            return core::crNothing;
        }
        const int result = RunWindow(argc, argv, projectData);
        projectData.DataModuleDestroy();
        return result;
    }
    if (tasks::IsExportRun(commandLine))
        return tasks::RunCommandLineExport(commandLine, projectData);
    const QStringList files = DataFiles(commandLine);
    if (files.isEmpty()) {
        std::printf("%s", qUtf8Printable(commandLine.HelpText()));
        return core::crNothing;
    }
    return PrintFolderTrees(files);
}

} // namespace

void DefineCommandLineKeys(TCommandLine& commandLine)
{
    commandLine.DefineKeys(core::TAppConfig::BuiltIn());
    for (const auto& key : tasks::TMailProperties::CommandKeys())
        commandLine.DefineKey(key);
    for (const auto& key : tasks::ExportCommandKeys())
        commandLine.DefineKey(key);
}

std::unique_ptr<QMessageBox> CreateErrorPageBox(const QString& html)
{
    // The page names its colour the way Windows toolkits do; Qt's rich text
    // knows it as "red".
    QString shown = html;
    shown.replace(QLatin1String("color=clRed"), QLatin1String("color=red"));
    auto box = std::make_unique<QMessageBox>(QMessageBox::Critical, QStringLiteral("Tessaly"), shown, QMessageBox::Ok);
    box->setTextFormat(Qt::RichText);
    return box;
}

int RunTessaly(int argc, char** argv)
{
    SetApplicationIdentity();
    auto& reporter = core::TCrashReporter::Instance();
    reporter.InstallTerminateHandler();
    try {
        return Run(argc, argv);
    } catch (const std::exception& e) {
        reporter.Report(e, QStringLiteral("main"));
    } catch (...) {
        reporter.ReportUnknown(QStringLiteral("main"));
    }
    return core::crException;
}

} // namespace tessaly::app
