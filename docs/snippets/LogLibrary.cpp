#include "examples/zel_log/ZelLog.h"

#include BLOCK
