#pragma once

// The message list beside the folder tree: the items of one folder with a
// check box each, the check commands, the search box and the export filter,
// and the focus timer that hands the focused message to the preview.

#include "app/MailListModel.h"
#include "pst/PSTProjectData.h"
#include "tasks/MailFilter.h"

#include <QDialog>
#include <QHash>
#include <QTimer>
#include <QWidget>
#include <functional>

class QAction;
class QCheckBox;
class QLabel;
class QLineEdit;
class QMenu;
class QSpinBox;
class QToolBar;
class QTreeView;

namespace tessaly::core {
class TSettingsStore;
}

namespace tessaly::app {

// Identifies the current position of the list: the store's record and the
// identifier of its message.
struct TListData {
    int Record = -1;
    int UID = 0;
};

class TMailBrowseFrame : public QWidget {
public:
    explicit TMailBrowseFrame(QWidget* parent = nullptr);
    ~TMailBrowseFrame() override;

    const QString& CurrentFolder() const { return m_folderPath; }
    TListData GetListData() const;
    // Applies the search text and the export filter again (in the
    // background for a large folder, see TMailListModel).
    void Refilter();
    // "N of M" (rows shown, rows of the folder) while a search text or the
    // export filter narrows the list; empty otherwise.
    QString CountText() const;
    // "Sorting…" or "Filtering…" while the list works; empty otherwise.
    QString BusyText() const;
    QWidget* BusyMark() const { return m_busyMark; }
    // Told when the shown rows change (a folder, a sort, a filter).
    std::function<void()> OnRowsShown;
    // Reloads the rows from the store.
    void PopulateList();
    // The column layout, kept per kind of list.
    void Load(core::TSettingsStore& settings);
    void Save(core::TSettingsStore& settings) const;
    virtual const mail::TMailDataStore* Store() const = 0;
    // The folder object the rows come from, for the ticked entries.
    virtual const void* FolderObject() const { return nullptr; }
    // Check boxes off (and the check commands disabled), or on again.
    void DisableCheckBoxes(bool disable);

    tasks::TMailFilter& Filter() { return m_filter; }
    void SetFilter(const tasks::TMailFilter& filter);

    // Gets the focused message after the focus timer, or null.
    std::function<void(std::shared_ptr<mail::IMailMessage>)> OnFocusMessage;
    // Gets the focused message to show in a window of its own (Enter, a
    // double-click, "Open in new window").
    std::function<void(std::shared_ptr<mail::IMailMessage>)> OnOpenMessage;
    // The message of the focused row, or null.
    std::shared_ptr<mail::IMailMessage> CurrentMessage() const;

    // Check commands; rows are numbered from 1 in list order (visible rows).
    void CheckSelected(bool checked);
    void CheckAll(bool checked);
    void CheckRange(int from, int to, bool uncheck);
    // From the focused row (or the first) to the given row, both included.
    void CheckToHere(int viewRow);
    // Opens the "Check range" dialog; exec is replaced in tests.
    void ShowCheckRange();
    std::function<int(QDialog&)> ExecDialog;

    // The store rows that are ticked.
    std::vector<int> CheckedRows() const;
    bool Busy() const { return m_busy; }

    TMailListModel* Model() const { return m_model; }
    QTreeView* View() const { return m_view; }
    QLineEdit* SearchBox() const { return m_search; }
    QTimer* FocusTimer() const { return m_tmFocus; }
    QTimer* SearchTimer() const { return m_searchTimer; }
    QToolBar* CheckToolBar() const { return m_toolbar; }
    QMenu* PopupMenu() const { return m_popup; }
    QMenu* HeaderMenu() const { return m_headerMenu; }
    QAction* CheckAction() const { return m_aCheck; }
    QAction* UncheckAction() const { return m_aUncheck; }
    QAction* CheckAllAction() const { return m_aCheckAll; }
    QAction* UncheckAllAction() const { return m_aUncheckAll; }
    QAction* CheckRangeAction() const { return m_aCheckRange; }
    QAction* CheckToHereAction() const { return m_aCheckToHere; }
    QAction* OpenMessageAction() const { return m_aOpenMessage; }

    QList<QAction*> HiddenActions() const { return m_hidden; }
    // Font size of the list ("gui.font.size").
    void SetFontSize(int pointSize);
    // Sizes the columns to their captions and the rows in view; the column
    // of WideColumn takes the rest of the width. Done by itself the first
    // time a kind of list is shown without a layout of the user's.
    void FitColumns();
    static int WideColumn(TListKind kind);

protected:
    void showEvent(QShowEvent* event) override;
    // Loads the rows of a store of the given kind, inside one update.
    void ShowStore(const QString& folderPath, TListKind kind);
    void MarkChecked(int storeRow, bool checked); // without announcing
    QString m_folderPath;

private:
    void Announce(int storeRow);
    void FocusChanged();
    void FocusTimerFired();
    void ShowBusy();
    void ScheduleFit();
    void RowsShownChanged();
    void BuildHeaderMenu();
    void ApplyLayout();
    QString LayoutKey() const;

    TMailListModel* m_model;
    QTreeView* m_view;
    QToolBar* m_toolbar;
    QLineEdit* m_search;
    QTimer* m_tmFocus;
    QTimer* m_searchTimer;
    QMenu* m_popup;
    QMenu* m_headerMenu;
    QAction* m_aCheck;
    QAction* m_aUncheck;
    QAction* m_aCheckAll;
    QAction* m_aUncheckAll;
    QAction* m_aCheckRange;
    QAction* m_aPopupCheck;
    QAction* m_aCheckToHere;
    QAction* m_aOpenMessage;
    QWidget* m_busyMark;
    QLabel* m_busyLabel;
    QList<QAction*> m_hidden;
    tasks::TMailFilter m_filter;
    int m_popupRow = -1; // view row under the pop-up menu
    int m_previewRow = -1; // store row of the message handed to the preview
    int m_lastTo = 0;
    bool m_busy = false;
    bool m_silent = false;
    bool m_fitColumns = false; // columns to fit once the list is shown
    QHash<int, QByteArray> m_layouts; // header state per kind
};

class TPSTBrowseFrame : public TMailBrowseFrame {
public:
    explicit TPSTBrowseFrame(QWidget* parent = nullptr);
    ~TPSTBrowseFrame() override;

    // Shows a folder (none for an empty list).
    void Navigate(const QString& folderPath, pst::TPSTFolder* folder);
    const mail::TMailDataStore* Store() const override { return &m_store; }
    const void* FolderObject() const override { return m_store.Folder(); }
    pst::TPSTFolder* Folder() const { return m_store.Folder(); }
    const pst::TPSTFile* CurrentFile() const;
    // Whether a data file is ticked as a whole ("pst.file.checked").
    bool FileTicked(const pst::TPSTFile* file) const { return m_fileTicks.value(file, false); }

private:
    void ApplyFileTick();
    pst::TPSTMailDataStore m_store;
    QHash<const pst::TPSTFile*, bool> m_fileTicks;
};

// "Check range": from, to and whether to untick.
class TCheckRangeDialog : public QDialog {
public:
    TCheckRangeDialog(int from, int to, int maximum, QWidget* parent = nullptr);
    int From() const;
    int To() const;
    bool Uncheck() const;
    QSpinBox* FromBox() const { return m_from; }
    QSpinBox* ToBox() const { return m_to; }
    QCheckBox* UncheckBox() const { return m_uncheck; }

private:
    QSpinBox* m_from;
    QSpinBox* m_to;
    QCheckBox* m_uncheck;
};

// The kind of list a folder's items get.
TListKind ListKindOf(const pst::TPSTFolder* folder);

} // namespace tessaly::app
