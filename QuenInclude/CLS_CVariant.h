#pragma once

#include "QuenInclude/CLS_Mutex.h"

#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

/// \file
/// One value of one of several types.

/// What a CLS_CVariant holds.
enum n_CVariantType : std::int32_t
{
    CVariantType_None = -1,    ///< nothing
    CVariantType_Bool = 0,     ///< a flag
    CVariantType_LongLong = 1, ///< an integer
    CVariantType_Double = 2,   ///< a real number
    CVariantType_String = 3,   ///< owned std::string
    CVariantType_Vector = 4,   ///< owned std::vector<CLS_CVariant>
    CVariantType_Map = 5,      ///< owned std::map<std::string, CLS_CVariant>
    CVariantType_Pointer = 6   ///< untyped, not owned
};

/// One value: a flag, an integer, a real number, a string, a list, a map, a pointer, or nothing.
///
/// A null list or map reads as empty, a null string as "".
///
/// Threads: not thread-safe. The owner guards a variant that threads share. Only SetType, assignment and
/// destruction take the variant's own mutex, so calls of SetType on one variant are serialised.
/// Waits: only for that mutex.
/// Fails: std::bad_alloc propagates from every operation that makes or copies a string, a list or a map.
/// Owns: a variant owns its string, list or map, and copies are deep. A pointer is shared.
class CLS_CVariant
{
public:
    CLS_CVariant(); ///< nothing
    /// A flag. Does not accept types that merely convert to bool, such as pointers.
    template <typename T_Flag, std::enable_if_t<std::is_same_v<T_Flag, bool>, int> = 0>
    CLS_CVariant(T_Flag _bValue) : m_iType(CVariantType_Bool)
    {
        m_uValue.m_bValue = _bValue;
    }
    CLS_CVariant(int _iValue);                                          ///< an integer
    CLS_CVariant(long _iValue);                                         ///< an integer
    CLS_CVariant(long long _iValue);                                    ///< an integer
    CLS_CVariant(double _dValue);                                       ///< a real number
    CLS_CVariant(const char* _szValue);                                 ///< a copy; null is the empty string
    CLS_CVariant(const std::string& _strValue);                         ///< a copy of the string
    CLS_CVariant(std::string&& _strValue);                              ///< the string itself
    CLS_CVariant(const std::vector<CLS_CVariant>& _vecValue);           ///< a copy of the list
    CLS_CVariant(const std::map<std::string, CLS_CVariant>& _mapValue); ///< a copy of the map
    CLS_CVariant(void* _pValue);                                        ///< not owned
    CLS_CVariant(const CLS_CVariant& _clsOther);                        ///< a deep copy
    /// Moves the value. _clsOther then holds nothing.
    CLS_CVariant(CLS_CVariant&& _clsOther) noexcept;
    ~CLS_CVariant();

    /// Becomes a deep copy. _clsOther may be an element of this variant's own list or map.
    ///
    /// Fails: std::bad_alloc propagates and leaves this variant as it was.
    CLS_CVariant& operator=(const CLS_CVariant& _clsOther);

    /// Moves the value. _clsOther then holds nothing. _clsOther may be an element of this variant's own list
    /// or map.
    CLS_CVariant& operator=(CLS_CVariant&& _clsOther) noexcept;

    /// The type of the value. Not serialised with SetType.
    n_CVariantType GetType() const { return m_iType; }

    /// Changes the type and frees what was owned. Creates no value for the new type.
    ///
    /// The bits of an in-place value stay as they are. An owned value is null until one is assigned.
    void SetType(n_CVariantType _iType);

    /// The value as a string:
    /// - "1" or "0" for a flag;
    /// - a number in the stream's default form, whatever the locale;
    /// - the elements of a list joined by "|"; kept on purpose: no separator as long as the string so far is
    ///   empty;
    /// - "" for a map and for nothing;
    /// - "0x..." for a pointer.
    std::string ToString() const;

    /// The result of ToString. If the variant owns the string, moves it out and leaves the empty string.
    std::string TakeText();

    /// Appends the result of ToString to _strText.
    void AppendTo(std::string& _strText) const;

    /// The flag; for any other type, whether ToString returns exactly "true".
    bool ToBool() const;

    /// A copy of the map; empty for any other type.
    std::map<std::string, CLS_CVariant> ToMap() const;

private:
    union u_Value
    {
        std::uint8_t m_bValue; ///< the flag as a byte: bits that another type left are no valid bool
        long long m_iValue = 0;
        double m_dValue;
        void* m_pValue;
        std::string* m_pString;
        std::vector<CLS_CVariant>* m_pVector;
        std::map<std::string, CLS_CVariant>* m_pMap;
    };

    /// The bits of the value, with a deep copy in place of an owned value.
    u_Value CopyValue() const;
    /// Frees an owned value.
    void FreeValue();

    CLS_Mutex m_mtxType; ///< serialises SetType
    n_CVariantType m_iType = CVariantType_None;
    u_Value m_uValue;
};
