// Each advice kind as one whole translatable sentence: word order differs between
// languages, so sentences are never assembled from translated fragments.
#include "app/calibration_advice.hpp"

#include <QStringList>

namespace {

QString degrees(double value) { return QString::number(value, 'f', 2); }
QString millimetres(double value) { return QString::number(value, 'f', 0); }

}  // namespace

QString CalibrationAdvice::text(const Advice& a) {
    const QString id = QString::number(a.camera), partner = QString::number(a.partner);
    const QString figures = tr("±%1° / %2 mm at 2σ, %3° / %4 mm needed")
                                .arg(degrees(a.rotationDeg), millimetres(a.positionMm))
                                .arg(QString::number(a.neededDeg, 'f', 1), millimetres(a.neededMm));
    switch (a.kind) {
        case AdviceKind::PlacedAnew:
            return tr("It moved during the calibration: its frames from before were dropped and it is being placed "
                      "anew. Keep walking where it and a neighbour both see you.");
        case AdviceKind::NotSeenTogether:
            return tr("Not yet seen together with another camera: walk where it and a neighbour both see you.");
        case AdviceKind::KeepWalkingTogether:
            return tr("Keep walking where %1 and %2 both see you (%3 of %4 frames).")
                .arg(id, partner)
                .arg(a.sharedFrames)
                .arg(a.neededFrames);
        case AdviceKind::FixAndRestart:
            if (!a.apartKnown) return tr("It seems to have moved during the calibration: fix it in place and restart "
                                         "the calibration.");
            return tr("It seems to have moved during the calibration (the first and second half of the walk put it "
                      "%1° and %2 mm apart): fix it in place and restart the calibration.")
                .arg(QString::number(a.apartDeg, 'f', 1), millimetres(a.apartMm));
        case AdviceKind::UncertaintyUnknown:
            return tr("Its uncertainty is not known yet: keep walking where %1 and %2 both see you.").arg(id, partner);
        case AdviceKind::WellPlaced:
            return tr("Well placed: ±%1° / %2 mm at 2σ.").arg(degrees(a.rotationDeg), millimetres(a.positionMm));
        case AdviceKind::ModelLimit:
            return tr("%1. Walking longer will not bring it under %2 mm: this calibration model cannot tell the "
                      "trackers' pull toward the camera from where the camera stands.")
                .arg(figures, millimetres(a.floorMm));
        case AdviceKind::CoverEdge: {
            const QString edges[] = {tr("Cover the left edge of %1's view, where %2 also sees you."),
                                     tr("Cover the right edge of %1's view, where %2 also sees you."),
                                     tr("Cover the top edge of %1's view, where %2 also sees you."),
                                     tr("Cover the bottom edge of %1's view, where %2 also sees you.")};
            return figures + ". " + edges[static_cast<int>(a.edge)].arg(id, partner);
        }
        case AdviceKind::WalkNearAndFar:
            return tr("%1. Walk where %2 and %3 both see you, near and far, facing both.").arg(figures, id, partner);
    }
    return QString();
}

QString CalibrationAdvice::peopleInView(const std::vector<calib::CameraPeople>& cameras) {
    QStringList parts;
    for (const calib::CameraPeople& c : cameras) {
        QString state;
        if (c.people == 0)
            state = tr("nobody");
        else if (c.people == 1)
            state = c.used ? tr("1 person, used") : tr("1 person, not paired yet");
        else
            state = (c.used ? tr("%1 people, used") : tr("%1 people, not paired yet")).arg(c.people);
        parts << tr("%1: %2").arg(c.camera).arg(state);
    }
    return parts.join("; ");
}
