#pragma once

#include <QElapsedTimer>
#include <QPushButton>

class heartBeat;

/**
 * A button for fingers on a panel that bounces. A press counts only for what was drawn when the finger came
 * down and still is when it goes up: whatever the button has come to mean since, takes no press for a while.
 */
class tapButton : public QPushButton {
    Q_OBJECT

public:
    /** Keeps `heart`, which must outlive it. */
    tapButton(const QString& text, const heartBeat& heart, QWidget* parent);

    /** From now on it means something else, even should it look the same. */
    void become(const QString& text, bool enabled);
    void become(bool enabled) { become(text(), enabled); }

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    bool takesPress() const;

    const heartBeat& heart;
    unsigned meaning = 0; ///< counts the changes
    unsigned drawn = 0;   ///< the meaning that was painted last
    unsigned pressed = 0; ///< the meaning that the finger came down on
    QElapsedTimer sinceDrawn;
};
