// build: g++ -std=c++17 -fPIC $(pkg-config --cflags Qt5Core)
#include "docs/snippets/Thumbnails.h"

#include <QThreadPool>
#include <QTimer>

void Use([[maybe_unused]] ST_Window* pWindow)
{
#include BLOCK
}
