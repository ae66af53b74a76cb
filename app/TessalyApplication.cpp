#include "app/TessalyApplication.h"

#include "app/StartUp.h"
#include "core/CrashReporter.h"
#include "core/Version.h"
#include "mail/Pictures.h"

#include <QIcon>
#include <QMessageBox>
#include <QThread>

namespace tessaly::app {

TTessalyApplication::TTessalyApplication(int& argc, char** argv) : QApplication(argc, argv)
{
    SetApplicationIdentity();
    SetDesktopIdentity();
    mail::UseQtPictures();
    core::TCrashReporter::Instance().SetShow(ShowReportInMessageBox);
}

void SetDesktopIdentity()
{
    // The desktop file installed with the program (its name without
    // ".desktop"), which desktops match windows to; the icon of the icon
    // theme, else the one built in.
    QGuiApplication::setDesktopFileName(QStringLiteral("tessaly"));
    QGuiApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("tessaly"), QIcon(QStringLiteral(":/icons/tessaly.png"))));
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
