#pragma once

#include "tests/machrun/CLS_Bytes.h"

#include <optional>
#include <string>

/// A name that a file offers.
struct ST_Export
{
    bool m_bWeak = false;
    std::uint64_t m_uiOffset = 0; ///< from the first byte of the file; not for a name of a library
    std::size_t m_uiLibrary = 0;  ///< the library that has it, counted from 1; 0: the file itself
    std::string m_strNameThere;   ///< its name in that library
};

namespace ExportTrie
{
/// Finds a name, with its leading underscore, among those that a file offers. They form a tree: an edge has
/// some letters, and a node that ends a name says where the name stands. Throws std::runtime_error for a tree
/// that leads outside of itself.
std::optional<ST_Export> Find(CLS_Bytes _clsTrie, std::string_view _strName);
} // namespace ExportTrie
