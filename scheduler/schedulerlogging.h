#pragma once

#include <QLoggingCategory>

// Scheduler decisions that a station engineer may need to trace, and store reads that failed and were
// taken as empty ("ondaro.scheduler").
Q_DECLARE_LOGGING_CATEGORY(lcScheduler)
