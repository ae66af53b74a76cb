#pragma once

// A tolerant HTML tokenizer: it splits a page into text, tags, comments and
// the raw contents of elements such as <style> the way a browser's
// tokenizer does (HTML standard, "Tokenization"), without building a tree.
// Every character is read once; broken markup never stops it.

#include <QString>
#include <vector>

namespace tessaly::mail {

enum class EHtmlToken {
    Text,       // character data, references not decoded
    StartTag,
    EndTag,
    Comment,    // comments, doctypes, processing instructions, bogus markup
    RawText,    // the contents of script, style, textarea, title, xmp...
    Unfinished, // a tag cut by the end of the input: a browser drops it
};

struct THtmlAttribute {
    QString Name;  // ASCII lower case
    QString Value; // as written, without its quotes; references not decoded
    bool HasValue = false;
};

struct THtmlToken {
    EHtmlToken Kind = EHtmlToken::Text;
    qsizetype Start = 0, End = 0; // the source range
    QString Name;                 // tags: ASCII lower case; raw text: its element
    std::vector<THtmlAttribute> Attributes; // start tags; a repeated name keeps the first
    bool SelfClosing = false;

    const THtmlAttribute* Attribute(QLatin1String name) const;
};

class THtmlTokenizer {
public:
    explicit THtmlTokenizer(const QString& html) : m_html(html) {}

    // The next token, or false at the end.
    bool Next(THtmlToken& token);

    // Elements whose contents a browser reads as raw text up to their end tag.
    static bool IsRawTextElement(const QString& name);

private:
    bool ReadTag(THtmlToken& token);
    void ReadComment(THtmlToken& token);
    void ReadRawText(THtmlToken& token);

    const QString& m_html;
    qsizetype m_pos = 0;
    QString m_rawElement; // set after the start tag of a raw-text element
};

} // namespace tessaly::mail
