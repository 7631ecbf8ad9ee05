"""Faults to be found: each is put into a copy of one source of the product.

An edit is (text, replacement); the text stands in the source exactly once. "found by" names the scenario and the
strategy that scripts/schedules.sh looks for the fault with.
"""

POOL = "QuenPlugins/ZelTaskPool/"
DISPATCH = POOL + "CLS_QuenTaskPoolDispatch.cpp"
SERVICE = POOL + "CLS_QuenTaskPoolService.cpp"
SHUTDOWN = POOL + "CLS_QuenTaskPoolShutdown.cpp"
START = POOL + "CLS_QuenTaskPool.cpp"
TASKS = POOL + "CLS_QuenTaskPoolTasks.cpp"
TASK = POOL + "CLS_Task.cpp"
WORKER = POOL + "CLS_TaskThread.cpp"
GATE = POOL + "CLS_RunGate.cpp"


def fault(name, source, *edits, scenario="", strategy="random"):
    return {"name": name, "source": source, "edits": edits, "scenario": scenario, "strategy": strategy}


FAULTS = [
    # Notifications.
    fault("a queued id notifies nobody", DISPATCH,
          ("        m_cvWaitingTasks.notify_one();\n", ""),
          scenario="submit-and-run", strategy="random"),
    fault("a hand-over notifies nobody", WORKER,
          ("    m_funFunction = _funJob;\n    m_cvFunction.notify_one();\n", "    m_funFunction = _funJob;\n"),
          scenario="submit-and-run", strategy="random"),
    fault("the end of the pool notifies nobody", SHUTDOWN,
          ("    m_cvWaitingTasks.notify_one();\n", ""),
          scenario="submit-and-run", strategy="random"),
    fault("the pool's run flag is cleared outside the lock", SHUTDOWN,
          ("    {\n        const CLS_LockGuard lock(m_mtxWaitingTasks);\n        m_bRun.exchange(false);\n    }\n",
           "    m_bRun.exchange(false);\n"),
          scenario="end-with-one-task", strategy="pct2"),
    fault("a worker's end is notified outside the lock", WORKER,
          ("gets the notification.\n    const CLS_LockGuard lock(m_mtxFunction);\n", "gets the notification.\n"),
          scenario="two-submitters", strategy="random"),
    fault("the gate waits without a predicate", GATE,
          ("_nsLimit, [this]() ZEL_REQUIRES(m_mtxGate) { return !m_bRunning; });", "_nsLimit);"),
          scenario="end-waits-for-removed", strategy="random"),

    # Stop against the start of a run.
    fault("a run reads the validity before it stores the status", TASK,
          ("    const CLS_Run clsRun(*this);\n    try\n    {\n        RunCallable();\n",
           "    const bool bValid = m_bValid;\n    const CLS_Run clsRun(*this);\n    try\n    {\n"
           "        if (bValid)\n        {\n            RunCallable();\n        }\n"),
          ("if (m_bValid && m_funTask)", "if (m_funTask)"),
          scenario="stop-against-start", strategy="pct3"),
    fault("a stop reads the status before it stores the validity", TASK,
          ("    m_bValid.exchange(false);\n    for (int iSleeps",
           "    const bool bExecuting = m_iTaskStatus >= STATUS_EXECUTING;\n    m_bValid.exchange(false);\n"
           "    if (!bExecuting)\n    {\n        return true;\n    }\n    for (int iSleeps"),
          scenario="stop-against-start", strategy="pct3"),
    fault("a stop stores the validity with release", TASK,
          ("    m_bValid.exchange(false);\n    for",
           "    m_bValid.store(false, std::memory_order_release);\n    for"),
          scenario="stop-handshake", strategy="random"),
    fault("a run stores the status with release", TASK,
          ("m_iTaskStatus.exchange(TASK_STATUS_RUNNING);",
           "m_iTaskStatus.store(TASK_STATUS_RUNNING, std::memory_order_release);"),
          scenario="stop-against-start", strategy="pct2"),

    # Removal.
    fault("a removal does not wait for the run", TASKS,
          ("const bool bStopped = pTask && pTask->Stop();",
           "const bool bStopped = pTask != nullptr;\n    if (pTask)\n    {\n        pTask->SetValid(false);\n    }"),
          scenario="remove-itself", strategy="random"),
    fault("an owner's tasks are made invalid one by one", TASKS,
          ("    InvalidateTasks(_lstTaskIds);\n    for", "    for"),
          scenario="remove-owner-of-many", strategy="random"),
    fault("a removal does not wait for the last reference", TASKS,
          ("        WaitForLastReference(pTask, _iPollsLeft);\n", ""),
          scenario="loop-against-removal", strategy="random"),
    fault("a removed task is destroyed under the registry's lock", TASKS,
          ("    const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(_strTaskId).lock();\n"
           "    const bool bStopped = pTask && pTask->Stop();\n    CLS_Task::DeleteTask(_strTaskId);\n"
           "    if (bStopped)\n    {\n        WaitForLastReference(pTask, _iPollsLeft);\n    }\n",
           "    static_cast<void>(_iPollsLeft);\n"
           "    if (const std::shared_ptr<CLS_Task> pTask = CLS_Task::GetTask(_strTaskId).lock())\n    {\n"
           "        pTask->Stop();\n    }\n    CLS_Task::DeleteTask(_strTaskId);\n"),
          scenario="captured-object-calls", strategy="random"),

    # Submission and dispatch.
    fault("an owner is noted before the queueing", TASKS,
          ("        AddWaitingTasks(strTaskId);\n        // The task may have run by now. Its owner is noted all the "
           "same.\n        AddOwnedTask(strTaskId, _pObj);\n",
           "        AddOwnedTask(strTaskId, _pObj);\n        AddWaitingTasks(strTaskId);\n"),
          scenario="submit-and-run", strategy="random"),
    fault("the queue is copied, and cleared a moment later", DISPATCH,
          ("    std::vector<std::string> vecBatch;\n    CLS_WaitGuard lock(m_mtxWaitingTasks);\n"
           "    while (m_vecWaitingTasks.empty() && m_bRun)\n    {\n"
           "        m_cvWaitingTasks.wait_for(lock.GetLock(), QUEUE_WAIT);\n    }\n"
           "    vecBatch.swap(m_vecWaitingTasks);\n",
           "    std::vector<std::string> vecBatch;\n    {\n        CLS_WaitGuard lock(m_mtxWaitingTasks);\n"
           "        while (m_vecWaitingTasks.empty() && m_bRun)\n        {\n"
           "            m_cvWaitingTasks.wait_for(lock.GetLock(), QUEUE_WAIT);\n        }\n"
           "        vecBatch = m_vecWaitingTasks;\n    }\n"
           "    const CLS_LockGuard lock(m_mtxWaitingTasks);\n    m_vecWaitingTasks.clear();\n"),
          scenario="two-submitters", strategy="random"),
    fault("the report of a busy pool comes at the ninety-first attempt", DISPATCH,
          ("RETRIES_PER_REPORT = 90;", "RETRIES_PER_REPORT = 91;"),
          scenario="busy-report", strategy="random"),

    # Workers.
    fault("the idle list is not sorted", DISPATCH,
          ("    m_vecIdleThreads.insert(itBehind, _pThread);\n",
           "    static_cast<void>(itBehind);\n    m_vecIdleThreads.push_back(_pThread);\n"),
          scenario="two-submitters", strategy="random"),
    fault("a worker is put on the idle list twice", DISPATCH,
          ("    AddIdleThread(_pThread);\n}", "    AddIdleThread(_pThread);\n    AddIdleThread(_pThread);\n}"),
          scenario="submit-and-run", strategy="random"),
    fault("a worker is idle before it is unbound", DISPATCH,
          ("    UnbindTask(_pThread);\n    if (!m_bRun)", "    if (!m_bRun)"),
          ("    AddIdleThread(_pThread);\n}", "    AddIdleThread(_pThread);\n    UnbindTask(_pThread);\n}"),
          scenario="submit-and-run", strategy="random"),
    fault("the limit of workers is compared with >", START,
          ("m_iMaxThread >= GetTaskThreadNum()", "m_iMaxThread > GetTaskThreadNum()"),
          scenario="worker-limit", strategy="random"),
    fault("retirement looks, and takes off the list a moment later", SERVICE,
          ("    for (CLS_TaskThread* const pThread : TakeOverrunThreads())\n    {\n        RetireThread(pThread);\n",
           "    std::vector<CLS_TaskThread*> vecIdle;\n    {\n"
           "        const CLS_LockGuard lock(m_mtxIdleThreads);\n        vecIdle = m_vecIdleThreads;\n    }\n"
           "    for (CLS_TaskThread* const pThread : vecIdle)\n    {\n"
           "        ForgetWorker(pThread);\n        RetireThread(pThread);\n"),
          scenario="retire-against-next-attempt", strategy="random"),

    # Loop tasks.
    fault("a loop task is due when more than its interval has passed", TASK,
          ("(std::memory_order_relaxed)) >= m_iLoopInterval", "(std::memory_order_relaxed)) > m_iLoopInterval"),
          scenario="loop-goes-on", strategy="random"),
    fault("a loop task that executes counts as due", TASK,
          ("    if (m_iTaskStatus > TASK_STATUS_IDLE || !m_bValid)\n    {\n        return false;",
           "    if (!m_bValid)\n    {\n        return false;"),
          scenario="loop-with-long-runs", strategy="random"),
    fault("the end of a run is stored after the status", TASK,
          ("        m_clsTask.m_tpLastRun.store(std::chrono::steady_clock::now(), std::memory_order_relaxed);\n"
           "        m_clsTask.m_iTaskStatus.exchange(TASK_STATUS_IDLE);\n",
           "        m_clsTask.m_iTaskStatus.exchange(TASK_STATUS_IDLE);\n"
           "        m_clsTask.m_tpLastRun.store(std::chrono::steady_clock::now(), std::memory_order_relaxed);\n"),
          scenario="loop-ends-when-looked-at", strategy="pct3"),

    # The end of the pool.
    fault("the end of the pool does not wait for last steps", SHUTDOWN,
          ("            bOverrun ? std::chrono::nanoseconds(0) : tpLimit - std::chrono::steady_clock::now();",
           "            bOverrun ? std::chrono::nanoseconds(0) : 0 * (tpLimit - std::chrono::steady_clock::now());"),
          scenario="end-waits-for-removed", strategy="random"),
    fault("a worker is freed before its thread has ended", WORKER,
          ("        m_pThread->join();\n", "        m_pThread->detach();\n"),
          scenario="submit-and-run", strategy="random"),
    fault("a worker that was left behind goes on in the pool", GATE,
          ("    return !m_bAbandoned;\n}\n\nbool CLS_RunGate::Close", "    return true;\n}\n\nbool CLS_RunGate::Close"),
          scenario="end-with-overrun", strategy="random"),
    fault("a worker that was left behind is never freed", WORKER,
          ("        delete this;\n", ""),
          scenario="end-with-overrun", strategy="random"),
]
