// The calibration's advice and the people in view, worded for the window in the user's
// language; halden-cli and the report keep the calibration library's English.
#pragma once

#include <QCoreApplication>
#include <QString>

#include <vector>

#include "calibration/body_association.hpp"
#include "calibration/calibration_verdict.hpp"

class CalibrationAdvice {
    Q_DECLARE_TR_FUNCTIONS(CalibrationAdvice)

public:
    static QString text(const Advice& advice);
    // "41001: 2 people, used; 41003: nobody; ..."
    static QString peopleInView(const std::vector<calib::CameraPeople>& cameras);
};
