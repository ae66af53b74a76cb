// The message list stays responsive: large folders are sorted and filtered
// while the window goes on answering, the status bar says how many rows a
// filter leaves, the preview lets go of a message filtered out, and the
// first window fits its screen.

#include "AppTestUtil.h"
#include "MemoryMailStore.h"
#include "app/MailInfoFrame.h"
#include "app/WindowGeometry.h"
#include "mail/MailTestObjects.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QRegularExpression>
#include <QScreen>
#include <QStatusBar>
#include <QTimer>
#include <QTreeView>
#include <algorithm>
#include <numeric>

using namespace tessaly;
using namespace tessaly::app;
using namespace tessaly::test;

namespace {

// Reading a row of a data file costs 0.25 to 0.75 ms; these rows cost
// 0.1 ms each, spent on the thread that reads them.
constexpr int SlowRowMicroseconds = 100;

QString SenderOf(int row)
{
    // Seven senders, in both cases: sorting ignores case and keeps ties.
    return (row % 2 ? QStringLiteral("sender %1") : QStringLiteral("Sender %1")).arg(row % 7);
}

QString SubjectOf(int row)
{
    return QStringLiteral("Report %1").arg((row * 7919) % 10007);
}

std::shared_ptr<mail::IMailMessage> Slow(int row)
{
    QElapsedTimer spent;
    spent.start();
    while (spent.nsecsElapsed() < SlowRowMicroseconds * 1000) {
    }
    auto message = std::make_shared<TTestMessage>();
    message->subject = SubjectOf(row);
    message->sender = std::make_shared<mail::TMailRecipient>(SenderOf(row), QStringLiteral("s@x.org"));
    return message;
}

std::vector<int> ShownRows(const TMailListModel& model)
{
    std::vector<int> rows;
    for (int view = 0; view < model.rowCount(); ++view)
        rows.push_back(model.StoreRow(view));
    return rows;
}

// The longest the window's thread goes without running a 1 ms timer.
class TStallProbe {
public:
    TStallProbe()
    {
        m_timer.setInterval(1);
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            m_longest = std::max(m_longest, m_tick.restart());
            ++m_ticks;
        });
        m_tick.start();
        m_timer.start();
    }
    qint64 Longest() const { return std::max(m_longest, m_tick.elapsed()); }
    int Ticks() const { return m_ticks; }

private:
    QTimer m_timer;
    QElapsedTimer m_tick;
    qint64 m_longest = 0;
    int m_ticks = 0;
};

void Wait(int ms)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

} // namespace

// 10,000 rows that take a second to read are sorted while the window goes
// on: its longest wait is a slice of reading (10 ms) plus scheduling, far
// below the second the reading takes; 150 ms leaves room for a loaded
// machine. The order is that of a stable sort of the same keys, and a
// second sort supersedes the first.
TEST(ResponsiveList, SortOfTenThousandRowsKeepsTheWindowAnswering)
{
    constexpr int Rows = 10000;
    TMemoryMailStore store(Rows, Slow);
    TMemoryBrowseFrame frame;
    frame.Show(&store);
    TMailListModel& model = *frame.Model();
    int busyChanges = 0;
    const auto keep = model.OnBusyChanged;
    model.OnBusyChanged = [&] {
        ++busyChanges;
        keep();
    };

    QElapsedTimer total;
    total.start();
    TStallProbe probe;
    model.sort(2, Qt::AscendingOrder); // subject, superseded at once
    ASSERT_TRUE(model.Sorting());
    EXPECT_EQ(frame.BusyText(), QStringLiteral("Sorting…"));
    EXPECT_FALSE(frame.BusyMark()->isHidden());
    EXPECT_EQ(frame.View()->viewport()->cursor().shape(), Qt::BusyCursor);
    model.sort(1, Qt::DescendingOrder); // sender
    model.WaitIdle();
    const qint64 totalMs = total.elapsed();

    ASSERT_GE(totalMs, Rows * SlowRowMicroseconds / 1000) << "the rows were read at their cost";
    EXPECT_LT(probe.Longest(), 150) << "of " << totalMs << " ms";
    EXPECT_GT(probe.Ticks(), 10);
    EXPECT_EQ(busyChanges, 2); // busy once, idle once
    EXPECT_TRUE(frame.BusyText().isEmpty());
    EXPECT_TRUE(frame.BusyMark()->isHidden());
    EXPECT_NE(frame.View()->viewport()->cursor().shape(), Qt::BusyCursor);

    std::vector<int> expected(Rows);
    std::iota(expected.begin(), expected.end(), 0);
    std::stable_sort(expected.begin(), expected.end(), [](int a, int b) {
        return QString::compare(SenderOf(a), SenderOf(b), Qt::CaseInsensitive) > 0;
    });
    EXPECT_EQ(ShownRows(model), expected);

    // Sorting again reads nothing new: the keys are kept, the order of
    // equal keys is the one shown.
    const int made = store.made;
    model.sort(2, Qt::AscendingOrder);
    model.WaitIdle();
    EXPECT_EQ(store.made, made);
    std::stable_sort(expected.begin(), expected.end(), [](int a, int b) {
        return QString::compare(SubjectOf(a), SubjectOf(b), Qt::CaseInsensitive) < 0;
    });
    EXPECT_EQ(ShownRows(model), expected);
}

// The search box filters 10,000 rows the same way: the window answers, the
// list says it is filtering, a newer text supersedes an older one, and the
// rows keep the sorted order.
TEST(ResponsiveList, FilterOfTenThousandRowsKeepsTheWindowAnswering)
{
    constexpr int Rows = 10000;
    TMemoryMailStore store(Rows, Slow);
    TMemoryBrowseFrame frame;
    frame.Show(&store);
    TMailListModel& model = *frame.Model();
    int applied = 0;
    QObject::connect(&model, &QAbstractItemModel::layoutChanged, [&] { ++applied; });

    TStallProbe probe;
    frame.SearchBox()->setText(QStringLiteral("report 1"));
    frame.SearchTimer()->stop();
    model.FilterRows(QStringLiteral("report 1"));
    ASSERT_TRUE(model.Filtering());
    EXPECT_EQ(frame.BusyText(), QStringLiteral("Filtering…"));
    frame.SearchBox()->setText(QStringLiteral("sender 3"));
    frame.SearchTimer()->stop();
    frame.Refilter(); // supersedes "report 1"
    model.WaitIdle();

    EXPECT_LT(probe.Longest(), 150);
    EXPECT_EQ(applied, 1) << "the superseded filter was not applied";
    std::vector<int> expected;
    for (int row = 0; row < Rows; ++row)
        if (row % 7 == 3)
            expected.push_back(row);
    EXPECT_EQ(ShownRows(model), expected);
    EXPECT_EQ(frame.CountText(), QStringLiteral("%1 of 10000").arg(expected.size()));

    // A sort while filtered keeps the filter; a filter after the sort keeps
    // the order.
    model.sort(2, Qt::DescendingOrder);
    model.WaitIdle();
    EXPECT_EQ(model.rowCount(), int(expected.size()));
    model.FilterRows(QStringLiteral("report 2"));
    model.WaitIdle();
    ASSERT_GT(model.rowCount(), 1);
    for (int view = 1; view < model.rowCount(); ++view) {
        ASSERT_GE(QString::compare(SubjectOf(model.StoreRow(view - 1)), SubjectOf(model.StoreRow(view))), 0);
        ASSERT_TRUE(SubjectOf(model.StoreRow(view)).contains(QLatin1String("Report 2")));
    }

    model.FilterRows({});
    EXPECT_FALSE(model.Filtering());
    EXPECT_EQ(model.rowCount(), Rows);
    EXPECT_TRUE(frame.CountText().isEmpty());
}

// The preview lets go of its message as soon as a filter hides the row,
// and keeps it while the row stays shown.
TEST(ResponsiveList, PreviewOfARowFilteredOutIsCleared)
{
    TMemoryMailStore store(40, [](int row) {
        auto message = std::make_shared<TTestMessage>();
        message->subject = QStringLiteral("Subject %1").arg(row);
        return message;
    });
    TMemoryBrowseFrame frame;
    frame.Show(&store);
    QStringList previewed;
    frame.OnFocusMessage = [&](std::shared_ptr<mail::IMailMessage> message) {
        previewed << (message ? message->Subject() : QStringLiteral("none"));
    };
    Wait(550);
    frame.View()->setCurrentIndex(frame.Model()->index(12, 1));
    Wait(550);
    ASSERT_EQ(previewed.last(), QStringLiteral("Subject 12"));
    previewed.clear();

    frame.SearchBox()->setText(QStringLiteral("subject 1"));
    frame.SearchTimer()->stop();
    frame.Refilter();
    EXPECT_TRUE(previewed.isEmpty()) << "the row is still shown";
    frame.SearchBox()->setText(QStringLiteral("subject 3"));
    frame.SearchTimer()->stop();
    frame.Refilter();
    EXPECT_EQ(previewed, QStringList{QStringLiteral("none")}) << "cleared at once, not after the focus timer";
    Wait(550);
    EXPECT_EQ(previewed, QStringList{QStringLiteral("none")});
}

// In the window: the status bar says "N of M" while the search box narrows
// the list, and the item count again once it is cleared; the preview pane
// empties when its message is filtered out.
TEST_F(MainFormTest, StatusBarCountsTheRowsAFilterLeaves)
{
    auto& form = Form();
    form.OpenFiles(TestData(QStringLiteral("pst/enron.pst")));
    ASSERT_TRUE(form.WaitLoaded(30000));
    // The mail folder with the most items.
    const TPSTNode* fullest = nullptr;
    std::function<void(const TPSTNode&)> walk = [&](const TPSTNode& node) {
        for (const auto& child : node.Children) {
            if (child->Folder && ListKindOf(child->Folder) == lkMail && (!fullest || child->ItemCount > fullest->ItemCount))
                fullest = child.get();
            walk(*child);
        }
    };
    walk(*form.TreeModel()->FileNodes().front());
    ASSERT_TRUE(fullest);
    form.FocusNode(fullest);
    TPSTBrowseFrame& list = *form.MailBrowse();
    const int all = list.Model()->StoreRowCount();
    ASSERT_GT(all, 2);
    const auto statusTexts = [&] {
        QStringList texts;
        for (const QLabel* label : form.statusBar()->findChildren<QLabel*>())
            texts << label->text();
        return texts.join(QLatin1Char('|'));
    };
    EXPECT_TRUE(statusTexts().contains(QStringLiteral(": %1 item(s)").arg(all))) << statusTexts().toStdString();

    list.View()->setCurrentIndex(list.Model()->index(0, 1));
    Wait(600);
    ASSERT_TRUE(form.InfoFrame()->Message());
    const QString subject = list.Model()->Text(list.Model()->StoreRow(0), 2);
    ASSERT_FALSE(subject.isEmpty());

    list.SearchBox()->setText(QStringLiteral("no row holds this text"));
    Wait(450); // the search timer
    list.Model()->WaitIdle();
    EXPECT_EQ(list.Model()->rowCount(), 0);
    EXPECT_TRUE(statusTexts().contains(QStringLiteral(": 0 of %1").arg(all))) << statusTexts().toStdString();
    EXPECT_FALSE(form.InfoFrame()->Message()) << "the preview kept a message the list hides";

    list.SearchBox()->setText(subject);
    Wait(450);
    list.Model()->WaitIdle();
    const int shown = list.Model()->rowCount();
    EXPECT_GE(shown, 1);
    EXPECT_TRUE(statusTexts().contains(QStringLiteral(": %1 of %2").arg(shown).arg(all))) << statusTexts().toStdString();

    list.SearchBox()->clear();
    Wait(450);
    list.Model()->WaitIdle();
    EXPECT_EQ(list.Model()->rowCount(), all);
    EXPECT_FALSE(statusTexts().contains(QRegularExpression(QStringLiteral(": \\d+ of \\d+")))) << statusTexts().toStdString();
    EXPECT_TRUE(statusTexts().contains(QStringLiteral(": %1 item(s)").arg(all)));
}

// Shown for the first time with no layout of the user's, the columns fit
// their captions and the rows in view, the subject takes the rest of the
// list and no column runs past its right edge; a layout of the user's is
// left alone.
TEST(ResponsiveList, ColumnsFitTheirRowsOnFirstShow)
{
    TMemoryMailStore store(30, [](int row) {
        auto message = std::make_shared<TTestMessage>();
        message->subject = QStringLiteral("Quarterly figures %1").arg(row);
        message->sender = std::make_shared<mail::TMailRecipient>(QStringLiteral("Sender %1").arg(row), QStringLiteral("s@x.org"));
        message->dates[mail::mdDelivery] = 40000 + row;
        return message;
    });
    TMemoryBrowseFrame frame;
    frame.resize(900, 500);
    frame.Show(&store);
    frame.show();
    Wait(50);
    const QHeaderView* header = frame.View()->header();
    const int viewport = frame.View()->viewport()->width();
    EXPECT_EQ(header->length(), viewport) << "the subject takes the rest";
    EXPECT_GE(header->sectionSize(2), viewport / 3);
    const QFontMetrics metrics(frame.View()->font());
    EXPECT_GE(header->sectionSize(3), metrics.horizontalAdvance(frame.Model()->Text(0, 3))) << "dates whole";
    EXPECT_LT(header->sectionSize(1), metrics.horizontalAdvance(QLatin1Char('x')) * 22) << "a short sender, a narrow column";

    // A narrow list: the subject keeps a third of it.
    TMemoryBrowseFrame narrow;
    narrow.resize(400, 300);
    narrow.Show(&store);
    narrow.show();
    Wait(50);
    EXPECT_GE(narrow.View()->header()->sectionSize(2), narrow.View()->viewport()->width() / 3);

    // A layout of the user's is kept as it is.
    QTemporaryDir dir;
    core::TSettingsStore settings(dir.filePath(QStringLiteral("s.ini")));
    frame.View()->header()->resizeSection(1, 333);
    frame.Save(settings);
    TMemoryBrowseFrame other;
    other.Load(settings);
    other.resize(400, 300);
    other.Show(&store);
    other.show();
    Wait(50);
    EXPECT_EQ(other.View()->header()->sectionSize(1), 333) << "the user's layout stays";
}

// The first window's place in the available area of a 1280x800 screen with
// a 30-pixel panel, at scale 1 and at scale 2 (half the pixels); a place
// remembered from a larger screen is brought back inside.
TEST(WindowGeometry, FirstWindowAndRememberedPlacesFitTheScreen)
{
    for (const QRect& available : {QRect(0, 0, 1280, 770), QRect(0, 0, 640, 385), QRect(1280, 30, 640, 370)}) {
        const QRect first = FirstWindowGeometry(available);
        EXPECT_TRUE(available.contains(first)) << first.x() << "," << first.y() << " " << first.width() << "x" << first.height();
        EXPECT_EQ(first.width(), int(available.width() * FirstWindowShare));
        EXPECT_EQ(first.height(), int(available.height() * FirstWindowShare));
        EXPECT_LE(std::abs(first.center().x() - available.center().x()), 1);
        EXPECT_LE(std::abs(first.center().y() - available.center().y()), 1);
    }
    const QRect small(0, 0, 640, 385);
    // Larger than the screen: shrunk and moved in.
    EXPECT_EQ(FitInside(QRect(100, 50, 1200, 760), small), small);
    // Hanging off the right and bottom: moved back, size kept.
    EXPECT_EQ(FitInside(QRect(500, 300, 300, 200), small), QRect(340, 185, 300, 200));
    // On a screen that is gone (left of this one): moved in.
    EXPECT_EQ(FitInside(QRect(-1500, -20, 400, 300), small), QRect(0, 0, 400, 300));
    // Inside already: left as it is.
    EXPECT_EQ(FitInside(QRect(10, 10, 300, 200), small), QRect(10, 10, 300, 200));
    EXPECT_EQ(FirstWindowGeometry(QRect()), QRect());
}

// Run by the test below in a process of its own, with the screen and scale
// factor it sets: the main window, first without and then with a
// remembered place from a larger screen, lies inside the available area.
TEST_F(MainFormTest, DISABLED_WindowInsideTheScreen)
{
    const QRect available = QGuiApplication::primaryScreen()->availableGeometry();
    std::printf("available %dx%d\n", available.width(), available.height());
    {
        auto& form = Form();
        form.LoadSettings();
        form.show();
        Wait(100);
        const QRect frame = form.frameGeometry();
        std::printf("first %d,%d %dx%d\n", frame.x(), frame.y(), frame.width(), frame.height());
        EXPECT_TRUE(available.contains(frame));
        // 80% of the area, and the frame's borders.
        EXPECT_LE(frame.width(), available.width() * FirstWindowShare + frame.width() - form.width());
        // A place remembered from a screen twice as large.
        form.setGeometry(QRect(available.topLeft() + QPoint(200, 100), available.size() * 2));
        form.SaveSettings();
    }
    m_form.reset();
    auto& again = Form();
    again.LoadSettings();
    again.show();
    Wait(100);
    const QRect frame = again.frameGeometry();
    std::printf("restored %d,%d %dx%d\n", frame.x(), frame.y(), frame.width(), frame.height());
    EXPECT_TRUE(available.contains(frame));
    // The status bar is on the screen.
    const QRect status(again.statusBar()->mapToGlobal(QPoint(0, 0)), again.statusBar()->size());
    EXPECT_TRUE(available.contains(status));
}

TEST(WindowGeometry, MainWindowFitsA1280x800ScreenAtScale1And2)
{
    QTemporaryDir dir;
    const QString config = dir.filePath(QStringLiteral("screen.json"));
    QFile file(config);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"({"screens": [{"name": "A", "x": 0, "y": 0, "width": 1280, "height": 800, "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 1}]})");
    file.close();
    for (const char* scale : {"1", "2"}) {
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen:configfile=") + config);
        environment.insert(QStringLiteral("QT_SCALE_FACTOR"), QLatin1String(scale));
        child.setProcessEnvironment(environment);
        child.setProcessChannelMode(QProcess::MergedChannels);
        child.start(QCoreApplication::applicationFilePath(),
            {QStringLiteral("--gtest_filter=MainFormTest.DISABLED_WindowInsideTheScreen"), QStringLiteral("--gtest_also_run_disabled_tests")});
        ASSERT_TRUE(child.waitForFinished(60000));
        const QString output = QString::fromLocal8Bit(child.readAll());
        EXPECT_EQ(child.exitCode(), 0) << "scale " << scale << ":\n" << output.toStdString();
        const QString expected = QStringLiteral("available %1x%2").arg(1280 / QByteArray(scale).toInt()).arg(800 / QByteArray(scale).toInt());
        EXPECT_TRUE(output.contains(expected)) << output.toStdString();
        EXPECT_TRUE(output.contains(QLatin1String("[  PASSED  ] 1 test"))) << output.toStdString();
    }
}
