#pragma once

#include "QuenHost/Core/CLS_Chain.h"

#include <mutex>

/// Lists the scopes of this process that exist now.
///
/// An owner that is created too early refers to a scope that is not listed.
///
/// Threads: any.
class CLS_LivingScope
{
public:
    /// Adds the scope, of which this object is a member. Allocates nothing.
    explicit CLS_LivingScope(const void* _pScope) noexcept : m_pScope(_pScope)
    {
        ST_Scopes& stScopes = GetAll();
        const std::lock_guard<std::mutex> lock(stScopes.m_mtxScopes);
        stScopes.m_chnScopes.Append(*this);
    }

    ~CLS_LivingScope()
    {
        ST_Scopes& stScopes = GetAll();
        const std::lock_guard<std::mutex> lock(stScopes.m_mtxScopes);
        stScopes.m_chnScopes.Remove(*this);
    }

    CLS_LivingScope(const CLS_LivingScope&) = delete;
    CLS_LivingScope& operator=(const CLS_LivingScope&) = delete;

    /// Whether there is a scope at that address.
    static bool Has(const void* _pScope)
    {
        ST_Scopes& stScopes = GetAll();
        const std::lock_guard<std::mutex> lock(stScopes.m_mtxScopes);
        const CLS_LivingScope* pScope = stScopes.m_chnScopes.GetFirst();
        while (pScope != nullptr && pScope->m_pScope != _pScope)
        {
            pScope = Scopes::GetNext(*pScope);
        }
        return pScope != nullptr;
    }

private:
    struct ST_Scopes;

    /// The list. It is never destroyed, because a scope may be a static object.
    static ST_Scopes& GetAll();

    const void* const m_pScope;
    ST_Link<CLS_LivingScope> m_stLink;

    using Scopes = CLS_Chain<CLS_LivingScope, &CLS_LivingScope::m_stLink>;

    struct ST_Scopes
    {
        std::mutex m_mtxScopes; ///< guards what follows
        Scopes m_chnScopes;
    };
};

inline CLS_LivingScope::ST_Scopes& CLS_LivingScope::GetAll()
{
    static ST_Scopes& s_stScopes = *new ST_Scopes;
    return s_stScopes;
}
