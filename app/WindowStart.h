#pragma once

namespace tessaly::app {

class TPSTViewerProjectData;

// The main window for the parsed command line: the data file it names, or
// the files of the last run; message files named open in windows of their
// own. Returns when the last window closes, with the exit code.
int RunWindow(int argc, char** argv, TPSTViewerProjectData& projectData);

} // namespace tessaly::app
