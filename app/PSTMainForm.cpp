#include "app/PSTMainForm.h"

#include "app/MailBrowseFrame.h"
#include "app/MailInfoFrame.h"
#include "app/WindowGeometry.h"
#include "app/ExportDialog.h"
#include "app/PSTSearchDialog.h"
#include "app/ProjectData.h"
#include "core/MessageBus.h"
#include "core/SettingsStore.h"
#include "core/Version.h"
#include "mail/FileMailMsg.h"
#include "tasks/MailExportSource.h"
#include "tasks/MailOtherTasks.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTextBrowser>
#include <QWebEngineView>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QTabBar>
#include <QTabWidget>
#include <QThread>
#include <QToolBar>
#include <QTreeView>

namespace tessaly::app {

using core::TMessageBus;

namespace {

const QString DesktopSection = QStringLiteral("Desktop\\Main");
const QString PSTSection = QStringLiteral("Desktop\\PST");

} // namespace

// --- TMailMainForm ---------------------------------------------------------------

TMailMainForm::TMailMainForm(core::TSettingsStore& settings, QWidget* parent)
    : QMainWindow(parent), m_settings(settings)
{
    setWindowTitle(QCoreApplication::translate("TMailMainForm", "Tessaly"));
    PlaceFirstWindow(*this);

    m_tabs = new QTabWidget;
    m_tabs->tabBar()->hide();
    m_tabs->setDocumentMode(true);
    m_mailBrowse = new TPSTBrowseFrame;
    m_contactBrowse = new TPSTBrowseFrame;
    m_tabs->addTab(m_mailBrowse, QCoreApplication::translate("TMailMainForm", "Mail Browse"));
    m_tabs->addTab(m_contactBrowse, QCoreApplication::translate("TMailMainForm", "Contacts"));
    m_info = new TMailInfoFrame;
    m_previewSplitter = new QSplitter(Qt::Horizontal);
    m_previewSplitter->addWidget(m_tabs);
    m_previewSplitter->addWidget(m_info);
    m_previewSplitter->setStretchFactor(0, 3);
    m_previewSplitter->setStretchFactor(1, 2);
    m_mainSplitter = new QSplitter(Qt::Horizontal);
    setCentralWidget(m_mainSplitter);

    for (TPSTBrowseFrame* frame : {m_mailBrowse, m_contactBrowse}) {
        frame->OnFocusMessage = [this](std::shared_ptr<mail::IMailMessage> message) { m_info->Navigate(std::move(message)); };
        frame->OnOpenMessage = [this](std::shared_ptr<mail::IMailMessage> message) { OpenMessageWindow(std::move(message)); };
    }

    m_fileMenu = menuBar()->addMenu(QCoreApplication::translate("TMailMainForm", "&File"));
    // The keyboard's commands, each with its key shown.
    m_viewMenu = menuBar()->addMenu(QCoreApplication::translate("TMailMainForm", "&View"));
    m_viewMenu->addAction(m_info->FindAction());
    m_miSearch = m_viewMenu->addAction(QCoreApplication::translate("TMailMainForm", "Search the list"), this, [this] {
        auto* frame = m_tabs->currentIndex() == 1 ? m_contactBrowse : m_mailBrowse;
        frame->SearchBox()->setFocus(Qt::ShortcutFocusReason);
        frame->SearchBox()->selectAll();
    });
    m_miSearch->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_K));
    QAction* open = m_viewMenu->addAction(QCoreApplication::translate("TMailMainForm", "Open message in new window"), this, [this] {
        (m_tabs->currentIndex() == 1 ? m_contactBrowse : m_mailBrowse)->OpenMessageAction()->trigger();
    });
    // Shown here; the list itself takes the key (Enter belongs to the
    // focused control everywhere else).
    open->setShortcuts({QKeySequence(Qt::Key_Return)});
    open->setShortcutContext(Qt::WidgetShortcut);
    m_viewMenu->addSeparator();
    m_miNextPane = m_viewMenu->addAction(QCoreApplication::translate("TMailMainForm", "Next pane"), this, [this] { FocusPane(1); });
    m_miNextPane->setShortcut(QKeySequence(Qt::Key_F6));
    m_miPreviousPane = m_viewMenu->addAction(QCoreApplication::translate("TMailMainForm", "Previous pane"), this, [this] { FocusPane(-1); });
    m_miPreviousPane->setShortcut(QKeySequence(Qt::SHIFT | Qt::Key_F6));
    m_helpMenu = menuBar()->addMenu(QCoreApplication::translate("TMailMainForm", "&Help"));
    QAction* about = m_helpMenu->addAction(QCoreApplication::translate("TMailMainForm", "&About Tessaly..."), this, &TMailMainForm::ShowAbout);
    about->setShortcut(QKeySequence::HelpContents);

    m_statusFiles = new QLabel;
    m_statusFolder = new QLabel;
    m_statusProgress = new QProgressBar;
    m_statusProgress->setRange(0, 0);
    m_statusProgress->setMaximumWidth(160);
    m_statusProgress->setMaximumHeight(14);
    m_statusProgress->hide();
    statusBar()->addWidget(m_statusFiles);
    statusBar()->addWidget(m_statusFolder, 1);
    statusBar()->addPermanentWidget(m_statusProgress);

    auto& bus = TMessageBus::Instance();
    bus.Subscribe(this, core::Topic::FileChecked, TMessageBus::THandler([this](const QVariant&) {
        const int count = m_checked.Count();
        statusBar()->showMessage(count ? QCoreApplication::translate("TMailMainForm", "%1 checked").arg(count) : QString(), 3000);
    }));
    bus.Subscribe(this, core::Topic::GuiFontSize, TMessageBus::THandler([this](const QVariant& data) {
        if (data.toInt() > 0) {
            QFont font = m_info->font();
            font.setPointSize(data.toInt());
            m_info->setFont(font);
        }
    }));
}

TMailMainForm::~TMailMainForm()
{
    TMessageBus::Instance().Unsubscribe(this);
}

void TMailMainForm::LoadSettings()
{
    const QByteArray geometry = QByteArray::fromBase64(m_settings.ReadString(DesktopSection, QStringLiteral("geometry")).toLatin1());
    if (!geometry.isEmpty() && restoreGeometry(geometry))
        KeepOnScreen(*this);
    const QByteArray main = QByteArray::fromBase64(m_settings.ReadString(DesktopSection, QStringLiteral("splitter")).toLatin1());
    if (main.isEmpty())
        m_mainSplitter->setSizes({260, 940});
    else
        m_mainSplitter->restoreState(main);
    const QByteArray preview = QByteArray::fromBase64(m_settings.ReadString(DesktopSection, QStringLiteral("preview")).toLatin1());
    if (preview.isEmpty())
        m_previewSplitter->setSizes({540, 400});
    else
        m_previewSplitter->restoreState(preview);
    m_mailBrowse->Load(m_settings);
    m_contactBrowse->Load(m_settings);
}

void TMailMainForm::SaveSettings()
{
    m_settings.WriteString(DesktopSection, QStringLiteral("geometry"), QString::fromLatin1(saveGeometry().toBase64()));
    m_settings.WriteString(DesktopSection, QStringLiteral("splitter"), QString::fromLatin1(m_mainSplitter->saveState().toBase64()));
    m_settings.WriteString(DesktopSection, QStringLiteral("preview"), QString::fromLatin1(m_previewSplitter->saveState().toBase64()));
    m_mailBrowse->Save(m_settings);
    m_contactBrowse->Save(m_settings);
    m_settings.Sync();
}

QList<QWidget*> TMailMainForm::Panes() const
{
    return {(m_tabs->currentIndex() == 1 ? m_contactBrowse : m_mailBrowse)->View(), m_info->FocusTarget()};
}

int TMailMainForm::FocusedPane() const
{
    const QList<QWidget*> panes = Panes();
    for (QWidget* focus = QApplication::focusWidget(); focus; focus = focus->parentWidget()) {
        for (qsizetype i = 0; i < panes.size(); ++i)
            if (focus == panes[i] || focus == panes[i]->focusProxy())
                return int(i);
        // The search box and the buttons above a list belong to its pane,
        // the find bar to the preview.
        if (focus == m_mailBrowse || focus == m_contactBrowse)
            return int(panes.indexOf(static_cast<TPSTBrowseFrame*>(focus)->View()));
        if (focus == m_info)
            return int(panes.size()) - 1;
    }
    return -1;
}

void TMailMainForm::FocusPane(int step)
{
    const QList<QWidget*> panes = Panes();
    const int current = FocusedPane();
    const int count = int(panes.size());
    const int next = current < 0 ? (step > 0 ? 0 : count - 1) : ((current + step) % count + count) % count;
    panes[next]->setFocus(Qt::ShortcutFocusReason);
}

void TMailMainForm::OpenMessageWindow(std::shared_ptr<mail::IMailMessage> message)
{
    if (!message)
        return;
    auto* form = new TMessageForm(std::move(message), this);
    form->setAttribute(Qt::WA_DeleteOnClose);
    form->setWindowFlag(Qt::Window);
    form->show();
}

void TMailMainForm::closeEvent(QCloseEvent* event)
{
    SaveSettings();
    QMainWindow::closeEvent(event);
}

void TMailMainForm::ShowAbout()
{
    QMessageBox::about(this, QCoreApplication::translate("TMailMainForm", "About Tessaly"),
        QCoreApplication::translate("TMailMainForm", "<h3>Tessaly %1</h3><p>A viewer for Outlook data files (PST, OST) and single "
                                                     "messages (MSG, EML).</p><p>Every file is opened read only.</p>")
            .arg(QLatin1String(core::ProductVersion)));
}

// --- TPSTMainForm ----------------------------------------------------------------

TPSTMainForm::TPSTMainForm(TPSTViewerProjectData& projectData, core::TSettingsStore& settings,
    const QString& commandLineFile, QWidget* parent)
    : TMailMainForm(settings, parent), m_projectData(projectData), m_commandLineFile(commandLineFile)
{
    AskOpenFile = [this](const QString& title, const QString& filter) {
        QString qtFilter = filter;
        // "Caption|pattern|Caption|pattern" as Qt's "Caption (pattern);;..."
        const QStringList parts = filter.split(QLatin1Char('|'));
        QStringList filters;
        for (qsizetype i = 0; i + 1 < parts.size(); i += 2)
            filters << QStringLiteral("%1 (%2)").arg(parts[i].section(QLatin1Char('('), 0, 0).trimmed(),
                QString(parts[i + 1]).replace(QLatin1Char(';'), QLatin1Char(' ')));
        return QFileDialog::getOpenFileName(this, title, {}, filters.join(QStringLiteral(";;")));
    };
    FindFiles = [this] {
        TPSTSearchDialog dialog(this);
        QStringList files;
        dialog.Open(files);
        return files;
    };
    AskExport = [](TExportDialog& dialog) { return dialog.exec() == QDialog::Accepted; };
    ShowExportSummary = [](QMessageBox& box) { box.exec(); };
    ShowWarning = [this](const QString& text) { QMessageBox::warning(this, QCoreApplication::translate("TPSTMainForm", "Tessaly"), text); };
    OpenMessageFile = [this](const QString& fileName) {
        auto* form = new TMessageForm(fileName, this);
        form->setAttribute(Qt::WA_DeleteOnClose);
        form->setWindowFlag(Qt::Window);
        form->show();
    };
    m_projectData.SetMessageFileHandler([this](const QString& fileName) { OpenMessageFile(fileName); });

    m_model = new TPSTTreeModel(this);
    m_model->Images = TreeImage;
    m_tree = new QTreeView;
    m_tree->setModel(m_model);
    m_tree->header()->hide();
    m_tree->setContextMenuPolicy(Qt::CustomContextMenu);
    m_tree->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_mainSplitter->addWidget(m_tree);
    m_mainSplitter->addWidget(m_previewSplitter);
    m_mainSplitter->setStretchFactor(1, 1);
    setAcceptDrops(true);

    m_miOpenFile = m_fileMenu->addAction(QCoreApplication::translate("TPSTMainForm", "&Open Outlook data file..."), this,
        &TPSTMainForm::OpenFileCommand);
    m_miOpenFile->setShortcut(QKeySequence::Open);
    m_miFindPST = m_fileMenu->addAction(QCoreApplication::translate("TPSTMainForm", "Find Outlook files"), this, &TPSTMainForm::FindFilesCommand);
    m_fileMenu->addSeparator();
    m_miExport = m_fileMenu->addAction(QCoreApplication::translate("TPSTMainForm", "&Export..."), this, &TPSTMainForm::ExportCommand);
    m_miExport->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_E));
    m_miExport->setToolTip(QCoreApplication::translate("TPSTMainForm", "Export the ticked messages, or the selected folder, to files of the format chosen (Ctrl+E)"));
    m_fileMenu->addSeparator();
    // The shown message.
    m_fileMenu->addAction(m_info->PrintAction());
    m_fileMenu->addAction(m_info->SavePdfAction());
    m_fileMenu->addAction(m_info->SaveAllAction());
    m_fileMenu->addSeparator();
    m_miClosePst = m_fileMenu->addAction(QCoreApplication::translate("TPSTMainForm", "Close Outlook data file"));
    m_miClosePst->setVisible(false);
    m_fileMenu->addSeparator();
    QAction* quit = m_fileMenu->addAction(QCoreApplication::translate("TPSTMainForm", "E&xit"), this, &QWidget::close);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q)); // QKeySequence::Quit is empty on some desktops

    QToolBar* toolbar = addToolBar(QCoreApplication::translate("TPSTMainForm", "Main"));
    toolbar->setObjectName(QStringLiteral("MainToolBar"));
    toolbar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    toolbar->addAction(m_miOpenFile);
    toolbar->addAction(m_miExport);
    m_miOpenFile->setIcon(style()->standardIcon(QStyle::SP_DialogOpenButton));
    m_miExport->setIcon(style()->standardIcon(QStyle::SP_DialogSaveButton));
    for (TPSTBrowseFrame* frame : {m_mailBrowse, m_contactBrowse}) {
        frame->PopupMenu()->addSeparator();
        frame->PopupMenu()->addAction(m_miExport);
    }

    m_pmTree = new QMenu(this);
    m_miPSTLanguage = m_pmTree->addMenu(QCoreApplication::translate("TPSTMainForm", "File language"));
    m_miDisablePST = m_pmTree->addAction(QCoreApplication::translate("TPSTMainForm", "Disable"), this, [this] {
        if (!m_menuNode)
            return;
        if (m_menuNode->State == nsDisabled)
            EnableFile(m_menuNode);
        else
            DisableFile(m_menuNode);
    });
    m_miRemovePST = m_pmTree->addAction(QCoreApplication::translate("TPSTMainForm", "Remove"), this, [this] {
        if (m_menuNode)
            RemoveFile(m_menuNode);
    });
    connect(m_tree, &QWidget::customContextMenuRequested, this, &TPSTMainForm::ShowTreeMenu);
    m_miFindPST->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O));
    m_miClosePst->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_W));
    // The tree's commands act on its focused file from the keyboard.
    const auto treeKey = [this](QAction* command, const QKeySequence& key) {
        command->setShortcut(key);
        command->setShortcutVisibleInContextMenu(true);
        auto* shortcut = new QAction(m_tree);
        shortcut->setShortcut(key);
        shortcut->setShortcutContext(Qt::WidgetShortcut);
        connect(shortcut, &QAction::triggered, this, [this, command] {
            if (!PrepareTreeMenu(m_tree->visualRect(m_tree->currentIndex()).center()))
                return;
            command->trigger();
            m_menuNode = nullptr;
        });
        m_tree->addAction(shortcut);
    };
    treeKey(m_miRemovePST, QKeySequence::Delete);
    treeKey(m_miDisablePST, QKeySequence(Qt::CTRL | Qt::Key_D));

    // Tab and Shift+Tab: tree, list, preview.
    setTabOrder(m_tree, m_mailBrowse->View());
    setTabOrder(m_mailBrowse->View(), m_contactBrowse->View());
    setTabOrder(m_contactBrowse->View(), m_info->EmptyView());
    setTabOrder(m_info->EmptyView(), m_info->BodyView());
    setTabOrder(m_info->BodyView(), m_info->TextView());
    setTabOrder(m_info->TextView(), m_info->HeadersView());

    FormCreate();
}

QList<QWidget*> TPSTMainForm::Panes() const
{
    return QList<QWidget*>{m_tree} + TMailMainForm::Panes();
}

void TPSTMainForm::FormCreate()
{
    for (TPSTBrowseFrame* frame : {m_mailBrowse, m_contactBrowse})
        frame->OnRowsShown = [this] { UpdateStatus(); };
    // The selection of the tree drives the list.
    connect(m_tree->selectionModel(), &QItemSelectionModel::currentChanged, this, [this](const QModelIndex& index) {
        if (m_focusAttached)
            FocusChanged(index);
    });
    for (const QString& line : m_commandLineFile.split(QLatin1Char('\n')))
        if (const QString path = AbsoluteDataPath(ParseOpenEntry(line).Path); !path.isEmpty())
            m_commandLinePaths << path;
    if (!m_commandLineFile.isEmpty()) {
        if (m_projectData.CheckOutlookRunning())
            ShowWarning(QCoreApplication::translate("TPSTMainForm", "Please, close Outlook"));
        OpenFiles(m_commandLineFile);
    }
    TMessageBus::Instance().Subscribe(this, core::Topic::PstFolderRequest, TMessageBus::TAnswerHandler([this](const QVariant&) {
        pst::TPSTFolder* folder = FocusedFolder();
        return folder ? QVariant::fromValue(static_cast<void*>(folder)) : QVariant();
    }));
    UpdateStatus();
}

TPSTMainForm::~TPSTMainForm()
{
    TMessageBus::Instance().Unsubscribe(this);
    // The job's result is dropped; its thread is waited for before the
    // files it may still touch go.
    if (m_job) {
        m_job->disconnect(this);
        m_job->wait();
        delete m_job;
        m_job = nullptr;
    }
    m_mailBrowse->Navigate({}, nullptr);
    m_contactBrowse->Navigate({}, nullptr);
    for (TPSTBrowseFrame* frame : {m_mailBrowse, m_contactBrowse})
        frame->OnRowsShown = nullptr; // the window's part is gone before its children
    m_info->ClearView();
    m_queue.clear();
}

// --- opening ---------------------------------------------------------------------

void TPSTMainForm::OpenFiles(const QString& list)
{
    m_tree->setUpdatesEnabled(false);
    m_focusAttached = false;
    for (const QString& line : list.split(QLatin1Char('\n'))) {
        if (line.trimmed().isEmpty())
            continue;
        const TOpenEntry entry = ParseOpenEntry(line);
        const QString path = AbsoluteDataPath(entry.Path);
        if (path.isEmpty() || m_projectData.Removed().Has(path) || m_model->FindFileNode(path))
            continue;
        TPSTNode* node = m_model->AddFileNode(path, nsLoading);
        if (m_projectData.Disabled().Has(path)) {
            m_model->SetState(node, nsDisabled);
            continue;
        }
        Queue(node, entry.Number);
    }
    m_focusAttached = true;
    m_tree->setUpdatesEnabled(true);
    if (m_tree->currentIndex().isValid())
        FocusChanged(m_tree->currentIndex());
    UpdateStatus();
}

void TPSTMainForm::Queue(TPSTNode* node, int number, int codePage)
{
    TPSTQueueData data;
    data.Node = node;
    data.Number = number;
    data.CodePage = codePage;
    m_queue.append({node->Name, data});
    if (!m_busy)
        StartNext();
}

void TPSTMainForm::Unqueue(TPSTNode* node)
{
    m_queue.removeIf([node](const auto& entry) { return entry.second.Node == node; });
    if (m_busy && m_busy->Node == node)
        m_busy->Node = nullptr; // the job's result will be discarded
}

void TPSTMainForm::StartNext()
{
    if (m_busy)
        return;
    if (m_queue.isEmpty()) {
        m_captions.MakeUnique();
        m_model->CaptionsChanged();
        UpdateStatus();
        return;
    }
    const auto [path, data] = m_queue.takeFirst();
    m_busy = data.MakeCopy();
    const int codePage = data.CodePage;
    m_job = QThread::create([this, path = path, codePage] {
        auto result = OpenPSTFile(path, codePage);
        QMetaObject::invokeMethod(this, [this, result] { JobMessage(result); }, Qt::QueuedConnection);
    });
    m_job->setObjectName(QStringLiteral("OpenPSTTask"));
    connect(m_job, &QThread::finished, this, &TPSTMainForm::JobEnded, Qt::QueuedConnection);
    m_job->start(QThread::LowPriority);
    UpdateStatus();
}

void TPSTMainForm::JobMessage(std::shared_ptr<TOpenResult> result)
{
    TPSTNode* node = m_busy ? m_busy->Node : nullptr;
    if (!node || node->State == nsDisabled || !result)
        return; // disabled or removed meanwhile: the file goes with the result
    if (!result->File || !result->File->RootFolder()) {
        const QString reason = pst::OpenErrorText(result->File ? result->File->OpenError() : pst::oeCannotOpen);
        m_model->SetOpenFailed(node, reason);
        statusBar()->showMessage(QStringLiteral("%1: %2").arg(node->Name, reason), 10000);
        UpdateStatus();
        return;
    }
    const bool focus = !m_tree->currentIndex().isValid();
    const TPSTNode* first = nullptr;
    m_model->SetFile(node, std::move(*result), [&](TPSTNode* folder) {
        if (focus && !first && folder->ItemCount > 0)
            first = folder;
    });
    node->Image = QStringLiteral("outlook");
    if (node->File->FoldersLeftOut())
        statusBar()->showMessage(QStringLiteral("%1: %2").arg(node->File->FileName(), pst::FoldersLeftOutText()));
    m_captions.Add(node->File.get(), m_busy->Number);
    m_model->CaptionsChanged();
    m_tree->expand(m_model->IndexOf(node));
    if (first)
        FocusNode(first);
    else if (focus)
        FocusNode(node);
}

void TPSTMainForm::JobEnded()
{
    if (m_job) {
        m_job->wait();
        delete m_job;
        m_job = nullptr;
    }
    m_busy.reset();
    StartNext();
}

bool TPSTMainForm::WaitLoaded(int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (Loading()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(2);
    }
    QCoreApplication::processEvents();
    return true;
}

// --- commands --------------------------------------------------------------------

void TPSTMainForm::OpenFileCommand()
{
    const QString fileName = AskOpenFile(QCoreApplication::translate("TPSTMainForm", "Open Outlook data file"),
        QCoreApplication::translate("TPSTMainForm", "Outlook data files (*.pst,*.ost)|*.pst;*.ost|Any files (*.*)|*.*"));
    if (!fileName.isEmpty())
        OpenChosenFile(fileName);
}

void TPSTMainForm::OpenChosenFile(const QString& fileName)
{
    if (!TPSTViewerProjectData::IsDataFile(fileName)) {
        if (const TFileHandler handler = m_projectData.AcceptFile(fileName)) {
            handler(fileName);
            return;
        }
    }
    m_projectData.Removed().Define(fileName, false);
    m_projectData.Disabled().Define(fileName, false);
    OpenFiles(fileName);
}

void TPSTMainForm::FindFilesCommand()
{
    const QStringList files = FindFiles();
    if (!files.isEmpty())
        OpenFiles(files.join(QLatin1Char('\n')));
}

void TPSTMainForm::ForgetShown(TPSTNode* node)
{
    // The list and the preview let go of the file's folders first.
    const pst::TPSTFile* file = node->File.get();
    if (!file)
        return;
    for (TPSTBrowseFrame* frame : {m_mailBrowse, m_contactBrowse})
        if (frame->CurrentFile() == file)
            frame->Navigate({}, nullptr);
    m_info->ClearView();
    m_checked.ForgetFile(file->FileName());
    m_captions.Remove(node->File.get());
}

void TPSTMainForm::DisableFile(TPSTNode* node)
{
    if (!node || !node->IsFileNode())
        return;
    Unqueue(node);
    m_projectData.Disabled().Define(node->Name, true);
    ForgetShown(node);
    m_model->ClearFile(node);
    m_model->SetState(node, nsDisabled);
    m_model->CaptionsChanged();
    UpdateStatus();
}

void TPSTMainForm::EnableFile(TPSTNode* node)
{
    if (!node || !node->IsFileNode())
        return;
    m_projectData.Disabled().Define(node->Name, false);
    m_model->SetState(node, nsLoading);
    Queue(node, 0);
    UpdateStatus();
}

void TPSTMainForm::RemoveFile(TPSTNode* node)
{
    if (!node || !node->IsFileNode())
        return;
    Unqueue(node);
    ForgetShown(node);
    m_projectData.Removed().Define(node->Name, true);
    if (m_menuNode == node)
        m_menuNode = nullptr;
    m_model->RemoveFileNode(node);
    m_model->CaptionsChanged();
    SaveFileList();
    UpdateStatus();
}

void TPSTMainForm::SetFileLanguage(TPSTNode* node, int codePage)
{
    if (!node || !node->File || node->File->Is64Bit())
        return;
    ForgetShown(node);
    m_model->ClearFile(node);
    m_model->SetState(node, nsLoading);
    Queue(node, 0, codePage);
}

QList<QPair<int, QString>> TPSTMainForm::FileLanguages()
{
    return {
        {1250, QCoreApplication::translate("TPSTMainForm", "Central European (1250)")},
        {1251, QCoreApplication::translate("TPSTMainForm", "Cyrillic (1251)")},
        {1252, QCoreApplication::translate("TPSTMainForm", "Western European (1252)")},
        {1253, QCoreApplication::translate("TPSTMainForm", "Greek (1253)")},
        {1254, QCoreApplication::translate("TPSTMainForm", "Turkish (1254)")},
        {1255, QCoreApplication::translate("TPSTMainForm", "Hebrew (1255)")},
        {1256, QCoreApplication::translate("TPSTMainForm", "Arabic (1256)")},
        {1257, QCoreApplication::translate("TPSTMainForm", "Baltic (1257)")},
        {1258, QCoreApplication::translate("TPSTMainForm", "Vietnamese (1258)")},
        {874, QCoreApplication::translate("TPSTMainForm", "Thai (874)")},
        {932, QCoreApplication::translate("TPSTMainForm", "Japanese (932)")},
        {936, QCoreApplication::translate("TPSTMainForm", "Chinese Simplified (936)")},
        {949, QCoreApplication::translate("TPSTMainForm", "Korean (949)")},
        {950, QCoreApplication::translate("TPSTMainForm", "Chinese Traditional (950)")},
        {866, QCoreApplication::translate("TPSTMainForm", "Cyrillic DOS (866)")},
        {437, QCoreApplication::translate("TPSTMainForm", "US DOS (437)")}};
}

bool TPSTMainForm::PrepareTreeMenu(const QPoint& pos)
{
    // The file node under the pointer, or above the node under it.
    QModelIndex index = m_tree->indexAt(pos);
    TPSTNode* node = TPSTTreeModel::NodeOf(index);
    while (node && node->Parent)
        node = node->Parent;
    m_menuNode = node;
    if (!node)
        return false; // "Can not find file node"
    const bool loaded = node->File && node->State == nsLoaded;
    m_miPSTLanguage->clear();
    m_miPSTLanguage->setEnabled(loaded && !node->File->Is64Bit());
    if (loaded && !node->File->Is64Bit()) {
        const int current = node->File->AsciiCodePage();
        for (const auto& [codePage, caption] : FileLanguages()) {
            QAction* action = m_miPSTLanguage->addAction(caption);
            action->setCheckable(true);
            action->setChecked(codePage == current);
            connect(action, &QAction::triggered, this, [this, node, cp = codePage] { SetFileLanguage(node, cp); });
        }
    }
    m_miDisablePST->setText(node->State == nsDisabled ? QCoreApplication::translate("TPSTMainForm", "Enable")
                                                      : QCoreApplication::translate("TPSTMainForm", "Disable"));
    return true;
}

void TPSTMainForm::ShowTreeMenu(const QPoint& pos)
{
    if (PrepareTreeMenu(pos))
        m_pmTree->exec(m_tree->viewport()->mapToGlobal(pos));
}

// --- focus and current folder ----------------------------------------------------

void TPSTMainForm::FocusNode(const TPSTNode* node)
{
    const QModelIndex index = m_model->IndexOf(node);
    if (!index.isValid())
        return;
    m_tree->expand(index.parent());
    m_tree->setCurrentIndex(index);
}

pst::TPSTFolder* TPSTMainForm::FocusedFolder() const
{
    const TPSTNode* node = TPSTTreeModel::NodeOf(m_tree->currentIndex());
    if (!node)
        return nullptr;
    if (node->Folder)
        return node->Folder;
    return node->File ? node->File->RootFolder() : nullptr;
}

void TPSTMainForm::FocusChanged(const QModelIndex& index)
{
    const TPSTNode* node = TPSTTreeModel::NodeOf(index);
    if (!node || (!node->File && !node->Folder)) {
        UpdateStatus(); // a file that failed to open says why
        return;
    }
    pst::TPSTFolder* folder = node->Folder ? node->Folder : node->File->RootFolder();
    const bool contacts = dynamic_cast<pst::TPSTContactFolder*>(folder) != nullptr;
    m_tabs->setCurrentIndex(contacts ? 1 : 0);
    TPSTBrowseFrame* frame = contacts ? m_contactBrowse : m_mailBrowse;
    TPSTBrowseFrame* other = contacts ? m_mailBrowse : m_contactBrowse;
    other->Navigate({}, nullptr);
    frame->Navigate(CurrentFolderPath(), folder);
    m_info->ClearView();
    UpdateStatus();
    // What is in view: the folder, the data file, the program.
    const QString file = QFileInfo(CurrentFileName()).fileName();
    setWindowTitle(node->Folder ? QCoreApplication::translate("TPSTMainForm", "%1 - %2 - Tessaly").arg(node->Caption(), file)
                                : QCoreApplication::translate("TPSTMainForm", "%1 - Tessaly").arg(file));
}

QString TPSTMainForm::CurrentFileName() const
{
    const TPSTNode* node = TPSTTreeModel::NodeOf(m_tree->currentIndex());
    if (!node)
        return {};
    const TPSTNode* file = node->FileNode();
    return file->File ? file->File->FileName() : file->Name;
}

QString TPSTMainForm::CurrentFolderPath() const
{
    QStringList names;
    for (const TPSTNode* node = TPSTTreeModel::NodeOf(m_tree->currentIndex()); node && node->Folder; node = node->Parent)
        names.prepend(node->Caption());
    return BuildFolderPath(names);
}

QString TPSTMainForm::SelectionCommandLine() const
{
    return QLatin1Char('"') + CurrentFolderPath() + QStringLiteral("\" -pst \"") + CurrentFileName() + QLatin1Char('"');
}

void TPSTMainForm::UpdateStatus()
{
    int files = 0;
    int folders = 0;
    std::function<void(const TPSTNode&)> count = [&](const TPSTNode& node) {
        for (const auto& child : node.Children) {
            ++folders;
            count(*child);
        }
    };
    for (const auto& node : m_model->FileNodes()) {
        if (node->File)
            ++files;
        count(*node);
    }
    m_statusFiles->setText(QCoreApplication::translate("TPSTMainForm", "%1 file(s), %2 folder(s)").arg(files).arg(folders));
    const TPSTNode* focused = TPSTTreeModel::NodeOf(m_tree->currentIndex());
    // While a search text or the export filter narrows the list: "N of M".
    const QString shown = (m_tabs->currentIndex() == 1 ? m_contactBrowse : m_mailBrowse)->CountText();
    if (focused && (focused->Folder || focused->File))
        m_statusFolder->setText(QStringLiteral("%1: %2").arg(CurrentFolderPath(),
            shown.isEmpty() ? QCoreApplication::translate("TPSTMainForm", "%1 item(s)").arg(focused->ItemCount) : shown));
    else if (focused && focused->State == nsOpenFailed)
        m_statusFolder->setText(QStringLiteral("%1: %2").arg(focused->Name, focused->Error));
    else if (m_model->FileNodes().empty())
        m_statusFolder->setText(
            QCoreApplication::translate("TPSTMainForm", "Open an Outlook data file with File > Open (Ctrl+O), or drop one here"));
    else
        m_statusFolder->clear();
    const int waiting = int(m_queue.size()) + (m_busy ? 1 : 0);
    m_statusProgress->setVisible(waiting > 0);
    m_statusProgress->setFormat(QCoreApplication::translate("TPSTMainForm", "Loading %1").arg(waiting));
    m_statusProgress->setTextVisible(false);
    m_statusProgress->setToolTip(QCoreApplication::translate("TPSTMainForm", "%1 file(s) loading").arg(waiting));
}

// --- settings --------------------------------------------------------------------

QString TPSTMainForm::DefaultFile(bool choose)
{
    QString file = m_projectData.FindDefaultPST();
    if (!file.isEmpty() || !choose)
        return file;
    if (!m_settings.SectionExists(PSTSection) || !m_settings.ReadString(PSTSection, QStringLiteral("files")).isEmpty())
        return {};
    file = AskOpenFile(QCoreApplication::translate("TPSTMainForm", "Open PST file"),
        QCoreApplication::translate("TPSTMainForm", "PST files (*.pst)|*.pst|OST files (*.ost)|*.ost|All files (*.*)|*.*"));
    if (file.isEmpty() || !QFileInfo::exists(file))
        return {};
    m_projectData.Removed().Define(file, false);
    m_projectData.Disabled().Define(file, false);
    return file;
}

void TPSTMainForm::LoadSettings()
{
    TMailMainForm::LoadSettings();
    if (m_commandLineFile.isEmpty() && m_settings.SectionExists(PSTSection)) {
        const QString files = m_settings.ReadString(PSTSection, QStringLiteral("files"));
        m_listRestored = true;
        OpenFiles(files);
    }
    if (m_model->FileNodes().empty()) {
        const QString file = DefaultFile(true);
        if (!file.isEmpty())
            OpenFiles(file);
    }
}

void TPSTMainForm::SaveSettings()
{
    TMailMainForm::SaveSettings();
    SaveFileList();
}

void TPSTMainForm::SaveFileList()
{
    // Files named on the command line are shown, not remembered. A run
    // that did not show the remembered list keeps it, less what was removed.
    QStringList files;
    QStringList paths;
    if (!m_listRestored) {
        for (const QString& line : m_settings.ReadString(PSTSection, QStringLiteral("files")).split(QLatin1Char('\n'))) {
            const QString path = ParseOpenEntry(line).Path;
            if (!path.isEmpty() && !m_projectData.Removed().Has(path)) {
                files << line.trimmed();
                paths << path;
            }
        }
    }
    for (const auto& node : m_model->FileNodes()) {
        if (!m_commandLinePaths.contains(node->Name, Qt::CaseInsensitive) && !paths.contains(node->Name, Qt::CaseInsensitive))
            files << node->Name;
    }
    m_settings.WriteString(PSTSection, QStringLiteral("files"), files.join(QLatin1Char('\n')));
    m_settings.Sync();
}

// --- export ----------------------------------------------------------------------

int TPSTMainForm::AddExportEntries(tasks::TCustomTask& task) const
{
    const int before = int(task.Entries().size());
    // The data file a folder object belongs to, among the loaded files.
    const auto fileOf = [this](const void* folder) -> std::shared_ptr<pst::TPSTFile> {
        std::function<bool(const TPSTNode&)> holds = [&](const TPSTNode& node) {
            if (node.Folder == folder)
                return true;
            for (const auto& child : node.Children)
                if (holds(*child))
                    return true;
            return false;
        };
        for (const auto& node : m_model->FileNodes())
            if (node->File && (node->File->RootFolder() == folder || holds(*node)))
                return std::shared_ptr<pst::TPSTFile>(std::shared_ptr<void>(), node->File.get()); // the tree owns it
        return nullptr;
    };
    for (const TFileCheckNotice& entry : m_checked.Entries()) {
        if (entry.Kind != ckMessage || !entry.Folder || entry.Row < 0)
            continue;
        auto file = fileOf(entry.Folder);
        auto* folder = static_cast<pst::TPSTFolder*>(const_cast<void*>(entry.Folder));
        if (file)
            tasks::AddItemEntry(task, file, folder, tasks::FolderNames(folder), entry.Row);
    }
    if (int(task.Entries().size()) > before)
        return int(task.Entries().size()) - before;
    const TPSTNode* node = TPSTTreeModel::NodeOf(m_tree->currentIndex());
    if (!node)
        return 0;
    if (node->Folder) {
        if (auto file = fileOf(node->Folder))
            tasks::AddFolderEntries(task, file, node->Folder, tasks::FolderNames(node->Folder), false);
    } else if (node->File && node->File->RootFolder()) {
        auto file = fileOf(node->File->RootFolder());
        tasks::AddFolderEntries(task, file, node->File->RootFolder(), {}, true);
    }
    return int(task.Entries().size()) - before;
}

namespace {

// The messages of an export, gathered before its writer is chosen.
class TExportEntries : public tasks::TCustomTask {
public:
    using TCustomTask::TCustomTask;

protected:
    int PrepareEntry(tasks::TTaskEntry&, std::unique_ptr<tasks::TTaskJob>&) override { return tasks::trSkipped; }
};

} // namespace

void TPSTMainForm::ExportCommand()
{
    const QString section = QStringLiteral("Export");
    tasks::TMailProperties properties;
    properties.Load(m_settings, section);
    // The format and options of the last export; EML the first time.
    if (!m_settings.ValueExists(section, QStringLiteral("ConvertType")))
        properties.SetConvertType(tasks::mctEML);
    TExportEntries entries(properties);
    const int count = AddExportEntries(entries);
    if (count == 0) {
        QMessageBox::information(this, QCoreApplication::translate("TPSTMainForm", "Export messages"),
            QCoreApplication::translate("TPSTMainForm", "Nothing to export: tick messages in the list, or select a folder with messages."));
        return;
    }
    const auto sample = entries.Entries().front().Load ? entries.Entries().front().Load() : nullptr;
    TExportDialog dialog(properties, sample, count, this);
    if (!AskExport(dialog))
        return;
    properties.Save(m_settings, section);
    m_settings.Sync();
    // The writer of the chosen format (the dialog made sure there is one).
    const std::unique_ptr<tasks::TMailTask> task = tasks::CreateMailTask(properties);
    if (!task) {
        ShowWarning(QCoreApplication::translate("TPSTMainForm", "This version of Tessaly cannot write that format yet."));
        return;
    }
    for (tasks::TTaskEntry& entry : entries.Entries())
        task->AddEntry(std::move(entry));
    RunWithProgress(*task, this);
    QMessageBox box(task->Failed() ? QMessageBox::Warning : QMessageBox::Information, QCoreApplication::translate("TPSTMainForm", "Export messages"),
        RunSummary(*task), QMessageBox::Ok, this);
    box.setInformativeText(QCoreApplication::translate("TPSTMainForm", "Written to %1").arg(QDir::toNativeSeparators(properties.Destination)));
    if (!task->Log().isEmpty())
        box.setDetailedText(task->Log().join(QLatin1Char('\n')));
    ShowExportSummary(box);
}

// --- drag and drop ---------------------------------------------------------------

void TPSTMainForm::dragEnterEvent(QDragEnterEvent* event)
{
    if (event->mimeData()->hasUrls())
        event->acceptProposedAction();
}

void TPSTMainForm::dropEvent(QDropEvent* event)
{
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile())
            OpenChosenFile(QDir::toNativeSeparators(url.toLocalFile()));
    event->acceptProposedAction();
}

// --- TMessageForm ----------------------------------------------------------------

void TMessageForm::Build()
{
    m_info = new TMailInfoFrame;
    setCentralWidget(m_info);
    resize(820, 720);
    QMenu* file = menuBar()->addMenu(QCoreApplication::translate("TMessageForm", "&File"));
    file->addAction(m_info->PrintAction());
    file->addAction(m_info->SavePdfAction());
    file->addAction(m_info->SaveAllAction());
    file->addSeparator();
    // Ctrl+W and Esc close the window, as message windows do.
    QAction* close = file->addAction(QCoreApplication::translate("TMessageForm", "&Close"), this, &QWidget::close);
    close->setShortcuts({QKeySequence(Qt::CTRL | Qt::Key_W), QKeySequence(Qt::Key_Escape)});
    QMenu* view = menuBar()->addMenu(QCoreApplication::translate("TMessageForm", "&View"));
    view->addAction(m_info->FindAction());
}

void TMessageForm::Show(const std::shared_ptr<mail::IMailMessage>& message, const QString& fallbackTitle)
{
    m_loaded = message != nullptr;
    setWindowTitle(QCoreApplication::translate("TMessageForm", "%1 - Tessaly")
            .arg(message && !message->Subject().isEmpty() ? message->Subject() : fallbackTitle));
    if (message)
        m_info->Navigate(message);
}

TMessageForm::TMessageForm(std::shared_ptr<mail::IMailMessage> message, QWidget* parent) : QMainWindow(parent)
{
    Build();
    if (const auto prepare = std::dynamic_pointer_cast<mail::IMailPreparePreview>(message))
        prepare->ResolveRecipients();
    Show(message, QString());
}

TMessageForm::TMessageForm(const QString& fileName, QWidget* parent) : QMainWindow(parent)
{
    Build();
    std::shared_ptr<mail::IMailMessage> message;
    QString error;
    try {
        mail::TFileMailMsgRequest request(fileName);
        message = request.Message();
    } catch (const std::exception& e) {
        error = QString::fromUtf8(e.what());
    }
    Show(message, QFileInfo(fileName).fileName());
    if (!message) {
        statusBar()->showMessage(QCoreApplication::translate("TMessageForm", "Could not read %1%2. Check that it is a .msg, .eml or .vcf file.")
                .arg(QDir::toNativeSeparators(fileName), error.isEmpty() ? QString() : QStringLiteral(" (") + error + QLatin1Char(')')));
    }
}

} // namespace tessaly::app
