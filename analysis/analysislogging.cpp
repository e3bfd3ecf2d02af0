#include "analysislogging.h"

Q_LOGGING_CATEGORY(lcAnalysis, "ondaro.analysis", QtInfoMsg)
