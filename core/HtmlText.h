#pragma once

#include <QString>

namespace tessaly::core {

// Escapes &, < and > so the text shows as it is inside an HTML element.
QString HtmlEncode(const QString& text);

// Every character from `from` up as a numeric character reference ("&#233;";
// one reference for a character outside the BMP). With markup, also
// <, >, & and the double quote as their entities.
QString HtmlCharacterReferences(const QString& text, char32_t from, bool markup);

// Character references decoded as a browser decodes them: numeric ones
// ("&#106;", "&#x6A", the semicolon optional) and the named ones for ASCII
// characters, the no-break space and a few common others; an unknown name
// stays as written. In an attribute value, a name written without its
// semicolon stays when a letter, a digit or "=" follows it.
QString HtmlDecode(const QString& text, bool attribute = false);

// The text of a small HTML fragment without its markup: <br>, <p> and <hr>
// become line breaks (<hr> a line of dashes), other tags are dropped and the
// basic entities are decoded.
QString HtmlToPlainText(const QString& html);

} // namespace tessaly::core
