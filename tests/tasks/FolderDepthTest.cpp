// Folders nested without end: every walk of the tree stops at the depth
// limit, without recursion, and says that folders were left out.

#include "pst/PSTFile.h"
#include "pst/PSTFolder.h"
#include "pst/PSTReport.h"
#include "pstfile/PSTWriter.h"
#include "tasks/MailEMLTask.h"
#include "tasks/MailExportSource.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonArray>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace tessaly;

namespace {

// A file whose folders nest `depth` levels below the top of the store, and
// whose deepest folder holds a message.
QString WriteNested(const QTemporaryDir& dir, int depth)
{
    const QString path = dir.filePath(QStringLiteral("deep.pst"));
    pstfile::TPSTWriter writer(path, QStringLiteral("Deep"));
    uint32_t folder = writer.SpecialFolder(pstfile::psfTopOfStore);
    for (int level = 1; level <= depth; ++level)
        folder = writer.AddFolder(folder, QStringLiteral("level %1").arg(level));
    pstfile::TPSTMessage message;
    message.SetString(pstfile::pid::MessageClass, QStringLiteral("IPM.Note"));
    message.SetString(pstfile::pid::Subject, QStringLiteral("at the bottom"));
    writer.AddMessage(folder, message);
    writer.Finish();
    return path;
}

// How many levels of folders lie below this one, at the most.
int NestingOf(const QJsonObject& top)
{
    int deepest = 0;
    std::vector<std::pair<QJsonObject, int>> pending{{top, 0}};
    while (!pending.empty()) {
        const auto [folder, level] = pending.back();
        pending.pop_back();
        deepest = std::max(deepest, level);
        for (const auto& child : folder[QStringLiteral("folders")].toArray())
            pending.emplace_back(child.toObject(), level + 1);
    }
    return deepest;
}

} // namespace

TEST(FolderDepth, TenThousandLevelsAreWalkedToTheLimit)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = WriteNested(dir, 10000);

    pst::TPSTFile file(path);
    ASSERT_TRUE(file.IsOpen());
    file.ExpandAll();
    EXPECT_TRUE(file.FoldersLeftOut());

    // The report: as deep as the limit lets it go, and it says so.
    const QJsonObject report = pst::ReportFile(file, {});
    // The root, the top of the store, then the levels below it.
    EXPECT_EQ(NestingOf(report[QStringLiteral("root")].toObject()), pst::MaxFolderDepth);
    EXPECT_TRUE(report[QStringLiteral("skippedFolders")].toBool());
    EXPECT_TRUE(pst::ReportText(report).contains(pst::FoldersLeftOutText()));
    // Written as it is walked, the JSON is the document's to the byte.
    QByteArray streamed;
    pst::WriteReportJson(file, {}, 0, [&](const QByteArray& text) { streamed += text; });
    EXPECT_EQ(streamed + "\n", QJsonDocument(report).toJson(QJsonDocument::Indented));

    // An export of the whole file: the folders it reaches, the message below
    // the limit not among them, and a line in the log.
    tasks::TMailProperties properties;
    properties.Destination = dir.filePath(QStringLiteral("out"));
    tasks::TMailEMLTask task(properties);
    auto shared = std::make_shared<pst::TPSTFile>(path);
    tasks::AddFolderEntries(task, shared, shared->RootFolder(), {}, true);
    EXPECT_TRUE(task.Entries().empty());
    EXPECT_TRUE(task.Log().contains(pst::FoldersLeftOutText()));

    // The path of the deepest folder reached, from its parents.
    pst::TPSTFolder* deepest = shared->RootFolder()->GetFolder(0); // the top of the store
    for (bool down = true; down;) {
        down = false;
        for (int i = 0; i < deepest->FolderCount() && !down; ++i)
            if (deepest->GetFolder(i)->Name().startsWith(QLatin1String("level "))) {
                deepest = deepest->GetFolder(i);
                down = true;
            }
    }
    EXPECT_EQ(deepest->Depth(), pst::MaxFolderDepth);
    const QStringList names = tasks::FolderNames(deepest);
    ASSERT_EQ(names.size(), pst::MaxFolderDepth);
    EXPECT_EQ(names.last(), QStringLiteral("level %1").arg(pst::MaxFolderDepth - 1));
}

TEST(FolderDepth, ATreeWithinTheLimitIsWalkedWhole)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = WriteNested(dir, 40);
    auto file = std::make_shared<pst::TPSTFile>(path);
    ASSERT_TRUE(file->IsOpen());
    const QJsonObject report = pst::ReportFile(*file, {});
    EXPECT_EQ(NestingOf(report[QStringLiteral("root")].toObject()), 41);
    EXPECT_FALSE(report.contains(QStringLiteral("skippedFolders")));

    tasks::TMailProperties properties;
    tasks::TMailEMLTask task(properties);
    tasks::AddFolderEntries(task, file, file->RootFolder(), {}, true);
    ASSERT_EQ(task.Entries().size(), 1u);
    EXPECT_EQ(task.Entries()[0].Folders.size(), 41);
    EXPECT_EQ(task.Entries()[0].Folders.last(), QStringLiteral("level 40"));
    EXPECT_TRUE(task.Log().isEmpty());
}
