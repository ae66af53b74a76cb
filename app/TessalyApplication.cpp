#include "app/TessalyApplication.h"

#include "app/StartUp.h"
#include "core/CrashReporter.h"
#include "core/Version.h"

#include <QMessageBox>
#include <QThread>

namespace tessaly::app {

TTessalyApplication::TTessalyApplication(int& argc, char** argv) : QApplication(argc, argv)
{
    SetApplicationIdentity();
    core::TCrashReporter::Instance().SetShow(ShowReportInMessageBox);
}

TTessalyApplication::~TTessalyApplication()
{
    core::TCrashReporter::Instance().SetShow(nullptr);
}

bool TTessalyApplication::notify(QObject* receiver, QEvent* event)
{
    try {
        return QApplication::notify(receiver, event);
    } catch (const std::exception& e) {
        core::TCrashReporter::Instance().Report(e, QStringLiteral("event loop"));
    } catch (...) {
        core::TCrashReporter::Instance().ReportUnknown(QStringLiteral("event loop"));
    }
    return false;
}

void ShowReportInMessageBox(const QString& title, const QString& text)
{
    auto show = [title, text] { QMessageBox::critical(nullptr, title, text); };
    if (!qApp || QThread::currentThread() == qApp->thread())
        show();
    else
        QMetaObject::invokeMethod(qApp, show, Qt::QueuedConnection);
}

} // namespace tessaly::app
