#pragma once

// The naming templates: literal text with macros in square brackets, "[name]"
// or "[name:parameter]".

#include <QDateTime>
#include <QString>
#include <functional>
#include <optional>
#include <vector>

namespace tessaly::tasks {

struct TTemplateMacro {
    QString Name;          // lower case
    QString Parameter;     // as written; empty when none
    bool HasParameter = false;
    // The parameter as a whole number, 0 when it is not one.
    int Number() const;
    // The macro as written, with "=" for the colon: "[attach=5]".
    QString Literal() const;
};

class TMailTemplate {
public:
    explicit TMailTemplate(const QString& text);

    // Expands every macro through the resolver; a macro the resolver does not
    // know is kept as written.
    QString Expand(const std::function<std::optional<QString>(const TTemplateMacro&)>& resolve) const;

    const QString& Text() const { return m_text; }

private:
    struct TPiece {
        QString literal;
        std::optional<TTemplateMacro> macro;
    };
    QString m_text;
    std::vector<TPiece> m_pieces;
};

// Values of the three kinds of macro.
QString TextMacro(const QString& value, const TTemplateMacro& macro);
QString NumberMacro(qint64 value, const TTemplateMacro& macro);
// A parameter is a date pattern (Delphi style: yyyy mm dd hh nn ss); without
// one the user's short date format is used.
QString DateMacro(const QDateTime& value, const TTemplateMacro& macro);

// File systems allow names of 255 bytes; ours are counted in UTF-8.
constexpr int MaxNameBytes = 255;
int Utf8Length(QStringView text);
// The longest start of text that takes at most maxBytes of UTF-8, cut
// between two characters (never inside a surrogate pair or before a
// combining mark).
QString LimitNameBytes(const QString& text, int maxBytes);
// A file name of at most maxBytes of UTF-8: the base name is shortened, a
// short extension stays.
QString FitFileName(const QString& name, int maxBytes = MaxNameBytes);

// Flags of the file-name cleaner.
enum TFileNameCleanFlag { fncLength = 1, fncSharepoint = 2 };
QString CleanFileName(const QString& name, int flags);

// An attachment's name as a file name that stays inside the folder it is
// written to: the last path part only, no control characters, no reserved
// device name, never "." or "..", at most 200 bytes in UTF-8 with the
// extension kept; fallback when nothing is left.
QString SafeAttachName(const QString& name, const QString& fallback = QStringLiteral("attachment"));

// Drops "RE:", "FW:" and the like: while a colon stands at one of the first
// seven positions, everything up to it goes. Empty results give the subject.
QString ClearSubject(const QString& subject);

} // namespace tessaly::tasks
