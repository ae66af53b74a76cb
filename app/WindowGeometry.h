#pragma once

// Where a window goes on the screen: the first window takes a share of the
// screen's available area, centred; a remembered place that no longer fits
// (a smaller screen, a higher scale factor, a screen gone) is brought back
// inside it.

#include <QRect>

class QWidget;

namespace tessaly::app {

// The part of the available area (each side) a first window takes.
constexpr double FirstWindowShare = 0.8;

// The geometry of a first window in an available area: FirstWindowShare of
// it, centred; never larger than the area.
QRect FirstWindowGeometry(const QRect& available);
// A window's frame moved, and shrunk where it must be, to lie inside the
// available area; unchanged when it already does.
QRect FitInside(const QRect& frame, const QRect& available);

// Places a window that has no remembered geometry on its screen.
void PlaceFirstWindow(QWidget& window);
// Brings a window whose geometry was restored back inside its screen.
void KeepOnScreen(QWidget& window);

} // namespace tessaly::app
