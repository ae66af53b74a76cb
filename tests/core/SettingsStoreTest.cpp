#include "core/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace tessaly::core;

namespace {

void WriteFile(const QString& name, const QByteArray& bytes)
{
    QFile file(name);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

} // namespace

TEST(SettingsStore, RepeatedEntriesComeBackInWrittenOrder)
{
    QTemporaryDir dir;
    const QString fileName = dir.filePath(QStringLiteral("Tessaly.ini"));
    const QStringList entries = {QStringLiteral("/z/last.pst"), QStringLiteral("/a/first.pst"),
        QStringLiteral("/m/Ünïcode name.ost"), QStringLiteral("C:\\Mail\\old.pst"), QStringLiteral("/a/first.pst")};
    {
        TSettingsStore store(fileName);
        store.WriteEntries(QStringLiteral("disabled"), QStringLiteral("file"), entries);
    }
    TSettingsStore store(fileName);
    EXPECT_FALSE(store.StartedFromDefaults());
    EXPECT_EQ(store.ReadEntries(QStringLiteral("disabled"), QStringLiteral("file")), entries);

    // A shorter list replaces the longer one completely.
    store.WriteEntries(QStringLiteral("disabled"), QStringLiteral("file"), {QStringLiteral("/only.pst")});
    EXPECT_EQ(store.ReadEntries(QStringLiteral("disabled"), QStringLiteral("file")), QStringList{QStringLiteral("/only.pst")});
    store.WriteEntries(QStringLiteral("disabled"), QStringLiteral("file"), {});
    EXPECT_TRUE(store.ReadEntries(QStringLiteral("disabled"), QStringLiteral("file")).isEmpty());
    EXPECT_TRUE(store.ReadEntries(QStringLiteral("removed"), QStringLiteral("file")).isEmpty());
}

TEST(SettingsStore, SectionsWithBackslashesAndMultiLineValues)
{
    QTemporaryDir dir;
    const QString fileName = dir.filePath(QStringLiteral("Tessaly.ini"));
    const QString files = QStringLiteral("/mail/a.pst\n/mail/b.pst?2\n");
    {
        TSettingsStore store(fileName);
        EXPECT_FALSE(store.SectionExists(QStringLiteral("Desktop\\PST")));
        store.WriteString(QStringLiteral("Desktop\\PST"), QStringLiteral("files"), files);
        store.WriteInteger(QStringLiteral("Settings"), QStringLiteral("LastProcessedNumber"), 42);
        store.WriteBool(QStringLiteral("Settings"), QStringLiteral("Flag"), true);
    }
    TSettingsStore store(fileName);
    EXPECT_TRUE(store.SectionExists(QStringLiteral("Desktop\\PST")));
    EXPECT_FALSE(store.SectionExists(QStringLiteral("Desktop")));
    EXPECT_EQ(store.ReadString(QStringLiteral("Desktop\\PST"), QStringLiteral("files")), files);
    EXPECT_EQ(store.ReadInteger(QStringLiteral("Settings"), QStringLiteral("LastProcessedNumber"), 1), 42);
    EXPECT_TRUE(store.ReadBool(QStringLiteral("Settings"), QStringLiteral("Flag"), false));
    EXPECT_TRUE(store.ValueExists(QStringLiteral("Settings"), QStringLiteral("Flag")));

    store.EraseSection(QStringLiteral("Desktop\\PST"));
    EXPECT_FALSE(store.SectionExists(QStringLiteral("Desktop\\PST")));
    EXPECT_TRUE(store.SectionExists(QStringLiteral("Settings")));
}

TEST(SettingsStore, DefaultsForMissingAndMalformedValues)
{
    QTemporaryDir dir;
    TSettingsStore store(dir.filePath(QStringLiteral("Tessaly.ini")));
    EXPECT_EQ(store.ReadInteger(QStringLiteral("Settings"), QStringLiteral("Missing"), 7), 7);
    EXPECT_EQ(store.ReadString(QStringLiteral("Settings"), QStringLiteral("Missing"), QStringLiteral("x")), QStringLiteral("x"));
    store.WriteString(QStringLiteral("Settings"), QStringLiteral("Number"), QStringLiteral("twelve"));
    EXPECT_EQ(store.ReadInteger(QStringLiteral("Settings"), QStringLiteral("Number"), 3), 3);
    EXPECT_TRUE(store.ReadBool(QStringLiteral("Settings"), QStringLiteral("Number"), true));
    EXPECT_FALSE(store.ReadBool(QStringLiteral("Settings"), QStringLiteral("Number"), false));
}

TEST(SettingsStore, CorruptFileGivesDefaultsAndIsKept)
{
    struct Case {
        const char* what;
        QByteArray bytes;
    };
    const Case cases[] = {
        {"binary", QByteArray("[disabled]\nfile\\1\\value=/a.pst\n\0\0\x01\x02garbage", 40)},
        {"not UTF-8", QByteArray("[Settings]\nLastProcessedNumber=5\nName=\xff\xfe\xc3\x28\n")},
    };
    for (const auto& c : cases) {
        QTemporaryDir dir;
        const QString fileName = dir.filePath(QStringLiteral("Tessaly.ini"));
        WriteFile(fileName, c.bytes);
        TSettingsStore store(fileName);
        EXPECT_TRUE(store.StartedFromDefaults()) << c.what;
        EXPECT_TRUE(store.ReadEntries(QStringLiteral("disabled"), QStringLiteral("file")).isEmpty()) << c.what;
        EXPECT_EQ(store.ReadInteger(QStringLiteral("Settings"), QStringLiteral("LastProcessedNumber"), 1), 1) << c.what;

        // The damaged file is kept as it was, and the store works on.
        QFile kept(fileName + QStringLiteral(".corrupt"));
        ASSERT_TRUE(kept.open(QIODevice::ReadOnly)) << c.what;
        EXPECT_EQ(kept.readAll(), c.bytes) << c.what;
        store.WriteInteger(QStringLiteral("Settings"), QStringLiteral("LastProcessedNumber"), 9);
        store.Sync();
        EXPECT_EQ(TSettingsStore(fileName).ReadInteger(QStringLiteral("Settings"), QStringLiteral("LastProcessedNumber"), 1), 9)
            << c.what;
    }
}

TEST(SettingsStore, UnreadableFileGivesDefaultsAndIsLeftAlone)
{
    QTemporaryDir dir;
    const QString fileName = dir.filePath(QStringLiteral("Tessaly.ini"));
    ASSERT_TRUE(QDir().mkpath(fileName)); // a folder where the file should be
    TSettingsStore store(fileName);
    EXPECT_TRUE(store.StartedFromDefaults());
    EXPECT_EQ(store.ReadInteger(QStringLiteral("Settings"), QStringLiteral("LastProcessedNumber"), 1), 1);
    store.WriteInteger(QStringLiteral("Settings"), QStringLiteral("LastProcessedNumber"), 3);
    store.Sync();
    EXPECT_TRUE(QFileInfo(fileName).isDir());
    EXPECT_FALSE(QFile::exists(fileName + QStringLiteral(".corrupt")));
}

TEST(SettingsStore, DefaultFileIsPerUserOfHalvorneTessaly)
{
    EXPECT_TRUE(TSettingsStore::DefaultFileName().endsWith(QStringLiteral("/Halvorne/Tessaly.ini")))
        << TSettingsStore::DefaultFileName().toStdString();
}

TEST(SettingsStore, GlobalStoreCanBeReplaced)
{
    QTemporaryDir dir;
    const QString fileName = dir.filePath(QStringLiteral("Global.ini"));
    TSettingsStore::SetGlobal(std::make_unique<TSettingsStore>(fileName));
    TSettingsStore::Global().WriteString(QStringLiteral("S"), QStringLiteral("v"), QStringLiteral("x"));
    EXPECT_EQ(TSettingsStore::Global().FileName(), fileName);
    TSettingsStore::SetGlobal(nullptr);
    EXPECT_EQ(TSettingsStore(fileName).ReadString(QStringLiteral("S"), QStringLiteral("v")), QStringLiteral("x"));
}
