#include "levelmeter.h"

#include <QPainter>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace {

constexpr int labelWidth = 14;

QColor colourFor(double db)
{
    if (db >= -6.0)
        return QColor(220, 50, 40);
    if (db >= -18.0)
        return QColor(235, 190, 40);
    return QColor(60, 190, 80);
}

} // namespace

LevelMeter::LevelMeter(const QString& label, QWidget* parent) : QWidget(parent), m_label(label)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    m_timer = new QTimer(this);
    m_timer->setInterval(repaintIntervalMs);
    connect(m_timer, &QTimer::timeout, this, &LevelMeter::tick);
    m_timer->start();
    m_sinceTick.start();
    m_sincePeak.start();
}

double LevelMeter::toDb(double linear)
{
    if (!(linear > 0.0))
        return floorDb;
    return std::clamp(20.0 * std::log10(linear), floorDb, 0.0);
}

void LevelMeter::setLevel(double linear)
{
    m_latestDb = toDb(linear);
    m_windowDb = std::max(m_windowDb, m_latestDb);
    m_sinceReport.start();
}

void LevelMeter::tick()
{
    const double seconds = m_sinceTick.restart() / 1000.0;
    if (!m_sinceReport.isValid() || m_sinceReport.elapsed() > reportLapseMs)
        m_latestDb = floorDb;
    const double target = m_windowDb;
    m_windowDb = m_latestDb;
    // Rise at once, fall at a steady rate: a meter that a presenter can read.
    const double fallen = std::max(m_shownDb - fallDbPerSecond * seconds, floorDb);
    const double shown = std::max(target, fallen);
    double peak = m_peakDb;
    if (shown >= peak) {
        peak = shown;
        m_sincePeak.restart();
    } else if (m_sincePeak.elapsed() > peakHoldMs) {
        peak = std::max(peak - fallDbPerSecond * seconds, shown);
    }
    if (shown == m_shownDb && peak == m_peakDb)
        return;
    m_shownDb = shown;
    m_peakDb = peak;
    update();
}

QSize LevelMeter::sizeHint() const
{
    return QSize(260, 14);
}

QSize LevelMeter::minimumSizeHint() const
{
    return QSize(80, 10);
}

void LevelMeter::paintEvent(QPaintEvent*)
{
    ++m_repaints;
    QPainter painter(this);
    painter.fillRect(rect(), palette().window());
    painter.setPen(palette().color(QPalette::WindowText));
    const QRect labelRect(0, 0, labelWidth, height());
    painter.drawText(labelRect, Qt::AlignCenter, m_label);

    const QRect bar = rect().adjusted(labelWidth + 2, 1, -1, -1);
    painter.fillRect(bar, QColor(30, 30, 30));
    const auto xFor = [&bar](double db) {
        const double fraction = (db - floorDb) / -floorDb;
        return bar.left() + int(std::lround(fraction * bar.width()));
    };
    const int x = xFor(m_shownDb);
    if (x > bar.left()) {
        // Three zones, each painted only as far as the level reaches.
        const double zones[][2] = {{floorDb, -18.0}, {-18.0, -6.0}, {-6.0, 0.0}};
        for (const auto& zone : zones) {
            const int from = xFor(zone[0]);
            const int to = std::min(xFor(zone[1]), x);
            if (to > from)
                painter.fillRect(QRect(from, bar.top(), to - from, bar.height()), colourFor(zone[0]));
        }
    }
    if (m_peakDb > floorDb) {
        const int px = std::min(xFor(m_peakDb), bar.right() - 1);
        painter.fillRect(QRect(px, bar.top(), 2, bar.height()), colourFor(m_peakDb).lighter(130));
    }
    // Scale ticks every 6 dB.
    painter.setPen(QColor(90, 90, 90));
    for (int db = -54; db < 0; db += 6)
        painter.drawLine(xFor(db), bar.bottom() - 2, xFor(db), bar.bottom());
}
