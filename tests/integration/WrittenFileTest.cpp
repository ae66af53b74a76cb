// A data file from make-pst, read by three independent readers: our viewer,
// libpff's pffinfo and pffexport, and libpst's readpst. Each must see the
// same folders, items, subjects, senders, recipients, attachments and bodies.

#include "TestUtil.h"
#include "integration/RunUtil.h"

#include <QDir>
#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>

namespace {

struct TItem {
    QString subject, sender;
    QStringList recipients;                 // display names
    QList<QPair<QString, qint64>> attaches; // name (empty when nameless), bytes
    qint64 textLength = -1;
};
// Folder path below the top folder -> its items by subject.
using TFolders = QMap<QString, QMap<QString, TItem>>;

QString ReadText(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

void FromInspectFolder(const QJsonObject& folder, const QString& path, TFolders& out)
{
    if (folder[QStringLiteral("items")].toInt() > 0) {
        QMap<QString, TItem>& items = out[path];
        for (const auto& value : folder[QStringLiteral("messages")].toArray()) {
            const QJsonObject m = value.toObject();
            TItem item;
            item.subject = m[QStringLiteral("subject")].toString();
            item.sender = m[QStringLiteral("sender")].toString().section(QStringLiteral(" <"), 0, 0);
            for (const char* kind : {"to", "cc", "bcc"})
                for (const QString& name : m[QLatin1String(kind)].toString().split(QLatin1Char(','), Qt::SkipEmptyParts))
                    item.recipients << name;
            for (const auto& a : m[QStringLiteral("attachments")].toArray()) {
                const QString name = a[QStringLiteral("name")].toString();
                item.attaches.append({name.startsWith(QLatin1String("attach ")) ? QString() : name,
                    a[QStringLiteral("content")].toInteger()});
            }
            item.textLength = m[QStringLiteral("bodies")][QStringLiteral("text")].toInteger(-1);
            items[item.subject] = item;
        }
    }
    for (const auto& child : folder[QStringLiteral("folders")].toArray()) {
        const QJsonObject sub = child.toObject();
        const QString name = sub[QStringLiteral("name")].toString();
        // The top folder of the store is where paths begin.
        const bool top = path.isNull() && name.startsWith(QLatin1String("Top of "));
        FromInspectFolder(sub, top ? QString() : path.isNull() ? name : path + QLatin1Char('/') + name, out);
    }
}

QString DecodeWords(QString text)
{
    static const QRegularExpression Word(QStringLiteral("=\\?([^?]+)\\?([BbQq])\\?([^?]*)\\?=\\s*"));
    QString out;
    qsizetype at = 0;
    for (auto it = Word.globalMatch(text); it.hasNext();) {
        const auto m = it.next();
        out += text.mid(at, m.capturedStart() - at);
        QByteArray data = m.captured(3).toLatin1();
        if (m.captured(2).compare(QLatin1String("B"), Qt::CaseInsensitive) == 0)
            data = QByteArray::fromBase64(data);
        else
            data = QByteArray::fromPercentEncoding(data.replace('_', ' '), '=');
        out += QString::fromUtf8(data);
        at = m.capturedEnd();
    }
    return out + text.mid(at);
}

// Lines "Key:<tabs>Value" of a pffexport text file.
QMap<QString, QStringList> KeyValues(const QString& text)
{
    QMap<QString, QStringList> values;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        const qsizetype colon = line.indexOf(QLatin1Char(':'));
        if (colon > 0)
            values[line.left(colon).trimmed()] << line.mid(colon + 1).trimmed();
    }
    return values;
}

QString TopLevelRemoved(const QString& relative)
{
    return relative.section(QLatin1Char('/'), 1);
}

class WrittenFile : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const char* tool : {"pffinfo", "pffexport", "readpst"})
            if (QStandardPaths::findExecutable(QLatin1String(tool)).isEmpty())
                GTEST_SKIP() << tool << " is not installed: install the packages pff-tools and pst-utils "
                                        "(scripts/install-deps does) to compare with libpff's and libpst's readers";
        ASSERT_TRUE(m_dir.isValid());
        m_file = m_dir.filePath(QStringLiteral("synthetic.pst"));
        const TRun made = RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/make-pst"),
            {m_file, QStringLiteral("--seed"), QStringLiteral("11"), QStringLiteral("--messages"), QStringLiteral("60"),
                QStringLiteral("--folders"), QStringLiteral("5"), QStringLiteral("--depth"), QStringLiteral("3"),
                QStringLiteral("--attach-size"), QStringLiteral("12000"), QStringLiteral("--non-ascii"),
                QStringLiteral("40"), QStringLiteral("--edge-cases"), QStringLiteral("--quiet")});
        ASSERT_EQ(made.exitCode, 0) << made.err.toStdString();
        const TRun inspect = RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly-inspect"),
            {m_file, QStringLiteral("--json"), QStringLiteral("--messages")});
        ASSERT_EQ(inspect.exitCode, 0) << inspect.err.toStdString();
        FromInspectFolder(QJsonDocument::fromJson(inspect.out.toUtf8()).object()[QStringLiteral("root")].toObject(),
            QString(), m_expected);
        ASSERT_GE(m_expected.size(), 8);
    }

    QTemporaryDir m_dir;
    QString m_file;
    TFolders m_expected;
};

TEST_F(WrittenFile, PffinfoReadsTheStore)
{
    const TRun info = RunProcess(QStringLiteral("pffinfo"), {m_file});
    EXPECT_EQ(info.exitCode, 0) << info.err.toStdString();
    EXPECT_TRUE(info.out.contains(QStringLiteral("Personal Storage Tables"))) << info.out.toStdString();
    EXPECT_TRUE(info.out.contains(QStringLiteral("64-bit"))) << info.out.toStdString();
}

TEST_F(WrittenFile, PffexportSeesTheSameItems)
{
    const QString target = m_dir.filePath(QStringLiteral("pff"));
    const TRun run = RunProcess(QStringLiteral("pffexport"), {QStringLiteral("-q"), QStringLiteral("-t"), target, m_file});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QDir root(target + QStringLiteral(".export"));
    // Items are folders named by their kind and number; attached messages
    // stand inside their message's folder and are not counted.
    static const QRegularExpression ItemFolder(QStringLiteral("^(Message|Appointment|Contact|Meeting)\\d+$"));
    QMap<QString, int> counts;
    for (QDirIterator it(root.path(), QDir::Dirs | QDir::NoDotAndDotDot, QDirIterator::Subdirectories); it.hasNext();) {
        const QFileInfo dir(it.next());
        if (ItemFolder.match(dir.fileName()).hasMatch() && !dir.path().contains(QLatin1String("/Attachments/")))
            ++counts[TopLevelRemoved(root.relativeFilePath(dir.path()))];
    }
    int compared = 0;
    for (QDirIterator it(root.path(), {QStringLiteral("OutlookHeaders.txt")}, QDir::Files, QDirIterator::Subdirectories);
         it.hasNext();) {
        const QFileInfo headers(it.next());
        const QDir itemDir = headers.dir();
        const QString folder = TopLevelRemoved(QFileInfo(root.relativeFilePath(itemDir.path())).path());
        const auto values = KeyValues(ReadText(headers.filePath()));
        const QString subject = values.value(QStringLiteral("Subject")).value(0);
        if (!m_expected.contains(folder) || !m_expected[folder].contains(subject))
            continue;
        const TItem& want = m_expected[folder][subject];
        if (values.contains(QStringLiteral("Sender name"))) {
            EXPECT_EQ(values[QStringLiteral("Sender name")].value(0), want.sender) << subject.toStdString();
        }
        QStringList recipients = KeyValues(ReadText(itemDir.filePath(QStringLiteral("Recipients.txt"))))
                                     .value(QStringLiteral("Display name"));
        for (const QString& name : want.recipients)
            EXPECT_TRUE(recipients.contains(name)) << subject.toStdString() << ": " << name.toStdString();
        QList<qint64> sizes, wantSizes;
        for (const QFileInfo& a : QDir(itemDir.filePath(QStringLiteral("Attachments"))).entryInfoList(QDir::Files))
            sizes << a.size();
        const bool attachedMessage = subject.startsWith(QLatin1String("Attached"));
        for (const auto& [name, size] : want.attaches) {
            wantSizes << size;
            if (!name.isEmpty() && !attachedMessage) {
                EXPECT_TRUE(QFileInfo::exists(itemDir.filePath(QStringLiteral("Attachments/%1_%2")
                                                                   .arg(want.attaches.indexOf({name, size}) + 1)
                                                                   .arg(name))))
                    << subject.toStdString() << ": " << name.toStdString();
            }
        }
        std::sort(sizes.begin(), sizes.end());
        std::sort(wantSizes.begin(), wantSizes.end());
        // Attached messages are exported as folders, not files.
        if (!attachedMessage) {
            EXPECT_EQ(sizes, wantSizes) << subject.toStdString();
        }
        if (want.textLength > 0) {
            EXPECT_EQ(ReadText(itemDir.filePath(QStringLiteral("Message.txt"))).size(), want.textLength)
                << subject.toStdString();
        }
        ++compared;
    }
    for (auto it = m_expected.cbegin(); it != m_expected.cend(); ++it)
        EXPECT_EQ(counts.value(it.key()), it.value().size()) << it.key().toStdString();
    EXPECT_GE(compared, 60);
}

TEST_F(WrittenFile, ReadpstSeesTheSameItems)
{
    const QString target = m_dir.filePath(QStringLiteral("libpst"));
    QDir().mkpath(target);
    // One job: parallel jobs share the numbering of a folder's files.
    const TRun run = RunProcess(QStringLiteral("readpst"),
        {QStringLiteral("-q"), QStringLiteral("-j"), QStringLiteral("0"), QStringLiteral("-S"), QStringLiteral("-o"), target, m_file});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QDir root(target);
    static const QRegularExpression Number(QStringLiteral("^\\d+$"));
    QMap<QString, int> counts;
    int compared = 0;
    for (QDirIterator it(root.path(), QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
        const QFileInfo file(it.next());
        if (!Number.match(file.fileName()).hasMatch())
            continue;
        const QString folder = TopLevelRemoved(root.relativeFilePath(file.path()));
        ++counts[folder];
        const QString text = ReadText(file.filePath());
        const QString head = text.left(text.indexOf(QStringLiteral("\n\n")));
        auto header = [&](const QString& name) {
            const QRegularExpression line(QStringLiteral("^%1: (.*(?:\\n[ \\t].*)*)$").arg(name),
                QRegularExpression::MultilineOption);
            return DecodeWords(line.match(head).captured(1).replace(QRegularExpression(QStringLiteral("\\n[ \\t]+")), QString()));
        };
        const QString subject = header(QStringLiteral("Subject"));
        if (!m_expected.contains(folder) || !m_expected[folder].contains(subject))
            continue;
        const TItem& want = m_expected[folder][subject];
        // A plain name is quoted, others are encoded words.
        const QString from = header(QStringLiteral("From")).remove(QLatin1Char('"'));
        EXPECT_TRUE(from.startsWith(want.sender)) << subject.toStdString() << ": " << from.toStdString();
        QList<qint64> sizes, wantSizes;
        for (const QFileInfo& a : file.dir().entryInfoList(QDir::Files)) {
            if (!a.fileName().startsWith(file.fileName() + QLatin1Char('-')))
                continue;
            sizes << a.size();
            const QString name = a.fileName().mid(file.fileName().size() + 1);
            const bool named = std::any_of(want.attaches.begin(), want.attaches.end(), [&](const auto& w) { return w.first == name; });
            EXPECT_TRUE(named || name.startsWith(QLatin1String("attach"))) << subject.toStdString() << ": " << name.toStdString();
        }
        for (const auto& attach : want.attaches)
            wantSizes << attach.second;
        std::sort(sizes.begin(), sizes.end());
        std::sort(wantSizes.begin(), wantSizes.end());
        if (!subject.startsWith(QLatin1String("Attached"))) {
            EXPECT_EQ(sizes, wantSizes) << subject.toStdString();
        }
        if (want.textLength > 0) {
            // The plain part, as libpst writes it, holds exactly the text.
            const qsizetype start = text.indexOf(QStringLiteral("Content-Type: text/plain; charset=\"utf-8\"\n\n"));
            ASSERT_GE(start, 0) << subject.toStdString();
            const qsizetype bodyStart = text.indexOf(QStringLiteral("\n\n"), start) + 2;
            const qsizetype bodyEnd = text.indexOf(QStringLiteral("\n--"), bodyStart);
            // libpst ends lines with LF alone; the generated texts use CR LF.
            const qsizetype lines = text.mid(bodyStart, bodyEnd - bodyStart).count(QLatin1Char('\n'));
            EXPECT_EQ(bodyEnd - bodyStart + lines, want.textLength) << subject.toStdString();
        }
        ++compared;
    }
    for (auto it = m_expected.cbegin(); it != m_expected.cend(); ++it)
        EXPECT_EQ(counts.value(it.key()), it.value().size()) << it.key().toStdString();
    EXPECT_GE(compared, 60);
}

} // namespace
