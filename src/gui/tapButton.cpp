#include "tapButton.h"

#include "heartBeat.h"

#include <QMouseEvent>

namespace {

constexpr int DEAF_MS = 300; // behind each change, so that the second tap of two falls into it

} // namespace

tapButton::tapButton(const QString& text, const heartBeat& beat, QWidget* parent)
    : QPushButton(text, parent), heart(beat) {}

void tapButton::become(const QString& text, bool enabled) {
    ++meaning;
    setText(text);
    setEnabled(enabled);
    update();
}

bool tapButton::takesPress() const {
    return drawn == meaning && sinceDrawn.isValid() && sinceDrawn.hasExpired(DEAF_MS) && !heart.hasMissed();
}

void tapButton::mousePressEvent(QMouseEvent* event) {
    if (!takesPress()) {
        event->accept();
        return;
    }
    pressed = meaning;
    QPushButton::mousePressEvent(event);
}

void tapButton::mouseReleaseEvent(QMouseEvent* event) {
    if (pressed != meaning || heart.hasMissed()) {
        setDown(false);
    }
    QPushButton::mouseReleaseEvent(event);
}

void tapButton::paintEvent(QPaintEvent* event) {
    QPushButton::paintEvent(event);
    if (drawn != meaning || !sinceDrawn.isValid()) {
        drawn = meaning;
        sinceDrawn.start();
    }
}
