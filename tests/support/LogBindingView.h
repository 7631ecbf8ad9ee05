#pragma once

#include "QuenInclude/CLS_LogBinding.h"

#include <cstddef>
#include <thread>

/// The private side of CLS_LogBinding, for tests that look inside. Only LogBindingView.cpp writes the private
/// names.
namespace LogBindingView
{
CLS_LoadTurn& GetTurn(CLS_LogBinding& _clsBinding);
/// The thread that hands log records over; no id when none does.
std::thread::id& GetHandOverThread(CLS_LogBinding& _clsBinding);

/// The log records that wait for the library.
std::size_t CountKept(const CLS_LogBinding& _clsBinding);
std::size_t CountHandedOver(const CLS_LogBinding& _clsBinding);
/// Opens the library unless another thread does; whether it now has "PrintLog".
bool BindIfFree(CLS_LogBinding& _clsBinding);
} // namespace LogBindingView
