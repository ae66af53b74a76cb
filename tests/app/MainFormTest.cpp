#include "AppTestUtil.h"
#include "app/MailBrowseFrame.h"
#include "app/PSTCaption.h"
#include "core/MessageBus.h"

#include <QAction>
#include <QLabel>
#include <QMenu>
#include <QStatusBar>
#include <QTabWidget>
#include <QTreeView>

using namespace tessaly;
using namespace tessaly::app;
using tessaly::test::MainFormTest;
using tessaly::test::TestData;

namespace {

TPSTNode* FindFolderNode(TPSTNode& parent, const QString& caption)
{
    for (const auto& child : parent.Children) {
        if (child->Caption() == caption)
            return child.get();
        if (TPSTNode* found = FindFolderNode(*child, caption))
            return found;
    }
    return nullptr;
}

} // namespace

TEST(OpenEntry, PathAndNumber)
{
    struct {
        const char* line;
        const char* path;
        int number;
    } const cases[] = {
        {"/d/a.pst", "/d/a.pst", 0},
        {"/d/a.pst?3", "/d/a.pst", 3},
        {"/d/a.pst?abc", "/d/a.pst", 0},
        {"/d/a.pst?2?5", "/d/a.pst", 0}, // the text after the first "?" is no number
        {"/d/a.pst?", "/d/a.pst", 0},
    };
    for (const auto& c : cases) {
        const TOpenEntry entry = ParseOpenEntry(QString::fromUtf8(c.line));
        EXPECT_EQ(entry.Path, QString::fromUtf8(c.path)) << c.line;
        EXPECT_EQ(entry.Number, c.number) << c.line;
    }
}

TEST(FolderPath, SeparatorsDoubledAndTrailingBackslash)
{
    EXPECT_EQ(BuildFolderPath({}), QStringLiteral("Outlook"));
    EXPECT_EQ(BuildFolderPath({QStringLiteral("Inbox")}), QStringLiteral("Inbox\\"));
    EXPECT_EQ(BuildFolderPath({QStringLiteral("Top"), QStringLiteral("a/b\\c")}), QStringLiteral("Top\\a//b\\\\c\\"));
}

TEST(PSTCaption, GroupsByCaptionAndRestoresOnRemove)
{
    // Files that cannot be opened still carry their caption.
    pst::TPSTFile a(QStringLiteral("/nowhere/one/mail.pst"));
    pst::TPSTFile b(QStringLiteral("/nowhere/two/mail.pst"));
    pst::TPSTFile c(QStringLiteral("/nowhere/two/other.pst"));
    TPSTCaption captions;
    captions.Add(&a, 0);
    EXPECT_EQ(a.Caption(), QStringLiteral("mail"));
    captions.Add(&b, 0);
    captions.Add(&c, 0);
    EXPECT_EQ(a.Caption(), QStringLiteral("mail (one)"));
    EXPECT_EQ(b.Caption(), QStringLiteral("mail (two)"));
    EXPECT_EQ(c.Caption(), QStringLiteral("other"));
    captions.Remove(&a);
    EXPECT_EQ(b.Caption(), QStringLiteral("mail"));

    // A number of 1 or more is the distinguishing text.
    TPSTCaption numbered;
    numbered.Add(&a, 2);
    numbered.Add(&b, 0);
    EXPECT_EQ(a.Caption(), QStringLiteral("mail (2)"));
    EXPECT_EQ(b.Caption(), QStringLiteral("mail (two)"));
}

TEST(StartUpOrder, InvariantsGuardTheModuleOrder)
{
    core::TCommandLine commandLine;
    core::TSettingsStore store(QDir::temp().filePath(QStringLiteral("tessaly-order-test.ini")));
    {
        THTMLProjectData html;
        EXPECT_EQ(CheckStartUpInvariants(), QStringLiteral("Incorrect project data"));
        TPSTViewerProjectData viewer(commandLine, store, nullptr, [] { return false; });
        EXPECT_EQ(CheckStartUpInvariants(), QString());
    }
    {
        // The viewer's module first and the HTML one after: the HTML module wins.
        TPSTViewerProjectData viewer(commandLine, store, nullptr, [] { return false; });
        THTMLProjectData html;
        EXPECT_EQ(CheckStartUpInvariants(), QStringLiteral("Incorrect project data"));
    }
    QFile::remove(store.FileName());
}

TEST_F(MainFormTest, SamePathTwiceInAnyCaseGivesOneNode)
{
    const QString path = Copy(QStringLiteral("pst/enron.pst"), QStringLiteral("a"));
    auto& form = Form();
    form.OpenFiles(path);
    form.OpenFiles(path.toUpper() + QStringLiteral("\n") + path);
    EXPECT_EQ(form.TreeModel()->FileNodes().size(), 1u);
    ASSERT_TRUE(form.WaitLoaded(30000));
    EXPECT_EQ(Captions(form), QStringList{QStringLiteral("enron")});
}

TEST_F(MainFormTest, LoadingShowsProgressThenFoldersAndFocusesFirstFolderWithItems)
{
    auto& form = Form();
    form.OpenFiles(TestData(QStringLiteral("pst/enron.pst")) + QStringLiteral("?abc"));
    const TPSTNode* node = form.TreeModel()->FileNodes().front().get();
    EXPECT_EQ(node->State, nsLoading);
    EXPECT_EQ(node->Caption(), QStringLiteral("Loading enron.pst..."));
    EXPECT_EQ(node->Colour(), QColor(128, 128, 128));
    ASSERT_TRUE(form.WaitLoaded(30000));
    EXPECT_EQ(node->State, nsLoaded);
    EXPECT_EQ(node->Caption(), QStringLiteral("enron"));
    EXPECT_FALSE(node->Colour().isValid());
    EXPECT_FALSE(node->Children.empty());

    // The focused node is the first folder with items, in tree order.
    const TPSTNode* focused = TPSTTreeModel::NodeOf(form.Tree()->currentIndex());
    ASSERT_NE(focused, nullptr);
    ASSERT_NE(focused->Folder, nullptr);
    EXPECT_GT(focused->ItemCount, 0);
    const TPSTNode* first = nullptr;
    std::function<void(const TPSTNode&)> walk = [&](const TPSTNode& parent) {
        for (const auto& child : parent.Children) {
            if (!first && child->ItemCount > 0)
                first = child.get();
            walk(*child);
        }
    };
    walk(*node);
    EXPECT_EQ(focused, first);

    // The list shows that folder, and the bus names it.
    EXPECT_EQ(form.MailBrowse()->Folder(), focused->Folder);
    EXPECT_EQ(form.MailBrowse()->Model()->rowCount(), focused->ItemCount);
    const QVariant answer = core::TMessageBus::Instance().Request(core::Topic::PstFolderRequest);
    EXPECT_EQ(answer.value<void*>(), static_cast<void*>(focused->Folder));
    EXPECT_TRUE(form.CurrentFolderPath().endsWith(QLatin1Char('\\')));
    EXPECT_EQ(form.CurrentFileName(), TestData(QStringLiteral("pst/enron.pst")));
    EXPECT_EQ(form.SelectionCommandLine(),
        QStringLiteral("\"%1\" -pst \"%2\"").arg(form.CurrentFolderPath(), form.CurrentFileName()));
}

TEST_F(MainFormTest, NoFocusedFolderIsOutlook)
{
    auto& form = Form();
    EXPECT_EQ(form.CurrentFolderPath(), QStringLiteral("Outlook"));
    EXPECT_EQ(form.FocusedFolder(), nullptr);
    EXPECT_FALSE(core::TMessageBus::Instance().Request(core::Topic::PstFolderRequest).isValid());
}

TEST_F(MainFormTest, SameCaptionShowsDirectoryAndRemovingRestoresIt)
{
    const QString a = Copy(QStringLiteral("pst/sample1.pst"), QStringLiteral("first"), QStringLiteral("mail.pst"));
    const QString b = Copy(QStringLiteral("pst/sample2.pst"), QStringLiteral("second"), QStringLiteral("mail.pst"));
    auto& form = Form();
    form.OpenFiles(a + QStringLiteral("\n") + b);
    ASSERT_TRUE(form.WaitLoaded(30000));
    EXPECT_EQ(Captions(form), (QStringList{QStringLiteral("mail (first)"), QStringLiteral("mail (second)")}));
    form.RemoveFile(form.TreeModel()->FindFileNode(a));
    EXPECT_EQ(Captions(form), QStringList{QStringLiteral("mail")});
    EXPECT_TRUE(m_data->Removed().Has(a));
}

TEST_F(MainFormTest, BrokenFileShowsRedAndTheQueueGoesOn)
{
    const QString broken = Broken(QStringLiteral("broken.pst"));
    auto& form = Form();
    form.OpenFiles(broken + QStringLiteral("\n") + TestData(QStringLiteral("pst/sample1.pst")));
    ASSERT_TRUE(form.WaitLoaded(30000));
    const TPSTNode* failed = form.TreeModel()->FindFileNode(broken);
    ASSERT_NE(failed, nullptr);
    EXPECT_EQ(failed->State, nsOpenFailed);
    EXPECT_EQ(failed->Caption(), QStringLiteral("Error open broken.pst"));
    EXPECT_EQ(form.TreeModel()->data(form.TreeModel()->IndexOf(failed), Qt::ForegroundRole).value<QColor>(), QColor(255, 0, 0));
    EXPECT_EQ(form.TreeModel()->FindFileNode(TestData(QStringLiteral("pst/sample1.pst")))->State, nsLoaded);
}

TEST_F(MainFormTest, DisableWhileLoadingDiscardsAndEnableRequeues)
{
    const QString path = TestData(QStringLiteral("pst/pstextractortest@outlook.com.ost"));
    auto& form = Form();
    form.OpenFiles(path);
    TPSTNode* node = form.TreeModel()->FindFileNode(path);
    ASSERT_TRUE(form.Loading());
    form.DisableFile(node); // the job is running now
    ASSERT_TRUE(form.WaitLoaded(60000));
    EXPECT_EQ(node->State, nsDisabled);
    EXPECT_EQ(node->File, nullptr);
    EXPECT_TRUE(node->Children.empty());
    EXPECT_EQ(node->Caption(), QStringLiteral("Disabled: pstextractortest@outlook.com.ost"));
    EXPECT_TRUE(m_data->Disabled().Has(path));

    // The context menu offers "Enable" on it.
    ASSERT_TRUE(form.PrepareTreeMenu(form.Tree()->visualRect(form.TreeModel()->IndexOf(node)).center()));
    EXPECT_EQ(form.DisableAction()->text(), QStringLiteral("Enable"));
    EXPECT_FALSE(form.LanguageMenu()->isEnabled());
    form.DisableAction()->trigger();
    EXPECT_FALSE(m_data->Disabled().Has(path));
    ASSERT_TRUE(form.WaitLoaded(60000));
    EXPECT_EQ(node->State, nsLoaded);
    EXPECT_NE(node->File, nullptr);
    EXPECT_FALSE(node->Children.empty());
}

TEST_F(MainFormTest, DisabledListKeepsFileUnloaded)
{
    const QString path = TestData(QStringLiteral("pst/sample1.pst"));
    m_settings->WriteEntries(QStringLiteral("disabled"), QStringLiteral("file"), {path});
    auto& form = Form();
    form.OpenFiles(path);
    EXPECT_FALSE(form.Loading());
    EXPECT_EQ(form.TreeModel()->FindFileNode(path)->State, nsDisabled);
}

TEST_F(MainFormTest, RemovedFileIsNotRestoredUntilOpenedAgain)
{
    const QString one = TestData(QStringLiteral("pst/sample1.pst"));
    const QString two = TestData(QStringLiteral("pst/sample2.pst"));
    m_settings->WriteString(QStringLiteral("Desktop\\PST"), QStringLiteral("files"), one + QStringLiteral("\n") + two);
    m_settings->WriteEntries(QStringLiteral("removed"), QStringLiteral("file"), {two});
    auto& form = Form();
    form.LoadSettings();
    ASSERT_TRUE(form.WaitLoaded(30000));
    EXPECT_NE(form.TreeModel()->FindFileNode(one), nullptr);
    EXPECT_EQ(form.TreeModel()->FindFileNode(two), nullptr);

    chosenFile = two;
    form.OpenAction()->trigger();
    EXPECT_EQ(askedTitles, QStringList{QStringLiteral("Open Outlook data file")});
    EXPECT_FALSE(m_data->Removed().Has(two));
    ASSERT_TRUE(form.WaitLoaded(30000));
    EXPECT_NE(form.TreeModel()->FindFileNode(two), nullptr);

    // Both are written back; a file from the command line would not be.
    form.SaveSettings();
    const QStringList saved = m_settings->ReadString(QStringLiteral("Desktop\\PST"), QStringLiteral("files")).split(QLatin1Char('\n'));
    EXPECT_TRUE(saved.contains(one));
    EXPECT_TRUE(saved.contains(two));
}

TEST_F(MainFormTest, CommandLineFileIsNotSaved)
{
    const QString one = TestData(QStringLiteral("pst/sample1.pst"));
    auto& form = Form(one);
    ASSERT_TRUE(form.WaitLoaded(30000));
    EXPECT_NE(form.TreeModel()->FindFileNode(one), nullptr);
    form.SaveSettings();
    EXPECT_TRUE(m_settings->SectionExists(QStringLiteral("Desktop\\PST")));
    EXPECT_EQ(m_settings->ReadString(QStringLiteral("Desktop\\PST"), QStringLiteral("files")), QString());
}

TEST_F(MainFormTest, EmptySavedListOffersTheOpenDialog)
{
    m_settings->WriteString(QStringLiteral("Desktop\\PST"), QStringLiteral("files"), QString());
    chosenFile = m_dir.filePath(QStringLiteral("missing.pst"));
    auto& form = Form();
    form.LoadSettings();
    EXPECT_EQ(askedTitles, QStringList{QStringLiteral("Open PST file")});
    EXPECT_TRUE(form.TreeModel()->FileNodes().empty()); // a chosen file that does not exist counts as none

    chosenFile = TestData(QStringLiteral("pst/sample1.pst"));
    EXPECT_EQ(form.DefaultFile(true), chosenFile);
}

TEST_F(MainFormTest, MessageFilesOpenInTheirOwnWindow)
{
    auto& form = Form();
    const QString message = TestData(QStringLiteral("eml/attachment_emails__attachment_pdf.eml"));
    form.OpenChosenFile(message);
    EXPECT_EQ(messageFiles, QStringList{message});
    EXPECT_TRUE(form.TreeModel()->FileNodes().empty());
}

TEST_F(MainFormTest, FileLanguageOnlyForLoaded32BitFiles)
{
    const QString ansi = TestData(QStringLiteral("pst/sample2.pst"));
    auto& form = Form();
    form.OpenFiles(ansi);
    ASSERT_TRUE(form.WaitLoaded(30000));
    TPSTNode* node = form.TreeModel()->FindFileNode(ansi);
    ASSERT_FALSE(node->Children.empty());
    // The menu is built for the file node above a folder node.
    const QModelIndex folder = form.TreeModel()->IndexOf(node->Children.front().get());
    form.Tree()->expand(folder.parent());
    ASSERT_TRUE(form.PrepareTreeMenu(form.Tree()->visualRect(folder).center()));
    EXPECT_EQ(form.MenuNode(), node);
    EXPECT_TRUE(form.LanguageMenu()->isEnabled());
    EXPECT_EQ(form.LanguageMenu()->actions().size(), TPSTMainForm::FileLanguages().size());
    EXPECT_EQ(form.DisableAction()->text(), QStringLiteral("Disable"));

    form.SetFileLanguage(node, 1251);
    ASSERT_TRUE(form.WaitLoaded(30000));
    ASSERT_NE(node->File, nullptr);
    EXPECT_EQ(node->File->AsciiCodePage(), 1251);
    EXPECT_FALSE(node->Children.empty());

    // Below the last node there is no file node: no menu.
    EXPECT_FALSE(form.PrepareTreeMenu(QPoint(5, form.Tree()->viewport()->height() - 2)));
}

TEST_F(MainFormTest, ContactFolderSelectsTheContactsTab)
{
    const QString ost = TestData(QStringLiteral("pst/pstextractortest@outlook.com.ost"));
    auto& form = Form();
    form.OpenFiles(ost);
    ASSERT_TRUE(form.WaitLoaded(60000));
    TPSTNode* fileNode = form.TreeModel()->FindFileNode(ost);
    TPSTNode* contacts = FindFolderNode(*fileNode, QStringLiteral("Contacts"));
    ASSERT_NE(contacts, nullptr);
    EXPECT_EQ(contacts->Colour(), QColor(128, 0, 0));
    form.FocusNode(contacts);
    EXPECT_EQ(form.windowTitle(), QStringLiteral("Contacts - pstextractortest@outlook.com.ost - Tessaly"));
    EXPECT_EQ(form.MainTabs()->currentIndex(), 1);
    EXPECT_EQ(form.MainTabs()->tabText(1), QStringLiteral("Contacts"));
    EXPECT_EQ(form.ContactBrowse()->Model()->Kind(), lkContact);
    EXPECT_EQ(form.ContactBrowse()->Model()->rowCount(), contacts->ItemCount);
    TPSTNode* calendar = FindFolderNode(*fileNode, QStringLiteral("Calendar"));
    ASSERT_NE(calendar, nullptr);
    EXPECT_EQ(calendar->Colour(), QColor(210, 105, 30));
    form.FocusNode(calendar);
    EXPECT_EQ(form.MainTabs()->currentIndex(), 0);
    EXPECT_EQ(form.MailBrowse()->Model()->Kind(), lkMeeting);
}

namespace {

// The texts of the status bar's labels and its message.
QStringList StatusTexts(TPSTMainForm& form)
{
    QStringList texts{form.statusBar()->currentMessage()};
    for (const QLabel* label : form.statusBar()->findChildren<QLabel*>())
        texts << label->text();
    return texts;
}

// Runs in another working folder for as long as it lives.
class TWorkingFolder {
public:
    explicit TWorkingFolder(const QString& path) : m_previous(QDir::currentPath()) { EXPECT_TRUE(QDir::setCurrent(path)); }
    ~TWorkingFolder() { QDir::setCurrent(m_previous); }

private:
    QString m_previous;
};

QStringList SavedFiles(core::TSettingsStore& settings)
{
    const QString files = settings.ReadString(QStringLiteral("Desktop\\PST"), QStringLiteral("files"));
    return files.isEmpty() ? QStringList() : files.split(QLatin1Char('\n'));
}

} // namespace

TEST_F(MainFormTest, FailedFileSaysWhyInTooltipAndStatusBarAndKeepsItsCaption)
{
    QDir(m_dir.path()).mkdir(QStringLiteral("folder.pst"));
    QFile(m_dir.filePath(QStringLiteral("empty.pst"))).open(QIODevice::WriteOnly);
    struct {
        QString path;
        pst::TPSTOpenError reason;
    } const cases[] = {
        {m_dir.filePath(QStringLiteral("missing.pst")), pst::oeNotFound},
        {m_dir.filePath(QStringLiteral("folder.pst")), pst::oeFolder},
        {m_dir.filePath(QStringLiteral("empty.pst")), pst::oeEmpty},
        {Broken(QStringLiteral("broken.pst")), pst::oeNotDataFile},
    };
    auto& form = Form();
    QStringList list;
    for (const auto& c : cases)
        list << c.path;
    form.OpenFiles(list.join(QLatin1Char('\n')));
    ASSERT_TRUE(form.WaitLoaded(30000));
    // The last failure is announced as it happens.
    EXPECT_TRUE(form.statusBar()->currentMessage().contains(pst::OpenErrorText(cases[3].reason)))
        << qPrintable(form.statusBar()->currentMessage());
    for (const auto& c : cases) {
        const QString reason = pst::OpenErrorText(c.reason);
        const TPSTNode* node = form.TreeModel()->FindFileNode(c.path);
        ASSERT_NE(node, nullptr) << qPrintable(c.path);
        EXPECT_EQ(node->State, nsOpenFailed);
        EXPECT_EQ(node->Caption(), QStringLiteral("Error open %1").arg(QFileInfo(c.path).fileName()));
        const QModelIndex index = form.TreeModel()->IndexOf(node);
        EXPECT_EQ(form.TreeModel()->data(index, Qt::ToolTipRole).toString(), c.path + QLatin1Char('\n') + reason);
        // Selecting the node puts the reason in the status bar.
        form.statusBar()->clearMessage();
        form.FocusNode(node);
        EXPECT_TRUE(StatusTexts(form).contains(QStringLiteral("%1: %2").arg(c.path, reason)))
            << qPrintable(StatusTexts(form).join(QLatin1Char('|')));
    }
    // A loaded file's tooltip is its path alone.
    const QString sample = TestData(QStringLiteral("pst/sample1.pst"));
    form.OpenFiles(sample);
    ASSERT_TRUE(form.WaitLoaded(30000));
    EXPECT_EQ(form.TreeModel()->data(form.TreeModel()->IndexOf(form.TreeModel()->FindFileNode(sample)), Qt::ToolTipRole),
        sample);
}

TEST_F(MainFormTest, RemoveOnAFailedFileTakesItOutOfTreeAndStoredList)
{
    const QString missing = m_dir.filePath(QStringLiteral("gone.pst"));
    const QString sample = TestData(QStringLiteral("pst/sample1.pst"));
    m_settings->WriteString(QStringLiteral("Desktop\\PST"), QStringLiteral("files"), missing + QStringLiteral("\n") + sample);
    auto& form = Form();
    form.LoadSettings();
    ASSERT_TRUE(form.WaitLoaded(30000));
    TPSTNode* failed = form.TreeModel()->FindFileNode(missing);
    ASSERT_NE(failed, nullptr);
    ASSERT_EQ(failed->State, nsOpenFailed);

    // The failed node's context menu holds Remove.
    ASSERT_TRUE(form.PrepareTreeMenu(form.Tree()->visualRect(form.TreeModel()->IndexOf(failed)).center()));
    EXPECT_EQ(form.MenuNode(), failed);
    EXPECT_TRUE(form.TreeMenu()->actions().contains(form.RemoveAction()));
    EXPECT_TRUE(form.RemoveAction()->isEnabled());
    form.RemoveAction()->trigger();

    EXPECT_EQ(form.TreeModel()->FindFileNode(missing), nullptr);
    EXPECT_NE(form.TreeModel()->FindFileNode(sample), nullptr);
    EXPECT_TRUE(m_data->Removed().Has(missing));
    // Written at once, not only when the window closes.
    EXPECT_EQ(SavedFiles(*m_settings), QStringList{sample});
}

TEST_F(MainFormTest, StoredPathsAreAbsoluteWhateverTheWorkingFolder)
{
    const QString file = Copy(QStringLiteral("pst/sample1.pst"), QStringLiteral("data"));
    const QString other = Copy(QStringLiteral("pst/sample2.pst"), QStringLiteral("more"));
    QDir().mkpath(m_dir.filePath(QStringLiteral("work")));
    auto& form = Form();
    {
        TWorkingFolder work(m_dir.filePath(QStringLiteral("work")));
        form.OpenFiles(QStringLiteral("../data/sample1.pst\n./../more/./sample2.pst?2"));
    }
    // The files load from elsewhere: the tree holds where they are.
    ASSERT_TRUE(form.WaitLoaded(30000));
    for (const QString& path : {file, other}) {
        const TPSTNode* node = form.TreeModel()->FindFileNode(QDir::cleanPath(path));
        ASSERT_NE(node, nullptr) << qPrintable(path);
        EXPECT_EQ(node->State, nsLoaded) << qPrintable(node->Error);
    }
    // The same file by another relative path is the same file.
    {
        TWorkingFolder work(m_dir.filePath(QStringLiteral("data")));
        form.OpenFiles(QStringLiteral("sample1.pst"));
    }
    EXPECT_EQ(form.TreeModel()->FileNodes().size(), 2u);
    form.SaveSettings();
    const QStringList saved = SavedFiles(*m_settings);
    EXPECT_EQ(saved.size(), 2);
    for (const QString& path : saved)
        EXPECT_TRUE(QFileInfo(path).isAbsolute() && QFileInfo::exists(path) && !path.contains(QLatin1String(".."))) << qPrintable(path);
    EXPECT_TRUE(saved.contains(QDir::cleanPath(file)));
    EXPECT_TRUE(saved.contains(QDir::cleanPath(other)));
}

TEST_F(MainFormTest, CommandLineFilesAreOpenedNotStoredAndTheStoredListStays)
{
    const QString remembered = TestData(QStringLiteral("pst/sample2.pst"));
    m_settings->WriteString(QStringLiteral("Desktop\\PST"), QStringLiteral("files"), remembered);
    const QString one = Copy(QStringLiteral("pst/sample1.pst"), QStringLiteral("cmd"));
    const QString two = Copy(QStringLiteral("pst/test_ansi.pst"), QStringLiteral("cmd"));
    {
        // Bare file arguments, one of them relative to the working folder.
        TWorkingFolder work(m_dir.filePath(QStringLiteral("cmd")));
        Form(one + QStringLiteral("\nsample1.pst\ntest_ansi.pst"));
    }
    auto& form = *m_form;
    form.LoadSettings();
    ASSERT_TRUE(form.WaitLoaded(30000));
    EXPECT_NE(form.TreeModel()->FindFileNode(one), nullptr);
    EXPECT_NE(form.TreeModel()->FindFileNode(two), nullptr);
    EXPECT_EQ(form.TreeModel()->FileNodes().size(), 2u);

    // Another file opened in the window is remembered beside the old list.
    const QString opened = TestData(QStringLiteral("pst/submessage.pst"));
    form.OpenChosenFile(opened);
    ASSERT_TRUE(form.WaitLoaded(30000));
    form.SaveSettings();
    EXPECT_EQ(SavedFiles(*m_settings), (QStringList{remembered, opened}));
}
