#include "librarylogging.h"

Q_LOGGING_CATEGORY(lcLibrary, "ondaro.library", QtInfoMsg)
