// Data files from the writer, read back through our own reader (libpff):
// the format's limits (heap items, blocks, data trees, subnode blocks,
// B-tree levels), the generator, and the export into a data file.

#include "TasksTestUtil.h"
#include "TestUtil.h"
#include "core/Rtf.h"
#include "pst/PSTFile.h"
#include "pst/PSTMessage.h"
#include "pst/PSTReport.h"
#include "pst/PSTTestUtil.h"
#include "pst/PSTProperty.h"
#include "pstfile/PSTGenerator.h"
#include "tasks/MailExportSource.h"
#include "tasks/MailPSTTask.h"

#include <QCryptographicHash>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QStandardPaths>

using namespace tessaly;
using namespace tessaly::pstfile;
using namespace tessaly::tasks;
using namespace tessaly::test;

namespace {

pst::TPSTFolder* Find(pst::TPSTFolder* folder, const QString& name) { return FindFolder(folder, name); }

std::shared_ptr<const pst::TPSTMailItem> MailAt(pst::TPSTFolder* folder, int index)
{
    return std::dynamic_pointer_cast<const pst::TPSTMailItem>(folder->GetItem(index));
}

std::shared_ptr<const pst::TPSTMailItem> MailBySubject(pst::TPSTFolder* folder, const QString& subject)
{
    for (int i = 0; i < folder->ItemCount(); ++i)
        if (auto mail = MailAt(folder, i); mail && mail->Subject() == subject)
            return mail;
    return nullptr;
}

QByteArray Bytes(int size, quint32 seed)
{
    QByteArray data(size, '\0');
    QRandomGenerator random(seed);
    for (char& c : data)
        c = char(random.bounded(256));
    return data;
}

// A libpff tool's standard output; empty when it did not run or failed.
QString RunTool(const QString& tool, const QStringList& args)
{
    QProcess process;
    process.start(tool, args);
    if (!process.waitForFinished(300000) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return {};
    return QString::fromUtf8(process.readAllStandardOutput());
}

bool HaveTool(const char* tool) { return !QStandardPaths::findExecutable(QLatin1String(tool)).isEmpty(); }

uint32_t BitwiseCrc(const QByteArray& data, uint32_t crc = 0)
{
    for (char c : data) {
        crc ^= uint8_t(c);
        for (int k = 0; k < 8; ++k)
            crc = (crc & 1) ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
    }
    return crc;
}

QByteArray ReadAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// The leaf entries of one of the file's B-trees, in key order, read straight
// from its pages.
template <class TEntry>
std::vector<TEntry> BTreeLeaves(const QByteArray& file, uint64_t rootIb)
{
    std::vector<TEntry> leaves;
    std::vector<uint64_t> pages{rootIb};
    while (!pages.empty()) {
        const uint64_t ib = pages.back();
        pages.pop_back();
        if (ib + sizeof(TBTPageUnicode) > uint64_t(file.size())) {
            ADD_FAILURE() << "page past the end at " << ib;
            break;
        }
        const auto page = Load<TBTPageUnicode>(file.constData() + ib);
        for (int i = page.counts.cEnt - 1; i >= 0; --i) {
            const uint8_t* entry = page.rgentries + size_t(i) * page.counts.cbEnt;
            if (page.counts.cLevel == 0)
                leaves.push_back(Load<TEntry>(entry));
            else
                pages.push_back(Load<TBTEntryUnicode>(entry).bref.ib);
        }
        if (page.counts.cLevel == 0)
            std::reverse(leaves.end() - page.counts.cEnt, leaves.end());
    }
    return leaves;
}

// The parent folders of the file's messages in node id order.
std::vector<uint32_t> MessageParentsByNid(const QByteArray& file)
{
    const auto header = Load<THeaderUnicode>(file.constData());
    std::vector<uint32_t> parents;
    for (const TNBTEntryUnicode& node : BTreeLeaves<TNBTEntryUnicode>(file, header.root.brefNBT.ib))
        if (NidType(uint32_t(node.nid)) == nidNormalMessage)
            parents.push_back(node.nidParent);
    return parents;
}

int ParentChanges(const std::vector<uint32_t>& parents)
{
    int changes = 0;
    for (size_t i = 1; i < parents.size(); ++i)
        changes += parents[i] != parents[i - 1];
    return changes;
}

} // namespace

TEST(Crypt, CrcAgreesWithTheBitwiseDefinitionAndChains)
{
    for (int size : {0, 1, 3, 4, 5, 511, 8176}) {
        const QByteArray data = Bytes(size, uint32_t(size));
        EXPECT_EQ(pstfile::Crc(data.constData(), size_t(size)), BitwiseCrc(data)) << size;
        const qsizetype half = size / 3;
        EXPECT_EQ(pstfile::Crc(data.constData() + half, size_t(size - half), pstfile::Crc(data.constData(), size_t(half))),
            BitwiseCrc(data))
            << size;
    }
}

TEST(PSTWriterRtf, CompressedRtfReadsBackAtEverySizeAroundTheDictionaryWrap)
{
    // 207 bytes of the dictionary are preset; the end marker wraps at 4096.
    for (int size : {0, 1, 7, 8, 9, 4096 - 207 - 1, 4096 - 207, 4096 - 207 + 1, 20000}) {
        const QByteArray rtf = "{\\rtf1 " + QByteArray(size, 'x') + "}";
        EXPECT_EQ(core::DecompressRtf(CompressRtf(rtf)), rtf) << size;
    }
}

class PSTWriterTest : public ::testing::Test {
protected:
    QString Path(const QString& name) const { return m_dir.filePath(name); }
    QTemporaryDir m_dir;
};

TEST_F(PSTWriterTest, MessagesReadBackWholeAcrossEveryStorageLimit)
{
    // Attachment sizes on both sides of a heap item, a block and a data tree
    // of one level (1021 blocks).
    const std::vector<int> sizes{1, 3580, 3581, 8176, 8177, 8176 * 1021 + 1};
    const QString longText = QStringLiteral("Zeile mit Umlauten äöü und 日本語\r\n").repeated(4000);
    {
        TPSTWriter writer(Path(QStringLiteral("a.pst")), QStringLiteral("Test"));
        const uint32_t projects = writer.AddFolder(writer.SpecialFolder(psfInbox), QStringLiteral("Projekte – Größe"));
        TPSTMessage m;
        m.SetString(pid::Subject, QStringLiteral("Alle Grenzen"));
        m.SetSender(QStringLiteral("Anna Becker"), QStringLiteral("SMTP"), QStringLiteral("anna@example.com"));
        m.AddRecipient(1, QStringLiteral("Bob"), QStringLiteral("SMTP"), QStringLiteral("bob@example.com"));
        m.AddRecipient(2, QStringLiteral("Chloé"), QStringLiteral("SMTP"), QStringLiteral("chloe@example.com"));
        m.AddRecipient(3, QStringLiteral("Dan"), QStringLiteral("SMTP"), QStringLiteral("dan@example.com"));
        m.SetBodies(longText, QByteArray("<html><body><p>\xC3\xA4</p></body></html>"), QByteArray("{\\rtf1 rich}"));
        m.SetTime(pid::ClientSubmitTime, QDateTime(QDate(2024, 2, 29), QTime(13, 14, 15), Qt::UTC));
        for (size_t i = 0; i < sizes.size(); ++i)
            m.AddAttachment(QStringLiteral("part%1.bin").arg(i), Bytes(sizes[i], uint32_t(i)));
        auto inner = std::make_shared<TPSTMessage>();
        inner->SetString(pid::Subject, QStringLiteral("Innen"));
        inner->AddAttachment(QStringLiteral("inner.txt"), QByteArray("inside"));
        m.AddEmbedded(inner);
        writer.AddMessage(projects, m);
        writer.Finish();
    }
    pst::TPSTFile file(Path(QStringLiteral("a.pst")));
    ASSERT_TRUE(file.IsOpen());
    EXPECT_TRUE(file.Is64Bit());
    pst::TPSTFolder* projects = Find(file.RootFolder(), QStringLiteral("Projekte – Größe"));
    ASSERT_NE(projects, nullptr);
    ASSERT_EQ(projects->ItemCount(), 1);
    const auto mail = MailAt(projects, 0);
    ASSERT_NE(mail, nullptr);
    EXPECT_EQ(mail->Subject(), QStringLiteral("Alle Grenzen"));
    EXPECT_EQ(mail->Sender().Caption, QStringLiteral("Anna Becker <anna@example.com>"));
    EXPECT_EQ(mail->Recipients(1).Caption(1000), QStringLiteral("Bob"));
    EXPECT_EQ(mail->Recipients(2).Caption(1000), QStringLiteral("Chloé"));
    EXPECT_EQ(mail->Recipients(3).Caption(1000), QStringLiteral("Dan"));
    EXPECT_EQ(mail->Body().Text, longText);
    // UTF-8 without a declaration: the code page the writer names reads it.
    EXPECT_TRUE(mail->Body().HTML.contains(QStringLiteral("<p>\u00e4</p>"))) << mail->Body().HTML.toStdString();
    EXPECT_EQ(mail->Body().RTF, QByteArray("{\\rtf1 rich}"));
    EXPECT_EQ(core::DateTimeToQDateTime(mail->Date(pst::pdSubmit)).toUTC(), QDateTime(QDate(2024, 2, 29), QTime(13, 14, 15), Qt::UTC));
    const pst::TAttachList& attaches = mail->Attaches();
    ASSERT_EQ(attaches.Count(), int(sizes.size()) + 1);
    for (size_t i = 0; i < sizes.size(); ++i) {
        const auto attach = attaches.GetAttach(int(i));
        EXPECT_EQ(attach->FileName(), QStringLiteral("part%1.bin").arg(i));
        EXPECT_TRUE(attach->ContentBytes() == Bytes(sizes[i], uint32_t(i))) << sizes[i];
    }
    const auto embedded = attaches.GetAttach(int(sizes.size()))->AsMailItem();
    ASSERT_NE(embedded, nullptr);
    EXPECT_EQ(embedded->Subject(), QStringLiteral("Innen"));
    ASSERT_EQ(embedded->Attaches().Count(), 1);
    EXPECT_EQ(embedded->Attaches().GetAttach(0)->ContentBytes(), QByteArray("inside"));
}

TEST_F(PSTWriterTest, LargeTablesManyPartsAndManyProperties)
{
    constexpr int Messages = 2500, Folders = 40, Parts = 400, Properties = 700;
    {
        TPSTWriter writer(Path(QStringLiteral("b.pst")), QStringLiteral("Test"));
        const uint32_t inbox = writer.SpecialFolder(psfInbox);
        for (int i = 0; i < Folders; ++i)
            writer.AddFolder(inbox, QStringLiteral("Folder %1").arg(i, 3, 10, QLatin1Char('0')));
        for (int i = 0; i < Messages; ++i) {
            TPSTMessage m;
            m.SetString(pid::Subject, QStringLiteral("Message number %1 with a subject long enough to fill the table").arg(i));
            m.SetSender(QStringLiteral("Sender %1").arg(i), QStringLiteral("SMTP"), QStringLiteral("s%1@example.com").arg(i));
            writer.AddMessage(inbox, m);
        }
        // More parts than one subnode block holds, and more properties
        // than one leaf of the property tree.
        TPSTMessage parts;
        parts.SetString(pid::Subject, QStringLiteral("Parts"));
        for (int i = 0; i < Parts; ++i)
            parts.AddAttachment(QStringLiteral("p%1.txt").arg(i), QByteArray::number(i));
        writer.AddMessage(writer.SpecialFolder(psfSentItems), parts);
        const uint32_t calendar = writer.AddFolder(writer.SpecialFolder(psfTopOfStore), QStringLiteral("Calendar"),
            QStringLiteral("IPF.Appointment"));
        TPSTMessage meeting;
        meeting.SetString(pid::MessageClass, QStringLiteral("IPM.Appointment"));
        meeting.SetString(pid::Subject, QStringLiteral("Many properties"));
        for (int i = 0; i < Properties; ++i)
            meeting.SetString(uint16_t(0x4000 + i), QStringLiteral("value %1").arg(i));
        meeting.SetNamedString(PSETID_Appointment(), 0x8208, QStringLiteral("Room 7"));
        meeting.SetNamedTime(PSETID_Appointment(), 0x820D, QDateTime(QDate(2025, 5, 6), QTime(9, 0), Qt::UTC));
        writer.AddMessage(calendar, meeting);
        writer.Finish();
    }
    pst::TPSTFile file(Path(QStringLiteral("b.pst")));
    ASSERT_TRUE(file.IsOpen());
    pst::TPSTFolder* inbox = Find(file.RootFolder(), QStringLiteral("Inbox"));
    ASSERT_NE(inbox, nullptr);
    EXPECT_EQ(inbox->FolderCount(), Folders);
    EXPECT_EQ(inbox->GetFolder(Folders - 1)->Name(), QStringLiteral("Folder %1").arg(Folders - 1, 3, 10, QLatin1Char('0')));
    ASSERT_EQ(inbox->ItemCount(), Messages);
    for (int i : {0, Messages / 2, Messages - 1}) {
        const auto mail = MailAt(inbox, i);
        ASSERT_NE(mail, nullptr) << i;
        EXPECT_TRUE(mail->Subject().startsWith(QStringLiteral("Message number %1 ").arg(i))) << mail->Subject().toStdString();
        EXPECT_EQ(mail->Sender().Name, QStringLiteral("Sender %1").arg(i));
    }
    const auto parts = MailAt(Find(file.RootFolder(), QStringLiteral("Sent Items")), 0);
    ASSERT_NE(parts, nullptr);
    ASSERT_EQ(parts->Attaches().Count(), Parts);
    EXPECT_EQ(parts->Attaches().GetAttach(Parts - 1)->FileName(), QStringLiteral("p%1.txt").arg(Parts - 1));
    EXPECT_EQ(parts->Attaches().GetAttach(Parts - 1)->ContentBytes(), QByteArray::number(Parts - 1));

    pst::TPSTFolder* calendar = Find(file.RootFolder(), QStringLiteral("Calendar"));
    ASSERT_NE(calendar, nullptr);
    const auto meeting = std::dynamic_pointer_cast<const pst::TPSTMeetingItem>(calendar->GetItem(0));
    ASSERT_NE(meeting, nullptr);
    EXPECT_EQ(meeting->Subject(), QStringLiteral("Many properties"));
    EXPECT_EQ(meeting->Location(), QStringLiteral("Room 7"));
    EXPECT_EQ(core::DateTimeToQDateTime(meeting->AppoitmentStart()).toUTC(), QDateTime(QDate(2025, 5, 6), QTime(9, 0), Qt::UTC));
    EXPECT_EQ(pst::ReadString(meeting->Props(), 0x4000 + Properties - 1, 100), QStringLiteral("value %1").arg(Properties - 1));
    EXPECT_EQ(pst::ReadString(meeting->Props(), 0x4000 + Properties / 2, 100), QStringLiteral("value %1").arg(Properties / 2));
}

TEST_F(PSTWriterTest, UnfinishedFileIsRemovedAndAnUnwritablePathIsAnError)
{
    {
        TPSTWriter writer(Path(QStringLiteral("c.pst")), QStringLiteral("Test"));
        writer.AddMessage(writer.SpecialFolder(psfInbox), TPSTMessage());
        EXPECT_TRUE(QFileInfo::exists(Path(QStringLiteral("c.pst"))));
    }
    EXPECT_FALSE(QFileInfo::exists(Path(QStringLiteral("c.pst"))));
    EXPECT_THROW(TPSTWriter(Path(QStringLiteral("no/such/folder/d.pst")), QStringLiteral("Test")), core::ETessalyError);
}

// A named property set twice is stored once, with the value set last, as
// a property set twice by its id is.
TEST_F(PSTWriterTest, NamedPropertySetTwiceKeepsTheLastValue)
{
    const QString path = Path(QStringLiteral("named.pst"));
    {
        TPSTWriter writer(path, QStringLiteral("Named"));
        TPSTMessage m;
        m.SetString(pid::Subject, QStringLiteral("named"));
        m.SetNamedString(PS_PUBLIC_STRINGS(), 0x9000, QStringLiteral("first"));
        m.SetNamedString(PS_PUBLIC_STRINGS(), 0x9000, QStringLiteral("second"));
        m.SetNamedString(PSETID_Appointment(), pid::Location, QStringLiteral("here"));
        m.SetNamedString(PSETID_Appointment(), pid::Location, QStringLiteral("there"));
        writer.AddMessage(writer.SpecialFolder(psfInbox), m);
        writer.Finish();
    }
    const auto file = TPstFile::Open(path);
    const auto items = file->Contents(file->SubFolders(file->SubFolders(nidRootFolder).front()).front());
    ASSERT_EQ(items.size(), 1u);
    const auto message = file->OpenMessage(items.front());
    ASSERT_NE(message, nullptr);
    std::map<uint32_t, QStringList> values; // by number in its set
    for (const TPropEntry& e : message->Properties().Entries()) {
        const TNamedId* named = e.id >= 0x8000 ? file->NameMap().Find(e.id) : nullptr;
        if (named && !named->isString)
            values[named->lid] << message->Properties().DecodeString(e, *message->Properties().Value(e));
    }
    EXPECT_EQ(values[0x9000], QStringList{QStringLiteral("second")});
    EXPECT_EQ(values[pid::Location], QStringList{QStringLiteral("there")});
}

TEST_F(PSTWriterTest, GeneratorIsDeterministic)
{
    TGeneratorOptions options;
    options.messages = 30;
    options.edgeCases = true;
    GenerateDataFile(Path(QStringLiteral("1.pst")), options);
    GenerateDataFile(Path(QStringLiteral("2.pst")), options);
    options.seed = 2;
    GenerateDataFile(Path(QStringLiteral("3.pst")), options);
    auto hash = [&](const QString& name) {
        QFile f(Path(name));
        EXPECT_TRUE(f.open(QIODevice::ReadOnly));
        return QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha256);
    };
    EXPECT_EQ(hash(QStringLiteral("1.pst")), hash(QStringLiteral("2.pst")));
    EXPECT_NE(hash(QStringLiteral("1.pst")), hash(QStringLiteral("3.pst")));
}

TEST_F(PSTWriterTest, FreeSpaceOfTheAllocationMapsLiesInsideTheFile)
{
    if (!HaveTool("pffinfo"))
        GTEST_SKIP() << "pffinfo is not installed (package pff-tools)";
    // An empty store (one region), and one of many regions.
    for (const int messages : {0, 300}) {
        TGeneratorOptions options;
        options.messages = messages;
        options.contacts = options.appointments = messages ? 10 : 0;
        options.attachSize = 40000;
        const QString path = Path(QStringLiteral("m%1.pst").arg(messages));
        GenerateDataFile(path, options);
        const qint64 size = QFileInfo(path).size();
        const QString info = RunTool(QStringLiteral("pffinfo"), {QStringLiteral("-a"), path});
        ASSERT_TRUE(info.contains(QStringLiteral("Unallocated data blocks:"))) << info.toStdString();
        static const QRegularExpression Range(
            QStringLiteral("(\\d+) \\(0x[0-9a-f]+\\) - (\\d+) \\(0x[0-9a-f]+\\) size: (\\d+)"));
        int ranges = 0;
        for (auto it = Range.globalMatch(info); it.hasNext(); ++ranges) {
            const auto m = it.next();
            EXPECT_LE(m.captured(2).toLongLong(), size) << messages << " messages: " << m.captured(0).toStdString();
            EXPECT_EQ(m.captured(2).toLongLong() - m.captured(1).toLongLong(), m.captured(3).toLongLong());
        }
        // The last region is never full in these files.
        EXPECT_GT(ranges, 0) << info.toStdString();
    }
}

TEST_F(PSTWriterTest, EveryOrderAndEncodingReadsBackWhole)
{
    // Bodies and attachments in the heap, in one block, and in data trees;
    // message k goes to folder k % 3.
    const std::vector<int> bodyChars{50, 2500, 9000};
    const std::vector<int> attachSizes{1, 3581, 8177, 8176 * 3 + 5};
    constexpr int Messages = 9;
    auto body = [](int k, int chars) { return QStringLiteral("Text %1 äöü 日本語 ").arg(k).repeated(chars / 16 + 1); };
    for (const TPSTMessageOrder order : {pmoTree, pmoArrival}) {
        for (const uint8_t crypt : {CryptNone, CryptPermute, CryptCyclic}) {
            SCOPED_TRACE(testing::Message() << "order " << order << ", encoding " << int(crypt));
            const QString path = Path(QStringLiteral("o%1e%2.pst").arg(order).arg(crypt));
            std::vector<uint32_t> folders;
            {
                TPSTWriter writer(path, QStringLiteral("Test"), QUuid::createUuid(), {order, crypt});
                for (const char* name : {"A", "B", "C"})
                    folders.push_back(writer.AddFolder(writer.SpecialFolder(psfInbox), QLatin1String(name)));
                for (int k = 0; k < Messages; ++k) {
                    TPSTMessage m;
                    m.SetString(pid::Subject, QStringLiteral("Message %1").arg(k));
                    m.SetBodies(body(k, bodyChars[size_t(k) % bodyChars.size()]), {}, {});
                    const int size = attachSizes[size_t(k) % attachSizes.size()];
                    m.AddAttachment(QStringLiteral("a%1.bin").arg(k), Bytes(size, uint32_t(k)));
                    if (k == Messages - 1) {
                        auto inner = std::make_shared<TPSTMessage>();
                        inner->SetString(pid::Subject, QStringLiteral("Inner"));
                        inner->AddAttachment(QStringLiteral("inner.bin"), Bytes(9000, 99));
                        m.AddEmbedded(inner);
                    }
                    writer.AddMessage(folders[size_t(k) % folders.size()], m);
                }
                writer.Finish();
            }
            const QByteArray file = ReadAll(path);
            ASSERT_GE(file.size(), qsizetype(sizeof(THeaderUnicode)));
            EXPECT_EQ(Load<THeaderUnicode>(file.constData()).bCryptMethod, crypt);

            // Every block's checksum is over its bytes as stored; internal
            // blocks keep their plain block type byte.
            const auto header = Load<THeaderUnicode>(file.constData());
            // Both header checksums start at wMagicClient: 471 bytes, and
            // everything up to dwCRCFull.
            EXPECT_EQ(header.start.dwCRCPartial, BitwiseCrc(file.mid(8, 471)));
            EXPECT_EQ(header.dwCRCFull, BitwiseCrc(file.mid(8, 516)));
            const auto blocks = BTreeLeaves<TBBTEntryUnicode>(file, header.root.brefBBT.ib);
            ASSERT_FALSE(blocks.empty());
            int internal = 0;
            for (const TBBTEntryUnicode& block : blocks) {
                const uint64_t end = block.bref.ib + (block.cb + sizeof(TBlockTrailerUnicode) + 63) / 64 * 64;
                ASSERT_LE(end, uint64_t(file.size()));
                const auto trailer = Load<TBlockTrailerUnicode>(file.constData() + end - sizeof(TBlockTrailerUnicode));
                EXPECT_EQ(trailer.bid, block.bref.bid);
                EXPECT_EQ(trailer.dwCRC, Crc(file.constData() + block.bref.ib, block.cb)) << block.bref.bid;
                if (IsInternalBid(block.bref.bid)) {
                    ++internal;
                    const uint8_t btype = uint8_t(file[qsizetype(block.bref.ib)]);
                    EXPECT_TRUE(btype == 0x01 || btype == 0x02) << block.bref.bid;
                }
            }
            EXPECT_GT(internal, 2);

            // Node ids: interleaved as added, or folder by folder.
            const std::vector<uint32_t> parents = MessageParentsByNid(file);
            ASSERT_EQ(parents.size(), size_t(Messages));
            if (order == pmoArrival) {
                for (int k = 0; k < Messages; ++k)
                    EXPECT_EQ(parents[size_t(k)], folders[size_t(k) % folders.size()]) << k;
            } else {
                EXPECT_EQ(ParentChanges(parents), int(folders.size()) - 1);
            }

            pst::TPSTFile pst(path);
            ASSERT_NE(pst.RootFolder(), nullptr);
            for (size_t f = 0; f < folders.size(); ++f) {
                pst::TPSTFolder* folder = Find(pst.RootFolder(), QString(QChar(char16_t(u'A' + f))));
                ASSERT_NE(folder, nullptr) << f;
                ASSERT_EQ(folder->ItemCount(), Messages / 3);
                for (int k = int(f); k < Messages; k += 3) {
                    const auto mail = MailBySubject(folder, QStringLiteral("Message %1").arg(k));
                    ASSERT_NE(mail, nullptr) << k;
                    EXPECT_EQ(mail->Body().Text, body(k, bodyChars[size_t(k) % bodyChars.size()])) << k;
                    const pst::TAttachList& attaches = mail->Attaches();
                    ASSERT_EQ(attaches.Count(), k == Messages - 1 ? 2 : 1) << k;
                    EXPECT_EQ(attaches.GetAttach(0)->FileName(), QStringLiteral("a%1.bin").arg(k));
                    EXPECT_TRUE(attaches.GetAttach(0)->ContentBytes()
                        == Bytes(attachSizes[size_t(k) % attachSizes.size()], uint32_t(k)))
                        << k;
                    if (k == Messages - 1) {
                        const auto inner = attaches.GetAttach(1)->AsMailItem();
                        ASSERT_NE(inner, nullptr);
                        EXPECT_EQ(inner->Subject(), QStringLiteral("Inner"));
                        ASSERT_EQ(inner->Attaches().Count(), 1);
                        EXPECT_TRUE(inner->Attaches().GetAttach(0)->ContentBytes() == Bytes(9000, 99));
                    }
                }
            }
        }
    }
}

TEST_F(PSTWriterTest, TreeOrderNumbersTheFoldersOfADepthFirstWalkFromTheLast)
{
    // Inbox > A > A1, A2 > A2x and Inbox > B > B1, made in an order that
    // differs from the walk; two messages each, added round robin.
    const QString path = Path(QStringLiteral("tree.pst"));
    std::vector<uint32_t> walk; // the folders depth first, children by id
    {
        TPSTWriter writer(path, QStringLiteral("Test"));
        const uint32_t inbox = writer.SpecialFolder(psfInbox);
        const uint32_t a = writer.AddFolder(inbox, QStringLiteral("A"));
        const uint32_t b = writer.AddFolder(inbox, QStringLiteral("B"));
        const uint32_t a1 = writer.AddFolder(a, QStringLiteral("A1"));
        const uint32_t b1 = writer.AddFolder(b, QStringLiteral("B1"));
        const uint32_t a2 = writer.AddFolder(a, QStringLiteral("A2"));
        const uint32_t a2x = writer.AddFolder(a2, QStringLiteral("A2x"));
        walk = {inbox, a, a1, a2, a2x, b, b1};
        const std::vector<uint32_t> added{b1, a2x, inbox, a1, b, a2, a};
        for (int round = 0; round < 2; ++round) {
            for (const uint32_t folder : added) {
                TPSTMessage m;
                m.SetString(pid::Subject, QStringLiteral("%1 %2").arg(folder).arg(round));
                writer.AddMessage(folder, m);
            }
        }
        writer.Finish();
    }
    std::vector<uint32_t> expected;
    for (auto it = walk.rbegin(); it != walk.rend(); ++it)
        expected.insert(expected.end(), 2, *it);
    EXPECT_EQ(MessageParentsByNid(ReadAll(path)), expected);

    pst::TPSTFile pst(path);
    ASSERT_NE(pst.RootFolder(), nullptr);
    for (const char* name : {"A", "A1", "A2", "A2x", "B", "B1"}) {
        pst::TPSTFolder* folder = Find(pst.RootFolder(), QLatin1String(name));
        ASSERT_NE(folder, nullptr) << name;
        EXPECT_EQ(folder->ItemCount(), 2) << name;
    }
}

TEST_F(PSTWriterTest, GeneratedFilesOfEveryOrderAndEncodingReadBackAlike)
{
    TGeneratorOptions options;
    options.seed = 5;
    options.messages = 60;
    options.folders = 6;
    options.depth = 2;
    options.attachSize = 9000;
    options.contacts = options.appointments = 3;
    options.edgeCases = true;
    for (const TPSTMessageOrder order : {pmoTree, pmoArrival}) {
        SCOPED_TRACE(testing::Message() << "order " << order);
        options.order = order;
        QJsonObject plain;
        for (const uint8_t crypt : {CryptNone, CryptPermute, CryptCyclic}) {
            options.cryptMethod = crypt;
            const QString path = Path(QStringLiteral("g%1e%2.pst").arg(order).arg(crypt));
            const TGeneratorResult result = GenerateDataFile(path, options);
            EXPECT_EQ(Load<THeaderUnicode>(ReadAll(path).constData()).bCryptMethod, crypt);
            QJsonObject report = pst::ReportFile(path, {true});
            report.remove(QStringLiteral("file"));
            if (crypt == CryptNone) {
                plain = report;
                int items = 0;
                std::vector<QJsonObject> pending{report[QStringLiteral("root")].toObject()};
                while (!pending.empty()) {
                    const QJsonObject folder = pending.back();
                    pending.pop_back();
                    items += folder[QStringLiteral("items")].toInt();
                    for (const auto& child : folder[QStringLiteral("folders")].toArray())
                        pending.push_back(child.toObject());
                }
                // Listed folders only: readers hide the edge cases'
                // "MS-OLK-SyncIssues" and task folders, one item each.
                EXPECT_EQ(items, result.messages - 2);
            } else {
                EXPECT_EQ(report, plain) << int(crypt);
            }
        }

        // The mail of the generator's folders, by node id.
        pst::TPSTFile pst(Path(QStringLiteral("g%1e0.pst").arg(order)));
        ASSERT_NE(pst.RootFolder(), nullptr);
        std::vector<std::pair<uint32_t, uint64_t>> sent; // node id, submit time
        std::vector<pst::TPSTFolder*> pending{Find(pst.RootFolder(), QStringLiteral("Inbox")),
            Find(pst.RootFolder(), QStringLiteral("Sent Items"))};
        while (!pending.empty()) {
            pst::TPSTFolder* folder = pending.back();
            pending.pop_back();
            ASSERT_NE(folder, nullptr);
            for (int i = 0; i < folder->FolderCount(); ++i)
                pending.push_back(folder->GetFolder(i));
            for (int i = 0; i < folder->ItemCount(); ++i) {
                const auto mail = MailAt(folder, i);
                ASSERT_NE(mail, nullptr);
                const uint32_t nid = mail->ID();
                ASSERT_NE(nid, 0u);
                sent.emplace_back(nid, pst::ReadFiletime(mail->Props(), pid::ClientSubmitTime));
            }
        }
        ASSERT_EQ(sent.size(), size_t(options.messages));
        std::sort(sent.begin(), sent.end());
        const bool inDateOrder = std::is_sorted(sent.begin(), sent.end(),
            [](const auto& a, const auto& b) { return a.second < b.second; });
        // Arriving mail is numbered in date order and its folders interleave;
        // random mail is numbered folder by folder.
        EXPECT_EQ(inDateOrder, order == pmoArrival);
        const std::vector<uint32_t> parents = MessageParentsByNid(ReadAll(Path(QStringLiteral("g%1e0.pst").arg(order))));
        if (order == pmoArrival)
            EXPECT_GT(ParentChanges(parents), options.messages / 2);
        else
            EXPECT_LT(ParentChanges(parents), options.folders + 12);
    }
}

TEST_F(PSTWriterTest, ItemsReadersMustTreatWithCare)
{
    TGeneratorOptions options;
    options.messages = 10;
    options.edgeCases = true;
    GenerateDataFile(Path(QStringLiteral("e.pst")), options);
    pst::TPSTFile file(Path(QStringLiteral("e.pst")));
    ASSERT_NE(file.RootFolder(), nullptr);
    pst::TPSTFolder* root = file.RootFolder();

    // Folder names and classes.
    EXPECT_EQ(Find(root, QStringLiteral("MS-OLK-SyncIssues")), nullptr);
    EXPECT_EQ(Find(root, QStringLiteral("IPM_COMMON_VIEWS")), nullptr);
    EXPECT_EQ(Find(root, QStringLiteral("Tasks")), nullptr);
    ASSERT_NE(Find(root, QStringLiteral("IPM Archive")), nullptr);
    EXPECT_NE(Find(root, QStringLiteral("Archived")), nullptr);
    EXPECT_NE(dynamic_cast<pst::TPSTContactFolder*>(Find(root, QStringLiteral("Contacts"))), nullptr);
    EXPECT_NE(dynamic_cast<pst::TPSTAppointmentFolder*>(Find(root, QStringLiteral("Calendar"))), nullptr);

    pst::TPSTFolder* edge = Find(root, QStringLiteral("Edge cases"));
    ASSERT_NE(edge, nullptr);
    // A recipient of type 5 goes to the list of other types.
    const auto room = MailBySubject(edge, QStringLiteral("Recipient of type 5"));
    ASSERT_NE(room, nullptr);
    ASSERT_EQ(room->Recipients(4).Count(), 1);
    EXPECT_EQ(room->Recipients(4).GetItem(0).DisplayName, QStringLiteral("Room 101"));
    for (int list = 0; list < 4; ++list)
        EXPECT_FALSE(room->Recipients(list).Caption(10000).contains(QStringLiteral("Room 101")));

    // An Exchange sender shows by name, and resolves to SMTP through the
    // file's own properties.
    const auto exchange = MailBySubject(edge, QStringLiteral("Exchange sender"));
    ASSERT_NE(exchange, nullptr);
    EXPECT_EQ(exchange->Sender().Caption, QStringLiteral("Erika Exchange"));
    EXPECT_EQ(exchange->Sender().AddrType, QStringLiteral("EX"));
    pst::adapter::TPSTMailMessage message(exchange, false);
    ASSERT_NE(message.Sender(), nullptr);
    EXPECT_EQ(message.Sender()->EMail(), QStringLiteral("erika@example.com"));
    EXPECT_EQ(message.Sender()->EMailType(), mail::matEXResolved);

    // Attachments without a name are named by their index.
    const auto nameless = MailBySubject(edge, QStringLiteral("Nameless attachments"));
    ASSERT_NE(nameless, nullptr);
    ASSERT_EQ(nameless->Attaches().Count(), 2);
    EXPECT_EQ(nameless->Attaches().GetAttach(0)->FileName(), QStringLiteral("attach 0"));
    EXPECT_EQ(nameless->Attaches().GetAttach(1)->FileName(), QStringLiteral("attach 1"));
    EXPECT_EQ(nameless->Attaches().GetAttach(1)->ContentBytes().size(), 2000);
}

// --- export into a data file ---------------------------------------------------

namespace {

// Folder path below the top folder -> the folder's report, for every folder
// that holds items: what an export carries over.
void FlattenFolders(const QJsonObject& folder, const QString& path, QMap<QString, QJsonObject>& out)
{
    if (folder[QStringLiteral("items")].toInt() > 0) {
        QJsonObject kept = folder;
        kept.remove(QStringLiteral("folders"));
        kept.remove(QStringLiteral("kind")); // special folders are the writer's own
        kept.remove(QStringLiteral("name"));
        out[path] = kept;
    }
    for (const auto& child : folder[QStringLiteral("folders")].toArray()) {
        const QJsonObject sub = child.toObject();
        const QString name = sub[QStringLiteral("name")].toString();
        const bool top = path.isNull() && name.startsWith(QLatin1String("Top of "));
        FlattenFolders(sub, top ? QString() : path.isNull() ? name : path + QLatin1Char('/') + name, out);
    }
}

QMap<QString, QJsonObject> Folders(const QString& file)
{
    QMap<QString, QJsonObject> folders;
    FlattenFolders(pst::ReportFile(file, {true})[QStringLiteral("root")].toObject(), QString(), folders);
    return folders;
}

class PSTExportTest : public TOptionsTest {
protected:
    static void Setup(TMailProperties& properties, const QString& destination)
    {
        properties.SetConvertType(mctPST);
        properties.Destination = destination;
        properties.InitDestination({}, {});
    }
    QTemporaryDir m_out;
};

} // namespace

TEST_F(PSTExportTest, EverySampleDataFileComesBackTheSame)
{
    int messages = 0;
    for (const QString& name : QDir(TestData(QStringLiteral("pst"))).entryList(QDir::Files, QDir::Name)) {
        const QString source = TestData(QStringLiteral("pst/") + name);
        QTemporaryDir out;
        TMailProperties properties;
        Setup(properties, out.path() + QLatin1Char('/'));
        properties.KeepFolderStructure = true;
        TMailPSTTask task(properties);
        auto file = std::make_shared<pst::TPSTFile>(source);
        ASSERT_NE(file->RootFolder(), nullptr) << name.toStdString();
        AddFolderEntries(task, file, file->RootFolder(), {}, true);
        task.Run();
        EXPECT_EQ(task.Failed(), 0) << name.toStdString();
        messages += task.Written();
        const QString written = out.filePath(QStringLiteral("Outlook.pst"));
        ASSERT_TRUE(QFileInfo::exists(written)) << name.toStdString();
        EXPECT_FALSE(QFileInfo::exists(written + QStringLiteral(".part")));
        const auto want = Folders(source);
        const auto got = Folders(written);
        EXPECT_EQ(got.keys(), want.keys()) << name.toStdString();
        for (auto it = want.cbegin(); it != want.cend(); ++it) {
            // Item by item, so that a difference names its message.
            const QJsonArray a = it.value()[QStringLiteral("messages")].toArray();
            const QJsonArray b = got.value(it.key())[QStringLiteral("messages")].toArray();
            ASSERT_EQ(a.size(), b.size()) << name.toStdString() << ": " << it.key().toStdString();
            for (qsizetype i = 0; i < a.size(); ++i)
                EXPECT_EQ(a[i], b[i]) << name.toStdString() << ": " << it.key().toStdString() << " #" << i << "\n"
                                      << QJsonDocument(a[i].toObject()).toJson().toStdString() << "\n"
                                      << QJsonDocument(b[i].toObject()).toJson().toStdString();
            EXPECT_EQ(it.value()[QStringLiteral("class")], got.value(it.key())[QStringLiteral("class")]);
            EXPECT_EQ(it.value()[QStringLiteral("type")], got.value(it.key())[QStringLiteral("type")]);
        }
    }
    EXPECT_GT(messages, 250);
}

TEST_F(PSTExportTest, MessageFilesGoToTheInboxAndContactsToTheirFolder)
{
    QStringList subjects;
    TMailProperties properties;
        Setup(properties, m_out.path() + QLatin1Char('/'));
    TMailPSTTask task(properties);
    for (const QString& dir : {QStringLiteral("msg"), QStringLiteral("eml")})
        for (const QString& name : QDir(TestData(dir)).entryList(QDir::Files, QDir::Name))
            AddMessageFileEntry(task, TestData(dir + QLatin1Char('/') + name));
    task.Run();
    EXPECT_EQ(task.Failed(), 0);
    ASSERT_GT(task.Written(), 50);
    pst::TPSTFile file(m_out.filePath(QStringLiteral("Outlook.pst")));
    ASSERT_NE(file.RootFolder(), nullptr);
    pst::TPSTFolder* inbox = Find(file.RootFolder(), QStringLiteral("Inbox"));
    pst::TPSTFolder* contacts = Find(file.RootFolder(), QStringLiteral("Contacts"));
    const int inContacts = contacts ? contacts->ItemCount() : 0;
    ASSERT_NE(inbox, nullptr);
    EXPECT_EQ(inbox->ItemCount() + inContacts + (Find(file.RootFolder(), QStringLiteral("Calendar"))
                                                        ? Find(file.RootFolder(), QStringLiteral("Calendar"))->ItemCount()
                                                        : 0),
        task.Written());
    // Every message keeps its subject and its number of attachments (the
    // samples share subjects, so as a multiset).
    QList<QPair<QString, int>> copies;
    for (pst::TPSTFolder* folder : {inbox, Find(file.RootFolder(), QStringLiteral("Calendar"))})
        for (int i = 0; folder && i < folder->ItemCount(); ++i)
            if (const auto mail = MailAt(folder, i))
                copies.append({mail->Subject(), mail->Attaches().Count()});
    int checked = 0;
    for (const auto& entry : task.Entries()) {
        const auto original = entry.Load();
        if (!original || dynamic_cast<const mail::IMailContact*>(original.get()) || original->Subject().trimmed().isEmpty())
            continue;
        // libpff (20180714) reads surrogate pairs wrongly: U+1F389 comes back
        // as U+1EF8A, from our files and Outlook's alike.
        const QString subject = original->Subject().trimmed();
        if (std::any_of(subject.begin(), subject.end(), [](QChar c) { return c.isSurrogate(); }))
            continue;
        const auto attaches = original->Attaches();
        const QPair<QString, int> want{subject, attaches ? attaches->Count() : 0};
        EXPECT_TRUE(copies.removeOne(want)) << entry.Source.toStdString();
        ++checked;
    }
    EXPECT_GT(checked, 40);
}

TEST_F(PSTExportTest, AnExistingFileIsKeptAndACancelledRunKeepsWhatWasDone)
{
    const QString existing = m_out.filePath(QStringLiteral("Outlook.pst"));
    {
        QFile f(existing);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("the user's own file");
    }
    TMailProperties properties;
        Setup(properties, m_out.path() + QLatin1Char('/'));
    properties.CheckFileMode = cfmRename;
    TMailPSTTask task(properties);
    auto file = std::make_shared<pst::TPSTFile>(TestData(QStringLiteral("pst/enron.pst")));
    AddFolderEntries(task, file, file->RootFolder(), {}, true);
    task.OnProgress = [&](const TTaskProgress& progress) {
        if (progress.Done == 10)
            task.Cancel();
    };
    task.Run();
    QFile kept(existing);
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), QByteArray("the user's own file"));
    const QString renamed = m_out.filePath(QStringLiteral("Outlook (1).pst"));
    EXPECT_EQ(properties.Destination, renamed);
    pst::TPSTFile written(renamed);
    ASSERT_NE(written.RootFolder(), nullptr);
    EXPECT_EQ(task.Written(), 10);
    EXPECT_EQ(Find(written.RootFolder(), QStringLiteral("Inbox"))->ItemCount(), 10);
    EXPECT_FALSE(QFileInfo::exists(renamed + QStringLiteral(".part")));
}
