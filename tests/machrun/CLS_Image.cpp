#include "tests/machrun/CLS_Image.h"

#include "tests/machrun/LibrarySearch.h"
#include "tests/machrun/MachO.h"

#include <algorithm>
#include <sys/mman.h>

CLS_Image::CLS_Image(const std::string& _strPath, const std::vector<std::string>& _vecRunPaths)
    : m_clsFile(_strPath)
{
    for (const std::string& strRunPath : m_clsFile.GetRunPaths())
    {
        m_vecRunPaths.push_back(LibrarySearch::Expand(strRunPath, _strPath));
    }
    m_vecRunPaths.insert(m_vecRunPaths.end(), _vecRunPaths.begin(), _vecRunPaths.end());
    void* const pMemory = mmap(nullptr, m_clsFile.GetMemorySize(), PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (pMemory == MAP_FAILED)
    {
        throw std::runtime_error("'" + _strPath + "' cannot be loaded: there is no memory for it");
    }
    m_pStart = static_cast<std::uint8_t*>(pMemory);
    for (const ST_Segment& stSegment : m_clsFile.GetSegments())
    {
        if (stSegment.IsInMemory())
        {
            std::copy_n(m_clsFile.GetBytes().GetData() + stSegment.m_uiFileOffset, stSegment.m_uiFileSize,
                        At(stSegment.m_uiAddress));
        }
    }
}

CLS_Image::~CLS_Image()
{
    munmap(m_pStart, m_clsFile.GetMemorySize());
}

bool CLS_Image::Contains(const void* _pAddress) const
{
    const auto* const pAddress = static_cast<const std::uint8_t*>(_pAddress);
    return pAddress >= m_pStart && pAddress < m_pStart + m_clsFile.GetMemorySize();
}

std::uint64_t CLS_Image::GetLinkedAddress(const void* _pPlace) const
{
    return reinterpret_cast<std::uint64_t>(_pPlace) - GetSlide();
}

std::uint64_t CLS_Image::GetSlide() const
{
    return reinterpret_cast<std::uint64_t>(m_pStart) - m_clsFile.GetAddress();
}

const ST_Section* CLS_Image::FindSection(const std::string& _strName) const
{
    for (const ST_Section& stSection : m_clsFile.GetSections())
    {
        if (stSection.m_strName == _strName)
        {
            return &stSection;
        }
    }
    return nullptr;
}

void* CLS_Image::GetEntry() const
{
    return m_clsFile.IsProgram() && m_clsFile.GetEntry() != 0 ? m_pStart + m_clsFile.GetEntry() : nullptr;
}

void CLS_Image::Protect() const
{
    for (const ST_Segment& stSegment : m_clsFile.GetSegments())
    {
        if (!stSegment.IsInMemory())
        {
            continue;
        }
        const std::uint32_t uiWanted = stSegment.m_uiProtection;
        const int iAccess = ((uiWanted & MachO::PROTECTION_READ) != 0 ? PROT_READ : 0) |
                            ((uiWanted & MachO::PROTECTION_WRITE) != 0 ? PROT_WRITE : 0) |
                            ((uiWanted & MachO::PROTECTION_EXECUTE) != 0 ? PROT_EXEC : 0);
        if (mprotect(At(stSegment.m_uiAddress), stSegment.m_uiMemorySize, iAccess) != 0)
        {
            throw std::runtime_error("'" + GetPath() + "' cannot be loaded: segment " + stSegment.m_strName +
                                     " cannot be protected");
        }
    }
}
