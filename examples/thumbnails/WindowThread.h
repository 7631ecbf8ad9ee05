#pragma once

#include "QuenHost/CLS_HostThread.h"

/// The thread of the windows, for results from tasks. It runs them in its event loop.
CLS_HostThread GetWindowThread();
