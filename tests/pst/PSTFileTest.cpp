#include "pst/PSTFile.h"
#include "pst/PSTReport.h"

#include "PSTTestUtil.h"
#include "TestUtil.h"
#include "core/Exceptions.h"
#include "platform/CodePage.h"

#include <QStringList>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

using namespace tessaly::pst;
using tessaly::test::FindFolder;
using tessaly::test::TestData;

namespace {

const QString Ost = QStringLiteral("pst/pstextractortest@outlook.com.ost");

// The folder tree as the report prints it, without its first line.
QString Tree(const QString& file)
{
    QString text = ReportText(ReportFile(TestData(file), {}));
    return text.mid(text.indexOf(QLatin1Char('\n')) + 1);
}


} // namespace

// Names, nesting and counts as pffexport gives them for the same files, less
// the folders the listing rules leave out.
TEST(PSTFile, FolderTrees)
{
    const QString pstSkeleton = QStringLiteral(
        "(root) [other] (0)\n"
        "  SPAM Search Folder 2 [other] (0)\n"
        "  %1 [other] (%2)\n"
        "    Deleted Items [trash] (0)\n"
        "    %3 [inbox, IPF.Note] (1)\n"
        "  Search Root [other] (0)\n");
    const struct {
        const char* file;
        QString tree;
    } cases[] = {
        {"pst/sample1.pst", pstSkeleton.arg("Top of Outlook data file").arg(0).arg("Sample1")},
        {"pst/sample2.pst", pstSkeleton.arg("Top of Outlook data file").arg(0).arg("Sample2")},
        {"pst/submessage.pst", pstSkeleton.arg("Top of Outlook data file").arg(0).arg("submessage")},
        {"pst/test_ansi.pst", pstSkeleton.arg("Top of Personal Folders").arg(0).arg("Folder")},
        {"pst/test_unicode.pst", pstSkeleton.arg("Top of Personal Folders").arg(1).arg("Folder")},
        {"pst/enron.pst",
            "(root) [other] (0)\n"
            "  SPAM Search Folder 2 [other] (0)\n"
            "  Top of Personal Folders [other] (0)\n"
            "    Deleted Items [trash] (0)\n"
            "    lokay-m [inbox, IPF.Note] (0)\n"
            "      MLOKAY (Non-Privileged) [other, IPF.Note] (1)\n"
            "        TW-Commercial Group [other, IPF.Note] (14)\n"
            "        Systems [other, IPF.Note] (7)\n"
            "        Sent Items [other, IPF.Note] (2)\n"
            "        Personal [other, IPF.Note] (47)\n"
            "  Search Root [other] (0)\n"},
        {"pst/pstextractortest@outlook.com.ost",
            "IPM_SUBTREE [other] (0)\n"
            "  Deleted Items [trash, IPF.Note] (1)\n"
            "  Inbox [inbox, IPF.Note] (10)\n"
            "  Outbox [other, IPF.Note] (0)\n"
            "  Sent Items [sent, IPF.Note] (2)\n"
            "  Archive [other, IPF.Note] (0)\n"
            "  Conversation History [other] (0)\n"
            "  Junk Email [other, IPF.Note] (0)\n"
            "  ExternalContacts [other, IPF.Contact] (0)\n"
            "  Drafts [other, IPF.Note] (0)\n"
            "  Contacts [other, IPF.Contact] (0)\n"
            "  Calendar [other, IPF.Appointment] (9)\n"
            "    United States holidays [other, IPF.Appointment] (160)\n"
            "  Sync Issues [other, IPF.Note] (1)\n"
            "    Conflicts [other, IPF.Note] (0)\n"
            "    Local Failures [other, IPF.Note] (0)\n"
            "    Server Failures [other, IPF.Note] (0)\n"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Tree(QLatin1String(c.file)), c.tree) << c.file;
}

TEST(PSTFile, OstUsesFixedIdentifiers)
{
    TPSTFile file(TestData(Ost));
    ASSERT_TRUE(file.IsOpen());
    EXPECT_TRUE(file.IsOST());
    EXPECT_TRUE(file.Is64Bit());
    ASSERT_NE(file.RootFolder(), nullptr);
    EXPECT_EQ(file.RootFolder()->ID(), 0x2142u);
    EXPECT_EQ(file.RootFolder()->Name(), QStringLiteral("IPM_SUBTREE"));

    TPSTMessageStore* store = file.MessageStore();
    ASSERT_NE(store, nullptr);
    const uint32_t expected[] = {0x2182, 0x21C2, 0x8102, 0x2162, 0x2112, 0};
    for (int kind = fkInbox; kind <= fkOther; ++kind)
        EXPECT_EQ(store->FolderID(TPSTFolderKind(kind)), expected[kind]) << kind;
    EXPECT_EQ(store->GetFolderKind(0x2182), fkInbox);
    EXPECT_EQ(store->GetFolderKind(0x12345), fkOther);

    const struct {
        const char* name;
        TPSTFolderKind kind;
    } folders[] = {{"Inbox", fkInbox}, {"Sent Items", fkSent}, {"Deleted Items", fkTrash}, {"Archive", fkOther}};
    for (const auto& f : folders) {
        TPSTFolder* folder = FindFolder(file.RootFolder(), QLatin1String(f.name));
        ASSERT_NE(folder, nullptr) << f.name;
        EXPECT_EQ(folder->Kind(), f.kind) << f.name;
    }
    EXPECT_NE(dynamic_cast<TPSTAppointmentFolder*>(FindFolder(file.RootFolder(), QStringLiteral("Calendar"))), nullptr);
    EXPECT_NE(dynamic_cast<TPSTContactFolder*>(FindFolder(file.RootFolder(), QStringLiteral("Contacts"))), nullptr);
}

TEST(PSTFile, PstWithoutRootEntryFallsBackToLibpffRoot)
{
    TPSTFile file(TestData(QStringLiteral("pst/sample1.pst")));
    ASSERT_TRUE(file.IsOpen());
    EXPECT_FALSE(file.IsOST());
    EXPECT_EQ(file.FileCaption(), QStringLiteral("sample1"));
    ASSERT_NE(file.RootFolder(), nullptr);
    EXPECT_EQ(file.RootFolder()->Name(), QString());
    EXPECT_EQ(file.MessageStore()->FolderID(fkInbox), 0x8082u);
    EXPECT_EQ(file.MessageStore()->FolderID(fkDrafts), 0x81C2u);
}

TEST(PSTFile, AnsiFileReadsItsNamesAndGetsTheUsersCodePage)
{
    for (const char* name : {"pst/sample2.pst", "pst/test_ansi.pst"}) {
        TPSTFile file(TestData(QLatin1String(name)));
        ASSERT_TRUE(file.IsOpen()) << name;
        EXPECT_FALSE(file.Is64Bit()) << name;
        EXPECT_EQ(file.AsciiCodePage(), tessaly::platform::DefaultAnsiCodePage()) << name;
    }
    TPSTFile file(TestData(QStringLiteral("pst/sample2.pst")));
    TPSTFolder* folder = FindFolder(file.RootFolder(), QStringLiteral("Sample2"));
    ASSERT_NE(folder, nullptr);
    const auto item = std::dynamic_pointer_cast<TPSTMailItem>(folder->GetItem(0));
    ASSERT_TRUE(item);
    EXPECT_EQ(item->Subject(), QStringLiteral("Here is a sample message"));
    EXPECT_EQ(item->Sender().Caption, QStringLiteral("Terry Mahaffey"));
    EXPECT_EQ(item->Attaches().GetAttach(0)->FileName(), QStringLiteral("leah_thumper.jpg"));
}

TEST(PSTFile, FileThatIsNoDataFile)
{
    TPSTFile missing(TestData(QStringLiteral("pst/none.pst")));
    EXPECT_FALSE(missing.IsOpen());
    EXPECT_EQ(missing.RootFolder(), nullptr);
    EXPECT_EQ(missing.MessageStore(), nullptr);
    TPSTFile eml(TestData(QStringLiteral("eml/rfc2822__example01.eml")));
    EXPECT_FALSE(eml.IsOpen());
    EXPECT_THROW(ReportFile(eml, {}), tessaly::core::ETessalyError);
}

TEST(PSTFile, ItemsLiveWhileHeldOrCached)
{
    TPSTFile file(TestData(QStringLiteral("pst/enron.pst")));
    TPSTFolder* folder = FindFolder(file.RootFolder(), QStringLiteral("Systems"));
    ASSERT_NE(folder, nullptr);
    ASSERT_EQ(folder->ItemCount(), 7);
    EXPECT_THROW(folder->GetItem(7), std::out_of_range);
    EXPECT_THROW(folder->GetItem(-1), std::out_of_range);

    std::weak_ptr<TPSTDetailItem> watched;
    {
        const auto first = folder->GetItem(1);
        ASSERT_TRUE(first);
        EXPECT_EQ(folder->GetItem(1), first); // the same object while held
        EXPECT_EQ(first->Owner(), folder);
        EXPECT_EQ(first->Index(), 1);
        watched = first;
    }
    EXPECT_TRUE(watched.expired()); // released when nobody holds it

    folder->SetCached(true);
    watched = folder->GetItem(2);
    EXPECT_FALSE(watched.expired()); // the cached folder keeps it
    folder->ClearItems(true);
    EXPECT_FALSE(folder->Cached());
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(folder->ItemCount(), 7);

    // An item held elsewhere survives ClearItems and is handed out again.
    const auto held = folder->GetItem(3);
    folder->ClearItems(true);
    EXPECT_EQ(folder->GetItem(3), held);

    // Prepared items stay until cleared.
    folder->ClearItems(true);
    TPSTFolder* personal = FindFolder(file.RootFolder(), QStringLiteral("Personal"));
    personal->PrepareItems();
    watched = personal->GetItem(46);
    EXPECT_FALSE(watched.expired());
    personal->ClearItems(true);
    EXPECT_TRUE(watched.expired());
}

TEST(PSTFile, ItemOutlivesItsFile)
{
    std::shared_ptr<TPSTMailItem> item;
    {
        TPSTFile file(TestData(QStringLiteral("pst/enron.pst")));
        item = std::dynamic_pointer_cast<TPSTMailItem>(FindFolder(file.RootFolder(), QStringLiteral("Systems"))->GetItem(1));
        ASSERT_TRUE(item);
    }
    EXPECT_EQ(item->Owner(), nullptr);
    EXPECT_EQ(item->Subject(), QStringLiteral("eRequest"));
    EXPECT_EQ(item->Attaches().GetAttach(0)->ContentBytes().size(), 93696);
}

TEST(PSTFile, ItemsFromTwoThreads)
{
    TPSTFile file(TestData(QStringLiteral("pst/enron.pst")));
    TPSTFolder* folder = FindFolder(file.RootFolder(), QStringLiteral("Personal"));
    ASSERT_NE(folder, nullptr);
    QStringList seen[2];
    auto walk = [folder](QStringList& out) {
        for (int round = 0; round < 3; ++round)
            for (int i = 0; i < folder->ItemCount(); ++i)
                if (const auto item = folder->GetItem(i))
                    out << QString::number(item->Index());
    };
    std::thread other(walk, std::ref(seen[1]));
    walk(seen[0]);
    other.join();
    EXPECT_EQ(seen[0].size(), 3 * 47);
    EXPECT_EQ(seen[0], seen[1]);
}
