#pragma once

#include <QString>

namespace tessaly::core {

// Escapes &, < and > so the text shows as it is inside an HTML element.
QString HtmlEncode(const QString& text);

// Every character from `from` up as a numeric character reference ("&#233;";
// one reference for a character outside the BMP). With markup, also
// <, >, & and the double quote as their entities.
QString HtmlCharacterReferences(const QString& text, char32_t from, bool markup);

// The text of a small HTML fragment without its markup: <br>, <p> and <hr>
// become line breaks (<hr> a line of dashes), other tags are dropped and the
// basic entities are decoded.
QString HtmlToPlainText(const QString& html);

} // namespace tessaly::core
