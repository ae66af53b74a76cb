// Damaged copies of every sample .msg and .eml: reading every field of
// what comes out never crashes (the test suite also runs under ASan).

#include "mail/FileMailMsg.h"
#include "mail/OutlookMessage.h"

#include "../../fuzz/message_walk.h"
#include "MsgBuilder.h"
#include "TestUtil.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <random>

using namespace tessaly::mail;
using tessaly::test::BuildCompoundFile;
using tessaly::test::BuildMsg;
using tessaly::test::TestData;

namespace {

// Reads what the bytes give; false when they were refused.
bool ReadEverything(const QByteArray& bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    try {
        TFileMailMsgRequest request(buffer);
        const auto message = request.Message();
        if (!message)
            return false;
        WalkMessage(*message);
        return true;
    } catch (const tessaly::core::ETessalyError&) {
        return false;
    }
}

} // namespace

TEST(DamagedMessages, TruncatedAndBitFlippedCopies)
{
    std::mt19937 random(1122);
    int samples = 0;
    for (const char* folder : {"msg", "eml"}) {
        for (const QString& name : QDir(TestData(QLatin1String(folder))).entryList(QDir::Files)) {
            QFile file(TestData(QLatin1String(folder) + QLatin1Char('/') + name));
            ASSERT_TRUE(file.open(QIODevice::ReadOnly));
            const QByteArray whole = file.readAll();
            SCOPED_TRACE(name.toStdString());
            EXPECT_TRUE(ReadEverything(whole));
            for (const double share : {0.1, 0.5, 0.9})
                ReadEverything(whole.left(qsizetype(whole.size() * share)));
            for (int round = 0; round < 3; ++round) {
                QByteArray damaged = whole;
                std::uniform_int_distribution<qsizetype> offset(0, damaged.size() - 1);
                for (int flips = 0; flips < 20; ++flips)
                    damaged[offset(random)] ^= char(1 << (random() % 8));
                ReadEverything(damaged);
            }
            ++samples;
        }
    }
    EXPECT_EQ(samples, 76);
}

namespace {

// What a message file gives: a message with something in it, or the error.
struct TOutcome {
    bool read = false;
    bool empty = false;
    QString error;
};

TOutcome ReadFile(const QString& path)
{
    TOutcome outcome;
    try {
        const auto message = TFileMailMsgRequest(path).Message();
        outcome.read = message != nullptr;
        if (message) {
            const auto attaches = message->Attaches();
            bool recipients = false;
            for (auto kind : {mrtTo, mrtCC, mrtBCC})
                if (const auto list = message->Recipients(kind); list && list->Count() > 0)
                    recipients = true;
            const auto sender = message->Sender();
            outcome.empty = message->Subject().isEmpty() && message->Body(mbtText).trimmed().isEmpty()
                && message->Body(mbtHTML).trimmed().isEmpty() && message->Body(mbtRTF).isEmpty()
                && (!sender || sender->Caption().isEmpty()) && !recipients && (!attaches || attaches->Count() == 0)
                && !dynamic_cast<const IMailContact*>(message.get());
        }
    } catch (const EInvalidMailFormat& e) {
        outcome.error = e.Message();
    }
    return outcome;
}

QString WriteTemp(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(bytes);
    return path;
}

} // namespace

// A damaged .msg is read with what it still holds or refused as damaged,
// never taken for an (empty) internet message.
TEST(DamagedMessages, DamagedOutlookFilesAreReadOrRefusedNeverEmpty)
{
    QTemporaryDir dir;
    std::mt19937 random(2026);
    int copies = 0, refused = 0;
    for (const QString& name : QDir(TestData(QStringLiteral("msg"))).entryList(QDir::Files)) {
        QFile file(TestData(QStringLiteral("msg/") + name));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const QByteArray whole = file.readAll();
        SCOPED_TRACE(name.toStdString());
        std::vector<QByteArray> damaged;
        // One flipped bit, anywhere; the header and the first sectors (where
        // the allocation table and directory usually are) more often.
        std::uniform_int_distribution<qsizetype> anywhere(0, whole.size() - 1);
        std::uniform_int_distribution<qsizetype> early(0, std::min<qsizetype>(whole.size(), 4096) - 1);
        for (int i = 0; i < 24; ++i) {
            QByteArray copy = whole;
            copy[i % 2 ? anywhere(random) : early(random)] ^= char(1 << (random() % 8));
            damaged.push_back(copy);
        }
        for (const double share : {0.02, 0.3, 0.6, 0.95})
            damaged.push_back(whole.left(qsizetype(whole.size() * share)));
        for (const QByteArray& copy : damaged) {
            const TOutcome outcome = ReadFile(WriteTemp(dir, QStringLiteral("copy.msg"), copy));
            ++copies;
            if (!outcome.read) {
                ++refused;
                EXPECT_TRUE(outcome.error.contains(QStringLiteral("damaged message file"))
                    || outcome.error.contains(QStringLiteral("not a message file")))
                    << outcome.error.toStdString();
            } else {
                EXPECT_FALSE(outcome.empty) << "a damaged copy read as an empty message";
            }
        }
    }
    EXPECT_EQ(copies, 24 * 28);
    EXPECT_GT(refused, 0); // truncated copies at least
}

TEST(DamagedMessages, FilesThatAreNoMessagesAreRefusedWithTheReason)
{
    QTemporaryDir dir;
    QFile sent(TestData(QStringLiteral("msg/sent.msg")));
    ASSERT_TRUE(sent.open(QIODevice::ReadOnly));
    const QByteArray whole = sent.readAll();
    const struct {
        const char* name;
        QByteArray bytes;
        const char* error; // empty: it reads
    } cases[] = {
        {"empty.msg", QByteArray(), "not a message file"},
        {"empty.eml", QByteArray(), "not a message file"},
        {"nothing.msg", BuildCompoundFile({}), "not a message file"},
        {"document.msg", BuildCompoundFile({{QStringLiteral("WordDocument"), QByteArray(600, 'w')}}), "not a message file"},
        {"cut.msg", whole.left(5000), "damaged message file"},
        {"cut at a sector.msg", whole.left(4096 + 512), "damaged message file"},
        {"signature.msg", QByteArray::fromHex("D0CF11E0A1B11AE1") + QByteArray(700, '\0'), "damaged message file"},
        {"binary.eml", QByteArray("\x7F" "ELF\x02\x01\x01\0\0\0", 10) + QByteArray(300, '\x01'), "not a message file"},
        {"prose.eml", "Dear Bob,\nthis is no message file at all.\n", "not a message file"},
        {"minimal.eml", "Subject: hello\r\n\r\nbody\r\n", ""},
        {"mailbox.eml", "From ann@example.com Mon Jan  1 00:00:00 2024\nSubject: hi\n\nbody\n", ""},
        {"saved.eml", "Microsoft Mail Internet Headers Version 2.0\r\nSubject: saved\r\n\r\nbody\r\n", ""},
        {"internet.msg", "From: ann@example.com\r\nSubject: named .msg\r\n\r\nbody\r\n", ""},
        {"small.msg", BuildMsg({{{0x0037, QStringLiteral("built")}}, {}}), ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = WriteTemp(dir, QLatin1String(c.name), c.bytes);
        const TOutcome outcome = ReadFile(path);
        if (*c.error) {
            EXPECT_FALSE(outcome.read);
            EXPECT_TRUE(outcome.error.contains(QLatin1String(c.error))) << outcome.error.toStdString();
            EXPECT_TRUE(outcome.error.startsWith(path)) << "the error names the file";
        } else {
            EXPECT_TRUE(outcome.read) << outcome.error.toStdString();
            EXPECT_FALSE(outcome.empty);
        }
    }
}
