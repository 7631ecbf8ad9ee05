#pragma once

namespace Signals
{
/// The number of a signal; one that the other system does not have stays as it is.
int ToDarwin(int _iLinux);
int FromDarwin(int _iDarwin);
} // namespace Signals
