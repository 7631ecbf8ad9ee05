#pragma once

#include "tests/machrun/CLS_Image.h"

#include <memory>
#include <set>
#include <shared_mutex>
#include <utility>

/// The images that are loaded, in the order in which they came, the program first; and the look-up of names
/// in them. Names have their leading underscore. Any thread may call; the operations hold a lock of their own
/// and call nothing foreign meanwhile. They do not keep an image from being taken away.
class CLS_Images
{
public:
    static CLS_Images& Get();

    CLS_Image* Add(std::unique_ptr<CLS_Image> _pImage);
    /// Takes images away again, back to that many.
    void CutTo(std::size_t _uiCount);
    void Remove(CLS_Image* _pImage);
    std::vector<CLS_Image*> GetAll() const;
    CLS_Image* GetProgram() const;

    /// Whether there is an image with this address as its handle.
    bool Has(const void* _pHandle) const;

    /// Null when there is none, as for the loader's own code.
    CLS_Image* FindByPath(const std::string& _strPath) const;
    CLS_Image* FindByAddress(const void* _pAddress) const;

    /// A name of one image or of a library that it re-exports; of the system's library for null. Null when it
    /// has no such name.
    void* FindIn(CLS_Image* _pImage, const std::string& _strName) const;
    /// The name in the first image that has it, or in the system's library.
    void* FindAnywhere(const std::string& _strName) const;
    /// The one definition that all images share: the first that is not weak, else the first one.
    void* FindShared(const std::string& _strName) const;

    /// A library that the system's consists of, in addition to the functions of this program.
    void SetSystemPart(CLS_Image* _pImage) { m_pSystemPart = _pImage; }

private:
    /// Where a name was looked up already: exports of other libraries may lead in a circle.
    using Seen = std::set<std::pair<const CLS_Image*, std::string>>;

    void* FindIn(CLS_Image* _pImage, const std::string& _strName, Seen& _setSeen) const;
    void* FindExport(CLS_Image* _pImage, const std::string& _strName, Seen& _setSeen,
                     bool* _pWeak = nullptr) const;

    mutable std::shared_mutex m_smImages;
    std::vector<std::unique_ptr<CLS_Image>> m_vecImages; ///< guarded by m_smImages
    CLS_Image* m_pSystemPart = nullptr;                  ///< set before the program runs
};
