#pragma once

#include <QString>

namespace tessaly::platform {

// The folder that holds the running program's file, or empty when the
// system cannot say.
QString ProgramFolder();

// Runs `program` in place of this process, with the arguments of argv
// (argv[0] included, ended by a null pointer) and the same standard streams
// and environment. Returns only when that failed, with the reason.
QString ReplaceProcess(const QString& program, char** argv);

} // namespace tessaly::platform
