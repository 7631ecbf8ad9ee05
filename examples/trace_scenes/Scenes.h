#pragma once

#include "QuenHost/CLS_PoolScope.h"
#include "examples/trace_scenes/TracedPool.h"

#include <map>
#include <string>

/// Something that the pool is seen doing; returns when all of it has happened. On a fresh pool,
/// whose scope has the same trace.
using F_Scene = void (*)(const CLS_PoolScope&, const CLS_TracedPool&);

/// The scenes by their names.
const std::map<std::string, F_Scene>& GetScenes();
