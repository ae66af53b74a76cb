#pragma once

#include <QString>
#include <QStringList>
#include <memory>

class QMessageBox;

namespace tessaly::core {
class TCommandLine;
}

namespace tessaly::app {

// Everything from the program's start to its exit code.
int RunTessaly(int argc, char** argv);

// Keys and parsing of the program's own command line.
void DefineCommandLineKeys(core::TCommandLine& commandLine);

// The message box that shows the error page of a failed command line.
std::unique_ptr<QMessageBox> CreateErrorPageBox(const QString& html);

} // namespace tessaly::app
