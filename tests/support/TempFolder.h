#pragma once

#include <filesystem>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <unistd.h>

/// A new empty folder for as long as the object lives.
class CLS_TempFolder
{
public:
    CLS_TempFolder()
    {
        std::string strPattern = (std::filesystem::temp_directory_path() / "zel_test_XXXXXX").string();
        if (mkdtemp(strPattern.data()) == nullptr)
        {
            throw std::runtime_error("no folder " + strPattern);
        }
        m_pthFolder = strPattern;
    }

    ~CLS_TempFolder()
    {
        std::error_code errIgnored;
        std::filesystem::remove_all(m_pthFolder, errIgnored);
    }

    CLS_TempFolder(const CLS_TempFolder&) = delete;
    CLS_TempFolder& operator=(const CLS_TempFolder&) = delete;

    /// The folder itself, or the path of a name in it.
    std::string GetPath() const { return m_pthFolder.string(); }
    std::string GetPath(const std::string& _strName) const { return (m_pthFolder / _strName).string(); }

private:
    std::filesystem::path m_pthFolder;
};
