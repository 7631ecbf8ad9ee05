#include "tests/machrun/CLS_Images.h"

#include "tests/machrun/ExportTrie.h"
#include "tests/machrun/shims/SystemNames.h"

#include <algorithm>
#include <mutex>

CLS_Images& CLS_Images::Get()
{
    static CLS_Images& s_clsImages = *new CLS_Images; // threads may run to the end of the process
    return s_clsImages;
}

CLS_Image* CLS_Images::Add(std::unique_ptr<CLS_Image> _pImage)
{
    const std::unique_lock<std::shared_mutex> lock(m_smImages);
    return m_vecImages.emplace_back(std::move(_pImage)).get();
}

void CLS_Images::CutTo(std::size_t _uiCount)
{
    const std::unique_lock<std::shared_mutex> lock(m_smImages);
    m_vecImages.resize(std::min(_uiCount, m_vecImages.size()));
}

void CLS_Images::Remove(CLS_Image* _pImage)
{
    const std::unique_lock<std::shared_mutex> lock(m_smImages);
    m_vecImages.erase(std::find_if(m_vecImages.begin(), m_vecImages.end(),
                                   [_pImage](const auto& _pOther) { return _pOther.get() == _pImage; }));
}

std::vector<CLS_Image*> CLS_Images::GetAll() const
{
    const std::shared_lock<std::shared_mutex> lock(m_smImages);
    std::vector<CLS_Image*> vecImages;
    for (const auto& pImage : m_vecImages)
    {
        vecImages.push_back(pImage.get());
    }
    return vecImages;
}

CLS_Image* CLS_Images::GetProgram() const
{
    const std::shared_lock<std::shared_mutex> lock(m_smImages);
    return m_vecImages.empty() ? nullptr : m_vecImages.front().get();
}

bool CLS_Images::Has(const void* _pHandle) const
{
    const std::shared_lock<std::shared_mutex> lock(m_smImages);
    return std::any_of(m_vecImages.begin(), m_vecImages.end(),
                       [_pHandle](const auto& _pImage) { return _pImage.get() == _pHandle; });
}

CLS_Image* CLS_Images::FindByPath(const std::string& _strPath) const
{
    for (CLS_Image* const pImage : GetAll())
    {
        if (pImage->GetPath() == _strPath)
        {
            return pImage;
        }
    }
    return nullptr;
}

CLS_Image* CLS_Images::FindByAddress(const void* _pAddress) const
{
    const std::shared_lock<std::shared_mutex> lock(m_smImages);
    for (const auto& pImage : m_vecImages)
    {
        if (pImage->Contains(_pAddress))
        {
            return pImage.get();
        }
    }
    return nullptr;
}

void* CLS_Images::FindExport(CLS_Image* _pImage, const std::string& _strName, Seen& _setSeen,
                             bool* _pWeak) const
{
    const std::optional<ST_Export> stExport = ExportTrie::Find(_pImage->GetFile().GetExports(), _strName);
    if (!stExport.has_value())
    {
        return nullptr;
    }
    if (_pWeak != nullptr)
    {
        *_pWeak = stExport->m_bWeak;
    }
    if (stExport->m_uiLibrary == 0)
    {
        return _pImage->GetStart() + stExport->m_uiOffset;
    }
    if (stExport->m_uiLibrary > _pImage->m_vecLibraries.size())
    {
        throw std::runtime_error("the export " + _strName + " refers to library " +
                                 std::to_string(stExport->m_uiLibrary) + ", which does not exist");
    }
    return FindIn(_pImage->m_vecLibraries[stExport->m_uiLibrary - 1], stExport->m_strNameThere, _setSeen);
}

void* CLS_Images::FindIn(CLS_Image* _pImage, const std::string& _strName) const
{
    Seen setSeen;
    return FindIn(_pImage, _strName, setSeen);
}

void* CLS_Images::FindIn(CLS_Image* _pImage, const std::string& _strName, Seen& _setSeen) const
{
    if (_pImage == nullptr)
    {
        void* const pAddress = SystemNames::Find(_strName);
        return pAddress == nullptr && m_pSystemPart != nullptr ? FindExport(m_pSystemPart, _strName, _setSeen)
                                                               : pAddress;
    }
    if (!_setSeen.emplace(_pImage, _strName).second)
    {
        return nullptr;
    }
    if (void* const pAddress = FindExport(_pImage, _strName, _setSeen))
    {
        return pAddress;
    }
    const std::vector<ST_LibraryNeed>& vecNeeds = _pImage->GetFile().GetLibraries();
    for (std::size_t i = 0; i < _pImage->m_vecLibraries.size(); ++i)
    {
        void* const pAddress =
            vecNeeds[i].m_bReexported ? FindIn(_pImage->m_vecLibraries[i], _strName, _setSeen) : nullptr;
        if (pAddress != nullptr)
        {
            return pAddress;
        }
    }
    return nullptr;
}

void* CLS_Images::FindAnywhere(const std::string& _strName) const
{
    for (CLS_Image* const pImage : GetAll())
    {
        Seen setSeen;
        if (void* const pAddress = FindExport(pImage, _strName, setSeen))
        {
            return pAddress;
        }
    }
    return FindIn(nullptr, _strName);
}

void* CLS_Images::FindShared(const std::string& _strName) const
{
    void* pFirst = nullptr;
    for (CLS_Image* const pImage : GetAll())
    {
        bool bWeak = false;
        Seen setSeen;
        void* const pAddress = FindExport(pImage, _strName, setSeen, &bWeak);
        if (pAddress != nullptr && !bWeak)
        {
            return pAddress;
        }
        pFirst = pFirst == nullptr ? pAddress : pFirst;
    }
    return pFirst;
}
