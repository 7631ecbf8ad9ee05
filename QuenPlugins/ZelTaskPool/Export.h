#pragma once

/// \file
/// What the library exports.

/// Marks what the library offers to hosts. Everything unmarked is hidden (-fvisibility=hidden).
#define ZEL_TASKPOOL_EXPORT __attribute__((visibility("default")))
