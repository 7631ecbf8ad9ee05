#include "tests/machrun/ExportTrie.h"

#include "tests/machrun/MachO.h"

namespace
{
ST_Export ReadExport(CLS_Bytes _clsNode, std::string_view _strName)
{
    const std::uint64_t uiFlags = _clsNode.ReadNumber();
    if ((uiFlags & MachO::EXPORT_KIND) == MachO::EXPORT_ABSOLUTE ||
        (uiFlags & MachO::EXPORT_WITH_RESOLVER) != 0)
    {
        throw std::runtime_error("the export " + std::string(_strName) + " is of an unknown kind");
    }
    ST_Export stExport;
    stExport.m_bWeak = (uiFlags & MachO::EXPORT_WEAK) != 0;
    if ((uiFlags & MachO::EXPORT_FROM_LIBRARY) == 0)
    {
        stExport.m_uiOffset = _clsNode.ReadNumber();
        return stExport;
    }
    stExport.m_uiLibrary = static_cast<std::size_t>(_clsNode.ReadNumber());
    stExport.m_strNameThere = _clsNode.ReadText();
    if (stExport.m_strNameThere.empty())
    {
        stExport.m_strNameThere = _strName;
    }
    return stExport;
}

/// Follows the edge of a node whose letters the name begins with, and removes these letters from the name.
bool FollowEdge(CLS_Bytes& _clsTrie, std::string_view& _strName)
{
    for (int i = _clsTrie.Read<std::uint8_t>(); i > 0; --i)
    {
        const std::string_view strEdge = _clsTrie.ReadText();
        const std::uint64_t uiNode = _clsTrie.ReadNumber();
        if (!strEdge.empty() && _strName.substr(0, strEdge.size()) == strEdge)
        {
            _strName.remove_prefix(strEdge.size());
            _clsTrie.GoTo(uiNode);
            return true;
        }
    }
    return false;
}
} // namespace

namespace ExportTrie
{
std::optional<ST_Export> Find(CLS_Bytes _clsTrie, std::string_view _strName)
{
    if (_clsTrie.GetSize() == 0)
    {
        return std::nullopt;
    }
    std::string_view strRest = _strName;
    do
    {
        const std::uint64_t uiSize = _clsTrie.ReadNumber();
        if (strRest.empty())
        {
            return uiSize == 0 ? std::nullopt : std::make_optional(ReadExport(_clsTrie, _strName));
        }
        _clsTrie.Skip(uiSize);
    } while (FollowEdge(_clsTrie, strRest));
    return std::nullopt;
}
} // namespace ExportTrie
