#include "AppTestUtil.h"
#include "app/ExportDialog.h"
#include "app/MailBrowseFrame.h"
#include "app/WindowStart.h"
#include "mail/FileMailMsg.h"
#include "tasks/MailEMLTask.h"
#include "tasks/MailOtherTasks.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDirIterator>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QStandardItemModel>
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

namespace {

std::shared_ptr<mail::IMailMessage> SampleMessage()
{
    return mail::TFileMailMsgRequest(TestData(QStringLiteral("msg/Simple.msg"))).Message();
}

// The format options the dialog shows: R pictures from other hosts, B
// pictures beside the page, P paper (size, landscape, one PDF), T text from
// the HTML body, V vCard version, S contacts and meetings in their own
// formats.
QString ShownOptions(const TExportDialog& dialog)
{
    const auto shown = [&](const QWidget* widget) { return widget->isVisibleTo(&dialog); };
    QString letters;
    if (shown(dialog.RemotePicturesBox()))
        letters += QLatin1Char('R');
    if (shown(dialog.PicturesBesideBox()))
        letters += QLatin1Char('B');
    // The paper's three controls come and go together.
    const int paper = int(shown(dialog.PaperBox())) + int(shown(dialog.LandscapeBox())) + int(shown(dialog.CombinePdfBox()));
    if (paper == 3)
        letters += QLatin1Char('P');
    else if (paper != 0)
        letters += QStringLiteral("(part of P)");
    if (shown(dialog.TextFromHtmlBox()))
        letters += QLatin1Char('T');
    if (shown(dialog.VCardVersionBox()))
        letters += QLatin1Char('V');
    if (shown(dialog.SeparateItemsBox()))
        letters += QLatin1Char('S');
    return letters;
}

// The page printer of the program taken away for a test, and put back.
struct TNoPagePrinter {
    TNoPagePrinter() { tasks::SetPagePrinter(nullptr); }
    ~TNoPagePrinter() { tasks::SetPagePrinter(WindowPagePrinter()); }
};

} // namespace

// Each format shows its own options and no others, and makes the
// destination a folder, or the file of the whole run.
TEST(ExportDialogFormats, EachFormatShowsItsOwnOptions)
{
    QTemporaryDir dir;
    tasks::TMailProperties properties;
    properties.SetConvertType(tasks::mctEML);
    properties.Destination = dir.path();
    TExportDialog dialog(properties, SampleMessage(), 5);
    ASSERT_EQ(dialog.FormatBox()->count(), 10);
    EXPECT_EQ(dialog.Format(), tasks::mctEML);
    EXPECT_TRUE(dialog.FormatBox()->currentText().startsWith(QStringLiteral("EML")));

    const QString folder = QDir::toNativeSeparators(dir.path());
    struct {
        tasks::TMailConvertType format;
        const char* caption;
        const char* shown;
        const char* file; // the destination's file, for a format of one file
    } cases[] = {
        {tasks::mctMSG, "MSG", "", nullptr},
        {tasks::mctMBox, "MBOX", "S", "EMails.mbox"},
        {tasks::mctHTML, "HTML", "RBS", nullptr},
        {tasks::mctXHTML, "XHTML", "RBS", nullptr},
        {tasks::mctPDF, "PDF", "RPS", nullptr},
        {tasks::mctTXT, "Text", "TS", nullptr},
        {tasks::mctVCard, "vCard", "V", nullptr},
        {tasks::mctICal, "iCalendar", "", nullptr},
        {tasks::mctPST, "PST", "", "Outlook.pst"},
        {tasks::mctEML, "EML", "S", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.caption);
        dialog.SetFormat(c.format);
        EXPECT_EQ(dialog.Format(), c.format);
        EXPECT_TRUE(dialog.FormatBox()->currentText().startsWith(QLatin1String(c.caption) + QLatin1Char(':')));
        EXPECT_EQ(ShownOptions(dialog), QLatin1String(c.shown));
        if (c.file) {
            EXPECT_EQ(dialog.DestinationEdit()->text(), QDir::toNativeSeparators(QDir(dir.path()).filePath(QLatin1String(c.file))));
            EXPECT_EQ(dialog.DestinationLabel()->text(), QStringLiteral("File:"));
            EXPECT_TRUE(dialog.SingleFile());
            EXPECT_FALSE(dialog.TemplateEdit()->isEnabled());
            EXPECT_EQ(dialog.ExampleLabel()->text(), QLatin1String(c.file));
        } else {
            EXPECT_EQ(dialog.DestinationEdit()->text(), folder); // the folder again after a file
            EXPECT_EQ(dialog.DestinationLabel()->text(), QStringLiteral("Folder:"));
            EXPECT_TRUE(dialog.TemplateEdit()->isEnabled());
            EXPECT_TRUE(dialog.ExampleLabel()->text().endsWith(QLatin1Char('.') + tasks::ConvertTypeExtension(c.format)))
                << dialog.ExampleLabel()->text().toStdString();
        }
    }

    // One message: its file changes its extension with the format, and
    // keeps the name given.
    TExportDialog single(properties, SampleMessage(), 1);
    single.DestinationEdit()->setText(QDir::toNativeSeparators(QDir(dir.path()).filePath(QStringLiteral("chosen.eml"))));
    single.SetFormat(tasks::mctMSG);
    EXPECT_EQ(single.DestinationEdit()->text(), QDir::toNativeSeparators(QDir(dir.path()).filePath(QStringLiteral("chosen.msg"))));
    single.SetFormat(tasks::mctMBox);
    EXPECT_EQ(single.DestinationEdit()->text(), QDir::toNativeSeparators(QDir(dir.path()).filePath(QStringLiteral("EMails.mbox"))));
    single.SetFormat(tasks::mctTXT);
    EXPECT_TRUE(single.DestinationEdit()->text().endsWith(QStringLiteral(".txt")));
    EXPECT_FALSE(single.DestinationEdit()->text().endsWith(QStringLiteral("EMails.txt")));
}

// The format chosen and its options reach the export's options; the
// options of the formats not chosen keep their values; all of it comes
// back in the next dialog from the settings.
TEST(ExportDialogFormats, ChosenFormatAndOptionsReachTheProperties)
{
    QTemporaryDir dir;
    tasks::TMailProperties properties;
    properties.SetConvertType(tasks::mctEML);
    properties.Destination = dir.path();
    const auto sample = SampleMessage();
    TExportDialog dialog(properties, sample, 5);
    EXPECT_TRUE(dialog.SeparateItemsBox()->isChecked()); // vCard and iCalendar by default
    EXPECT_FALSE(dialog.RemotePicturesBox()->isChecked());

    dialog.SetFormat(tasks::mctPDF);
    dialog.PaperBox()->setCurrentIndex(dialog.PaperBox()->findData(QStringLiteral("letter")));
    dialog.LandscapeBox()->setChecked(true);
    dialog.CombinePdfBox()->setChecked(true);
    dialog.RemotePicturesBox()->setChecked(true);
    dialog.SeparateItemsBox()->setChecked(false);
    ASSERT_TRUE(dialog.Apply());
    EXPECT_EQ(properties.ConvertType(), tasks::mctPDF);
    EXPECT_EQ(properties.Extension(), QStringLiteral("pdf"));
    EXPECT_EQ(properties.HTMLConvertType(), tasks::htPDF);
    EXPECT_EQ(properties.Paper().Width, 1056); // letter, landscape
    EXPECT_EQ(properties.Paper().Height, 816);
    EXPECT_TRUE(properties.CombineFiles);
    EXPECT_TRUE(properties.RemotePictures);
    EXPECT_TRUE(properties.OneFormat);

    // Remembered: the next dialog opens on them.
    core::TSettingsStore store(QDir(dir.path()).filePath(QStringLiteral("settings.ini")));
    properties.Save(store, QStringLiteral("Export"));
    {
        tasks::TMailProperties loaded;
        loaded.Load(store, QStringLiteral("Export"));
        TExportDialog next(loaded, sample, 5);
        EXPECT_EQ(next.Format(), tasks::mctPDF);
        EXPECT_EQ(next.PaperBox()->currentData().toString(), QStringLiteral("letter"));
        EXPECT_TRUE(next.LandscapeBox()->isChecked());
        EXPECT_TRUE(next.CombinePdfBox()->isChecked());
        EXPECT_TRUE(next.RemotePicturesBox()->isChecked());
        EXPECT_FALSE(next.SeparateItemsBox()->isChecked());
    }

    dialog.SetFormat(tasks::mctTXT);
    dialog.TextFromHtmlBox()->setChecked(true);
    dialog.SeparateItemsBox()->setChecked(true);
    dialog.RemotePicturesBox()->setChecked(false); // hidden: not Text's
    ASSERT_TRUE(dialog.Apply());
    EXPECT_EQ(properties.ConvertType(), tasks::mctTXT);
    EXPECT_EQ(properties.HTMLConvertType(), tasks::htNone);
    EXPECT_TRUE(properties.TextExportOptions.Has(tasks::tetUseHTMLBody));
    EXPECT_FALSE(properties.CombineFiles); // one PDF is the PDF's alone
    EXPECT_FALSE(properties.OneFormat);
    EXPECT_TRUE(properties.RemotePictures);
    EXPECT_EQ(properties.Paper().Width, 1056);

    dialog.SetFormat(tasks::mctVCard);
    dialog.VCardVersionBox()->setCurrentIndex(dialog.VCardVersionBox()->findData(4));
    dialog.SeparateItemsBox()->setChecked(false); // hidden: not vCard's
    ASSERT_TRUE(dialog.Apply());
    EXPECT_EQ(properties.VCardVersion, 4);
    EXPECT_FALSE(properties.OneFormat);

    dialog.SetFormat(tasks::mctHTML);
    dialog.PicturesBesideBox()->setChecked(true);
    ASSERT_TRUE(dialog.Apply());
    EXPECT_TRUE(properties.PicturesBeside);
    EXPECT_FALSE(properties.RemotePictures); // its box was unchecked above
    EXPECT_TRUE(properties.OneFormat);        // and so was this one
    EXPECT_EQ(properties.VCardVersion, 4);

    // MBOX: one file named by the destination, no names from the template.
    dialog.SetFormat(tasks::mctMBox);
    ASSERT_TRUE(dialog.Apply());
    EXPECT_EQ(properties.Destination, QDir(dir.path()).filePath(QStringLiteral("EMails.mbox")));
    EXPECT_TRUE(properties.CombineFiles);
    EXPECT_FALSE(properties.UseFileNameTemplate);
    EXPECT_EQ(properties.GetFileNameByTemplate(*sample, 0), QStringLiteral("EMails.mbox"));
    // PST into a folder typed in: the default name inside it.
    dialog.SetFormat(tasks::mctPST);
    const QString other = QDir(dir.path()).filePath(QStringLiteral("other"));
    QDir().mkpath(other);
    dialog.DestinationEdit()->setText(QDir::toNativeSeparators(other));
    ASSERT_TRUE(dialog.Apply());
    EXPECT_EQ(properties.Destination, QDir(other).filePath(QStringLiteral("Outlook.pst")));
    EXPECT_FALSE(properties.CombineFiles);
    // Back to a file per message: named from the template again.
    dialog.SetFormat(tasks::mctEML);
    ASSERT_TRUE(dialog.Apply());
    EXPECT_EQ(properties.Destination, other);
    EXPECT_TRUE(properties.UseFileNameTemplate);
    EXPECT_FALSE(properties.CombineFiles);
    EXPECT_TRUE(properties.GetFileNameByTemplate(*sample, 0).endsWith(QStringLiteral(".eml")));
}

// A format without a writer is said so in the dialog, which stays open;
// the writers as they are give a writer or that message, never a crash.
TEST(ExportDialogFormats, FormatWithoutWriterIsRefusedInTheDialog)
{
    QTemporaryDir dir;
    tasks::TMailProperties properties;
    properties.SetConvertType(tasks::mctEML);
    properties.Destination = dir.path();
    TExportDialog dialog(properties, SampleMessage(), 5);
    dialog.HasWriter = [](tasks::TMailProperties& options) { return options.ConvertType() != tasks::mctXHTML; };
    dialog.SetFormat(tasks::mctXHTML);
    dialog.accept();
    EXPECT_NE(dialog.result(), QDialog::Accepted);
    EXPECT_TRUE(dialog.ErrorLabel()->isVisibleTo(&dialog));
    EXPECT_TRUE(dialog.ErrorLabel()->text().contains(QStringLiteral("XHTML"))) << dialog.ErrorLabel()->text().toStdString();
    dialog.SetFormat(tasks::mctHTML);
    EXPECT_FALSE(dialog.ErrorLabel()->isVisibleTo(&dialog));
    dialog.accept();
    EXPECT_EQ(dialog.result(), QDialog::Accepted);

    TExportDialog real(properties, SampleMessage(), 5);
    real.SetFormat(tasks::mctXHTML);
    real.accept();
    const bool writes = tasks::CreateMailTask(properties) != nullptr;
    EXPECT_EQ(real.result() == QDialog::Accepted, writes);
    EXPECT_EQ(real.ErrorLabel()->isVisibleTo(&real), !writes);
}

// Without a page printer PDF cannot be chosen: the item says to use the
// command line, and a remembered PDF gives way to EML.
TEST(ExportDialogFormats, PdfNeedsThePagePrinter)
{
    tasks::TMailProperties properties;
    properties.SetConvertType(tasks::mctPDF);
    {
        TNoPagePrinter none;
        TExportDialog dialog(properties, SampleMessage(), 5);
        EXPECT_EQ(dialog.Format(), tasks::mctEML);
        const auto* model = qobject_cast<QStandardItemModel*>(dialog.FormatBox()->model());
        ASSERT_NE(model, nullptr);
        const QStandardItem* pdf = model->item(int(TExportDialog::Formats().indexOf(tasks::mctPDF)));
        EXPECT_FALSE(pdf->isEnabled());
        EXPECT_TRUE(pdf->toolTip().contains(QStringLiteral("command line"))) << pdf->toolTip().toStdString();
    }
    properties.SetConvertType(tasks::mctPDF); // the dialog above chose EML in them
    TExportDialog dialog(properties, SampleMessage(), 5);
    EXPECT_EQ(dialog.Format(), tasks::mctPDF);
}
