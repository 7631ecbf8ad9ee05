#pragma once

#include "tests/machrun/CLS_Image.h"

/// What images want to be called at the end of the process, of a thread, or of themselves. Any thread may
/// call these functions; none holds a lock while a handler runs.
namespace ExitHandlers
{
using Handler = void (*)(void*);

/// To be called with the argument at the end of the process, or when the image with the place _pImage is
/// taken away.
void Add(Handler _funHandler, void* _pArgument, const void* _pImage);
/// To be called with the object at the end of the calling thread.
void AddForThread(Handler _funHandler, void* _pObject);

/// Calls the handlers, those added last first, and forgets them.
void RunForThread();
void RunOf(const CLS_Image& _clsImage);

/// Calls the calling thread's handlers and those of the process, writes out what is buffered, and ends it.
[[noreturn]] void EndProcess(int _iStatus);
} // namespace ExitHandlers
