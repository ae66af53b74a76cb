#include "AppTestUtil.h"
#include "app/ExportDialog.h"
#include "app/MailBrowseFrame.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDirIterator>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QTreeView>

using namespace tessaly;
using namespace tessaly::app;
using tessaly::test::MainFormTest;
using tessaly::test::TestData;

TEST_F(MainFormTest, ExportTakesTickedMessagesElseTheFolder)
{
    auto& form = Form();
    form.OpenFiles(TestData(QStringLiteral("pst/enron.pst")));
    ASSERT_TRUE(form.WaitLoaded(30000));
    EXPECT_TRUE(form.MailBrowse()->PopupMenu()->actions().contains(form.ExportAction()));
    EXPECT_EQ(form.ExportAction()->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_E));

    tasks::TMailProperties properties;
    {
        tasks::TMailEMLTask task(properties);
        EXPECT_EQ(form.AddExportEntries(task), form.MailBrowse()->Model()->rowCount()); // the focused folder
    }
    form.MailBrowse()->CheckRange(1, 1, false);
    tasks::TMailEMLTask task(properties);
    ASSERT_EQ(form.AddExportEntries(task), 1);
    const auto ticked = task.Entries().front().Load();
    ASSERT_NE(ticked, nullptr);
    EXPECT_EQ(ticked->Subject(), form.MailBrowse()->Model()->Text(form.MailBrowse()->Model()->StoreRow(0), 2));

    // The run behind the progress dialog writes the message.
    QTemporaryDir out;
    properties.SetConvertType(tasks::mctEML);
    properties.Destination = out.path();
    RunWithProgress(task, &form);
    EXPECT_EQ(task.Written(), 1);
    EXPECT_EQ(RunSummary(task), QStringLiteral("Exported: 1\nSkipped by the filter: 0\nFailed: 0"));
    EXPECT_EQ(QDir(out.path()).entryList(QDir::Files).size(), 1);
}

TEST_F(MainFormTest, ExportDialogShowsTheNameTheTemplateGives)
{
    auto& form = Form();
    form.OpenFiles(TestData(QStringLiteral("pst/enron.pst")));
    ASSERT_TRUE(form.WaitLoaded(30000));
    tasks::TMailProperties properties;
    properties.SetConvertType(tasks::mctEML);
    tasks::TMailEMLTask task(properties);
    const int count = form.AddExportEntries(task);
    const auto sample = task.Entries().front().Load();

    ASSERT_GE(count, 1);
    TExportDialog folder(properties, sample, 5);
    EXPECT_FALSE(folder.SingleFile());
    folder.TemplateEdit()->setText(QStringLiteral("[subject]"));
    EXPECT_EQ(folder.ExampleLabel()->text(), tasks::CleanFileName(tasks::ClearSubject(sample->Subject()), 1) + QStringLiteral(".eml"));
    folder.DestinationEdit()->setText(QString());
    EXPECT_FALSE(folder.Apply()); // no destination
    folder.DestinationEdit()->setText(m_dir.path());
    folder.SaveAttachBox()->setChecked(true);
    folder.FilterAttachBox()->setCurrentIndex(1);
    ASSERT_TRUE(folder.Apply());
    EXPECT_EQ(properties.Destination, m_dir.path());
    EXPECT_TRUE(properties.Attach.Has(tasks::aotSave));
    EXPECT_TRUE(properties.Filter.Enabled);
    EXPECT_EQ(properties.Filter.Attachments, tasks::mfaInclude);

    // One message: the destination is a file, named from the template.
    TExportDialog single(properties, sample, 1);
    EXPECT_TRUE(single.SingleFile());
    EXPECT_FALSE(single.TemplateEdit()->isEnabled());
    EXPECT_TRUE(single.DestinationEdit()->text().endsWith(QStringLiteral(".eml")));
    single.DestinationEdit()->setText(QDir(m_dir.path()).filePath(QStringLiteral("chosen.eml")));
    ASSERT_TRUE(single.Apply());
    EXPECT_EQ(properties.GetFileNameByTemplate(*sample, 0), QStringLiteral("chosen.eml"));
}
