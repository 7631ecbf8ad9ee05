#pragma once

#include <string>

/// The names of a schedule's threads and objects in its report.
namespace Names
{
/// While it exists, new threads are the pool's service threads, in their order.
class CLS_ServiceScope
{
public:
    CLS_ServiceScope();
    ~CLS_ServiceScope();
    CLS_ServiceScope(const CLS_ServiceScope&) = delete;
    CLS_ServiceScope& operator=(const CLS_ServiceScope&) = delete;
};

/// Learns the existing pool, workers and tasks. No address is used twice in a schedule.
void Learn();

/// For the scheduler's options.
std::string NameThread(int _iThread, int _iMaker);
std::string NameObject(const void* _pObject);

/// Whether the thread is a dispatcher.
bool IsDispatcher(int _iThread);

void Forget();
} // namespace Names
