// Process-wide set-up shared by the program and its GUI tests: the user's translation,
// the "Fusion" widget style and Halden's look.
#pragma once

class QApplication;
class QTranslator;

// Installs the first translation in the resources that matches one of the user's
// interface languages; false when none does (the texts stay in English).
bool installTranslation(QApplication& app, QTranslator& translator);

// The "Fusion" widget style, Halden's palette, font, icon and style sheet.
void applyLook(QApplication& app);
