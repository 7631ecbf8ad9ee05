// The functions of the dynamic loader.

#include "tests/machrun/CLS_Loader.h"
#include "tests/machrun/shims/Tables.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>

namespace
{
void* OpenLibrary(const char* _szPath, int _iMode)
{
    return CLS_Loader::Get().Open(_szPath, _iMode, __builtin_return_address(0));
}

int CloseLibrary(void* _pHandle)
{
    return CLS_Loader::Get().Close(_pHandle);
}

void* FindName(void* _pHandle, const char* _szName)
{
    return CLS_Loader::Get().Find(_pHandle, _szName, __builtin_return_address(0));
}

int FindPlace(const void* _pAddress, Dl_info* _pInfo)
{
    const CLS_Image* const pImage = CLS_Images::Get().FindByAddress(_pAddress);
    if (pImage == nullptr)
    {
        return dladdr(_pAddress, _pInfo); // a function of this program
    }
    std::uint64_t uiSymbol = 0;
    const std::string_view strSymbol =
        pImage->GetFile().FindSymbol(pImage->GetLinkedAddress(_pAddress), uiSymbol);
    const bool bFound = !strSymbol.empty();
    *_pInfo = {pImage->GetPath().c_str(), pImage->GetStart(),
               bFound ? strSymbol.data() + (strSymbol[0] == '_' ? 1 : 0) : nullptr,
               bFound ? pImage->At(uiSymbol) : nullptr};
    return 1;
}

std::uint32_t CountImages()
{
    return static_cast<std::uint32_t>(CLS_Images::Get().GetAll().size());
}

const char* GetImageName(std::uint32_t _uiImage)
{
    const std::vector<CLS_Image*> vecImages = CLS_Images::Get().GetAll();
    return _uiImage < vecImages.size() ? vecImages[_uiImage]->GetPath().c_str() : nullptr;
}

/// The places of an image's tables for the unwinder.
struct ST_UnwindSections
{
    const void* m_pImage;
    const void* m_pFrames;
    std::uint64_t m_uiFramesSize;
    const void* m_pCompact;
    std::uint64_t m_uiCompactSize;
};

bool FindUnwindSections(const void* _pAddress, ST_UnwindSections* _pSections)
{
    const CLS_Image* const pImage = CLS_Images::Get().FindByAddress(_pAddress);
    if (pImage == nullptr)
    {
        return false;
    }
    *_pSections = {};
    _pSections->m_pImage = pImage->GetStart();
    if (const ST_Section* const pFrames = pImage->FindSection("__eh_frame"))
    {
        _pSections->m_pFrames = pImage->At(pFrames->m_uiAddress);
        _pSections->m_uiFramesSize = pFrames->m_uiSize;
    }
    if (const ST_Section* const pCompact = pImage->FindSection("__unwind_info"))
    {
        _pSections->m_pCompact = pImage->At(pCompact->m_uiAddress);
        _pSections->m_uiCompactSize = pCompact->m_uiSize;
    }
    return true;
}

/// Stands for the function that binds lazily, and for the function in a descriptor of a thread-local variable
/// that is not set yet. All of these are replaced before code runs.
[[noreturn]] void RefuseLateBinding()
{
    std::fputs("machrun: the program uses a name that is not bound\n", stderr);
    std::abort();
}
} // namespace

namespace Tables
{
const Shims& GetDynamic()
{
    static const Shims s_vecShims{
        {"_dlopen", &OpenLibrary},
        {"_dlclose", &CloseLibrary},
        {"_dlsym", &FindName},
        {"_dlerror", &CLS_Loader::TakeReason},
        {"_dladdr", &FindPlace},
        {"__dyld_image_count", &CountImages},
        {"__dyld_get_image_name", &GetImageName},
        {"__dyld_find_unwind_sections", &FindUnwindSections},
        {"dyld_stub_binder", &RefuseLateBinding},
        {"__tlv_bootstrap", &RefuseLateBinding},
    };
    return s_vecShims;
}
} // namespace Tables
