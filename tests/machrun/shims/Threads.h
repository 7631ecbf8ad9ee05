#pragma once

namespace Threads
{
/// The number of the program's running threads, including the first.
///
/// A joined thread does not count, although Linux may still list it.
///
/// Threads: any.
int Count();
} // namespace Threads
