#include "core/Rtf.h"

#include "core/Charset.h"

#include <QCoreApplication>
#include <QHash>
#include <array>
#include <cstring>
#include <vector>

namespace tessaly::core {

// --- [MS-OXRTFCP] decompression ---------------------------------------------

namespace {

constexpr uint32_t CompressedMagic = 0x75465A4C;   // "LZFu"
constexpr uint32_t UncompressedMagic = 0x414C454D; // "MELA"
constexpr int DictionarySize = 4096;
// A damaged header must not make us allocate without bound.
constexpr uint32_t MaxRawSize = 512u * 1024 * 1024;

const char InitialDictionary[] =
    "{\\rtf1\\ansi\\mac\\deff0\\deftab720{\\fonttbl;}{\\f0\\fnil \\froman \\fswiss \\fmodern \\fscript \\fdecor MS Sans "
    "SerifSymbolArialTimes New RomanCourier{\\colortbl\\red0\\green0\\blue0\r\n\\par "
    "\\pard\\plain\\f0\\fs20\\b\\i\\u\\tab\\tx";

uint32_t ReadLE32(const char* p)
{
    return uint32_t(uchar(p[0])) | uint32_t(uchar(p[1])) << 8 | uint32_t(uchar(p[2])) << 16 | uint32_t(uchar(p[3])) << 24;
}

uint32_t Crc32(const char* data, qsizetype size)
{
    static const std::array<uint32_t, 256> Table = [] {
        std::array<uint32_t, 256> table {};
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            table[i] = c;
        }
        return table;
    }();
    uint32_t crc = 0;
    for (qsizetype i = 0; i < size; ++i)
        crc = Table[(crc ^ uchar(data[i])) & 0xFF] ^ (crc >> 8);
    return crc;
}

} // namespace

QByteArray DecompressRtf(const QByteArray& data)
{
    if (data.size() < 16)
        throw ERtfError(QCoreApplication::translate("Rtf", "Compressed RTF is shorter than its header"));
    const char* p = data.constData();
    const uint32_t compSize = ReadLE32(p);
    const uint32_t rawSize = ReadLE32(p + 4);
    const uint32_t type = ReadLE32(p + 8);
    const uint32_t crc = ReadLE32(p + 12);
    // COMPSIZE counts the 12 header bytes after it; some writers pad the
    // stream, so more data than that is tolerated.
    if (compSize < 12 || qint64(compSize) + 4 > data.size())
        throw ERtfError(QCoreApplication::translate("Rtf", "Compressed RTF has a wrong size"));
    if (rawSize > MaxRawSize)
        throw ERtfError(QCoreApplication::translate("Rtf", "Compressed RTF claims an implausible size"));
    const char* contents = p + 16;
    const qsizetype contentsSize = qsizetype(compSize) - 12;

    if (type == UncompressedMagic)
        return QByteArray(contents, std::min<qsizetype>(contentsSize, rawSize));
    if (type != CompressedMagic)
        throw ERtfError(QCoreApplication::translate("Rtf", "Compressed RTF has an unknown type"));
    if (Crc32(contents, contentsSize) != crc)
        throw ERtfError(QCoreApplication::translate("Rtf", "Compressed RTF fails its CRC check"));

    std::array<char, DictionarySize> dictionary {};
    const int initialSize = int(sizeof InitialDictionary) - 1;
    std::memcpy(dictionary.data(), InitialDictionary, size_t(initialSize));
    int writePos = initialSize;

    QByteArray out;
    out.reserve(qsizetype(rawSize));
    qsizetype pos = 0;
    while (pos < contentsSize) {
        const uchar control = uchar(contents[pos++]);
        for (int bit = 0; bit < 8; ++bit) {
            if (pos >= contentsSize)
                return out; // ran out without an end marker: keep what we have
            if (!(control & (1 << bit))) {
                const char c = contents[pos++];
                out += c;
                dictionary[size_t(writePos)] = c;
                writePos = (writePos + 1) % DictionarySize;
                continue;
            }
            if (pos + 1 >= contentsSize)
                throw ERtfError(QCoreApplication::translate("Rtf", "Compressed RTF ends inside a reference"));
            const uint16_t reference = uint16_t(uchar(contents[pos]) << 8 | uchar(contents[pos + 1]));
            pos += 2;
            int offset = reference >> 4;
            const int length = (reference & 0x0F) + 2;
            if (offset == writePos)
                return out; // the end marker
            for (int i = 0; i < length; ++i) {
                const char c = dictionary[size_t(offset)];
                out += c;
                dictionary[size_t(writePos)] = c;
                writePos = (writePos + 1) % DictionarySize;
                offset = (offset + 1) % DictionarySize;
            }
            if (out.size() > qsizetype(MaxRawSize))
                throw ERtfError(QCoreApplication::translate("Rtf", "Compressed RTF expands beyond its size"));
        }
    }
    return out;
}

// --- [MS-OXRTFEX] de-encapsulation ------------------------------------------

namespace {

struct TToken {
    enum Kind { End, GroupStart, GroupEnd, ControlWord, ControlSymbol, Text } kind = End;
    QByteArray word;  // control word name, or the symbol character
    bool hasParam = false;
    int param = 0;
    char text = 0;    // Text: one byte; ControlSymbol '\'': the byte of \'hh
};

class TRtfTokenizer {
public:
    explicit TRtfTokenizer(const QByteArray& rtf) : m_data(rtf) {}

    TToken Next()
    {
        TToken t;
        while (m_pos < m_data.size()) {
            const char c = m_data[m_pos++];
            if (c == '\r' || c == '\n')
                continue;
            if (c == '{') {
                t.kind = TToken::GroupStart;
                return t;
            }
            if (c == '}') {
                t.kind = TToken::GroupEnd;
                return t;
            }
            if (c != '\\') {
                t.kind = TToken::Text;
                t.text = c;
                return t;
            }
            return ReadControl();
        }
        return t;
    }

    // Skips the raw bytes of \binN.
    void Skip(qsizetype count) { m_pos = std::min(m_data.size(), m_pos + std::max<qsizetype>(0, count)); }

private:
    static bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
    static bool IsDigit(char c) { return c >= '0' && c <= '9'; }

    TToken ReadControl()
    {
        TToken t;
        if (m_pos >= m_data.size()) {
            t.kind = TToken::End;
            return t;
        }
        const char c = m_data[m_pos];
        if (!IsLetter(c)) {
            ++m_pos;
            t.kind = TToken::ControlSymbol;
            t.word = QByteArray(1, c);
            if (c == '\'') {
                int value = 0;
                int digits = 0;
                while (digits < 2 && m_pos < m_data.size()) {
                    const int h = HexValue(m_data[m_pos]);
                    if (h < 0)
                        break;
                    value = value * 16 + h;
                    ++m_pos;
                    ++digits;
                }
                t.text = char(value);
            } else if (c == '\r' || c == '\n') {
                t.kind = TToken::ControlWord; // a backslash before a line end is \par
                t.word = "par";
            }
            return t;
        }
        t.kind = TToken::ControlWord;
        const qsizetype start = m_pos;
        while (m_pos < m_data.size() && IsLetter(m_data[m_pos]) && m_pos - start < 32)
            ++m_pos;
        t.word = m_data.mid(start, m_pos - start);
        bool negative = false;
        if (m_pos < m_data.size() && m_data[m_pos] == '-' && m_pos + 1 < m_data.size() && IsDigit(m_data[m_pos + 1])) {
            negative = true;
            ++m_pos;
        }
        qint64 value = 0;
        int digits = 0;
        while (m_pos < m_data.size() && IsDigit(m_data[m_pos])) {
            if (digits < 10)
                value = value * 10 + (m_data[m_pos] - '0');
            ++digits;
            ++m_pos;
        }
        if (digits > 0) {
            t.hasParam = true;
            value = std::clamp<qint64>(negative ? -value : value, -2147483647LL, 2147483647LL);
            t.param = int(value);
        }
        if (m_pos < m_data.size() && m_data[m_pos] == ' ')
            ++m_pos; // the delimiting blank belongs to the control word
        return t;
    }

    static int HexValue(char c)
    {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        return -1;
    }

    const QByteArray& m_data;
    qsizetype m_pos = 0;
};

// Code page of an RTF \fcharset value; 0 for "the document's default".
int CharsetCodePage(int charset)
{
    switch (charset) {
    case 128: return 932;
    case 129: return 949;
    case 130: return 1361;
    case 134: return 936;
    case 136: return 950;
    case 161: return 1253;
    case 162: return 1254;
    case 163: return 1258;
    case 177: return 1255;
    case 178: return 1256;
    case 186: return 1257;
    case 204: return 1251;
    case 222: return 874;
    case 238: return 1250;
    default: return 0;
    }
}

// Destinations whose text is never part of the HTML.
bool IsSkippedDestination(const QByteArray& word)
{
    static const char* const Skipped[] = {"colortbl", "stylesheet", "info", "pict", "object", "header", "footer",
        "headerl", "headerr", "headerf", "footerl", "footerr", "footerf", "listtable", "listoverridetable",
        "rsidtbl", "generator", "filetbl", "revtbl", "xmlnstbl", "themedata", "colorschememapping", "latentstyles",
        "datastore", "fldinst", "bkmkstart", "bkmkend"};
    for (const char* s : Skipped)
        if (word == s)
            return true;
    return false;
}

// Characters of the control words that stand for one.
std::optional<char16_t> ControlWordCharacter(const QByteArray& word)
{
    static const QHash<QByteArray, char16_t> Characters = {
        {"emdash", u'\u2014'}, {"endash", u'\u2013'}, {"bullet", u'\u2022'}, {"lquote", u'\u2018'},
        {"rquote", u'\u2019'}, {"ldblquote", u'\u201C'}, {"rdblquote", u'\u201D'}, {"emspace", u'\u2003'},
        {"enspace", u'\u2002'}, {"qmspace", u'\u2005'},
    };
    const auto it = Characters.constFind(word);
    if (it == Characters.constEnd())
        return std::nullopt;
    return it.value();
}

struct TGroupState {
    bool skip = false;      // a destination left out entirely
    bool htmlTag = false;   // inside \*\htmltag
    bool htmlRtf = false;   // \htmlrtf: RTF-only content, left out
    bool fontTable = false; // inside \fonttbl
    int font = -1;          // current \fN
    int unicodeSkip = 1;    // \ucN
};

class TDeencapsulator {
public:
    explicit TDeencapsulator(const QByteArray& rtf) : m_tokens(rtf) {}

    QString Run()
    {
        std::vector<TGroupState> stack;
        TGroupState state;
        bool destinationNext = false; // the group began with \*
        bool groupStart = false;
        int pendingSkip = 0;          // fallback characters after \uN still to drop
        for (TToken t = m_tokens.Next(); t.kind != TToken::End; t = m_tokens.Next()) {
            if (t.kind == TToken::GroupStart) {
                if (stack.size() > 10000)
                    break; // nesting this deep is not a document
                stack.push_back(state);
                groupStart = true;
                destinationNext = false;
                pendingSkip = 0;
                continue;
            }
            if (t.kind == TToken::GroupEnd) {
                Flush();
                if (stack.empty())
                    break;
                state = stack.back();
                stack.pop_back();
                groupStart = false;
                pendingSkip = 0;
                continue;
            }
            const bool firstInGroup = groupStart;
            groupStart = false;

            if (t.kind == TToken::ControlSymbol && t.word == "*") {
                destinationNext = firstInGroup;
                groupStart = firstInGroup; // the destination's word comes next
                continue;
            }
            if (t.kind == TToken::ControlWord) {
                if (firstInGroup || destinationNext) {
                    const bool ignorable = destinationNext;
                    destinationNext = false;
                    if (ignorable && t.word == "htmltag") {
                        state.htmlTag = true;
                        continue;
                    }
                    if (t.word == "fonttbl") {
                        state.fontTable = true;
                        continue;
                    }
                    if (ignorable || IsSkippedDestination(t.word)) {
                        state.skip = true;
                        continue;
                    }
                }
                if (state.skip)
                    continue;
                HandleControlWord(t, state, pendingSkip);
                continue;
            }
            destinationNext = false;
            if (state.skip)
                continue;
            if (state.fontTable)
                continue;
            if (pendingSkip > 0) {
                --pendingSkip;
                continue;
            }
            if (state.htmlRtf && !state.htmlTag)
                continue;
            if (t.kind == TToken::Text) {
                AddByte(t.text, state);
            } else if (t.kind == TToken::ControlSymbol) {
                const char s = t.word[0];
                if (s == '\'')
                    AddByte(t.text, state);
                else if (s == '\\' || s == '{' || s == '}')
                    AddByte(s, state);
                else if (s == '~')
                    AddChar(u'\u00A0');
                else if (s == '_')
                    AddChar(u'\u2011');
                // \- (optional hyphen), \| and \: give nothing
            }
        }
        Flush();
        return m_out;
    }

private:
    void HandleControlWord(const TToken& t, TGroupState& state, int& pendingSkip)
    {
        const QByteArray& w = t.word;
        if (w == "ansicpg" && t.hasParam) {
            m_defaultCodePage = t.param;
            return;
        }
        if (w == "f" && t.hasParam) {
            if (state.fontTable)
                m_currentTableFont = t.param;
            else
                state.font = t.param;
            return;
        }
        if (w == "fcharset" && t.hasParam && state.fontTable) {
            if (m_currentTableFont >= 0)
                m_fontCodePages[m_currentTableFont] = CharsetCodePage(t.param);
            return;
        }
        if (w == "htmlrtf") {
            state.htmlRtf = !t.hasParam || t.param != 0;
            return;
        }
        if (w == "uc" && t.hasParam) {
            state.unicodeSkip = std::max(0, t.param);
            return;
        }
        if (w == "bin" && t.hasParam) {
            m_tokens.Skip(t.param);
            return;
        }
        if (state.fontTable || (state.htmlRtf && !state.htmlTag))
            return;
        if (w == "u" && t.hasParam) {
            AddChar(char16_t(t.param < 0 ? t.param + 65536 : t.param));
            pendingSkip = state.unicodeSkip;
            return;
        }
        if (w == "par" || w == "line") {
            AddText(QStringLiteral("\r\n"));
            return;
        }
        if (w == "tab") {
            AddChar(u'\t');
            return;
        }
        if (const auto c = ControlWordCharacter(w))
            AddChar(*c);
    }

    int CodePageFor(const TGroupState& state) const
    {
        // Tag text uses the document's code page, text between tags the
        // code page of the current font.
        if (!state.htmlTag && state.font >= 0) {
            const auto it = m_fontCodePages.constFind(state.font);
            if (it != m_fontCodePages.constEnd() && it.value() != 0)
                return it.value();
        }
        return m_defaultCodePage;
    }

    void AddByte(char c, const TGroupState& state)
    {
        const int codePage = CodePageFor(state);
        if (codePage != m_pendingCodePage)
            Flush();
        m_pendingCodePage = codePage;
        m_pending += c;
    }
    void AddChar(char16_t c)
    {
        Flush();
        m_out += QChar(c);
    }
    void AddText(const QString& text)
    {
        Flush();
        m_out += text;
    }
    void Flush()
    {
        if (m_pending.isEmpty())
            return;
        m_out += DecodeCodePage(m_pending, m_pendingCodePage);
        m_pending.clear();
    }

    TRtfTokenizer m_tokens;
    QString m_out;
    QByteArray m_pending;
    int m_pendingCodePage = 1252;
    int m_defaultCodePage = 1252;
    int m_currentTableFont = -1;
    QHash<int, int> m_fontCodePages;
};

} // namespace

bool IsHtmlEncapsulatedRtf(const QByteArray& rtf)
{
    // \fromhtml1 must stand in the header: before the first text and the
    // first group other than those of the header.
    TRtfTokenizer tokens(rtf);
    int depth = 0;
    for (TToken t = tokens.Next(); t.kind != TToken::End; t = tokens.Next()) {
        switch (t.kind) {
        case TToken::GroupStart: ++depth; break;
        case TToken::GroupEnd:
            if (--depth <= 0)
                return false;
            break;
        case TToken::ControlWord:
            if (depth == 1 && t.word == "fromhtml")
                return t.hasParam && t.param == 1;
            if (depth == 1 && (t.word == "fromtext" || t.word == "pard" || t.word == "plain"))
                return false;
            break;
        case TToken::Text:
            if (depth == 1 && t.text != ' ')
                return false;
            break;
        default: break;
        }
        if (depth == 0)
            return false;
    }
    return false;
}

std::optional<QString> RtfToHtml(const QByteArray& rtf)
{
    if (!IsHtmlEncapsulatedRtf(rtf))
        return std::nullopt;
    return TDeencapsulator(rtf).Run();
}

} // namespace tessaly::core
