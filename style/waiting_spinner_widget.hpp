// The busy indicator shown while a room starts: a ring of rounded bars whose brightness
// chases around the ring; it can centre itself on its parent and disable it meanwhile.
#pragma once

#include <QColor>
#include <QTimer>
#include <QWidget>

class WaitingSpinnerWidget : public QWidget {
    Q_OBJECT
public:
    // A child widget of the parent.
    explicit WaitingSpinnerWidget(QWidget* parent = nullptr, bool centerOnParent = true,
                                  bool disableParentWhenSpinning = true);
    // A frameless, translucent top-level window of the given modality.
    WaitingSpinnerWidget(Qt::WindowModality modality, QWidget* parent = nullptr, bool centerOnParent = true,
                         bool disableParentWhenSpinning = true);

public slots:
    void start();
    void stop();

public:
    void setColor(QColor color);
    void setRoundness(double roundness);
    void setMinimumTrailOpacity(double minimumTrailOpacity);
    void setTrailFadePercentage(double trail);
    void setRevolutionsPerSecond(double revolutionsPerSecond);
    void setNumberOfLines(int lines);
    void setLineLength(int length);
    void setLineWidth(int width);
    void setInnerRadius(int radius);

    QColor color() const { return color_; }
    double roundness() const { return roundness_; }
    double minimumTrailOpacity() const { return minimumTrailOpacity_; }
    double trailFadePercentage() const { return trailFadePercentage_; }
    // The misspelling is part of the widget's long-standing interface.
    double revolutionsPersSecond() const { return revolutionsPerSecond_; }
    int numberOfLines() const { return numberOfLines_; }
    int lineLength() const { return lineLength_; }
    int lineWidth() const { return lineWidth_; }
    int innerRadius() const { return innerRadius_; }
    bool isSpinning() const { return isSpinning_; }

    // Index of the brightest bar.
    int currentCounter() const { return currentCounter_; }
    int timerInterval() const { return timer_->interval(); }

    // How many bars behind the brightest one the bar `current` is.
    static int lineCountDistanceFromPrimary(int current, int primary, int totalNrOfLines);
    // The colour of a bar `distance` bars behind the brightest one.
    static QColor currentLineColor(int distance, int totalNrOfLines, double trailFadePerc, double minOpacity,
                                   QColor color);

protected:
    void paintEvent(QPaintEvent* event) override;

private slots:
    void rotate();

private:
    void initialize();
    void updateSize();
    void updateTimer();
    void updatePosition();

    QColor color_;
    double roundness_;
    double minimumTrailOpacity_;
    double trailFadePercentage_;
    double revolutionsPerSecond_;
    int numberOfLines_;
    int lineLength_;
    int lineWidth_;
    int innerRadius_;
    QTimer* timer_ = nullptr;
    bool centerOnParent_;
    bool disableParentWhenSpinning_;
    int currentCounter_ = 0;
    bool isSpinning_ = false;
};
