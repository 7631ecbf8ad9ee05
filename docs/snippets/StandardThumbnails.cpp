#include "docs/snippets/Thumbnails.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

void Use([[maybe_unused]] ST_Window* pWindow)
{
#include BLOCK
}
