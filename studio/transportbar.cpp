#include "transportbar.h"

#include "audioengine.h"
#include "playlistmodel.h"
#include "settingkeys.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QItemSelectionModel>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QStyle>

#include <algorithm>
#include <cmath>

namespace {

QPushButton* transportButton(const QString& text, QStyle::StandardPixmap icon, const QString& tip,
                             QWidget* parent)
{
    auto* button = new QPushButton(parent->style()->standardIcon(icon), text, parent);
    button->setToolTip(tip);
    button->setMinimumHeight(34);
    return button;
}

} // namespace

TransportBar::TransportBar(AudioEngine* engine, PlaylistModel* playlist, QWidget* parent)
    : QWidget(parent), m_engine(engine), m_playlist(playlist)
{
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(6, 4, 6, 4);
    m_previous = transportButton(QStringLiteral("Previous"), QStyle::SP_MediaSkipBackward,
                                 QStringLiteral("Play the row before the current one"), this);
    m_play = transportButton(QStringLiteral("Play"), QStyle::SP_MediaPlay,
                             QStringLiteral("Start or resume playback"), this);
    m_pause = transportButton(QStringLiteral("Pause"), QStyle::SP_MediaPause,
                              QStringLiteral("Pause or resume the current track"), this);
    m_stop =
        transportButton(QStringLiteral("Stop"), QStyle::SP_MediaStop, QStringLiteral("Stop playback"), this);
    m_next = transportButton(QStringLiteral("Next"), QStyle::SP_MediaSkipForward,
                             QStringLiteral("Play the next row now"), this);
    for (QPushButton* button : {m_previous, m_play, m_pause, m_stop, m_next})
        row->addWidget(button);
    row->addSpacing(16);

    row->addWidget(new QLabel(QStringLiteral("Volume"), this));
    m_volume = new QSlider(Qt::Horizontal, this);
    m_volume->setRange(0, 100);
    m_volume->setFixedWidth(160);
    m_volume->setToolTip(QStringLiteral("Master volume"));
    row->addWidget(m_volume);
    m_volumeText = new QLabel(this);
    m_volumeText->setMinimumWidth(40);
    row->addWidget(m_volumeText);
    row->addSpacing(16);

    m_shuffle = new QCheckBox(QStringLiteral("Shuffle"), this);
    m_shuffle->setToolTip(QStringLiteral("Draw the next row at random when nothing is queued"));
    m_crossfade = new QCheckBox(QStringLiteral("Crossfade"), this);
    m_crossfade->setToolTip(QStringLiteral("Mix from one track into the next"));
    row->addWidget(m_shuffle);
    row->addWidget(m_crossfade);
    row->addStretch(1);

    connect(m_play, &QPushButton::clicked, this, &TransportBar::playOrResume);
    connect(m_pause, &QPushButton::clicked, engine, &AudioEngine::togglePause);
    connect(m_stop, &QPushButton::clicked, engine, &AudioEngine::stop);
    connect(m_next, &QPushButton::clicked, engine, &AudioEngine::next);
    connect(m_previous, &QPushButton::clicked, engine, &AudioEngine::previous);
    connect(m_volume, &QSlider::valueChanged, this, [this](int percent) {
        m_engine->setVolume(percent);
        m_volumeText->setText(QStringLiteral("%1 %").arg(percent));
    });
    connect(m_shuffle, &QCheckBox::toggled, engine, &AudioEngine::setShuffle);
    connect(m_crossfade, &QCheckBox::toggled, this, &TransportBar::setCrossfade);
    connect(engine, &AudioEngine::playingChanged, this, &TransportBar::showPlaying);
    showFromEngine();
    showPlaying(engine->isPlaying());
}

void TransportBar::setCrossfade(bool on)
{
    // Crossfade alone: re-reading every setting would reset the output device and the volume on air.
    Settings::crossfadeEnabled.write(on);
    m_engine->setCrossfadeEnabled(on);
    const QSignalBlocker blocker(m_crossfade);
    m_crossfade->setChecked(m_engine->crossfadeEnabled());
}

void TransportBar::reapplyVolume()
{
    m_engine->setVolume(m_volume->value());
}

void TransportBar::syncCrossfade()
{
    reapplyVolume();
    const QSignalBlocker blocker(m_crossfade);
    m_crossfade->setChecked(m_engine->crossfadeEnabled());
}

void TransportBar::showFromEngine()
{
    const QSignalBlocker volumeBlocker(m_volume);
    const QSignalBlocker crossfadeBlocker(m_crossfade);
    const QSignalBlocker shuffleBlocker(m_shuffle);
    const int percent = int(std::lround(m_engine->volume() * 100.0));
    m_volume->setValue(percent);
    m_volumeText->setText(QStringLiteral("%1 %").arg(percent));
    m_crossfade->setChecked(m_engine->crossfadeEnabled());
    m_shuffle->setChecked(m_engine->isShuffle());
}

void TransportBar::showPlaying(bool playing)
{
    // Green Play while on air: the presenter sees at a glance that the station is sounding.
    m_play->setStyleSheet(playing ? QStringLiteral("QPushButton { background: #8fd694; font-weight: bold; }")
                                  : QString());
}

void TransportBar::setSelectionModel(QItemSelectionModel* selection)
{
    m_selection = selection;
}

void TransportBar::playOrResume()
{
    const int count = m_playlist->rowCount();
    // The row is matched by its identity: the same file opened again is another row.
    const qint64 id = m_engine->currentRowId();
    const bool rowStillLoaded = id > 0 && m_playlist->rowOfId(id) >= 0;
    if (m_engine->isPlaying() || rowStillLoaded || count == 0) {
        m_engine->play();
        return;
    }
    int row = -1;
    if (m_selection && m_selection->model() == m_playlist) {
        for (const QModelIndex& index : m_selection->selectedRows())
            row = row < 0 ? index.row() : std::min(row, index.row());
    }
    if (row < 0)
        row = id == 0 ? std::clamp(m_engine->currentRow(), 0, count - 1) : 0;
    m_engine->playRow(row);
}
