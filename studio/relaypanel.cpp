#include "relaypanel.h"

#include "audioengine.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

RelayPanel::RelayPanel(AudioEngine* engine, QWidget* parent) : QWidget(parent), m_engine(engine)
{
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(6, 2, 6, 2);
    row->addWidget(new QLabel(QStringLiteral("Relay:"), this));
    m_url = new QLineEdit(this);
    m_url->setPlaceholderText(QStringLiteral("http://stream.example/live"));
    m_url->setClearButtonEnabled(true);
    row->addWidget(m_url, 1);
    m_start = new QPushButton(QStringLiteral("Start relay"), this);
    m_stop = new QPushButton(QStringLiteral("Stop relay"), this);
    row->addWidget(m_start);
    row->addWidget(m_stop);
    m_state = new QLabel(this);
    m_state->setAlignment(Qt::AlignCenter);
    m_state->setMinimumWidth(130);
    m_state->setAutoFillBackground(true);
    row->addWidget(m_state);

    connect(m_start, &QPushButton::clicked, this, &RelayPanel::startRelay);
    connect(m_url, &QLineEdit::returnPressed, this, &RelayPanel::startRelay);
    connect(m_stop, &QPushButton::clicked, engine, &AudioEngine::stopRelay);
    connect(engine, &AudioEngine::relayStatusChanged, this, &RelayPanel::showState);
    showState(engine->relayState(), engine->relaySource());
}

QString RelayPanel::stateCaption(RelayState state)
{
    switch (state) {
    case RelayState::Off:
        return QStringLiteral("Relay off");
    case RelayState::Connecting:
        return QStringLiteral("Relay connecting");
    case RelayState::Live:
        return QStringLiteral("Relay LIVE");
    case RelayState::Lost:
        return QStringLiteral("Relay lost");
    }
    return QString();
}

QColor RelayPanel::stateColour(RelayState state)
{
    switch (state) {
    case RelayState::Off:
        return QColor(200, 200, 200);
    case RelayState::Connecting:
        return QColor(245, 190, 60);
    case RelayState::Live:
        return QColor(70, 190, 90);
    case RelayState::Lost:
        return QColor(225, 70, 60);
    }
    return QColor();
}

void RelayPanel::startRelay()
{
    const QString url = m_url->text().trimmed();
    if (url.isEmpty())
        return;
    m_engine->startRelay(url);
}

void RelayPanel::showState(RelayState state, const QString& source)
{
    m_shown = state;
    m_state->setText(stateCaption(state));
    m_state->setToolTip(source.isEmpty() ? stateCaption(state)
                                         : stateCaption(state) + QStringLiteral(": ") + source);
    QPalette palette = m_state->palette();
    palette.setColor(QPalette::Window, stateColour(state));
    palette.setColor(QPalette::WindowText, state == RelayState::Off ? QColor(60, 60, 60) : QColor(Qt::black));
    m_state->setPalette(palette);
    // Start stays available: starting again with another address replaces the running relay.
    m_stop->setEnabled(state != RelayState::Off);
}
