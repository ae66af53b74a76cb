#pragma once

#include <QByteArray>
#include <QSize>

namespace tessaly::mail {

// What pages need of a picture: its size in pixels and, for formats that a
// browser may not show, the picture as PNG. Decoding pictures takes Qt's
// GUI library, which the command-line program does not load (it would cost
// every run a third of its start-up); the programs that show pages install
// a decoder, and without one a picture has no known size and no PNG.
struct TPictureDecoder {
    QSize (*size)(const QByteArray& data) = nullptr;
    QByteArray (*png)(const QByteArray& data) = nullptr;
};

void SetPictureDecoder(const TPictureDecoder& decoder);

// Width and height of the picture; an invalid size when it cannot be read.
QSize PictureSize(const QByteArray& data);
// The picture as PNG; empty when it cannot be read.
QByteArray PictureAsPng(const QByteArray& data);

// The decoder over QImage, from the tessaly_mail_pictures library.
void UseQtPictures();

} // namespace tessaly::mail
