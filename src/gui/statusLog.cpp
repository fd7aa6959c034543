#include "statusLog.h"

#include <QMouseEvent>
#include <QScrollBar>

statusLog::statusLog(QWidget* parent) : QPlainTextEdit(parent) {
    setReadOnly(true);
    setFocusPolicy(Qt::NoFocus);
    setTextInteractionFlags(Qt::NoTextInteraction);
    setContextMenuPolicy(Qt::NoContextMenu);
    viewport()->setCursor(Qt::ArrowCursor);
}

void statusLog::showEnd() {
    verticalScrollBar()->setValue(verticalScrollBar()->maximum());
}

void statusLog::mousePressEvent(QMouseEvent* event) {
    grabbedAt = event->pos().y();
    grabbedLine = verticalScrollBar()->value();
    event->accept();
}

/** The bar counts lines. */
void statusLog::mouseMoveEvent(QMouseEvent* event) {
    verticalScrollBar()->setValue(grabbedLine + (grabbedAt - event->pos().y()) / fontMetrics().lineSpacing());
    event->accept();
}

void statusLog::mouseReleaseEvent(QMouseEvent* event) {
    event->accept();
}

void statusLog::mouseDoubleClickEvent(QMouseEvent* event) {
    mousePressEvent(event);
}
