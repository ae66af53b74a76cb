#include "app/WindowGeometry.h"

#include <QEvent>
#include <QGuiApplication>
#include <QScreen>
#include <QTimer>
#include <QWidget>
#include <algorithm>
#include <cmath>

namespace tessaly::app {

QRect FirstWindowGeometry(const QRect& available)
{
    if (available.isEmpty())
        return {};
    const int width = std::max(1, int(std::floor(available.width() * FirstWindowShare)));
    const int height = std::max(1, int(std::floor(available.height() * FirstWindowShare)));
    QRect frame(0, 0, width, height);
    frame.moveCenter(available.center());
    return frame;
}

QRect FitInside(const QRect& frame, const QRect& available)
{
    if (available.isEmpty() || available.contains(frame))
        return frame;
    QRect fitted(frame.topLeft(), frame.size().boundedTo(available.size()));
    fitted.moveLeft(std::clamp(fitted.left(), available.left(), available.right() - fitted.width() + 1));
    fitted.moveTop(std::clamp(fitted.top(), available.top(), available.bottom() - fitted.height() + 1));
    return fitted;
}

namespace {

QRect AvailableArea(const QWidget& window)
{
    const QScreen* screen = window.screen();
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    return screen ? screen->availableGeometry() : QRect();
}

// Sets the frame (the window with its title bar and borders) to a rectangle.
void SetFrame(QWidget& window, const QRect& frame)
{
    // Before the window is shown its frame margins are not known and are
    // taken as none; the window is fitted again once shown.
    const QRect inner = window.geometry();
    const QRect outer = window.frameGeometry();
    const QMargins margins(inner.left() - outer.left(), inner.top() - outer.top(), outer.right() - inner.right(),
        outer.bottom() - inner.bottom());
    const QSize size = (frame.size() - QSize(margins.left() + margins.right(), margins.top() + margins.bottom()))
                           .expandedTo(window.minimumSize());
    window.resize(size);
    window.move(frame.topLeft());
}

void FitNow(QWidget& window)
{
    const QRect frame = window.frameGeometry();
    const QRect fitted = FitInside(frame, AvailableArea(window));
    if (fitted != frame)
        SetFrame(window, fitted);
}

// Fits a window once more when it is first shown: its frame is known then.
class TFitWhenShown : public QObject {
public:
    using QObject::QObject;
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Show) {
            auto* window = static_cast<QWidget*>(watched);
            QTimer::singleShot(0, window, [window] { FitNow(*window); });
            deleteLater();
            window->removeEventFilter(this);
        }
        return false;
    }
};

void FitAgainWhenShown(QWidget& window)
{
    const QString name = QStringLiteral("FitWhenShown");
    if (window.isVisible() || window.findChild<QObject*>(name, Qt::FindDirectChildrenOnly))
        return;
    auto* filter = new TFitWhenShown(&window);
    filter->setObjectName(name);
    window.installEventFilter(filter);
}

} // namespace

void PlaceFirstWindow(QWidget& window)
{
    const QRect available = AvailableArea(window);
    if (!available.isEmpty())
        SetFrame(window, FirstWindowGeometry(available));
    FitAgainWhenShown(window);
}

void KeepOnScreen(QWidget& window)
{
    FitNow(window);
    FitAgainWhenShown(window);
}

} // namespace tessaly::app
