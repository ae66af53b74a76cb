#include "app/WindowStart.h"

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

int RunWindow(int argc, char** argv, TPSTViewerProjectData& projectData)
{
    const auto& commandLine = TCommandLine::Global();
    // The HTML view's sandbox refuses to start as root (a container, a
    // rescue system): it is switched off then, and the user told so.
    if (platform::RunsAsAdministrator() && !qEnvironmentVariableIsSet("QTWEBENGINE_DISABLE_SANDBOX")
        && !qEnvironmentVariable("QTWEBENGINE_CHROMIUM_FLAGS").contains(QLatin1String("--no-sandbox"))) {
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
        std::fprintf(stderr, "%s\n", qUtf8Printable(QCoreApplication::translate("WindowStart",
            "tessaly: running as root, so the message view runs without its sandbox")));
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
    return {RunWindow, [](int argc, char** argv, int code, const QString& page) {
                TTessalyApplication application(argc, argv);
                CreateErrorPageBox(page)->exec();
                return code;
            }};
}

} // namespace tessaly::app
