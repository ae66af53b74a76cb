// The subject of every sample message file as other readers read it:
// Python's email package for .eml, msgreader for .msg. Where those readers
// give less than the file holds (a header they stop reading before, bytes
// they cannot decode, a code page they ignore), what we read must still be
// what the file says.

#include "MsgReaderModule.h"
#include "TestUtil.h"
#include "core/Charset.h"
#include "mail/FileMailMsg.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace tessaly;

namespace {

QString Spaced(const QString& text)
{
    return text.simplified();
}

QString OurSubject(const QString& file)
{
    const auto message = mail::TFileMailMsgRequest(file).Message();
    return message ? message->Subject() : QStringLiteral("<not read>");
}

QStringList SampleFiles(const QString& pattern)
{
    const QDir dir(test::TestData(pattern.startsWith(QLatin1String("*.eml")) ? QStringLiteral("eml") : QStringLiteral("msg")));
    QStringList files;
    for (const QString& name : dir.entryList({pattern}, QDir::Files, QDir::Name))
        files << dir.filePath(name);
    return files;
}

// For each file: the subject (None when absent) and whether Python stopped
// reading the header block early.
const char* PythonScript = R"(
import email, email.policy, json, sys
out = {}
for path in sys.argv[1:]:
    with open(path, 'rb') as f:
        m = email.message_from_binary_file(f, policy=email.policy.default)
    cut = any(type(d).__name__ == 'MissingHeaderBodySeparatorDefect' for d in m.defects)
    subject = m['subject']
    out[path] = {'subject': None if subject is None else str(subject), 'cut': cut}
print(json.dumps(out))
)";

// The Subject field as it stands in the file, for headers Python gave up on.
QString RawSubject(const QString& file)
{
    QFile in(file);
    if (!in.open(QIODevice::ReadOnly))
        return {};
    static const QRegularExpression Field(QStringLiteral("^Subject[ \\t]*:[ \\t]*(.*)$"),
        QRegularExpression::MultilineOption | QRegularExpression::CaseInsensitiveOption);
    const auto match = Field.match(QString::fromUtf8(in.read(64 * 1024)).remove(QLatin1Char('\r')));
    return match.hasMatch() ? match.captured(1) : QString();
}

} // namespace

TEST(OtherReaders, EmlSubjectsAsPythonReadsThem)
{
    const QString python = QStandardPaths::findExecutable(QStringLiteral("python3"));
    ASSERT_FALSE(python.isEmpty());
    const QStringList files = SampleFiles(QStringLiteral("*.eml"));
    ASSERT_GE(files.size(), 40);
    QProcess process;
    process.start(python, QStringList{QStringLiteral("-c"), QString::fromLatin1(PythonScript)} + files);
    ASSERT_TRUE(process.waitForFinished(60000));
    ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    const QJsonObject read = QJsonDocument::fromJson(process.readAllStandardOutput()).object();
    ASSERT_EQ(read.size(), files.size());
    int same = 0;
    for (const QString& file : files) {
        SCOPED_TRACE(file.toStdString());
        const QJsonObject python = read[file].toObject();
        const QString ours = Spaced(OurSubject(file));
        if (python[QLatin1String("cut")].toBool() && python[QLatin1String("subject")].isNull()) {
            // Python read no header past a line it did not take for one.
            EXPECT_EQ(ours, Spaced(RawSubject(file)));
            continue;
        }
        const QString theirs = Spaced(python[QLatin1String("subject")].toString());
        if (ours != theirs && theirs.contains(QChar(0xFFFD))) {
            // Bytes Python could not decode: the rest must agree, and each
            // such byte stands for one character of ours.
            QStringList pieces = theirs.split(QChar(0xFFFD));
            for (QString& piece : pieces)
                piece = QRegularExpression::escape(piece);
            EXPECT_TRUE(QRegularExpression(QLatin1Char('^') + pieces.join(QLatin1Char('.')) + QLatin1Char('$'))
                            .match(ours)
                            .hasMatch())
                << ours.toStdString() << " / " << theirs.toStdString();
            continue;
        }
        EXPECT_EQ(ours, theirs);
        same += ours == theirs;
    }
    // The exceptions above are exceptions.
    EXPECT_GE(same, files.size() * 9 / 10);
}

TEST(OtherReaders, MsgSubjectsAsMsgReaderReadsThem)
{
    const QStringList files = SampleFiles(QStringLiteral("*.msg"));
    ASSERT_GE(files.size(), 15);
    QString skip;
    const QJsonObject read = test::MsgReaderSubjects(files, skip);
    if (!skip.isEmpty())
        GTEST_SKIP() << skip.toStdString();
    ASSERT_EQ(read.size(), files.size());
    int same = 0;
    for (const QString& file : files) {
        SCOPED_TRACE(file.toStdString());
        const QString ours = Spaced(OurSubject(file));
        const QJsonObject theirRead = read[file].toObject();
        ASSERT_FALSE(theirRead.contains(QLatin1String("error"))) << "msgreader could not read the file";
        // msgreader keeps the terminating NUL of some strings.
        QString theirs = theirRead[QLatin1String("subject")].toString();
        while (theirs.endsWith(QChar(0)))
            theirs.chop(1);
        theirs = Spaced(theirs);
        if (ours == theirs) {
            ++same;
            continue;
        }
        // msgreader takes 8-bit strings as Latin-1 whatever the message's
        // code page: the same bytes must read as ours in a Windows code page.
        bool latin1 = true;
        for (const QChar c : theirs)
            latin1 = latin1 && c.unicode() <= 0xFF;
        ASSERT_TRUE(latin1) << ours.toStdString() << " / " << theirs.toStdString();
        const QByteArray bytes = theirs.toLatin1();
        bool decoded = false;
        for (const int codePage : {874, 932, 936, 949, 950, 1250, 1251, 1252, 1253, 1254, 1255, 1256, 1257, 1258})
            decoded = decoded || core::DecodeCodePage(bytes, codePage) == ours;
        EXPECT_TRUE(decoded) << ours.toStdString() << " / " << theirs.toStdString();
    }
    EXPECT_GE(same, files.size() * 9 / 10);
}
