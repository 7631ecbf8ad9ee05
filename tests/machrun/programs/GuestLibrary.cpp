// A library that a program for macOS opens to test the loader.

#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{
std::vector<std::string>* g_pEvents = nullptr;

/// Records the end of the library.
struct ST_Object
{
    ~ST_Object()
    {
        if (g_pEvents != nullptr)
        {
            g_pEvents->push_back("object destroyed");
        }
    }
};
const ST_Object g_stObject;

#ifdef ZEL_TEST_THREAD_LOCAL
thread_local int t_iCalls = 40;
#endif
} // namespace

extern "C"
{
    /// Where to note events from now on.
    void NoteEvents(std::vector<std::string>* _pEvents)
    {
        g_pEvents = _pEvents;
    }

    pid_t GetProcessNumber()
    {
        return getpid();
    }

    void ThrowText(const char* _szText)
    {
        throw std::runtime_error(_szText);
    }

#ifdef ZEL_TEST_THREAD_LOCAL
    int CountCallsOnThisThread()
    {
        return ++t_iCalls;
    }
#endif
}
