#include "app/MailListModel.h"

#include "core/DateTime.h"
#include "mail/MailContact.h"
#include "mail/MailInfo.h"
#include "mail/MailMsgHTML.h"
#include "pst/PSTMessage.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFutureWatcher>
#include <QIcon>
#include <QLocale>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>
#include <algorithm>
#include <numeric>

namespace tessaly::app {

namespace {

QString SizeText(qint64 size)
{
    if (size <= 0)
        return {};
    return QLocale().formattedDataSize(size, 1, QLocale::DataSizeTraditionalFormat);
}

QString DateText(mail::TDateTime date)
{
    return date > 0 ? core::FormatDateTime(date) : QString();
}

QVariant DateKey(mail::TDateTime date)
{
    return date > 0 ? QVariant(double(date)) : QVariant(0.0);
}

QString RecipientsText(const mail::IMailMessage& message, mail::TMailRecipientType kind)
{
    const auto list = message.Recipients(kind);
    if (!list)
        return {};
    QStringList names;
    for (int i = 0; i < list->Count(); ++i)
        if (const auto recipient = list->GetRecipient(i))
            names << recipient->Caption();
    return names.join(QStringLiteral("; "));
}

// A paper clip, drawn: not every system has a font with the emoji.
QIcon PaperClip()
{
    static const QIcon icon = [] {
        QPixmap pixmap(16, 16);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(QColor(90, 90, 90), 1.3));
        painter.setBrush(Qt::NoBrush);
        QPainterPath path;
        path.moveTo(10, 5);
        path.lineTo(10, 12);
        path.arcTo(QRectF(5.5, 9.5, 4.5, 5), 0, -180);
        path.lineTo(5.5, 3.5);
        path.arcTo(QRectF(5.5, 1, 6.5, 5), 180, -180);
        path.lineTo(12, 12.5);
        painter.drawPath(path);
        return QIcon(pixmap);
    }();
    return icon;
}

} // namespace

TMailListModel::TMailListModel(QObject* parent) : QAbstractTableModel(parent)
{
    // The next slice of reading waits behind the window's other timers and
    // events (a zero-time timer, unlike a posted call, lets them in first).
    for (auto [timer, step] : {std::pair{&m_sortTimer, &TMailListModel::SortStep}, {&m_filterTimer, &TMailListModel::FilterStep}}) {
        *timer = new QTimer(this);
        (*timer)->setSingleShot(true);
        (*timer)->setInterval(0);
        connect(*timer, &QTimer::timeout, this, step);
    }
}

QStringList TMailListModel::ColumnCaptions(TListKind kind)
{
    switch (kind) {
    case lkMeeting:
        return {QCoreApplication::translate("TMailListModel", "Subject"), QCoreApplication::translate("TMailListModel", "Location"),
            QCoreApplication::translate("TMailListModel", "Start"), QCoreApplication::translate("TMailListModel", "End"),
            QCoreApplication::translate("TMailListModel", "Organizer")};
    case lkContact:
        return {QCoreApplication::translate("TMailListModel", "Name"), QCoreApplication::translate("TMailListModel", "Company"),
            QCoreApplication::translate("TMailListModel", "Job title"), QCoreApplication::translate("TMailListModel", "E-mail"),
            QCoreApplication::translate("TMailListModel", "Business phone"), QCoreApplication::translate("TMailListModel", "Mobile phone")};
    default:
        return {QCoreApplication::translate("TMailListModel", "Attachment"), QCoreApplication::translate("TMailListModel", "From"),
            QCoreApplication::translate("TMailListModel", "Subject"), QCoreApplication::translate("TMailListModel", "Received"),
            QCoreApplication::translate("TMailListModel", "Sent"), QCoreApplication::translate("TMailListModel", "Size"),
            QCoreApplication::translate("TMailListModel", "To")};
    }
}

std::vector<int> TMailListModel::SearchColumns(TListKind kind)
{
    switch (kind) {
    case lkMeeting:
        return {0, 1, 4};
    case lkContact:
        return {0, 1, 3};
    default:
        return {1, 2, 6}; // sender, subject, recipients
    }
}

void TMailListModel::SetStore(const mail::TMailDataStore* store, TListKind kind)
{
    // A running sort or filter is for the rows that go.
    const bool wasBusy = Busy();
    ++m_generation;
    m_sort.Running = false;
    m_filter.Running = false;
    m_sortTimer->stop();
    m_filterTimer->stop();
    beginResetModel();
    m_store = store;
    m_kind = kind;
    m_columns = int(ColumnCaptions(kind).size());
    const int count = StoreRowCount();
    m_rows.assign(size_t(count), std::nullopt);
    m_rowsRead = 0;
    m_all.resize(size_t(count));
    std::iota(m_all.begin(), m_all.end(), 0);
    m_visible = m_all;
    m_viewOf = m_all;
    m_checked.assign(size_t(count), 0);
    m_accepted.assign(size_t(count), -1);
    m_filtered = false;
    endResetModel();
    if (wasBusy && OnBusyChanged)
        OnBusyChanged();
}

TMailListModel::TRow TMailListModel::ReadRow(int storeRow) const
{
    TRow row;
    const auto message = m_store ? m_store->Message(storeRow) : nullptr;
    for (int i = 0; i < m_columns; ++i) {
        row.Texts << QString();
        row.Keys << QVariant(QString());
    }
    if (!message)
        return row;
    const auto set = [&row](int column, const QString& text, const QVariant& key = {}) {
        row.Texts[column] = text;
        row.Keys[column] = key.isValid() ? key : QVariant(text);
    };
    switch (m_kind) {
    case lkContact: {
        const auto contact = std::dynamic_pointer_cast<mail::IMailContact>(message);
        const auto field = [&](int number) { return contact ? contact->GetField(number).toString() : QString(); };
        set(0, field(mail::mcfFullName));
        set(1, field(mail::mcfCompany));
        set(2, field(mail::mcfJobTitle));
        set(3, field(mail::mcfEMails));
        set(4, field(mail::mcfBusinessPhone));
        set(5, field(mail::mcfMobilePhone));
        if (row.Texts[0].isEmpty())
            set(0, message->Subject());
        break;
    }
    case lkMeeting: {
        const auto meeting = std::dynamic_pointer_cast<mail::IMailMeeting>(message);
        const auto sender = message->Sender();
        set(0, message->Subject());
        set(1, meeting ? meeting->Location() : QString());
        const mail::TDateTime start = meeting ? meeting->AppoitmentStart() : 0;
        const mail::TDateTime end = meeting ? meeting->AppoitmentEnd() : 0;
        set(2, DateText(start), DateKey(start));
        set(3, DateText(end), DateKey(end));
        set(4, sender ? sender->Caption() : QString());
        break;
    }
    default: {
        const auto sender = message->Sender();
        const auto attaches = message->Attaches();
        row.Attach = attaches && attaches->Count() > 0;
        set(0, {}, row.Attach ? 1 : 0);
        set(1, sender ? sender->Caption() : QString());
        set(2, message->Subject());
        const mail::TDateTime received = message->Date(mail::mdDelivery);
        const mail::TDateTime sent = message->Date(mail::mdClientSubmit);
        set(3, DateText(received), DateKey(received));
        set(4, DateText(sent), DateKey(sent));
        qint64 size = 0;
        if (const auto item = std::dynamic_pointer_cast<pst::adapter::TPSTMailMessage>(message))
            size = item->Item()->MessageSize();
        set(5, SizeText(size), size);
        set(6, RecipientsText(*message, mail::mrtTo));
        break;
    }
    }
    return row;
}

const TMailListModel::TRow& TMailListModel::Row(int storeRow) const
{
    auto& row = m_rows[size_t(storeRow)];
    if (!row) {
        row = ReadRow(storeRow);
        ++m_rowsRead;
    }
    return *row;
}

QString TMailListModel::Text(int storeRow, int column) const
{
    if (storeRow < 0 || storeRow >= StoreRowCount() || column < 0 || column >= m_columns)
        return {};
    return Row(storeRow).Texts.value(column);
}

int TMailListModel::StoreRow(int viewRow) const
{
    return viewRow >= 0 && viewRow < int(m_visible.size()) ? m_visible[size_t(viewRow)] : -1;
}

int TMailListModel::ViewRow(int storeRow) const
{
    return storeRow >= 0 && storeRow < int(m_viewOf.size()) ? m_viewOf[size_t(storeRow)] : -1;
}

bool TMailListModel::Checked(int storeRow) const
{
    return storeRow >= 0 && storeRow < int(m_checked.size()) && m_checked[size_t(storeRow)];
}

void TMailListModel::SetChecked(int storeRow, bool checked)
{
    if (storeRow < 0 || storeRow >= int(m_checked.size()) || bool(m_checked[size_t(storeRow)]) == checked)
        return;
    m_checked[size_t(storeRow)] = checked;
    const int view = ViewRow(storeRow);
    if (view >= 0)
        emit dataChanged(index(view, 0), index(view, 0), {Qt::CheckStateRole});
    if (OnCheckChanged)
        OnCheckChanged(storeRow);
}

void TMailListModel::SetCheckable(bool checkable)
{
    if (m_checkable == checkable)
        return;
    m_checkable = checkable;
    if (!m_visible.empty())
        emit dataChanged(index(0, 0), index(int(m_visible.size()) - 1, 0));
}

void TMailListModel::ApplyFilter(const std::function<bool(int storeRow)>& visible)
{
    emit layoutAboutToBeChanged();
    const QModelIndexList before = persistentIndexList();
    std::vector<int> stores;
    for (const QModelIndex& index : before)
        stores.push_back(StoreRow(index.row()));
    m_visible.clear();
    std::fill(m_viewOf.begin(), m_viewOf.end(), -1);
    for (int storeRow : m_all) {
        if (!visible || visible(storeRow)) {
            m_viewOf[size_t(storeRow)] = int(m_visible.size());
            m_visible.push_back(storeRow);
        }
    }
    QModelIndexList after;
    for (qsizetype i = 0; i < before.size(); ++i) {
        const int view = ViewRow(stores[size_t(i)]);
        after << (view >= 0 ? index(view, before[i].column()) : QModelIndex());
    }
    changePersistentIndexList(before, after);
    emit layoutChanged();
}

namespace {

// Texts compare without regard to case, other keys by their values.
int CompareKeys(const QVariant& a, const QVariant& b)
{
    if (a.typeId() == QMetaType::QString && b.typeId() == QMetaType::QString)
        return QString::compare(a.toString(), b.toString(), Qt::CaseInsensitive);
    const auto result = QVariant::compare(a, b);
    if (result == QPartialOrdering::Less)
        return -1;
    if (result == QPartialOrdering::Greater)
        return 1;
    return 0;
}

// Orders store rows by their keys (indexed by store row); rows with equal
// keys keep their order. Touches nothing but its arguments, so it runs on
// a worker.
std::vector<int> OrderRows(std::vector<int> rows, const std::vector<QVariant>& keys, bool descending)
{
    std::stable_sort(rows.begin(), rows.end(), [&](int a, int b) {
        const int c = CompareKeys(keys[size_t(a)], keys[size_t(b)]);
        return descending ? c > 0 : c < 0;
    });
    return rows;
}

// Which rows to show, by store row: accepted, and with the text in one of
// their search fields. Runs on a worker too.
std::vector<char> MatchRows(const std::vector<char>& accepted, const std::vector<QStringList>& fields, const QString& text)
{
    std::vector<char> shown(accepted.size(), 0);
    for (size_t row = 0; row < accepted.size(); ++row) {
        if (!accepted[row])
            continue;
        bool match = text.isEmpty();
        for (const QString& field : fields[row])
            match = match || field.contains(text, Qt::CaseInsensitive);
        shown[row] = match;
    }
    return shown;
}

// Lists up to this size that are read within the first slice are ordered
// or matched at once: it takes a few milliseconds.
constexpr size_t AtOnceRows = 5000;
// The longest the window's thread reads rows before it answers its events.
constexpr qint64 SliceMs = 10;

template <typename T, typename Apply>
void RunOnWorker(QObject* owner, std::function<T()> work, Apply apply)
{
    auto* watcher = new QFutureWatcher<T>(owner);
    QObject::connect(watcher, &QFutureWatcher<T>::finished, owner, [watcher, apply] {
        watcher->deleteLater();
        apply(watcher->result());
    });
    watcher->setFuture(QtConcurrent::run(std::move(work)));
}

} // namespace

void TMailListModel::Start(TJob& job)
{
    const bool wasBusy = Busy();
    job = TJob{true, ++m_generation, 0, false};
    if (!wasBusy && OnBusyChanged)
        OnBusyChanged();
}

void TMailListModel::Finish(TJob& job)
{
    job.Running = false;
    if (!Busy() && OnBusyChanged)
        OnBusyChanged();
}

void TMailListModel::Stop(TJob& job)
{
    if (!job.Running)
        return;
    ++m_generation;
    job.Generation = m_generation;
    Finish(job);
}

bool TMailListModel::ReadSlice(TJob& job, const std::function<void(int storeRow)>& read)
{
    QElapsedTimer slice;
    slice.start();
    while (job.Next < m_all.size()) {
        read(m_all[job.Next++]);
        if (slice.elapsed() >= SliceMs)
            break;
    }
    if (job.Next < m_all.size()) {
        job.Deferred = true;
        return false;
    }
    return true;
}

void TMailListModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= m_columns || !m_store)
        return;
    m_sortColumn = column;
    m_sortOrder = order;
    m_sortTimer->stop();
    Start(m_sort);
    SortStep();
}

void TMailListModel::SortStep()
{
    if (!m_sort.Running)
        return;
    const quint64 generation = m_sort.Generation;
    if (!ReadSlice(m_sort, [this](int storeRow) { Row(storeRow); })) {
        m_sortTimer->start();
        return;
    }
    // The keys are copied for the worker, which touches nothing else.
    std::vector<QVariant> keys(m_rows.size());
    for (int storeRow : m_all)
        keys[size_t(storeRow)] = Row(storeRow).Keys.value(m_sortColumn);
    const bool descending = m_sortOrder == Qt::DescendingOrder;
    if (!m_sort.Deferred && m_all.size() <= AtOnceRows) {
        ApplyOrder(OrderRows(m_all, keys, descending));
        Finish(m_sort);
        return;
    }
    RunOnWorker<std::vector<int>>(
        this, [keys = std::move(keys), rows = m_all, descending] { return OrderRows(rows, keys, descending); },
        [this, generation](std::vector<int> order) {
            if (!m_sort.Running || generation != m_sort.Generation)
                return;
            ApplyOrder(std::move(order));
            Finish(m_sort);
        });
}

void TMailListModel::ApplyOrder(std::vector<int> order)
{
    m_all = std::move(order);
    // The shown rows stay shown and take the new order.
    std::vector<char> shown(m_viewOf.size(), 0);
    for (int storeRow : m_visible)
        shown[size_t(storeRow)] = 1;
    ApplyShown(shown);
}

void TMailListModel::ApplyShown(const std::vector<char>& shown)
{
    ApplyFilter([&shown](int storeRow) { return shown[size_t(storeRow)] != 0; });
}

void TMailListModel::SetAccept(std::function<bool(int storeRow)> accept)
{
    m_accept = std::move(accept);
    std::fill(m_accepted.begin(), m_accepted.end(), -1);
}

void TMailListModel::FilterRows(const QString& text)
{
    m_filterText = text;
    m_filterTimer->stop();
    if (text.isEmpty() && !m_accept) {
        Stop(m_filter);
        m_filtered = false;
        ApplyFilter(nullptr);
        return;
    }
    Start(m_filter);
    FilterStep();
}

void TMailListModel::FilterStep()
{
    if (!m_filter.Running)
        return;
    const quint64 generation = m_filter.Generation;
    const bool needTexts = !m_filterText.isEmpty();
    const auto read = [this, needTexts](int storeRow) {
        auto& accepted = m_accepted[size_t(storeRow)];
        if (accepted < 0)
            accepted = !m_accept || m_accept(storeRow) ? 1 : 0;
        if (needTexts && accepted)
            Row(storeRow);
    };
    if (!ReadSlice(m_filter, read)) {
        m_filterTimer->start();
        return;
    }
    // The search fields of the accepted rows are copied for the worker.
    const std::vector<int> columns = SearchColumns(m_kind);
    std::vector<char> accepted(m_rows.size(), 0);
    std::vector<QStringList> fields(m_rows.size());
    for (int storeRow : m_all) {
        read(storeRow); // done already, unless a sort reordered m_all meanwhile
        accepted[size_t(storeRow)] = m_accepted[size_t(storeRow)] > 0;
        if (needTexts && accepted[size_t(storeRow)])
            for (int column : columns)
                fields[size_t(storeRow)] << Row(storeRow).Texts.value(column);
    }
    if (!m_filter.Deferred && m_all.size() <= AtOnceRows) {
        m_filtered = true;
        ApplyShown(MatchRows(accepted, fields, m_filterText));
        Finish(m_filter);
        return;
    }
    RunOnWorker<std::vector<char>>(
        this,
        [accepted = std::move(accepted), fields = std::move(fields), text = m_filterText] {
            return MatchRows(accepted, fields, text);
        },
        [this, generation](const std::vector<char>& shown) {
            if (!m_filter.Running || generation != m_filter.Generation)
                return;
            m_filtered = true;
            ApplyShown(shown);
            Finish(m_filter);
        });
}

void TMailListModel::WaitIdle()
{
    while (Busy())
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 10);
}

int TMailListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_visible.size());
}

int TMailListModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_columns;
}

QVariant TMailListModel::data(const QModelIndex& index, int role) const
{
    const int storeRow = StoreRow(index.row());
    if (storeRow < 0)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return Row(storeRow).Texts.value(index.column());
    case Qt::DecorationRole:
        if (index.column() == AttachColumn(m_kind) && Row(storeRow).Attach)
            return PaperClip();
        return {};
    case Qt::CheckStateRole:
        if (index.column() == 0 && m_checkable)
            return Checked(storeRow) ? Qt::Checked : Qt::Unchecked;
        return {};
    case Qt::TextAlignmentRole:
        if (m_kind == lkMail && index.column() == 5)
            return int(Qt::AlignRight | Qt::AlignVCenter);
        return {};
    default:
        return {};
    }
}

bool TMailListModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role != Qt::CheckStateRole || index.column() != 0 || !m_checkable)
        return false;
    SetChecked(StoreRow(index.row()), value.toInt() == Qt::Checked);
    return true;
}

QVariant TMailListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return {};
    const QStringList captions = ColumnCaptions(m_kind);
    if (role == Qt::DisplayRole)
        return section == AttachColumn(m_kind) ? QString() : captions.value(section);
    if (role == Qt::DecorationRole && section == AttachColumn(m_kind))
        return PaperClip();
    if (role == Qt::ToolTipRole)
        return captions.value(section);
    return {};
}

Qt::ItemFlags TMailListModel::flags(const QModelIndex& index) const
{
    Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    if (index.column() == 0 && m_checkable)
        flags |= Qt::ItemIsUserCheckable;
    return flags;
}

} // namespace tessaly::app
