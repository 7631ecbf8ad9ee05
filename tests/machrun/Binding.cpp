#include "tests/machrun/Binding.h"

#include "tests/machrun/CLS_Images.h"
#include "tests/machrun/Fixups.h"
#include "tests/machrun/MachO.h"
#include "tests/machrun/MissingFunction.h"
#include "tests/machrun/ThreadLocals.h"

#include <cstdlib>
#include <map>
#include <set>

namespace
{
std::set<std::string, std::less<>> ReadInterposed()
{
    std::set<std::string, std::less<>> setNames;
    const char* const szNames = std::getenv("MACHRUN_INTERPOSE"); // NOLINT(concurrency-mt-unsafe): once
    std::string strName;
    for (const char cLetter : std::string(szNames == nullptr ? "" : szNames) + ",")
    {
        if (cLetter != ',')
        {
            strName += cLetter;
            continue;
        }
        setNames.insert(std::move(strName));
        strName.clear();
    }
    return setNames;
}

bool IsInterposed(std::string_view _strName)
{
    static const std::set<std::string, std::less<>> s_setNames = ReadInterposed();
    return s_setNames.find(_strName) != s_setNames.end();
}

void Write(CLS_Image& _clsImage, std::uint64_t _uiAddress, std::uint64_t _uiValue)
{
    std::memcpy(_clsImage.At(_uiAddress), &_uiValue, sizeof(_uiValue));
}

/// The names that one image uses.
class CLS_Names
{
public:
    explicit CLS_Names(CLS_Image& _clsImage) : m_clsImage(_clsImage) {}

    /// The address for a bind; null if the name is missing but optional.
    void* Find(const ST_Bind& _stBind)
    {
        const auto [itKnown, bNew] = m_mapKnown.try_emplace({_stBind.m_iOrdinal, _stBind.m_strName}, nullptr);
        if (bNew)
        {
            itKnown->second = LookUp(_stBind.m_iOrdinal, std::string(_stBind.m_strName));
            if (itKnown->second == nullptr && !_stBind.m_bMayBeMissing)
            {
                itKnown->second = Replace(_stBind.m_iOrdinal, std::string(_stBind.m_strName));
            }
        }
        return itKnown->second;
    }

private:
    void* LookUp(int _iOrdinal, const std::string& _strName) const
    {
        const CLS_Images& clsImages = CLS_Images::Get();
        switch (_iOrdinal)
        {
        case MachO::ORDINAL_SELF:
            return clsImages.FindIn(&m_clsImage, _strName);
        case MachO::ORDINAL_PROGRAM:
            return clsImages.FindIn(clsImages.GetProgram(), _strName);
        case MachO::ORDINAL_ANYWHERE:
            return clsImages.FindAnywhere(_strName);
        case MachO::ORDINAL_WEAK:
        {
            void* const pShared = clsImages.FindShared(_strName);
            return pShared == nullptr ? clsImages.FindAnywhere(_strName) : pShared;
        }
        default:
            return LookUpInLibrary(_iOrdinal, _strName);
        }
    }

    void* LookUpInLibrary(int _iOrdinal, const std::string& _strName) const
    {
        const CLS_Images& clsImages = CLS_Images::Get();
        CLS_Image* const pLibrary = GetLibrary(_iOrdinal);
        CLS_Image* const pProgram = clsImages.GetProgram();
        void* const pInterposed = &m_clsImage != pProgram && IsInterposed(_strName)
                                      ? clsImages.FindIn(pProgram, _strName)
                                      : nullptr;
        return pInterposed == nullptr ? clsImages.FindIn(pLibrary, _strName) : pInterposed;
    }

    CLS_Image* GetLibrary(int _iOrdinal) const
    {
        if (_iOrdinal < 1 || static_cast<std::size_t>(_iOrdinal) > m_clsImage.m_vecLibraries.size())
        {
            throw std::runtime_error("a name refers to library " + std::to_string(_iOrdinal) +
                                     ", which does not exist");
        }
        return m_clsImage.m_vecLibraries[static_cast<std::size_t>(_iOrdinal) - 1];
    }

    void* Replace(int _iOrdinal, const std::string& _strName) const
    {
        CLS_Image* const pLibrary = _iOrdinal > 0 ? GetLibrary(_iOrdinal) : nullptr;
        if (_iOrdinal > 0 && pLibrary == nullptr)
        {
            return MissingFunction::Make(_strName);
        }
        throw std::runtime_error("symbol not found: " + _strName + ", expected in " +
                                 (pLibrary == nullptr ? "any image" : pLibrary->GetPath()));
    }

    CLS_Image& m_clsImage;
    std::map<std::pair<int, std::string_view>, void*> m_mapKnown;
};

void CarryOutBinds(CLS_Image& _clsImage)
{
    CLS_Names clsNames(_clsImage);
    const auto funBind = [&](const ST_Bind& _stBind)
    {
        void* const pFound = clsNames.Find(_stBind);
        Write(_clsImage, _stBind.m_uiAddress,
              pFound == nullptr
                  ? 0
                  : reinterpret_cast<std::uint64_t>(pFound) + static_cast<std::uint64_t>(_stBind.m_iAddend));
    };
    Fixups::ForEachBind(_clsImage.GetFile(), Fixups::KIND_NORMAL, funBind);
    Fixups::ForEachBind(_clsImage.GetFile(), Fixups::KIND_LAZY, funBind);
}

/// Binds to the shared definition, if there is one. The earlier fixups have bound to the image's own.
void CarryOutWeakBinds(CLS_Image& _clsImage)
{
    Fixups::ForEachBind(_clsImage.GetFile(), Fixups::KIND_WEAK,
                        [&](const ST_Bind& _stBind)
                        {
                            void* const pShared =
                                CLS_Images::Get().FindShared(std::string(_stBind.m_strName));
                            if (pShared != nullptr)
                            {
                                Write(_clsImage, _stBind.m_uiAddress,
                                      reinterpret_cast<std::uint64_t>(pShared) +
                                          static_cast<std::uint64_t>(_stBind.m_iAddend));
                            }
                        });
}
} // namespace

namespace Binding
{
void Bind(CLS_Image& _clsImage)
{
    try
    {
        Fixups::ForEachRebase(_clsImage.GetFile(),
                              [&](std::uint64_t _uiAddress)
                              {
                                  std::uint64_t uiValue = 0;
                                  std::memcpy(&uiValue, _clsImage.At(_uiAddress), sizeof(uiValue));
                                  Write(_clsImage, _uiAddress, uiValue + _clsImage.GetSlide());
                              });
        CarryOutBinds(_clsImage);
        CarryOutWeakBinds(_clsImage);
        ThreadLocals::Prepare(_clsImage);
    }
    catch (const std::runtime_error& error)
    {
        throw std::runtime_error("'" + _clsImage.GetPath() + "' cannot be bound: " + error.what());
    }
    _clsImage.Protect();
    _clsImage.m_bBound = true;
}
} // namespace Binding
