// Our reader on its own: what it says about files it cannot read, the
// folders and items it still finds when a folder's tables are damaged,
// problems reported once, and several threads reading one file at once.

#include "TestUtil.h"
#include "core/DateTime.h"
#include "pstfile/PSTGenerator.h"
#include "pstfile/PSTWriter.h"
#include "pstfile/Reader.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <thread>

using namespace tessaly;
using namespace tessaly::pstfile;

namespace {

// Everything a walk of the file sees, as text: folders with their names and
// items with their subjects and attachment sizes.
QStringList Walk(const TPstFile& file)
{
    QStringList out;
    std::vector<uint32_t> folders{nidRootFolder};
    while (!folders.empty()) {
        const uint32_t folder = folders.back();
        folders.pop_back();
        out << QStringLiteral("folder %1 %2").arg(folder).arg(file.Properties(folder).String(pid::DisplayName).value_or(QString()));
        for (uint32_t nid : file.Contents(folder)) {
            const auto message = file.OpenMessage(nid);
            if (!message) {
                out << QStringLiteral("unreadable %1").arg(nid);
                continue;
            }
            QString line = QStringLiteral("item %1 %2").arg(nid).arg(message->Properties().String(pid::Subject).value_or(QString()));
            for (size_t i = 0; i < message->AttachmentCount(); ++i)
                if (const auto a = message->OpenAttachment(i))
                    line += QStringLiteral(" [%1]").arg(a->DataSize());
            out << line;
        }
        for (uint32_t child : file.SubFolders(folder))
            folders.push_back(child);
    }
    return out;
}

class ReaderTest : public ::testing::Test {
protected:
    QString Generate(const QString& name, TGeneratorOptions options = {})
    {
        const QString path = m_dir.filePath(name);
        GenerateDataFile(path, options);
        return path;
    }
    // Flips one byte of the stored data of a block.
    static void Damage(const QString& path, uint64_t ib)
    {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::ReadWrite));
        ASSERT_TRUE(f.seek(qint64(ib)));
        char c;
        ASSERT_TRUE(f.getChar(&c));
        ASSERT_TRUE(f.seek(qint64(ib)));
        ASSERT_TRUE(f.putChar(char(c ^ 0x5A)));
    }
    QTemporaryDir m_dir;
};

TEST_F(ReaderTest, FilesThatAreNoDataFilesSayWhy)
{
    const QString empty = m_dir.filePath(QStringLiteral("empty.pst")), text = m_dir.filePath(QStringLiteral("text.pst"));
    QFile(empty).open(QIODevice::WriteOnly);
    QFile t(text);
    ASSERT_TRUE(t.open(QIODevice::WriteOnly));
    t.write(QByteArray(4096, 'x'));
    t.close();
    struct TCase {
        QString path, expected;
    } cases[] = {
        {m_dir.filePath(QStringLiteral("missing.pst")), QStringLiteral("Can not open")},
        {m_dir.path(), QStringLiteral("Can not open")},
        {empty, QStringLiteral("too short")},
        {text, QStringLiteral("is not an Outlook data file")},
    };
    for (const auto& c : cases) {
        try {
            TPstFile::Open(c.path);
            ADD_FAILURE() << qPrintable(c.path) << " opened";
        } catch (const EPstFileError& e) {
            EXPECT_TRUE(e.Message().contains(c.expected)) << qPrintable(e.Message());
        }
    }
}

TEST_F(ReaderTest, SamplesOfEveryKindOpen)
{
    struct TCase {
        const char* file;
        TFileKind kind;
        bool ost;
        uint8_t crypt;
    } cases[] = {
        {"pst/enron.pst", TFileKind::Unicode, false, CryptPermute},
        {"pst/sample2.pst", TFileKind::Ansi, false, CryptPermute},
        {"pst/pstextractortest@outlook.com.ost", TFileKind::Unicode4K, true, CryptNone},
    };
    for (const auto& c : cases) {
        const auto file = TPstFile::Open(test::TestData(QString::fromLatin1(c.file)));
        EXPECT_EQ(file->Ndb().Kind(), c.kind) << c.file;
        EXPECT_EQ(file->IsOst(), c.ost) << c.file;
        EXPECT_EQ(file->Ndb().CryptMethod(), c.crypt) << c.file;
        const QStringList walk = Walk(*file);
        EXPECT_FALSE(walk.filter(QStringLiteral("item ")).isEmpty()) << c.file;
        EXPECT_TRUE(walk.filter(QStringLiteral("unreadable")).isEmpty()) << c.file;
        EXPECT_TRUE(file->Ndb().Problems().isEmpty()) << c.file << ": " << qPrintable(file->Ndb().Problems().join('\n'));
    }
}

TEST_F(ReaderTest, ItemsOfAFolderWithDamagedTablesAreFoundByTheirParent)
{
    TGeneratorOptions options;
    options.messages = 40;
    options.folders = 3;
    options.attachCount = 0;
    options.contacts = options.appointments = 0;
    const QString path = Generate(QStringLiteral("parents.pst"), options);

    // A folder with items and sub-folders: the Inbox.
    uint32_t inbox = 0;
    std::vector<uint32_t> contents, subFolders;
    {
        const auto file = TPstFile::Open(path);
        std::vector<uint32_t> folders{nidRootFolder};
        while (!folders.empty() && !inbox) {
            const uint32_t folder = folders.back();
            folders.pop_back();
            if (!file->SubFolders(folder).empty() && !file->Contents(folder).empty())
                inbox = folder;
            for (uint32_t child : file->SubFolders(folder))
                folders.push_back(child);
        }
        ASSERT_NE(inbox, 0u);
        contents = file->Contents(inbox);
        subFolders = file->SubFolders(inbox);
        for (uint32_t table : {(inbox & ~0x1Fu) | nidContentsTable, (inbox & ~0x1Fu) | nidHierarchyTable}) {
            const auto node = file->Ndb().FindNode(table);
            ASSERT_TRUE(node);
            const auto block = file->Ndb().FindBlock(node->bidData);
            ASSERT_TRUE(block);
            Damage(path, block->ib + 2); // the heap's signature
        }
    }
    const auto file = TPstFile::Open(path);
    std::vector<uint32_t> found = file->Contents(inbox), foundFolders = file->SubFolders(inbox);
    EXPECT_EQ(std::set<uint32_t>(found.begin(), found.end()), std::set<uint32_t>(contents.begin(), contents.end()));
    EXPECT_EQ(std::set<uint32_t>(foundFolders.begin(), foundFolders.end()),
        std::set<uint32_t>(subFolders.begin(), subFolders.end()));
    EXPECT_EQ(file->ContentCount(inbox), contents.size());
    // Each damaged block is reported once, however often it is asked for.
    file->Contents(inbox);
    file->SubFolders(inbox);
    EXPECT_EQ(file->Ndb().Problems().size(), 2) << qPrintable(file->Ndb().Problems().join('\n'));
    EXPECT_TRUE(file->Ndb().Problems().filter(QStringLiteral("checksum")).size() == 2);
}

TEST_F(ReaderTest, ThreadsReadingOneFileSeeWhatOneThreadSees)
{
    for (const char* sample : {"pst/enron.pst", "pst/pstextractortest@outlook.com.ost"}) {
        const auto file = TPstFile::Open(test::TestData(QString::fromLatin1(sample)));
        const QStringList alone = Walk(*TPstFile::Open(test::TestData(QString::fromLatin1(sample))));
        std::vector<QStringList> seen(4);
        std::vector<std::thread> threads;
        for (auto& s : seen)
            threads.emplace_back([&file, &s] { s = Walk(*file); });
        for (auto& t : threads)
            t.join();
        for (const auto& s : seen)
            EXPECT_EQ(s, alone) << sample;
    }
}

TEST_F(ReaderTest, AttachmentDataReadInPartsIsTheWhole)
{
    TGeneratorOptions options;
    options.messages = 6;
    options.attachCount = 2;
    options.attachSize = 60000; // several blocks: a data tree
    options.contacts = options.appointments = 0;
    const auto file = TPstFile::Open(Generate(QStringLiteral("parts.pst"), options));
    int checked = 0;
    std::vector<uint32_t> folders{nidRootFolder};
    while (!folders.empty()) {
        const uint32_t folder = folders.back();
        folders.pop_back();
        for (uint32_t nid : file->Contents(folder)) {
            const auto message = file->OpenMessage(nid);
            for (size_t i = 0; message && i < message->AttachmentCount(); ++i) {
                const auto a = message->OpenAttachment(i);
                ASSERT_TRUE(a);
                const auto whole = a->Properties().Bytes(pid::AttachDataBin);
                if (!whole || a->Method() != 1)
                    continue;
                ASSERT_EQ(a->DataSize(), whole->size());
                // Odd part sizes cross the block boundaries.
                QByteArray parts;
                char buffer[3001];
                for (qint64 at = 0, n; (n = a->ReadData(at, buffer, sizeof buffer)) > 0; at += n)
                    parts.append(buffer, n);
                EXPECT_EQ(parts, *whole);
                EXPECT_EQ(a->ReadData(whole->size() + 1, buffer, 10), 0);
                ++checked;
            }
        }
        for (uint32_t child : file->SubFolders(folder))
            folders.push_back(child);
    }
    EXPECT_GT(checked, 3);
}

// The program's named properties are found by set and number. Another set
// may use the same number, and the file may give that number as id to its
// property (here the other set's property comes first, so the writer gives
// it the number and the program's own property an id from 0xC000).
TEST_F(ReaderTest, NamedPropertiesAreFoundByTheirSetNotByTheirNumberAlone)
{
    const QUuid other(0x11112222, 0x3333, 0x4444, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC);
    const QDateTime decoyTime(QDate(2001, 2, 3), QTime(4, 5), Qt::UTC), time(QDate(2025, 5, 6), QTime(9, 0), Qt::UTC);
    const struct TCase {
        const char* subject;
        uint16_t id;
        bool isTime, ownToo;
    } cases[] = {
        {"start", pid::AppointmentStart, true, true},
        {"end", pid::AppointmentEnd, true, true},
        {"web page", pid::WebPage, false, true},
        {"work address", pid::WorkAddress, false, true},
        {"birthday", pid::Birthday, true, true},
        // Only the other set's property: nothing is found.
        {"start of another set only", pid::AppointmentStart, true, false},
        {"web page of another set only", pid::WebPage, false, false},
    };
    const QString path = m_dir.filePath(QStringLiteral("named.pst"));
    {
        TPSTWriter writer(path, QStringLiteral("Named"));
        for (const TCase& c : cases) {
            TPSTMessage m;
            m.SetString(pid::Subject, QLatin1String(c.subject));
            const QUuid set = NamedPropertySet(c.id);
            if (c.isTime) {
                m.SetNamedTime(other, c.id, decoyTime);
                if (c.ownToo)
                    m.SetNamedTime(set, c.id, time);
            } else {
                m.SetNamedString(other, c.id, QStringLiteral("another set's"));
                if (c.ownToo)
                    m.SetNamedString(set, c.id, QStringLiteral("ours"));
            }
            writer.AddMessage(writer.SpecialFolder(psfInbox), m);
        }
        writer.Finish();
    }
    const auto file = TPstFile::Open(path);
    std::map<QString, TProperties> bySubject;
    std::vector<uint32_t> folders{nidRootFolder};
    while (!folders.empty()) {
        const uint32_t folder = folders.back();
        folders.pop_back();
        for (uint32_t nid : file->Contents(folder))
            if (const auto message = file->OpenMessage(nid)) {
                // Subjects are stored after the marker of their prefix: 0x01 and its length.
                const QString subject = message->Properties().String(pid::Subject).value_or(QString());
                bySubject[subject.startsWith(QChar(1)) ? subject.mid(2) : subject] = message->Properties();
            }
        for (uint32_t child : file->SubFolders(folder))
            folders.push_back(child);
    }
    for (const TCase& c : cases) {
        SCOPED_TRACE(c.subject);
        // The case is what it says: the number is the other set's id.
        const TNamedId* holder = file->NameMap().Find(c.id);
        ASSERT_NE(holder, nullptr);
        ASSERT_EQ(holder->guid, other);
        ASSERT_TRUE(bySubject.count(QLatin1String(c.subject)));
        const TProperties& props = bySubject[QLatin1String(c.subject)];
        if (c.isTime)
            EXPECT_EQ(props.Filetime(c.id), c.ownToo ? core::QDateTimeToFiletime(time) : 0u);
        else
            EXPECT_EQ(props.String(c.id).value_or(QString()), c.ownToo ? QStringLiteral("ours") : QString());
        EXPECT_EQ(props.Has(c.id), c.ownToo);
    }
}

} // namespace
