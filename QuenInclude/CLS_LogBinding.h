#pragma once

#include "QuenInclude/CLS_LoadTurn.h"
#include "QuenInclude/CLS_Mutex.h"

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <thread>

/// One log record as "PrintLog" takes it. The texts belong to the caller.
struct ST_LogRecord
{
    int m_iLevel;                    ///< severity
    const char* m_szModule;          ///< may be null
    const char* m_szFile;            ///< may be null
    int m_iLine;                     ///< line of the call site
    const char* m_szFunction;        ///< may be null
    const std::string& m_strMessage; ///< the text
};

/// The entry points of the logging library, and the log records that wait for them.
///
/// The first record opens the library. Records that are made during the opening are kept, up to MOST_KEPT of
/// them with the first one; no thread waits. The thread that opened the library then hands them over, oldest
/// first, with no lock held. It ends with a record of how many were lost: those beyond MOST_KEPT, and those
/// for which there was no memory. If the opening fails, or the library has no "PrintLog", all of them are
/// dropped silently.
///
/// Order:
/// - The records of one thread keep their order.
/// - A record that is made during the hand-over goes to "PrintLog" on its own thread. That thread first hands
///   over its own earlier records.
/// - If another thread is in "PrintLog" with one of those, the new record is kept as well.
/// - So records of different threads may change places during the hand-over.
/// - Once MOST_KEPT records have been kept in this way, or memory has run out, a new record may overtake the
///   one in "PrintLog". Neither is lost.
///
/// After a fork during the opening, the child process lacks the thread that would finish it. Records of the
/// child are kept up to the limit and then only counted. After a fork during the hand-over, the child prints
/// its own records, but not the kept ones of other threads. No thread waits in either case.
///
/// Threads: thread-safe; any thread may call.
/// Owns: an object is allocated on the heap and never freed, because late threads log while the process
/// exits.
class CLS_LogBinding
{
public:
    /// Entry points by name; null for those that the library lacks.
    using Functions = std::map<std::string, void*>;

    /// Opens the library in a folder, or by the default search when the text is empty. An empty map on
    /// failure.
    ///
    /// Threads: one call at a time, with no lock held. It may make log records, and wait for threads that do.
    using Opener = std::function<Functions(const std::string& _strDirectory)>;

    /// How many records are kept at most.
    static constexpr std::size_t MOST_KEPT = 1000;

    /// Opens nothing yet.
    ///
    /// Fails: std::bad_alloc propagates.
    explicit CLS_LogBinding(Opener _funOpen);
    /// Drops the kept records. No other thread may still use the object.
    ~CLS_LogBinding();
    CLS_LogBinding(const CLS_LogBinding&) = delete;
    CLS_LogBinding& operator=(const CLS_LogBinding&) = delete;

    /// The address of an entry point. Opens the library if the last opening does not know the name.
    ///
    /// A call that opens the library hands over the kept records.
    ///
    /// Waits: for another thread's opening, up to CLS_LoadTurn::WAIT_LIMIT; then returns null.
    /// Fails: the opener's exceptions propagate, and the next opening hands over the kept records. An
    /// exception from "PrintLog" ends the process.
    void* GetFunction(const std::string& _strFunction, const std::string& _strDirectory);

    /// Hands a log record to "PrintLog", or keeps it, or drops it.
    ///
    /// Opens the library if it is not open, unless another thread is doing so. After a failed opening, the
    /// next log record tries again.
    ///
    /// Fails: an exception from the opener or from "PrintLog" ends the process.
    void Emit(const ST_LogRecord& _stRecord) noexcept;

private:
    struct ST_Kept;
    using KeptRecords = std::list<ST_Kept>;
    using PrintLogFun = void (*)(int _iLevel, const char* _szModule, const char* _szFile, int _iLine,
                                 const char* _szFunction, const std::string& _strMessage);

    /// A list of one copied record; empty when memory has run out.
    static KeptRecords MakeKept(const ST_LogRecord& _stRecord);
    /// Hands one record to "PrintLog", if there is one.
    static void Print(PrintLogFun _funPrintLog, const ST_LogRecord& _stRecord);
    /// Prints the one kept record and frees its message, which is no longer used.
    static void Print(PrintLogFun _funPrintLog, KeptRecords& _lstOne);

    /// The address that the last opening found for the name; nothing when it does not know the name.
    std::optional<void*> FindBound(const std::string& _strFunction) ZEL_EXCLUDES(m_mtxBinding);
    /// "PrintLog" for records that need not be kept, null to drop them. Empty if they may have to be kept.
    std::optional<PrintLogFun> FindFree() ZEL_EXCLUDES(m_mtxBinding);
    /// Opens the library when the turn comes and looks the name up. Returns what Bind does.
    PrintLogFun BindFunction(const std::string& _strFunction, const std::string& _strDirectory,
                             void*& _pFunction) ZEL_EXCLUDES(m_mtxBinding);
    /// Opens the library, unless another thread does or has done so. Returns what Bind does.
    PrintLogFun BindIfFree() ZEL_EXCLUDES(m_mtxBinding);
    /// Opens the library. Returns "PrintLog" if this thread has to hand over the kept records, else null.
    PrintLogFun Bind(const std::string& _strDirectory) ZEL_EXCLUDES(m_mtxBinding);
    /// Prints or keeps a record. False when it was kept because the library is not open.
    bool PrintOrKeep(const ST_LogRecord& _stRecord) ZEL_EXCLUDES(m_mtxBinding);
    /// Keeps the record, or counts it as lost.
    void Keep(KeptRecords& _lstOne) ZEL_REQUIRES(m_mtxBinding);
    /// Keeps the record if another thread is in "PrintLog" with an earlier one of the calling thread.
    bool HoldBack(KeptRecords& _lstOne) ZEL_REQUIRES(m_mtxBinding);
    /// Leaves all kept records of the calling thread to that thread.
    void ReserveOwn() ZEL_REQUIRES(m_mtxBinding);
    /// Puts the printed record away and takes the next one of the calling thread. False without one.
    bool TakeOwn(KeptRecords& _lstOne) ZEL_EXCLUDES(m_mtxBinding);
    /// Hands over records until none is kept; does nothing when _funPrintLog is null.
    void HandOver(PrintLogFun _funPrintLog) noexcept ZEL_EXCLUDES(m_mtxBinding);
    /// Puts the printed record away and takes the next one, or after the last the count of lost ones.
    std::optional<std::uint64_t> TakeOldest(KeptRecords& _lstOne) ZEL_EXCLUDES(m_mtxBinding);
    /// Makes the record about lost ones.
    void PrintLoss(PrintLogFun _funPrintLog, std::uint64_t _uiLost);

    const Opener m_funOpen;
    CLS_LoadTurn m_clsTurn; ///< one thread at a time opens the library
    CLS_Mutex m_mtxBinding;
    /// What the last opening found.
    Functions m_mapFuns ZEL_GUARDED_BY(m_mtxBinding);
    /// Whether "PrintLog" is among them, and its address, which may be null.
    bool m_bBound ZEL_GUARDED_BY(m_mtxBinding) = false;
    PrintLogFun m_funPrintLog ZEL_GUARDED_BY(m_mtxBinding) = nullptr;
    /// Oldest first.
    KeptRecords m_lstKept ZEL_GUARDED_BY(m_mtxBinding);
    /// Records that are left to the threads that made them.
    KeptRecords m_lstOwn ZEL_GUARDED_BY(m_mtxBinding);
    /// How many records could not be kept.
    std::uint64_t m_uiLost ZEL_GUARDED_BY(m_mtxBinding) = 0;
    /// The thread that hands over; no thread's id at other times.
    std::thread::id m_idHandsOver ZEL_GUARDED_BY(m_mtxBinding);
    /// The thread that made the record that is being handed over.
    std::thread::id m_idInHand ZEL_GUARDED_BY(m_mtxBinding);
    /// How many records the hand-over in progress has held back: see HoldBack.
    std::size_t m_uiHeldBack ZEL_GUARDED_BY(m_mtxBinding) = 0;
    /// Records that were handed over. A logging library may go on using all their texts except the message.
    KeptRecords m_lstHandedOver ZEL_GUARDED_BY(m_mtxBinding);
    /// The text of the record about lost ones, with room for the number, so that making it needs no memory.
    /// For the thread that hands over.
    std::string m_strLoss;
};
