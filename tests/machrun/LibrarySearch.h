#pragma once

#include <string>
#include <vector>

/// Finds the files of libraries as the dynamic loader of macOS does.
namespace LibrarySearch
{
/// The folders of all searches. They are set once, before the program is loaded.
struct ST_Places
{
    std::string m_strRoot;    ///< absolute paths are first tried below this folder
    std::string m_strProgram; ///< the program's absolute path
};
void SetPlaces(const ST_Places& _stPlaces);
const std::string& GetProgramPath();

/// Replaces @loader_path or @executable_path at the beginning of a path. Other paths do not change.
///
/// @loader_path is the folder of the image that needs the path.
std::string Expand(const std::string& _strPath, const std::string& _strAsking);

/// Whether the name is that of the system's library or of a part of it.
bool IsSystem(const std::string& _strName);

/// The path of an existing library, without links.
///
/// It first tries the folders of DYLD_LIBRARY_PATH. Then the name decides:
/// - a path: that file;
/// - @rpath: each run path;
/// - a bare name: the run paths, the current folder and the system's folders.
///
/// Fails: std::runtime_error with the paths that were tried.
std::string Find(const std::string& _strName, const std::string& _strAsking,
                 const std::vector<std::string>& _vecRunPaths);
} // namespace LibrarySearch
