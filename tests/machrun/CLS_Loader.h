#pragma once

#include "tests/machrun/CLS_Images.h"

#include <mutex>

/// Arguments as a program's main function and the initialisers of images get them.
struct ST_Arguments
{
    int m_iCount = 0;
    char** m_ppTexts = nullptr;
    char** m_ppEnvironment = nullptr;
    char** m_ppApple = nullptr; ///< facts of the system's, such as "executable_path=..."
};

/// Loads images with everything that they need, calls their initialisers, and takes libraries away again.
///
/// Any thread may call. One thread at a time works; it holds a lock while the initialisers of images run, so
/// these may open libraries themselves. What a Mach-O program does through dlopen and its like goes through
/// here, and no exception may pass through such a program: the operations for it leave a text behind instead.
class CLS_Loader
{
public:
    /// A handle of the program itself, and that of the system's library.
    static void* GetProgramHandle();
    static void* GetSystemHandle();

    static CLS_Loader& Get();

    /// Loads a program and makes it ready to run, its initialisers not yet called. Call it once. The unwinder
    /// is the library that finds out where an exception goes. Throws std::runtime_error.
    CLS_Image* LoadProgram(const std::string& _strPath, const std::string& _strUnwinder);
    void InitialiseProgram(const ST_Arguments& _stArguments);
    const ST_Arguments& GetArguments() const { return m_stArguments; }

    /// As dlopen, dlclose and dlsym, with Darwin's numbers, for code at that address. Null is a failure; the
    /// reason then waits for TakeReason on the same thread.
    void* Open(const char* _szPath, int _iMode, const void* _pCaller);
    int Close(void* _pHandle);
    void* Find(void* _pHandle, const char* _szName, const void* _pCaller);

    /// As dlerror: the last reason on the calling thread, which stays readable until the next call; null when
    /// there was none since.
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

    std::recursive_mutex m_mtxLoading; ///< guards what changes in images, and everything below
    ST_Arguments m_stArguments;
    CLS_Image* m_pUnwinder = nullptr;
};
