#pragma once

#include "timedstart.h"

#include <QDialog>

class QDateTimeEdit;
class QRadioButton;

// Gives one playlist row a fixed start time: off, hard (the row starts at that moment, cutting what
// plays) or soft (it follows the track playing when its time comes), and the local date and time.
class FixedStartDialog : public QDialog
{
    Q_OBJECT

public:
    // An untimed row is offered the given time (the row's planned start, say) with "Hard" chosen.
    FixedStartDialog(const QString& trackText, const TimedStart& timed, const QDateTime& suggested,
                     QWidget* parent = nullptr);

    // What was chosen; mode None when "Off".
    TimedStart timedStart() const;

    QRadioButton* offButton() const { return m_off; }
    QRadioButton* hardButton() const { return m_hard; }
    QRadioButton* softButton() const { return m_soft; }
    QDateTimeEdit* timeEdit() const { return m_time; }

private:
    QRadioButton* m_off = nullptr;
    QRadioButton* m_hard = nullptr;
    QRadioButton* m_soft = nullptr;
    QDateTimeEdit* m_time = nullptr;
};
