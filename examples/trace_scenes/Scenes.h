#pragma once

#include "QuenHost/CLS_PoolScope.h"
#include "examples/trace_scenes/TracedPool.h"

#include <map>
#include <string>

/// Makes a new pool do something worth a picture, and returns afterwards. The scope has the same trace.
using F_Scene = void (*)(const CLS_PoolScope&, const CLS_TracedPool&);

/// Returns the scenes by their names.
const std::map<std::string, F_Scene>& GetScenes();
