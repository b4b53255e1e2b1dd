// "Export calibration..." in the window's Calibration menu: a saved room calibration
// written in another tool's format, picked by the file name's ending.
#pragma once

class QMainWindow;
class UserPrompts;

// `prompts` must outlive the window.
void installExportAction(QMainWindow& window, UserPrompts& prompts);
