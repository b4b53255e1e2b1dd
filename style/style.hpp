// Look and feel: the named colours, fonts, style sheets and the proxy style every widget
// and message box of Halden uses.
#pragma once

#include <QColor>
#include <QFont>
#include <QProxyStyle>
#include <QString>

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
};

// Proxy style applied to buttons so that disabled and checked states read clearly.
class CustomStyle : public QProxyStyle {
public:
    CustomStyle();
};
