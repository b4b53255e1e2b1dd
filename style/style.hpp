// Look and feel: the named colours, fonts, style sheets and the proxy style every widget
// and message box of Halden uses.
#pragma once

#include <QColor>
#include <QFont>
#include <QIcon>
#include <QProxyStyle>
#include <QString>

class QAbstractButton;
class QApplication;
class QMessageBox;
class QWidget;

namespace clr {
// The palette Halden is drawn with.
extern const QColor background;   // window background
extern const QColor surface;      // panels, dialogs
extern const QColor text;         // primary text
extern const QColor textMuted;    // secondary text
extern const QColor accent;       // primary actions, focus
extern const QColor success;
extern const QColor warning;
extern const QColor error;
}  // namespace clr

class Style {
public:
    // Registers the images, fonts and style sheet; safe to call more than once.
    static void loadResources();
    // The application-wide style sheet (from the resources).
    static QString styleSheet();
    // The font of the given point size, from the bundled font family.
    static QFont font(int pointSize = 10, bool bold = false);
    // Title, icon, text and one "Ok" button in Halden's look.
    static void setupMsgBox(QMessageBox& box);
    // Style sheets of a line edit holding valid input and invalid input.
    static QString lineEditNormal();
    static QString lineEditError();
    // Style sheet of a primary action button.
    static QString buttonStyle();
    // Halden's window icon.
    static QIcon appIcon();
    // Palette, font and style sheet for the whole application, so dialogs that are not
    // styled one by one still match.
    static void applyTo(QApplication& app);
    // Style sheet, font and a fresh CustomStyle (owned by the button) on a main action.
    static void styleButton(QAbstractButton& button);
};

// Proxy style for Halden's buttons: no dotted focus frame over the flat colours, and
// tooltips that come quickly, since a disabled button's tooltip says why it is disabled.
class CustomStyle : public QProxyStyle {
public:
    CustomStyle();
    int styleHint(StyleHint hint, const QStyleOption* option = nullptr, const QWidget* widget = nullptr,
                  QStyleHintReturn* returnData = nullptr) const override;
    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget = nullptr) const override;
};
