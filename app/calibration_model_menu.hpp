// The "Calibration" menu of the main window: which calibration model the fusion worker
// uses, remembered between sessions.
#pragma once

class QMainWindow;
class FusionWorker;

// Adds the menu to the window's menu bar and applies the remembered choice to the worker
// (the refined model when nothing was chosen yet).
void installCalibrationModelMenu(QMainWindow& window, FusionWorker& worker);
