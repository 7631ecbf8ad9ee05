#pragma once

#include <string>

/// What the threads and the objects of a schedule are called when it is printed.
namespace Names
{
/// During its life, new threads are the pool's service threads, in their order.
class CLS_ServiceScope
{
public:
    CLS_ServiceScope();
    ~CLS_ServiceScope();
    CLS_ServiceScope(const CLS_ServiceScope&) = delete;
    CLS_ServiceScope& operator=(const CLS_ServiceScope&) = delete;
};

/// Remembers the pool, its workers and the tasks that there are. No address is used twice in a schedule.
void Learn();

/// For the scheduler's options.
std::string NameThread(int _iThread, int _iMaker);
std::string NameObject(const void* _pObject);

/// Whether the thread is a dispatcher.
bool IsDispatcher(int _iThread);

void Forget();
} // namespace Names
