#include "app/WindowStart.h"

#include "app/MailInfoFrame.h"
#include "app/PSTMainForm.h"
#include "app/ProjectData.h"
#include "app/TessalyApplication.h"
#include "core/CommandLine.h"
#include "core/SettingsStore.h"
#include "platform/Terminal.h"
#include "tasks/CommandLineExport.h"

#include <QCoreApplication>
#include <QMessageBox>
#include <QPageLayout>
#include <QPageSize>
#include <QThread>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

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

QPageLayout PageLayout(const tasks::TPaperProperties& paper)
{
    // Pixels at 96 dpi to millimetres.
    const QSizeF size(paper.Width * 25.4 / 96, paper.Height * 25.4 / 96);
    const bool landscape = size.width() > size.height();
    return QPageLayout(QPageSize(landscape ? size.transposed() : size, QPageSize::Millimeter),
        landscape ? QPageLayout::Landscape : QPageLayout::Portrait,
        QMarginsF(paper.Margin, paper.Margin, paper.Margin, paper.Margin), QPageLayout::Millimeter);
}

// A page handed from another thread to the window's thread, and its PDF
// handed back.
struct TPrintCall {
    std::mutex Lock;
    std::condition_variable Changed;
    bool Started = false;
    bool Done = false;
    bool Abandoned = false;
    QByteArray Pdf;
    QString Error;
};

} // namespace

tasks::TPagePrinter WindowPagePrinter(std::chrono::milliseconds takeTimeout)
{
    return [takeTimeout](const QString& html, const tasks::TPaperProperties& paper, QString* error) -> QByteArray {
        QCoreApplication* application = QCoreApplication::instance();
        if (!application) {
            if (error)
                *error = QCoreApplication::translate("WindowStart", "pages are printed only while the window program runs");
            return {};
        }
        const QPageLayout layout = PageLayout(paper);
        if (QThread::currentThread() == application->thread())
            return PrintPageToPdf(html, layout, error);
        // The browser engine lives on the window's thread: the page is
        // printed there while this thread waits. Never a blocking queued
        // call: one that the window's thread does not take would wait for
        // ever.
        auto call = std::make_shared<TPrintCall>();
        QMetaObject::invokeMethod(application, [call, html, layout] {
            {
                std::lock_guard lock(call->Lock);
                if (call->Abandoned)
                    return;
                call->Started = true;
            }
            call->Changed.notify_all();
            QString failure;
            const QByteArray pdf = PrintPageToPdf(html, layout, &failure);
            {
                std::lock_guard lock(call->Lock);
                call->Pdf = pdf;
                call->Error = failure;
                call->Done = true;
            }
            call->Changed.notify_all();
        }, Qt::QueuedConnection);
        std::unique_lock lock(call->Lock);
        if (!call->Changed.wait_for(lock, takeTimeout, [&] { return call->Started; })) {
            call->Abandoned = true;
            if (error)
                *error = QCoreApplication::translate("WindowStart", "the window did not take the page for printing");
            return {};
        }
        call->Changed.wait(lock, [&] { return call->Done; });
        if (error)
            *error = call->Error;
        return call->Pdf;
    };
}

int RunPrintingExport(int argc, char** argv, TPSTViewerProjectData& projectData)
{
    AllowEngineAsRoot();
    // No window is shown: without a display the pages print off screen.
    if (!platform::CanShowWindows() && !qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    RegisterPreviewSchemes();
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    TTessalyApplication application(argc, argv);
    tasks::SetPagePrinter(WindowPagePrinter());
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
    // The window's export prints PDF pages as the command line's does.
    tasks::SetPagePrinter(WindowPagePrinter());
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
    const int result = application.exec();
    tasks::SetPagePrinter(nullptr);
    return result;
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
