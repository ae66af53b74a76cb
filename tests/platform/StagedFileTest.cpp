// Outputs linked in under their names without replacing anything.

#include "platform/StagedFile.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace tessaly::platform;

namespace {

QByteArray Read(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

void Write(const QString& path, const QByteArray& data)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(data);
}

QStringList Temporaries(const QString& folder)
{
    QStringList found;
    for (const QString& name : QDir(folder).entryList(QDir::Files | QDir::Hidden))
        if (TStagedFile::IsTemporaryName(name))
            found << name;
    return found;
}

QString Numbered(const QString& taken)
{
    // "a.eml" -> "a-1.eml" -> "a-2.eml"...
    const qsizetype slash = taken.lastIndexOf(QLatin1Char('/'));
    const qsizetype dash = taken.indexOf(QLatin1Char('-'), slash);
    const qsizetype dot = taken.lastIndexOf(QLatin1Char('.'));
    if (dash < 0)
        return taken.left(dot) + QStringLiteral("-1") + taken.mid(dot);
    return taken.left(dash + 1) + QString::number(taken.mid(dash + 1, dot - dash - 1).toInt() + 1) + taken.mid(dot);
}

} // namespace

// Written without a name (where the system can) and under a temporary name.
TEST(StagedFile, LinksInWithoutReplacingAndLeavesNoTemporary)
{
    for (const bool named : {false, true}) {
    SCOPED_TRACE(named ? "named" : "unnamed");
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString target = dir.filePath(QStringLiteral("a.eml"));

    // A free name is taken as it is; nothing shows under it before the commit.
    QString name = target;
    {
        TStagedFile file(target, false, named);
        ASSERT_TRUE(file.IsOpen()) << file.ErrorString().toStdString();
        file.Device().write("first");
        EXPECT_FALSE(QFile::exists(target));
        // An unnamed file shows nothing in the folder at all.
        EXPECT_EQ(Temporaries(dir.path()).size(), named ? 1 : 0);
        EXPECT_EQ(file.TemporaryPath().isEmpty(), !named);
        EXPECT_EQ(file.Commit(name, Numbered), lrLinked);
    }
    EXPECT_EQ(name, target);
    EXPECT_EQ(Read(target), QByteArray("first"));

    // Taken names move on to the next; the files there keep their bytes.
    Write(dir.filePath(QStringLiteral("a-1.eml")), "other");
    name = target;
    {
        TStagedFile file(target, false, named);
        file.Device().write("second");
        EXPECT_EQ(file.Commit(name, Numbered), lrLinked);
    }
    EXPECT_EQ(name, dir.filePath(QStringLiteral("a-2.eml")));
    EXPECT_EQ(Read(target), QByteArray("first"));
    EXPECT_EQ(Read(dir.filePath(QStringLiteral("a-1.eml"))), QByteArray("other"));
    EXPECT_EQ(Read(name), QByteArray("second"));

    // No next name: nothing is written, the file there stays.
    name = target;
    {
        TStagedFile file(target, false, named);
        file.Device().write("third");
        EXPECT_EQ(file.Commit(name, [](const QString&) { return QString(); }), lrTaken);
    }
    EXPECT_EQ(Read(target), QByteArray("first"));

    // Replacing is asked for by name.
    name = target;
    {
        TStagedFile file(target, false, named);
        file.Device().write("fourth");
        EXPECT_EQ(file.Commit(name, Numbered, true), lrLinked);
    }
    EXPECT_EQ(Read(target), QByteArray("fourth"));

    // A file dropped before its commit goes with its temporary.
    {
        TStagedFile file(dir.filePath(QStringLiteral("never.eml")), false, named);
        file.Device().write("x");
    }
    EXPECT_FALSE(QFile::exists(dir.filePath(QStringLiteral("never.eml"))));
    EXPECT_TRUE(Temporaries(dir.path()).isEmpty());
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 3); // a.eml, a-1.eml, a-2.eml

    // A folder that is not there: an error that names it.
    TStagedFile missing(dir.filePath(QStringLiteral("no/such/folder/x.eml")), false, named);
    EXPECT_FALSE(missing.IsOpen());
    EXPECT_TRUE(missing.ErrorString().contains(QStringLiteral("no/such/folder")));
    }
}

TEST(StagedFile, StaleTemporariesGoButALivingWritersStay)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    // What a crashed run left: a temporary nobody holds.
    const QString stale = dir.filePath(QStringLiteral(".tessaly-0badc0de.part"));
    Write(stale, "half a message");
    // Look-alikes that are not ours stay.
    const QString other = dir.filePath(QStringLiteral(".tessaly-notes.part"));
    Write(other, "keep");
    TStagedFile living(dir.filePath(QStringLiteral("b.eml")), false, true);
    ASSERT_TRUE(living.IsOpen());
    living.Device().write("in progress");

    EXPECT_EQ(TStagedFile::RemoveStale(dir.path()), 1);
    EXPECT_FALSE(QFile::exists(stale));
    EXPECT_TRUE(QFile::exists(other));
    EXPECT_TRUE(QFile::exists(living.TemporaryPath()));
    QString name = dir.filePath(QStringLiteral("b.eml"));
    EXPECT_EQ(living.Commit(name, Numbered), lrLinked);
    EXPECT_EQ(Read(name), QByteArray("in progress"));
}

TEST(StagedFile, PrivateFolderAndFiles)
{
    const QString folder = PrivateTempFolder(QStringLiteral("tessaly-test"));
    ASSERT_FALSE(folder.isEmpty());
    struct stat info {};
    ASSERT_EQ(stat(QFile::encodeName(folder).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    // Opened to others meanwhile, it is closed again.
    chmod(QFile::encodeName(folder).constData(), 0755);
    EXPECT_EQ(PrivateTempFolder(QStringLiteral("tessaly-test")), folder);
    ASSERT_EQ(stat(QFile::encodeName(folder).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);

    for (const bool named : {false, true}) {
        TStagedFile file(QDir(folder).filePath(QStringLiteral("dump.eml")), true, named);
        ASSERT_TRUE(file.IsOpen());
        ASSERT_EQ(fstat(file.Device().handle(), &info), 0);
        EXPECT_EQ(info.st_mode & 0077, 0u);
    }
    QDir(folder).removeRecursively();
}
