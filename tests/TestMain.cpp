#include <QStandardPaths>
#include <gtest/gtest.h>

#ifdef TESSALY_TEST_PICTURES
#include "mail/Pictures.h"
#endif

#ifdef TESSALY_TEST_GUI
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QCoreApplication>
using TestApplication = QCoreApplication;
#endif

int main(int argc, char** argv)
{
    // Dates in the tests' expectations are taken in UTC.
    qputenv("TZ", "UTC");
    // Keeps tests away from the user's own settings and data.
    QStandardPaths::setTestModeEnabled(true);
    // Widgets are tested on the offscreen platform unless told otherwise.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    TestApplication app(argc, argv);
    TestApplication::setOrganizationName(QStringLiteral("Halvorne"));
    TestApplication::setApplicationName(QStringLiteral("Tessaly"));
#ifdef TESSALY_TEST_PICTURES
    tessaly::mail::UseQtPictures();
#endif
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
