// A library whose initialiser calls "ZelTestAtLoad", which the program exports. It does so on the thread that
// opens the library, and on another thread, for which it waits.

#include <dlfcn.h>
#include <thread>

namespace
{
using AtLoadFun = void (*)(const char* _szThread);

struct ST_Initialiser
{
    ST_Initialiser()
    {
        const auto funAtLoad = reinterpret_cast<AtLoadFun>(dlsym(RTLD_DEFAULT, "ZelTestAtLoad"));
        if (funAtLoad == nullptr)
        {
            return;
        }
        funAtLoad("opening thread");
        std::thread([funAtLoad] { funAtLoad("other thread"); }).join();
    }
};

const ST_Initialiser g_stInitialiser;
} // namespace
