#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"
#include "docs/snippets/Thumbnails.h"

#include <string>

void Use([[maybe_unused]] ST_Window* pWindow)
{
#include BLOCK
}
