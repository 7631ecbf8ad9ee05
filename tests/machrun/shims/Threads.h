#pragma once

namespace Threads
{
/// The threads of the program that run, the first included. One that was joined does not count any more;
/// Linux may list it for a while. Any thread may call.
int Count();
} // namespace Threads
