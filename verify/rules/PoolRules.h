#pragma once

#include "tests/support/PoolView.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// Rules for the pool's own data. They hold whenever the locks are free. The schedules, the stress program
/// and the fuzzer of the pool share these rules.
///
/// The text of a rule says what is wrong. These are pure functions. The caller holds the locks of the
/// arguments.
namespace PoolRules
{
/// A worker on the idle list.
struct ST_IdleWorker
{
    CLS_TaskThread* m_pWorker;
    int m_iOrderId;
};

constexpr const char* TOO_MANY_WORKERS = "there are more workers than the limit and one";
constexpr const char* IDLE_TWICE = "a worker is on the idle list twice";
constexpr const char* IDLE_UNSORTED = "the idle list is out of order";
constexpr const char* OWNERS_DISAGREE = "the owner maps disagree";

/// The rule that this number of workers breaks; null if it breaks none.
const char* CheckWorkerCount(std::size_t _uiWorkers, int _iLimit);

/// The rule that the idle list breaks; null if it is sorted by order id, with each worker once.
const char* CheckIdleList(const std::vector<ST_IdleWorker>& _vecIdle);

/// The rule that the owner maps break; null if each id has one owner in both, each owner has an id, and each
/// list has its cursor.
const char* CheckOwners(const PoolView::OwnerLists& _mapLists, const std::map<std::string, void*>& _mapOwners,
                        const PoolView::OwnerCursors& _mapCursors);

/// The rule that the pool breaks now; null if it breaks none. Takes the locks itself, one after the other.
const char* CheckPool(CLS_QuenTaskPool& _clsPool);
} // namespace PoolRules
