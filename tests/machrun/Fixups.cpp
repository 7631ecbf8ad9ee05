#include "tests/machrun/Fixups.h"

#include "tests/machrun/MachO.h"

namespace
{
constexpr std::uint64_t POINTER_SIZE = sizeof(void*);
constexpr std::uint8_t OPCODE = 0xf0;
constexpr std::uint8_t OPERAND = 0x0f;

/// The place in the image that the opcodes move.
class CLS_Place
{
public:
    explicit CLS_Place(const CLS_MachOFile& _clsFile) : m_clsFile(_clsFile) {}

    void Set(std::size_t _uiSegment, std::uint64_t _uiOffset)
    {
        if (_uiSegment >= m_clsFile.GetSegments().size())
        {
            throw std::runtime_error("a fixup is in segment " + std::to_string(_uiSegment) +
                                     ", which does not exist");
        }
        m_uiAddress = m_clsFile.GetSegments()[_uiSegment].m_uiAddress + _uiOffset;
    }

    /// Distances wrap around: the opcodes go back that way.
    void Advance(std::uint64_t _uiDistance) { m_uiAddress += _uiDistance; }

    std::uint64_t Get() const
    {
        const std::uint64_t uiOffset = m_uiAddress - m_clsFile.GetAddress();
        if (uiOffset > m_clsFile.GetMemorySize() - POINTER_SIZE)
        {
            throw std::runtime_error("a fixup lies outside of the image");
        }
        return m_uiAddress;
    }

private:
    const CLS_MachOFile& m_clsFile;
    std::uint64_t m_uiAddress = 0;
};

/// Without this check, the loader would never finish with a broken file.
void CheckRepeat(std::uint64_t _uiCount, std::uint64_t _uiGap)
{
    if (_uiCount > 1 && POINTER_SIZE + _uiGap == 0)
    {
        throw std::runtime_error("a fixup is repeated at one place");
    }
}

void CheckType(int _iType)
{
    if (_iType != MachO::FIXUP_POINTER)
    {
        throw std::runtime_error("fixups of type " + std::to_string(_iType) + " are unknown");
    }
}

[[noreturn]] void RefuseOpcode(std::uint8_t _uiByte)
{
    throw std::runtime_error("the fixup opcode " + std::to_string(_uiByte) + " is unknown");
}

class CLS_Rebaser
{
public:
    CLS_Rebaser(const CLS_MachOFile& _clsFile, const std::function<void(std::uint64_t)>& _funRebase)
        : m_clsOpcodes(_clsFile.GetRebases()), m_funRebase(_funRebase), m_clsPlace(_clsFile)
    {
    }

    void Run()
    {
        while (!m_clsOpcodes.IsAtEnd())
        {
            const auto uiByte = m_clsOpcodes.Read<std::uint8_t>();
            if ((uiByte & OPCODE) == MachO::REBASE_END)
            {
                return;
            }
            CarryOut(uiByte & OPCODE, uiByte & OPERAND);
        }
    }

private:
    void CarryOut(int _iOpcode, std::uint8_t _uiOperand)
    {
        switch (_iOpcode)
        {
        case MachO::REBASE_SET_TYPE:
            return CheckType(_uiOperand);
        case MachO::REBASE_SET_PLACE:
            return m_clsPlace.Set(_uiOperand, m_clsOpcodes.ReadNumber());
        case MachO::REBASE_ADVANCE:
            return m_clsPlace.Advance(m_clsOpcodes.ReadNumber());
        case MachO::REBASE_ADVANCE_POINTERS:
            return m_clsPlace.Advance(_uiOperand * POINTER_SIZE);
        case MachO::REBASE_REPEAT_SMALL:
            return Repeat(_uiOperand, 0);
        case MachO::REBASE_REPEAT:
            return Repeat(m_clsOpcodes.ReadNumber(), 0);
        case MachO::REBASE_ONE_AND_ADVANCE:
            return Repeat(1, m_clsOpcodes.ReadNumber());
        case MachO::REBASE_REPEAT_WITH_GAPS:
        {
            const std::uint64_t uiCount = m_clsOpcodes.ReadNumber();
            return Repeat(uiCount, m_clsOpcodes.ReadNumber());
        }
        default:
            RefuseOpcode(static_cast<std::uint8_t>(_iOpcode | _uiOperand));
        }
    }

    void Repeat(std::uint64_t _uiCount, std::uint64_t _uiGap)
    {
        CheckRepeat(_uiCount, _uiGap);
        for (std::uint64_t i = 0; i < _uiCount; ++i)
        {
            m_funRebase(m_clsPlace.Get());
            m_clsPlace.Advance(POINTER_SIZE + _uiGap);
        }
    }

    CLS_Bytes m_clsOpcodes;
    const std::function<void(std::uint64_t)>& m_funRebase;
    CLS_Place m_clsPlace;
};

class CLS_Binder
{
public:
    CLS_Binder(const CLS_MachOFile& _clsFile, CLS_Bytes _clsOpcodes, bool _bLazy,
               const std::function<void(const ST_Bind&)>& _funBind)
        : m_clsOpcodes(_clsOpcodes), m_bLazy(_bLazy), m_funBind(_funBind), m_clsPlace(_clsFile)
    {
    }

    void Run()
    {
        while (!m_clsOpcodes.IsAtEnd())
        {
            const auto uiByte = m_clsOpcodes.Read<std::uint8_t>();
            // Each lazy bind has its own end.
            if ((uiByte & OPCODE) == MachO::BIND_END && !m_bLazy)
            {
                return;
            }
            CarryOut(uiByte & OPCODE, uiByte & OPERAND);
        }
    }

private:
    void CarryOut(int _iOpcode, std::uint8_t _uiOperand)
    {
        switch (_iOpcode)
        {
        case MachO::BIND_END:
            return;
        case MachO::BIND_SET_TYPE:
            return CheckType(_uiOperand);
        case MachO::BIND_SET_PLACE:
            return m_clsPlace.Set(_uiOperand, m_clsOpcodes.ReadNumber());
        case MachO::BIND_ADVANCE:
            return m_clsPlace.Advance(m_clsOpcodes.ReadNumber());
        case MachO::BIND_ONE:
            return Repeat(1, 0);
        case MachO::BIND_ONE_AND_ADVANCE:
            return Repeat(1, m_clsOpcodes.ReadNumber());
        case MachO::BIND_ONE_AND_ADVANCE_POINTERS:
            return Repeat(1, _uiOperand * POINTER_SIZE);
        case MachO::BIND_REPEAT_WITH_GAPS:
        {
            const std::uint64_t uiCount = m_clsOpcodes.ReadNumber();
            return Repeat(uiCount, m_clsOpcodes.ReadNumber());
        }
        default:
            return Describe(_iOpcode, _uiOperand);
        }
    }

    /// What the next binds have in common.
    void Describe(int _iOpcode, std::uint8_t _uiOperand)
    {
        switch (_iOpcode)
        {
        case MachO::BIND_SET_SMALL_ORDINAL:
            m_stBind.m_iOrdinal = _uiOperand;
            return;
        case MachO::BIND_SET_ORDINAL:
            m_stBind.m_iOrdinal = static_cast<int>(m_clsOpcodes.ReadNumber());
            return;
        case MachO::BIND_SET_SPECIAL_ORDINAL:
            // A negative number of four bits, or zero.
            m_stBind.m_iOrdinal = _uiOperand == 0 ? 0 : _uiOperand - 16;
            return;
        case MachO::BIND_SET_NAME:
            m_stBind.m_bMayBeMissing = (_uiOperand & MachO::BIND_MAY_BE_MISSING) != 0;
            m_stBind.m_strName = m_clsOpcodes.ReadText();
            return;
        case MachO::BIND_SET_ADDEND:
            m_stBind.m_iAddend = m_clsOpcodes.ReadSignedNumber();
            return;
        default:
            RefuseOpcode(static_cast<std::uint8_t>(_iOpcode | _uiOperand));
        }
    }

    void Repeat(std::uint64_t _uiCount, std::uint64_t _uiGap)
    {
        CheckRepeat(_uiCount, _uiGap);
        for (std::uint64_t i = 0; i < _uiCount; ++i)
        {
            m_stBind.m_uiAddress = m_clsPlace.Get();
            m_funBind(m_stBind);
            m_clsPlace.Advance(POINTER_SIZE + _uiGap);
        }
    }

    CLS_Bytes m_clsOpcodes;
    const bool m_bLazy;
    const std::function<void(const ST_Bind&)>& m_funBind;
    CLS_Place m_clsPlace;
    ST_Bind m_stBind;
};
} // namespace

namespace Fixups
{
void ForEachRebase(const CLS_MachOFile& _clsFile, const std::function<void(std::uint64_t)>& _funRebase)
{
    CLS_Rebaser(_clsFile, _funRebase).Run();
}

void ForEachBind(const CLS_MachOFile& _clsFile, n_Kind _iKind,
                 const std::function<void(const ST_Bind&)>& _funBind)
{
    const CLS_Bytes& clsOpcodes = _iKind == KIND_LAZY   ? _clsFile.GetLazyBinds()
                                  : _iKind == KIND_WEAK ? _clsFile.GetWeakBinds()
                                                        : _clsFile.GetBinds();
    CLS_Binder(_clsFile, clsOpcodes, _iKind == KIND_LAZY, _funBind).Run();
}
} // namespace Fixups
