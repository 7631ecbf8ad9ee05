#pragma once

#include "QuenInclude/CLS_LoadTurn.h"
#include "QuenInclude/CLS_Mutex.h"

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <thread>

/// One log record, as "PrintLog" takes it. The texts belong to the caller.
struct ST_LogRecord
{
    int m_iLevel;                    ///< severity
    const char* m_szModule;          ///< may be null
    const char* m_szFile;            ///< may be null
    int m_iLine;                     ///< line of the call site
    const char* m_szFunction;        ///< may be null
    const std::string& m_strMessage; ///< the text
};

/// The entry points of the logging library, and the records that wait for them.
///
/// The first record opens the library. Records that are made during the opening are kept, up to MOST_KEPT of
/// them, the first one included; no thread waits. The thread that opened the library then hands them over,
/// oldest first, with no lock held, and ends with a record of how many were lost: those beyond MOST_KEPT, and
/// those for which there was no memory. When the opening fails, or the library has no "PrintLog", all of them
/// are dropped silently.
///
/// The records of one thread keep their order. A record that is made during the hand-over goes to "PrintLog"
/// on its own thread, after the earlier ones of that thread, which that thread then hands over itself. Only
/// while another thread is in "PrintLog" with one of them, the new record is kept as well. So records of
/// different threads may change places during the hand-over. When MOST_KEPT records have been kept in this
/// way, or memory runs out, a new one may overtake the one in "PrintLog". None of them is lost.
///
/// In a process that was forked during the opening, the thread that would go on with it is missing. Its
/// records are kept up to the limit and then only counted. One that was forked during the hand-over prints
/// its own records and not the kept ones of other threads. No thread waits there, either.
///
/// Thread-safe. Kept on the heap for good, for late threads log while the process exits.
class CLS_LogBinding
{
public:
    /// Entry points by name; null for those that the library lacks.
    using Functions = std::map<std::string, void*>;

    /// Opens the library in a folder, or by the default search when the text is empty. An empty map when that
    /// fails. One call at a time, with no lock held. It may make records, and wait for threads that do.
    using Opener = std::function<Functions(const std::string& _strDirectory)>;

    /// So many records are kept at most.
    static constexpr std::size_t MOST_KEPT = 1000;

    /// Opens nothing yet. std::bad_alloc passes.
    explicit CLS_LogBinding(Opener _funOpen);
    /// Drops what is kept. No other thread uses the object any more.
    ~CLS_LogBinding();
    CLS_LogBinding(const CLS_LogBinding&) = delete;
    CLS_LogBinding& operator=(const CLS_LogBinding&) = delete;

    /// The address of an entry point. Opens the library when the last opening does not tell: then it waits up
    /// to CLS_LoadTurn::WAIT_LIMIT for another thread's opening, after which it returns null. Hands over what
    /// was kept when it opened the library; what "PrintLog" throws then ends the process. Passes the opener's
    /// exceptions on; the next opening then hands over what was kept.
    void* GetFunction(const std::string& _strFunction, const std::string& _strDirectory);

    /// Hands a record to "PrintLog", or keeps it, or drops it. Opens the library when that was not done and
    /// no other thread does. What the opener or "PrintLog" throws ends the process.
    void Emit(const ST_LogRecord& _stRecord) noexcept;

private:
    struct ST_Kept;
    using KeptRecords = std::list<ST_Kept>;
    using PrintLogFun = void (*)(int _iLevel, const char* _szModule, const char* _szFile, int _iLine,
                                 const char* _szFunction, const std::string& _strMessage);

    static KeptRecords MakeKept(const ST_LogRecord& _stRecord);
    static void Print(PrintLogFun _funPrintLog, const ST_LogRecord& _stRecord);
    static void Print(PrintLogFun _funPrintLog, KeptRecords& _lstOne);

    bool FindBound(const std::string& _strFunction, void*& _pFunction) ZEL_EXCLUDES(m_mtxBinding);
    bool FindFree(PrintLogFun& _funPrintLog) ZEL_EXCLUDES(m_mtxBinding);
    PrintLogFun BindFunction(const std::string& _strFunction, const std::string& _strDirectory,
                             void*& _pFunction) ZEL_EXCLUDES(m_mtxBinding);
    PrintLogFun BindIfFree() ZEL_EXCLUDES(m_mtxBinding);
    PrintLogFun Bind(const std::string& _strDirectory) ZEL_EXCLUDES(m_mtxBinding);
    bool PrintOrKeep(const ST_LogRecord& _stRecord) ZEL_EXCLUDES(m_mtxBinding);
    void Keep(KeptRecords& _lstOne) ZEL_REQUIRES(m_mtxBinding);
    bool HoldBack(KeptRecords& _lstOne) ZEL_REQUIRES(m_mtxBinding);
    void ReserveOwn() ZEL_REQUIRES(m_mtxBinding);
    bool TakeOwn(KeptRecords& _lstOne) ZEL_EXCLUDES(m_mtxBinding);
    void HandOver(PrintLogFun _funPrintLog) noexcept ZEL_EXCLUDES(m_mtxBinding);
    bool TakeOldest(KeptRecords& _lstOne, std::uint64_t& _uiLost) ZEL_EXCLUDES(m_mtxBinding);
    void PrintLoss(PrintLogFun _funPrintLog, std::uint64_t _uiLost);

    const Opener m_funOpen;
    CLS_LoadTurn m_clsTurn; ///< one thread at a time opens the library
    CLS_Mutex m_mtxBinding;
    /// What the last opening found.
    Functions m_mapFuns ZEL_GUARDED_BY(m_mtxBinding);
    /// Whether "PrintLog" is among them; its address, which may be null.
    bool m_bBound ZEL_GUARDED_BY(m_mtxBinding) = false;
    PrintLogFun m_funPrintLog ZEL_GUARDED_BY(m_mtxBinding) = nullptr;
    /// Oldest first.
    KeptRecords m_lstKept ZEL_GUARDED_BY(m_mtxBinding);
    /// Those that the threads which made them hand over themselves.
    KeptRecords m_lstOwn ZEL_GUARDED_BY(m_mtxBinding);
    /// How many could not be kept.
    std::uint64_t m_uiLost ZEL_GUARDED_BY(m_mtxBinding) = 0;
    /// The thread that hands over; no thread's id at other times.
    std::thread::id m_idHandsOver ZEL_GUARDED_BY(m_mtxBinding);
    /// The thread whose record it has in hand.
    std::thread::id m_idInHand ZEL_GUARDED_BY(m_mtxBinding);
    /// How many records the hand-over in progress has held back: see HoldBack.
    std::size_t m_uiHeldBack ZEL_GUARDED_BY(m_mtxBinding) = 0;
    /// What was handed over. A logging library may go on using all texts but the message.
    KeptRecords m_lstHandedOver ZEL_GUARDED_BY(m_mtxBinding);
    /// The text of the record about lost ones, with room for the number: making it needs no memory. For the
    /// thread that hands over.
    std::string m_strLoss;
};
