#pragma once

// Export without a window: tessaly "FOLDER\" -pst FILE.pst -dest DIR
// [-format eml] [-filter "subject=...,attach=include"] [option keys].

#include "core/CommandLine.h"

#include <QList>
#include <cstdio>

namespace tessaly::pst {
class TPSTProjectData;
}

namespace tessaly::tasks {

// "dest", "format", "filter".
QList<core::TCommandKey> ExportCommandKeys();
bool IsExportRun(const core::TCommandLine& commandLine);
// An export that prints pages (-format pdf): the window program runs it.
bool ExportPrintsPages(const core::TCommandLine& commandLine);

// Runs the export; progress goes to err, the summary line to out. The exit
// status: 0 when every message was written or skipped by the filter, 1 when
// some failed, the command-line codes for a bad command line or source.
int RunCommandLineExport(const core::TCommandLine& commandLine, pst::TPSTProjectData& projectData,
    std::FILE* out = stdout, std::FILE* err = stderr);

} // namespace tessaly::tasks
