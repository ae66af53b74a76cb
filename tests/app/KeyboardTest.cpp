// The window from the keyboard: Tab and F6 between the panes, the search
// box and the find bar, Enter for a message window that Esc and Ctrl+W
// close, and a key shown for every command of the menus.

#include "AppTestUtil.h"
#include "app/MailBrowseFrame.h"
#include "app/MailInfoFrame.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QPointer>
#include <QTabWidget>
#include <QTest>
#include <QTreeView>
#include <QWebEngineView>

using namespace tessaly;
using namespace tessaly::app;
using tessaly::test::MainFormTest;
using tessaly::test::TestData;

namespace {

// The pane a widget with the focus belongs to, by its place in the list.
bool Holds(QWidget* pane, QWidget* focus)
{
    for (; focus; focus = focus->parentWidget())
        if (focus == pane)
            return true;
    return false;
}

void WaitFor(const std::function<bool()>& done, int ms)
{
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
}

// Shown and active, so that the window's keys reach it (on a desktop with
// or without a window manager).
void ShowActive(QWidget& window)
{
    window.show();
    window.raise();
    window.activateWindow();
    QApplication::setActiveWindow(&window);
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
}

QList<TMessageForm*> MessageWindows()
{
    QList<TMessageForm*> windows;
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (auto* form = dynamic_cast<TMessageForm*>(widget); form && form->isVisible())
            windows << form;
    return windows;
}

// enron.pst loaded into the window, shown and active, its list holding rows.
void OpenEnronShown(TPSTMainForm& form)
{
    form.OpenFiles(TestData(QStringLiteral("pst/enron.pst")));
    ASSERT_TRUE(form.WaitLoaded(30000));
    ShowActive(form);
    ASSERT_GT(form.MailBrowse()->View()->model()->rowCount(), 0);
}

} // namespace

TEST_F(MainFormTest, TabAndF6MoveBetweenThePanes)
{
    auto& form = Form();
    OpenEnronShown(form);
    ASSERT_FALSE(HasFatalFailure());
    QTreeView* list = form.MailBrowse()->View();
    const auto focus = [] { return QApplication::focusWidget(); };

    form.Tree()->setFocus();
    QTest::keyClick(form.Tree(), Qt::Key_Tab);
    EXPECT_EQ(focus(), list);
    QTest::keyClick(focus(), Qt::Key_Tab);
    EXPECT_TRUE(Holds(form.InfoFrame(), focus())) << (focus() ? focus()->metaObject()->className() : "none");
    QTest::keyClick(focus(), Qt::Key_Backtab);
    EXPECT_EQ(focus(), list);
    QTest::keyClick(focus(), Qt::Key_Backtab);
    EXPECT_EQ(focus(), form.Tree());

    // F6 round the three panes and back with Shift+F6.
    QTest::keyClick(focus(), Qt::Key_F6);
    EXPECT_EQ(focus(), list);
    EXPECT_EQ(form.FocusedPane(), 1);
    QTest::keyClick(focus(), Qt::Key_F6);
    EXPECT_EQ(form.FocusedPane(), 2);
    EXPECT_TRUE(Holds(form.InfoFrame(), focus()));
    QTest::keyClick(focus(), Qt::Key_F6);
    EXPECT_EQ(focus(), form.Tree());
    QTest::keyClick(focus(), Qt::Key_F6, Qt::ShiftModifier);
    EXPECT_EQ(form.FocusedPane(), 2);

    // Ctrl+K: the search box of the list on show; F6 from there goes on
    // from the list's pane.
    QTest::keyClick(focus(), Qt::Key_K, Qt::ControlModifier);
    EXPECT_EQ(focus(), form.MailBrowse()->SearchBox());
    EXPECT_EQ(form.FocusedPane(), 1);
    QTest::keyClick(focus(), Qt::Key_F6);
    EXPECT_EQ(form.FocusedPane(), 2);
}

TEST_F(MainFormTest, EnterOpensTheMessageInAWindowThatEscAndCtrlWClose)
{
    auto& form = Form();
    OpenEnronShown(form);
    ASSERT_FALSE(HasFatalFailure());
    QTreeView* list = form.MailBrowse()->View();
    list->setFocus();
    list->setCurrentIndex(list->model()->index(0, 1));
    const auto message = form.MailBrowse()->CurrentMessage();
    ASSERT_NE(message, nullptr);

    // Enter opens the window that Esc closes; a double-click on a row opens
    // the one that Ctrl+W closes.
    for (const auto& close : {QKeyCombination(Qt::Key_Escape), QKeyCombination(Qt::ControlModifier, Qt::Key_W)}) {
        if (close.key() == Qt::Key_Escape)
            QTest::keyClick(list, Qt::Key_Return);
        else
            emit list->doubleClicked(list->model()->index(0, 2));
        QList<TMessageForm*> windows = MessageWindows();
        ASSERT_EQ(windows.size(), 1);
        QPointer<TMessageForm> window = windows.front();
        EXPECT_TRUE(window->Loaded());
        EXPECT_EQ(window->windowTitle(), message->Subject() + QStringLiteral(" - Tessaly"));
        ASSERT_NE(window->InfoFrame()->Message(), nullptr);
        EXPECT_EQ(window->InfoFrame()->Message()->Body(mail::mbtText), message->Body(mail::mbtText));
        QApplication::setActiveWindow(window);
        ASSERT_TRUE(QTest::qWaitForWindowActive(window));
        QTest::keyClick(window, close.key(), close.keyboardModifiers());
        WaitFor([&] { return window.isNull(); }, 5000);
        EXPECT_TRUE(window.isNull()); // closed and deleted
    }
    // A double-click on the check box ticks; it opens nothing.
    emit list->doubleClicked(list->model()->index(0, 0));
    EXPECT_TRUE(MessageWindows().isEmpty());
}

TEST_F(MainFormTest, FindBarFindsTextInTheShownMessage)
{
    auto& form = Form();
    OpenEnronShown(form);
    ASSERT_FALSE(HasFatalFailure());
    QTreeView* list = form.MailBrowse()->View();
    // A message with a text body, shown in the preview.
    std::shared_ptr<mail::IMailMessage> message;
    for (int row = 0; row < list->model()->rowCount() && !message; ++row) {
        list->setCurrentIndex(list->model()->index(row, 1));
        const auto candidate = form.MailBrowse()->CurrentMessage();
        if (candidate && candidate->Body(mail::mbtText).simplified().size() > 40)
            message = candidate;
    }
    ASSERT_NE(message, nullptr);
    TMailInfoFrame* info = form.InfoFrame();
    bool loaded = false;
    QObject::connect(info->BodyView(), &QWebEngineView::loadFinished, [&] { loaded = true; });
    info->Navigate(message);
    const QString body = message->Body(mail::mbtText).simplified();
    const QString word = body.section(QLatin1Char(' '), 2, 2);
    ASSERT_FALSE(word.isEmpty());

    // In the text tab: the match is selected; text that is not there says so.
    info->Tabs()->setCurrentWidget(info->TextView());
    ShowActive(form); // the page's loading may have taken the activation (X without a window manager)
    list->setFocus();
    QTest::keyClick(list, Qt::Key_F, Qt::ControlModifier);
    ASSERT_TRUE(info->FindBar()->isVisible());
    EXPECT_EQ(QApplication::focusWidget(), info->FindEdit());
    QTest::keyClicks(info->FindEdit(), word);
    EXPECT_EQ(info->TextView()->textCursor().selectedText().toLower(), word.toLower());
    EXPECT_EQ(info->FindStatus()->text(), QString());
    const int first = info->TextView()->textCursor().selectionStart();
    QTest::keyClick(info->FindEdit(), Qt::Key_Return);
    QTest::keyClick(info->FindEdit(), Qt::Key_Return, Qt::ShiftModifier);
    EXPECT_EQ(info->TextView()->textCursor().selectionStart(), first); // there and back
    QTest::keyClicks(info->FindEdit(), QStringLiteral("qqzzxq"));
    EXPECT_EQ(info->FindStatus()->text(), QStringLiteral("Not found"));

    // In the HTML tab the page counts its matches.
    info->Tabs()->setCurrentIndex(0);
    WaitFor([&] { return loaded; }, 20000);
    ASSERT_TRUE(loaded);
    info->FindEdit()->setText(word);
    info->FindNext();
    WaitFor([&] { return info->FindStatus()->text().contains(QStringLiteral(" of ")); }, 20000);
    EXPECT_TRUE(info->FindStatus()->text().startsWith(QStringLiteral("1 of "))) << info->FindStatus()->text().toStdString();

    // Esc closes the bar, not the window.
    QTest::keyClick(info->FindEdit(), Qt::Key_Escape);
    EXPECT_FALSE(info->FindBar()->isVisible());
    EXPECT_TRUE(form.isVisible());
}

TEST_F(MainFormTest, EveryMenuCommandShowsItsKey)
{
    auto& form = Form();
    QStringList missing;
    std::function<void(QMenu*)> walk = [&](QMenu* menu) {
        for (QAction* action : menu->actions()) {
            if (action->isSeparator() || !action->isVisible())
                continue;
            if (action->menu()) {
                walk(action->menu());
                continue;
            }
            if (action->shortcut().isEmpty())
                missing << menu->title() + QStringLiteral(" > ") + action->text();
        }
    };
    for (QAction* top : form.menuBar()->actions())
        if (top->menu())
            walk(top->menu());
    EXPECT_GE(form.menuBar()->actions().size(), 3);
    EXPECT_TRUE(missing.isEmpty()) << missing.join(QStringLiteral(", ")).toStdString();
    // The list's and the tree's pop-up menus show their keys too.
    for (QMenu* popup : {form.MailBrowse()->PopupMenu(), form.TreeMenu()})
        for (QAction* action : popup->actions())
            if (!action->isSeparator() && !action->menu() && !action->shortcut().isEmpty())
                EXPECT_TRUE(action->isShortcutVisibleInContextMenu()) << action->text().toStdString();
    EXPECT_EQ(form.RemoveAction()->shortcut(), QKeySequence(QKeySequence::Delete));
}
