#pragma once

#include "tests/machrun/CLS_Images.h"

#include <mutex>

/// The arguments of a program's main function and of the initialisers of images.
struct ST_Arguments
{
    int m_iCount = 0;
    char** m_ppTexts = nullptr;
    char** m_ppEnvironment = nullptr;
    char** m_ppApple = nullptr; ///< facts from the system, such as "executable_path=..."
};

/// Loads images with everything that they need, calls their initialisers, and unloads libraries.
///
/// Threads: any, one at a time. The thread holds a recursive lock while initialisers run, so these may open
/// libraries.
///
/// Fails: no exception may propagate through a Mach-O program. So the operations for dlopen and its like
/// leave a text behind instead.
class CLS_Loader
{
public:
    /// The handles of the program itself and of the system's library.
    static void* GetProgramHandle();
    static void* GetSystemHandle();

    static CLS_Loader& Get();

    /// Loads a program and makes it ready to run, but does not call its initialisers. Call it once.
    ///
    /// _strUnwinder is the path of the library that finds the handlers of exceptions.
    ///
    /// Fails: std::runtime_error.
    CLS_Image* LoadProgram(const std::string& _strPath, const std::string& _strUnwinder);
    void InitialiseProgram(const ST_Arguments& _stArguments);
    const ST_Arguments& GetArguments() const { return m_stArguments; }

    /// As dlopen, dlclose and dlsym, with Darwin's numbers, for the code at _pCaller. After a failure,
    /// TakeReason returns the reason on the same thread.
    void* Open(const char* _szPath, int _iMode, const void* _pCaller);
    int Close(void* _pHandle);
    void* Find(void* _pHandle, const char* _szName, const void* _pCaller);

    /// As dlerror: the last reason on the calling thread, valid until the next call; null if there is none.
    static char* TakeReason();

private:
    CLS_Loader() = default;

    CLS_Image* Load(const std::string& _strPath, const std::vector<std::string>& _vecRunPaths);
    CLS_Image* LoadNeed(const std::string& _strName, const CLS_Image& _clsUser);
    void BindAll();
    void Initialise(CLS_Image* _pImage);
    CLS_Image* OpenLibrary(const std::string& _strPath, int _iMode, const CLS_Image* _pCaller);
    void Unload(CLS_Image* _pImage);
    void* FindByHandle(void* _pHandle, const std::string& _strName, const CLS_Image* _pCaller) const;

    std::recursive_mutex m_mtxLoading; ///< guards the changing members of images, and all below
    ST_Arguments m_stArguments;
    CLS_Image* m_pUnwinder = nullptr;
};
