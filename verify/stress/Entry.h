#pragma once

#include "tests/support/LiveCopy.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>

/// How a task was submitted.
enum n_TaskKind
{
    KIND_TMP,  ///< one-shot, of an owner
    KIND_LOOP, ///< repeats
    KIND_HELD  ///< one-shot, created, held and queued by the host itself, which may requeue it
};

/// What the model knows about one task. Each atomic member is a word that several threads write.
struct ST_Entry
{
    ST_Entry(long _iNumber, n_TaskKind _iKind, int _iInterval)
        : m_iNumber(_iNumber), m_iKind(_iKind), m_iInterval(_iInterval)
    {
    }

    const long m_iNumber; ///< quoted in the call information
    const n_TaskKind m_iKind;
    const int m_iInterval; ///< of a loop task, in milliseconds

    std::atomic<bool> m_bAccepted{false}; ///< the submission has returned
    std::atomic<bool> m_bDoomed{false};   ///< a removal has begun: the task need not run
    std::atomic<bool> m_bEnded{false};    ///< a removal has returned: the task must not begin
    std::atomic<bool> m_bOverran{false};  ///< a run outlasted a removal's wait: the rules no longer bind it

    std::atomic<int> m_iQueued{0}; ///< how often the host queued it
    std::atomic<int> m_iRuns{0};   ///< how many runs have begun
    std::atomic<bool> m_bRunning{false};
    std::atomic<std::chrono::steady_clock::time_point> m_tpLastEnd{};
    const CLS_LiveCopy::Count m_pCopies = CLS_LiveCopy::MakeCount(); ///< copies of the callable

    std::mutex m_mtxId;                    ///< guards m_strTaskId
    std::string m_strTaskId;               ///< empty until the host knows it
    std::atomic<bool> m_bForgotten{false}; ///< the host has removed it by its id

    std::string GetTaskId()
    {
        const std::lock_guard<std::mutex> lock(m_mtxId);
        return m_strTaskId;
    }

    void SetTaskId(const std::string& _strTaskId)
    {
        const std::lock_guard<std::mutex> lock(m_mtxId);
        m_strTaskId = _strTaskId;
    }
};

using Entry = std::shared_ptr<ST_Entry>;
