// Looks up names in a library:  zel_symbols_host LIBRARY NAME...

#include <dlfcn.h>
#include <iostream>

int main(int _iCount, char** _ppTexts)
{
    void* const pLibrary = _iCount < 2 ? nullptr : dlopen(_ppTexts[1], RTLD_NOW);
    if (pLibrary == nullptr)
    {
        std::cerr << "no library\n";
        return 3;
    }
    for (int i = 2; i < _iCount; ++i)
    {
        std::cout << _ppTexts[i] << ": " << (dlsym(pLibrary, _ppTexts[i]) != nullptr ? "found" : "null")
                  << "\n";
    }
    return 0;
}
