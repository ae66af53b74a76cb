#pragma once

#include <QString>

namespace tessaly::core {

// Escapes &, < and > so the text shows as it is inside an HTML element.
QString HtmlEncode(const QString& text);

// The text of a small HTML fragment without its markup: <br>, <p> and <hr>
// become line breaks (<hr> a line of dashes), other tags are dropped and the
// basic entities are decoded.
QString HtmlToPlainText(const QString& html);

} // namespace tessaly::core
