#include "mail/Pictures.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>

namespace tessaly::mail {

namespace {

QSize QtSize(const QByteArray& data)
{
    QBuffer buffer;
    buffer.setData(data);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    // The header is enough for most formats; the others are decoded.
    QSize size = reader.size();
    if (!size.isValid()) {
        QImage image;
        if (image.loadFromData(data))
            size = image.size();
    }
    return size.width() > 0 && size.height() > 0 ? size : QSize();
}

QByteArray QtPng(const QByteArray& data)
{
    QImage image;
    if (!image.loadFromData(data))
        return {};
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    return image.save(&buffer, "PNG") ? png : QByteArray();
}

} // namespace

void UseQtPictures()
{
    SetPictureDecoder({QtSize, QtPng});
}

} // namespace tessaly::mail
