#pragma once

namespace Signals
{
/// Translates the number of a signal. One that the other system does not have stays the same.
int ToDarwin(int _iLinux);
int FromDarwin(int _iDarwin);
} // namespace Signals
