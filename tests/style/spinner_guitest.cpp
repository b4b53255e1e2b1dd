// The busy spinner: its size and tick, the chase of the brightest bar, the fading trail,
// and what it does to its parent while it turns.
#include <QSignalSpy>
#include <QTest>

#include "style/waiting_spinner_widget.hpp"

class SpinnerTest : public QObject {
    Q_OBJECT
private slots:
    void defaultsGiveTheExpectedGeometryAndTick();
    void startStopCentresAndDisablesTheParent();
    void secondStartKeepsTheAnimationGoing();
    void counterWrapsAndSingleBarIsAlwaysBrightest();
    void trailFadesToTheMinimumOpacity();
    void paintsTheBrightestBarOpaque();
};

void SpinnerTest::defaultsGiveTheExpectedGeometryAndTick() {
    WaitingSpinnerWidget spinner;
    QCOMPARE(spinner.size(), QSize(36, 36));
    QCOMPARE(spinner.timerInterval(), 31);
    QVERIFY(spinner.isHidden());

    spinner.setInnerRadius(20);
    spinner.setLineLength(5);
    QCOMPARE(spinner.size(), QSize(50, 50));
    spinner.setRevolutionsPerSecond(1.0);
    spinner.setNumberOfLines(8);
    QCOMPARE(spinner.timerInterval(), 125);
    QCOMPARE(spinner.revolutionsPersSecond(), 1.0);
}

void SpinnerTest::startStopCentresAndDisablesTheParent() {
    QWidget parent;
    parent.resize(201, 101);
    WaitingSpinnerWidget spinner(&parent);
    parent.show();
    QVERIFY(QTest::qWaitForWindowExposed(&parent));

    spinner.start();
    QVERIFY(spinner.isSpinning());
    QVERIFY(spinner.isVisible());
    QVERIFY(!parent.isEnabled());
    QCOMPARE(spinner.pos(), QPoint(100 - 18, 50 - 18));

    spinner.stop();
    QVERIFY(!spinner.isSpinning());
    QVERIFY(!spinner.isVisible());
    QVERIFY(parent.isEnabled());
    QCOMPARE(spinner.currentCounter(), 0);
}

void SpinnerTest::secondStartKeepsTheAnimationGoing() {
    QWidget parent;
    WaitingSpinnerWidget spinner(&parent);
    parent.show();
    spinner.start();
    QTRY_VERIFY_WITH_TIMEOUT(spinner.currentCounter() >= 2, 10000);
    const int before = spinner.currentCounter();
    // No tick can land between the two reads: a restart would show as bar 0 here.
    spinner.start();
    QCOMPARE(spinner.currentCounter(), before);
    // And the timer still runs: the chase goes on from where it was.
    QTRY_VERIFY_WITH_TIMEOUT(spinner.currentCounter() != before, 10000);
    spinner.stop();
}

void SpinnerTest::counterWrapsAndSingleBarIsAlwaysBrightest() {
    QWidget parent;
    WaitingSpinnerWidget spinner(&parent);
    spinner.setNumberOfLines(3);
    spinner.setRevolutionsPerSecond(20.0);
    parent.show();
    spinner.start();
    // Seeing the counter go back to 0 after 2 proves the wrap at numberOfLines.
    QTRY_VERIFY_WITH_TIMEOUT(spinner.currentCounter() == 2, 10000);
    QTRY_VERIFY_WITH_TIMEOUT(spinner.currentCounter() == 0, 10000);
    spinner.stop();

    spinner.setNumberOfLines(1);
    spinner.start();
    QTest::qWait(100);
    QCOMPARE(spinner.currentCounter(), 0);
    QCOMPARE(WaitingSpinnerWidget::lineCountDistanceFromPrimary(0, 0, 1), 0);
    spinner.stop();
}

void SpinnerTest::trailFadesToTheMinimumOpacity() {
    QCOMPARE(WaitingSpinnerWidget::lineCountDistanceFromPrimary(3, 5, 20), 2);
    QCOMPARE(WaitingSpinnerWidget::lineCountDistanceFromPrimary(5, 3, 20), 18);

    const QColor black(Qt::black);
    QCOMPARE(WaitingSpinnerWidget::currentLineColor(0, 20, 80.0, 3.14, black), black);
    // threshold = ceil(19 * 0.8) = 16; each step removes (1 - 0.05) / 17 of alpha.
    const QColor near = WaitingSpinnerWidget::currentLineColor(1, 20, 80.0, 5.0, black);
    QVERIFY(qAbs(near.alphaF() - (1.0 - 0.95 / 17)) < 1e-3);
    const QColor edge = WaitingSpinnerWidget::currentLineColor(16, 20, 80.0, 5.0, black);
    QVERIFY(qAbs(edge.alphaF() - (1.0 - 16 * 0.95 / 17)) < 1e-3);
    const QColor beyond = WaitingSpinnerWidget::currentLineColor(17, 20, 80.0, 5.0, black);
    QVERIFY(qAbs(beyond.alphaF() - 0.05) < 1e-3);
    QCOMPARE(beyond.rgb(), black.rgb());
}

void SpinnerTest::paintsTheBrightestBarOpaque() {
    WaitingSpinnerWidget spinner;
    spinner.setColor(Qt::red);
    spinner.setLineWidth(6);
    QImage image(spinner.size(), QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    spinner.render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
    // Bar 0 points right from the centre; bar 10 points left, half-way down the trail
    // (alpha 1 - 10 x 0.969 / 17); bar 1, 18 degrees clockwise, is the last of the trail.
    const QColor bright = image.pixelColor(18 + 8 + 5, 18);
    const QColor half = image.pixelColor(18 - 8 - 5, 18);
    const QColor last = image.pixelColor(30, 22);
    QVERIFY2(bright.red() > 200 && bright.alpha() > 200, qPrintable(bright.name(QColor::HexArgb)));
    QVERIFY2(half.alpha() > 95 && half.alpha() < 130, qPrintable(half.name(QColor::HexArgb)));
    QVERIFY2(last.alpha() < 30, qPrintable(last.name(QColor::HexArgb)));
}

QTEST_MAIN(SpinnerTest)
#include "spinner_guitest.moc"
