#include "app/PSTSearchDialog.h"

#include <QCoreApplication>
#include <QDir>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QSplitter>
#include <QStandardItemModel>
#include <QStorageInfo>
#include <QToolBar>
#include <QTreeView>
#include <QVBoxLayout>

namespace tessaly::app {

namespace {

constexpr int PathRole = Qt::UserRole + 1;
constexpr int LoadedRole = Qt::UserRole + 2;

} // namespace

TPSTSearchDialog::TPSTSearchDialog(QWidget* parent)
    : QDialog(parent, Qt::Dialog | Qt::WindowTitleHint | Qt::WindowCloseButtonHint)
{
    setWindowTitle(QCoreApplication::translate("TPSTSearchDialog", "Search Outlook data files"));
    setSizeGripEnabled(true);
    resize(760, 460);
    ShowMessage = [this](const QString& text) { QMessageBox::information(this, windowTitle(), text); };

    // Left: the drives and folders, with a check box at each.
    auto* left = new QWidget;
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 0, 0);
    leftLayout->addWidget(new QLabel(QCoreApplication::translate("TPSTSearchDialog", "Drives")));
    m_model = new QStandardItemModel(this);
    m_tree = new QTreeView;
    m_tree->setModel(m_model);
    m_tree->header()->hide();
    leftLayout->addWidget(m_tree);
    connect(m_tree, &QTreeView::expanded, this, [this](const QModelIndex& index) { LoadChildren(m_model->itemFromIndex(index)); });

    // Right: what was found, the progress strip above it, the toolbar below.
    auto* right = new QWidget;
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    rightLayout->addWidget(new QLabel(QCoreApplication::translate("TPSTSearchDialog", "Found outlook data files")));
    m_progress = new QWidget;
    auto* progressLayout = new QHBoxLayout(m_progress);
    progressLayout->setContentsMargins(0, 0, 0, 0);
    m_progressLabel = new QLabel;
    m_progressLabel->setMinimumWidth(100);
    progressLayout->addWidget(m_progressLabel);
    rightLayout->addWidget(m_progress);
    m_found = new QListWidget;
    rightLayout->addWidget(m_found);
    auto* toolbar = new QToolBar;
    m_checkAll = toolbar->addAction(QCoreApplication::translate("TPSTSearchDialog", "Check all"));
    m_uncheckAll = toolbar->addAction(QCoreApplication::translate("TPSTSearchDialog", "Uncheck all"));
    rightLayout->addWidget(toolbar);
    connect(m_checkAll, &QAction::triggered, this, [this] {
        for (int i = 0; i < m_found->count(); ++i)
            m_found->item(i)->setCheckState(Qt::Checked);
    });
    connect(m_uncheckAll, &QAction::triggered, this, [this] {
        for (int i = 0; i < m_found->count(); ++i)
            m_found->item(i)->setCheckState(Qt::Unchecked);
    });

    auto* splitter = new QSplitter;
    splitter->addWidget(left);
    splitter->addWidget(right);
    splitter->setStretchFactor(1, 1);

    m_start = new QPushButton(QCoreApplication::translate("TPSTSearchDialog", "Start search"));
    m_start->setDefault(true);
    m_stop = new QPushButton(QCoreApplication::translate("TPSTSearchDialog", "Stop"));
    m_close = new QPushButton(QCoreApplication::translate("TPSTSearchDialog", "&Close"));
    connect(m_start, &QPushButton::clicked, this, &TPSTSearchDialog::StartSearch);
    connect(m_stop, &QPushButton::clicked, this, &TPSTSearchDialog::StopSearch);
    connect(m_close, &QPushButton::clicked, this, &TPSTSearchDialog::reject);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_start);
    buttons->addWidget(m_stop);
    buttons->addWidget(m_close);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(splitter);
    layout->addLayout(buttons);

    connect(&m_search, &TVirtualFileSearch::Progress, this, [this](const QString& folder) {
        m_progressLabel->setText(m_progressLabel->fontMetrics().elidedText(folder, Qt::ElideMiddle, m_progressLabel->width()));
    });
    connect(&m_search, &TVirtualFileSearch::Found, this, &TPSTSearchDialog::AddFound);
    connect(&m_search, &TVirtualFileSearch::Complete, this, [this] {
        SetIdle(true);
        ShowMessage(QCoreApplication::translate("TPSTSearchDialog", "Search complete"));
    });

    // The home folder and the mounted volumes.
    AddRoot(QDir::homePath(), QCoreApplication::translate("TPSTSearchDialog", "Home (%1)").arg(QDir::homePath()));
    for (const QStorageInfo& volume : QStorageInfo::mountedVolumes())
        if (volume.isValid() && volume.isReady() && volume.rootPath() != QDir::homePath())
            AddRoot(volume.rootPath(), volume.displayName() == volume.rootPath()
                    ? volume.rootPath()
                    : QStringLiteral("%1 (%2)").arg(volume.displayName(), volume.rootPath()));
    SetIdle(false);
}

TPSTSearchDialog::~TPSTSearchDialog()
{
    m_search.Stop();
}

QStandardItem* TPSTSearchDialog::AddRoot(const QString& path, const QString& caption)
{
    auto* item = new QStandardItem(caption.isEmpty() ? path : caption);
    item->setData(path, PathRole);
    item->setCheckable(true);
    item->setEditable(false);
    item->appendRow(new QStandardItem); // shows the expander until the children are read
    m_model->appendRow(item);
    return item;
}

void TPSTSearchDialog::SetChecked(QStandardItem* item, bool checked)
{
    item->setCheckState(checked ? Qt::Checked : Qt::Unchecked);
}

void TPSTSearchDialog::LoadChildren(QStandardItem* item)
{
    if (!item || item->data(LoadedRole).toBool())
        return;
    item->setData(true, LoadedRole);
    item->removeRows(0, item->rowCount());
    const QDir dir(item->data(PathRole).toString());
    for (const QFileInfo& info : dir.entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name | QDir::IgnoreCase)) {
        auto* child = new QStandardItem(info.fileName());
        child->setData(info.absoluteFilePath(), PathRole);
        child->setCheckable(true);
        child->setEditable(false);
        child->appendRow(new QStandardItem);
        item->appendRow(child);
    }
}

QStringList TPSTSearchDialog::CheckedRoots() const
{
    QStringList roots;
    std::function<void(const QStandardItem*)> walk = [&](const QStandardItem* item) {
        for (int i = 0; i < item->rowCount(); ++i) {
            const QStandardItem* child = item->child(i);
            if (!child)
                continue;
            const QString path = child->data(PathRole).toString();
            if (child->checkState() == Qt::Checked && QFileInfo(path).isDir())
                roots << path;
            walk(child);
        }
    };
    walk(m_model->invisibleRootItem());
    if (roots.isEmpty() && m_tree->currentIndex().isValid()) {
        const QString path = m_tree->currentIndex().data(PathRole).toString();
        if (QFileInfo(path).isDir())
            roots << path;
    }
    return roots;
}

void TPSTSearchDialog::StartSearch()
{
    m_search.Roots = CheckedRoots();
    m_search.Masks = {QStringLiteral("*")};
    m_progress->show();
    m_progressLabel->clear();
    m_stop->setEnabled(true);
    m_start->setEnabled(false);
    m_checkAll->setEnabled(false);
    m_uncheckAll->setEnabled(false);
    m_search.Start();
}

void TPSTSearchDialog::StopSearch()
{
    m_search.Stop();
    SetIdle(true);
}

void TPSTSearchDialog::SetIdle(bool searched)
{
    m_progress->hide();
    m_stop->setEnabled(false);
    m_start->setEnabled(true);
    m_checkAll->setEnabled(searched || m_found->count() > 0);
    m_uncheckAll->setEnabled(searched || m_found->count() > 0);
}

void TPSTSearchDialog::AddFound(const QStringList& files)
{
    for (const QString& file : files) {
        auto* item = new QListWidgetItem(file, m_found);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(Qt::Checked);
    }
}

QStringList TPSTSearchDialog::FoundFiles() const
{
    QStringList files;
    for (int i = 0; i < m_found->count(); ++i)
        files << m_found->item(i)->text();
    return files;
}

QStringList TPSTSearchDialog::TickedFiles() const
{
    QStringList files;
    for (int i = 0; i < m_found->count(); ++i)
        if (m_found->item(i)->checkState() == Qt::Checked)
            files << m_found->item(i)->text();
    return files;
}

void TPSTSearchDialog::reject()
{
    if (m_search.Running())
        StopSearch();
    QDialog::reject();
}

bool TPSTSearchDialog::Open(QStringList& files)
{
    exec();
    const QStringList ticked = TickedFiles();
    files << ticked;
    return !ticked.isEmpty();
}

} // namespace tessaly::app
