#include "app/StartUp.h"

#include <QLoggingCategory>

// The program people start. It links no window libraries, so that a
// command-line export starts at once; the window is a program of its own.
int main(int argc, char** argv)
{
    // A command-line run says what went wrong in its own words (and exit
    // code); the reader's log lines are for the window's stderr, or for
    // QT_LOGGING_RULES="tessaly.*=true". The window program, started in
    // place of this one, keeps them.
    QLoggingCategory::setFilterRules(QStringLiteral("tessaly.pst.open.warning=false"));
    return tessaly::app::RunTessaly(argc, argv, tessaly::app::WindowProgramHooks());
}
