#pragma once

#include <QDialog>

class QSpinBox;

// Edits one playlist row's mix override: the mix point (how long before the end the next row
// starts) and the fade-out, in milliseconds; "default" (-1) leaves the track's or engine's value.
class MixOverrideDialog : public QDialog
{
    Q_OBJECT

public:
    MixOverrideDialog(const QString& trackText, int mixPointMs, int fadeOutMs, QWidget* parent = nullptr);

    int mixPointMs() const;
    int fadeOutMs() const;
    QSpinBox* mixPointBox() const { return m_mixPoint; }
    QSpinBox* fadeOutBox() const { return m_fadeOut; }

private:
    QSpinBox* m_mixPoint = nullptr;
    QSpinBox* m_fadeOut = nullptr;
};
