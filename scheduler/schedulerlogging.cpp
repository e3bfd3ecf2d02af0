#include "schedulerlogging.h"

// Tracing (debug) is off unless QT_LOGGING_RULES asks for it: the command line prints its report on
// standard error, and the trace must not mix into it.
Q_LOGGING_CATEGORY(lcScheduler, "ondaro.scheduler", QtInfoMsg)
