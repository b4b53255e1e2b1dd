// Finding the main window's widgets by object name in GUI tests: a missing one ends the
// test at once, with its name, instead of a null dereference later.
#pragma once

#include <QLabel>
#include <QObject>
#include <QtGlobal>

template <typename T>
T* findWidget(const QObject* parent, const char* name) {
    T* widget = parent->findChild<T*>(name);
    if (!widget) qFatal("no widget %s", name);
    return widget;
}

// The first shown word-wrapped label under `parent` too short for its text at its width,
// as "height < needed: text"; empty when every one shows whole.
inline QString clippedLabel(const QWidget* parent) {
    for (QLabel* label : parent->findChildren<QLabel*>()) {
        if (!label->isVisible() || !label->wordWrap()) continue;
        const QRect inside = label->contentsRect();
        const int needed =
            label->fontMetrics().boundingRect(QRect(0, 0, inside.width(), 10000), Qt::TextWordWrap, label->text()).height();
        if (inside.height() < needed) return QString("%1 < %2: %3").arg(inside.height()).arg(needed).arg(label->text());
    }
    return QString();
}
