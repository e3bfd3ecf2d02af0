#include "studiologging.h"

Q_LOGGING_CATEGORY(lcStudio, "ondaro.studio")
