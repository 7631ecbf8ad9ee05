#include "tests/support/LogRecorder.h"

#include <mutex>

namespace
{
/// Never destroyed: threads may log while the process exits.
struct ST_RecordStore
{
    std::mutex m_mtxStore; ///< guards everything below
    std::vector<LogRecorder::ST_Record> m_vecRecords;
    std::function<void(const LogRecorder::ST_Record&)> m_funHook;
};

ST_RecordStore& GetStore()
{
    static ST_RecordStore& s_stStore = *new ST_RecordStore;
    return s_stStore;
}

std::string ToText(const char* _szText)
{
    return _szText == nullptr ? "(null)" : _szText;
}
} // namespace

namespace LogRecorder
{
std::vector<ST_Record> Take()
{
    std::vector<ST_Record> vecTaken;
    const std::lock_guard<std::mutex> lock(GetStore().m_mtxStore);
    vecTaken.swap(GetStore().m_vecRecords);
    return vecTaken;
}

std::vector<ST_Record> Peek()
{
    const std::lock_guard<std::mutex> lock(GetStore().m_mtxStore);
    return GetStore().m_vecRecords;
}

void Clear()
{
    Take();
}

void SetHook(const std::function<void(const ST_Record&)>& _funHook)
{
    const std::lock_guard<std::mutex> lock(GetStore().m_mtxStore);
    GetStore().m_funHook = _funHook;
}

void PrintTo(const ST_Record& _stRecord, std::ostream* _pOut)
{
    *_pOut << "{level " << _stRecord.m_iLevel << ", " << _stRecord.m_strModule << ", " << _stRecord.m_strFile
           << ":" << _stRecord.m_iLine << ", " << _stRecord.m_strFunction << ", \"" << _stRecord.m_strMessage
           << "\"}";
}
} // namespace LogRecorder

extern "C"
{
    void PrintLog(int _iLevel, const char* _szModule, const char* _szFile, int _iLine,
                  const char* _szFunction, const std::string& _strMessage)
    {
        const LogRecorder::ST_Record stRecord{_iLevel, ToText(_szModule),   ToText(_szFile),
                                              _iLine,  ToText(_szFunction), _strMessage};
        std::function<void(const LogRecorder::ST_Record&)> funHook;
        {
            const std::lock_guard<std::mutex> lock(GetStore().m_mtxStore);
            GetStore().m_vecRecords.push_back(stRecord);
            funHook = GetStore().m_funHook;
        }
        if (funHook)
        {
            funHook(stRecord);
        }
    }

    // The other entry points that the product looks up and never calls.
    void Init() {}
    void SetLoggerConfig() {}
    void SetLoggerConfigAll() {}
    void UnInit() {}
}
