#pragma once

#include "QuenHost/CLS_HostThread.h"

/// Returns the windows' thread, to which tasks deliver results. Its event loop runs the deliveries.
CLS_HostThread GetWindowThread();
