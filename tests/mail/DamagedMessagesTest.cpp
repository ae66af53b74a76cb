// Damaged copies of every sample .msg and .eml: reading every field of
// what comes out never crashes (the test suite also runs under ASan).

#include "mail/FileMailMsg.h"
#include "mail/OutlookMessage.h"

#include "../../fuzz/message_walk.h"
#include "TestUtil.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <gtest/gtest.h>
#include <random>

using namespace tessaly::mail;
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

// A .msg cut short is no compound file any more and is read as MIME instead.
TEST(DamagedMessages, CutCompoundFileIsTriedAsInternetMessage)
{
    QFile file(TestData(QStringLiteral("msg/sent.msg")));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray whole = file.readAll();
    EXPECT_FALSE(TOutlookMessage::IsStorage(whole.left(400)));
    EXPECT_TRUE(ReadEverything(whole.left(400))); // then it is tried as an internet message
}
