#include "app/MailBrowseFrame.h"

#include "app/CheckedEntries.h"
#include "core/MessageBus.h"
#include "core/SettingsStore.h"
#include "mail/MailInfo.h"

#include <QAction>
#include <QCheckBox>
#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QProgressBar>
#include <QSpinBox>
#include <QToolBar>
#include <QTreeView>
#include <QVBoxLayout>
#include <cmath>

namespace tessaly::app {

using core::TMessageBus;

TListKind ListKindOf(const pst::TPSTFolder* folder)
{
    if (dynamic_cast<const pst::TPSTContactFolder*>(folder))
        return lkContact;
    if (dynamic_cast<const pst::TPSTAppointmentFolder*>(folder))
        return lkMeeting;
    return lkMail;
}

// --- TMailBrowseFrame ------------------------------------------------------------

TMailBrowseFrame::TMailBrowseFrame(QWidget* parent) : QWidget(parent)
{
    ExecDialog = [](QDialog& dialog) { return dialog.exec(); };
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    m_model = new TMailListModel(this);
    m_model->OnCheckChanged = [this](int storeRow) {
        if (!m_silent)
            Announce(storeRow);
    };
    m_view = new QTreeView;
    m_view->setModel(m_model);
    m_view->setRootIsDecorated(false);
    m_view->setUniformRowHeights(true);
    m_view->setAllColumnsShowFocus(true);
    m_view->setSortingEnabled(true);
    m_view->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_view->setContextMenuPolicy(Qt::CustomContextMenu);
    m_view->header()->setContextMenuPolicy(Qt::CustomContextMenu);
    m_view->header()->setSortIndicatorShown(true);
    m_view->header()->setResizeContentsPrecision(0); // fitting reads the rows in view only
    m_view->header()->setSortIndicator(-1, Qt::AscendingOrder);
    layout->addWidget(m_view);
    // While a sort or a filter runs, the list shows it is busy.
    m_model->OnBusyChanged = [this] { ShowBusy(); };
    connect(m_model, &QAbstractItemModel::layoutChanged, this, &TMailBrowseFrame::RowsShownChanged);
    connect(m_model, &QAbstractItemModel::modelReset, this, &TMailBrowseFrame::RowsShownChanged);

    m_toolbar = new QToolBar;
    m_toolbar->setIconSize(QSize(16, 16));
    m_toolbar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    m_aCheck = m_toolbar->addAction(QCoreApplication::translate("TMailBrowseFrame", "Check"), this, [this] { CheckSelected(true); });
    m_aUncheck = m_toolbar->addAction(QCoreApplication::translate("TMailBrowseFrame", "Uncheck"), this, [this] { CheckSelected(false); });
    m_aCheckAll = m_toolbar->addAction(QCoreApplication::translate("TMailBrowseFrame", "Check All"), this, [this] { CheckAll(true); });
    m_aCheckAll->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_A));
    m_aCheckAll->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    m_aUncheckAll = m_toolbar->addAction(QCoreApplication::translate("TMailBrowseFrame", "Uncheck all"), this, [this] { CheckAll(false); });
    m_aCheckRange = m_toolbar->addAction(QCoreApplication::translate("TMailBrowseFrame", "Check range..."), this, [this] { ShowCheckRange(); });
    // Commands of the general list that this program does not offer.
    for (const auto& [caption, hint] : {std::pair{QT_TRANSLATE_NOOP("TMailBrowseFrame", "Check by mask..."), ""},
             {QT_TRANSLATE_NOOP("TMailBrowseFrame", "Restore last selection"), ""},
             {QT_TRANSLATE_NOOP("TMailBrowseFrame", "Move up"), QT_TRANSLATE_NOOP("TMailBrowseFrame", "Move up (Ctrl+Up)")},
             {QT_TRANSLATE_NOOP("TMailBrowseFrame", "Move down"), QT_TRANSLATE_NOOP("TMailBrowseFrame", "Move down (Ctrl+Down)")}}) {
        QAction* action = m_toolbar->addAction(QCoreApplication::translate("TMailBrowseFrame", caption));
        if (*hint)
            action->setToolTip(QCoreApplication::translate("TMailBrowseFrame", hint));
        action->setVisible(false);
        m_hidden << action;
    }
    // The search box follows the commands outside their toolbar: in a
    // narrow window the commands go into the toolbar's overflow menu, the
    // search box stays.
    m_search = new QLineEdit;
    m_search->setPlaceholderText(QCoreApplication::translate("TMailBrowseFrame", "Search..."));
    m_search->setClearButtonEnabled(true);
    m_search->setMinimumWidth(QFontMetrics(m_search->font()).horizontalAdvance(QLatin1Char('x')) * 12);
    m_search->setMaximumWidth(260);
    // The busy mark: a label and a bar that only moves (no end is known).
    m_busyMark = new QWidget;
    auto* busyLayout = new QHBoxLayout(m_busyMark);
    busyLayout->setContentsMargins(6, 0, 6, 0);
    m_busyLabel = new QLabel;
    auto* busyBar = new QProgressBar;
    busyBar->setRange(0, 0);
    busyBar->setTextVisible(false);
    busyBar->setMaximumSize(80, 12);
    busyLayout->addWidget(m_busyLabel);
    busyLayout->addWidget(busyBar);
    m_busyMark->hide();
    auto* bottom = new QHBoxLayout;
    bottom->setContentsMargins(0, 0, 4, 0);
    bottom->setSpacing(4);
    bottom->addWidget(m_toolbar, 0);
    bottom->addWidget(m_search, 1);
    bottom->addWidget(m_busyMark, 0);
    bottom->addStretch(1);
    layout->addLayout(bottom);

    m_popup = new QMenu(this);
    m_aPopupCheck = m_popup->addAction(QCoreApplication::translate("TMailBrowseFrame", "Check"), this, [this] {
        const QModelIndexList rows = m_view->selectionModel()->selectedRows();
        bool allChecked = !rows.isEmpty();
        for (const QModelIndex& index : rows)
            allChecked = allChecked && m_model->Checked(m_model->StoreRow(index.row()));
        CheckSelected(!allChecked);
    });
    m_aPopupCheck->setShortcut(QKeySequence(Qt::Key_Space));
    m_aCheckToHere = m_popup->addAction(QCoreApplication::translate("TMailBrowseFrame", "Check to here"), this, [this] {
        if (m_popupRow >= 0)
            CheckToHere(m_popupRow);
    });
    // Space ticks the selection while the list has the focus.
    auto* space = new QAction(m_view);
    space->setShortcut(QKeySequence(Qt::Key_Space));
    space->setShortcutContext(Qt::WidgetShortcut);
    connect(space, &QAction::triggered, m_aPopupCheck, &QAction::trigger);
    m_view->addAction(space);
    // Enter or a double-click opens the focused message in a window of its own.
    m_aOpenMessage = m_popup->addAction(QCoreApplication::translate("TMailBrowseFrame", "Open in new window"), this, [this] {
        if (const auto message = CurrentMessage(); message && OnOpenMessage)
            OnOpenMessage(message);
    });
    m_aOpenMessage->setShortcuts({QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)});
    auto* enter = new QAction(m_view);
    enter->setShortcuts({QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)});
    enter->setShortcutContext(Qt::WidgetShortcut);
    connect(enter, &QAction::triggered, m_aOpenMessage, &QAction::trigger);
    m_view->addAction(enter);
    connect(m_view, &QAbstractItemView::doubleClicked, this, [this](const QModelIndex& index) {
        // A double-click on the check box ticks, it does not open.
        if (index.isValid() && index.column() != 0)
            m_aOpenMessage->trigger();
    });
    for (QAction* action : m_popup->actions())
        action->setShortcutVisibleInContextMenu(true);
    connect(m_view, &QWidget::customContextMenuRequested, this, [this](const QPoint& pos) {
        const QModelIndex index = m_view->indexAt(pos);
        m_popupRow = index.isValid() ? index.row() : -1;
        m_aCheckToHere->setEnabled(m_popupRow >= 0 && m_model->Checkable());
        m_aPopupCheck->setEnabled(m_model->Checkable());
        m_popup->exec(m_view->viewport()->mapToGlobal(pos));
        m_popupRow = -1;
    });

    m_headerMenu = new QMenu(this);
    connect(m_view->header(), &QWidget::customContextMenuRequested, this, [this](const QPoint& pos) {
        BuildHeaderMenu();
        m_headerMenu->exec(m_view->header()->mapToGlobal(pos));
    });

    m_tmFocus = new QTimer(this);
    m_tmFocus->setObjectName(QStringLiteral("tmFocus"));
    m_tmFocus->setInterval(500);
    connect(m_tmFocus, &QTimer::timeout, this, &TMailBrowseFrame::FocusTimerFired);
    connect(m_view->selectionModel(), &QItemSelectionModel::currentChanged, this, &TMailBrowseFrame::FocusChanged);
    connect(m_model, &QAbstractItemModel::modelReset, this, &TMailBrowseFrame::FocusChanged);

    m_searchTimer = new QTimer(this);
    m_searchTimer->setObjectName(QStringLiteral("SearchTimer"));
    m_searchTimer->setSingleShot(true);
    m_searchTimer->setInterval(400);
    connect(m_search, &QLineEdit::textChanged, this, [this] {
        m_searchTimer->stop();
        m_searchTimer->start();
    });
    connect(m_searchTimer, &QTimer::timeout, this, [this] { m_model->FilterRows(m_search->text().trimmed()); });

    TMessageBus::Instance().Subscribe(this, core::Topic::GuiFontSize,
        TMessageBus::THandler([this](const QVariant& data) { SetFontSize(data.toInt()); }));
}

TMailBrowseFrame::~TMailBrowseFrame()
{
    TMessageBus::Instance().Unsubscribe(this);
}

void TMailBrowseFrame::ShowStore(const QString& folderPath, TListKind kind)
{
    m_tmFocus->stop();
    m_folderPath = folderPath;
    m_previewRow = -1;
    if (m_model->columnCount() > 0)
        m_layouts.insert(m_model->Kind(), m_view->header()->saveState());
    m_view->setUpdatesEnabled(false);
    m_model->SetStore(Store(), kind);
    ApplyLayout();
    m_view->setUpdatesEnabled(true);
}

void TMailBrowseFrame::PopulateList()
{
    m_model->SetStore(Store(), m_model->Kind());
    Refilter();
}

void TMailBrowseFrame::ApplyLayout()
{
    QHeaderView* header = m_view->header();
    const auto saved = m_layouts.constFind(m_model->Kind());
    if (saved != m_layouts.cend() && header->restoreState(*saved)) {
        m_fitColumns = false; // the user's layout
        return;
    }
    // Defaults: the attachment mark narrow, texts wide, dates and sizes fit.
    const QFontMetrics metrics(m_view->font());
    const int count = m_model->columnCount();
    for (int i = 0; i < count; ++i) {
        int width = metrics.horizontalAdvance(QLatin1Char('x')) * 22;
        if (i == TMailListModel::AttachColumn(m_model->Kind()))
            width = metrics.horizontalAdvance(QStringLiteral("WW")) + 28;
        else if (m_model->Kind() == lkMail && i == 5)
            width = metrics.horizontalAdvance(QStringLiteral("000.0 KB")) + 12;
        else if (m_model->Kind() == lkMail && i == 2)
            width = metrics.horizontalAdvance(QLatin1Char('x')) * 40;
        header->resizeSection(i, width);
        header->setSectionHidden(i, false);
    }
    if (m_model->Kind() == lkMail)
        header->setSectionHidden(4, true); // Sent: offered in the header menu
    header->setSortIndicator(-1, Qt::AscendingOrder);
    // With no layout of the user's, the columns fit the first rows shown.
    m_fitColumns = true;
    ScheduleFit();
}

void TMailBrowseFrame::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    ScheduleFit();
}

void TMailBrowseFrame::ScheduleFit()
{
    // After the pending layouts, so that the list has its width.
    if (m_fitColumns)
        QTimer::singleShot(0, this, [this] {
            if (m_fitColumns && m_view->isVisible())
                FitColumns();
        });
}

int TMailBrowseFrame::WideColumn(TListKind kind)
{
    return kind == lkMail ? 2 : 0; // the subject; the name of a contact or a meeting
}

void TMailBrowseFrame::FitColumns()
{
    m_fitColumns = false;
    QHeaderView* header = m_view->header();
    const int count = m_model->columnCount();
    const int wide = WideColumn(m_model->Kind());
    const int x = QFontMetrics(m_view->font()).horizontalAdvance(QLatin1Char('x'));
    const int available = m_view->viewport()->width();
    // The caption and the rows in view, within reason.
    std::vector<int> widths(size_t(count), 0);
    int used = 0;
    for (int i = 0; i < count; ++i) {
        if (i == wide || header->isSectionHidden(i))
            continue;
        const int content = static_cast<QAbstractItemView*>(m_view)->sizeHintForColumn(i);
        widths[size_t(i)] = std::min(std::max(header->sectionSizeHint(i), content), x * 32);
        used += widths[size_t(i)];
    }
    // The wide column keeps a third of the list at least: the longer texts
    // give way first, down to 18 characters (a date stays whole).
    const int least = std::max(x * 24, available / 3);
    const int floor = x * 18;
    int excess = used + least - available;
    int give = 0;
    for (int width : widths)
        give += std::max(0, width - floor);
    if (excess > 0 && give > 0) {
        excess = std::min(excess, give);
        for (int& width : widths)
            if (width > floor)
                width -= int(qint64(excess) * (width - floor) / give);
    }
    used = 0;
    for (int i = 0; i < count; ++i) {
        if (widths[size_t(i)] > 0) {
            header->resizeSection(i, widths[size_t(i)]);
            used += widths[size_t(i)];
        }
    }
    header->resizeSection(wide, std::max(available - used, least));
}

QString TMailBrowseFrame::LayoutKey() const
{
    return QStringLiteral("Desktop\\MessageList");
}

void TMailBrowseFrame::Load(core::TSettingsStore& settings)
{
    for (int kind : {lkMail, lkMeeting, lkContact}) {
        const QString value = settings.ReadString(LayoutKey(), QStringLiteral("columns%1").arg(kind));
        if (!value.isEmpty())
            m_layouts.insert(kind, QByteArray::fromBase64(value.toLatin1()));
    }
    ApplyLayout();
}

void TMailBrowseFrame::Save(core::TSettingsStore& settings) const
{
    QHash<int, QByteArray> layouts = m_layouts;
    if (m_model->columnCount() > 0)
        layouts.insert(m_model->Kind(), m_view->header()->saveState());
    for (auto it = layouts.cbegin(); it != layouts.cend(); ++it)
        settings.WriteString(LayoutKey(), QStringLiteral("columns%1").arg(it.key()), QString::fromLatin1(it.value().toBase64()));
}

void TMailBrowseFrame::BuildHeaderMenu()
{
    m_headerMenu->clear();
    const QStringList captions = TMailListModel::ColumnCaptions(m_model->Kind());
    for (int i = 0; i < captions.size(); ++i) {
        QAction* action = m_headerMenu->addAction(captions[i]);
        action->setCheckable(true);
        action->setChecked(!m_view->header()->isSectionHidden(i));
        connect(action, &QAction::toggled, this, [this, i](bool shown) {
            // The last shown column stays.
            if (!shown && m_view->header()->count() - m_view->header()->hiddenSectionCount() <= 1)
                return;
            m_view->header()->setSectionHidden(i, !shown);
        });
    }
}

TListData TMailBrowseFrame::GetListData() const
{
    const int storeRow = m_model->StoreRow(m_view->currentIndex().row());
    if (storeRow < 0 || !Store())
        return {};
    return {storeRow, Store()->UID(storeRow)};
}

void TMailBrowseFrame::SetFilter(const tasks::TMailFilter& filter)
{
    m_filter = filter;
    Refilter();
}

void TMailBrowseFrame::Refilter()
{
    // The export filter's answers are asked again: records may have changed.
    if (m_filter.Enabled) {
        m_model->SetAccept([this](int storeRow) {
            const mail::TMailDataStore* store = Store();
            return !store || m_filter.AcceptRecord(mail::TMailMsgInfo(store->Message(storeRow)));
        });
    } else {
        m_model->SetAccept(nullptr);
    }
    m_model->FilterRows(m_search->text().trimmed());
}

QString TMailBrowseFrame::CountText() const
{
    if (!m_model->Filtered())
        return {};
    return QCoreApplication::translate("TMailBrowseFrame", "%1 of %2").arg(m_model->rowCount()).arg(m_model->StoreRowCount());
}

QString TMailBrowseFrame::BusyText() const
{
    if (m_model->Sorting())
        return QCoreApplication::translate("TMailBrowseFrame", "Sorting…");
    if (m_model->Filtering())
        return QCoreApplication::translate("TMailBrowseFrame", "Filtering…");
    return {};
}

void TMailBrowseFrame::ShowBusy()
{
    const QString text = BusyText();
    if (text.isEmpty())
        m_view->viewport()->unsetCursor();
    else
        m_view->viewport()->setCursor(Qt::BusyCursor);
    m_busyLabel->setText(text);
    m_busyMark->setVisible(!text.isEmpty());
}

void TMailBrowseFrame::RowsShownChanged()
{
    // The preview does not keep a message the list no longer shows.
    if (m_previewRow >= 0 && m_model->ViewRow(m_previewRow) < 0) {
        m_previewRow = -1;
        m_tmFocus->stop();
        if (OnFocusMessage)
            OnFocusMessage(nullptr);
    }
    if (OnRowsShown)
        OnRowsShown();
}

void TMailBrowseFrame::DisableCheckBoxes(bool disable)
{
    m_model->SetCheckable(!disable);
    for (QAction* action : {m_aCheck, m_aUncheck, m_aCheckAll, m_aUncheckAll, m_aCheckRange, m_aPopupCheck, m_aCheckToHere})
        action->setEnabled(!disable);
}

void TMailBrowseFrame::Announce(int storeRow)
{
    const mail::TMailDataStore* store = Store();
    if (!store || storeRow < 0 || storeRow >= store->RowCount())
        return;
    m_busy = true;
    TFileCheckNotice notice;
    notice.Kind = ckMessage;
    notice.FileName = store->MessageFileName(storeRow);
    notice.UID = store->UID(storeRow);
    notice.Checked = m_model->Checked(storeRow);
    notice.Folder = FolderObject();
    notice.Row = storeRow;
    TMessageBus::Instance().Publish(core::Topic::FileChecked, QVariant::fromValue(notice));
    m_busy = false;
}

void TMailBrowseFrame::MarkChecked(int storeRow, bool checked)
{
    m_silent = true;
    m_model->SetChecked(storeRow, checked);
    m_silent = false;
}

void TMailBrowseFrame::CheckSelected(bool checked)
{
    if (!m_model->Checkable())
        return;
    QModelIndexList rows = m_view->selectionModel()->selectedRows();
    if (rows.isEmpty() && m_view->currentIndex().isValid())
        rows << m_view->currentIndex();
    for (const QModelIndex& index : rows)
        m_model->SetChecked(m_model->StoreRow(index.row()), checked);
}

void TMailBrowseFrame::CheckAll(bool checked)
{
    if (!m_model->Checkable())
        return;
    for (int view = 0; view < m_model->rowCount(); ++view)
        m_model->SetChecked(m_model->StoreRow(view), checked);
}

void TMailBrowseFrame::CheckRange(int from, int to, bool uncheck)
{
    if (!m_model->Checkable())
        return;
    if (from > to)
        std::swap(from, to);
    from = std::max(from, 1);
    to = std::min(to, m_model->rowCount());
    for (int number = from; number <= to; ++number)
        m_model->SetChecked(m_model->StoreRow(number - 1), !uncheck);
    m_lastTo = to;
}

void TMailBrowseFrame::CheckToHere(int viewRow)
{
    if (!m_model->Checkable() || viewRow < 0 || viewRow >= m_model->rowCount())
        return;
    int from = m_view->currentIndex().isValid() ? m_view->currentIndex().row() : 0;
    int to = viewRow;
    if (from > to)
        std::swap(from, to);
    for (int view = from; view <= to; ++view)
        m_model->SetChecked(m_model->StoreRow(view), true);
}

void TMailBrowseFrame::ShowCheckRange()
{
    const int count = m_model->rowCount();
    if (count == 0 || !m_model->Checkable())
        return;
    int from = m_view->currentIndex().isValid() ? m_view->currentIndex().row() + 1 : 1;
    int to = m_lastTo > 0 ? std::min(m_lastTo, count) : count;
    if (from > to)
        std::swap(from, to);
    TCheckRangeDialog dialog(from, to, count, this);
    if (ExecDialog(dialog) != QDialog::Accepted)
        return;
    m_view->setUpdatesEnabled(false);
    CheckRange(dialog.From(), dialog.To(), dialog.Uncheck());
    m_view->setUpdatesEnabled(true);
}

std::vector<int> TMailBrowseFrame::CheckedRows() const
{
    std::vector<int> rows;
    for (int row = 0; row < m_model->StoreRowCount(); ++row)
        if (m_model->Checked(row))
            rows.push_back(row);
    return rows;
}

void TMailBrowseFrame::FocusChanged()
{
    m_tmFocus->stop();
    m_tmFocus->start();
}

std::shared_ptr<mail::IMailMessage> TMailBrowseFrame::CurrentMessage() const
{
    const QModelIndex current = m_view->currentIndex();
    const int storeRow = current.isValid() ? m_model->StoreRow(current.row()) : -1;
    return storeRow >= 0 && Store() ? Store()->Message(storeRow) : nullptr;
}

void TMailBrowseFrame::FocusTimerFired()
{
    m_tmFocus->stop();
    const auto message = CurrentMessage();
    m_previewRow = message ? m_model->StoreRow(m_view->currentIndex().row()) : -1;
    if (const auto prepare = std::dynamic_pointer_cast<mail::IMailPreparePreview>(message))
        prepare->ResolveRecipients();
    if (OnFocusMessage)
        OnFocusMessage(message);
}

void TMailBrowseFrame::SetFontSize(int pointSize)
{
    if (pointSize <= 0)
        return;
    QFont font = m_view->font();
    const double old = font.pointSizeF() > 0 ? font.pointSizeF() : pointSize;
    font.setPointSize(pointSize);
    m_view->setFont(font);
    QHeaderView* header = m_view->header();
    for (int i = 0; i < header->count(); ++i)
        header->resizeSection(i, int(std::lround(header->sectionSize(i) * pointSize / old)));
    const QFontMetrics metrics(font);
    const int height = std::max(metrics.height() + 2, m_view->iconSize().height() + 2);
    m_view->setStyleSheet(QStringLiteral("QTreeView::item { height: %1px; }").arg(height));
    header->setFont(font);
}

// --- TPSTBrowseFrame -------------------------------------------------------------

TPSTBrowseFrame::TPSTBrowseFrame(QWidget* parent) : TMailBrowseFrame(parent)
{
    TMessageBus::Instance().Subscribe(this, core::Topic::PstFileChecked, TMessageBus::THandler([this](const QVariant& data) {
        const auto tick = data.value<TPSTFileCheck>();
        m_fileTicks.insert(tick.File, tick.Checked);
        if (tick.File && tick.File == CurrentFile())
            ApplyFileTick();
    }));
}

TPSTBrowseFrame::~TPSTBrowseFrame() = default;

const pst::TPSTFile* TPSTBrowseFrame::CurrentFile() const
{
    const pst::TPSTFolder* folder = m_store.Folder();
    return folder && folder->Store() ? &folder->Store()->File() : nullptr;
}

void TPSTBrowseFrame::Navigate(const QString& folderPath, pst::TPSTFolder* folder)
{
    FocusTimer()->stop();
    m_store.LoadFolder(folder);
    ShowStore(folderPath, ListKindOf(folder));
    // Rows of messages ticked before show ticked.
    const QVariant answer = TMessageBus::Instance().Request(core::Topic::FileCheckRequest);
    const auto entries = answer.value<TFileCheckList>();
    if (folder && !entries.isEmpty()) {
        const QString fileName = m_store.MessageFileName(0);
        QSet<int> ticked;
        for (const auto& entry : entries)
            if (entry.Kind == ckMessage && entry.FileName == fileName)
                ticked.insert(entry.UID);
        for (int row = 0; !ticked.isEmpty() && row < m_store.RowCount(); ++row)
            if (ticked.contains(m_store.UID(row)))
                MarkChecked(row, true);
    }
    ApplyFileTick();
    Refilter();
}

void TPSTBrowseFrame::ApplyFileTick()
{
    DisableCheckBoxes(FileTicked(CurrentFile()));
}

// --- TCheckRangeDialog -----------------------------------------------------------

TCheckRangeDialog::TCheckRangeDialog(int from, int to, int maximum, QWidget* parent) : QDialog(parent)
{
    setWindowTitle(QCoreApplication::translate("TCheckRangeDialog", "Check range"));
    if (from > to)
        std::swap(from, to);
    auto* layout = new QFormLayout(this);
    m_from = new QSpinBox;
    m_to = new QSpinBox;
    for (QSpinBox* box : {m_from, m_to})
        box->setRange(1, std::max(1, maximum));
    m_from->setValue(from);
    m_to->setValue(to);
    layout->addRow(QCoreApplication::translate("TCheckRangeDialog", "Check from:"), m_from);
    layout->addRow(QCoreApplication::translate("TCheckRangeDialog", "Check to:"), m_to);
    m_uncheck = new QCheckBox(QCoreApplication::translate("TCheckRangeDialog", "Uncheck"));
    layout->addRow(m_uncheck);
    auto* buttons = new QDialogButtonBox;
    buttons->addButton(QCoreApplication::translate("TCheckRangeDialog", "&OK"), QDialogButtonBox::AcceptRole);
    buttons->addButton(QCoreApplication::translate("TCheckRangeDialog", "&Cancel"), QDialogButtonBox::RejectRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addRow(buttons);
}

int TCheckRangeDialog::From() const
{
    return m_from->value();
}

int TCheckRangeDialog::To() const
{
    return m_to->value();
}

bool TCheckRangeDialog::Uncheck() const
{
    return m_uncheck->isChecked();
}

} // namespace tessaly::app
