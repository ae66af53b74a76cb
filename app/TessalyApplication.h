#pragma once

#include <QApplication>

namespace tessaly::app {

// The GUI application object. An exception that escapes an event handler
// goes to the crash reporter instead of ending the program, and the crash
// reporter speaks through message boxes while it exists.
class TTessalyApplication : public QApplication {
public:
    TTessalyApplication(int& argc, char** argv);
    ~TTessalyApplication() override;
    bool notify(QObject* receiver, QEvent* event) override;
};

// The desktop file name and the window icon of every window.
void SetDesktopIdentity();

// Shows what the crash reporter has to say in a message box, on the GUI thread.
void ShowReportInMessageBox(const QString& title, const QString& text);

} // namespace tessaly::app
