#pragma once

#include <QLoggingCategory>

// Player and device failures, besides the user-facing lines of logMessage ("ondaro.playout").
Q_DECLARE_LOGGING_CATEGORY(lcPlayout)
