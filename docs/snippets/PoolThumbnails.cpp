#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"
#include "docs/snippets/Thumbnails.h"

#include <string>

void Use(ST_Window* pWindow);

void Use(ST_Window* pWindow)
{
#include BLOCK
}
