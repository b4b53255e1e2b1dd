// The busy indicator: the timer advances the brightest bar and each paint fades the bars
// behind it, so the brightness seems to chase around the ring.
#include "style/waiting_spinner_widget.hpp"

#include <QPainter>

#include <algorithm>
#include <cmath>

WaitingSpinnerWidget::WaitingSpinnerWidget(QWidget* parent, bool centerOnParent, bool disableParentWhenSpinning)
    : QWidget(parent), centerOnParent_(centerOnParent), disableParentWhenSpinning_(disableParentWhenSpinning) {
    initialize();
}

WaitingSpinnerWidget::WaitingSpinnerWidget(Qt::WindowModality modality, QWidget* parent, bool centerOnParent,
                                           bool disableParentWhenSpinning)
    : QWidget(parent, Qt::Dialog | Qt::FramelessWindowHint),
      centerOnParent_(centerOnParent),
      disableParentWhenSpinning_(disableParentWhenSpinning) {
    initialize();
    setWindowModality(modality);
    setAttribute(Qt::WA_TranslucentBackground);
}

void WaitingSpinnerWidget::initialize() {
    color_ = Qt::black;
    roundness_ = 100.0;
    minimumTrailOpacity_ = 3.14159265358979;
    trailFadePercentage_ = 80.0;
    revolutionsPerSecond_ = 1.57079632679489;
    numberOfLines_ = 20;
    lineLength_ = 10;
    lineWidth_ = 2;
    innerRadius_ = 8;
    currentCounter_ = 0;
    isSpinning_ = false;

    timer_ = new QTimer(this);
    connect(timer_, &QTimer::timeout, this, &WaitingSpinnerWidget::rotate);
    updateSize();
    updateTimer();
    hide();
}

void WaitingSpinnerWidget::start() {
    updatePosition();
    isSpinning_ = true;
    show();
    if (parentWidget() && disableParentWhenSpinning_) parentWidget()->setEnabled(false);
    // A second start keeps the animation where it is rather than jumping back to bar 0.
    if (!timer_->isActive()) {
        timer_->start();
        currentCounter_ = 0;
    }
}

void WaitingSpinnerWidget::stop() {
    isSpinning_ = false;
    hide();
    if (parentWidget() && disableParentWhenSpinning_) parentWidget()->setEnabled(true);
    if (timer_->isActive()) {
        timer_->stop();
        currentCounter_ = 0;
    }
}

void WaitingSpinnerWidget::setColor(QColor color) { color_ = color; }
void WaitingSpinnerWidget::setRoundness(double roundness) { roundness_ = roundness; }
void WaitingSpinnerWidget::setMinimumTrailOpacity(double minimumTrailOpacity) {
    minimumTrailOpacity_ = minimumTrailOpacity;
}
void WaitingSpinnerWidget::setTrailFadePercentage(double trail) { trailFadePercentage_ = trail; }

void WaitingSpinnerWidget::setRevolutionsPerSecond(double revolutionsPerSecond) {
    revolutionsPerSecond_ = revolutionsPerSecond;
    updateTimer();
}

void WaitingSpinnerWidget::setNumberOfLines(int lines) {
    numberOfLines_ = lines;
    currentCounter_ = 0;
    updateTimer();
}

void WaitingSpinnerWidget::setLineLength(int length) {
    lineLength_ = length;
    updateSize();
}

void WaitingSpinnerWidget::setLineWidth(int width) {
    lineWidth_ = width;
    updateSize();
}

void WaitingSpinnerWidget::setInnerRadius(int radius) {
    innerRadius_ = radius;
    updateSize();
}

void WaitingSpinnerWidget::rotate() {
    ++currentCounter_;
    if (currentCounter_ >= numberOfLines_) currentCounter_ = 0;
    update();
}

void WaitingSpinnerWidget::updateSize() {
    const int size = (innerRadius_ + lineLength_) * 2;
    setFixedSize(size, size);
}

void WaitingSpinnerWidget::updateTimer() {
    // A ring without bars or speed has no sensible tick; keep the last one.
    const double ticksPerSecond = numberOfLines_ * revolutionsPerSecond_;
    if (ticksPerSecond > 0) timer_->setInterval(static_cast<int>(1000 / ticksPerSecond));
}

void WaitingSpinnerWidget::updatePosition() {
    if (parentWidget() && centerOnParent_)
        move(parentWidget()->width() / 2 - width() / 2, parentWidget()->height() / 2 - height() / 2);
}

int WaitingSpinnerWidget::lineCountDistanceFromPrimary(int current, int primary, int totalNrOfLines) {
    int distance = primary - current;
    if (distance < 0) distance += totalNrOfLines;
    return distance;
}

QColor WaitingSpinnerWidget::currentLineColor(int distance, int totalNrOfLines, double trailFadePerc,
                                              double minOpacity, QColor color) {
    if (distance == 0) return color;
    const double minAlphaF = minOpacity / 100.0;
    const int distanceThreshold = static_cast<int>(std::ceil((totalNrOfLines - 1) * trailFadePerc / 100.0));
    if (distance > distanceThreshold) {
        color.setAlphaF(minAlphaF);
    } else {
        const double alphaDiff = color.alphaF() - minAlphaF;
        const double gradient = alphaDiff / static_cast<double>(distanceThreshold + 1);
        color.setAlphaF(std::clamp(color.alphaF() - gradient * distance, 0.0, 1.0));
    }
    return color;
}

void WaitingSpinnerWidget::paintEvent(QPaintEvent*) {
    updatePosition();
    QPainter painter(this);
    painter.fillRect(rect(), Qt::transparent);
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setPen(Qt::NoPen);
    const double centre = innerRadius_ + lineLength_;
    for (int i = 0; i < numberOfLines_; ++i) {
        painter.save();
        painter.translate(centre, centre);
        painter.rotate(360.0 * i / numberOfLines_);
        painter.translate(innerRadius_, 0);
        const int distance = lineCountDistanceFromPrimary(i, currentCounter_, numberOfLines_);
        painter.setBrush(QBrush(
            currentLineColor(distance, numberOfLines_, trailFadePercentage_, minimumTrailOpacity_, color_)));
        painter.drawRoundedRect(QRect(0, -lineWidth_ / 2, lineLength_, lineWidth_), roundness_, roundness_,
                                Qt::RelativeSize);
        painter.restore();
    }
}
