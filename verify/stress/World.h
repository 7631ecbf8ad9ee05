#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "verify/stress/Model.h"

#include <array>
#include <shared_mutex>

/// An object of the host on whose behalf tasks run. Several threads submit for it; one at a time removes.
struct ST_TaskOwner
{
    std::mutex m_mtxRemoval;         ///< held while the owner's tasks are removed
    std::mutex m_mtxEntries;         ///< guards the members below
    std::vector<Entry> m_vecEntries; ///< tasks submitted since the last removal
    bool m_bRemoving = false;
};

/// A one-shot task whose record the host holds.
struct ST_Held
{
    Entry m_pEntry;
    std::mutex m_mtxTask; ///< held while the task is queued or removed; guards m_pTask
    std::shared_ptr<CLS_Task> m_pTask;
};

/// A list that host threads share.
template <typename T_Element>
class CLS_SharedList
{
public:
    void Add(const T_Element& _clsElement)
    {
        const std::lock_guard<std::mutex> lock(m_mtxList);
        m_vecList.push_back(_clsElement);
    }

    /// A copy of the element at _uiDraw modulo the size. With _bTake, also removes it from the list. If the
    /// list is empty, returns an empty element.
    T_Element Pick(std::uint64_t _uiDraw, bool _bTake)
    {
        const std::lock_guard<std::mutex> lock(m_mtxList);
        if (m_vecList.empty())
        {
            return {};
        }
        const auto itElement = m_vecList.begin() + static_cast<std::ptrdiff_t>(_uiDraw % m_vecList.size());
        T_Element clsElement = *itElement;
        if (_bTake)
        {
            m_vecList.erase(itElement);
        }
        return clsElement;
    }

    std::size_t GetSize()
    {
        const std::lock_guard<std::mutex> lock(m_mtxList);
        return m_vecList.size();
    }

    std::vector<T_Element> TakeAll()
    {
        const std::lock_guard<std::mutex> lock(m_mtxList);
        return std::move(m_vecList);
    }

private:
    std::mutex m_mtxList; ///< guards m_vecList
    std::vector<T_Element> m_vecList;
};

/// The host: what its threads and its tasks share.
struct ST_World
{
    explicit ST_World(std::uint64_t _uiSeed) : m_clsModel(_uiSeed) {}

    static constexpr std::size_t OWNERS = 16;

    CLS_Model m_clsModel;
    std::array<ST_TaskOwner, OWNERS> m_arrOwners;
    CLS_SharedList<Entry> m_clsLoops;
    CLS_SharedList<std::shared_ptr<ST_Held>> m_clsHelds;

    /// A task holds it shared while it calls the pool. The shutdown holds it exclusively, because no task may
    /// call the pool then.
    std::shared_mutex m_smPoolUse;
    std::atomic<bool> m_bPoolEnding{false}; ///< tells tasks not to wait for m_smPoolUse
};
