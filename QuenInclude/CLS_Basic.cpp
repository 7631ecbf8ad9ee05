#include "QuenInclude/CLS_Basic.h"

#include <set>
#include <thread>
#include <typeinfo>
#include <vector>

namespace
{
constexpr const char* ID_NAME = "__id__";

/// The class codes asked for so far, by the platform's name of the type. Never destroyed, because codes are
/// handed out as pointers and late threads log while the process exits.
struct ST_ClassCodes
{
    CLS_Mutex m_mtxCodes;
    std::map<std::string, std::string> m_mapCodes ZEL_GUARDED_BY(m_mtxCodes);
};

ST_ClassCodes& GetClassCodes()
{
    static ST_ClassCodes& s_stCodes = *new ST_ClassCodes;
    return s_stCodes;
}

/// Which threads are in RunCallBackFun of which object. A thread-local variable would keep the library from
/// being unloaded on some platforms.
struct ST_CallBackRuns
{
    CLS_Mutex m_mtxRuns;
    std::multiset<std::pair<const CLS_Basic*, std::thread::id>> m_setRuns ZEL_GUARDED_BY(m_mtxRuns);
};

ST_CallBackRuns& GetCallBackRuns()
{
    static ST_CallBackRuns& s_stRuns = *new ST_CallBackRuns;
    return s_stRuns;
}

/// Holds the callback lock of one object, shared. A callback may run callbacks of the same object again. The
/// lock is not taken a second time then: where writers go first, that would deadlock with a waiting writer.
class ZEL_SCOPED_CAPABILITY CLS_CallBackScope
{
public:
    CLS_CallBackScope(const CLS_Basic* _pObject, CLS_SharedMutex& _smLock) ZEL_ACQUIRE_SHARED(_smLock)
        : m_pairRun(_pObject, std::this_thread::get_id()), m_lockShared(_smLock, std::defer_lock)
    {
        if (!IsNested())
        {
            m_lockShared.lock();
        }
        const CLS_LockGuard lock(GetCallBackRuns().m_mtxRuns);
        m_itRun = GetCallBackRuns().m_setRuns.insert(m_pairRun);
    }
    ~CLS_CallBackScope() ZEL_RELEASE_GENERIC()
    {
        const CLS_LockGuard lock(GetCallBackRuns().m_mtxRuns);
        GetCallBackRuns().m_setRuns.erase(m_itRun);
    }
    CLS_CallBackScope(const CLS_CallBackScope&) = delete;
    CLS_CallBackScope& operator=(const CLS_CallBackScope&) = delete;

private:
    bool IsNested() const
    {
        const CLS_LockGuard lock(GetCallBackRuns().m_mtxRuns);
        return GetCallBackRuns().m_setRuns.count(m_pairRun) > 0;
    }

    const std::pair<const CLS_Basic*, std::thread::id> m_pairRun;
    std::shared_lock<CLS_SharedMutex> m_lockShared;
    std::multiset<std::pair<const CLS_Basic*, std::thread::id>>::iterator m_itRun;
};

/// A text from a class of the host, where null stands for the empty text.
std::string GetText(const char* _szText)
{
    return _szText == nullptr ? std::string() : std::string(_szText);
}

std::string GetLastPiece(const std::string& _strText, const std::string& _strSeparators)
{
    const std::vector<std::string> vecPieces = Util::SplitStdString(_strText, _strSeparators);
    return vecPieces.empty() ? std::string() : vecPieces.back();
}
} // namespace

const char* CLS_Basic::GetClassCode()
{
    const std::string strTypeName = typeid(*this).name();
    ST_ClassCodes& stCodes = GetClassCodes();
    const CLS_LockGuard lock(stCodes.m_mtxCodes);
    auto itCode = stCodes.m_mapCodes.find(strTypeName);
    if (itCode == stCodes.m_mapCodes.end())
    {
        // Some platforms give "class ns::Name", others a decorated name without blanks and colons.
        const std::string strCode = GetLastPiece(GetLastPiece(strTypeName, " "), "::");
        itCode = stCodes.m_mapCodes.emplace(strTypeName, strCode).first;
    }
    return itCode->second.c_str();
}

const char* CLS_Basic::GetModuleCode()
{
    return GetClassCode();
}

void CLS_Basic::SetId(const CLS_CVariant& _clsId)
{
    SetParam(ID_NAME, _clsId);
}

std::string CLS_Basic::GetId()
{
    CLS_CVariant clsId = Param(ID_NAME);
    if (clsId.GetType() == CVariantType_None)
    {
        clsId = Util::GetUuid();
        SetId(clsId);
    }
    return clsId.TakeText();
}

std::string CLS_Basic::SetCallBackResultFun(const CallBackResultFun& _funCallBack, void* _pUser)
{
    std::string strKey = Util::GetUuid();
    CallBackEntry pairEntry(_funCallBack, _pUser);
    const CLS_LockGuard lock(m_smCallBackLock);
    m_mapCallBackFun.insert_or_assign(strKey, std::move(pairEntry));
    return strKey;
}

void CLS_Basic::RmoveCallBackResultFun(const std::string& _strKey)
{
    // The captured objects are destroyed after the lock is released.
    std::map<std::string, CallBackEntry>::node_type clsEntry;
    const CLS_LockGuard lock(m_smCallBackLock);
    clsEntry = m_mapCallBackFun.extract(_strKey);
}

void CLS_Basic::SetParam(const std::string& _strName, const CLS_CVariant& _clsValue)
{
    StoreParam(_strName, CLS_CVariant(_clsValue));
}

void CLS_Basic::StoreParam(const std::string& _strName, CLS_CVariant&& _clsValue)
{
    const CLS_LockGuard lock(m_smParamLock);
    m_mapParam.insert_or_assign(_strName, std::move(_clsValue));
}

void CLS_Basic::SetParam(const std::map<std::string, CLS_CVariant>& _mapParam)
{
    std::map<std::string, CLS_CVariant> mapCopy = _mapParam;
    const CLS_LockGuard lock(m_smParamLock);
    m_mapParam.swap(mapCopy);
}

void CLS_Basic::RemoveParam(const std::string& _strName)
{
    const CLS_LockGuard lock(m_smParamLock);
    m_mapParam.erase(_strName);
}

CLS_CVariant CLS_Basic::Param(const std::string& _strName)
{
    const CLS_SharedGuard lock(m_smParamLock);
    const auto itParam = m_mapParam.find(_strName);
    return itParam == m_mapParam.end() ? CLS_CVariant() : itParam->second;
}

std::map<std::string, CLS_CVariant> CLS_Basic::Param()
{
    const CLS_SharedGuard lock(m_smParamLock);
    return m_mapParam;
}

std::string CLS_Basic::ParamToString()
{
    const CLS_SharedGuard lock(m_smParamLock);
    return Util::MapToString(m_mapParam);
}

void CLS_Basic::RunCallBackFun(const std::string& _strFirst,
                               const std::map<std::string, CLS_CVariant>& _mapParam,
                               const std::string& _strSecond, const std::string& _strKey)
{
    const CLS_CallBackScope clsScope(this, m_smCallBackLock);
    if (_strKey.empty())
    {
        for (const auto& [strKey, pairEntry] : m_mapCallBackFun)
        {
            RunOneCallBack(pairEntry, _strFirst, _mapParam, _strSecond);
        }
        return;
    }
    auto itEntry = m_mapCallBackFun.find(_strKey);
    if (itEntry == m_mapCallBackFun.end())
    {
        RecordCallBack(_strKey + " callback is null");
        itEntry = m_mapCallBackFun.try_emplace(_strKey).first;
    }
    RunOneCallBack(itEntry->second, _strFirst, _mapParam, _strSecond);
}

void CLS_Basic::RunOneCallBack(const CallBackEntry& _pairEntry, const std::string& _strFirst,
                               const std::map<std::string, CLS_CVariant>& _mapParam,
                               const std::string& _strSecond)
{
    try
    {
        _pairEntry.first(_strFirst, _mapParam, _strSecond, _pairEntry.second);
    }
    catch (const std::exception& exError)
    {
        RecordCallBack(GetText(GetClassCode()) + "call back Fail" + GetText(exError.what()));
    }
    catch (...)
    {
        RecordCallBack(GetText(GetClassCode()) + "call back Fail");
    }
}

void CLS_Basic::RecordCallBack(const std::string& _strText, int _iLine)
{
    const char* const szModule = GetModuleCode();
    Logger::LogMessageStream(szModule, "RunCallBackFun", "QuenInclude/CLS_Basic", _iLine,
                             Logger::LOG_LEVEL_ERROR)
        << _strText;
}
