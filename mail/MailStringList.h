#pragma once

#include "core/Exceptions.h"

#include <QByteArray>
#include <QIODevice>
#include <QList>

namespace tessaly::mail {

class EFileReadError : public core::ETessalyError {
public:
    using ETessalyError::ETessalyError;
};

// Reads an 8-bit stream line by line. CR, LF and CR LF each end a line; the
// line end is not part of the line. A last line without a line end is still
// a line; a stream that ends with a line end has no empty line after it.
class TAnsiTextReader {
public:
    explicit TAnsiTextReader(QIODevice& stream);
    // (Named Eof: EOF is a macro of the C library.)
    bool Eof() const;
    // False at the end of the stream.
    bool ReadLn(QByteArray& line);

private:
    bool Fill();

    QIODevice& m_stream;
    QByteArray m_buffer;
    qsizetype m_pos = 0;
    bool m_streamEnded = false;
};

// A list of lines kept as raw bytes (MIME headers and bodies).
class TMailStringList {
public:
    qsizetype Count() const { return m_lines.size(); }
    const QByteArray& operator[](qsizetype index) const { return m_lines[index]; }
    const QList<QByteArray>& Lines() const { return m_lines; }

    void Clear() { m_lines.clear(); }
    void Add(const QByteArray& line) { m_lines.append(line); }
    void Delete(qsizetype index);
    void Insert(qsizetype index, const QByteArray& line);

    // Throws EFileReadError when the file cannot be opened.
    void LoadFromFile(const QString& fileName, int maxLines = 0);
    // Appends lines; with maxLines above 0 stops once the list holds that many.
    void LoadFromStream(QIODevice& stream, int maxLines = 0);

    // The lines joined with CR LF.
    QByteArray Text() const;

private:
    QList<QByteArray> m_lines;
};

} // namespace tessaly::mail
