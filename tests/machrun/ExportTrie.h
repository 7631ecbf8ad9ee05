#pragma once

#include "tests/machrun/CLS_Bytes.h"

#include <optional>
#include <string>

/// A name that a file exports.
struct ST_Export
{
    bool m_bWeak = false;
    std::uint64_t m_uiOffset = 0; ///< from the first byte of the file; unused if m_uiLibrary is not 0
    std::size_t m_uiLibrary = 0;  ///< the library that defines it, counted from 1; 0: the file itself
    std::string m_strNameThere;   ///< its name in that library
};

namespace ExportTrie
{
/// Finds a name, with its leading underscore, among the names that a file exports.
///
/// The names form a tree. An edge has some letters, and a node at the end of a name has the place.
///
/// Fails: std::runtime_error for a tree that leads outside of itself.
std::optional<ST_Export> Find(CLS_Bytes _clsTrie, std::string_view _strName);
} // namespace ExportTrie
