// Damaged copies of every sample data file: opening, walking every folder
// and reading every field of every item must never crash, and what is still
// readable is read.

#include "pst/PSTFile.h"
#include "pst/PSTReport.h"

#include "TestUtil.h"
#include "core/Exceptions.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <random>

using namespace tessaly::pst;
using tessaly::test::TestData;

namespace {

QByteArray ReadAll(const QString& fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void Write(const QString& fileName, const QByteArray& bytes)
{
    QFile file(fileName);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

int CountFolders(const QJsonObject& folder)
{
    int count = 1;
    for (const auto& child : folder[QStringLiteral("folders")].toArray())
        count += CountFolders(child.toObject());
    return count;
}

// Reads everything there is to read; a damaged file may instead be refused.
bool ReadEverything(const QString& fileName, int& folders)
{
    try {
        const QJsonObject report = ReportFile(fileName, TReportOptions{true});
        folders = CountFolders(report[QStringLiteral("root")].toObject());
        return true;
    } catch (const tessaly::core::ETessalyError&) {
        return false;
    }
}

QStringList SampleFiles()
{
    QStringList files;
    for (const auto& name : QDir(TestData(QStringLiteral("pst"))).entryList(QDir::Files, QDir::Name))
        files << TestData(QStringLiteral("pst/") + name);
    return files;
}

} // namespace

TEST(DamagedFiles, TruncatedCopies)
{
    QTemporaryDir dir;
    for (const QString& sample : SampleFiles()) {
        const QByteArray whole = ReadAll(sample);
        int intactFolders = 0;
        ASSERT_TRUE(ReadEverything(sample, intactFolders)) << sample.toStdString();
        for (const double share : {0.02, 0.3, 0.6, 0.97}) {
            SCOPED_TRACE(sample.toStdString() + " cut at " + std::to_string(share));
            const QString copy = dir.filePath(QStringLiteral("cut.pst"));
            Write(copy, whole.left(qsizetype(whole.size() * share)));
            int folders = 0;
            ReadEverything(copy, folders);
            EXPECT_LE(folders, intactFolders);
        }
    }
}

// Copies whose folder structures lie before the cut give the whole tree.
TEST(DamagedFiles, WhatLiesBeforeTheCutIsRead)
{
    QTemporaryDir dir;
    const struct {
        const char* file;
        double share;
        int folders;
    } cases[] = {
        {"pst/pstextractortest@outlook.com.ost", 0.3, 17},
        {"pst/pstextractortest@outlook.com.ost", 0.97, 17},
        {"pst/sample1.pst", 0.6, 6},
        {"pst/sample1.pst", 0.97, 6},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.file) + " cut at " + std::to_string(c.share));
        const QByteArray whole = ReadAll(TestData(QLatin1String(c.file)));
        const QString copy = dir.filePath(QStringLiteral("cut.pst"));
        Write(copy, whole.left(qsizetype(whole.size() * c.share)));
        int folders = 0;
        ASSERT_TRUE(ReadEverything(copy, folders));
        EXPECT_EQ(folders, c.folders);
    }
}

TEST(DamagedFiles, BitFlippedCopies)
{
    QTemporaryDir dir;
    std::mt19937 random(20261122); // fixed: the same copies every run
    for (const QString& sample : SampleFiles()) {
        const QByteArray whole = ReadAll(sample);
        for (int round = 0; round < 3; ++round) {
            QByteArray damaged = whole;
            // Flip bits past the header, where the trees and tables live.
            std::uniform_int_distribution<qsizetype> offset(512, damaged.size() - 1);
            for (int flips = 0; flips < 200; ++flips)
                damaged[offset(random)] ^= char(1 << (random() % 8));
            SCOPED_TRACE(sample.toStdString() + " round " + std::to_string(round));
            const QString copy = dir.filePath(QStringLiteral("flipped.pst"));
            Write(copy, damaged);
            int folders = 0;
            if (ReadEverything(copy, folders)) {
                EXPECT_GE(folders, 1);
            }
        }
    }
}
