#include "analysisprogress.h"

#include "analysisqueue.h"

#include <QProgressDialog>
#include <QTimer>

AnalysisProgress::AnalysisProgress(QWidget* window)
    : QObject(window), m_queue(new AnalysisQueue(this)),
      m_dialog(new QProgressDialog(QStringLiteral("Analysing loudness and cue points…"),
                                   QStringLiteral("Cancel"), 0, 0, window))
{
    m_dialog->setObjectName(QStringLiteral("analysisProgressDialog"));
    m_dialog->setWindowTitle(QStringLiteral("Analyse loudness and cue points"));
    m_dialog->setWindowModality(Qt::WindowModal);
    // Closed by the end of the run, never by reaching the maximum.
    m_dialog->setAutoReset(false);
    m_dialog->setAutoClose(false);
    m_dialog->setMinimumDuration(0);
    connect(m_dialog, &QProgressDialog::canceled, this, [this] {
        m_cancelled = true;
        m_dialog->setLabelText(QStringLiteral("Cancelling…"));
        m_queue->cancel();
    });
    connect(m_queue, &AnalysisQueue::progress, this, &AnalysisProgress::showProgress);
    connect(m_queue, &AnalysisQueue::finished, this, &AnalysisProgress::onQueueFinished);
}

void AnalysisProgress::start(const QStringList& paths)
{
    m_started = true;
    m_queue->enqueue(paths);
    if (!m_queue->isRunning()) {
        // Nothing to do: still answered from the event loop, like every other ending.
        QTimer::singleShot(0, this, &AnalysisProgress::onQueueFinished);
        return;
    }
    m_dialog->show();
}

void AnalysisProgress::showProgress(int done, int total)
{
    if (m_cancelled || !m_dialog)
        return;
    m_dialog->setMaximum(total);
    m_dialog->setValue(done);
    m_dialog->setLabelText(
        QStringLiteral("Analysing loudness and cue points…\n%1 of %2 file(s)").arg(done).arg(total));
}

void AnalysisProgress::onQueueFinished()
{
    if (!m_started)
        return;
    m_started = false;
    if (m_dialog) {
        // reset() with auto-close hides the dialog and stops its timer that would show it later.
        m_dialog->setAutoClose(true);
        m_dialog->reset();
        m_dialog->deleteLater();
    }
    emit finished(m_queue->analysedCount(), m_cancelled);
}
