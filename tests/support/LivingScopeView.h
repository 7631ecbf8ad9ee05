#pragma once

#include "QuenHost/Core/CLS_LivingScope.h"

/// The private side of CLS_LivingScope, for tests that look inside. Only LivingScopeView.cpp writes the
/// private names.
namespace LivingScopeView
{

/// Starts with no scope. The memory of the old ones no longer exists.
void ForgetAll();
} // namespace LivingScopeView
