#include "tests/machrun/CLS_Loader.h"

#include "tests/machrun/Binding.h"
#include "tests/machrun/ExitHandlers.h"
#include "tests/machrun/LibrarySearch.h"
#include "tests/machrun/MachO.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <set>

namespace
{
using Lock = std::lock_guard<std::recursive_mutex>;

// Darwin's numbers.
constexpr int OPEN_LOADED_ONLY = 0x10;
constexpr int OPEN_FOR_GOOD = 0x80;
constexpr std::intptr_t NEXT_IMAGES = -1;
constexpr std::intptr_t ALL_IMAGES = -2;

constexpr std::size_t LONGEST_REASON = 4096;

/// Plain memory, because a thread's objects may be destroyed before the last call.
thread_local std::array<char, LONGEST_REASON> t_arrReason{};
thread_local std::array<char, LONGEST_REASON> t_arrTaken{};

void LeaveReason(const std::string& _strReason)
{
    std::snprintf(t_arrReason.data(), t_arrReason.size(), "%s", _strReason.c_str());
}

using Initialiser = void (*)(int, char**, char**, char**, void*);

/// Whether an image is linked with this one.
bool IsNeeded(const CLS_Image* _pImage)
{
    const std::vector<CLS_Image*> vecImages = CLS_Images::Get().GetAll();
    return std::any_of(vecImages.begin(), vecImages.end(),
                       [_pImage](const CLS_Image* _pUser)
                       {
                           const std::vector<CLS_Image*>& vecNeeds = _pUser->m_vecLibraries;
                           return std::find(vecNeeds.begin(), vecNeeds.end(), _pImage) != vecNeeds.end();
                       });
}

/// A name of an image or of the libraries that it is linked with.
void* FindInTree(CLS_Image* _pImage, const std::string& _strName, std::set<CLS_Image*>& _setSeen)
{
    void* pFound = CLS_Images::Get().FindIn(_pImage, _strName);
    if (pFound != nullptr || _pImage == nullptr || !_setSeen.insert(_pImage).second)
    {
        return pFound;
    }
    for (CLS_Image* const pLibrary : _pImage->m_vecLibraries)
    {
        if ((pFound = FindInTree(pLibrary, _strName, _setSeen)) != nullptr)
        {
            return pFound;
        }
    }
    return nullptr;
}

/// A name of the images after the caller's.
void* FindBehind(const CLS_Image* _pCaller, const std::string& _strName)
{
    const std::vector<CLS_Image*> vecImages = CLS_Images::Get().GetAll();
    const auto itCaller = std::find(vecImages.begin(), vecImages.end(), _pCaller);
    for (auto itImage = itCaller; itImage != vecImages.end(); ++itImage)
    {
        void* const pFound = itImage == itCaller ? nullptr : CLS_Images::Get().FindIn(*itImage, _strName);
        if (pFound != nullptr)
        {
            return pFound;
        }
    }
    return CLS_Images::Get().FindIn(nullptr, _strName);
}
} // namespace

void* CLS_Loader::GetProgramHandle()
{
    static char s_cHandle = 0;
    return &s_cHandle;
}

void* CLS_Loader::GetSystemHandle()
{
    static char s_cHandle = 0;
    return &s_cHandle;
}

CLS_Loader& CLS_Loader::Get()
{
    static CLS_Loader& s_clsLoader = *new CLS_Loader; // threads may run to the end of the process
    return s_clsLoader;
}

char* CLS_Loader::TakeReason()
{
    if (t_arrReason[0] == '\0')
    {
        return nullptr;
    }
    t_arrTaken = t_arrReason;
    t_arrReason[0] = '\0';
    return t_arrTaken.data();
}

CLS_Image* CLS_Loader::LoadProgram(const std::string& _strPath, const std::string& _strUnwinder)
{
    const Lock lock(m_mtxLoading);
    CLS_Image* const pProgram = Load(_strPath, {});
    if (pProgram->GetEntry() == nullptr)
    {
        throw std::runtime_error("'" + _strPath + "' is not a program");
    }
    m_pUnwinder = Load(_strUnwinder, {});
    CLS_Images::Get().SetSystemPart(m_pUnwinder);
    BindAll();
    return pProgram;
}

void CLS_Loader::InitialiseProgram(const ST_Arguments& _stArguments)
{
    const Lock lock(m_mtxLoading);
    m_stArguments = _stArguments;
    Initialise(m_pUnwinder);
    Initialise(CLS_Images::Get().GetProgram());
}

/// Loads the image after everything that it needs, unless it is loaded. Binds nothing.
CLS_Image* CLS_Loader::Load(const std::string& _strPath, const std::vector<std::string>& _vecRunPaths)
{
    if (CLS_Image* const pLoaded = CLS_Images::Get().FindByPath(_strPath))
    {
        return pLoaded;
    }
    CLS_Image* const pImage = CLS_Images::Get().Add(std::make_unique<CLS_Image>(_strPath, _vecRunPaths));
    for (const ST_LibraryNeed& stNeed : pImage->GetFile().GetLibraries())
    {
        pImage->m_vecLibraries.push_back(LoadNeed(stNeed.m_strName, *pImage));
    }
    return pImage;
}

CLS_Image* CLS_Loader::LoadNeed(const std::string& _strName, const CLS_Image& _clsUser)
{
    if (LibrarySearch::IsSystem(_strName))
    {
        return nullptr;
    }
    std::string strPath;
    try
    {
        strPath = LibrarySearch::Find(_strName, _clsUser.GetPath(), _clsUser.GetRunPaths());
    }
    catch (const std::runtime_error& error)
    {
        throw std::runtime_error("library not loaded: " + _strName + ", which '" + _clsUser.GetPath() +
                                 "' needs; " + error.what());
    }
    return Load(strPath, _clsUser.GetRunPaths());
}

void CLS_Loader::BindAll()
{
    for (CLS_Image* const pImage : CLS_Images::Get().GetAll())
    {
        if (!pImage->m_bBound)
        {
            Binding::Bind(*pImage);
        }
    }
}

/// Calls each initialiser once: first those of the images that this one needs, then its own.
void CLS_Loader::Initialise(CLS_Image* _pImage)
{
    if (_pImage == nullptr || _pImage->m_bInitialised)
    {
        return;
    }
    _pImage->m_bInitialised = true;
    for (CLS_Image* const pLibrary : _pImage->m_vecLibraries)
    {
        Initialise(pLibrary);
    }
    for (const ST_Section& stSection : _pImage->GetFile().GetSections())
    {
        if (stSection.m_uiType != MachO::SECTION_INITIALISERS)
        {
            continue;
        }
        const auto* const pFirst = reinterpret_cast<const Initialiser*>(_pImage->At(stSection.m_uiAddress));
        std::for_each(pFirst, pFirst + stSection.m_uiSize / sizeof(Initialiser),
                      [this](Initialiser _funInitialise)
                      {
                          _funInitialise(m_stArguments.m_iCount, m_stArguments.m_ppTexts,
                                         m_stArguments.m_ppEnvironment, m_stArguments.m_ppApple, nullptr);
                      });
    }
}

void* CLS_Loader::Open(const char* _szPath, int _iMode, const void* _pCaller)
{
    if (_szPath == nullptr)
    {
        return GetProgramHandle();
    }
    const std::string strPath = _szPath;
    if (LibrarySearch::IsSystem(strPath))
    {
        return GetSystemHandle();
    }
    t_arrReason[0] = '\0';
    const Lock lock(m_mtxLoading);
    const std::size_t uiBefore = CLS_Images::Get().GetAll().size();
    try
    {
        return OpenLibrary(strPath, _iMode, CLS_Images::Get().FindByAddress(_pCaller));
    }
    catch (const std::runtime_error& error)
    {
        CLS_Images::Get().CutTo(uiBefore);
        if ((_iMode & OPEN_LOADED_ONLY) != 0)
        {
            return nullptr; // only a query, which is not a failure on macOS
        }
        std::array<char, 16> arrMode{};
        std::snprintf(arrMode.data(), arrMode.size(), "0x%04X", static_cast<unsigned>(_iMode));
        LeaveReason("dlopen(" + strPath + ", " + arrMode.data() + "): " + error.what());
        return nullptr;
    }
}

CLS_Image* CLS_Loader::OpenLibrary(const std::string& _strPath, int _iMode, const CLS_Image* _pCaller)
{
    const CLS_Image& clsCaller = _pCaller == nullptr ? *CLS_Images::Get().GetProgram() : *_pCaller;
    const std::string strFile = LibrarySearch::Find(_strPath, clsCaller.GetPath(), clsCaller.GetRunPaths());
    CLS_Image* pImage = CLS_Images::Get().FindByPath(strFile);
    if (pImage == nullptr)
    {
        if ((_iMode & OPEN_LOADED_ONLY) != 0)
        {
            throw std::runtime_error("image not already loaded");
        }
        pImage = Load(strFile, clsCaller.GetRunPaths());
        BindAll();
        Initialise(pImage);
    }
    ++pImage->m_iOpened;
    pImage->m_bKept = pImage->m_bKept || (_iMode & OPEN_FOR_GOOD) != 0;
    return pImage;
}

int CLS_Loader::Close(void* _pHandle)
{
    if (_pHandle == GetProgramHandle() || _pHandle == GetSystemHandle())
    {
        return 0;
    }
    const Lock lock(m_mtxLoading);
    auto* const pImage = static_cast<CLS_Image*>(_pHandle);
    if (!CLS_Images::Get().Has(_pHandle) || pImage->m_iOpened == 0)
    {
        LeaveReason("dlclose: invalid handle");
        return -1;
    }
    --pImage->m_iOpened;
    Unload(pImage);
    return 0;
}

/// Unloads an image that is no longer in use, and then the images that only it needed. Images with
/// thread-local variables stay loaded, as on macOS.
void CLS_Loader::Unload(CLS_Image* _pImage)
{
    const bool bKept = _pImage->m_bKept || _pImage->GetFile().GetThreadLocals().m_uiSize != 0;
    if (bKept || _pImage->m_iOpened > 0 || IsNeeded(_pImage))
    {
        return;
    }
    ExitHandlers::RunOf(*_pImage);
    const std::vector<CLS_Image*> vecLibraries = _pImage->m_vecLibraries;
    CLS_Images::Get().Remove(_pImage);
    for (CLS_Image* const pLibrary : vecLibraries)
    {
        if (pLibrary != nullptr)
        {
            Unload(pLibrary);
        }
    }
}

void* CLS_Loader::Find(void* _pHandle, const char* _szName, const void* _pCaller)
{
    t_arrReason[0] = '\0';
    const Lock lock(m_mtxLoading);
    const std::string strName = std::string("_") + _szName;
    void* const pFound = FindByHandle(_pHandle, strName, CLS_Images::Get().FindByAddress(_pCaller));
    if (pFound == nullptr)
    {
        std::array<char, 32> arrHandle{};
        std::snprintf(arrHandle.data(), arrHandle.size(), "%p", _pHandle);
        LeaveReason("dlsym(" + std::string(arrHandle.data()) + ", " + _szName + "): symbol not found");
    }
    return pFound;
}

void* CLS_Loader::FindByHandle(void* _pHandle, const std::string& _strName, const CLS_Image* _pCaller) const
{
    const CLS_Images& clsImages = CLS_Images::Get();
    const auto iSpecial = reinterpret_cast<std::intptr_t>(_pHandle);
    if (iSpecial == ALL_IMAGES || _pHandle == GetProgramHandle())
    {
        return clsImages.FindAnywhere(_strName);
    }
    if (iSpecial == NEXT_IMAGES)
    {
        return FindBehind(_pCaller, _strName);
    }
    if (_pHandle == GetSystemHandle())
    {
        return clsImages.FindIn(nullptr, _strName);
    }
    std::set<CLS_Image*> setSeen;
    return clsImages.Has(_pHandle) ? FindInTree(static_cast<CLS_Image*>(_pHandle), _strName, setSeen)
                                   : nullptr;
}
