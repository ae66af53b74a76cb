// Why a data file does not open: each reason from a file made for it, and
// the reason in the log.

#include "pst/PSTFile.h"

#include "TestUtil.h"
#include "pstfile/Structs.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <cstddef>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace tessaly;
using namespace tessaly::pst;
using tessaly::test::TestData;

namespace {

class OpenErrorTest : public ::testing::Test {
protected:
    QString Write(const QString& name, const QByteArray& bytes)
    {
        const QString path = m_dir.filePath(name);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        return path;
    }

    // sample1.pst with `bytes` written over its own at `offset`.
    QString DamagedSample(const QString& name, qsizetype offset, const QByteArray& bytes)
    {
        QFile sample(TestData(QStringLiteral("pst/sample1.pst")));
        EXPECT_TRUE(sample.open(QIODevice::ReadOnly));
        QByteArray data = sample.readAll();
        data.replace(offset, bytes.size(), bytes);
        return Write(name, data);
    }

    QTemporaryDir m_dir;
};

// Where the node index of a Unicode file is named in its header.
constexpr qsizetype NodeIndexOffset = qsizetype(offsetof(pstfile::THeaderUnicode, root)
    + offsetof(pstfile::TRootUnicode, brefNBT) + offsetof(pstfile::TBrefUnicode, ib));

QByteArray Le64(quint64 value)
{
    QByteArray bytes(8, '\0');
    for (int i = 0; i < 8; ++i)
        bytes[i] = char(value >> (8 * i));
    return bytes;
}

QStringList g_logged;

void Capture(QtMsgType, const QMessageLogContext& context, const QString& message)
{
    if (QLatin1String(context.category) == QLatin1String("tessaly.pst.open"))
        g_logged << message;
}

} // namespace

TEST_F(OpenErrorTest, EachReasonFromAFileMadeForIt)
{
    QRandomGenerator random(20240611);
    QByteArray noise(64 * 1024, '\0');
    for (char& c : noise)
        c = char(random.bounded(256));
    noise[0] = 'x'; // anything but the mark
    QDir(m_dir.path()).mkdir(QStringLiteral("folder.pst"));
    const QByteArray mark("!BDN", 4);

    struct TCase {
        const char* what;
        QString path;
        TPSTOpenError expected;
    } const cases[] = {
        {"missing", m_dir.filePath(QStringLiteral("missing.pst")), oeNotFound},
        {"folder", m_dir.filePath(QStringLiteral("folder.pst")), oeFolder},
        {"empty", Write(QStringLiteral("empty.pst"), {}), oeEmpty},
        {"random bytes", Write(QStringLiteral("noise.pst"), noise), oeNotDataFile},
        {"three bytes", Write(QStringLiteral("short.pst"), "!BD"), oeNotDataFile},
        {"the mark and little else", Write(QStringLiteral("cut.pst"), mark + QByteArray(100, '\0')), oeDamagedHeader},
        {"header after the mark overwritten",
            DamagedSample(QStringLiteral("header.pst"), 4, QByteArray(508, char(0xFF))), oeDamagedHeader},
        {"node index beyond the end",
            DamagedSample(QStringLiteral("index.pst"), NodeIndexOffset, Le64(quint64(1) << 40)), oeDamagedHeader},
        {"node index on a page that is none",
            DamagedSample(QStringLiteral("nodes.pst"), NodeIndexOffset, Le64(4096)), oeNoFolders},
        {"intact", TestData(QStringLiteral("pst/sample1.pst")), oeNone},
    };
    g_logged.clear();
    const QtMessageHandler previous = qInstallMessageHandler(Capture);
    for (const auto& c : cases) {
        const TPSTFile file(c.path);
        EXPECT_EQ(file.OpenError(), c.expected) << c.what;
        EXPECT_EQ(file.RootFolder() != nullptr, c.expected == oeNone) << c.what;
        EXPECT_EQ(file.IsOpen(), c.expected == oeNone || c.expected == oeNoFolders) << c.what;
        // One log line per failed file, naming it and the reason.
        if (c.expected == oeNone) {
            EXPECT_TRUE(g_logged.isEmpty()) << c.what << ": " << qPrintable(g_logged.join(QLatin1Char('\n')));
        } else {
            ASSERT_EQ(g_logged.size(), 1) << c.what;
            EXPECT_TRUE(g_logged.front().startsWith(QDir::toNativeSeparators(c.path))) << qPrintable(g_logged.front());
            EXPECT_TRUE(g_logged.front().contains(OpenErrorText(c.expected))) << qPrintable(g_logged.front());
        }
        g_logged.clear();
    }
    qInstallMessageHandler(previous);
}

TEST_F(OpenErrorTest, FileThatCannotBeReadSaysPermissionDenied)
{
    if (geteuid() == 0)
        GTEST_SKIP() << "running as root, which reads a file whatever its mode: no permission can be denied";
    const QString path = DamagedSample(QStringLiteral("locked.pst"), 0, {});
    ASSERT_TRUE(QFile::setPermissions(path, QFileDevice::Permissions()));
    const TPSTFile file(path);
    EXPECT_EQ(file.OpenError(), oeNoPermission);
    EXPECT_EQ(file.RootFolder(), nullptr);
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}

TEST(OpenErrorText, EveryReasonHasASentenceOfItsOwn)
{
    QStringList texts;
    for (int error = oeNotFound; error <= oeNoFolders; ++error) {
        const QString text = OpenErrorText(TPSTOpenError(error));
        EXPECT_TRUE(text.endsWith(QLatin1Char('.'))) << error << ": " << qPrintable(text);
        EXPECT_FALSE(texts.contains(text)) << qPrintable(text);
        texts << text;
    }
    EXPECT_EQ(OpenErrorText(oeNone), QString());
}
