// The GUI tests run inside the program's own application object.

#include "app/MailInfoFrame.h"
#include "app/TessalyApplication.h"
#include "app/WindowStart.h"

#include <QStandardPaths>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    QStandardPaths::setTestModeEnabled(true);
    // Widgets are tested on the offscreen platform unless told otherwise.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QTWEBENGINE_CHROMIUM_FLAGS", "--no-sandbox");
    tessaly::app::RegisterPreviewSchemes();
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    tessaly::app::TTessalyApplication app(argc, argv);
    // PDF pages printed as the window program prints them.
    tessaly::tasks::SetPagePrinter(tessaly::app::WindowPagePrinter());
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
