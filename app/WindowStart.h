#pragma once

#include "app/StartUp.h"

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

// The hooks of the window program: the windows themselves.
TWindowHooks WindowHooks();

} // namespace tessaly::app
