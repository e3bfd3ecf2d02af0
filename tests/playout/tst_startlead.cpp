#include "startlead.h"

#include <QTest>

// The estimate of how long a deck takes to be heard after it is started.
class TestStartLead : public QObject
{
    Q_OBJECT

private slots:
    void withNothingMeasuredTheTypicalLeadIsUsed()
    {
        StartLead lead;
        QCOMPARE(lead.estimateMs(), StartLead::typicalMs);
        QCOMPARE(lead.count(), 0);
    }

    void oneSlowStartDoesNotMoveTheEstimate()
    {
        StartLead lead;
        lead.add(140);
        lead.add(135);
        lead.add(900); // a start on a busy machine
        QCOMPARE(lead.estimateMs(), 140);
    }

    void onlyTheLastFiveStartsCount()
    {
        StartLead lead;
        for (int i = 0; i < 5; ++i)
            lead.add(300);
        for (int i = 0; i < 3; ++i)
            lead.add(100);
        QCOMPARE(lead.count(), 5);
        QCOMPARE(lead.estimateMs(), 100);
    }

    void impossibleMeasurementsAreIgnored()
    {
        StartLead lead;
        lead.add(-20);
        lead.add(StartLead::maxMs + 1);
        QCOMPARE(lead.count(), 0);
        QCOMPARE(lead.estimateMs(), StartLead::typicalMs);
        lead.add(0);
        QCOMPARE(lead.estimateMs(), 0);
    }
};

QTEST_MAIN(TestStartLead)
#include "tst_startlead.moc"
