#pragma once

#include "app/StartUp.h"
#include "tasks/MailOtherTasks.h"

#include <chrono>
#include <memory>

class QMessageBox;

namespace tessaly::app {

// The main window for the parsed command line: the data file it names, or
// the files of the last run; message files named open in windows of their
// own. Returns when the last window closes, with the exit code.
int RunWindow(int argc, char** argv, TPSTViewerProjectData& projectData);

// The message box that shows the error page of a failed command line.
std::unique_ptr<QMessageBox> CreateErrorPageBox(const QString& html);

// An export that prints pages (PDF) with the browser engine: off screen,
// no window shown.
int RunPrintingExport(int argc, char** argv, TPSTViewerProjectData& projectData);

// The page printer of the window program: the page printed by the browser
// engine on the paper of the options. Called from another thread (the
// window's export runs on one), it hands the page to the application's
// thread, which runs its event loop while an export runs, and waits for the
// PDF; when that thread does not take the page within takeTimeout (it is
// waiting for the caller, say), the page is given up with the reason rather
// than waited for without end.
tasks::TPagePrinter WindowPagePrinter(std::chrono::milliseconds takeTimeout = std::chrono::seconds(30));

// The hooks of the window program: the windows themselves.
TWindowHooks WindowHooks();

} // namespace tessaly::app
