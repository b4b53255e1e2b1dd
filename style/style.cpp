// Halden's look and feel: palette, fonts, style sheets and message-box set-up.
// Kept in one place so every window and box reads the same.
#include "style/style.hpp"

#include <QPushButton>
#include <QFile>
#include <QMessageBox>
#include <QStyleFactory>

namespace clr {
const QColor background(0x1e, 0x22, 0x28);
const QColor surface(0x2a, 0x2f, 0x37);
const QColor text(0xe8, 0xea, 0xed);
const QColor textMuted(0x9a, 0xa3, 0xad);
const QColor accent(0x3d, 0xa5, 0xd9);
const QColor success(0x4c, 0xaf, 0x50);
const QColor warning(0xf0, 0xa5, 0x2b);
const QColor error(0xe5, 0x4b, 0x4b);
}  // namespace clr

QString Style::styleSheet() {
    QFile file(":/style/halden.qss");
    if (!file.open(QIODevice::ReadOnly)) return QString();
    return QString::fromUtf8(file.readAll());
}

QFont Style::font(int pointSize, bool bold) {
    QFont f("DejaVu Sans", pointSize);
    f.setBold(bold);
    return f;
}

void Style::setupMsgBox(QMessageBox& box) {
    box.setStyleSheet(styleSheet());
    box.setFont(font(10));
    box.setStandardButtons(QMessageBox::NoButton);
    QPushButton* ok = box.addButton("Ok", QMessageBox::AcceptRole);
    ok->setFont(font(10, true));
    ok->setStyleSheet(buttonStyle());
}

QString Style::lineEditNormal() {
    return QString("QLineEdit { border: 1px solid %1; border-radius: 3px; padding: 3px; }").arg(clr::textMuted.name());
}

QString Style::lineEditError() {
    return QString("QLineEdit { border: 2px solid %1; border-radius: 3px; padding: 2px; }").arg(clr::error.name());
}

QString Style::buttonStyle() {
    return QString("QPushButton, QToolButton { background: %1; color: %2; border-radius: 4px; padding: 6px 14px; }"
                   "QPushButton:disabled, QToolButton:disabled { background: %3; color: %4; }")
        .arg(clr::accent.name(), clr::text.name(), clr::surface.name(), clr::textMuted.name());
}

CustomStyle::CustomStyle() : QProxyStyle(QStyleFactory::create("Fusion")) {}
