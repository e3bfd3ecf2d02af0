#pragma once

#include <QLoggingCategory>

// Files that could not be decoded or measured, and store writes of the results ("ondaro.analysis").
Q_DECLARE_LOGGING_CATEGORY(lcAnalysis)
