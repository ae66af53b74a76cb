#pragma once

#include <QString>
#include <QStringList>
#include <functional>

namespace tessaly::core {
class TCommandLine;
}

namespace tessaly::app {

class TPSTViewerProjectData;

// What a run does when it needs windows; each returns the exit code.
struct TWindowHooks {
    // The main window for the parsed command line.
    std::function<int(int argc, char** argv, TPSTViewerProjectData& projectData)> RunWindow;
    // The error page of a command line that failed with `code`, in a window.
    std::function<int(int argc, char** argv, int code, const QString& page)> ShowErrorPage;
    // An export that prints pages (PDF): run where the browser engine is.
    std::function<int(int argc, char** argv, TPSTViewerProjectData& projectData)> RunPrintingExport;
};

// Everything from the program's start to its exit code. A run that shows
// no window (an export, help, an error on a terminal) never loads the
// window's libraries; one that does goes to the hooks.
int RunTessaly(int argc, char** argv, const TWindowHooks& hooks);

// The hooks of the command-line program: the window program takes this
// process over with the same arguments, and does what they ask.
TWindowHooks WindowProgramHooks();

// Organisation and application name, which place the settings and the crash
// log. Set before anything else, with or without an application object.
void SetApplicationIdentity();

// Keys and parsing of the program's own command line.
void DefineCommandLineKeys(core::TCommandLine& commandLine);

} // namespace tessaly::app
