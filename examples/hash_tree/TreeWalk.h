#pragma once

#include "examples/hash_tree/Progress.h"

#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <system_error>

/// Finds the regular files below a directory. It does not follow symbolic links.
///
/// Threads: one.
class CLS_TreeWalk
{
public:
    /// Called with each file.
    using F_FileFound = std::function<void(const std::filesystem::directory_entry&)>;

    /// Keeps a reference to _clsProgress, which reports what cannot be read.
    CLS_TreeWalk(CLS_Progress& _clsProgress, F_FileFound _funFileFound);

    /// Walks the tree below _pathRoot; stops early after a cancel. Called once.
    ///
    /// Fails: std::bad_alloc. What cannot be read is reported, counted and left out.
    void Run(const std::filesystem::path& _pathRoot);

    /// Returns how many directories and entries could not be read.
    std::uint64_t GetErrors() const { return m_iErrors; }

private:
    void WalkDirectory(const std::filesystem::path& _pathDirectory);
    void Visit(const std::filesystem::directory_entry& _entry);
    void ReportError(const std::filesystem::path& _path, const std::error_code& _error);

    CLS_Progress& m_clsProgress;
    const F_FileFound m_funFileFound;
    std::deque<std::filesystem::path> m_deqDirectories; ///< never moves its elements
    std::uint64_t m_iErrors = 0;
};
