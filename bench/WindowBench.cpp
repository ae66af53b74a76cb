// The main window on a data file: how long the window's thread is kept from
// its events while the file loads in the background, the time until the
// folder tree stands, the message list over 100,000 in-memory messages
// (first screen, scrolling to the end, memory) and the preview of every
// message of the file (median and worst). pffinfo on the same file, in the
// same run, is the comparison for the time to the tree.
//
// Usage: bench-window FILE [SHOTS_DIR]  (run under xvfb-run; with
// SHOTS_DIR, screenshots of the window are saved there)

#include "MemoryMailStore.h"
#include "app/ExportDialog.h"
#include "app/MailBrowseFrame.h"
#include "app/MailInfoFrame.h"
#include "app/PSTMainForm.h"
#include "app/ProjectData.h"
#include "app/TessalyApplication.h"
#include "app/WindowStart.h"
#include "core/CommandLine.h"
#include "core/SettingsStore.h"
#include "mail/MailMsgObj.h"
#include "tasks/MailEMLTask.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <limits>
#include <QTreeView>
#include <QWebEngineView>
#include <algorithm>
#include <cstdio>

using namespace tessaly;

namespace {

// A memory figure of this process from /proc (VmRSS, VmHWM), in KiB.
long StatusKiB(const QByteArray& field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith(field + ':'))
            return line.mid(field.size() + 1).trimmed().split(' ').first().toLong();
    return 0;
}

void Pump(int ms)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
}

void Shot(QWidget& widget, const QString& dir, const QString& name)
{
    if (dir.isEmpty())
        return;
    Pump(1500);
    widget.grab().save(QDir(dir).filePath(name));
    std::printf("screenshot: %s\n", qUtf8Printable(QDir(dir).filePath(name)));
}

std::shared_ptr<mail::IMailMessage> Generated(int row)
{
    class TMessage : public mail::IMailMessage {
    public:
        explicit TMessage(int row) : m_row(row) {}
        std::shared_ptr<mail::IMailRecipient> Sender() const override
        {
            return std::make_shared<mail::TMailRecipient>(QStringLiteral("Sender %1").arg(m_row % 97), QStringLiteral("s@example.org"));
        }
        QString SenderIP() const override { return {}; }
        QString Subject() const override { return QStringLiteral("Generated message number %1").arg(m_row); }
        std::shared_ptr<mail::IMailRecipientList> Recipients(mail::TMailRecipientType) const override { return nullptr; }
        QString Body(mail::TMailBodyType) const override { return {}; }
        mail::TDateTime Date(mail::TMailDateType) const override { return 40000 + m_row / 100.0; }
        QString Headers() const override { return {}; }
        std::shared_ptr<mail::IMailAttachList> Attaches() const override { return nullptr; }

    private:
        int m_row;
    };
    return std::make_shared<TMessage>(row);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "Usage: bench-window FILE [SHOTS_DIR]\n");
        return 2;
    }
    qputenv("QTWEBENGINE_CHROMIUM_FLAGS", "--no-sandbox");
    app::RegisterPreviewSchemes();
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    app::TTessalyApplication application(argc, argv);
    tasks::SetPagePrinter(app::WindowPagePrinter()); // PDF offered, as in the program
    const QString file = QFileInfo(QString::fromLocal8Bit(argv[1])).absoluteFilePath();
    const QString shots = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QString();

    QTemporaryDir dir;
    core::TSettingsStore settings(dir.filePath(QStringLiteral("settings.ini")));
    core::TCommandLine commandLine;
    core::RegisterReportBuilder(std::make_shared<pst::TPSTReportBuilder>());
    app::TPSTViewerProjectData projectData(commandLine, settings, nullptr, [] { return false; });
    projectData.DataModuleCreate();
    app::TPSTMainForm form(projectData, settings);
    form.resize(1300, 800);
    form.show();
    Pump(300);

    // 1. Loading: the longest gap between ticks of a 5 ms timer on the
    // window's thread while the job runs.
    qint64 longest = 0;
    QElapsedTimer tick;
    QTimer probe;
    probe.setInterval(5);
    QObject::connect(&probe, &QTimer::timeout, [&] {
        longest = std::max(longest, tick.restart());
    });
    QElapsedTimer load;
    load.start();
    tick.start();
    probe.start();
    form.OpenFiles(file);
    const bool loadingShown = form.TreeModel()->FileNodes().front()->Caption().startsWith(QLatin1String("Loading "));
    if (!shots.isEmpty())
        form.Tree()->viewport()->grab().save(QDir(shots).filePath(QStringLiteral("loading.png")));
    form.WaitLoaded(600000);
    const double treeMs = load.nsecsElapsed() / 1e6;
    const long treePeakKiB = StatusKiB("VmHWM");
    probe.stop();
    Shot(form, shots, QStringLiteral("loaded.png"));

    double pffinfoMs = 0;
    const QString pffinfo = QStandardPaths::findExecutable(QStringLiteral("pffinfo"));
    if (!pffinfo.isEmpty()) {
        QElapsedTimer timer;
        timer.start();
        QProcess process;
        process.start(pffinfo, {QStringLiteral("-a"), file});
        process.waitForFinished(600000);
        pffinfoMs = timer.nsecsElapsed() / 1e6;
    }

    // 2. Preview of every message of the file (at most MAX_PREVIEWS of them
    // when that is set, for large files).
    const qsizetype maxPreviews = qEnvironmentVariableIsSet("MAX_PREVIEWS") ? qEnvironmentVariableIntValue("MAX_PREVIEWS")
                                                                            : std::numeric_limits<qsizetype>::max();
    std::vector<double> previews;
    std::function<void(const app::TPSTNode&)> walk = [&](const app::TPSTNode& node) {
        for (const auto& child : node.Children) {
            if (child->Folder && child->ItemCount > 0) {
                pst::TPSTMailDataStore store;
                store.LoadFolder(child->Folder);
                for (int row = 0; row < store.RowCount() && qsizetype(previews.size()) < maxPreviews; ++row) {
                    bool loaded = false;
                    auto connection = QObject::connect(form.InfoFrame()->BodyView(), &QWebEngineView::loadFinished, [&] { loaded = true; });
                    QElapsedTimer timer;
                    timer.start();
                    form.InfoFrame()->Navigate(store.Message(row));
                    while (!loaded && timer.elapsed() < 20000)
                        QCoreApplication::processEvents(QEventLoop::AllEvents, 2);
                    previews.push_back(timer.nsecsElapsed() / 1e6);
                    QObject::disconnect(connection);
                }
            }
            walk(*child);
        }
    };
    for (const auto& node : form.TreeModel()->FileNodes())
        walk(*node);
    std::sort(previews.begin(), previews.end());

    // 3. A list of 100,000 messages.
    const long before = StatusKiB("VmRSS");
    test::TMemoryMailStore store(100000, Generated);
    test::TMemoryBrowseFrame frame;
    frame.resize(900, 700);
    QElapsedTimer listTimer;
    listTimer.start();
    frame.Show(&store);
    frame.show();
    QCoreApplication::processEvents();
    const double firstScreenMs = listTimer.nsecsElapsed() / 1e6;
    const int readFirst = frame.Model()->RowsRead();
    listTimer.restart();
    const int page = std::max(1, frame.View()->viewport()->height() / std::max(1, frame.View()->sizeHintForRow(0)));
    for (int row = 0; row < frame.Model()->rowCount(); row += page * 50) {
        frame.View()->scrollTo(frame.Model()->index(row, 0));
        QCoreApplication::processEvents();
    }
    frame.View()->scrollToBottom();
    QCoreApplication::processEvents();
    const double scrollMs = listTimer.nsecsElapsed() / 1e6;
    const int readScrolled = frame.Model()->RowsRead();
    listTimer.restart();
    // How long the window's thread goes without its events while sorting.
    qint64 sortStall = 0;
    QElapsedTimer sortTick;
    QTimer sortProbe;
    sortProbe.setInterval(5);
    QObject::connect(&sortProbe, &QTimer::timeout, [&] { sortStall = std::max(sortStall, sortTick.restart()); });
    sortTick.start();
    sortProbe.start();
    frame.Model()->sort(2, Qt::DescendingOrder);
    frame.Model()->WaitIdle();
    QCoreApplication::processEvents();
    sortProbe.stop();
    sortStall = std::max(sortStall, sortTick.elapsed());
    const double sortMs = listTimer.nsecsElapsed() / 1e6;
    const long listKiB = StatusKiB("VmRSS") - before;

    std::printf("\n%-52s %12s %12s %8s\n", "measure", "tessaly", "pffinfo -a", "ratio");
    std::printf("%-52s %12.1f %12.1f %8.2f\n", "time to the folder tree (ms)", treeMs, pffinfoMs,
        pffinfoMs > 0 ? treeMs / pffinfoMs : 0.0);
    std::printf("%-52s %12lld %12s %8s\n", "longest stall of the window's thread (ms)", qint64(longest), "-", "-");
    std::printf("%-52s %12s\n", "tree showed \"Loading ...\" while the job ran", loadingShown ? "yes" : "no");
    std::printf("%-52s %12ld\n", "peak resident memory when the tree stands (KiB)", treePeakKiB);
    if (!previews.empty()) {
        std::printf("%-52s %12zu\n", "messages previewed", previews.size());
        std::printf("%-52s %12.1f\n", "preview, median (ms)", previews[previews.size() / 2]);
        std::printf("%-52s %12.1f\n", "preview, worst (ms)", previews.back());
    }
    std::printf("%-52s %12.1f   (%d rows read)\n", "100,000 rows: first screen (ms)", firstScreenMs, readFirst);
    std::printf("%-52s %12.1f   (%d rows read)\n", "100,000 rows: scroll to the end (ms)", scrollMs, readScrolled);
    std::printf("%-52s %12.1f\n", "100,000 rows: sort by subject, all rows read (ms)", sortMs);
    std::printf("%-52s %12lld\n", "100,000 rows: longest stall while sorting (ms)", static_cast<long long>(sortStall));
    std::printf("%-52s %12ld\n", "100,000 rows: memory after sorting (KiB)", listKiB);
    std::printf("%-52s %12ld\n", "peak resident memory of the run (KiB)", StatusKiB("VmHWM"));

    if (!shots.isEmpty()) {
        // The message with the most attachments, one with an inline
        // picture, a contact folder, then two more files (one broken).
        frame.hide();
        struct TPick {
            const app::TPSTNode* node = nullptr;
            int row = -1;
            int score = 0;
        } attachments, inlined, contacts, forwarded;
        std::function<void(const app::TPSTNode&)> find = [&](const app::TPSTNode& node) {
            for (const auto& child : node.Children) {
                if (child->Folder && dynamic_cast<pst::TPSTContactFolder*>(child->Folder) && (!contacts.node || child->ItemCount > contacts.score))
                    contacts = {child.get(), 0, child->ItemCount};
                pst::TPSTMailDataStore rows;
                rows.LoadFolder(child->Folder);
                for (int row = 0; row < rows.RowCount(); ++row) {
                    const auto message = rows.Message(row);
                    const auto list = message ? message->Attaches() : nullptr;
                    const int count = list ? list->Count() : 0;
                    if (count > attachments.score)
                        attachments = {child.get(), row, count};
                    for (int i = 0; i < count && !forwarded.node; ++i)
                        if (list->GetAttach(i)->AsMailMessage())
                            forwarded = {child.get(), row, i};
                    if (!inlined.node && message && message->Body(mail::mbtHTML).contains(QLatin1String("cid:")))
                        inlined = {child.get(), row, 1};
                }
                find(*child);
            }
        };
        for (const auto& node : form.TreeModel()->FileNodes())
            find(*node);
        const auto show = [&](const TPick& pick, const QString& name) {
            if (!pick.node)
                return;
            form.FocusNode(pick.node);
            Pump(200);
            app::TPSTBrowseFrame* list = form.MainTabs()->currentIndex() == 1 ? form.ContactBrowse() : form.MailBrowse();
            const int view = list->Model()->ViewRow(pick.row);
            list->View()->setCurrentIndex(list->Model()->index(view, 1));
            Pump(1500);
            Shot(form, shots, name);
        };
        show(attachments, QStringLiteral("attachments.png"));
        show(inlined, QStringLiteral("inline-image.png"));
        show(contacts, QStringLiteral("contacts.png"));
        // An attached message, opened from the preview in a window of its own.
        if (forwarded.node) {
            show(forwarded, QStringLiteral("forwarding-message.png"));
            form.InfoFrame()->SetActiveAttach(forwarded.score);
            const QString opened = form.InfoFrame()->OpenAttach();
            Pump(2000);
            for (QWidget* window : QApplication::topLevelWidgets())
                if (auto* message = dynamic_cast<app::TMessageForm*>(window); message && message->isVisible()) {
                    message->resize(900, 640);
                    Pump(1500);
                    Shot(*message, shots, QStringLiteral("attached-message.png"));
                    message->close();
                }
            std::printf("attached message opened from %s\n", qUtf8Printable(opened));
        }
        // Enter on the list: the message in a window of its own; then the
        // shown message printed to PDF (turned into pictures with pdftoppm).
        if (attachments.node) {
            show(attachments, QStringLiteral("attachments.png"));
            QTreeView* view = form.MailBrowse()->View();
            form.activateWindow();
            view->setFocus();
            Pump(300);
            QTest::keyClick(view, Qt::Key_Return);
            Pump(2000);
            for (QWidget* window : QApplication::topLevelWidgets())
                if (auto* message = dynamic_cast<app::TMessageForm*>(window); message && message->isVisible()) {
                    message->resize(900, 640);
                    Pump(1500);
                    Shot(*message, shots, QStringLiteral("enter-message-window.png"));
                    message->close();
                }
            bool printed = false;
            const QString pdf = QDir(shots).filePath(QStringLiteral("message.pdf"));
            form.InfoFrame()->SaveAsPdf(pdf, [&](bool ok) {
                printed = true;
                std::printf("message printed to %s: %s\n", qUtf8Printable(pdf), ok ? "written" : "failed");
            });
            for (int i = 0; i < 300 && !printed; ++i)
                Pump(100);
        }
        if (attachments.node) {
            form.FocusNode(attachments.node);
            Pump(200);
            tasks::TMailProperties properties;
            properties.SetConvertType(tasks::mctEML);
            tasks::TMailEMLTask task(properties);
            const int count = form.AddExportEntries(task);
            app::TExportDialog dialog(properties, count ? task.Entries().front().Load() : nullptr, count, &form);
            dialog.show();
            Shot(dialog, shots, QStringLiteral("export-dialog.png"));
            dialog.SetFormat(tasks::mctPDF);
            Shot(dialog, shots, QStringLiteral("export-dialog-pdf.png"));
            dialog.SetFormat(tasks::mctVCard);
            Shot(dialog, shots, QStringLiteral("export-dialog-vcard.png"));
        }
        const QString broken = dir.filePath(QStringLiteral("broken.pst"));
        QFile brokenFile(broken);
        brokenFile.open(QIODevice::WriteOnly);
        brokenFile.write(QByteArray(8192, 'B'));
        brokenFile.close();
        const QString testdata = QFileInfo(file).absolutePath();
        form.OpenFiles(QDir(testdata).filePath(QStringLiteral("enron.pst")) + QLatin1Char('\n') + broken + QLatin1Char('\n')
            + QDir(testdata).filePath(QStringLiteral("sample2.pst")));
        form.WaitLoaded(600000);
        form.InfoFrame()->ClearView();
        Shot(form, shots, QStringLiteral("three-files.png"));
        // The file that failed, selected: the status bar says why.
        if (app::TPSTNode* failed = form.TreeModel()->FindFileNode(broken)) {
            form.Tree()->setCurrentIndex(form.TreeModel()->IndexOf(failed));
            Pump(500);
            Shot(form, shots, QStringLiteral("failed-file.png"));
        }
    }
    return 0;
}
