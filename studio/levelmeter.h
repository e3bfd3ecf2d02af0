#pragma once

#include <QElapsedTimer>
#include <QString>
#include <QWidget>

class QTimer;

// One channel of the output meter: a horizontal bar in dBFS from -60 to 0 with a peak-hold mark.
// Levels may arrive at any rate; the bar repaints on its own ~30 ms timer, so a burst of level
// reports costs one store each and never one paint each.
class LevelMeter : public QWidget
{
    Q_OBJECT

public:
    static constexpr double floorDb = -60.0;
    static constexpr int repaintIntervalMs = 30;
    // The peak mark stays this long before it falls.
    static constexpr int peakHoldMs = 1500;
    // How fast the bar falls when the level drops, dB per second.
    static constexpr double fallDbPerSecond = 24.0;
    // Reports come with every measured buffer while anything plays; a level not reported again
    // for this long is no longer heard, and the bar falls from it.
    static constexpr int reportLapseMs = 300;

    explicit LevelMeter(const QString& label, QWidget* parent = nullptr);

    // Linear peak 0..1, as the engine's levels signal gives it.
    void setLevel(double linear);
    // The bar and the peak mark as last painted, in dBFS (floorDb when silent).
    double levelDb() const { return m_shownDb; }
    double peakDb() const { return m_peakDb; }
    int repaintCount() const { return m_repaints; }

    // 20 × log10(linear), never below floorDb.
    static double toDb(double linear);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void tick();

    QString m_label;
    QTimer* m_timer = nullptr;
    double m_latestDb = floorDb; // the newest report
    double m_windowDb = floorDb; // the loudest report since the last tick
    double m_shownDb = floorDb;  // what the bar shows
    double m_peakDb = floorDb;   // the held peak
    QElapsedTimer m_sinceTick;
    QElapsedTimer m_sinceReport;
    QElapsedTimer m_sincePeak;
    int m_repaints = 0;
};
