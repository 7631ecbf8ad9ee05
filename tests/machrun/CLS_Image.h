#pragma once

#include "tests/machrun/CLS_MachOFile.h"

/// A Mach-O file in memory. The destructor unmaps it.
///
/// Threads: the loader changes an image under its own lock until the image is bound. That lock also guards
/// the counts at the end. Any thread may read the rest.
class CLS_Image
{
public:
    /// Reads the file and copies its segments to free memory. The run paths are those of the image that needs
    /// this one. They come after the file's own.
    ///
    /// Fails: std::runtime_error with the path and the reason.
    CLS_Image(const std::string& _strPath, const std::vector<std::string>& _vecRunPaths);
    ~CLS_Image();
    CLS_Image(const CLS_Image&) = delete;
    CLS_Image& operator=(const CLS_Image&) = delete;

    const CLS_MachOFile& GetFile() const { return m_clsFile; }
    const std::string& GetPath() const { return m_clsFile.GetPath(); }
    std::uint8_t* GetStart() const { return m_pStart; }
    bool Contains(const void* _pAddress) const;
    /// The place in memory for an address in the file.
    std::uint8_t* At(std::uint64_t _uiAddress) const
    {
        return m_pStart + (_uiAddress - m_clsFile.GetAddress());
    }
    /// The address in the file for a place in memory.
    std::uint64_t GetLinkedAddress(const void* _pPlace) const;
    /// The difference between a place in memory and its address in the file.
    std::uint64_t GetSlide() const;
    /// The section with this name; null for none.
    const ST_Section* FindSection(const std::string& _strName) const;
    /// The entry point of a program; null for a library.
    void* GetEntry() const;
    /// The folders that @rpath stands for, in the order of the search.
    const std::vector<std::string>& GetRunPaths() const { return m_vecRunPaths; }

    /// Gives each segment the access that the file requests. Until then, everything is writable.
    void Protect() const;

    /// The libraries in the order of their ordinals; null stands for the system's library.
    std::vector<CLS_Image*> m_vecLibraries;
    bool m_bBound = false;
    bool m_bInitialised = false;
    bool m_bKept = false; ///< it is never unloaded
    int m_iOpened = 0;    ///< how many times it was opened and not closed

private:
    const CLS_MachOFile m_clsFile;
    std::vector<std::string> m_vecRunPaths;
    std::uint8_t* m_pStart = nullptr;
};
