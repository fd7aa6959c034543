#pragma once

#include <QPlainTextEdit>

/**
 * The window's log: read only, moved by a finger that drags it, and at its end as long as nobody has moved it
 * away from there. Nothing in it can be selected.
 */
class statusLog : public QPlainTextEdit {
    Q_OBJECT

public:
    explicit statusLog(QWidget* parent);

    void showEnd();

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;

private:
    int grabbedAt = 0;   ///< where the finger came down
    int grabbedLine = 0; ///< the topmost line then
};
