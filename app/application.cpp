// Translation look-up and application-wide look, kept apart from main so tests start the
// application exactly as the program does.
#include "app/application.hpp"

#include <QApplication>
#include <QLocale>
#include <QStyleFactory>
#include <QTranslator>

#include "style/style.hpp"

bool installTranslation(QApplication& app, QTranslator& translator) {
    Style::loadResources();
    for (const QString& locale : QLocale::system().uiLanguages()) {
        const QString baseName = "untitled_" + QLocale(locale).name();
        if (translator.load(":/i18n/" + baseName)) {
            app.installTranslator(&translator);
            return true;
        }
    }
    return false;
}

void applyLook(QApplication& app) {
    QApplication::setStyle(QStyleFactory::create("Fusion"));
    Style::applyTo(app);
}
