"""The faults to find: each is put into a copy of one source of the product.

An edit is (text, replacement). The text occurs in the source exactly once. scripts/checks/schedules.sh looks for the
fault with the scenario and the strategy. "seen" is the beginning of the expected failure, or several such beginnings;
"a task" in it stands for any task's name.

  faults.py    checks that each text occurs once; takes one second and builds nothing
"""
import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]

POOL = "QuenPlugins/ZelTaskPool/"
DISPATCH = POOL + "CLS_QuenTaskPoolDispatch.cpp"
LIFETIME = POOL + "CLS_QuenTaskPoolLifetime.cpp"
OWNERS = POOL + "CLS_QuenTaskPoolOwners.cpp"
TASKS = POOL + "CLS_QuenTaskPoolTasks.cpp"
WORKERS = POOL + "CLS_QuenTaskPoolWorkers.cpp"
TASK = POOL + "CLS_Task.cpp"
WORKER = POOL + "CLS_TaskThread.cpp"
GATE = POOL + "CLS_RunGate.cpp"
CLAIM = POOL + "CLS_ShutdownClaim.cpp"
BINDING = "QuenInclude/CLS_LogBinding.cpp"


KIT = "QuenHost/Core/"
KIT_SCENARIOS = "verify/schedules/pool/KitScenarios.cpp"


def fault(name, source, *edits, scenario, strategy, seen):
    """A fault of a header is put into the one source that uses it."""
    user = KIT_SCENARIOS if source.startswith(KIT) else None
    return {"name": name, "source": source, "edits": edits, "scenario": scenario, "strategy": strategy, "seen": seen,
            "user": user}


FAULTS = [
    # Notifications.
    fault("a queued id causes no notification", DISPATCH,
          ("memory_order_relaxed);\n    m_cvWaitingTasks.notify_one();\n", "memory_order_relaxed);\n"),
          scenario="submit-and-run", strategy="random",
          seen="a task was queued 1 times and ran 0"),
    fault("a hand-over causes no notification", WORKER,
          ("    m_bHandedOver.store(true, std::memory_order_relaxed);\n    m_cvFunction.notify_one();\n",
           "    m_bHandedOver.store(true, std::memory_order_relaxed);\n"),
          scenario="submit-and-run", strategy="random",
          seen="a task was queued 1 times and ran 0"),
    fault("the end of the pool causes no notification", DISPATCH,
          ("    }\n    m_cvWaitingTasks.notify_one();\n", "    }\n"),
          scenario="submit-and-run", strategy="random",
          seen="the service threads end late"),
    fault("the pool's run flag is cleared outside the lock", DISPATCH,
          ("    {\n        const CLS_LockGuard lock(m_mtxWaitingTasks);\n        m_bRun.exchange(false);\n    }\n",
           "    m_bRun.exchange(false);\n"),
          scenario="submit-and-run", strategy="random",
          seen="the service threads end late"),
    fault("a worker's end is notified outside the lock", WORKER,
          ("gets the notification.\n    const CLS_LockGuard lock(m_mtxFunction);\n", "gets the notification.\n"),
          scenario="two-submitters", strategy="random",
          seen="the end of the pool takes"),
    fault("the gate waits without a predicate", GATE,
          ("_tpLimit, [this] { return IsOver(m_uiState); });", "_tpLimit);"),
          scenario="end-waits-for-removed", strategy="random",
          seen=("a task still runs", "the end of the pool takes")),

    fault("a worker sleeps although its hint is out of date", WORKER,
          ("    CLS_WaitGuard lock(m_mtxFunction);\n    while (",
           "    const bool bHandedOver = m_bHandedOver;\n    CLS_WaitGuard lock(m_mtxFunction);\n"
           "    if (!bHandedOver && m_bRun)\n    {\n        m_cvFunction.wait_for(lock.GetLock(), WAIT_LIMIT);\n    }\n"
           "    while ("),
          scenario="submit-and-run", strategy="random",
          seen=("a task was queued 1 times and ran 0", "the end of the pool takes")),
    fault("the dispatcher sleeps although its hint is out of date", DISPATCH,
          ("        CLS_WaitGuard lock(m_mtxWaitingTasks);\n        while (",
           "        const bool bWaitingTasks = m_bWaitingTasks;\n        CLS_WaitGuard lock(m_mtxWaitingTasks);\n"
           "        if (!bWaitingTasks && m_bRun)\n        {\n"
           "            m_cvWaitingTasks.wait_for(lock.GetLock(), QUEUE_WAIT);\n        }\n        while ("),
          scenario="two-submitters", strategy="random",
          seen=("a task was queued 1 times and ran 0", "a task begins late")),

    # The gate.
    fault("a step at the gate causes no notification", GATE,
          ("        m_cvGate.notify_one();\n", ""),
          scenario="close-against-jobs", strategy="random",
          seen="the gate closes late"),
    fault("a step at the gate notifies without the mutex", GATE,
          ("        const CLS_LockGuard lock(m_mtxGate);\n        m_cvGate", "        m_cvGate"),
          scenario="close-against-jobs", strategy="random",
          seen="the gate closes late"),
    fault("a job begins although the gate is closed", GATE,
          ("while ((uiState & CLOSED) == 0)", "while (true)"),
          scenario="close-against-jobs", strategy="random",
          seen=("foreign code begins behind a closed gate", "the gate gives up early", "the pool is used after its end")),
    fault("the gate abandons a worker in two steps", GATE,
          ("        if (m_uiState.compare_exchange_weak(uiState, uiState | ABANDONED))\n        {\n"
           "            return true;\n        }\n",
           "        m_uiState = uiState | ABANDONED;\n        return true;\n"),
          scenario="close-against-jobs", strategy="random",
          seen="the pool is used after its end"),
    fault("the gate is closed after its first look", GATE,
          ("    m_uiState |= CLOSED;\n    if (", "    if ("),
          ("    while (!IsOver(m_uiState))\n", "    m_uiState |= CLOSED;\n    while (!IsOver(m_uiState))\n"),
          scenario="close-against-jobs", strategy="random",
          seen=("the gate gives up early", "the gate closes late")),

    fault("the gate decides in two steps", GATE,
          ("    while (!IsOver(m_uiState))\n    {\n        if (Abandon())\n        {\n            return false;\n        }\n",
           "    while (!IsForeign(m_uiState) && !IsOver(m_uiState))\n    {\n"),
          ("    return true;\n}\n\nbool CLS_RunGate::Abandon", "    return !Abandon();\n}\n\nbool CLS_RunGate::Abandon"),
          scenario="close-against-jobs", strategy="random",
          seen="the pool is used after its end"),

    # A record that leaves the registry while its task is on the way to a worker.
    fault("a kept reference is always trusted", TASK,
          ("if (pKept && pKept->IsOfEra(stRegistry.GetEra()))", "if (pKept)"),
          scenario="registry-delete", strategy="random",
          seen="a task begins after its removal has returned"),
    fault("a deleted record keeps its era", TASK,
          ("        ForgetEra(itTask->second);\n        stRegistry", "        stRegistry"),
          scenario="registry-delete", strategy="random",
          seen="a task begins after its removal has returned"),
    fault("a replaced record keeps its era", TASK,
          ("        ForgetEra(stInserted.position->second);\n", ""),
          scenario="registry-replace", strategy="random",
          seen="a task begins after its removal has returned"),
    fault("the size of the registry is not compared", TASK,
          ("if (m_uiSize.load(std::memory_order_acquire) != m_mapTasks.size())", "if (false)"),
          scenario="registry-erase", strategy="random",
          seen="a task begins after its removal has returned"),
    fault("a deletion hides the change of a host", TASK,
          ("    const ST_Registry::CLS_Change clsChange(stRegistry);\n    const auto itTask", "    const auto itTask"),
          scenario="registry-erase", strategy="random",
          seen="a task begins after its removal has returned"),
    fault("a change is announced before the era is known", TASK,
          ("m_uiEra(_stRegistry.GetEra()),", "m_uiEra((_stRegistry.m_bChanging = true, _stRegistry.GetEra())),"),
          scenario="registry-erase", strategy="pct3",
          seen="a task begins after its removal has returned"),
    fault("the end of a change is not announced", TASK,
          ("~CLS_Change() { m_stRegistry.m_bChanging.store(false, std::memory_order_relaxed); }", "~CLS_Change() {}"),
          scenario="registry-erase", strategy="random",
          seen="a task begins after its removal has returned"),
    fault("a record that was handed out keeps its era", TASK,
          ("    ForgetEra(itTask->second);\n    return itTask->second;", "    return itTask->second;"),
          scenario="registry-assign", strategy="random",
          seen="a task begins after its removal has returned"),
    fault("a record that a host creates has an era", TASK,
          ("    pTask->m_uiEra.store(0, std::memory_order_relaxed);\n    return pTask;", "    return pTask;"),
          scenario="registry-assign", strategy="random",
          seen="a task begins after its removal has returned"),
    fault("a worker keeps the reference to its last task", WORKERS,
          ("            _pWorker->GetBoundTask().swap(_pTask);\n",
           "            if (!_pWorker->GetBoundTask().lock())\n            {\n"
           "                _pWorker->GetBoundTask().swap(_pTask);\n            }\n"),
          ("        pTask.swap(_pWorker->GetBoundTask());\n", ""),
          scenario="submit-and-run", strategy="random",
          seen="a task runs more often than it was queued"),

    # Stop against the start of a run.
    fault("a run reads the validity before it stores the status", TASK,
          ("    const CLS_Run clsRun(*this);\n    try\n    {\n        InvokeCallable();\n",
           "    const bool bValid = m_bValid;\n    const CLS_Run clsRun(*this);\n    try\n    {\n"
           "        if (bValid)\n        {\n            InvokeCallable();\n        }\n"),
          ("if (m_bValid && m_funTask)", "if (m_funTask)"),
          scenario="stop-handshake", strategy="random",
          seen="a task begins after its removal has returned"),
    fault("a stop reads the status before it stores the validity", TASK,
          ("    m_bValid.exchange(false);\n    for (int iSleeps",
           "    const bool bExecuting = m_iTaskStatus >= STATUS_EXECUTING;\n    m_bValid.exchange(false);\n"
           "    if (!bExecuting)\n    {\n        return true;\n    }\n    for (int iSleeps"),
          scenario="stop-handshake", strategy="random",
          seen=("a task still runs", "a task begins after its removal has returned")),
    fault("a stop stores the validity with release", TASK,
          ("    m_bValid.exchange(false);\n    for",
           "    m_bValid.store(false, std::memory_order_release);\n    for"),
          scenario="stop-handshake", strategy="random",
          seen=("a task still runs", "a task begins after its removal has returned")),
    fault("a run stores the status with release", TASK,
          ("m_iTaskStatus.exchange(TASK_STATUS_RUNNING);",
           "m_iTaskStatus.store(TASK_STATUS_RUNNING, std::memory_order_release);"),
          scenario="stop-against-start", strategy="pct2",
          seen="a task still runs"),

    # Removal.
    fault("a removal does not wait for the run", TASKS,
          ("const bool bStopped = _pTask && _pTask->StopUntil(_tpLimit);",
           "const bool bStopped = _pTask && _tpLimit == NO_LIMIT;\n    if (_pTask)\n    {\n        _pTask->SetValid(false);\n    }"),
          scenario="remove-itself", strategy="random",
          seen="a task does not run once"),
    fault("an owner's tasks are made invalid one by one", TASKS,
          ("    InvalidateTasks(_lstTaskIds);\n    for", "    for"),
          scenario="remove-owner-of-many", strategy="random",
          seen="a task begins during its removal"),
    fault("a removal does not wait for the last reference", TASKS,
          ("bStopped && WaitForLastReference(_pTask, _iPollsLeft)", "false && bStopped"),
          scenario="loop-against-removal", strategy="random",
          seen="the callable of a task outlives its removal"),
    fault("a removal leaves the callable to the record", TASKS,
          ("        _pTask->TakeCallable();\n", ""),
          scenario="captured-object-calls", strategy="random",
          seen="what the callable captured outlives the removal"),
    fault("a removed task is destroyed under the registry's lock", TASKS,
          ("    const bool bStopped = _pTask && _pTask->StopUntil(_tpLimit);\n    CLS_Task::DeleteTask(_strTaskId);\n",
           "    const bool bStopped = false;\n    if (_pTask)\n    {\n        _pTask->StopUntil(_tpLimit);\n    }\n"
           "    const_cast<std::shared_ptr<CLS_Task>&>(_pTask).reset();\n    CLS_Task::DeleteTask(_strTaskId);\n"),
          scenario="captured-object-calls", strategy="random",
          seen=("livelock: 200000 steps", "what the callable captured outlives the removal")),
    fault("a removal always polls as often as it may", TASKS,
          ("while (_pTask.use_count() > 1)", "while (true)"),
          scenario="remove-owner", strategy="random",
          seen="the removal by owner takes"),
    fault("a removal leaves the id on the loop list", TASKS,
          ("        ForgetLoopTask(_strTaskId);\n", ""),
          scenario="loop-against-removal", strategy="random",
          seen="the loop list keeps its id"),
    fault("a kill stops the task alone", TASKS,
          ("    RemoveTask(_strTaskId, _strCallInfo);\n", "    StopTask(_strTaskId);\n"),
          scenario="loop-against-removal", strategy="random",
          seen="the callable of a task outlives its removal"),
    fault("a removal looks for more on a pool that is gone", TASKS,
          ("i < LATE_ROUNDS && LoadInstance() == this;", "i < LATE_ROUNDS;"),
          scenario="captured-object-ends-the-pool", strategy="random",
          seen="freed memory is"),

    fault("what tasks submit while they are removed is waited for one by one", TASKS,
          ("        RemoveTasks(lstTaskIds, tpLimit, _iPollsLeft);", "        RemoveTasks(lstTaskIds, NO_LIMIT, _iPollsLeft);"),
          scenario="remove-owner-of-a-chain", strategy="random",
          seen="the removal of a chain takes too long"),
    fault("a removed loop task is listed by its submission", TASKS,
          ("        if (pTask->IsRemoved())\n", "        if (false)\n"),
          scenario="loop-removed-while-submitted", strategy="pct3",
          seen="the loop list keeps its id"),
    fault("a removal looks at the loop list before it marks the task", TASKS,
          ("        if (pTask)\n        {\n            pTask->SetRemoved();\n        }\n        ForgetLoopTask(_strTaskId);\n",
           "        ForgetLoopTask(_strTaskId);\n        if (pTask)\n        {\n            pTask->SetRemoved();\n        }\n"),
          scenario="loop-removed-while-submitted", strategy="pct3",
          seen="the loop list keeps its id"),

    # Submission and dispatch.
    fault("two locks are held to note an owner", OWNERS,
          ("    const CLS_LockGuard lock(m_mtxTmpTasks);\n    auto itTasks",
           "    const CLS_LockGuard lockQueue(m_mtxWaitingTasks);\n    const CLS_LockGuard lock(m_mtxTmpTasks);\n"
           "    auto itTasks"),
          scenario="submit-and-run", strategy="random",
          seen="a thread holds two locks of the pool"),
    fault("the owner maps name different owners", OWNERS,
          (".position->second = _pObj;", ".position->second = this;"),
          scenario="submit-and-run", strategy="random",
          seen="the owner maps disagree"),
    fault("a task that has run keeps its owner", WORKERS,
          ("        RemoveTmpTask(optTask->m_strTaskId);\n", ""),
          scenario="submit-and-run", strategy="random",
          seen="a task that has run keeps its owner"),
    fault("an owner is noted before the queueing", TASKS,
          ("        QueueTask(MakeTask(_funTask, ONE_SHOT, _strCallInfo, strTaskId), strTaskId);\n",
           "        const auto pTask = MakeTask(_funTask, ONE_SHOT, _strCallInfo, strTaskId);\n"),
          ("        AddOwnedTask(std::move(strTaskId), _pObj);\n",
           "        AddOwnedTask(strTaskId, _pObj);\n        QueueTask(pTask, strTaskId);\n"),
          scenario="submit-and-run", strategy="random",
          seen="a task has an owner before it was queued"),
    fault("the queue is copied, and cleared a moment later", DISPATCH,
          ("        _stBatch.m_vecTaskIds.swap(m_vecWaitingTasks);\n"
           "        _stBatch.m_vecTasks.swap(m_vecWaitingRecords);\n",
           "        _stBatch.m_vecTaskIds = m_vecWaitingTasks;\n"
           "        _stBatch.m_vecTasks = m_vecWaitingRecords;\n"),
          ("    _stBatch.m_lstOverflow.reverse();\n",
           "    _stBatch.m_lstOverflow.reverse();\n    const CLS_LockGuard lock(m_mtxWaitingTasks);\n"
           "    m_vecWaitingTasks.clear();\n    m_vecWaitingRecords.clear();\n"),
          scenario="two-submitters", strategy="random",
          seen="a task was queued 1 times and ran 0"),
    fault("the report of a busy pool comes at the ninety-first attempt", DISPATCH,
          ("RETRIES_PER_REPORT = 90;", "RETRIES_PER_REPORT = 91;"),
          scenario="busy-report", strategy="random",
          seen="the report comes at another time"),

    # Workers.
    fault("the idle list is not sorted", WORKERS,
          ("    m_vecIdleThreads.insert(itBehind, _pWorker);\n",
           "    static_cast<void>(itBehind);\n    m_vecIdleThreads.push_back(_pWorker);\n"),
          scenario="two-submitters", strategy="random",
          seen="the idle list is out of order"),
    fault("a worker is put on the idle list twice", WORKERS,
          ("    AddIdleWorker(_pWorker);\n}", "    AddIdleWorker(_pWorker);\n    AddIdleWorker(_pWorker);\n}"),
          scenario="submit-and-run", strategy="random",
          seen="a worker is on the idle list twice"),
    fault("a worker is idle before it is unbound", WORKERS,
          ("    UnbindTask(_pWorker);\n    if (!m_bRun)", "    if (!m_bRun)"),
          ("    AddIdleWorker(_pWorker);\n}", "    AddIdleWorker(_pWorker);\n    UnbindTask(_pWorker);\n}"),
          scenario="submit-and-run", strategy="random",
          seen="a worker is idle and bound"),
    fault("the limit of workers is compared with >", WORKERS,
          ("m_iMaxThread >= GetTaskThreadNum()", "m_iMaxThread > GetTaskThreadNum()"),
          scenario="worker-limit", strategy="random",
          seen="a task begins late"),
    fault("retirement looks, and takes off the list a moment later", WORKERS,
          ("    for (CLS_TaskThread* const pWorker : TakeOverdueWorkers())\n    {\n        RetireWorker(pWorker);\n",
           "    std::vector<CLS_TaskThread*> vecIdle;\n    {\n"
           "        const CLS_LockGuard lock(m_mtxIdleThreads);\n        vecIdle = m_vecIdleThreads;\n    }\n"
           "    for (CLS_TaskThread* const pWorker : vecIdle)\n    {\n"
           "        ForgetWorker(pWorker);\n        RetireWorker(pWorker);\n"),
          scenario="retire-against-next-attempt", strategy="random",
          seen=("a worker is freed while it is idle", "a task begins at another time", "freed memory is")),
    fault("a worker is freed before it is unregistered", WORKERS,
          ("        const std::string strTaskId = UnregisterWorker(_pWorker);\n"
           "        const std::unique_ptr<CLS_TaskThread> pWorker(_pWorker);\n",
           "        const int iOrderId = _pWorker->GetOrderId();\n        delete _pWorker;\n"
           "        const std::string strTaskId = UnregisterWorker(_pWorker);\n"),
          ('"delete pThread - " << _pWorker->GetOrderId();', '"delete pThread - " << iOrderId;'),
          scenario="retire-against-hand-over", strategy="random",
          seen="a worker is freed before it is unregistered"),
    fault("a worker's last activity is its beginning", WORKER,
          ("        m_tpLastActive.store(std::chrono::steady_clock::now(), std::memory_order_relaxed);\n", ""),
          scenario="watchdog-retires", strategy="random",
          seen="not one worker retires"),

    # Loop tasks.
    fault("a changed interval is ignored", TASK,
          ("    ++g_uiIntervalChanges;\n", ""),
          scenario="loop-with-changed-interval", strategy="random",
          seen="the shorter interval is ignored"),
    fault("a loop task is due when more than its interval has passed", TASK,
          ("(std::memory_order_relaxed)) >= m_iLoopInterval", "(std::memory_order_relaxed)) > m_iLoopInterval"),
          scenario="loop-goes-on", strategy="random",
          seen="a task runs too seldom"),
    fault("a loop task that executes counts as due", TASK,
          ("    if (m_iTaskStatus > TASK_STATUS_IDLE || !m_bValid)\n    {\n        return false;",
           "    if (!m_bValid)\n    {\n        return false;"),
          scenario="loop-with-long-runs", strategy="random",
          seen="a task overlaps itself"),
    fault("the end of a run is stored after the status", TASK,
          ("        m_clsTask.m_tpLastRun.store(std::chrono::steady_clock::now(), std::memory_order_relaxed);\n"
           "        m_clsTask.m_iTaskStatus.exchange(TASK_STATUS_IDLE);\n",
           "        m_clsTask.m_iTaskStatus.exchange(TASK_STATUS_IDLE);\n"
           "        m_clsTask.m_tpLastRun.store(std::chrono::steady_clock::now(), std::memory_order_relaxed);\n"),
          scenario="loop-ends-when-looked-at", strategy="pct3",
          seen="a task begins early"),

    # The end of the pool.
    fault("the end of the pool does not wait for last steps", WORKERS,
          ("Close(bOverrun ? tpBegin : tpBegin + RUN_LIMIT)", "Close(bOverrun ? tpBegin : tpBegin + 0 * RUN_LIMIT)"),
          scenario="end-waits-for-removed", strategy="random",
          seen="a task still runs"),
    fault("a worker is freed before its thread has ended", WORKER,
          ("        m_pThread->join();\n", "        m_pThread->detach();\n"),
          scenario="submit-and-run", strategy="random",
          seen=("a lock is freed that a thread holds", "freed memory is")),
    fault("a worker that was left behind goes on in the pool", GATE,
          ("    return (_uiState & ABANDONED) == 0;\n", "    return true;\n"),
          scenario="end-with-overrun", strategy="random",
          seen="freed memory is"),
    fault("a worker that was left behind is never freed", WORKER,
          ("        delete this;\n", ""),
          scenario="end-with-overrun", strategy="random",
          seen=("2 blocks of memory are left", "3 blocks of memory are left")),
    fault("the end of the pool stops no task", LIFETIME,
          ("        EndWorkers(vecOverrun);\n", "        EndWorkers({});\n"),
          ("vecOverrun = StopBoundTasks(_clsClaim);", "vecOverrun;"),
          scenario="end-with-one-task", strategy="random",
          seen="a task was not stopped by the end of the pool"),
    fault("the other end of the pool stops no task", LIFETIME,
          ("    if (ShutDown(clsClaim))\n    {\n        // \"PrintLog", "    if (m_pInstance == nullptr)\n    {\n        // \"PrintLog"),
          scenario="end-with-one-task", strategy="random",
          seen="a task was not stopped by the end of the pool"),
    fault("the end of the pool stops tasks under a lock", WORKERS,
          ("    for (const auto& [pWorker, strTaskId] : CopyBindings())\n",
           "    const CLS_SharedGuard lock(m_smThreadTaskLock);\n"
           "    for (const auto& [pWorker, strTaskId] : m_mapThreadTask)\n"),
          scenario="end-with-one-task", strategy="random",
          seen="a task is stopped under a lock of the pool"),
    fault("a worker goes idle after the end has begun", WORKERS,
          ("    if (!m_bRun)\n    {\n        return;\n    }\n    if (optTask)", "    if (optTask)"),
          scenario="end-with-one-task", strategy="random",
          seen="a worker goes idle after the end has begun"),

    # Two threads that end the pool.
    fault("a shutdown is claimed later, with its second step", CLAIM,
          ("        pLife->m_bClaimed = true;\n", ""),
          ("    m_pLife->m_tpStepLimit = ", "    m_pLife->m_bClaimed = true;\n    m_pLife->m_tpStepLimit = "),
          scenario="end-by-two-tasks-kill", strategy="random",
          seen=("the pool is ended twice", "freed memory is", "a call does not return", "crash: signal")),
    fault("a host does not wait for another thread's shutdown", CLAIM,
          ("if (pLife->MustNotWait(idSelf) || ", "if (pLife->m_bClaimed || "),
          scenario="end-by-two-hosts", strategy="random",
          seen="a host's call returns before the pool has ended"),
    fault("a task waits for the shutdown that waits for it", CLAIM,
          (" || m_setThreads.count(_idThread) > 0;", ";"),
          scenario="end-by-host-and-task", strategy="random",
          seen="a task's call waits"),
    fault("a call touches a pool that is gone", CLAIM,
          ("    if (!pLife->m_bGone)\n", "    if (pLife)\n"),
          scenario="end-by-two-hosts-kill", strategy="random",
          seen=("freed memory is", "the pool is ended twice")),

    # Log records while the logging library is opened.
    fault("records are dropped while the library is opened", BINDING,
          ("            Keep(lstOne);\n", ""),
          scenario="records-during-the-opening", strategy="random",
          seen=("a record is lost", "a record overtakes an earlier one")),
    fault("a record waits while the library is opened", BINDING,
          ("clsTurn(m_clsTurn, std::try_to_lock);", "clsTurn(m_clsTurn);"),
          scenario="records-during-the-opening", strategy="random",
          seen="a record waits for the opening"),
    fault("a record opens the library again", BINDING,
          (' || FindBound("PrintLog")', ""),
          scenario="records-during-the-opening", strategy="random",
          seen="the library is opened again"),
    fault("a record does not look for the one in hand", BINDING,
          ("m_idInHand == idSelf && m_idHandsOver != idSelf;", "false;"),
          scenario="records-during-the-opening", strategy="random",
          seen="a record overtakes an earlier one"),
    fault("a thread leaves its later records to the one that hands over", BINDING,
          ("            m_lstOwn.splice(m_lstOwn.end(), m_lstKept, itOwn);\n",
           "            m_lstOwn.splice(m_lstOwn.end(), m_lstKept, itOwn);\n            break;\n"),
          scenario="records-during-the-opening", strategy="random",
          seen="a record overtakes an earlier one"),

    # The host kit: closing, and records.
    fault("a run of the kit ends without a notification", KIT + "PoolHubRuns.h",
          ("m_bFailed ? 1U : 0U;\n    clsGroup.m_cvRuns.notify_all();\n", "m_bFailed ? 1U : 0U;\n"),
          scenario="kit-remove-owner", strategy="random",
          seen="the removal"),
    fault("a removal of the kit does not wait for runs", KIT + "PoolHubRuns.h",
          ("        return !bWait;\n", "        return true;\n"),
          scenario="kit-remove-owner", strategy="random",
          seen=("the removal says that something runs", "the other removal gives up")),
    fault("tasks are taken during a removal of the kit", KIT + "PoolHubQueue.h",
          (" && clsGroup.m_iRemovals == 0;", ";"),
          scenario="kit-remove-owner-whose-task-submits", strategy="random",
          seen="a task is taken during the removal"),
    fault("a removal of the kit raises no token", KIT + "PoolHubTasks.h",
          ("        if (pStop)\n        {\n            pStop->Request();\n        }\n    }\n    lock.lock();\n",
           "    }\n    lock.lock();\n"),
          scenario="kit-remove-owner-whose-task-submits", strategy="random",
          seen="the removal gives up"),
    fault("a loop task of the kit is over before its callable is gone", KIT + "PoolHubLoops.h",
          ("        clsTask.DestroyCallable();\n", ""),
          scenario="kit-remove-loop-twice", strategy="random",
          seen="the callable of a task outlives its removal"),
    fault("a worker of the kit leaves its record", KIT + "PoolHubWorkers.h",
          ("    SweepRecords(lock);\n    FinishRecord(_pRecord);\n", "    SweepRecords(lock);\n"),
          scenario="kit-keeps-few-records", strategy="random",
          seen="records are left"),
    fault("the kit's heartbeat removes no records", KIT + "PoolHubWorkers.h",
          ("    ++m_iInside;\n    SweepRecords(lock);\n", "    ++m_iInside;\n"),
          scenario="kit-keeps-few-records", strategy="random",
          seen="records are left"),
    fault("a removal of the kit leaves what was posted", KIT + "PoolHubQueue.h",
          ("    while (CLS_QueuedTask* const pTask = _clsGroup.m_chnPosted.GetFirst())\n"
           "    {\n        _clsRemoved.Add(*TakePosted(*pTask->m_pTicket));\n    }\n", ""),
          scenario="kit-deliver-against-removal", strategy="pct2",
          seen=("what a delivery captured outlives its removal", "a delivery begins after its removal")),
    fault("a removal of the kit does not wait for a delivery", KIT + "PoolHubDeliveries.h",
          ("    BeginRun(stRun);\n    lock.unlock();\n", "    lock.unlock();\n"),
          ("    EndRun(stRun);\n", ""),
          scenario="kit-deliver-against-removal", strategy="random",
          seen=("what a delivery captured outlives its removal", "a delivery begins after its removal",
                "a delivery goes on after its removal")),
    fault("the kit posts without a look at the owner", KIT + "PoolHubDeliveries.h",
          ("if (!Accepts(*_pTask))", "if (m_bEnded)"),
          scenario="kit-post-against-removal", strategy="random",
          seen=("a delivery is taken after the removal", "a delivery begins after its removal",
                "what a delivery captured outlives its removal")),
    fault("a step of the kit goes on after a removal that did not wait", KIT + "PoolHubQueue.h",
          ("const bool bCurrent = !_clsTask.m_pStop || _clsTask.m_pStop == clsGroup.m_pStop;",
           "const bool bCurrent = true;"),
          scenario="kit-continue-against-removal", strategy="random",
          seen="a step begins after its removal"),
    fault("a removal of the kit forgets the runs that it leaves", KIT + "PoolHubQueue.h",
          ("        --_clsGroup.m_uiActive;\n        _clsRemoved.Add(*pTask);\n    }\n",
           "        _clsRemoved.Add(*pTask);\n    }\n    _clsGroup.m_uiActive = 0;\n"),
          scenario="kit-keeps-the-limit", strategy="random",
          seen="more tasks run than the owner's limit"),
    fault("a run of the kit lets no held task start", KIT + "PoolHubWorkers.h",
          ("    Deactivate(clsGroup);\n", "    --clsGroup.m_uiActive;\n"),
          scenario="kit-keeps-the-limit", strategy="random",
          seen="a task that was held does not run"),
    fault("a removal of the kit leaves what starts later", KIT + "PoolHubQueue.h",
          ("    while (CLS_QueuedTask* const pTask = _clsGroup.m_chnDelayed.GetFirst())\n"
           "    {\n        Undelay(*pTask);\n        _clsRemoved.Add(*pTask);\n    }\n", ""),
          scenario="kit-remove-later", strategy="random",
          seen=("the callable of a task outlives its removal", "a task begins after its removal has returned")),
    fault("a trigger of the kit's debounce is forgotten during a run", KIT + "CLS_DebounceCore.h",
          ("            m_bTriggered = true;\n            if (m_pPending == stTied.m_pStop)\n            {\n"
           "                return true;\n            }\n",
           "            if (m_pPending == stTied.m_pStop)\n            {\n                return true;\n            }\n"
           "            m_bTriggered = true;\n"),
          scenario="kit-debounce-runs-the-last", strategy="random",
          seen="the last trigger leads to no run"),
    fault("a run of the kit's debounce notes its triggers late", KIT + "CLS_DebounceCore.h",
          ("            m_bTriggered = false;\n", ""),
          ("        m_bRunning = false;\n        const", "        m_bRunning = false;\n        m_bTriggered = false;\n        const"),
          scenario="kit-debounce-runs-the-last", strategy="random",
          seen="the last trigger leads to no run"),
]


def spoil(fault):
    """The source with the fault."""
    text = (ROOT / fault["source"]).read_text()
    for old, new in fault["edits"]:
        if text.count(old) != 1:
            sys.exit("%s: occurs %d times instead of once in %s:\n%s"
                     % (fault["name"], text.count(old), fault["source"], old))
        text = text.replace(old, new)
    return text


if __name__ == "__main__":
    for each in FAULTS:
        spoil(each)
    print("%d faults, each text occurs once" % len(FAULTS))
