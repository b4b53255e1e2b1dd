// Finding the main window's widgets by object name in GUI tests: a missing one ends the
// test at once, with its name, instead of a null dereference later.
#pragma once

#include <QObject>
#include <QtGlobal>

template <typename T>
T* findWidget(const QObject* parent, const char* name) {
    T* widget = parent->findChild<T*>(name);
    if (!widget) qFatal("no widget %s", name);
    return widget;
}
