// The "Calibration" menu of the main window: which calibration model the fusion worker
// uses, remembered between sessions.
#pragma once

class QMainWindow;
class QActionGroup;
class FusionWorker;

// Adds the menu to the window's menu bar and applies the remembered choice to the worker
// (the refined model when nothing was chosen yet). The window turns the menu off while a
// walk is collected: frames of one model cannot feed the other.
QActionGroup* installCalibrationModelMenu(QMainWindow& window, FusionWorker& worker);
