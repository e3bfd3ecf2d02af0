#pragma once

#include <QLoggingCategory>

// Failures of the on-air window that it turns into a neutral result ("ondaro.studio").
Q_DECLARE_LOGGING_CATEGORY(lcStudio)
