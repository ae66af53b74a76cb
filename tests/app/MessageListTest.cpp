#include "AppTestUtil.h"
#include "MemoryMailStore.h"
#include "app/CheckedEntries.h"
#include "core/MessageBus.h"
#include "mail/MailTestObjects.h"

#include <QAction>
#include <QCheckBox>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QLineEdit>
#include <QSpinBox>
#include <QTest>
#include <QTimer>
#include <QTreeView>

using namespace tessaly;
using namespace tessaly::app;
using namespace tessaly::test;

namespace {

std::shared_ptr<mail::IMailMessage> Numbered(int row)
{
    auto message = std::make_shared<TTestMessage>();
    message->subject = QStringLiteral("Subject %1").arg(row + 1);
    message->sender = std::make_shared<mail::TMailRecipient>(QStringLiteral("Sender %1").arg(row % 7), QStringLiteral("s@x.org"));
    message->recipients[mail::mrtTo] = Recipients({{QStringLiteral("Reader <&>"), QStringLiteral("r@x.org")}});
    message->uid = QString::number(row + 1);
    return message;
}

void Wait(int ms)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

std::vector<int> VisibleStoreRows(const TMailBrowseFrame& frame)
{
    std::vector<int> rows;
    for (int view = 0; view < frame.Model()->rowCount(); ++view)
        rows.push_back(frame.Model()->StoreRow(view));
    return rows;
}

} // namespace

TEST(MessageList, OnlyARowThatKeepsTheFocusIsPreviewed)
{
    TMemoryMailStore store(20, Numbered);
    TMemoryBrowseFrame frame;
    frame.Show(&store);
    QStringList previewed;
    frame.OnFocusMessage = [&](std::shared_ptr<mail::IMailMessage> message) {
        previewed << (message ? message->Subject() : QStringLiteral("none"));
    };
    Wait(600); // the reset's own focus change settles first
    previewed.clear();
    for (int row : {0, 1, 2, 3}) {
        frame.View()->setCurrentIndex(frame.Model()->index(row, 1));
        Wait(100);
    }
    EXPECT_TRUE(previewed.isEmpty());
    Wait(550);
    EXPECT_EQ(previewed, QStringList{QStringLiteral("Subject 4")});
    EXPECT_FALSE(frame.FocusTimer()->isActive());
}

TEST(MessageList, RowsAreReadOnlyWhenShown)
{
    TMemoryMailStore store(100000, Numbered);
    TMemoryBrowseFrame frame;
    frame.resize(800, 400);
    frame.Show(&store);
    frame.show();
    QCoreApplication::processEvents();
    EXPECT_EQ(frame.Model()->rowCount(), 100000);
    EXPECT_LT(frame.Model()->RowsRead(), 200);
    frame.View()->scrollToBottom();
    QCoreApplication::processEvents();
    EXPECT_LT(frame.Model()->RowsRead(), 400);
    EXPECT_EQ(frame.Model()->Text(99999, 2), QStringLiteral("Subject 100000"));
}

TEST(MessageList, CheckRangeWithFromAboveToIsSwapped)
{
    TMemoryMailStore store(10, Numbered);
    TMemoryBrowseFrame frame;
    frame.Show(&store);
    frame.CheckRange(6, 3, false);
    EXPECT_EQ(frame.CheckedRows(), (std::vector<int>{2, 3, 4, 5}));
    frame.CheckRange(5, 4, true);
    EXPECT_EQ(frame.CheckedRows(), (std::vector<int>{2, 5}));

    // The dialog starts at the focused row and at the last "to"; from above
    // to is swapped before it is shown.
    TCheckRangeDialog dialog(9, 2, 10);
    EXPECT_EQ(dialog.windowTitle(), QStringLiteral("Check range"));
    EXPECT_EQ(dialog.From(), 2);
    EXPECT_EQ(dialog.To(), 9);

    frame.View()->setCurrentIndex(frame.Model()->index(7, 0));
    int shownFrom = 0, shownTo = 0;
    frame.ExecDialog = [&](QDialog& d) {
        auto& range = static_cast<TCheckRangeDialog&>(d);
        shownFrom = range.From();
        shownTo = range.To();
        range.FromBox()->setValue(10);
        range.ToBox()->setValue(9);
        return int(QDialog::Accepted);
    };
    frame.CheckRangeAction()->trigger();
    EXPECT_EQ(shownFrom, 5); // focused row 8, last "to" 5
    EXPECT_EQ(shownTo, 8);
    EXPECT_EQ(frame.CheckedRows(), (std::vector<int>{2, 5, 8, 9}));

    // Cancel changes nothing.
    frame.ExecDialog = [](QDialog& d) {
        static_cast<TCheckRangeDialog&>(d).UncheckBox()->setChecked(true);
        return int(QDialog::Rejected);
    };
    frame.CheckRangeAction()->trigger();
    EXPECT_EQ(frame.CheckedRows(), (std::vector<int>{2, 5, 8, 9}));
}

TEST(MessageList, SearchAndFilterHideRows)
{
    TMemoryMailStore store(30, Numbered);
    TMemoryBrowseFrame frame;
    frame.Show(&store);
    tasks::TMailFilter filter;
    filter.Enabled = true;
    filter.Subject = QStringLiteral("Subject 1"); // 1, 10..19
    frame.SetFilter(filter);
    EXPECT_EQ(frame.Model()->rowCount(), 11);

    frame.SearchBox()->setText(QStringLiteral("no such text"));
    EXPECT_TRUE(frame.SearchTimer()->isActive());
    EXPECT_EQ(frame.SearchTimer()->interval(), 400);
    Wait(450);
    EXPECT_EQ(frame.Model()->rowCount(), 0);

    // Matched through the sender and the recipients too.
    frame.SearchBox()->setText(QStringLiteral("sender 3"));
    Wait(450);
    EXPECT_EQ(VisibleStoreRows(frame), (std::vector<int>{10, 17})); // subjects 11 and 18
    frame.SearchBox()->setText(QStringLiteral("reader <&"));
    Wait(450);
    EXPECT_EQ(frame.Model()->rowCount(), 11);

    frame.SearchBox()->clear();
    Wait(450);
    EXPECT_EQ(frame.Model()->rowCount(), 11); // what the filter accepts
    frame.SetFilter({});
    EXPECT_EQ(frame.Model()->rowCount(), 30);
}

TEST(MessageList, CommandsAndHiddenCommands)
{
    TMemoryMailStore store(5, Numbered);
    TMemoryBrowseFrame frame;
    frame.Show(&store);
    EXPECT_EQ(frame.CheckAllAction()->text(), QStringLiteral("Check All"));
    EXPECT_EQ(frame.CheckAllAction()->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_A));
    EXPECT_EQ(frame.SearchBox()->placeholderText(), QStringLiteral("Search..."));
    QStringList hidden;
    for (QAction* action : frame.HiddenActions()) {
        EXPECT_FALSE(action->isVisible());
        hidden << action->text();
    }
    EXPECT_EQ(hidden, (QStringList{QStringLiteral("Check by mask..."), QStringLiteral("Restore last selection"),
                          QStringLiteral("Move up"), QStringLiteral("Move down")}));
    frame.CheckAllAction()->trigger();
    EXPECT_EQ(frame.CheckedRows().size(), 5u);
    frame.UncheckAllAction()->trigger();
    EXPECT_TRUE(frame.CheckedRows().empty());

    // Check to here: from the focused row to the row under the menu.
    frame.View()->setCurrentIndex(frame.Model()->index(3, 0));
    frame.CheckToHere(1);
    EXPECT_EQ(frame.CheckedRows(), (std::vector<int>{1, 2, 3}));

    // Columns hidden through the header menu come back from the settings.
    QTemporaryDir dir;
    core::TSettingsStore settings(dir.filePath(QStringLiteral("s.ini")));
    frame.View()->header()->setSectionHidden(1, true);
    frame.Save(settings);
    TMemoryBrowseFrame other;
    other.Load(settings);
    other.Show(&store);
    EXPECT_TRUE(other.View()->header()->isSectionHidden(1));
    EXPECT_FALSE(other.View()->header()->isSectionHidden(2));
}

TEST_F(MainFormTest, TickedRowsAreAnnouncedAndShownAgain)
{
    auto& form = Form();
    form.OpenFiles(TestData(QStringLiteral("pst/enron.pst")));
    ASSERT_TRUE(form.WaitLoaded(30000));
    TPSTBrowseFrame& list = *form.MailBrowse();
    ASSERT_GT(list.Model()->rowCount(), 0);
    int announced = 0;
    QObject receiver;
    core::TMessageBus::Instance().Subscribe(&receiver, core::Topic::FileChecked, core::TMessageBus::THandler([&](const QVariant& data) {
        EXPECT_TRUE(data.value<TFileCheckNotice>().Checked);
        ++announced;
    }));
    list.CheckAll(true);
    EXPECT_EQ(announced, list.Model()->rowCount());
    const auto entries = core::TMessageBus::Instance().Request(core::Topic::FileCheckRequest).value<TFileCheckList>();
    EXPECT_EQ(entries.size(), list.Model()->rowCount());

    pst::TPSTFolder* folder = list.Folder();
    list.Navigate(QStringLiteral("x\\"), nullptr);
    EXPECT_TRUE(list.CheckedRows().empty());
    list.Navigate(QStringLiteral("back\\"), folder);
    EXPECT_EQ(int(list.CheckedRows().size()), list.Model()->rowCount());
}

TEST_F(MainFormTest, WhollyTickedFileShowsNoCheckBoxes)
{
    auto& form = Form();
    form.OpenFiles(TestData(QStringLiteral("pst/enron.pst")));
    ASSERT_TRUE(form.WaitLoaded(30000));
    TPSTBrowseFrame& list = *form.MailBrowse();
    const QModelIndex first = list.Model()->index(0, 0);
    EXPECT_TRUE(list.Model()->flags(first) & Qt::ItemIsUserCheckable);
    core::TMessageBus::Instance().Publish(core::Topic::PstFileChecked, QVariant::fromValue(TPSTFileCheck{list.CurrentFile(), true}));
    EXPECT_FALSE(list.Model()->flags(first) & Qt::ItemIsUserCheckable);
    EXPECT_FALSE(list.Model()->data(first, Qt::CheckStateRole).isValid());
    for (QAction* action : {list.CheckAction(), list.UncheckAction(), list.CheckAllAction(), list.UncheckAllAction(), list.CheckRangeAction()})
        EXPECT_FALSE(action->isEnabled()) << action->text().toStdString();
    list.CheckAll(true);
    EXPECT_TRUE(list.CheckedRows().empty());
    core::TMessageBus::Instance().Publish(core::Topic::PstFileChecked, QVariant::fromValue(TPSTFileCheck{list.CurrentFile(), false}));
    EXPECT_TRUE(list.CheckAllAction()->isEnabled());
}

// Sorting reads the rows in slices between the window's events and orders
// them on a worker: the window answers meanwhile, the list says it is busy,
// and the rows end in the new order. A second sort supersedes the first.
TEST(MessageList, SortingLetsTheWindowRunAndEndsInOrder)
{
    TMemoryMailStore store(20000, Numbered);
    TMemoryBrowseFrame frame;
    frame.Show(&store);
    TMailListModel* model = frame.Model();
    std::vector<bool> busy;
    const auto keep = model->OnBusyChanged;
    model->OnBusyChanged = [&] {
        busy.push_back(model->Sorting());
        keep();
    };
    int ticks = 0;
    QTimer tick;
    tick.setInterval(1);
    QObject::connect(&tick, &QTimer::timeout, [&] { ++ticks; });
    tick.start();

    model->sort(2, Qt::AscendingOrder); // subject: superseded below
    ASSERT_TRUE(model->Sorting());
    EXPECT_EQ(frame.View()->viewport()->cursor().shape(), Qt::BusyCursor);
    model->sort(2, Qt::DescendingOrder);
    model->WaitIdle();
    tick.stop();

    EXPECT_FALSE(model->Sorting());
    EXPECT_NE(frame.View()->viewport()->cursor().shape(), Qt::BusyCursor);
    EXPECT_EQ(busy, (std::vector<bool>{true, false}));
    EXPECT_GT(ticks, 0) << "the window's events waited for the whole sort";
    ASSERT_EQ(model->rowCount(), 20000);
    for (int view = 1; view < model->rowCount(); ++view)
        ASSERT_GE(QString::compare(model->Text(model->StoreRow(view - 1), 2), model->Text(model->StoreRow(view), 2),
                      Qt::CaseInsensitive),
            0)
            << view;
    EXPECT_EQ(model->Text(model->StoreRow(0), 2), QStringLiteral("Subject 9999"));
}

// A folder shown while a sort runs is not reordered by that sort.
TEST(MessageList, ANewStoreEndsTheSortOfTheOldOne)
{
    TMemoryMailStore first(20000, Numbered), second(3, Numbered);
    TMemoryBrowseFrame frame;
    frame.Show(&first);
    frame.Model()->sort(2, Qt::DescendingOrder);
    ASSERT_TRUE(frame.Model()->Sorting());
    frame.Show(&second);
    EXPECT_FALSE(frame.Model()->Sorting());
    Wait(300);
    EXPECT_EQ(VisibleStoreRows(frame), (std::vector<int>{0, 1, 2}));
}
