#include "mail/Pictures.h"

#include <atomic>

namespace tessaly::mail {

namespace {

std::atomic<QSize (*)(const QByteArray&)> g_size{nullptr};
std::atomic<QByteArray (*)(const QByteArray&)> g_png{nullptr};

} // namespace

void SetPictureDecoder(const TPictureDecoder& decoder)
{
    g_size = decoder.size;
    g_png = decoder.png;
}

QSize PictureSize(const QByteArray& data)
{
    const auto size = g_size.load();
    return size && !data.isEmpty() ? size(data) : QSize();
}

QByteArray PictureAsPng(const QByteArray& data)
{
    const auto png = g_png.load();
    return png && !data.isEmpty() ? png(data) : QByteArray();
}

} // namespace tessaly::mail
