#pragma once

#include "tests/machrun/CLS_MachOFile.h"

#include <functional>

/// A pointer in an image that receives the address of a name.
struct ST_Bind
{
    std::uint64_t m_uiAddress = 0; ///< the pointer's address in the file
    std::string_view m_strName;    ///< with its leading underscore; it lives as long as the file
    int m_iOrdinal = 0;            ///< where the name is: a library, counted from 1, or a MachO::n_Ordinal
    bool m_bMayBeMissing = false;  ///< if the name is missing, the pointer becomes null
    std::int64_t m_iAddend = 0;
};

/// The pointers to write into an image before it can run.
///
/// A file has them as a program of opcodes. These functions execute it, and call back for each pointer. Its
/// place is within a segment.
///
/// Fails: std::runtime_error for opcodes that are unknown or truncated, or that lead outside of the image.
namespace Fixups
{
/// The pointers to places in the image itself.
void ForEachRebase(const CLS_MachOFile& _clsFile, const std::function<void(std::uint64_t)>& _funRebase);

enum n_Kind
{
    KIND_NORMAL,
    KIND_LAZY, ///< functions, which the file allows to be bound at their first call
    KIND_WEAK, ///< names that all images share
};
void ForEachBind(const CLS_MachOFile& _clsFile, n_Kind _iKind,
                 const std::function<void(const ST_Bind&)>& _funBind);
} // namespace Fixups
