#include "onairdisplay.h"

#include "audioengine.h"
#include "playlistmodel.h"
#include "settingkeys.h"
#include "studioschedule.h"

#include <QDateTime>
#include <QGridLayout>
#include <QLabel>
#include <QProgressBar>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <cstdlib>

namespace {

const QString nothingOnAir = QStringLiteral("Nothing on air");
const QString nothingNext = QStringLiteral("—");
const QString shuffleNext = QStringLiteral("(shuffle picks the next row)");
const QString liveText = QStringLiteral("LIVE");
const QString timedEventFormat = QStringLiteral("%1 %2 – %3");
const QString dueNowText = QStringLiteral("due now");
const QString countdownFormat = QStringLiteral("in %1");
const QString overFormat = QStringLiteral("+%1 over");
const QString underFormat = QStringLiteral("-%1 under");
const QString onTimeText = QStringLiteral("on time");
const QString unknownLengthText = QStringLiteral("length unknown");
const QString jumpsBackFormat = QStringLiteral("jumps back to row %1");
const QString waitsForPlayText = QStringLiteral(" (waits for Play after a STOP)");
// How often the plan is recomputed while the list stands still (milliseconds).
constexpr qint64 timedPlanEveryMs = 1000;

QLabel* bigLabel(QWidget* parent, int pointSize, bool bold)
{
    auto* label = new QLabel(parent);
    QFont font = label->font();
    font.setPointSize(pointSize);
    font.setBold(bold);
    label->setFont(font);
    return label;
}

} // namespace

OnAirDisplay::OnAirDisplay(AudioEngine* engine, PlaylistModel* playlist, QWidget* parent)
    : QWidget(parent), m_engine(engine), m_playlist(playlist)
{
    setAutoFillBackground(true);
    QPalette pal = palette();
    pal.setColor(QPalette::Window, QColor(24, 28, 36));
    pal.setColor(QPalette::WindowText, QColor(235, 235, 235));
    setPalette(pal);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(10, 8, 10, 8);
    column->setSpacing(4);

    auto* top = new QHBoxLayout;
    m_now = bigLabel(this, 18, true);
    m_now->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_now->setMinimumWidth(200);
    m_clock = bigLabel(this, 18, true);
    m_clock->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    top->addWidget(m_now, 1);
    top->addWidget(m_clock);
    column->addLayout(top);

    auto* times = new QHBoxLayout;
    m_elapsed = bigLabel(this, 14, false);
    m_intro = bigLabel(this, 14, true);
    m_intro->setAlignment(Qt::AlignCenter);
    m_intro->setStyleSheet(QStringLiteral("color: #ffb84d;"));
    m_remaining = bigLabel(this, 22, true);
    m_remaining->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_remaining->setStyleSheet(QStringLiteral("color: #7fdc8a;"));
    times->addWidget(m_elapsed);
    times->addWidget(m_intro, 1);
    times->addWidget(m_remaining);
    column->addLayout(times);

    m_progress = new QProgressBar(this);
    m_progress->setRange(0, 1000);
    m_progress->setTextVisible(false);
    m_progress->setFixedHeight(10);
    column->addWidget(m_progress);

    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(8);
    m_next = addCaptioned(grid, 0, 0, QStringLiteral("Next:"));
    m_endsAt = addCaptioned(grid, 0, 2, QStringLiteral("Ends at"));
    m_totalLeft = addCaptioned(grid, 0, 4, QStringLiteral("Left"));
    m_timedEvent = addCaptioned(grid, 1, 0, QStringLiteral("Timed:"));
    m_timedEvent->setStyleSheet(QStringLiteral("color: #ffb84d;"));
    m_timedCountdown = addCaptioned(grid, 1, 2, QStringLiteral("Countdown"));
    m_timedOverUnder = addCaptioned(grid, 1, 4, QStringLiteral("Before it"));
    grid->setColumnStretch(1, 1);
    column->addLayout(grid);

    m_clockSource = [] { return QDateTime::currentDateTime(); };
    const auto stale = [this] {
        m_lengthAfterStale = true;
        m_timedRowsStale = true;
    };
    connect(playlist, &QAbstractItemModel::rowsInserted, this, stale);
    connect(playlist, &QAbstractItemModel::rowsRemoved, this, stale);
    connect(playlist, &QAbstractItemModel::modelReset, this, stale);
    connect(playlist, &QAbstractItemModel::dataChanged, this, stale);
    connect(engine, &AudioEngine::currentRowChanged, this, stale);

    m_timer = new QTimer(this);
    m_timer->setInterval(tickMs);
    connect(m_timer, &QTimer::timeout, this, &OnAirDisplay::refresh);
    m_timer->start();
    refresh();
}

QLabel* OnAirDisplay::addCaptioned(QGridLayout* grid, int row, int column, const QString& caption)
{
    auto* captionLabel = new QLabel(caption, this);
    captionLabel->setStyleSheet(QStringLiteral("color: #9aa4b5;"));
    auto* value = new QLabel(this);
    QFont font = value->font();
    font.setBold(true);
    value->setFont(font);
    grid->addWidget(captionLabel, row, column, Qt::AlignLeft);
    grid->addWidget(value, row, column + 1, Qt::AlignLeft);
    return value;
}

void OnAirDisplay::refresh()
{
    const QList<Track>& rows = m_playlist->tracks();
    const int row = m_engine->currentRow();
    const bool onAir = row >= 0 && row < rows.size();
    const Track& current = m_engine->currentTrack();

    const QDateTime now = m_clockSource();
    m_clock->setText(now.time().toString(QStringLiteral("HH:mm:ss")));
    m_now->setText(onAir ? StudioSchedule::trackText(current) : nothingOnAir);

    const qint64 position = std::max<qint64>(m_engine->position(), 0);
    // The end as the engine plays it (a cue-out in use ends the track early): the presenter counts
    // down to that.
    const qint64 duration = m_engine->effectiveDuration();
    const bool sounding = onAir && !current.isCommand;
    if (sounding && duration > 0) {
        m_remainingMs = std::max<qint64>(duration - position, 0);
        m_elapsed->setText(StudioSchedule::formatLength(position));
        m_remaining->setText(QStringLiteral("-") + StudioSchedule::formatLength(m_remainingMs));
        m_progress->setValue(int(std::clamp<qint64>(position * 1000 / duration, 0, 1000)));
    } else {
        m_remainingMs = -1;
        m_elapsed->setText(sounding ? StudioSchedule::formatLength(position) : QStringLiteral("0:00"));
        m_remaining->setText(sounding && current.isStream ? liveText : QStringLiteral("--:--"));
        m_progress->setValue(0);
    }

    const qint64 intro = sounding ? m_engine->currentParams().intro : 0;
    if (intro > position)
        m_intro->setText(
            QStringLiteral("Intro %1").arg(StudioSchedule::formatLength(intro - position + 999)));
    else
        m_intro->clear();

    const int next = m_engine->nextRow();
    if (next >= 0 && next < rows.size())
        m_next->setText(StudioSchedule::trackText(rows.at(next)));
    else if (m_engine->isShuffle() && rows.size() > 1)
        m_next->setText(shuffleNext);
    else
        m_next->setText(nothingNext);

    const QTime end = StudioSchedule::plannedEnd(rows);
    m_endsAt->setText(end.isValid() ? end.toString(QStringLiteral("h:mm:ss AP")) : QStringLiteral("--"));
    if (m_lengthAfterStale) {
        m_lengthAfter = StudioSchedule::lengthAfter(rows, onAir ? row : -1);
        m_lengthAfterStale = false;
    }
    const qint64 left = m_lengthAfter + (m_remainingMs > 0 ? m_remainingMs : 0);
    m_totalLeft->setText(StudioSchedule::formatLength(left));
    refreshTimedEvent(now);
}

void OnAirDisplay::setClock(std::function<QDateTime()> now)
{
    m_clockSource = std::move(now);
    m_timedPlannedAt = 0;
    refresh();
}

void OnAirDisplay::refreshTimedEvent(const QDateTime& now)
{
    const QList<Track>& rows = m_playlist->tracks();
    const bool rowsChanged = m_timedRowsStale;
    if (m_timedRowsStale) {
        m_anyTimed = BackTiming::anyTimed(rows);
        m_timedRows.clear();
        if (m_anyTimed) {
            m_timedRows.reserve(rows.size());
            for (const Track& track : rows)
                m_timedRows.append(BackTiming::rowFromTrack(track));
        }
        m_timedRowsStale = false;
    }
    if (!m_anyTimed) {
        m_timedPlan = BackTiming::Plan();
        m_timedEvent->setText(nothingNext);
        m_timedCountdown->clear();
        m_timedOverUnder->clear();
        return;
    }

    const qint64 nowMs = now.toMSecsSinceEpoch();
    if (rowsChanged || m_timedPlannedAt == 0 || std::abs(nowMs - m_timedPlannedAt) >= timedPlanEveryMs) {
        BackTiming::Input input;
        input.rows = m_timedRows;
        input.now = now;
        // The playout's own limit: what it will drop is what the screen calls stale.
        input.lateLimitMs = Settings::timedLateLimitMs.read();
        const int row = m_engine->currentRow();
        if (row >= 0 && row < input.rows.size()) {
            input.currentRow = row;
            input.elapsedMs = std::max<qint64>(m_engine->position(), 0);
            // The end as the engine plays it: a cue-out in use ends the track early.
            const qint64 duration = m_engine->effectiveDuration();
            if (duration > 0 && !input.rows.at(row).endless)
                input.rows[row].lengthMs = duration;
        } else {
            const int next = m_engine->nextRow();
            input.startRow = next >= 0 ? next : 0;
        }
        m_timedPlan = BackTiming::plan(input);
        m_timedPlannedAt = nowMs;
    }

    const BackTiming::Event* event = m_timedPlan.next();
    if (event == nullptr || event->row >= rows.size()) {
        m_timedEvent->setText(nothingNext);
        m_timedCountdown->clear();
        m_timedOverUnder->clear();
        return;
    }
    const QString when =
        QDateTime::fromMSecsSinceEpoch(event->atMs).time().toString(QStringLiteral("HH:mm:ss"));
    const QString mode =
        event->mode == TimedStart::Mode::Hard ? QStringLiteral("hard") : QStringLiteral("soft");
    m_timedEvent->setText(timedEventFormat.arg(when, mode, StudioSchedule::trackText(rows.at(event->row))) +
                          (event->waitsForPlay ? waitsForPlayText : QString()));
    // Counted up to the whole second, so "in 0:01" shows until the moment comes.
    const qint64 untilMs = event->atMs - nowMs;
    m_timedCountdown->setText(untilMs > 0 ? countdownFormat.arg(StudioSchedule::formatLength(untilMs + 999))
                                          : dueNowText);
    if (event->jumpsBack)
        m_timedOverUnder->setText(jumpsBackFormat.arg(event->row + 1));
    else if (!event->overUnderKnown)
        m_timedOverUnder->setText(unknownLengthText);
    else if (event->overUnderMs >= 1000)
        m_timedOverUnder->setText(overFormat.arg(StudioSchedule::formatLength(event->overUnderMs)));
    else if (event->overUnderMs <= -1000)
        m_timedOverUnder->setText(underFormat.arg(StudioSchedule::formatLength(-event->overUnderMs)));
    else
        m_timedOverUnder->setText(onTimeText);
}

QString OnAirDisplay::timedEventText() const
{
    return m_timedEvent->text();
}

QString OnAirDisplay::timedCountdownText() const
{
    return m_timedCountdown->text();
}

QString OnAirDisplay::timedOverUnderText() const
{
    return m_timedOverUnder->text();
}

QString OnAirDisplay::nowText() const
{
    return m_now->text();
}

QString OnAirDisplay::elapsedText() const
{
    return m_elapsed->text();
}

QString OnAirDisplay::remainingText() const
{
    return m_remaining->text();
}

QString OnAirDisplay::introText() const
{
    return m_intro->text();
}

QString OnAirDisplay::nextText() const
{
    return m_next->text();
}

QString OnAirDisplay::clockText() const
{
    return m_clock->text();
}

QString OnAirDisplay::endsAtText() const
{
    return m_endsAt->text();
}

QString OnAirDisplay::totalLeftText() const
{
    return m_totalLeft->text();
}

int OnAirDisplay::progressPermille() const
{
    return m_progress->value();
}
