#include "playoutlogging.h"

Q_LOGGING_CATEGORY(lcPlayout, "ondaro.playout", QtInfoMsg)
