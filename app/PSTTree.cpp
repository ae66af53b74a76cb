#include "app/PSTTree.h"

#include "app/ProjectData.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QStyle>
#include <algorithm>

namespace tessaly::app {

namespace {

// A small folder drawn in the kind's colour, with a mark for special folders.
QIcon FolderIcon(const QColor& colour, const QString& mark)
{
    QPixmap pixmap(16, 16);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.moveTo(1, 4);
    path.lineTo(6, 4);
    path.lineTo(7.5, 2.5);
    path.lineTo(14, 2.5);
    path.lineTo(15, 4);
    path.lineTo(15, 14);
    path.lineTo(1, 14);
    path.closeSubpath();
    painter.setPen(colour.darker(150));
    painter.setBrush(colour);
    painter.drawPath(path);
    if (!mark.isEmpty()) {
        QFont font = painter.font();
        font.setPixelSize(9);
        font.setBold(true);
        painter.setFont(font);
        painter.setPen(Qt::white);
        painter.drawText(QRect(1, 4, 14, 10), Qt::AlignCenter, mark);
    }
    return QIcon(pixmap);
}

} // namespace

QIcon TreeImage(const QString& name)
{
    static QHash<QString, QIcon> ilTree; // drawn on first use, on the GUI thread
    if (ilTree.isEmpty() && qobject_cast<QApplication*>(QCoreApplication::instance())) {
        ilTree.insert(QStringLiteral("outlook"), qApp->style()->standardIcon(QStyle::SP_DriveHDIcon));
        ilTree.insert(QStringLiteral("contacts"), FolderIcon(QColor(128, 0, 0), QStringLiteral("@")));
        ilTree.insert(QStringLiteral("inbox"), FolderIcon(QColor(52, 101, 164), QStringLiteral("\u2193")));
        ilTree.insert(QStringLiteral("sent"), FolderIcon(QColor(78, 154, 6), QStringLiteral("\u2191")));
        ilTree.insert(QStringLiteral("draft"), FolderIcon(QColor(196, 160, 0), QStringLiteral("\u270E")));
        ilTree.insert(QStringLiteral("trash"), FolderIcon(QColor(117, 80, 123), QStringLiteral("\u00D7")));
        ilTree.insert(QStringLiteral("outbox"), FolderIcon(QColor(206, 92, 0), QStringLiteral("\u2192")));
        ilTree.insert(QStringLiteral("other"), FolderIcon(QColor(233, 185, 110), {}));
    }
    return ilTree.value(name);
}


// --- nodes ---------------------------------------------------------------------

QString TPSTNode::Caption() const
{
    if (Folder)
        return Folder->Name();
    if (File && State == nsLoaded)
        return File->Caption();
    const QString name = QFileInfo(Name).fileName();
    switch (State) {
    case nsLoading:
        return QCoreApplication::translate("TPSTTree", "Loading %1...").arg(name);
    case nsOpenFailed:
        return QCoreApplication::translate("TPSTTree", "Error open %1").arg(name);
    case nsDisabled:
        return QCoreApplication::translate("TPSTTree", "Disabled: %1").arg(name);
    default:
        return name;
    }
}

QColor TPSTNode::Colour() const
{
    if (Folder) {
        if (dynamic_cast<pst::TPSTContactFolder*>(Folder))
            return QColor(128, 0, 0);
        if (dynamic_cast<pst::TPSTAppointmentFolder*>(Folder))
            return QColor(210, 105, 30);
        return {};
    }
    switch (State) {
    case nsOpenFailed:
        return QColor(255, 0, 0);
    case nsLoading:
    case nsDisabled:
        return QColor(128, 128, 128);
    default:
        return {};
    }
}

const TPSTNode* TPSTNode::FileNode() const
{
    const TPSTNode* node = this;
    while (node->Parent)
        node = node->Parent;
    return node;
}

TOpenEntry ParseOpenEntry(const QString& line)
{
    const qsizetype mark = line.indexOf(QLatin1Char('?'));
    if (mark < 0)
        return {line.trimmed(), 0};
    bool ok = false;
    const int number = line.mid(mark + 1).trimmed().toInt(&ok);
    return {line.left(mark).trimmed(), ok ? number : 0};
}

QString AbsoluteDataPath(const QString& path)
{
    if (path.isEmpty())
        return path;
    return QDir::toNativeSeparators(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
}

QString BuildFolderPath(const QStringList& names)
{
    QString path;
    for (QString name : names) {
        name.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
        name.replace(QLatin1Char('/'), QStringLiteral("//"));
        path += name + QLatin1Char('\\');
    }
    return path.isEmpty() ? QStringLiteral("Outlook") : path;
}

std::shared_ptr<TOpenResult> OpenPSTFile(const QString& path, int codePage)
{
    auto result = std::make_shared<TOpenResult>();
    result->File = std::make_unique<pst::TPSTFile>(path);
    pst::TPSTFile& file = *result->File;
    if (codePage > 0 && !file.Is64Bit())
        file.SetAsciiCodePage(codePage);
    file.ExpandAll();
    // Names and counts are read here, so that the window's thread finds
    // them cached.
    std::vector<pst::TPSTFolder*> pending;
    if (file.RootFolder())
        pending.push_back(file.RootFolder());
    while (!pending.empty()) {
        pst::TPSTFolder* folder = pending.back();
        pending.pop_back();
        folder->Name();
        result->ItemCounts.insert(folder, folder->ItemCount());
        for (int i = 0; i < folder->FolderCount(); ++i)
            pending.push_back(folder->GetFolder(i));
    }
    return result;
}

// --- model ---------------------------------------------------------------------

TPSTTreeModel::TPSTTreeModel(QObject* parent) : QAbstractItemModel(parent) {}

TPSTTreeModel::~TPSTTreeModel() = default;

bool TPSTTreeModel::CaptionLess(const TPSTNode& a, const TPSTNode& b)
{
    return a.Caption().compare(b.Caption(), Qt::CaseInsensitive) < 0;
}

TPSTNode* TPSTTreeModel::AddFileNode(const QString& path, int state)
{
    auto node = std::make_unique<TPSTNode>();
    node->Name = path;
    node->State = state;
    const auto place = std::upper_bound(m_files.begin(), m_files.end(), node,
        [](const auto& a, const auto& b) { return CaptionLess(*a, *b); });
    const int row = int(place - m_files.begin());
    beginInsertRows({}, row, row);
    TPSTNode* added = m_files.insert(place, std::move(node))->get();
    endInsertRows();
    return added;
}

TPSTNode* TPSTTreeModel::FindFileNode(const QString& path) const
{
    for (const auto& node : m_files)
        if (node->Name.compare(path, Qt::CaseInsensitive) == 0)
            return node.get();
    return nullptr;
}

void TPSTTreeModel::RemoveFileNode(TPSTNode* node)
{
    const QModelIndex index = IndexOf(node);
    if (!index.isValid())
        return;
    beginRemoveRows({}, index.row(), index.row());
    m_files.erase(m_files.begin() + index.row());
    endRemoveRows();
}

void TPSTTreeModel::SetFile(TPSTNode* node, TOpenResult&& result, const std::function<void(TPSTNode*)>& visit)
{
    ClearFile(node);
    node->File = std::move(result.File);
    node->State = nsLoaded;
    node->Error.clear();
    const QModelIndex index = IndexOf(node);
    emit dataChanged(index, index);
    pst::TPSTRootFolder* root = node->File->RootFolder();
    if (!root)
        return;
    if (HideRootFolder) {
        node->ItemCount = result.ItemCounts.value(root);
        for (int i = 0; i < root->FolderCount(); ++i)
            AddFolders(node, root->GetFolder(i), result, visit);
    } else {
        AddFolders(node, root, result, visit);
    }
}

void TPSTTreeModel::AddFolders(TPSTNode* parent, pst::TPSTFolder* folder, const TOpenResult& result,
    const std::function<void(TPSTNode*)>& visit)
{
    // Parents before their sub-folders, in order, without recursion.
    std::vector<std::pair<TPSTNode*, pst::TPSTFolder*>> pending{{parent, folder}};
    while (!pending.empty()) {
        const auto [under, current] = pending.back();
        pending.pop_back();
        if (!current)
            continue;
        auto node = std::make_unique<TPSTNode>();
        node->Folder = current;
        node->Parent = under;
        node->ItemCount = result.ItemCounts.value(current);
        if (dynamic_cast<pst::TPSTRootFolder*>(current))
            node->Image = QStringLiteral("outlook");
        else if (dynamic_cast<pst::TPSTContactFolder*>(current))
            node->Image = QStringLiteral("contacts");
        else
            node->Image = TPSTViewerProjectData::FolderImageName(current->Kind());
        const int row = int(under->Children.size());
        beginInsertRows(IndexOf(under), row, row);
        TPSTNode* added = under->Children.emplace_back(std::move(node)).get();
        endInsertRows();
        if (visit)
            visit(added);
        for (int i = current->FolderCount() - 1; i >= 0; --i)
            pending.emplace_back(added, current->GetFolder(i));
    }
}

void TPSTTreeModel::ClearFile(TPSTNode* node)
{
    if (!node->Children.empty()) {
        beginRemoveRows(IndexOf(node), 0, int(node->Children.size()) - 1);
        node->Children.clear();
        endRemoveRows();
    }
    node->File.reset();
    node->ItemCount = 0;
}

void TPSTTreeModel::SetState(TPSTNode* node, int state)
{
    node->State = state;
    if (state != nsOpenFailed)
        node->Error.clear();
    const QModelIndex index = IndexOf(node);
    emit dataChanged(index, index);
    Sort();
}

void TPSTTreeModel::SetOpenFailed(TPSTNode* node, const QString& reason)
{
    node->Error = reason;
    SetState(node, nsOpenFailed);
}

void TPSTTreeModel::CaptionsChanged()
{
    if (!m_files.empty())
        emit dataChanged(index(0, 0), index(int(m_files.size()) - 1, 0));
    Sort();
}

void TPSTTreeModel::Sort()
{
    if (std::is_sorted(m_files.begin(), m_files.end(), [](const auto& a, const auto& b) { return CaptionLess(*a, *b); }))
        return;
    emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList before = persistentIndexList();
    std::vector<const TPSTNode*> nodes;
    for (const QModelIndex& index : before)
        nodes.push_back(NodeOf(index));
    std::stable_sort(m_files.begin(), m_files.end(), [](const auto& a, const auto& b) { return CaptionLess(*a, *b); });
    QModelIndexList after;
    for (size_t i = 0; i < nodes.size(); ++i)
        after << IndexOf(nodes[i]).siblingAtColumn(before[qsizetype(i)].column());
    changePersistentIndexList(before, after);
    emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

QModelIndex TPSTTreeModel::IndexOf(const TPSTNode* node) const
{
    if (!node)
        return {};
    const auto& siblings = node->Parent ? node->Parent->Children : m_files;
    for (size_t row = 0; row < siblings.size(); ++row)
        if (siblings[row].get() == node)
            return createIndex(int(row), 0, const_cast<TPSTNode*>(node));
    return {};
}

TPSTNode* TPSTTreeModel::NodeOf(const QModelIndex& index)
{
    return index.isValid() ? static_cast<TPSTNode*>(index.internalPointer()) : nullptr;
}

QModelIndex TPSTTreeModel::index(int row, int column, const QModelIndex& parent) const
{
    if (column != 0 || row < 0)
        return {};
    const TPSTNode* node = NodeOf(parent);
    const auto& children = node ? node->Children : m_files;
    if (row >= int(children.size()))
        return {};
    return createIndex(row, 0, children[size_t(row)].get());
}

QModelIndex TPSTTreeModel::parent(const QModelIndex& child) const
{
    const TPSTNode* node = NodeOf(child);
    return node ? IndexOf(node->Parent) : QModelIndex();
}

int TPSTTreeModel::rowCount(const QModelIndex& parent) const
{
    if (parent.column() > 0)
        return 0;
    const TPSTNode* node = NodeOf(parent);
    return int(node ? node->Children.size() : m_files.size());
}

int TPSTTreeModel::columnCount(const QModelIndex&) const
{
    return 1;
}

QVariant TPSTTreeModel::data(const QModelIndex& index, int role) const
{
    const TPSTNode* node = NodeOf(index);
    if (!node)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return node->Caption();
    case Qt::ToolTipRole:
        if (!node->IsFileNode())
            return {};
        return node->Error.isEmpty() ? node->Name : node->Name + QLatin1Char('\n') + node->Error;
    case Qt::ForegroundRole: {
        const QColor colour = node->Colour();
        return colour.isValid() ? QVariant(colour) : QVariant();
    }
    case Qt::DecorationRole:
        if (node->Image.isEmpty() || !Images)
            return {};
        return Images(node->Image);
    default:
        return {};
    }
}

} // namespace tessaly::app
