#pragma once

#include "tests/machrun/CLS_Image.h"

/// The handlers of images for the end of the process, of a thread, or of the image.
///
/// Threads: any. No lock is held while a handler runs.
namespace ExitHandlers
{
using Handler = void (*)(void*);

/// Adds a handler that is called with the argument at the end of the process, or when the image that contains
/// _pImage is unloaded.
void Add(Handler _funHandler, void* _pArgument, const void* _pImage);
/// Adds a handler that is called with the object at the end of the calling thread.
void AddForThread(Handler _funHandler, void* _pObject);

/// Calls the handlers in reverse order, and forgets them.
void RunForThread();
void RunOf(const CLS_Image& _clsImage);

/// Calls the handlers of the calling thread and of the process, flushes the streams, and ends the process.
[[noreturn]] void EndProcess(int _iStatus);
} // namespace ExitHandlers
