#pragma once

#include "tests/machrun/CLS_MachOFile.h"

/// A Mach-O file in memory. The destructor takes it away.
///
/// The loader changes an image under its own lock until the image is bound; the counts at the end are guarded
/// by that lock, too. Everything else may be read by any thread.
class CLS_Image
{
public:
    /// Reads the file and copies its segments to a place that is free. The run paths are those of the image
    /// that asked for this one, and come after the file's own. Throws std::runtime_error with the path and
    /// the reason.
    CLS_Image(const std::string& _strPath, const std::vector<std::string>& _vecRunPaths);
    ~CLS_Image();
    CLS_Image(const CLS_Image&) = delete;
    CLS_Image& operator=(const CLS_Image&) = delete;

    const CLS_MachOFile& GetFile() const { return m_clsFile; }
    const std::string& GetPath() const { return m_clsFile.GetPath(); }
    std::uint8_t* GetStart() const { return m_pStart; }
    bool Contains(const void* _pAddress) const;
    /// Where something stands that the file was linked with at this address.
    std::uint8_t* At(std::uint64_t _uiAddress) const
    {
        return m_pStart + (_uiAddress - m_clsFile.GetAddress());
    }
    /// The address that the file was linked with for this place.
    std::uint64_t GetLinkedAddress(const void* _pPlace) const;
    /// What is added to each address of the file.
    std::uint64_t GetSlide() const;
    /// The section of that name in the image; null when there is none.
    const ST_Section* FindSection(const std::string& _strName) const;
    /// Where a program begins; null for a library.
    void* GetEntry() const;
    /// Where @rpath leads, in the order in which it is tried.
    const std::vector<std::string>& GetRunPaths() const { return m_vecRunPaths; }

    /// Gives each segment the access that the file asks for. Until then everything can be written.
    void Protect() const;

    /// The libraries in the order of their ordinals; null stands for the system's.
    std::vector<CLS_Image*> m_vecLibraries;
    bool m_bBound = false;
    bool m_bInitialised = false;
    bool m_bKept = false; ///< whether it stays when it was closed
    int m_iOpened = 0;    ///< how often it was opened and not closed

private:
    const CLS_MachOFile m_clsFile;
    std::vector<std::string> m_vecRunPaths;
    std::uint8_t* m_pStart = nullptr;
};
