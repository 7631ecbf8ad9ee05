#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/TempFolder.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>

/// The demo host on small trees, as a user runs it.
class CLS_HashTreeFixture : public ::testing::Test
{
protected:
    CLS_HashTreeFixture() : m_strTree(m_clsFolder.GetPath("tree")), m_strSums(m_clsFolder.GetPath("SUMS"))
    {
        std::filesystem::create_directories(m_strTree);
    }

    void AddFile(const std::string& _strName, const std::string& _strText) const
    {
        const std::filesystem::path pthFile = std::filesystem::path(m_strTree) / _strName;
        std::filesystem::create_directories(pthFile.parent_path());
        std::ofstream(pthFile) << _strText;
    }

    /// A file of zeros that takes up no space on the disk, but takes many seconds to hash.
    void AddHugeFile(const std::string& _strName) const
    {
        AddFile(_strName, "");
        std::filesystem::resize_file(std::filesystem::path(m_strTree) / _strName, std::uintmax_t{8} << 30U);
    }

    ST_ChildResult Hash(const std::map<std::string, std::string>& _mapEnvironment = {}) const
    {
        return RunChild(HASH_TREE, {m_strTree, "--output", m_strSums}, _mapEnvironment);
    }

    std::string ReadSums() const { return ReadFile(m_strSums); }

    static std::string ReadFile(const std::string& _strPath)
    {
        std::ostringstream ossText;
        ossText << std::ifstream(_strPath).rdbuf();
        return ossText.str();
    }

    CLS_TempFolder m_clsFolder;
    std::string m_strTree;
    std::string m_strSums;
};
