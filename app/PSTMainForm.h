#pragma once

// The main window: the tree of opened data files with their folders on the
// left, the message list (or the contact list) in the middle and the
// preview pane on the right. Data files load one at a time on a background
// job; everything that touches the tree runs on the window's thread.

#include "app/CheckedEntries.h"
#include "app/PSTCaption.h"
#include "app/PSTTree.h"
#include "mail/MailMsgIntf.h"

#include <QList>
#include <QMainWindow>
#include <QPair>
#include <functional>
#include <memory>
#include <optional>

class QAction;
class QLabel;
class QMenu;
class QMessageBox;
class QProgressBar;
class QSplitter;
class QTabWidget;
class QThread;
class QTreeView;

namespace tessaly::core {
class TSettingsStore;
}

namespace tessaly::tasks {
class TCustomTask;
}

namespace tessaly::app {

class TExportDialog;
class TMailInfoFrame;
class TPSTBrowseFrame;
class TPSTViewerProjectData;

// What every mail main window has: the list tabs, the preview pane behind
// a splitter, the status bar, the remembered layout.
class TMailMainForm : public QMainWindow {
public:
    TMailMainForm(core::TSettingsStore& settings, QWidget* parent = nullptr);
    ~TMailMainForm() override;

    QTabWidget* MainTabs() const { return m_tabs; }
    TPSTBrowseFrame* MailBrowse() const { return m_mailBrowse; }
    TPSTBrowseFrame* ContactBrowse() const { return m_contactBrowse; }
    TMailInfoFrame* InfoFrame() const { return m_info; }
    QSplitter* PreviewSplitter() const { return m_previewSplitter; }
    QMenu* FileMenu() const { return m_fileMenu; }
    QMenu* ViewMenu() const { return m_viewMenu; }
    QAction* SearchAction() const { return m_miSearch; }
    QAction* NextPaneAction() const { return m_miNextPane; }
    QAction* PreviousPaneAction() const { return m_miPreviousPane; }

    // The panes F6 cycles through, in order; the one holding the focus.
    virtual QList<QWidget*> Panes() const;
    int FocusedPane() const;
    // Moves the focus to the next pane (a step of 1) or to the pane before it (-1).
    void FocusPane(int step);
    // A message in a window of its own, as Enter on the list opens it.
    void OpenMessageWindow(std::shared_ptr<mail::IMailMessage> message);

    virtual void LoadSettings();
    virtual void SaveSettings();

protected:
    void closeEvent(QCloseEvent* event) override;
    void ShowAbout();
    core::TSettingsStore& m_settings;
    QSplitter* m_mainSplitter;
    QSplitter* m_previewSplitter;
    QTabWidget* m_tabs;
    TPSTBrowseFrame* m_mailBrowse;
    TPSTBrowseFrame* m_contactBrowse;
    TMailInfoFrame* m_info;
    QMenu* m_fileMenu;
    QMenu* m_viewMenu;
    QMenu* m_helpMenu;
    QAction* m_miSearch;
    QAction* m_miNextPane;
    QAction* m_miPreviousPane;
    QLabel* m_statusFiles;
    QLabel* m_statusFolder;
    QProgressBar* m_statusProgress;
    TCheckedEntries m_checked;
};

class TPSTMainForm : public TMailMainForm {
public:
    // commandLineFile: a data file named on the command line (opened at
    // once, never written to the saved file list).
    TPSTMainForm(TPSTViewerProjectData& projectData, core::TSettingsStore& settings,
        const QString& commandLineFile = {}, QWidget* parent = nullptr);
    ~TPSTMainForm() override;

    // Opens a multi-line list of "path" or "path?number" entries.
    void OpenFiles(const QString& list);
    // The File menu's open command with a chosen file (no dialog).
    void OpenChosenFile(const QString& fileName);
    void DisableFile(TPSTNode* node);
    void EnableFile(TPSTNode* node);
    void RemoveFile(TPSTNode* node);
    // Reloads a 32-bit file's names and texts in a code page.
    void SetFileLanguage(TPSTNode* node, int codePage);

    // The commands other parts ask of the window.
    QString CurrentFileName() const;
    QString CurrentFolderPath() const;
    QString SelectionCommandLine() const;
    pst::TPSTFolder* FocusedFolder() const;

    // The data file to open when none is named; with choose, the "Open PST
    // file" dialog may be offered.
    QString DefaultFile(bool choose);

    // Runs while a loading job is busy or files wait in the queue.
    bool Loading() const { return m_busy.has_value() || !m_queue.isEmpty(); }
    // Blocks (running the event loop) until the queue is empty; false on timeout.
    bool WaitLoaded(int timeoutMs);

    QList<QWidget*> Panes() const override;

    TPSTTreeModel* TreeModel() const { return m_model; }
    QTreeView* Tree() const { return m_tree; }
    QMenu* TreeMenu() const { return m_pmTree; }
    QMenu* LanguageMenu() const { return m_miPSTLanguage; }
    QAction* DisableAction() const { return m_miDisablePST; }
    QAction* RemoveAction() const { return m_miRemovePST; }
    QAction* OpenAction() const { return m_miOpenFile; }
    QAction* FindAction() const { return m_miFindPST; }
    QAction* CloseAction() const { return m_miClosePst; }
    // Builds the context menu for the file node at a point of the tree's
    // viewport; false (no menu) when there is none.
    bool PrepareTreeMenu(const QPoint& pos);
    TPSTNode* MenuNode() const { return m_menuNode; }
    void FocusNode(const TPSTNode* node);

    // Replaceable for tests: the dialogs.
    std::function<QString(const QString& title, const QString& filter)> AskOpenFile;
    std::function<QStringList()> FindFiles;
    std::function<void(const QString&)> ShowWarning;
    // Opens a single message file in a window of its own.
    std::function<void(const QString&)> OpenMessageFile;
    // The export's dialog (true when accepted) and its summary at the end.
    std::function<bool(TExportDialog&)> AskExport;
    std::function<void(QMessageBox&)> ShowExportSummary;

    void LoadSettings() override;
    void SaveSettings() override;

    // The messages an export takes: the ticked ones, or else the focused
    // folder (a file node: the whole file). The number added.
    int AddExportEntries(tasks::TCustomTask& task) const;
    // "Export...": the dialog, the run, the summary.
    void ExportCommand();
    QAction* ExportAction() const { return m_miExport; }

    // The usual Windows code pages offered for a 32-bit file.
    static QList<QPair<int, QString>> FileLanguages();

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void FormCreate();
    void StartNext();
    void JobMessage(std::shared_ptr<TOpenResult> result);
    void JobEnded();
    void FocusChanged(const QModelIndex& index);
    void UpdateStatus();
    void ShowTreeMenu(const QPoint& pos);
    void OpenFileCommand();
    void FindFilesCommand();
    void Queue(TPSTNode* node, int number, int codePage = 0);
    void Unqueue(TPSTNode* node);
    void ForgetShown(TPSTNode* node);
    // Writes the list of open files to the settings.
    void SaveFileList();

    TPSTViewerProjectData& m_projectData;
    QString m_commandLineFile;
    QStringList m_commandLinePaths; // its files, as the tree names them
    bool m_listRestored = false;    // the remembered files were opened
    TPSTTreeModel* m_model;
    QTreeView* m_tree;
    QList<QPair<QString, TPSTQueueData>> m_queue;
    TPSTCaption m_captions;
    std::optional<TPSTQueueData> m_busy; // the loading job that runs
    QThread* m_job = nullptr;
    TPSTNode* m_menuNode = nullptr;
    bool m_focusAttached = true;
    QMenu* m_pmTree;
    QMenu* m_miPSTLanguage;
    QAction* m_miDisablePST;
    QAction* m_miRemovePST;
    QAction* m_miOpenFile;
    QAction* m_miFindPST;
    QAction* m_miClosePst;
    QAction* m_miExport;
};

// The window of a single message file: the preview pane alone.
class TMessageForm : public QMainWindow {
public:
    explicit TMessageForm(const QString& fileName, QWidget* parent = nullptr);
    // A message already read (from a data file's list).
    explicit TMessageForm(std::shared_ptr<mail::IMailMessage> message, QWidget* parent = nullptr);
    TMailInfoFrame* InfoFrame() const { return m_info; }
    // False when the file could not be read (the window then says why).
    bool Loaded() const { return m_loaded; }

private:
    void Build();
    void Show(const std::shared_ptr<mail::IMailMessage>& message, const QString& fallbackTitle);
    TMailInfoFrame* m_info;
    bool m_loaded = false;
};

} // namespace tessaly::app
