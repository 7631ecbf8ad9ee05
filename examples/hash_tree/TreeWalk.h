#pragma once

#include "examples/hash_tree/Progress.h"

#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <system_error>

/// Finds the regular files below a directory. Symbolic links are not followed, other kinds of files ignored.
/// For one thread.
class CLS_TreeWalk
{
public:
    /// Called with each file.
    using F_FileFound = std::function<void(const std::filesystem::directory_entry&)>;

    /// Keeps a reference to the progress, which is told what cannot be looked at.
    CLS_TreeWalk(CLS_Progress& _clsProgress, F_FileFound _funFileFound);

    /// Walks the whole tree below _pathRoot; stops early when a cancel is asked for. Called once. What cannot
    /// be looked at is reported, counted and left out; only running out of memory is thrown.
    void Run(const std::filesystem::path& _pathRoot);

    /// How many directories and entries could not be looked at.
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
