// The window's export in the formats the dialog offers: the run behind the
// progress dialog writes files that readers read back (ours for .msg,
// Python's mailbox for mbox, poppler for PDF), the format chosen is the
// one the next export offers, and PDF pages are printed on the window's
// thread while the run goes on another.

#include "AppTestUtil.h"
#include "app/ExportDialog.h"
#include "app/MailBrowseFrame.h"
#include "app/WindowStart.h"
#include "mail/FileMailMsg.h"
#include "tasks/MailEMLTask.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLineEdit>
#include <QMessageBox>
#include <QComboBox>
#include <QCheckBox>
#include <QProcess>
#include <QStandardPaths>
#include <atomic>
#include <thread>

using namespace tessaly;
using namespace tessaly::app;
using tessaly::test::MainFormTest;
using tessaly::test::TestData;

namespace {

struct TWindowExport {
    bool Asked = false;
    tasks::TMailConvertType Offered = tasks::mctHTML; // the format the dialog opened on
    QString OfferedDestination;
    QString Summary;
    QString WrittenTo;
};

// "Export..." with the dialog answered by choose (false: cancelled).
TWindowExport Export(TPSTMainForm& form, const std::function<bool(TExportDialog&)>& choose)
{
    TWindowExport run;
    form.AskExport = [&](TExportDialog& dialog) {
        run.Asked = true;
        run.Offered = dialog.Format();
        run.OfferedDestination = QDir::fromNativeSeparators(dialog.DestinationEdit()->text());
        if (!choose(dialog))
            return false;
        dialog.accept();
        return dialog.result() == QDialog::Accepted;
    };
    form.ShowExportSummary = [&](QMessageBox& box) {
        run.Summary = box.text();
        run.WrittenTo = box.informativeText();
    };
    form.ExportCommand();
    return run;
}

// The subjects of the ticked messages, in list order.
QStringList TickedSubjects(const TPSTMainForm& form)
{
    tasks::TMailProperties properties;
    tasks::TMailEMLTask entries(properties);
    form.AddExportEntries(entries);
    QStringList subjects;
    for (auto& entry : entries.Entries())
        subjects << entry.Load()->Subject().simplified();
    return subjects;
}

QString Output(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(60000) || process.exitCode() != 0)
        return {};
    return QString::fromUtf8(process.readAllStandardOutput());
}

// The enron sample with its folder "Systems" (seven messages) in the list.
void ShowSystemsFolder(TPSTMainForm& form)
{
    const QString file = TestData(QStringLiteral("pst/enron.pst"));
    form.OpenFiles(file);
    ASSERT_TRUE(form.WaitLoaded(30000));
    std::function<TPSTNode*(TPSTNode&)> find = [&](TPSTNode& parent) -> TPSTNode* {
        for (const auto& child : parent.Children) {
            if (child->Caption() == QLatin1String("Systems"))
                return child.get();
            if (TPSTNode* found = find(*child))
                return found;
        }
        return nullptr;
    };
    TPSTNode* node = find(*form.TreeModel()->FindFileNode(file));
    ASSERT_NE(node, nullptr);
    form.FocusNode(node);
    ASSERT_EQ(form.MailBrowse()->Model()->rowCount(), 7);
}

} // namespace

// MSG and then MBOX from the window: the files read back with the ticked
// messages' subjects, and each export opens on the format of the last.
TEST_F(MainFormTest, WindowExportsMsgAndMBoxThatReadBack)
{
    auto& form = Form();
    ShowSystemsFolder(form);
    if (HasFatalFailure())
        return;
    form.MailBrowse()->CheckRange(2, 5, false);
    const QStringList subjects = TickedSubjects(form);
    ASSERT_EQ(subjects.size(), 4);
    QTemporaryDir out;

    const QString msgFolder = QDir(out.path()).filePath(QStringLiteral("msg"));
    const TWindowExport msg = Export(form, [&](TExportDialog& dialog) {
        dialog.SetFormat(tasks::mctMSG);
        dialog.DestinationEdit()->setText(QDir::toNativeSeparators(msgFolder));
        return true;
    });
    EXPECT_EQ(msg.Offered, tasks::mctEML); // the first export
    EXPECT_EQ(msg.Summary, QStringLiteral("Exported: 4\nSkipped by the filter: 0\nFailed: 0"));
    const QFileInfoList files = QDir(msgFolder).entryInfoList({QStringLiteral("*.msg")}, QDir::Files, QDir::Name);
    ASSERT_EQ(files.size(), 4);
    QStringList read;
    for (const QFileInfo& file : files) {
        const auto message = mail::TFileMailMsgRequest(file.absoluteFilePath()).Message();
        ASSERT_NE(message, nullptr) << file.absoluteFilePath().toStdString();
        read << message->Subject().simplified();
    }
    QStringList expected = subjects;
    expected.sort();
    read.sort();
    EXPECT_EQ(read, expected);

    const QString mbox = QDir(out.path()).filePath(QStringLiteral("mail.mbox"));
    const TWindowExport box = Export(form, [&](TExportDialog& dialog) {
        dialog.SetFormat(tasks::mctMBox);
        dialog.DestinationEdit()->setText(QDir::toNativeSeparators(mbox));
        return true;
    });
    EXPECT_EQ(box.Offered, tasks::mctMSG);
    EXPECT_EQ(box.OfferedDestination, msgFolder);
    EXPECT_EQ(box.Summary, QStringLiteral("Exported: 4\nSkipped by the filter: 0\nFailed: 0"));
    EXPECT_TRUE(box.WrittenTo.endsWith(QDir::toNativeSeparators(mbox))) << box.WrittenTo.toStdString();
    const QString python = QStandardPaths::findExecutable(QStringLiteral("python3"));
    ASSERT_FALSE(python.isEmpty());
    const QString json = Output(python, {QStringLiteral("-c"), QStringLiteral(R"(
import json, mailbox, sys
print(json.dumps([' '.join(str(m['subject'] or '').split()) for m in mailbox.mbox(sys.argv[1], create=False)]))
)"), mbox});
    const QJsonArray mailboxSubjects = QJsonDocument::fromJson(json.toUtf8()).array();
    ASSERT_EQ(mailboxSubjects.size(), 4) << json.toStdString();
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(mailboxSubjects[i].toString(), subjects[i]);

    // The next export opens on the mbox file; cancelled, nothing runs.
    const TWindowExport cancelled = Export(form, [](TExportDialog&) { return false; });
    EXPECT_TRUE(cancelled.Asked);
    EXPECT_EQ(cancelled.Offered, tasks::mctMBox);
    EXPECT_EQ(cancelled.OfferedDestination, mbox);
    EXPECT_TRUE(cancelled.Summary.isEmpty());
}

// PDF from the window: the run goes on its own thread, the pages are
// printed on the window's, on the paper chosen.
TEST_F(MainFormTest, WindowExportsPdfOnThePaperChosen)
{
    auto& form = Form();
    ShowSystemsFolder(form);
    if (HasFatalFailure())
        return;
    form.MailBrowse()->CheckRange(1, 2, false);
    const QStringList subjects = TickedSubjects(form);
    ASSERT_EQ(subjects.size(), 2);
    QTemporaryDir out;
    const TWindowExport pdf = Export(form, [&](TExportDialog& dialog) {
        dialog.SetFormat(tasks::mctPDF);
        dialog.PaperBox()->setCurrentIndex(dialog.PaperBox()->findData(QStringLiteral("letter")));
        dialog.LandscapeBox()->setChecked(true);
        dialog.TemplateEdit()->setText(QStringLiteral("[nn] [subject]"));
        dialog.DestinationEdit()->setText(QDir::toNativeSeparators(out.path()));
        return true;
    });
    EXPECT_EQ(pdf.Summary, QStringLiteral("Exported: 2\nSkipped by the filter: 0\nFailed: 0"));
    const QFileInfoList files = QDir(out.path()).entryInfoList({QStringLiteral("*.pdf")}, QDir::Files, QDir::Name);
    ASSERT_EQ(files.size(), 2);
    for (int i = 0; i < 2; ++i) {
        SCOPED_TRACE(files[i].fileName().toStdString());
        QFile file(files[i].absoluteFilePath());
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_TRUE(file.read(5) == "%PDF-");
        const QString text = Output(QStringLiteral("pdftotext"), {files[i].absoluteFilePath(), QStringLiteral("-")});
        EXPECT_TRUE(text.simplified().contains(subjects[i])) << text.toStdString();
        EXPECT_TRUE(Output(QStringLiteral("pdfinfo"), {files[i].absoluteFilePath()}).contains(QStringLiteral("792 x 612 pts")));
    }
}

// Asked from a thread while the window's thread waits for that thread (and
// runs no events), the printer gives the page up with the reason instead of
// waiting for ever; asked while the window's thread runs its events, it
// prints.
TEST(WindowPagePrinter, GivesUpWhenTheWindowsThreadDoesNotTakeThePage)
{
    const auto printer = WindowPagePrinter(std::chrono::milliseconds(300));
    const QString page = QStringLiteral("<html><body><p>Printed from a thread</p></body></html>");
    QByteArray pdf;
    QString error;
    std::thread blocked([&] { pdf = printer(page, tasks::TPaperProperties(), &error); });
    blocked.join(); // the window's thread is held here
    EXPECT_TRUE(pdf.isEmpty());
    EXPECT_EQ(error, QStringLiteral("the window did not take the page for printing"));
    QCoreApplication::processEvents(); // the page given up is not printed now

    std::atomic<bool> done {false};
    error.clear();
    std::thread waited([&] {
        pdf = printer(page, tasks::TPaperProperties(), &error);
        done = true;
    });
    QElapsedTimer timer;
    timer.start();
    while (!done && timer.elapsed() < 60000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    waited.join();
    EXPECT_TRUE(pdf.startsWith("%PDF-")) << error.toStdString();
}
