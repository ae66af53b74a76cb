#pragma once

// "Find Outlook files": tick drives or folders, search them for data files,
// tick the files wanted.

#include "app/FileSearch.h"

#include <QDialog>
#include <functional>

class QAction;
class QLabel;
class QListWidget;
class QPushButton;
class QStandardItem;
class QStandardItemModel;
class QTreeView;
class QWidget;

namespace tessaly::app {

class TPSTSearchDialog : public QDialog {
public:
    explicit TPSTSearchDialog(QWidget* parent = nullptr);
    ~TPSTSearchDialog() override;

    // Shows the dialog; afterwards the ticked files are appended to files,
    // in list order. False when none is ticked.
    bool Open(QStringList& files);

    // A folder as a root of the drive tree (the mounted volumes and the home
    // folder are there already).
    QStandardItem* AddRoot(const QString& path, const QString& caption = {});
    void SetChecked(QStandardItem* item, bool checked);
    QStringList TickedFiles() const;
    QStringList FoundFiles() const;
    // How messages are shown; a message box unless replaced.
    std::function<void(const QString&)> ShowMessage;

    // The controls, for the window's own use and for tests.
    QPushButton* StartButton() const { return m_start; }
    QPushButton* StopButton() const { return m_stop; }
    QPushButton* CloseButton() const { return m_close; }
    QAction* CheckAllAction() const { return m_checkAll; }
    QAction* UncheckAllAction() const { return m_uncheckAll; }
    QWidget* ProgressStrip() const { return m_progress; }
    QLabel* ProgressLabel() const { return m_progressLabel; }
    QTreeView* DriveTree() const { return m_tree; }
    QListWidget* FoundList() const { return m_found; }
    TVirtualFileSearch& Search() { return m_search; }

    void StartSearch();
    void StopSearch();

    void reject() override;

private:
    void SetIdle(bool searched);
    void AddFound(const QStringList& files);
    void LoadChildren(QStandardItem* item);
    QStringList CheckedRoots() const;

    TVirtualFileSearch m_search;
    QStandardItemModel* m_model;
    QTreeView* m_tree;
    QListWidget* m_found;
    QWidget* m_progress;
    QLabel* m_progressLabel;
    QAction* m_checkAll;
    QAction* m_uncheckAll;
    QPushButton* m_start;
    QPushButton* m_stop;
    QPushButton* m_close;
};

} // namespace tessaly::app
