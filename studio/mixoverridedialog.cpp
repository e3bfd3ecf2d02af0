#include "mixoverridedialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>

namespace {

QSpinBox* millisecondBox(int value, QWidget* parent)
{
    auto* box = new QSpinBox(parent);
    // -1 is the "no override" value the playlist stores.
    box->setRange(-1, 600000);
    box->setSingleStep(500);
    box->setSuffix(QStringLiteral(" ms"));
    box->setSpecialValueText(QStringLiteral("default"));
    box->setValue(value < 0 ? -1 : value);
    return box;
}

} // namespace

MixOverrideDialog::MixOverrideDialog(const QString& trackText, int mixPointMs, int fadeOutMs, QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Mix override"));
    auto* form = new QFormLayout(this);
    auto* title = new QLabel(trackText, this);
    title->setWordWrap(true);
    form->addRow(title);
    m_mixPoint = millisecondBox(mixPointMs, this);
    m_mixPoint->setToolTip(QStringLiteral("Start the next row this long before the end of this one"));
    m_fadeOut = millisecondBox(fadeOutMs, this);
    m_fadeOut->setToolTip(QStringLiteral("Fade this row out over this long when it is mixed"));
    form->addRow(QStringLiteral("Mix point:"), m_mixPoint);
    form->addRow(QStringLiteral("Fade-out:"), m_fadeOut);
    auto* buttons =
        new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel | QDialogButtonBox::Reset, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(buttons->button(QDialogButtonBox::Reset), &QPushButton::clicked, this, [this] {
        m_mixPoint->setValue(-1);
        m_fadeOut->setValue(-1);
    });
    form->addRow(buttons);
}

int MixOverrideDialog::mixPointMs() const
{
    return m_mixPoint->value();
}

int MixOverrideDialog::fadeOutMs() const
{
    return m_fadeOut->value();
}
