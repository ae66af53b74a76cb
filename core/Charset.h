#pragma once

// Conversion of bytes in a named charset or a Windows code page to text, and
// charset detection. Built on ICU.

#include <QByteArray>
#include <QString>
#include <cstdint>

namespace tessaly::core {

// Decodes bytes in the charset named as in MIME or HTML ("windows-1252",
// "cp1252", "ks_c_5601-1987", "iso-2022-jp", ...). Malformed sequences become
// U+FFFD. An unknown or empty charset takes the bytes as they are: one byte,
// one character.
QString DecodeCharset(const QByteArray& bytes, const QString& charset);

// The charset name of a Windows code page number (1252 -> "windows-1252",
// 65001 -> "UTF-8", 50220 -> "ISO-2022-JP", ...); empty for 0 and negatives.
QString CodePageCharset(int codePage);
QString DecodeCodePage(const QByteArray& bytes, int codePage);

// The ANSI code page Windows uses for a locale (LCID); 0 when unknown.
int LocaleCodePage(uint32_t lcid);

// True when the charset is known to the converter.
bool IsKnownCharset(const QString& charset);

// The charset that the bytes most likely are in, or empty when nothing fits.
// With html set, markup is left out of the guess.
QString DetectCharset(const QByteArray& bytes, bool html);

// The bytes of an HTML body as text: in the charset named after "charset="
// near its start, else in the one the transport headers name for text/html,
// else in the Windows code page the item names for its HTML (0: none),
// else in the one it looks like. The text keeps its characters as they are.
QString DecodeHtml(const QByteArray& html, const QString& headers, int codePage = 0);

// HTML text as bytes that DecodeHtml reads back as the same text: in the
// charset its head declares, else in the one the headers name, else in
// UTF-8 (the writer then names code page 65001). A character the charset
// cannot hold becomes a numeric character reference.
QByteArray EncodeHtml(const QString& html, const QString& headers);
// The charset EncodeHtml writes that text in ("UTF-8" when neither the page
// nor the headers name one).
QString HtmlEncodingCharset(const QString& html, const QString& headers);

// The HTML text with the charset its head declares ("charset=..." near its
// start) changed to `charset`; unchanged when it declares none.
QString HtmlWithCharset(const QString& html, const QString& charset);

// True when the bytes are well-formed UTF-8.
bool IsValidUtf8(const QByteArray& bytes);

} // namespace tessaly::core
