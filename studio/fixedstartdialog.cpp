#include "fixedstartdialog.h"

#include <QButtonGroup>
#include <QDateTimeEdit>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QRadioButton>

FixedStartDialog::FixedStartDialog(const QString& trackText, const TimedStart& timed,
                                   const QDateTime& suggested, QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Fixed start time"));
    auto* form = new QFormLayout(this);
    auto* title = new QLabel(trackText, this);
    title->setWordWrap(true);
    form->addRow(title);

    auto* modes = new QHBoxLayout;
    m_off = new QRadioButton(QStringLiteral("&Off"), this);
    m_hard = new QRadioButton(QStringLiteral("&Hard"), this);
    m_hard->setToolTip(QStringLiteral("At that time whatever plays fades out and this row starts"));
    m_soft = new QRadioButton(QStringLiteral("&Soft"), this);
    m_soft->setToolTip(QStringLiteral("Once its time has come this row follows the track playing"));
    auto* group = new QButtonGroup(this);
    for (QRadioButton* button : {m_off, m_hard, m_soft}) {
        group->addButton(button);
        modes->addWidget(button);
    }
    form->addRow(QStringLiteral("Mode:"), modes);

    m_time = new QDateTimeEdit(this);
    // The station's clock to the second, as the playlist file keeps it.
    m_time->setDisplayFormat(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    m_time->setCalendarPopup(true);
    form->addRow(QStringLiteral("Starts at:"), m_time);

    if (timed.isTimed()) {
        (timed.isHard() ? m_hard : m_soft)->setChecked(true);
        m_time->setDateTime(timed.at);
    } else {
        m_hard->setChecked(true);
        const QDateTime start = suggested.isValid() ? suggested : QDateTime::currentDateTime();
        // Whole seconds: the file cannot keep less.
        m_time->setDateTime(start.addMSecs(-start.time().msec()));
    }
    connect(m_off, &QRadioButton::toggled, m_time, [this](bool off) { m_time->setEnabled(!off); });

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);
}

TimedStart FixedStartDialog::timedStart() const
{
    TimedStart timed;
    if (m_off->isChecked())
        return timed;
    timed.mode = m_hard->isChecked() ? TimedStart::Mode::Hard : TimedStart::Mode::Soft;
    timed.at = m_time->dateTime();
    return timed;
}
