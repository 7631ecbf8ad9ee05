#include "examples/hash_tree/TreeWalk.h"

#include "examples/hash_tree/CancelSignal.h"

#include <cstddef>
#include <utility>

namespace fs = std::filesystem;

CLS_TreeWalk::CLS_TreeWalk(CLS_Progress& _clsProgress, F_FileFound _funFileFound)
    : m_clsProgress(_clsProgress), m_funFileFound(std::move(_funFileFound))
{
}

void CLS_TreeWalk::Run(const fs::path& _pathRoot)
{
    m_deqDirectories.push_back(_pathRoot);
    // The walk appends the directories that it finds to this list.
    for (std::size_t iNext = 0; iNext < m_deqDirectories.size() && GetCancelSignal() == 0; ++iNext)
    {
        WalkDirectory(m_deqDirectories[iNext]);
    }
}

void CLS_TreeWalk::WalkDirectory(const fs::path& _pathDirectory)
{
    std::error_code error;
    fs::directory_iterator itEntry(_pathDirectory, error);
    while (!error && itEntry != fs::directory_iterator() && GetCancelSignal() == 0)
    {
        Visit(*itEntry);
        itEntry.increment(error);
    }
    if (error)
    {
        ReportError(_pathDirectory, error);
    }
}

void CLS_TreeWalk::Visit(const fs::directory_entry& _entry)
{
    std::error_code error;
    const fs::file_status status = _entry.symlink_status(error);
    if (error)
    {
        ReportError(_entry.path(), error);
    }
    else if (fs::is_directory(status))
    {
        m_deqDirectories.push_back(_entry.path());
    }
    else if (fs::is_regular_file(status))
    {
        m_funFileFound(_entry);
    }
}

void CLS_TreeWalk::ReportError(const fs::path& _path, const std::error_code& _error)
{
    ++m_iErrors;
    m_clsProgress.Report("cannot walk " + _path.string() + ": " + _error.message());
}
