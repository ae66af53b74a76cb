#include "pst/PffFolderTree.h"

#include "TestUtil.h"
#include "core/Exceptions.h"

#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace tessaly::pst;
using tessaly::test::TestData;

namespace {

const TPffFolderNode* Find(const TPffFolderNode& node, const QString& name)
{
    if (node.Name == name)
        return &node;
    for (const auto& child : node.Children)
        if (const auto* found = Find(child, name))
            return found;
    return nullptr;
}

} // namespace

TEST(PffFolderTree, ReadsFoldersAndCounts)
{
    const struct {
        const char* file;
        const char* format;
        int bits;
        const char* folder;
        int items;
    } cases[] = {
        {"pst/sample1.pst", "PST", 64, "Sample1", 1},
        {"pst/test_ansi.pst", "PST", 32, "Folder", 1},
        {"pst/enron.pst", "PST", 64, "Personal", 47},
        {"pst/pstextractortest@outlook.com.ost", "OST", 64, "Inbox", 10},
    };
    for (const auto& c : cases) {
        const auto tree = TPffFolderTree::Read(TestData(QLatin1String(c.file)));
        EXPECT_EQ(tree.Format, QLatin1String(c.format)) << c.file;
        EXPECT_EQ(tree.Bits, c.bits) << c.file;
        const auto* folder = Find(tree.Root, QLatin1String(c.folder));
        ASSERT_NE(folder, nullptr) << c.file;
        EXPECT_EQ(folder->ItemCount, c.items) << c.file;
    }
}

TEST(PffFolderTree, TextAndJson)
{
    const auto tree = TPffFolderTree::Read(TestData(QStringLiteral("pst/sample1.pst")));
    EXPECT_TRUE(tree.ToText().startsWith(QStringLiteral("(root) (0)\n")));
    EXPECT_TRUE(tree.ToText().contains(QStringLiteral("\n    Sample1 (1)\n"))) << tree.ToText().toStdString();

    const QJsonObject json = tree.ToJson();
    EXPECT_EQ(json[QStringLiteral("format")].toString(), QStringLiteral("PST"));
    EXPECT_EQ(json[QStringLiteral("bits")].toInt(), 64);
    const QJsonArray top = json[QStringLiteral("root")][QStringLiteral("folders")].toArray();
    EXPECT_EQ(top.size(), qsizetype(tree.Root.Children.size()));
}

TEST(PffFolderTree, DamagedOrMissingFilesAreErrors)
{
    QTemporaryDir dir;
    QFile source(TestData(QStringLiteral("pst/sample1.pst")));
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    const QByteArray whole = source.readAll();

    const struct {
        const char* name;
        QByteArray bytes;
    } cases[] = {
        {"empty.pst", QByteArray()},
        {"header-only.pst", whole.left(512)},
        {"garbage.pst", QByteArray(70000, '\x5a')},
    };
    for (const auto& c : cases) {
        const QString name = dir.filePath(QLatin1String(c.name));
        QFile out(name);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly));
        out.write(c.bytes);
        out.close();
        EXPECT_THROW(TPffFolderTree::Read(name), tessaly::core::ETessalyError) << c.name;
    }
    EXPECT_THROW(TPffFolderTree::Read(dir.filePath(QStringLiteral("missing.pst"))), tessaly::core::ETessalyError);
    EXPECT_THROW(TPffFolderTree::Read(dir.path()), tessaly::core::ETessalyError);
}

TEST(PffFolderTree, TruncatedFileNeverCrashes)
{
    QTemporaryDir dir;
    QFile source(TestData(QStringLiteral("pst/enron.pst")));
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    const QByteArray whole = source.readAll();
    for (const double share : {0.1, 0.5, 0.9}) {
        const QString name = dir.filePath(QStringLiteral("cut.pst"));
        QFile out(name);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly));
        out.write(whole.left(qsizetype(whole.size() * share)));
        out.close();
        // Either an error or whatever part of the tree could be read.
        try {
            const auto tree = TPffFolderTree::Read(name);
            EXPECT_EQ(tree.Format, QStringLiteral("PST"));
        } catch (const tessaly::core::ETessalyError& e) {
            EXPECT_FALSE(e.Message().isEmpty());
        }
    }
}
