// A library whose initialiser calls back into the program that opens it: on the thread that opens it, and on
// a thread that it waits for. The program exports "ZelTestAtLoad".

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
