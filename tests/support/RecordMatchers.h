#pragma once

#include "tests/support/LogRecorder.h"

#include <gmock/gmock.h>
#include <string>

/// A log record with these fields and exactly this text, from any line.
inline auto IsRecord(int _iLevel, const std::string& _strModule, const std::string& _strFile,
                     const std::string& _strFunction, const std::string& _strMessage)
{
    using LogRecorder::ST_Record;
    using ::testing::Field;
    return ::testing::AllOf(
        Field("level", &ST_Record::m_iLevel, _iLevel), Field("module", &ST_Record::m_strModule, _strModule),
        Field("file", &ST_Record::m_strFile, _strFile), Field("line", &ST_Record::m_iLine, ::testing::Gt(0)),
        Field("function", &ST_Record::m_strFunction, _strFunction),
        Field("message", &ST_Record::m_strMessage, _strMessage));
}

/// The three kinds of log records of the task pool.
inline auto IsPoolRecord(int _iLevel, const std::string& _strFunction, const std::string& _strMessage)
{
    return IsRecord(_iLevel, "ZelTaskPool", "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool", _strFunction,
                    _strMessage);
}

inline auto IsTaskRecord(int _iLevel, const std::string& _strFunction, const std::string& _strMessage)
{
    return IsRecord(_iLevel, "ZelTaskPool", "QuenPlugins/ZelTaskPool/CLS_Task", _strFunction, _strMessage);
}

inline auto IsThreadRecord(int _iLevel, const std::string& _strFunction, const std::string& _strMessage)
{
    return IsRecord(_iLevel, "ZelTaskPool", "QuenPlugins/ZelTaskPool/CLS_TaskThread", _strFunction,
                    _strMessage);
}
