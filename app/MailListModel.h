#pragma once

// The rows of the message list over a mail data store. A row's fields are
// read the first time the row is shown, sorted, searched or filtered, and
// kept as texts; the message itself is not kept.

#include "mail/MailDataStore.h"

#include <QAbstractTableModel>
#include <QDateTime>
#include <functional>
#include <optional>
#include <vector>

namespace tessaly::app {

// Which columns a folder's items get.
enum TListKind { lkMail, lkMeeting, lkContact };

class TMailListModel : public QAbstractTableModel {
public:
    explicit TMailListModel(QObject* parent = nullptr);

    // Shows the rows of a store (none for null); every row visible, unticked,
    // in store order.
    void SetStore(const mail::TMailDataStore* store, TListKind kind);
    const mail::TMailDataStore* Store() const { return m_store; }
    TListKind Kind() const { return m_kind; }

    static QStringList ColumnCaptions(TListKind kind);
    // The three columns the search box matches.
    static std::vector<int> SearchColumns(TListKind kind);
    // Column of the attachment mark (mail only), or -1.
    static int AttachColumn(TListKind kind) { return kind == lkMail ? 0 : -1; }

    // View rows are the visible rows in their shown order.
    int StoreRow(int viewRow) const;
    int ViewRow(int storeRow) const; // -1 when hidden
    int StoreRowCount() const { return m_store ? m_store->RowCount() : 0; }

    bool Checked(int storeRow) const;
    // Reports the change through OnCheckChanged when the state changes.
    void SetChecked(int storeRow, bool checked);
    bool Checkable() const { return m_checkable; }
    void SetCheckable(bool checkable);
    std::function<void(int storeRow)> OnCheckChanged;

    // Shows the rows the predicate accepts, keeping the order.
    void ApplyFilter(const std::function<bool(int storeRow)>& visible);
    bool RowMatches(int storeRow, const QString& text) const;

    // The text of a row's field; reads the row when not yet read.
    QString Text(int storeRow, int column) const;
    // How many rows have been read so far.
    int RowsRead() const { return m_rowsRead; }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    // Sorting reads the rows not read yet in short slices between the
    // window's events, then orders them on a worker thread; the rows take
    // the new order when it ends. A new sort or store supersedes a running
    // one.
    void sort(int column, Qt::SortOrder order) override;
    bool Sorting() const { return m_sorting; }
    // Runs the event loop until a running sort has ended.
    void WaitSorted();
    std::function<void(bool sorting)> OnSortingChanged;

private:
    struct TRow {
        QStringList Texts;
        QList<QVariant> Keys; // sort keys: texts, dates, sizes
        bool Attach = false;
    };
    const TRow& Row(int storeRow) const;
    TRow ReadRow(int storeRow) const;
    void ReadForSort(quint64 generation);
    void SetSorting(bool sorting);

    const mail::TMailDataStore* m_store = nullptr;
    TListKind m_kind = lkMail;
    int m_columns = 0;
    mutable std::vector<std::optional<TRow>> m_rows;
    mutable int m_rowsRead = 0;
    std::vector<int> m_all;     // store rows in sort order
    std::vector<int> m_visible; // view row -> store row
    std::vector<int> m_viewOf;  // store row -> view row, -1 when hidden
    std::vector<char> m_checked;
    bool m_checkable = true;
    // The running sort.
    bool m_sorting = false;
    quint64 m_sortGeneration = 0;
    int m_sortColumn = 0;
    Qt::SortOrder m_sortOrder = Qt::AscendingOrder;
    size_t m_sortNext = 0;
};

} // namespace tessaly::app
