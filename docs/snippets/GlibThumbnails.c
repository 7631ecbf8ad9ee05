// build: gcc -x c -std=c11 $(pkg-config --cflags glib-2.0)
#include <glib.h>

void make_thumbnail(gpointer data, gpointer user_data);
void free_thumbnail(gpointer data);
gboolean refresh_soon(gpointer user_data);

void use(gpointer thumbnail)
{
#include BLOCK
}
