#include "pst/PSTProjectData.h"

#include "PSTTestUtil.h"
#include "TestUtil.h"
#include "core/CommandLine.h"
#include "core/CrashReporter.h"
#include "core/MessageBus.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>

using namespace tessaly;
using namespace tessaly::pst;
using tessaly::test::TestData;

namespace {

// A catalog that serves fixed value names and counts its reads.
class TCatalogDouble : public platform::IOutlookCatalog {
public:
    QStringList ValueNames(const QString& key) const override
    {
        ++reads;
        return entries.value(key);
    }
    QHash<QString, QStringList> entries;
    mutable int reads = 0;
};

const QString Key2010 = QStringLiteral("Software\\Microsoft\\Office\\14.0\\Outlook\\Search\\Catalog\\");
const QString Key2016 = QStringLiteral("Software\\Microsoft\\Office\\16.0\\Outlook\\Search\\Catalog\\");

class ProjectDataTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_store = std::make_unique<core::TSettingsStore>(m_dir.filePath(QStringLiteral("t.ini")));
        core::RegisterReportBuilder(std::make_shared<TPSTReportBuilder>());
        m_catalog = std::make_shared<TCatalogDouble>();
    }
    void TearDown() override { core::RegisterReportBuilder(nullptr); }

    std::unique_ptr<TPSTProjectData> Make(const QStringList& args, bool outlookRunning = false)
    {
        m_commandLine = core::TCommandLine();
        m_commandLine.DefineKey({QStringLiteral("pst"), QStringLiteral("Outlook data file to view"), core::TKeyKind::Value, true});
        m_commandLine.Parse(args, QDir::currentPath());
        auto data = std::make_unique<TPSTProjectData>(m_commandLine, *m_store, m_catalog, [outlookRunning] { return outlookRunning; });
        data->DataModuleCreate();
        return data;
    }

    QTemporaryDir m_dir;
    std::unique_ptr<core::TSettingsStore> m_store;
    std::shared_ptr<TCatalogDouble> m_catalog;
    core::TCommandLine m_commandLine;
};

} // namespace

TEST_F(ProjectDataTest, StatusListsSurviveARestartInOrder)
{
    {
        TPSTFileStatus removed(QStringLiteral("removed"), *m_store);
        removed.Define(QStringLiteral("/z.pst"), true);
        removed.Define(QStringLiteral("/a.pst"), true);
        removed.Define(QStringLiteral("/m.ost"), true);
        removed.Define(QStringLiteral("/a.pst"), true); // once only
        removed.Define(QStringLiteral("/z.pst"), false);
    }
    core::TSettingsStore reopened(m_dir.filePath(QStringLiteral("t.ini")));
    TPSTFileStatus removed(QStringLiteral("removed"), reopened);
    removed.Load();
    EXPECT_EQ(removed.Files(), (QStringList{QStringLiteral("/a.pst"), QStringLiteral("/m.ost")}));
    EXPECT_TRUE(removed.Has(QStringLiteral("/m.ost")));
    EXPECT_FALSE(removed.Has(QStringLiteral("/z.pst")));
}

TEST_F(ProjectDataTest, ReportBuilderMustBeOurs)
{
    class TOther : public core::IReportBuilder {
        QString Name() const override { return QStringLiteral("Other"); }
    };
    core::RegisterReportBuilder(std::make_shared<TOther>());
    TPSTProjectData data(m_commandLine, *m_store, m_catalog);
    try {
        data.DataModuleCreate();
        FAIL() << "another report builder was accepted";
    } catch (const core::ETessalyError& e) {
        EXPECT_EQ(e.Message(), QStringLiteral("Report builder must be PSTReportBuilder"));
    }
    core::RegisterReportBuilder(nullptr);
    EXPECT_THROW(data.DataModuleCreate(), core::ETessalyError);
}

TEST_F(ProjectDataTest, DefaultFile)
{
    QTemporaryDir files;
    const QString older = files.filePath(QStringLiteral("old.pst"));
    const QString newer = files.filePath(QStringLiteral("new.ost"));
    QFile(older).open(QIODevice::WriteOnly);
    QFile(newer).open(QIODevice::WriteOnly);
    m_catalog->entries[Key2010] = {older, files.filePath(QStringLiteral("gone.pst"))};
    m_catalog->entries[Key2016] = {newer};

    auto data = Make({});
    EXPECT_EQ(data->CatalogCandidates(), (QStringList{older + QStringLiteral("?2010"), newer + QStringLiteral("?2016")}));
    EXPECT_EQ(data->FindDefaultPST(), newer); // the newest Outlook's; a missing file is no candidate

    // With "pst" on the command line the catalog is not read, and the file
    // leaves the removed list.
    data->Removed().Define(QStringLiteral("/named.pst"), true);
    auto named = Make({QStringLiteral("-pst"), QStringLiteral("/named.pst")});
    m_catalog->reads = 0;
    EXPECT_EQ(named->FindDefaultPST(), QStringLiteral("/named.pst"));
    EXPECT_EQ(m_catalog->reads, 0);
    EXPECT_FALSE(named->Removed().Has(QStringLiteral("/named.pst")));

    m_catalog->entries.clear();
    EXPECT_EQ(Make({})->FindDefaultPST(), QString());
}

TEST_F(ProjectDataTest, RequestMail)
{
    auto& bus = core::TMessageBus::Instance();
    {
        auto data = Make({QStringLiteral("-pst"), TestData(QStringLiteral("pst/sample1.pst"))});
        const auto folder = bus.Request(core::Topic::RequestMail).value<std::shared_ptr<mail::IMailFolder>>();
        ASSERT_TRUE(folder);
        EXPECT_EQ(folder->Caption(), QString());
        EXPECT_GT(folder->Count(), 0);
    }
    {
        auto data = Make({QStringLiteral("-pst"), TestData(QStringLiteral("pst/sample1.pst"))}, true);
        try {
            bus.Request(core::Topic::RequestMail);
            FAIL() << "opened a file while Outlook runs";
        } catch (const EOutlookRunning& e) {
            EXPECT_EQ(e.Message(), QStringLiteral("Outlook is running. Please, close Outlook"));
            EXPECT_TRUE(core::TCrashReporter::Instance().IsIgnored(e));
        }
    }
    {
        auto data = Make({});
        try {
            bus.Request(core::Topic::RequestMail);
            FAIL();
        } catch (const core::ETessalyError& e) {
            EXPECT_EQ(e.Message(), QStringLiteral("Can not find default outlook data file"));
        }
    }
    {
        const QString bad = TestData(QStringLiteral("eml/rfc2822__example01.eml"));
        auto data = Make({QStringLiteral("-pst"), bad});
        try {
            bus.Request(core::Topic::RequestMail);
            FAIL();
        } catch (const core::ETessalyError& e) {
            EXPECT_EQ(e.Message(), QStringLiteral("Can not load outlook data file - ") + bad);
        }
    }
    EXPECT_EQ(bus.SubscriberCount(core::Topic::RequestMail), 0); // every one gone with its module
}

TEST_F(ProjectDataTest, RealProcessNamedOutlook)
{
    QTemporaryDir dir;
    const QString program = dir.filePath(QStringLiteral("OUTLOOK.EXE"));
    ASSERT_TRUE(QFile::copy(QStringLiteral("/bin/sleep"), program));
    QFile::setPermissions(program, QFileDevice::ExeOwner | QFileDevice::ReadOwner);
    EXPECT_FALSE(platform::IsProcessRunning(QStringLiteral("outlook.exe")));
    QProcess outlook;
    outlook.start(program, {QStringLiteral("30")});
    ASSERT_TRUE(outlook.waitForStarted());
    EXPECT_TRUE(platform::IsProcessRunning(QStringLiteral("outlook.exe")));

    m_commandLine = core::TCommandLine();
    m_commandLine.DefineKey({QStringLiteral("pst"), {}, core::TKeyKind::Value, true});
    m_commandLine.Parse({QStringLiteral("-pst"), TestData(QStringLiteral("pst/sample1.pst"))});
    TPSTProjectData data(m_commandLine, *m_store, m_catalog); // the real process check
    data.DataModuleCreate();
    EXPECT_TRUE(data.CheckOutlookRunning());
    EXPECT_THROW(data.RequestMail(), EOutlookRunning);
    outlook.kill();
    outlook.waitForFinished();
    EXPECT_FALSE(data.CheckOutlookRunning());

    // A name longer than the kernel keeps as the command name (15 bytes) is
    // found by the program in the command line.
    const QString longName = dir.filePath(QStringLiteral("OUTLOOK-PORTABLE.EXE"));
    ASSERT_TRUE(QFile::copy(QStringLiteral("/bin/sleep"), longName));
    QFile::setPermissions(longName, QFileDevice::ExeOwner | QFileDevice::ReadOwner);
    QProcess portable;
    portable.start(longName, {QStringLiteral("30")});
    ASSERT_TRUE(portable.waitForStarted());
    EXPECT_TRUE(platform::IsProcessRunning(QStringLiteral("outlook-portable.exe")));
    EXPECT_FALSE(platform::IsProcessRunning(QStringLiteral("outlook-portable")));
    portable.kill();
    portable.waitForFinished();
}

TEST_F(ProjectDataTest, WineCatalog)
{
    QTemporaryDir prefix;
    QDir(prefix.path()).mkpath(QStringLiteral("drive_c/Users/ann/Documents/Outlook Files"));
    QDir(prefix.path()).mkpath(QStringLiteral("dosdevices"));
    QFile::link(QStringLiteral("../drive_c"), prefix.filePath(QStringLiteral("dosdevices/c:")));
    QFile reg(prefix.filePath(QStringLiteral("user.reg")));
    ASSERT_TRUE(reg.open(QIODevice::WriteOnly));
    reg.write("WINE REGISTRY Version 2\n\n"
              "[Software\\\\Microsoft\\\\Office\\\\16.0\\\\Outlook\\\\Search\\\\Catalog] 1700000000\n"
              "#time=1da0\n"
              "\"C:\\\\Users\\\\ann\\\\Documents\\\\Outlook Files\\\\ann.pst\"=hex:01,00,00,00\n"
              "\"Q:\\\\net\\\\x.pst\"=hex:01\n\n"
              "[Software\\\\Other] 1700000000\n\"C:\\\\no.pst\"=hex:01\n");
    reg.close();
    platform::TWineOutlookCatalog catalog(prefix.path());
    const QStringList names = catalog.ValueNames(Key2016);
    ASSERT_EQ(names.size(), 2);
    EXPECT_EQ(names[0], QDir(prefix.filePath(QStringLiteral("drive_c"))).canonicalPath()
            + QStringLiteral("/Users/ann/Documents/Outlook Files/ann.pst"));
    EXPECT_EQ(names[1], prefix.filePath(QStringLiteral("drive_q/net/x.pst")));
    EXPECT_TRUE(catalog.ValueNames(Key2010).isEmpty());
    EXPECT_TRUE(platform::TWineOutlookCatalog(prefix.filePath(QStringLiteral("none"))).ValueNames(Key2016).isEmpty());
}

TEST(PSTDataStore, RowsOfAFolder)
{
    TPSTFile file(TestData(QStringLiteral("pst/enron.pst")));
    TPSTMailDataStore store;
    store.LoadFolder(test::FindFolder(file.RootFolder(), QStringLiteral("Personal")));
    ASSERT_EQ(store.RowCount(), 47);
    const auto item = store.Folder()->GetItem(3);
    EXPECT_EQ(store.UID(3), int(item->ID()));
    const auto message = store.Message(3);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->Subject(), std::dynamic_pointer_cast<TPSTMailItem>(item)->Subject());
    EXPECT_EQ(std::dynamic_pointer_cast<mail::IMailMessage3>(message)->UID(), QString::number(store.UID(3)));
    EXPECT_EQ(store.Message(47), nullptr);
    store.LoadFolder(nullptr);
    EXPECT_EQ(store.RowCount(), 0);
}
