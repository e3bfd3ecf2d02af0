#pragma once

#include "relaystate.h"

#include <QColor>
#include <QWidget>

class AudioEngine;
class QLabel;
class QLineEdit;
class QPushButton;

// The relay of a live stream: its address, Start relay / Stop relay, and where it stands in words
// and colour (off grey, connecting amber, live green, lost red).
class RelayPanel : public QWidget
{
    Q_OBJECT

public:
    explicit RelayPanel(AudioEngine* engine, QWidget* parent = nullptr);

    QLineEdit* urlField() const { return m_url; }
    QPushButton* startButton() const { return m_start; }
    QPushButton* stopButton() const { return m_stop; }
    QLabel* stateLabel() const { return m_state; }

    RelayState shownState() const { return m_shown; }
    // "Relay off", "Relay connecting", "Relay LIVE", "Relay lost".
    static QString stateCaption(RelayState state);
    static QColor stateColour(RelayState state);

public slots:
    void startRelay();
    void showState(RelayState state, const QString& source);

private:
    AudioEngine* m_engine;
    QLineEdit* m_url = nullptr;
    QPushButton* m_start = nullptr;
    QPushButton* m_stop = nullptr;
    QLabel* m_state = nullptr;
    RelayState m_shown = RelayState::Off;
};
