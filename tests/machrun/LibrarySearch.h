#pragma once

#include <string>
#include <vector>

/// Finds the files of libraries as the dynamic loader of macOS does.
namespace LibrarySearch
{
/// Where a search begins. It is set once, before the program is loaded.
struct ST_Places
{
    std::string m_strRoot;    ///< absolute paths are tried below this folder first
    std::string m_strProgram; ///< the program's absolute path
};
void SetPlaces(const ST_Places& _stPlaces);
const std::string& GetProgramPath();

/// A path with @loader_path, which is the folder of the image that asks, or @executable_path at its beginning
/// written out. Others stay as they are.
std::string Expand(const std::string& _strPath, const std::string& _strAsking);

/// Whether the name is that of the system's own library, or of a part of it.
bool IsSystem(const std::string& _strName);

/// The path of an existing library, without links. Tries the folders of DYLD_LIBRARY_PATH, then what the name
/// says: a path, @rpath with each run path, or a bare name, which is looked for in the run paths, the current
/// folder and the system's folders. Throws std::runtime_error, which says what was tried, when there is no
/// such file.
std::string Find(const std::string& _strName, const std::string& _strAsking,
                 const std::vector<std::string>& _vecRunPaths);
} // namespace LibrarySearch
