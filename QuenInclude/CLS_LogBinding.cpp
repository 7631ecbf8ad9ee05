#include "QuenInclude/CLS_LogBinding.h"

#include "QuenInclude/Logger.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <new>
#include <utility>

namespace
{
constexpr const char* LOSS_TEXT = "log records lost while the logging library was opened: ";
constexpr std::size_t MOST_DIGITS = std::numeric_limits<std::uint64_t>::digits10 + 1;

std::optional<std::string> CopyText(const char* _szText)
{
    return _szText == nullptr ? std::nullopt : std::optional<std::string>(_szText);
}

const char* GetText(const std::optional<std::string>& _optText)
{
    return _optText ? _optText->c_str() : nullptr;
}
} // namespace

/// A log record with texts of its own.
struct CLS_LogBinding::ST_Kept
{
    explicit ST_Kept(const ST_LogRecord& _stRecord)
        : m_iLevel(_stRecord.m_iLevel), m_optModule(CopyText(_stRecord.m_szModule)),
          m_optFile(CopyText(_stRecord.m_szFile)), m_iLine(_stRecord.m_iLine),
          m_optFunction(CopyText(_stRecord.m_szFunction)), m_strMessage(_stRecord.m_strMessage)
    {
    }

    ST_LogRecord GetRecord() const
    {
        return {m_iLevel, GetText(m_optModule),   GetText(m_optFile),
                m_iLine,  GetText(m_optFunction), m_strMessage};
    }

    const std::thread::id m_idThread = std::this_thread::get_id(); ///< the thread that made it
    const int m_iLevel;
    const std::optional<std::string> m_optModule;
    const std::optional<std::string> m_optFile;
    const int m_iLine;
    const std::optional<std::string> m_optFunction;
    std::string m_strMessage;
};

CLS_LogBinding::CLS_LogBinding(Opener _funOpen) : m_funOpen(std::move(_funOpen)), m_strLoss(LOSS_TEXT)
{
    m_strLoss.reserve(m_strLoss.size() + MOST_DIGITS);
}

CLS_LogBinding::~CLS_LogBinding() = default;

void* CLS_LogBinding::GetFunction(const std::string& _strFunction, const std::string& _strDirectory)
{
    if (const std::optional<void*> optFunction = FindBound(_strFunction))
    {
        return *optFunction;
    }
    void* pFunction = nullptr;
    HandOver(BindFunction(_strFunction, _strDirectory, pFunction));
    return pFunction;
}

CLS_LogBinding::PrintLogFun CLS_LogBinding::BindFunction(const std::string& _strFunction,
                                                         const std::string& _strDirectory, void*& _pFunction)
{
    const CLS_LoadTurn::CLS_Scope clsTurn(m_clsTurn);
    if (!clsTurn.IsTaken())
    {
        return nullptr;
    }
    // Another thread may have bound the name while this one waited for its turn.
    std::optional<void*> optFunction = FindBound(_strFunction);
    PrintLogFun funPrintLog = nullptr;
    if (!optFunction)
    {
        funPrintLog = Bind(_strDirectory);
        optFunction = FindBound(_strFunction);
    }
    _pFunction = optFunction.value_or(nullptr);
    return funPrintLog;
}

void CLS_LogBinding::Emit(const ST_LogRecord& _stRecord) noexcept
{
    if (const std::optional<PrintLogFun> optPrintLog = FindFree())
    {
        Print(*optPrintLog, _stRecord);
    }
    else if (!PrintOrKeep(_stRecord))
    {
        HandOver(BindIfFree());
    }
}

std::optional<void*> CLS_LogBinding::FindBound(const std::string& _strFunction)
{
    const CLS_LockGuard lock(m_mtxBinding);
    const auto itFun = m_mapFuns.find(_strFunction);
    return itFun == m_mapFuns.end() ? std::nullopt : std::optional(itFun->second);
}

std::optional<CLS_LogBinding::PrintLogFun> CLS_LogBinding::FindFree()
{
    const CLS_LockGuard lock(m_mtxBinding);
    const bool bFree = m_bBound && m_idHandsOver == std::thread::id() && m_lstOwn.empty();
    return bFree ? std::optional(m_funPrintLog) : std::nullopt;
}

CLS_LogBinding::PrintLogFun CLS_LogBinding::BindIfFree()
{
    const CLS_LoadTurn::CLS_Scope clsTurn(m_clsTurn, std::try_to_lock);
    // Otherwise the thread that opens or opened the library hands over the kept records.
    if (!clsTurn.IsTaken() || FindBound("PrintLog"))
    {
        return nullptr;
    }
    return Bind("");
}

/// Binds and chooses the thread that hands over under one lock. After a successful opening, no other thread
/// keeps a log record because the library is closed.
CLS_LogBinding::PrintLogFun CLS_LogBinding::Bind(const std::string& _strDirectory)
{
    Functions mapFuns = m_funOpen(_strDirectory);
    const auto itPrintLog = mapFuns.find("PrintLog");
    const bool bBound = itPrintLog != mapFuns.end();
    const auto funPrintLog = bBound ? reinterpret_cast<PrintLogFun>(itPrintLog->second) : nullptr;
    KeptRecords lstDropped; // freed after the lock is released
    const CLS_LockGuard lock(m_mtxBinding);
    m_mapFuns.swap(mapFuns);
    m_bBound = bBound;
    m_funPrintLog = funPrintLog;
    if (m_idHandsOver != std::thread::id())
    {
        return nullptr;
    }
    if (funPrintLog == nullptr)
    {
        lstDropped.swap(m_lstKept);
        m_uiLost = 0;
    }
    else if (!m_lstKept.empty() || m_uiLost > 0)
    {
        m_idHandsOver = std::this_thread::get_id();
        return funPrintLog;
    }
    return nullptr;
}

bool CLS_LogBinding::PrintOrKeep(const ST_LogRecord& _stRecord)
{
    KeptRecords lstOne = MakeKept(_stRecord);
    KeptRecords lstOwn;
    PrintLogFun funPrintLog = nullptr;
    {
        const CLS_LockGuard lock(m_mtxBinding);
        if (!m_bBound)
        {
            Keep(lstOne);
            return false;
        }
        if (HoldBack(lstOne))
        {
            return true;
        }
        funPrintLog = m_funPrintLog;
        ReserveOwn();
    }
    while (TakeOwn(lstOwn))
    {
        Print(funPrintLog, lstOwn);
    }
    Print(funPrintLog, _stRecord);
    return true;
}

CLS_LogBinding::KeptRecords CLS_LogBinding::MakeKept(const ST_LogRecord& _stRecord)
{
    KeptRecords lstOne;
    try
    {
        lstOne.emplace_back(_stRecord);
    }
    catch (const std::bad_alloc&)
    {
        // Keep counts it.
    }
    return lstOne;
}

void CLS_LogBinding::Keep(KeptRecords& _lstOne)
{
    if (_lstOne.empty() || m_lstKept.size() >= MOST_KEPT)
    {
        ++m_uiLost;
        return;
    }
    m_lstKept.splice(m_lstKept.end(), _lstOne);
}

/// Not more than MOST_KEPT times: a thread that records faster than "PrintLog" prints would keep the thread
/// that hands over busy. Nor without memory, because a record that arrives too early is better than none.
bool CLS_LogBinding::HoldBack(KeptRecords& _lstOne)
{
    const std::thread::id idSelf = std::this_thread::get_id();
    // The thread that hands over is itself in "PrintLog" when it gets here.
    const bool bInHand = m_idInHand == idSelf && m_idHandsOver != idSelf;
    if (!bInHand || _lstOne.empty() || m_uiHeldBack >= MOST_KEPT)
    {
        return false;
    }
    ++m_uiHeldBack;
    m_lstKept.splice(m_lstKept.end(), _lstOne);
    return true;
}

/// All of them at once, so that none is being handed over while the calling thread prints another.
void CLS_LogBinding::ReserveOwn()
{
    const std::thread::id idSelf = std::this_thread::get_id();
    for (auto itKept = m_lstKept.begin(); itKept != m_lstKept.end();)
    {
        const auto itOwn = itKept++;
        if (itOwn->m_idThread == idSelf)
        {
            m_lstOwn.splice(m_lstOwn.end(), m_lstKept, itOwn);
        }
    }
}

/// One at a time, because "PrintLog" may make records, which come behind the others.
bool CLS_LogBinding::TakeOwn(KeptRecords& _lstOne)
{
    const CLS_LockGuard lock(m_mtxBinding);
    m_lstHandedOver.splice(m_lstHandedOver.end(), _lstOne);
    const auto itOwn = std::find_if(m_lstOwn.begin(), m_lstOwn.end(),
                                    [idSelf = std::this_thread::get_id()](const ST_Kept& _stKept)
                                    { return _stKept.m_idThread == idSelf; });
    if (itOwn != m_lstOwn.end())
    {
        _lstOne.splice(_lstOne.end(), m_lstOwn, itOwn);
    }
    return !_lstOne.empty();
}

void CLS_LogBinding::HandOver(PrintLogFun _funPrintLog) noexcept
{
    if (_funPrintLog == nullptr)
    {
        return;
    }
    KeptRecords lstOne;
    while (const std::optional<std::uint64_t> optLost = TakeOldest(lstOne))
    {
        if (lstOne.empty())
        {
            PrintLoss(_funPrintLog, *optLost);
        }
        else
        {
            Print(_funPrintLog, lstOne);
        }
    }
}

/// Nothing when no record and no count is left: then the hand-over is over.
std::optional<std::uint64_t> CLS_LogBinding::TakeOldest(KeptRecords& _lstOne)
{
    const CLS_LockGuard lock(m_mtxBinding);
    m_lstHandedOver.splice(m_lstHandedOver.end(), _lstOne);
    m_idInHand = std::thread::id();
    if (!m_lstKept.empty())
    {
        _lstOne.splice(_lstOne.end(), m_lstKept, m_lstKept.begin());
        m_idInHand = _lstOne.front().m_idThread;
        return m_uiLost;
    }
    if (m_uiLost > 0)
    {
        return std::exchange(m_uiLost, 0);
    }
    m_idHandsOver = std::thread::id();
    m_uiHeldBack = 0;
    return std::nullopt;
}

void CLS_LogBinding::Print(PrintLogFun _funPrintLog, const ST_LogRecord& _stRecord)
{
    if (_funPrintLog != nullptr)
    {
        _funPrintLog(_stRecord.m_iLevel, _stRecord.m_szModule, _stRecord.m_szFile, _stRecord.m_iLine,
                     _stRecord.m_szFunction, _stRecord.m_strMessage);
    }
}

void CLS_LogBinding::Print(PrintLogFun _funPrintLog, KeptRecords& _lstOne)
{
    Print(_funPrintLog, _lstOne.front().GetRecord());
    std::string().swap(_lstOne.front().m_strMessage);
}

void CLS_LogBinding::PrintLoss(PrintLogFun _funPrintLog, std::uint64_t _uiLost)
{
    std::array<char, MOST_DIGITS> arrDigits;
    const auto stEnd = std::to_chars(arrDigits.data(), arrDigits.data() + arrDigits.size(), _uiLost);
    const std::size_t uiText = m_strLoss.size();
    m_strLoss.append(arrDigits.data(), stEnd.ptr);
    Print(_funPrintLog,
          {Logger::LOG_LEVEL_ERROR, "Logger", "QuenInclude/CLS_LogBinding", __LINE__, "HandOver", m_strLoss});
    m_strLoss.resize(uiText);
}
