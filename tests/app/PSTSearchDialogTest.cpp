#include "app/PSTSearchDialog.h"

#include <QAction>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QListWidget>
#include <QPushButton>
#include <QStandardItem>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeView>
#include <gtest/gtest.h>

using namespace tessaly::app;

namespace {

QString MakeFolder(const QTemporaryDir& dir)
{
    QDir(dir.path()).mkpath(QStringLiteral("a/b"));
    for (const char* name : {"a/one.pst", "a/b/two.OST", "a/b/readme.txt", "three.pst"}) {
        QFile file(dir.filePath(QLatin1String(name)));
        file.open(QIODevice::WriteOnly);
    }
    return dir.path();
}

void WaitUntil(const std::function<bool()>& done)
{
    const QDeadlineTimer deadline(20000);
    while (!done() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
}

} // namespace

TEST(SearchDialog, ControlsAndASearch)
{
    QTemporaryDir dir;
    TPSTSearchDialog dialog;
    QStringList messages;
    dialog.ShowMessage = [&](const QString& text) { messages << text; };
    EXPECT_EQ(dialog.windowTitle(), QStringLiteral("Search Outlook data files"));
    EXPECT_EQ(dialog.StartButton()->text(), QStringLiteral("Start search"));
    EXPECT_TRUE(dialog.StartButton()->isDefault());
    EXPECT_EQ(dialog.StopButton()->text(), QStringLiteral("Stop"));
    EXPECT_EQ(dialog.CloseButton()->text(), QStringLiteral("&Close"));
    EXPECT_EQ(dialog.CheckAllAction()->text(), QStringLiteral("Check all"));
    EXPECT_EQ(dialog.UncheckAllAction()->text(), QStringLiteral("Uncheck all"));
    // Idle before any search.
    EXPECT_FALSE(dialog.StopButton()->isEnabled());
    EXPECT_FALSE(dialog.CheckAllAction()->isEnabled());
    EXPECT_TRUE(dialog.ProgressStrip()->isHidden());
    EXPECT_GE(dialog.DriveTree()->model()->rowCount(), 1); // at least the home folder

    dialog.SetChecked(dialog.AddRoot(MakeFolder(dir)), true);
    dialog.StartSearch();
    EXPECT_TRUE(dialog.StopButton()->isEnabled());
    EXPECT_FALSE(dialog.StartButton()->isEnabled());
    EXPECT_FALSE(dialog.ProgressStrip()->isHidden());
    WaitUntil([&] { return !messages.isEmpty(); });

    EXPECT_EQ(messages, QStringList{QStringLiteral("Search complete")});
    QStringList found = dialog.FoundFiles();
    found.sort();
    EXPECT_EQ(found, (QStringList{dir.filePath(QStringLiteral("a/b/two.OST")), dir.filePath(QStringLiteral("a/one.pst")),
                         dir.filePath(QStringLiteral("three.pst"))}));
    EXPECT_EQ(dialog.TickedFiles().size(), 3); // found files come ticked
    EXPECT_FALSE(dialog.StopButton()->isEnabled());
    EXPECT_TRUE(dialog.StartButton()->isEnabled());
    EXPECT_TRUE(dialog.ProgressStrip()->isHidden());
    EXPECT_TRUE(dialog.CheckAllAction()->isEnabled());

    dialog.UncheckAllAction()->trigger();
    EXPECT_TRUE(dialog.TickedFiles().isEmpty());
    dialog.FoundList()->item(1)->setCheckState(Qt::Checked);
    QStringList opened;
    QTimer::singleShot(0, &dialog, [&] { dialog.CloseButton()->click(); });
    EXPECT_TRUE(dialog.Open(opened));
    EXPECT_EQ(opened, QStringList{dialog.FoundList()->item(1)->text()});

    dialog.CheckAllAction()->trigger();
    EXPECT_EQ(dialog.TickedFiles(), dialog.FoundFiles());
}

TEST(SearchDialog, NothingTickedSearchesNothing)
{
    TPSTSearchDialog dialog;
    QStringList messages;
    dialog.ShowMessage = [&](const QString& text) { messages << text; };
    dialog.DriveTree()->setCurrentIndex({});
    dialog.StartSearch();
    WaitUntil([&] { return !messages.isEmpty(); });
    EXPECT_EQ(messages, QStringList{QStringLiteral("Search complete")});
    EXPECT_TRUE(dialog.FoundFiles().isEmpty());
    // Closing with nothing ticked opens nothing.
    QStringList opened;
    QTimer::singleShot(0, &dialog, [&] { dialog.reject(); });
    EXPECT_FALSE(dialog.Open(opened));
    EXPECT_TRUE(opened.isEmpty());
}

TEST(SearchDialog, ClosingStopsTheSearch)
{
    TPSTSearchDialog dialog;
    dialog.ShowMessage = [](const QString&) {};
    dialog.SetChecked(dialog.AddRoot(QStringLiteral("/usr")), true);
    dialog.StartSearch();
    EXPECT_TRUE(dialog.Search().Running());
    dialog.reject();
    EXPECT_FALSE(dialog.Search().Running());
    EXPECT_TRUE(dialog.StartButton()->isEnabled());
}
