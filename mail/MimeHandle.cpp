#include "mail/MimeHandle.h"

#include <mutex>

namespace tessaly::mail {

void EnsureGMime()
{
    static std::once_flag once;
    std::call_once(once, [] { g_mime_init(); });
}

QByteArray StreamBytes(GMimeStream* stream)
{
    if (!stream || !GMIME_IS_STREAM_MEM(stream))
        return {};
    GByteArray* bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(stream));
    return bytes ? QByteArray(reinterpret_cast<const char*>(bytes->data), qsizetype(bytes->len)) : QByteArray();
}

TGPtr<GMimeMessage> ParseMimeMessage(const QByteArray& data)
{
    EnsureGMime();
    TGPtr<GMimeStream> stream(
        g_mime_stream_mem_new_with_buffer(data.constData(), size_t(data.size())));
    TGPtr<GMimeParser> parser(g_mime_parser_new_with_stream(stream.get()));
    g_mime_parser_set_format(parser.get(), GMIME_FORMAT_MESSAGE);
    return TGPtr<GMimeMessage>(g_mime_parser_construct_message(parser.get(), nullptr));
}

} // namespace tessaly::mail
