#pragma once

// The rows of the message list over a mail data store. A row's fields are
// read the first time the row is shown, sorted, searched or filtered, and
// kept as texts; the message itself is not kept.

#include "mail/MailDataStore.h"

#include <QAbstractTableModel>
#include <QTimer>
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

    // Shows the rows the predicate accepts, keeping the order, at once.
    void ApplyFilter(const std::function<bool(int storeRow)>& visible);

    // The test of the export filter for a row, asked on the window's thread
    // (it reads the message); its answers are kept until it is set again.
    // Null lets every row pass.
    void SetAccept(std::function<bool(int storeRow)> accept);
    // Shows the rows whose search columns hold the text (any row when it is
    // empty) and that the test accepts. Runs like a sort (below).
    void FilterRows(const QString& text);
    // Whether the rows shown are narrowed by a text or a test.
    bool Filtered() const { return m_filtered; }

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
    // Sorting and filtering read the rows they need on the window's thread,
    // in short slices between its events (the store is not safe for other
    // threads), then order or match copies of the rows' fields on a worker;
    // the result applies on the window's thread. Small lists read in the
    // first slice are done at once. A newer sort supersedes a running sort,
    // a newer filter a running filter, and a new store both.
    void sort(int column, Qt::SortOrder order) override;
    bool Sorting() const { return m_sort.Running; }
    bool Filtering() const { return m_filter.Running; }
    bool Busy() const { return Sorting() || Filtering(); }
    // Runs the event loop until no sort or filter runs.
    void WaitIdle();
    // Told when a sort or a filter starts or ends.
    std::function<void()> OnBusyChanged;

private:
    struct TRow {
        QStringList Texts;
        QList<QVariant> Keys; // sort keys: texts, dates, sizes
        bool Attach = false;
    };
    // A background sort or filter: the request it runs for and how far
    // its reading has come.
    struct TJob {
        bool Running = false;
        quint64 Generation = 0;
        size_t Next = 0;   // position in m_all of the next row to read
        bool Deferred = false; // reading went on past the first slice
    };
    const TRow& Row(int storeRow) const;
    TRow ReadRow(int storeRow) const;
    // Reads rows of m_all from job.Next for a slice of time; false when
    // rows are left for the next slice.
    bool ReadSlice(TJob& job, const std::function<void(int storeRow)>& read);
    void SortStep();
    void FilterStep();
    void ApplyOrder(std::vector<int> order);
    void ApplyShown(const std::vector<char>& shown);
    void Start(TJob& job);
    void Finish(TJob& job);
    void Stop(TJob& job);

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
    quint64 m_generation = 0;
    TJob m_sort;
    int m_sortColumn = 0;
    Qt::SortOrder m_sortOrder = Qt::AscendingOrder;
    TJob m_filter;
    QTimer* m_sortTimer;
    QTimer* m_filterTimer;
    QString m_filterText;
    std::function<bool(int storeRow)> m_accept;
    std::vector<signed char> m_accepted; // per store row; -1 not asked yet
    bool m_filtered = false;
};

} // namespace tessaly::app
