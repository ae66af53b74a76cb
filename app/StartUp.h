#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>

class QMessageBox;

namespace tessaly::core {
class TCommandLine;
}

namespace tessaly::app {

class TPSTViewerProjectData;

// Shows the main window for a parsed command line; returns the exit code.
using TWindowRunner = std::function<int(int argc, char** argv, TPSTViewerProjectData& projectData)>;

// Everything from the program's start to its exit code. A run that shows
// no window (an export, help, an error on a terminal) never loads the
// window's libraries; one that does calls runWindow.
int RunTessaly(int argc, char** argv, const TWindowRunner& runWindow);

// The window runner of the command-line program: the window program takes
// this process over with the same arguments. Returns only when it could not.
int RunWindowProgram(int argc, char** argv, TPSTViewerProjectData& projectData);

// Keys and parsing of the program's own command line.
void DefineCommandLineKeys(core::TCommandLine& commandLine);

// The message box that shows the error page of a failed command line.
std::unique_ptr<QMessageBox> CreateErrorPageBox(const QString& html);

} // namespace tessaly::app
