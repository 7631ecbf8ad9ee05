#pragma once

#include "tests/machrun/CLS_MachOFile.h"

#include <functional>

/// A pointer in an image that a name's address goes into.
struct ST_Bind
{
    std::uint64_t m_uiAddress = 0; ///< where the pointer stands, as the file was linked
    std::string_view m_strName;    ///< with its leading underscore; it lives as long as the file
    int m_iOrdinal = 0;            ///< where it is: a library, counted from 1, or a MachO::n_Ordinal
    bool m_bMayBeMissing = false;  ///< then the pointer becomes null
    std::int64_t m_iAddend = 0;
};

/// What has to be written into an image before it can run. A file says it as a program of opcodes, which
/// these functions carry out: they call back for each pointer, whose place lies within a segment. They throw
/// std::runtime_error for opcodes that are unknown, cut off or lead outside of the image.
namespace Fixups
{
/// The pointers into the image itself, which move with it.
void ForEachRebase(const CLS_MachOFile& _clsFile, const std::function<void(std::uint64_t)>& _funRebase);

enum n_Kind
{
    KIND_NORMAL,
    KIND_LAZY, ///< of functions; they could wait until they are called
    KIND_WEAK, ///< of names that all images share
};
void ForEachBind(const CLS_MachOFile& _clsFile, n_Kind _iKind,
                 const std::function<void(const ST_Bind&)>& _funBind);
} // namespace Fixups
