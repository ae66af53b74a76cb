// Our reader against libpff on every sample file and on generated files of
// each block encoding and message order: the folder tree (ids and order of
// sub-folders), the items of every folder (ids and order), and every
// property of every folder, item, recipient row, attachment row and
// attachment (id, type, bytes, what a named id stands for), attachment data
// and attached messages.
//
// Where libpff is wrong, the difference is let through only as narrowly as
// it can be told apart, and counted in the summary:
// - libpff lists every column of a table row, also the cells whose bit in
//   the row's cell existence bitmap is clear (with zeros or no bytes); such
//   a cell does not exist ([MS-PST] 2.3.4.4.1). Checked, cell by cell,
//   against the bitmap read from the row's bytes.
// - libpff gives a folder's sub-folders in node id order, not in the order
//   of the hierarchy table's rows. Checked: the same ids, libpff's
//   ascending, ours those of the table's rows as stored.
// - single differences, listed in KnownDiffs with the reason.

#include "ReaderWalk.h"
#include "TestUtil.h"
#include "pstfile/Endian.h"
#include "pstfile/PSTGenerator.h"

#include <QTemporaryDir>
#include <cstdio>
#include <gtest/gtest.h>
#include <set>

using namespace tessaly;
using namespace tessaly::test;

namespace {

struct TDiff {
    uint32_t node = 0; // the folder or item
    QString where;     // inside it: "recipient 1", "attachment 0 > embedded > ..."
    uint16_t prop = 0; // 0 when the difference is not in one property
    QString what;
};

// A difference where libpff is wrong, and why.
struct TKnownDiff {
    const char* file; // the sample's name
    uint32_t node;
    const char* where;
    uint16_t prop;
    const char* why;
};

const TKnownDiff KnownDiffs[] = {
    // The name-to-id map entry of 0x8068 is 2a 23 00 00 04 00 68 00: number
    // 0x232a, wGuid 4, so GUID index 2, PS_PUBLIC_STRINGS ([MS-PST]
    // 2.4.7.1), which libpff does not resolve: it gives a GUID of zeros.
    {"pstextractortest@outlook.com.ost", 0x2000e4, "message", 0x8068, "libpff: no GUID for PS_PUBLIC_STRINGS"},
};

struct TCounts {
    long long folders = 0, items = 0, embedded = 0, sets = 0, properties = 0, attachments = 0, dataBytes = 0;
    long long absentCells = 0, nodeIdOrder = 0;
};

// A table context as stored, read from its heap and blocks directly rather
// than through TTableContext ([MS-PST] 2.3.4): its header, columns and rows.
struct TRawTable {
    pstfile::TTCInfo info{};
    std::vector<pstfile::TTCColDesc> columns;
    std::vector<QByteArray> rows;
};

std::optional<TRawTable> ReadRawTable(const pstfile::TNodeScope& scope)
{
    using namespace pstfile;
    const auto heap = THeap::Open(scope);
    if (!heap)
        return std::nullopt;
    const auto info = heap->Item(heap->UserRoot());
    if (!info || info->size() < qsizetype(sizeof(TTCInfo)))
        return std::nullopt;
    TRawTable table;
    table.info = Load<TTCInfo>(info->constData());
    const qsizetype rowSize = table.info.rgib[TCI_bm];
    if (rowSize == 0)
        return std::nullopt;
    for (qsizetype at = sizeof(TTCInfo), i = 0; i < table.info.cCols && at + qsizetype(sizeof(TTCColDesc)) <= info->size();
         ++i, at += sizeof(TTCColDesc))
        table.columns.push_back(Load<TTCColDesc>(info->constData() + at));
    std::vector<QByteArray> blocks;
    const uint32_t hnid = table.info.hnidRows;
    if (hnid != 0 && NidType(hnid) == nidHid) {
        if (const auto rows = heap->Item(hnid))
            blocks.push_back(*rows);
    } else if (hnid != 0) {
        const auto node = scope.Subnode(hnid);
        const auto bids = node ? scope.Ndb().DataBlocks(node->bidData) : std::nullopt;
        for (uint64_t bid : bids.value_or(std::vector<uint64_t>()))
            if (const TBlock block = scope.Ndb().ReadBlock(bid))
                blocks.push_back(*block);
    }
    // Rows never cross a block.
    for (const QByteArray& block : blocks)
        for (qsizetype at = 0; at + rowSize <= block.size(); at += rowSize)
            table.rows.push_back(block.mid(at, rowSize));
    return table;
}

// Whether a row has a cell for the column: the column's bit of the row's
// cell existence bitmap, counted from the high bit of its first byte.
std::optional<bool> CellExists(const TRawTable& table, size_t row, uint32_t tag)
{
    if (row >= table.rows.size())
        return std::nullopt;
    const QByteArray& bytes = table.rows[row];
    for (const auto& column : table.columns) {
        const qsizetype at = table.info.rgib[pstfile::TCI_1b] + column.iBit / 8;
        if (column.tag == tag && at < bytes.size())
            return (uchar(bytes[at]) >> (7 - column.iBit % 8)) & 1;
    }
    return std::nullopt;
}

std::optional<pstfile::TNodeScope> SubScope(const std::optional<pstfile::TNodeScope>& scope, uint32_t nid)
{
    if (!scope)
        return std::nullopt;
    const auto node = scope->Subnode(nid);
    if (!node)
        return std::nullopt;
    return pstfile::TNodeScope(scope->Ndb(), node->bidData, node->bidSub);
}

QString Hex(uint32_t v, int width = 4) { return QStringLiteral("0x%1").arg(v, width, 16, QLatin1Char('0')); }

// Where two values first differ, with a few bytes of each.
QString ValueDiff(const QByteArray& ours, const QByteArray& theirs)
{
    qsizetype at = 0;
    while (at < ours.size() && at < theirs.size() && ours[at] == theirs[at])
        ++at;
    return QStringLiteral("sizes %1/%2, first difference at %3: ours %4, libpff %5")
        .arg(ours.size())
        .arg(theirs.size())
        .arg(at)
        .arg(QString::fromLatin1(ours.mid(at, 16).toHex(' ')), QString::fromLatin1(theirs.mid(at, 16).toHex(' ')));
}

class TComparison {
public:
    TComparison(const pstfile::TPstFile& ours, libpff_file_t* pff) : m_ours(ours), m_pff(pff) {}

    void Run()
    {
        TPffItem root;
        if (libpff_file_get_root_folder(m_pff, root.Out(), nullptr) != 1 || !root) {
            Add(pstfile::nidRootFolder, {}, 0, QStringLiteral("libpff has no root folder"));
            return;
        }
        struct TFolder {
            uint32_t nid;
            TPffItem pff;
        };
        std::vector<TFolder> stack;
        stack.push_back({pstfile::nidRootFolder, std::move(root)});
        std::set<uint32_t> seen;
        while (!stack.empty()) {
            TFolder folder = std::move(stack.back());
            stack.pop_back();
            if (!seen.insert(folder.nid).second || seen.size() > size_t(MaxChildren))
                continue;
            ++m_counts.folders;
            if (const auto id = PffIdentifier(folder.pff.Get()); id != folder.nid)
                Add(folder.nid, {}, 0, QStringLiteral("libpff's folder is %1").arg(Hex(id.value_or(0))));
            ++m_counts.sets;
            Compare(folder.nid, QStringLiteral("folder"), ReadOurs(m_ours, m_ours.Properties(folder.nid)),
                ReadPffProps(folder.pff.Get()));

            // Items, in the order of the contents table.
            const std::vector<uint32_t> items = m_ours.Contents(folder.nid);
            auto pffItems = PffChildren(folder.pff.Get(), false);
            CompareIds(folder.nid, QStringLiteral("items"), items, pffItems);
            for (auto& [id, handle] : pffItems) {
                if (std::find(items.begin(), items.end(), id) == items.end())
                    continue;
                const auto message = m_ours.OpenMessage(id);
                if (!message) {
                    Add(id, {}, 0, QStringLiteral("our reader cannot open the item"));
                    continue;
                }
                ++m_counts.items;
                std::optional<pstfile::TNodeScope> scope;
                if (const auto entry = m_ours.Ndb().FindNode(id))
                    scope.emplace(m_ours.Ndb(), entry->bidData, entry->bidSub);
                CompareItems(id, {}, ReadOurItem(m_ours, *message), ReadPffItem(handle.Get()), scope);
            }
            pffItems.clear();

            const std::vector<uint32_t> subs = m_ours.SubFolders(folder.nid);
            auto pffSubs = PffChildren(folder.pff.Get(), true);
            CompareIds(folder.nid, QStringLiteral("sub-folders"), subs, pffSubs);
            // Depth first, in table order.
            for (auto it = pffSubs.rbegin(); it != pffSubs.rend(); ++it)
                if (std::find(subs.begin(), subs.end(), it->first) != subs.end())
                    stack.push_back({it->first, std::move(it->second)});
        }
    }

    const TCounts& Counts() const { return m_counts; }
    const std::vector<TDiff>& Diffs() const { return m_diffs; }

private:
    void Add(uint32_t node, const QString& where, uint16_t prop, const QString& what)
    {
        m_diffs.push_back({node, where, prop, what});
    }

    // libpff's ids are ours in ascending order, and ours are the row ids of
    // the folder's hierarchy table as stored.
    bool InNodeIdOrder(uint32_t folder, const std::vector<uint32_t>& ours, const std::vector<uint32_t>& theirs) const
    {
        std::vector<uint32_t> sorted = ours;
        std::sort(sorted.begin(), sorted.end());
        if (sorted != theirs)
            return false;
        const auto node = m_ours.Ndb().FindNode((folder & ~0x1Fu) | pstfile::nidHierarchyTable);
        const auto table = node ? ReadRawTable(pstfile::TNodeScope(m_ours.Ndb(), node->bidData, node->bidSub)) : std::nullopt;
        if (!table)
            return false;
        std::vector<uint32_t> stored;
        for (const QByteArray& row : table->rows)
            stored.push_back(pstfile::Get32(row.constData()));
        return stored == ours;
    }

    void CompareIds(uint32_t folder, const QString& what, const std::vector<uint32_t>& ours,
        const std::vector<std::pair<uint32_t, TPffItem>>& pff)
    {
        std::vector<uint32_t> theirs;
        for (const auto& p : pff)
            theirs.push_back(p.first);
        if (ours == theirs)
            return;
        if (what == QLatin1String("sub-folders") && InNodeIdOrder(folder, ours, theirs)) {
            ++m_counts.nodeIdOrder;
            return;
        }
        QStringList a, b;
        for (uint32_t id : ours)
            a << Hex(id, 0);
        for (uint32_t id : theirs)
            b << Hex(id, 0);
        Add(folder, what, 0, QStringLiteral("ours [%1], libpff [%2]").arg(a.join(' '), b.join(' ')));
    }

    // row: the table a row comes from, read from its bytes, and its index.
    void Compare(uint32_t node, const QString& where, const TPropSet& ours, const TPropSet& theirs,
        const TRawTable* table = nullptr, size_t row = 0)
    {
        if (ours.readable != theirs.readable) {
            Add(node, where, 0, QStringLiteral("readable: ours %1, libpff %2").arg(ours.readable).arg(theirs.readable));
            return;
        }
        auto a = ours.props.begin(), b = theirs.props.begin();
        const auto key = [](const TProp& p) { return std::pair(p.id, p.type); };
        while (a != ours.props.end() || b != theirs.props.end()) {
            if (b == theirs.props.end() || (a != ours.props.end() && key(*a) < key(*b))) {
                Add(node, where, a->id, QStringLiteral("%1 type %2 only ours").arg(Hex(a->id), Hex(a->type)));
                ++a;
                continue;
            }
            if (a == ours.props.end() || key(*b) < key(*a)) {
                if (table && CellExists(*table, row, pstfile::Tag(b->id, b->type)) == false) {
                    ++m_counts.absentCells;
                    ++b;
                    continue;
                }
                Add(node, where, b->id, QStringLiteral("%1 type %2 only libpff (%3)").arg(Hex(b->id), Hex(b->type), QString::fromLatin1(b->value.left(16).toHex(' '))));
                ++b;
                continue;
            }
            ++m_counts.properties;
            const QString tag = QStringLiteral("%1 type %2").arg(Hex(a->id), Hex(a->type));
            if (a->readable != b->readable)
                Add(node, where, a->id, QStringLiteral("%1 readable: ours %2, libpff %3").arg(tag).arg(a->readable).arg(b->readable));
            else if (a->value != b->value)
                Add(node, where, a->id, QStringLiteral("%1 value: %2").arg(tag, ValueDiff(a->value, b->value)));
            if (a->named != b->named) {
                const auto text = [](const std::optional<TNamed>& n) {
                    if (!n)
                        return QStringLiteral("none");
                    return QStringLiteral("%1 %2").arg(QString::fromLatin1(n->guid.toHex()),
                        n->isString ? n->name : Hex(n->number));
                };
                Add(node, where, a->id, QStringLiteral("%1 named: ours %2, libpff %3").arg(tag, text(a->named), text(b->named)));
            }
            ++a;
            ++b;
        }
    }

    void CompareRows(uint32_t node, const QString& where, const std::vector<TPropSet>& ours,
        const std::vector<TPropSet>& theirs, const std::optional<pstfile::TNodeScope>& scope)
    {
        if (ours.size() != theirs.size())
            Add(node, where, 0, QStringLiteral("rows: ours %1, libpff %2").arg(ours.size()).arg(theirs.size()));
        const auto table = scope ? ReadRawTable(*scope) : std::nullopt;
        for (size_t r = 0; r < std::min(ours.size(), theirs.size()); ++r) {
            ++m_counts.sets;
            Compare(node, QStringLiteral("%1 %2").arg(where).arg(r), ours[r], theirs[r], table ? &*table : nullptr, r);
        }
    }

    // scope: the item's node, to read its tables' bytes.
    void CompareItems(uint32_t node, const QString& where, const TItem& ours, const TItem& theirs,
        const std::optional<pstfile::TNodeScope>& scope)
    {
        const QString prefix = where.isEmpty() ? QString() : where + QStringLiteral(" > ");
        if (ours.id != theirs.id)
            Add(node, where, 0, QStringLiteral("item id: ours %1, libpff %2").arg(Hex(ours.id, 0), Hex(theirs.id, 0)));
        ++m_counts.sets;
        Compare(node, prefix + QStringLiteral("message"), ours.props, theirs.props);
        CompareRows(node, prefix + QStringLiteral("recipient"), ours.recipients, theirs.recipients,
            SubScope(scope, pstfile::MakeNid(pstfile::nidRecipientTable, 0x34)));
        CompareRows(node, prefix + QStringLiteral("attachment row"), ours.attachmentRows, theirs.attachmentRows,
            SubScope(scope, pstfile::MakeNid(pstfile::nidAttachmentTable, 0x33)));
        if (ours.attachments.size() != theirs.attachments.size())
            Add(node, prefix + QStringLiteral("attachments"), 0,
                QStringLiteral("ours %1, libpff %2").arg(ours.attachments.size()).arg(theirs.attachments.size()));
        for (size_t i = 0; i < std::min(ours.attachments.size(), theirs.attachments.size()); ++i) {
            const TAttach &a = ours.attachments[i], &b = theirs.attachments[i];
            const QString at = prefix + QStringLiteral("attachment %1").arg(i);
            ++m_counts.attachments;
            if (a.id != b.id)
                Add(node, at, 0, QStringLiteral("attachment id: ours %1, libpff %2").arg(Hex(a.id, 0), Hex(b.id, 0)));
            if (a.opened != b.opened) {
                Add(node, at, 0, QStringLiteral("opened: ours %1, libpff %2").arg(a.opened).arg(b.opened));
                continue;
            }
            ++m_counts.sets;
            Compare(node, at, a.props, b.props);
            if (a.kind != b.kind) {
                Add(node, at, 0, QStringLiteral("kind: ours '%1', libpff '%2'").arg(QChar(a.kind ? a.kind : '-'), QChar(b.kind ? b.kind : '-')));
                continue;
            }
            if (a.kind == 'd') {
                if (a.data.readable != b.data.readable || a.data.size != b.data.size || a.data.digest != b.data.digest)
                    Add(node, at, pstfile::pid::AttachDataBin,
                        QStringLiteral("data: ours %1 bytes (%2), libpff %3 bytes (%4)%5")
                            .arg(a.data.size)
                            .arg(a.data.readable ? "read" : "unreadable")
                            .arg(b.data.size)
                            .arg(b.data.readable ? "read" : "unreadable")
                            .arg(a.data.digest != b.data.digest ? QStringLiteral(", contents differ") : QString()));
                else
                    m_counts.dataBytes += a.data.size;
            }
            if (a.kind == 'i') {
                if (bool(a.embedded) != bool(b.embedded)) {
                    Add(node, at, 0, QStringLiteral("attached message opens: ours %1, libpff %2").arg(bool(a.embedded)).arg(bool(b.embedded)));
                } else if (a.embedded) {
                    ++m_counts.embedded;
                    CompareItems(node, at + QStringLiteral(" > embedded"), *a.embedded, *b.embedded,
                        SubScope(SubScope(scope, a.id), a.embedded->id));
                }
            }
        }
    }

    const pstfile::TPstFile& m_ours;
    libpff_file_t* m_pff;
    TCounts m_counts;
    std::vector<TDiff> m_diffs;
};

bool IsKnown(const QString& file, const TDiff& diff, std::vector<int>& used)
{
    for (size_t i = 0; i < std::size(KnownDiffs); ++i) {
        const TKnownDiff& k = KnownDiffs[i];
        if (k.file && file == QLatin1String(k.file) && k.node == diff.node && diff.where == QLatin1String(k.where)
            && k.prop == diff.prop) {
            used[i] = 1;
            return true;
        }
    }
    return false;
}

// Compares one file and reports what differs beyond the known differences.
void CompareFile(const QString& path, const QString& label, std::vector<int>& used)
{
    SCOPED_TRACE(qPrintable(label));
    const auto ours = pstfile::TPstFile::Open(path);
    const TPffFile pff = OpenPff(path);
    ASSERT_TRUE(pff) << "libpff cannot open " << qPrintable(path);
    TComparison comparison(*ours, pff.Get());
    comparison.Run();
    const TCounts& c = comparison.Counts();
    int unexplained = 0, known = 0;
    for (const TDiff& d : comparison.Diffs()) {
        if (IsKnown(label, d, used)) {
            ++known;
            continue;
        }
        ++unexplained;
        if (unexplained <= 40)
            ADD_FAILURE() << qPrintable(label) << ": node " << qPrintable(Hex(d.node, 0)) << " " << qPrintable(d.where)
                          << ": " << qPrintable(d.what);
    }
    EXPECT_EQ(unexplained, 0) << qPrintable(label) << ": differences beyond the first 40 not shown";
    std::printf("%-34s %3lld folders %4lld items %2lld attached messages %4lld property sets %6lld properties "
                "%3lld attachments %9lld data bytes; libpff: %4lld absent cells, %lld folders in node id order, "
                "%d listed\n",
        qPrintable(label), c.folders, c.items, c.embedded, c.sets, c.properties, c.attachments, c.dataBytes,
        c.absentCells, c.nodeIdOrder, known);
    EXPECT_GT(c.folders, 1) << qPrintable(label);
    EXPECT_GT(c.properties, 0) << qPrintable(label);
    ::testing::Test::RecordProperty((label + QStringLiteral(".items")).toStdString(), int(c.items));
    ::testing::Test::RecordProperty((label + QStringLiteral(".properties")).toStdString(), int(c.properties));
}

TEST(ReaderParity, SampleFilesReadAsLibpffReadsThem)
{
    std::vector<int> used(std::size(KnownDiffs));
    for (const char* sample : {"enron.pst", "sample1.pst", "sample2.pst", "submessage.pst", "test_ansi.pst",
             "test_unicode.pst", "pstextractortest@outlook.com.ost"}) {
        CompareFile(TestData(QStringLiteral("pst/") + QLatin1String(sample)), QLatin1String(sample), used);
    }
    // A listed difference that no longer shows is stale.
    for (size_t i = 0; i < std::size(KnownDiffs); ++i)
        EXPECT_TRUE(!KnownDiffs[i].file || used[i]) << "known difference no longer seen: " << KnownDiffs[i].file << " node "
                                                   << KnownDiffs[i].node << " " << KnownDiffs[i].where;
}

TEST(ReaderParity, GeneratedFilesOfEachEncodingAndOrderReadAsLibpffReadsThem)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    std::vector<int> used(std::size(KnownDiffs));
    for (const auto order : {pstfile::pmoTree, pstfile::pmoArrival}) {
        for (const uint8_t crypt : {pstfile::CryptNone, pstfile::CryptPermute, pstfile::CryptCyclic}) {
            pstfile::TGeneratorOptions options;
            options.messages = 60;
            options.edgeCases = true;
            options.order = order;
            options.cryptMethod = crypt;
            options.contacts = options.appointments = 5;
            const QString label = QStringLiteral("generated-%1-%2.pst")
                                      .arg(order == pstfile::pmoTree ? "tree" : "arrival")
                                      .arg(crypt == pstfile::CryptNone ? "none" : crypt == pstfile::CryptPermute ? "permute" : "cyclic");
            const QString path = dir.filePath(label);
            pstfile::GenerateDataFile(path, options);
            CompareFile(path, label, used);
        }
    }
}

} // namespace
