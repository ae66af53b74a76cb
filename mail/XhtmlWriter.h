#pragma once

// An HTML page as XHTML: well-formed XML that browsers also read as HTML
// (the polyglot form). The page is read with the HTML tokenizer and written
// again element by element.

#include <QString>

namespace tessaly::mail {

// The page as an XHTML document in the XHTML namespace, with an XML
// declaration: every element closed (void elements as "<br />"), elements
// left open by the page closed where a browser closes them or at the end,
// end tags without a start dropped; attribute values quoted; character
// references decoded and written as characters (only &amp;, &lt;, &gt; and
// &quot; stay references); style sheets in CDATA sections behind CSS
// comments; comments, doctypes, prefixed names ("o:p", "xmlns:v") and names
// XML does not allow dropped; characters XML 1.0 does not allow left out.
QString HtmlToXhtml(const QString& html);

} // namespace tessaly::mail
