#pragma once

#include "examples/trace/TracedPool.h"

#include <map>
#include <string>

/// Something that the pool is seen doing; returns when all of it has happened. On a fresh pool.
using F_Scene = void (*)(const CLS_TracedPool&);

/// The scenes by their names.
const std::map<std::string, F_Scene>& GetScenes();
