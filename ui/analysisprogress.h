#pragma once

#include <QObject>
#include <QPointer>
#include <QProgressDialog>
#include <QStringList>

class AnalysisQueue;
class QWidget;

// One run of the loudness and cue-point analysis for the Library Manager: the files go to an
// AnalysisQueue (a worker per core, results stored in batches), a window-modal progress dialog shows
// the count and can cancel. The window stays responsive; finished() reports how many files were
// analysed (files with an up-to-date analysis are skipped and not counted).
class AnalysisProgress : public QObject
{
    Q_OBJECT

public:
    explicit AnalysisProgress(QWidget* window);

    void start(const QStringList& paths);
    AnalysisQueue* queue() const { return m_queue; }
    QProgressDialog* dialog() const { return m_dialog.data(); }

signals:
    void finished(int analysed, bool cancelled);

private:
    void showProgress(int done, int total);
    void onQueueFinished();

    AnalysisQueue* m_queue = nullptr;
    QPointer<QProgressDialog> m_dialog; // a child of the window, gone once the run has ended
    bool m_cancelled = false;
    bool m_started = false;
};
