#include "mail/MailStringList.h"

#include "TestUtil.h"

#include <QBuffer>
#include <gtest/gtest.h>

using namespace tessaly::mail;

namespace {

// Hands out its data a few bytes at a time, as a pipe or socket may.
class TTrickleDevice : public QIODevice {
public:
    TTrickleDevice(QByteArray data, qint64 step) : m_data(std::move(data)), m_step(step)
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char* out, qint64 max) override
    {
        const qint64 n = std::min({max, m_step, qint64(m_data.size()) - m_pos});
        if (n <= 0)
            return m_pos >= m_data.size() ? -1 : 0;
        memcpy(out, m_data.constData() + m_pos, size_t(n));
        m_pos += n;
        return n;
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    QByteArray m_data;
    qint64 m_step;
    qint64 m_pos = 0;
};

QList<QByteArray> Load(const QByteArray& data, int maxLines = 0)
{
    QBuffer buffer;
    buffer.setData(data);
    buffer.open(QIODevice::ReadOnly);
    TMailStringList list;
    list.LoadFromStream(buffer, maxLines);
    return list.Lines();
}

} // namespace

TEST(MailStringList, LineEnds)
{
    using L = QList<QByteArray>;
    const struct {
        QByteArray data;
        L lines;
    } cases[] = {
        {"", {}},
        {"one", {"one"}},
        {"one\n", {"one"}},
        {"a\r\nb\rc\nd", {"a", "b", "c", "d"}},
        {"a\n\nb", {"a", "", "b"}},
        {"a\r\r\nb", {"a", "", "b"}},
        {"a\n\r", {"a", ""}},
        {"\r\n", {""}},
        {"\n\n", {"", ""}},
        {QByteArray("x\0y\r\n\xff", 6), {QByteArray("x\0y", 3), "\xff"}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Load(c.data), c.lines) << c.data.toPercentEncoding().toStdString();
        // The same from a device that gives one byte per read: a CR LF split
        // between two reads is still one line end.
        TTrickleDevice trickle(c.data, 1);
        TMailStringList list;
        list.LoadFromStream(trickle);
        EXPECT_EQ(list.Lines(), c.lines) << "trickled " << c.data.toPercentEncoding().toStdString();
    }
}

TEST(MailStringList, MaxLines)
{
    const QByteArray data = "1\r\n2\r3\n4\r\n5";
    EXPECT_EQ(Load(data, 0).size(), 5);
    EXPECT_EQ(Load(data, -1).size(), 5);
    EXPECT_EQ(Load(data, 3), (QList<QByteArray>{"1", "2", "3"}));
    EXPECT_EQ(Load(data, 1), QList<QByteArray>{"1"});
    EXPECT_EQ(Load(data, 9).size(), 5);

    // Lines already in the list count towards the limit.
    QBuffer buffer;
    buffer.setData(data);
    buffer.open(QIODevice::ReadOnly);
    TMailStringList list;
    list.Add("existing");
    list.LoadFromStream(buffer, 3);
    EXPECT_EQ(list.Lines(), (QList<QByteArray>{"existing", "1", "2"}));
}

TEST(MailStringList, LongLinesAcrossReadChunks)
{
    const QByteArray longLine(200000, 'x');
    const QByteArray atBoundary(65535, 'y'); // its CR ends one read, the LF starts the next
    const auto lines = Load(longLine + "\r\n" + atBoundary + "\r\nz");
    ASSERT_EQ(lines.size(), 3);
    EXPECT_EQ(lines[0], longLine);
    EXPECT_EQ(lines[1], atBoundary);
    EXPECT_EQ(lines[2], "z");
}

TEST(MailStringList, ReaderByHand)
{
    QBuffer buffer;
    buffer.setData("a\rb");
    buffer.open(QIODevice::ReadOnly);
    TAnsiTextReader reader(buffer);
    QByteArray line;
    EXPECT_FALSE(reader.Eof());
    ASSERT_TRUE(reader.ReadLn(line));
    EXPECT_EQ(line, "a");
    ASSERT_TRUE(reader.ReadLn(line));
    EXPECT_EQ(line, "b");
    EXPECT_TRUE(reader.Eof());
    EXPECT_FALSE(reader.ReadLn(line));
    EXPECT_TRUE(line.isEmpty());
}

TEST(MailStringList, EditingAndFiles)
{
    TMailStringList list;
    list.Add("b");
    list.Insert(0, "a");
    list.Insert(99, "z");
    list.Delete(5);
    EXPECT_EQ(list.Lines(), (QList<QByteArray>{"a", "b", "z"}));
    list.Delete(1);
    EXPECT_EQ(list.Text(), "a\r\nz");
    list.Clear();
    EXPECT_EQ(list.Count(), 0);

    list.LoadFromFile(tessaly::test::TestData(QStringLiteral("eml/rfc2822__example01.eml")));
    ASSERT_GT(list.Count(), 3);
    EXPECT_TRUE(list[0].startsWith("From:")) << list[0].toStdString();
    EXPECT_THROW(list.LoadFromFile(QStringLiteral("/no/such/file.eml")), EFileReadError);
}
