#pragma once

// Takes typed values off the front of a fuzz input, so that a target can
// build structured data (messages, folders, names) from plain bytes. Once the
// bytes run out every value is zero or empty, so an input always gives a
// complete, if small, structure.

#include <QByteArray>
#include <QString>
#include <algorithm>
#include <cstddef>
#include <cstdint>

class TFuzzInput {
public:
    TFuzzInput(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

    size_t Remaining() const { return m_size - m_at; }

    uint8_t Byte() { return m_at < m_size ? m_data[m_at++] : 0; }
    bool Bool() { return Byte() & 1; }
    uint16_t Word() { return uint16_t(Byte() | (Byte() << 8)); }
    uint32_t Long() { return uint32_t(Word()) | (uint32_t(Word()) << 16); }
    // A value in [0, count).
    int Pick(int count) { return count > 0 ? int(Word() % unsigned(count)) : 0; }

    // Up to max bytes, the count taken first.
    QByteArray Bytes(int max)
    {
        const size_t want = size_t(Pick(max + 1));
        const size_t n = std::min(want, Remaining());
        QByteArray out(reinterpret_cast<const char*>(m_data + m_at), qsizetype(n));
        m_at += n;
        return out;
    }

    // A large block of data: a few bytes of the input repeated to a size of
    // up to max, so that sizes past the format's block limits are reached
    // from short inputs.
    QByteArray Blob(int max)
    {
        const QByteArray seed = Bytes(16);
        const int size = Pick(max + 1);
        if (seed.isEmpty())
            return QByteArray(size, char(size));
        QByteArray out;
        out.reserve(size);
        while (out.size() < size)
            out.append(seed.left(size - out.size()));
        return out;
    }

    // Text of up to max UTF-16 units: UTF-8 (invalid sequences come out as
    // replacement characters), Latin-1, or raw UTF-16 units, which may hold
    // lone surrogates.
    QString Text(int max)
    {
        const uint8_t mode = Byte();
        const QByteArray bytes = Bytes(mode % 3 == 2 ? max * 2 : max);
        switch (mode % 3) {
        case 0: return QString::fromUtf8(bytes).left(max);
        case 1: return QString::fromLatin1(bytes);
        default: {
            QString out;
            for (qsizetype i = 0; i + 1 < bytes.size(); i += 2)
                out += QChar(char16_t(uint8_t(bytes[i]) | (uint8_t(bytes[i + 1]) << 8)));
            return out;
        }
        }
    }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_at = 0;
};
