#pragma once

#include "tests/machrun/CLS_Image.h"

#include <memory>
#include <set>
#include <shared_mutex>
#include <utility>

/// The loaded images in the order of loading, and the look-up of names in them. The program comes first.
///
/// Names have their leading underscore. The operations do not keep an image from being unloaded.
///
/// Threads: any. The operations hold a lock of their own, and call no foreign code meanwhile.
class CLS_Images
{
public:
    static CLS_Images& Get();

    CLS_Image* Add(std::unique_ptr<CLS_Image> _pImage);
    /// Unloads the last images, until that many are left.
    void CutTo(std::size_t _uiCount);
    void Remove(CLS_Image* _pImage);
    std::vector<CLS_Image*> GetAll() const;
    CLS_Image* GetProgram() const;

    /// Whether this address is the handle of an image.
    bool Has(const void* _pHandle) const;

    /// The image of this path, or the one that contains this address; null for none.
    CLS_Image* FindByPath(const std::string& _strPath) const;
    CLS_Image* FindByAddress(const void* _pAddress) const;

    /// The name in one image, or in a library that it re-exports; in the system's library for null. Null if
    /// it lacks the name.
    void* FindIn(CLS_Image* _pImage, const std::string& _strName) const;
    /// The name in the first image that has it, or in the system's library.
    void* FindAnywhere(const std::string& _strName) const;
    /// The one definition that all images share: the first strong one, or else the first one.
    void* FindShared(const std::string& _strName) const;

    /// A library that is a part of the system's library, in addition to the functions of this program.
    void SetSystemPart(CLS_Image* _pImage) { m_pSystemPart = _pImage; }

private:
    /// Where a name has been looked up. Re-exports may form a cycle.
    using Seen = std::set<std::pair<const CLS_Image*, std::string>>;

    void* FindIn(CLS_Image* _pImage, const std::string& _strName, Seen& _setSeen) const;
    void* FindExport(CLS_Image* _pImage, const std::string& _strName, Seen& _setSeen,
                     bool* _pWeak = nullptr) const;

    mutable std::shared_mutex m_smImages;
    std::vector<std::unique_ptr<CLS_Image>> m_vecImages; ///< guarded by m_smImages
    CLS_Image* m_pSystemPart = nullptr;                  ///< set before the program runs
};
