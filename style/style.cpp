// Halden's look and feel: palette, fonts, style sheets and message-box set-up.
// Kept in one place so every window and box reads the same.
#include "style/style.hpp"

#include <QAbstractButton>
#include <QApplication>
#include <QFile>
#include <QMessageBox>
#include <QPalette>
#include <QPushButton>
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

// Outside any namespace, as resource registration requires.
static void registerSettingsResources() {
    Q_INIT_RESOURCE(settings);
    Q_INIT_RESOURCE(translations);  // compiled from the .ts sources by the build
}

// The resources live in a static object library; make sure they are registered before
// the first look-up, whatever the link order of the program.
void Style::loadResources() {
    static const bool loaded = [] {
        registerSettingsResources();
        return true;
    }();
    (void)loaded;
}

QString Style::styleSheet() {
    loadResources();
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
    box.setWindowIcon(appIcon());
    box.setStandardButtons(QMessageBox::NoButton);
    QPushButton* ok = box.addButton("Ok", QMessageBox::AcceptRole);
    ok->setFont(font(10, true));
    ok->setStyleSheet(buttonStyle());
    box.setDefaultButton(ok);
}

QString Style::lineEditNormal() {
    return QString("QLineEdit { border: 1px solid %1; border-radius: 3px; padding: 3px; }").arg(clr::textMuted.name());
}

QString Style::lineEditError() {
    return QString("QLineEdit { border: 2px solid %1; border-radius: 3px; padding: 2px; }").arg(clr::error.name());
}

QString Style::buttonStyle() {
    return QString("QPushButton, QToolButton { background: %1; color: %2; border: none; border-radius: 4px;"
                   " padding: 6px 16px; font-weight: bold; }"
                   "QPushButton:hover, QToolButton:hover { background: %3; }"
                   "QPushButton:checked { background: %4; color: %2; }"
                   "QPushButton:disabled, QToolButton:disabled { background: %5; color: %6; }")
        .arg(clr::accent.name(), clr::background.darker(140).name(), clr::accent.lighter(115).name(),
             clr::warning.name(), clr::surface.lighter(125).name(), clr::textMuted.darker(125).name());
}

QIcon Style::appIcon() {
    loadResources();
    return QIcon(":/images/halden_icon.png");
}

void Style::applyTo(QApplication& app) {
    QPalette palette;
    palette.setColor(QPalette::Window, clr::background);
    palette.setColor(QPalette::WindowText, clr::text);
    palette.setColor(QPalette::Base, clr::background.darker(125));
    palette.setColor(QPalette::AlternateBase, clr::surface);
    palette.setColor(QPalette::Text, clr::text);
    palette.setColor(QPalette::Button, clr::surface);
    palette.setColor(QPalette::ButtonText, clr::text);
    palette.setColor(QPalette::Highlight, clr::accent);
    palette.setColor(QPalette::HighlightedText, clr::background);
    palette.setColor(QPalette::ToolTipBase, clr::surface);
    palette.setColor(QPalette::ToolTipText, clr::text);
    palette.setColor(QPalette::Disabled, QPalette::Text, clr::textMuted);
    palette.setColor(QPalette::Disabled, QPalette::WindowText, clr::textMuted);
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, clr::textMuted);
    app.setPalette(palette);
    app.setFont(font(10));
    app.setWindowIcon(appIcon());
    app.setStyleSheet(styleSheet());
}

void Style::styleButton(QAbstractButton& button) {
    button.setStyleSheet(buttonStyle());
    button.setFont(font(10, true));
    // The button owns its style; the one it replaces is dropped with it.
    // (style() may be a style-sheet wrapper that setStyle() frees, so look for our own.)
    CustomStyle* previous = button.findChild<CustomStyle*>(QString(), Qt::FindDirectChildrenOnly);
    auto* style = new CustomStyle();
    style->setParent(&button);
    button.setStyle(style);
    if (previous) previous->deleteLater();
}

CustomStyle::CustomStyle() : QProxyStyle(QStyleFactory::create("Fusion")) {}

int CustomStyle::styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                           QStyleHintReturn* returnData) const {
    if (hint == SH_ToolTip_WakeUpDelay) return 250;
    if (hint == SH_ToolTip_FallAsleepDelay) return 4000;
    return QProxyStyle::styleHint(hint, option, widget, returnData);
}

void CustomStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                                const QWidget* widget) const {
    if (element == PE_FrameFocusRect) return;
    QProxyStyle::drawPrimitive(element, option, painter, widget);
}
