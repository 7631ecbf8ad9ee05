#pragma once

// What the pages' small job needs from its host.

struct ST_Window;

void MakeThumbnail(ST_Window* _pWindow);
void Refresh();
