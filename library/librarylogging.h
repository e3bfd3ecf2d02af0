#pragma once

#include <QLoggingCategory>

// Store failures that callers turn into neutral results (false, 0, an empty list) are logged here,
// so that whoever has to fix them can see why ("ondaro.library").
Q_DECLARE_LOGGING_CATEGORY(lcLibrary)
