#include "app/WindowStart.h"
#include <QPageSize>
#include <QPageLayout>
#include "tasks/MailOtherTasks.h"
#include "tasks/CommandLineExport.h"

#include "app/MailInfoFrame.h"
#include "app/PSTMainForm.h"
#include "app/ProjectData.h"
#include "app/TessalyApplication.h"
#include "core/CommandLine.h"
#include "core/SettingsStore.h"
#include "platform/Terminal.h"

#include <QCoreApplication>
#include <QMessageBox>
#include <cstdio>

namespace tessaly::app {

using core::TCommandLine;

namespace {

// The browser engine's sandbox refuses to start as root (a container, a
// rescue system): it is switched off then, and the user told so.
void AllowEngineAsRoot()
{
    if (platform::RunsAsAdministrator() && !qEnvironmentVariableIsSet("QTWEBENGINE_DISABLE_SANDBOX")
        && !qEnvironmentVariable("QTWEBENGINE_CHROMIUM_FLAGS").contains(QLatin1String("--no-sandbox"))) {
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
        std::fprintf(stderr, "%s\n", qUtf8Printable(QCoreApplication::translate("WindowStart",
            "tessaly: running as root, so the message view runs without its sandbox")));
    }
}

} // namespace

int RunPrintingExport(int argc, char** argv, TPSTViewerProjectData& projectData)
{
    AllowEngineAsRoot();
    // No window is shown: without a display the pages print off screen.
    if (!platform::CanShowWindows() && !qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    RegisterPreviewSchemes();
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    TTessalyApplication application(argc, argv);
    tasks::SetPagePrinter([](const QString& html, const tasks::TPaperProperties& paper, QString* error) {
        // Pixels at 96 dpi to millimetres.
        const QSizeF size(paper.Width * 25.4 / 96, paper.Height * 25.4 / 96);
        const bool landscape = size.width() > size.height();
        const QPageLayout layout(QPageSize(landscape ? size.transposed() : size, QPageSize::Millimeter),
            landscape ? QPageLayout::Landscape : QPageLayout::Portrait,
            QMarginsF(paper.Margin, paper.Margin, paper.Margin, paper.Margin), QPageLayout::Millimeter);
        return PrintPageToPdf(html, layout, error);
    });
    const int result = tasks::RunCommandLineExport(TCommandLine::Global(), projectData);
    tasks::SetPagePrinter(nullptr);
    return result;
}

int RunWindow(int argc, char** argv, TPSTViewerProjectData& projectData)
{
    const auto& commandLine = TCommandLine::Global();
    AllowEngineAsRoot();
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

TWindowHooks WindowHooks()
{
    return {RunWindow,
        [](int argc, char** argv, int code, const QString& page) {
            TTessalyApplication application(argc, argv);
            CreateErrorPageBox(page)->exec();
            return code;
        },
        RunPrintingExport};
}

} // namespace tessaly::app
