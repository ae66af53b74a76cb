#include "mail/MailStringList.h"

#include <QCoreApplication>
#include <QFile>

namespace tessaly::mail {

namespace {
constexpr qint64 ChunkSize = 64 * 1024;
}

TAnsiTextReader::TAnsiTextReader(QIODevice& stream) : m_stream(stream) {}

// Reads the next chunk; false when the stream has nothing more.
bool TAnsiTextReader::Fill()
{
    if (m_streamEnded)
        return false;
    m_buffer.remove(0, m_pos);
    m_pos = 0;
    const QByteArray chunk = m_stream.read(ChunkSize);
    if (chunk.isEmpty()) {
        m_streamEnded = true;
        return false;
    }
    m_buffer += chunk;
    return true;
}

bool TAnsiTextReader::Eof() const
{
    if (m_pos < m_buffer.size())
        return false;
    if (m_streamEnded)
        return true;
    auto* self = const_cast<TAnsiTextReader*>(this);
    return !self->Fill();
}

bool TAnsiTextReader::ReadLn(QByteArray& line)
{
    line.clear();
    if (Eof())
        return false;
    qsizetype scanned = 0; // bytes of this line already looked at
    for (;;) {
        const char* data = m_buffer.constData();
        const qsizetype size = m_buffer.size();
        for (qsizetype i = m_pos + scanned; i < size; ++i) {
            const char c = data[i];
            if (c != '\n' && c != '\r')
                continue;
            line = m_buffer.mid(m_pos, i - m_pos);
            m_pos = i + 1;
            if (c == '\r') {
                // A CR at the end of the buffer may be the first half of CR LF.
                if (m_pos >= m_buffer.size())
                    Fill();
                if (m_pos < m_buffer.size() && m_buffer[m_pos] == '\n')
                    ++m_pos;
            }
            return true;
        }
        // No line end yet: the line goes on in the next chunk.
        scanned = size - m_pos;
        if (!Fill()) {
            line = m_buffer.mid(m_pos);
            m_pos = m_buffer.size();
            return true;
        }
    }
}

void TMailStringList::Delete(qsizetype index)
{
    if (index >= 0 && index < m_lines.size())
        m_lines.removeAt(index);
}

void TMailStringList::Insert(qsizetype index, const QByteArray& line)
{
    m_lines.insert(std::clamp<qsizetype>(index, 0, m_lines.size()), line);
}

void TMailStringList::LoadFromFile(const QString& fileName, int maxLines)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        throw EFileReadError(QCoreApplication::translate("TMailStringList", "Can not read file %1: %2").arg(fileName, file.errorString()));
    Clear();
    LoadFromStream(file, maxLines);
}

void TMailStringList::LoadFromStream(QIODevice& stream, int maxLines)
{
    TAnsiTextReader reader(stream);
    QByteArray line;
    do {
        if (!reader.ReadLn(line))
            break;
        m_lines.append(line);
    } while (maxLines < 1 || m_lines.size() < maxLines);
}

QByteArray TMailStringList::Text() const
{
    QByteArray text;
    for (qsizetype i = 0; i < m_lines.size(); ++i) {
        if (i > 0)
            text += "\r\n";
        text += m_lines[i];
    }
    return text;
}

} // namespace tessaly::mail
